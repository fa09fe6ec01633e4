#pragma once

#include "base/Mutex.h"
#include "orvcam/Contact.h"
#include "orvcam/OrvCam.h"

#include <chrono>
#include <functional>
#include <string>
#include <thread>

namespace orv::cam {

/// Finds out that a camera is lost where its producer does not tell, and tells one callback of it, once per
/// registration: when it happens, or at once when it has happened before.
///
/// Asking: a probe every second, and at once when something has failed. One that finds the camera gone is the loss. So
/// is silence: no answer to several probes in a row, nor to anybody else, for three seconds. A camera may be busy with
/// itself for nearly as long, and a lost packet is no lost camera.
///
/// Threads: any. Probe, finding and callback run on the one thread of this object, with no lock held.
class LossWatch {
public:
    enum class Answer {
        There,
        Awaited, ///< not asked: somebody else waits for an answer
        Silent,
        Gone
    };

    /// \param contact  hears of the answers that others get as well; outlives this object.
    /// \param onFound  gets the reason when a probe has found the loss; it calls Report().
    LossWatch(Contact &contact, std::function<void(const std::string &)> onFound);
    ~LossWatch();
    LossWatch(const LossWatch &) = delete;
    LossWatch &operator=(const LossWatch &) = delete;

    /// Ends the thread: nothing is asked or told any more. The object may still be called.
    void Stop() EXCLUDES(m_mutex);
    /// \param silenceCounts  whether no answer means anything: not with a camera that never answers this question.
    void StartAsking(std::function<Answer()> probe, bool silenceCounts) EXCLUDES(m_mutex);
    /// Something failed: the next probe is due. Without effect while nobody is asked.
    void AskNow() EXCLUDES(m_mutex);
    /// \param reason  what the callback gets as its data.
    void Report(const std::string &reason) EXCLUDES(m_mutex);
    /// \return ORV_CAM_ERR_INVALID_STATE while another callback is set.
    int Set(OrvCam::EventCallback callback, void *context) EXCLUDES(m_mutex);
    /// Waits for a running call to end, unless it comes from the call itself.
    int Clear(OrvCam::EventCallback callback, void *context) EXCLUDES(m_mutex);
    /// Whether the present callback has been told.
    bool HasTold() EXCLUDES(m_mutex);

private:
    using Clock = Contact::Clock;

    void Run() EXCLUDES(m_mutex);
    void Ask() EXCLUDES(m_mutex);
    bool IsLoss(Answer answer) EXCLUDES(m_mutex);
    void Tell() EXCLUDES(m_mutex);

    Contact &m_contact;
    const std::function<void(const std::string &)> m_onFound;
    Mutex m_mutex;
    ConditionVariable m_changed;
    std::function<Answer()> m_probe GUARDED_BY(m_mutex);
    Clock::time_point m_nextProbe GUARDED_BY(m_mutex);
    OrvCam::EventCallback m_callback GUARDED_BY(m_mutex) = nullptr;
    void *m_context GUARDED_BY(m_mutex) = nullptr;
    bool m_told GUARDED_BY(m_mutex) = false; ///< the present callback
    std::string m_reason GUARDED_BY(m_mutex);
    bool m_lost GUARDED_BY(m_mutex) = false;
    bool m_running GUARDED_BY(m_mutex) = false; ///< the callback
    bool m_stop GUARDED_BY(m_mutex) = false;
    bool m_silenceCounts GUARDED_BY(m_mutex) = false;
    int m_silences GUARDED_BY(m_mutex) = 0; ///< probes in a row
    std::thread m_thread;
};

} // namespace orv::cam
