#pragma once

#include "base/Mutex.h"

#include <atomic>
#include <chrono>
#include <functional>
#include <utility>

namespace orv::cam {

/// Whether a camera is lost. Once set it stays set.
///
/// The loss is found out on a thread of its own, so an access may fail because of it a moment before. Who has seen one
/// fail asks IsOrWillBeSet(), and so gives the same answer as everybody after him.
/// Threads: any; Watch() before the others.
class LossFlag {
public:
    /// Somebody sets the flag when it is time, so waiting for the news makes sense. \param onSuspicion  called where an
    /// access has failed; whoever it makes look answers by Set() or Answered(). May be null.
    void Watch(std::function<void()> onSuspicion)
    {
        m_onSuspicion = std::move(onSuspicion);
        m_isWatched = true;
    }
    void Set() EXCLUDES(m_mutex)
    {
        MutexLock lock(m_mutex);
        m_isLost = true;
        m_changed.NotifyAll();
    }
    /// The camera was asked, and is there.
    void Answered() EXCLUDES(m_mutex)
    {
        MutexLock lock(m_mutex);
        ++m_answers;
        m_changed.NotifyAll();
    }
    operator bool() const { return m_isLost; }
    /// \param limit  how long to wait for the news.
    bool IsOrWillBeSet(std::chrono::milliseconds limit) const EXCLUDES(m_mutex)
    {
        if (m_isLost || !m_isWatched)
            return m_isLost;
        const auto end = std::chrono::steady_clock::now() + limit;
        const unsigned before = m_answers;
        if (m_onSuspicion)
            m_onSuspicion();
        MutexLock lock(m_mutex);
        while (!m_isLost && m_answers == before) {
            if (m_changed.WaitUntil(m_mutex, end) == std::cv_status::timeout)
                break;
        }
        return m_isLost;
    }

private:
    std::function<void()> m_onSuspicion;
    std::atomic<bool> m_isWatched{false};
    std::atomic<bool> m_isLost{false};
    std::atomic<unsigned> m_answers{0};
    mutable Mutex m_mutex; ///< of the wait alone
    mutable ConditionVariable m_changed;
};

} // namespace orv::cam
