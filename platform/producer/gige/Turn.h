#pragma once

#include "base/Mutex.h"

#include <chrono>

namespace nuvark::gige {

/// Whose turn it is with something that serves one at a time, for long: unlike a mutex it can be waited for with a
/// deadline, and whoever is urgent comes before all others that wait. Any thread; gives no hold on other locks.
class CAPABILITY("mutex") Turn {
public:
    enum class Rank { Ordinary, Urgent };

    void Take(Rank rank) ACQUIRE();
    /// Urgent. \return false when it has not become free in time.
    bool TakeUntil(std::chrono::steady_clock::time_point deadline) TRY_ACQUIRE(true);
    /// \return false when somebody has it.
    bool TakeAtOnce() TRY_ACQUIRE(true);
    void GiveBack() RELEASE();

private:
    orv::Mutex m_mutex; ///< for the two fields, never held long
    orv::ConditionVariable m_free;
    bool m_isTaken GUARDED_BY(m_mutex) = false;
    int m_urgent GUARDED_BY(m_mutex) = 0; ///< that wait
};

} // namespace nuvark::gige
