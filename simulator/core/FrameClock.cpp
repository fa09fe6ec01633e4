#include "simulator/core/FrameClock.h"

#include <algorithm>
#include <cmath>

namespace orvsim {

void FrameClock::Start(std::uint64_t nowNs)
{
    m_isRunning = true;
    m_number = 0;
    m_earliestNs = static_cast<double>(nowNs);
    m_timerNs = m_earliestNs;
    m_triggeredNs.reset();
}

bool FrameClock::Trigger(std::uint64_t nowNs, const Pace &pace)
{
    const double start = static_cast<double>(nowNs) + pace.delayNs;
    if (!m_isRunning || m_triggeredNs.has_value() || start < m_earliestNs)
        return false;
    m_triggeredNs = start;
    return true;
}

std::optional<std::uint64_t> FrameClock::NextDue(std::uint64_t nowNs, const Pace &pace)
{
    if (!m_isRunning)
        return std::nullopt;
    double start = m_earliestNs;
    if (pace.isTriggered && pace.isTimer) {
        // The timer runs on; pulses that come while the sensor is busy are lost.
        const double missed = std::ceil((m_earliestNs - pace.delayNs - m_timerNs) / pace.timerNs);
        m_timerNs += std::max(0.0, missed) * pace.timerNs;
        start = m_timerNs + pace.delayNs;
    } else if (pace.isTriggered) {
        if (!m_triggeredNs.has_value())
            return std::nullopt;
        start = *m_triggeredNs;
    } else if (start + 2 * pace.periodNs + pace.exposureNs < static_cast<double>(nowNs)) {
        // Late by more than a frame: what was due meanwhile is not taken, so that nothing piles up.
        const double late = static_cast<double>(nowNs) - pace.exposureNs - start;
        start += std::floor(late / pace.periodNs) * pace.periodNs;
    }
    return static_cast<std::uint64_t>(start + pace.exposureNs);
}

FrameClock::Taken FrameClock::Take(std::uint64_t nowNs, const Pace &pace)
{
    const double planned = m_earliestNs;
    const double due = static_cast<double>(NextDue(nowNs, pace).value_or(nowNs));
    const double start = due - pace.exposureNs;
    Taken taken{m_number++, static_cast<std::uint64_t>(std::max(0.0, start)), 0};
    if (!pace.isTriggered)
        taken.skipped = static_cast<std::uint64_t>(std::max(0.0, std::round((start - planned) / pace.periodNs)));
    m_earliestNs = start + pace.periodNs;
    if (pace.isTimer)
        m_timerNs += pace.timerNs;
    m_triggeredNs.reset();
    return taken;
}

} // namespace orvsim
