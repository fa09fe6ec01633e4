#pragma once

#include "base/Mutex.h"

#include <atomic>
#include <chrono>

namespace orv::cam {

/// Whether a camera is lost. Once set it stays set.
///
/// The loss is told on a thread of its own, so an access may fail because of it a moment before. Who has seen one fail
/// asks IsOrWillBeSet(), and so gives the same answer as everybody after him.
/// Threads: any.
class LossFlag {
public:
    /// The producer tells of the loss, so waiting for the news makes sense.
    void ExpectNews() { m_isTold = true; }
    void Set() EXCLUDES(m_mutex)
    {
        MutexLock lock(m_mutex);
        m_isLost = true;
        m_changed.NotifyAll();
    }
    operator bool() const { return m_isLost; }
    /// Blocks for at most 50 ms.
    bool IsOrWillBeSet() const EXCLUDES(m_mutex)
    {
        const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(50);
        MutexLock lock(m_mutex);
        while (m_isTold && !m_isLost) {
            if (m_changed.WaitUntil(m_mutex, end) == std::cv_status::timeout)
                break;
        }
        return m_isLost;
    }

private:
    std::atomic<bool> m_isTold{false};
    std::atomic<bool> m_isLost{false};
    mutable Mutex m_mutex; ///< of the wait alone
    mutable ConditionVariable m_changed;
};

} // namespace orv::cam
