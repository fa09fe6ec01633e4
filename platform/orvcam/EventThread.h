#pragma once

#include "gentl/Library.h"
#include "orvcam/OrvCam.h"

#include <atomic>
#include <functional>
#include <memory>
#include <thread>
#include <vector>

namespace orv::cam {

/// Serves one registered GenTL event on a thread of its own.
///
/// Threads: Stop() and the destructor from any thread but its own. No lock is held while a handler runs.
class EventThread {
public:
    struct Handlers {
        std::function<void(const void *data, std::size_t bytes)> onData;
        /// The thread's last call where it ends by itself: `failed` when the producer serves the event no more, else
        /// because of StopFromHandler(), with the event unregistered. May be null.
        std::function<void(bool failed)> onEnd;
    };

    /// Registers the event and starts. \return ORV_CAM_ERR_NOT_IMPLEMENTED when the module has no such event.
    /// \param camera  for the log.
    static int Start(const gentl::Functions &calls, EVENTSRC_HANDLE module, EVENT_TYPE type, const std::string &camera,
                     Handlers handlers, std::unique_ptr<EventThread> *thread);
    ~EventThread();
    EventThread(const EventThread &) = delete;
    EventThread &operator=(const EventThread &) = delete;

    /// Ends the wait, lets a running handler finish and unregisters the event.
    void Stop();
    /// Makes the thread end after the handler that is calling this.
    void StopFromHandler();
    /// Whether the caller is this thread.
    bool IsThisThread() const;
    /// \param isOurs  the producer, which alone tells what was dropped.
    OrvCam::EventFigures Figures(bool isOurs) const;

private:
    EventThread(const gentl::Functions &calls, EVENTSRC_HANDLE module, EVENT_TYPE type, EVENT_HANDLE event,
                const std::string &camera, Handlers handlers);
    void Run();
    bool Serve();
    void Unregister();
    std::uint64_t Info(EVENT_INFO_CMD command, std::uint64_t otherwise) const;

    const gentl::Functions &m_calls;
    const EVENTSRC_HANDLE m_module;
    const EVENT_TYPE m_type;
    const EVENT_HANDLE m_event;
    const std::string m_camera;
    const Handlers m_handlers;
    std::atomic<bool> m_stop{false};
    std::atomic<bool> m_registered{true};
    std::atomic<std::uint64_t> m_fired{0};
    bool m_endsItself = false; ///< the thread's own, as the next
    std::vector<unsigned char> m_data;
    std::thread m_thread;
};

} // namespace orv::cam
