#pragma once

#include "base/Mutex.h"
#include "producer/gige/GvcpClient.h"

#include <functional>
#include <string>
#include <thread>
#include <vector>

namespace nuvark::gige {

/// Keeps the control of a camera alive and notices when it is gone.
///
/// Reads the privilege register at least three times per heartbeat time; that is also the traffic which the camera
/// wants to see. The camera is lost when it has answered nothing for a little less than the heartbeat time (its own
/// timer began with the last packet that it got from us) and has been asked in vain for half of it, by whatever
/// command; or when the register no longer shows the privilege that was taken. Delivers register writes that a closing
/// sequence had no time to wait for.
///
/// A program that was itself stopped, or starved, has not asked meanwhile, so its own standing still is no silence of
/// the camera. Control that the camera has withdrawn after such a time is taken again where that is all that was lost.
/// Threads: Start() and Stop() from the owner's; the rest from any. `onLost` runs on the heartbeat thread, once at
/// most, with no lock held.
class Heartbeat {
public:
    struct Settings {
        std::uint32_t privilege = 0;             ///< bits that the register must show; 0 when opened for reading only
        std::chrono::milliseconds timeout{3000}; ///< in the beginning
        bool concatenates = false;               ///< the camera takes several registers in one command
        bool watchController = false;            ///< the camera tells who controls it: these two must not change
        std::uint32_t controllerAddress = 0;
        std::uint32_t controllerPort = 0;
        /// Takes control again. \return why that is not possible, or "". On the heartbeat thread.
        std::function<std::string()> regain = {};
    };

    Heartbeat(GvcpClient &client, Settings settings, std::function<void(const std::string &)> onLost);
    ~Heartbeat() { Stop(); }

    void Start();
    /// Does not wait for an answer when the client has been interrupted before.
    void Stop() EXCLUDES(m_mutex);

    /// The camera's heartbeat time has changed.
    void SetTimeout(std::chrono::milliseconds timeout) EXCLUDES(m_mutex);

    /// Writes a register as soon as the camera answers again; what it puts off is tried again with each beat. A later
    /// write to the same address replaces it.
    void Defer(RegisterWrite write) EXCLUDES(m_mutex);
    /// Forgets such a write; when it is just being written, waits until it is through.
    void DropDeferred(std::uint32_t address) EXCLUDES(m_mutex);

private:
    void EraseDeferred(std::uint32_t address) REQUIRES(m_mutex);
    void Run() EXCLUDES(m_mutex); // body of m_thread
    bool WaitForNextBeat() EXCLUDES(m_mutex);
    void ScheduleNextBeat(bool answered) EXCLUDES(m_mutex);
    std::chrono::milliseconds Period() const REQUIRES(m_mutex);
    /// \return why the camera is lost when it has been silent for too long, or "".
    std::string JudgeSilence() EXCLUDES(m_mutex);
    std::string JudgeWithdrawal() EXCLUDES(m_mutex);
    void WriteDeferred() EXCLUDES(m_mutex);
    /// A write that has failed, unless there is a later one to the same address.
    void PutBack(const RegisterWrite &write) REQUIRES(m_mutex);
    /// One look at the camera. \return why it is lost, or "".
    std::string Beat(bool &answered);
    /// The privilege and, where they are to be watched, the controller's address and port.
    Status ReadState(std::vector<std::uint32_t> &values);
    std::string CheckController(std::uint32_t address, std::uint32_t port) const;

    GvcpClient &m_client;
    const Settings m_settings;
    const std::function<void(const std::string &)> m_onLost;

    orv::Mutex m_mutex; ///< never held while talking to the camera
    orv::ConditionVariable m_changed;
    bool m_stopping GUARDED_BY(m_mutex) = false;
    std::chrono::milliseconds m_timeout GUARDED_BY(m_mutex);
    TimePoint m_nextBeat GUARDED_BY(m_mutex);
    bool m_answered GUARDED_BY(m_mutex) = true; ///< the last beat was
    std::vector<RegisterWrite> m_deferred GUARDED_BY(m_mutex);
    bool m_hasNewDeferred GUARDED_BY(m_mutex) = false; ///< one that has not been tried
    bool m_writingDeferred GUARDED_BY(m_mutex) = false;

    std::thread m_thread;
};

} // namespace nuvark::gige
