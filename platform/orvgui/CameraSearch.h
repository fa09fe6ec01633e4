#pragma once

#include "orvcam/OrvCam.h"

#include <QObject>

#include <memory>
#include <thread>
#include <vector>

namespace OrvGui {

struct FoundInterface {
    OrvCam::InterfaceDescription description; ///< with a searchFailure only where that may hide a camera
    std::vector<OrvCam::DeviceDescription> cameras;
};

/// What one search found; a copy of everything.
struct SearchResult {
    bool searchable = false; ///< false: there is no producer to search with
    bool failed = false;     ///< the system had no thread for the search: nothing is known
    std::vector<FoundInterface> interfaces;
};

/// Searches for cameras without holding up the GUI thread.
///
/// Start() runs one search on a thread of its own; signalFinished brings the result to the GUI thread. Destroying the
/// object does not wait for a search that is running: its result is dropped, and its thread is owned by the application
/// object, which waits for it when the program ends. The system must live longer than the application object.
/// All calls from the GUI thread.
class CameraSearch : public QObject {
    Q_OBJECT
public:
    /// \param system not null
    explicit CameraSearch(OrvCam::System *system, QObject *parent = nullptr);
    ~CameraSearch() override;

    /// Does nothing while a search is running. Without a thread to be had, a failed result is sent.
    void Start();
    /// Until signalFinished.
    bool IsRunning() const { return m_running; }

signals:
    void signalFinished(const OrvGui::SearchResult &result);

protected:
    void customEvent(QEvent *event) override;

private:
    class Mailbox;

    OrvCam::System *const m_system;
    std::shared_ptr<Mailbox> m_mailbox; ///< of the last search, shared with its thread
    std::thread m_thread;
    bool m_running = false;
};

} // namespace OrvGui
