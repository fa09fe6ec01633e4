#pragma once

#include "base/Mutex.h"
#include "orvcam/OrvCam.h"

#include <string>
#include <thread>

namespace orv::cam {

/// Tells one callback, once, that the camera is lost: when it happens, or at once when it has happened before.
///
/// Threads: any. The callback runs on a thread of this object, with no lock held.
class LostNotice {
public:
    LostNotice();
    ~LostNotice();
    LostNotice(const LostNotice &) = delete;
    LostNotice &operator=(const LostNotice &) = delete;

    /// \param reason  the producer's words; what the callback gets as its data.
    void Report(const std::string &reason) EXCLUDES(m_mutex);
    /// \return ORV_CAM_ERR_INVALID_STATE while another callback is set.
    int Set(OrvCam::EventCallback callback, void *context) EXCLUDES(m_mutex);
    /// Waits for a running call to end, unless it comes from the call itself.
    int Clear(OrvCam::EventCallback callback, void *context) EXCLUDES(m_mutex);

private:
    void Run() EXCLUDES(m_mutex);

    Mutex m_mutex;
    ConditionVariable m_changed;
    OrvCam::EventCallback m_callback GUARDED_BY(m_mutex) = nullptr;
    void *m_context GUARDED_BY(m_mutex) = nullptr;
    std::string m_reason GUARDED_BY(m_mutex);
    bool m_lost GUARDED_BY(m_mutex) = false;
    bool m_running GUARDED_BY(m_mutex) = false; ///< the callback
    bool m_stop GUARDED_BY(m_mutex) = false;
    std::thread m_thread;
};

} // namespace orv::cam
