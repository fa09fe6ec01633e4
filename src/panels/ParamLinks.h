#pragma once

#include "base/Mutex.h"

#include <QString>

#include <vector>

class OrvComponent;

/// One binding between a widget and a parameter of a component.
struct ParamLink {
    QString param;
    const char *format = nullptr; ///< printf format for reading as text; outlives the link; null for the default text
    QString control;              ///< object name of the widget when it was bound
    int row = 0;                  ///< of the parameter in a parameter table, 0 for other widgets
    OrvComponent *component = nullptr; ///< not owned; null in the link that stands for "none"
};

/// A panel's bindings, in the order they were made, and the parameters that wait to be shown.
///
/// The same parameter or widget may occur several times; look-ups find the first. Threads: any. The lock is held for
/// look-ups and copies only, never while a widget or a component is touched.
class ParamLinks {
public:
    void Add(const ParamLink &link) EXCLUDES(m_mutex);
    /// Drops all bindings, and all requests with them.
    void Clear() EXCLUDES(m_mutex);

    /// A copy of the first binding of that widget or parameter; a link without component when there is none.
    ParamLink ForControl(const QString &control) const EXCLUDES(m_mutex);
    ParamLink ForParam(const QString &param) const EXCLUDES(m_mutex);
    bool HasParam(const QString &param) const EXCLUDES(m_mutex);
    /// The parameter of every binding, in order.
    std::vector<QString> Params() const EXCLUDES(m_mutex);

    /// Queues a parameter once, however often it is asked for; an empty name replaces the queue by all bindings.
    void Request(const QString &param) EXCLUDES(m_mutex);
    /// Queues a parameter that has a binding. False when it has none.
    bool RequestIfBound(const QString &param) EXCLUDES(m_mutex);
    /// Empties the queue, in the order of the first requests.
    std::vector<QString> TakeRequests() EXCLUDES(m_mutex);

private:
    const ParamLink *FindParam(const QString &param) const REQUIRES(m_mutex);
    void Append(const QString &param) REQUIRES(m_mutex);
    std::vector<QString> CopyParams() const REQUIRES(m_mutex);

    mutable orv::Mutex m_mutex;
    std::vector<ParamLink> m_links GUARDED_BY(m_mutex);
    std::vector<QString> m_requests GUARDED_BY(m_mutex);
};
