#pragma once

#include "base/Mutex.h"
#include "orvcam/Description.h"
#include "orvcam/GenApi.h"
#include "orvcam/OrvFeatures.h"

#include <memory>
#include <mutex>

namespace orv::cam {

/// Lets the thread that holds it lock it again: who keeps others away for several calls makes them as ever.
class CAPABILITY("mutex") NodeMutex {
public:
    void lock() ACQUIRE() { m_mutex.lock(); }
    void unlock() RELEASE() { m_mutex.unlock(); }

private:
    std::recursive_mutex m_mutex;
};

class SCOPED_CAPABILITY NodeLock {
public:
    explicit NodeLock(NodeMutex &mutex) ACQUIRE(mutex) : m_mutex(mutex) { m_mutex.lock(); }
    ~NodeLock() RELEASE() { m_mutex.unlock(); }
    NodeLock(const NodeLock &) = delete;
    NodeLock &operator=(const NodeLock &) = delete;

private:
    NodeMutex &m_mutex;
};

/// A description, the GenApi tree made of it, and the lock that both need.
///
/// Threads: any, with `mutex` held around each call, and through a port access. So the port must neither come back here
/// nor wait for a thread that does.
class NodeMap {
public:
    /// \param port  borrowed, must outlive the map.
    /// \return null with a sentence in `*error`. What is wrong with single features goes to the log.
    static std::unique_ptr<NodeMap> Create(const std::string &xml, PortIo &port, std::string *error);

    const Description facts;
    NodeMutex mutex;

    GenApi &Api() REQUIRES(mutex) { return *m_genApi; }
    GenApiNode *Find(const NodeFacts &node) REQUIRES(mutex) { return m_genApi->Find(node.name); }

    /// What may be done with a node now. The library knows the registers' own access; the rest is judged here.
    /// \return a status other than ORV_CAM_OK when the camera could not be asked.
    int GetAccess(const NodeFacts &node, OrvCam::Access *access) REQUIRES(mutex);
    /// The same as if nothing were locked: locks come and go with the acquisition.
    int GetUnlockedAccess(const NodeFacts &node, OrvCam::Access *access) REQUIRES(mutex);
    int CheckPresent(const NodeFacts &node) REQUIRES(mutex);
    int CheckReadable(const NodeFacts &node) REQUIRES(mutex);
    int CheckWritable(const NodeFacts &node) REQUIRES(mutex);

private:
    NodeMap(Description description, std::unique_ptr<GenApi> genApi);

    /// \param locked  null: locks are not asked.
    int WalkAccess(const NodeFacts &feature, OrvCam::Access *access, bool *locked) REQUIRES(mutex);

    const std::unique_ptr<GenApi> m_genApi PT_GUARDED_BY(mutex);
};

} // namespace orv::cam
