#pragma once

#include "gentl/Library.h"

#include <atomic>
#include <functional>
#include <memory>
#include <thread>
#include <vector>

namespace orv::cam {

/// Serves one registered GenTL event on a thread of its own.
///
/// Threads: Stop() and the destructor from any thread but its own. No lock is held while the handler runs.
class EventThread {
public:
    using Handler = std::function<void(const void *data, std::size_t bytes)>;

    /// Registers the event and starts. \return ORV_CAM_ERR_NOT_IMPLEMENTED when the module has no such event.
    static int Start(const gentl::Functions &calls, EVENTSRC_HANDLE module, EVENT_TYPE type, Handler handler,
                     std::unique_ptr<EventThread> *thread);
    ~EventThread();
    EventThread(const EventThread &) = delete;
    EventThread &operator=(const EventThread &) = delete;

    /// Ends the wait, lets a running handler finish and unregisters the event.
    void Stop();
    /// Makes the thread end after the handler that is calling this. The destructor does the rest.
    void StopFromHandler() { m_stop = true; }
    bool IsThisThread() const { return std::this_thread::get_id() == m_thread.get_id(); }

private:
    EventThread(const gentl::Functions &calls, EVENTSRC_HANDLE module, EVENT_TYPE type, EVENT_HANDLE event,
                Handler handler);
    void Run();

    const gentl::Functions &m_calls;
    const EVENTSRC_HANDLE m_module;
    const EVENT_TYPE m_type;
    const EVENT_HANDLE m_event;
    const Handler m_handler;
    std::atomic<bool> m_stop{false};
    std::vector<unsigned char> m_data; ///< the thread's own
    std::thread m_thread;
};

} // namespace orv::cam
