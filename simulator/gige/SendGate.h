#pragma once

#include "base/Mutex.h"

#include <atomic>
#include <chrono>
#include <cstdint>

namespace orvsim {

using SendClock = std::chrono::steady_clock;
using SendTime = SendClock::time_point;

/// Lets one thread stop what others are sending. A sender takes a Pass before it begins; Shut() makes all passes of
/// before worthless. Any thread.
class SendGate {
public:
    using Pass = std::uint64_t;

    Pass TakePass() const { return m_shut.load(); }
    bool IsOpen(Pass pass) const { return m_shut.load() == pass; }
    void Shut() EXCLUDES(m_mutex)
    {
        {
            const orv::MutexLock lock(m_mutex);
            ++m_shut;
        }
        m_changed.NotifyAll();
    }
    /// \return false when the pass has become worthless before that time.
    bool WaitUntil(SendTime time, Pass pass) EXCLUDES(m_mutex)
    {
        if (time <= SendClock::now())
            return IsOpen(pass);
        const orv::MutexLock lock(m_mutex);
        while (IsOpen(pass)) {
            if (m_changed.WaitUntil(m_mutex, time) == std::cv_status::timeout)
                break;
        }
        return IsOpen(pass);
    }

private:
    orv::Mutex m_mutex; // pairs the change with the wait
    orv::ConditionVariable m_changed;
    std::atomic<Pass> m_shut{0};
};

} // namespace orvsim
