#include "simulator/core/FrameClock.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace orvsim {

namespace {

/// A time before the clock was set back counts as its beginning.
std::uint64_t OnTheClock(double ns)
{
    return static_cast<std::uint64_t>(std::max(0.0, ns));
}

} // namespace

void FrameClock::Start(std::uint64_t nowNs)
{
    m_isRunning = true;
    m_number = 0;
    m_earliestNs = static_cast<double>(nowNs);
    m_timerNs = m_earliestNs;
    m_triggeredNs.reset();
    m_toldNs.reset();
    m_lastNs.reset();
}

void FrameClock::SetBack(std::uint64_t elapsedNs)
{
    const auto elapsed = static_cast<double>(elapsedNs);
    m_earliestNs -= elapsed;
    m_timerNs -= elapsed;
    for (std::optional<double> *time : {&m_triggeredNs, &m_toldNs, &m_lastNs}) {
        if (time->has_value())
            **time -= elapsed;
    }
}

bool FrameClock::Trigger(std::uint64_t nowNs, const Pace &pace)
{
    const double start = static_cast<double>(nowNs) + pace.delayNs;
    if (!m_isRunning || m_triggeredNs.has_value() || start < m_earliestNs)
        return false;
    m_triggeredNs = start;
    return true;
}

std::optional<double> FrameClock::PlannedStart(std::uint64_t nowNs, const Pace &pace)
{
    if (!m_isRunning)
        return std::nullopt;
    if (pace.isTriggered && pace.isTimer) {
        // The timer runs on; pulses that come while the sensor is busy are lost.
        const double missed = std::ceil((m_earliestNs - pace.delayNs - m_timerNs) / pace.timerNs);
        m_timerNs += std::max(0.0, missed) * pace.timerNs;
        return m_timerNs + pace.delayNs;
    }
    if (pace.isTriggered)
        return m_triggeredNs;
    double start = m_earliestNs;
    if (start + 2 * pace.periodNs + pace.exposureNs < static_cast<double>(nowNs)) {
        // Late by more than a frame: what was due meanwhile is not taken, so that nothing piles up.
        const double late = static_cast<double>(nowNs) - pace.exposureNs - start;
        start += std::floor(late / pace.periodNs) * pace.periodNs;
    }
    return start;
}

std::optional<std::uint64_t> FrameClock::NextDue(std::uint64_t nowNs, const Pace &pace)
{
    const std::optional<double> start = PlannedStart(nowNs, pace);
    if (!start.has_value())
        return std::nullopt;
    return OnTheClock(*start + pace.exposureNs);
}

std::optional<std::uint64_t> FrameClock::NextStart(std::uint64_t nowNs, const Pace &pace)
{
    const std::optional<double> start = PlannedStart(nowNs, pace);
    if (!start.has_value() || start == m_toldNs)
        return std::nullopt;
    return OnTheClock(*start);
}

std::optional<std::uint64_t> FrameClock::Begin(std::uint64_t nowNs, const Pace &pace)
{
    const std::optional<std::uint64_t> start = NextStart(nowNs, pace);
    if (!start.has_value() || *start > nowNs)
        return std::nullopt;
    m_toldNs = PlannedStart(nowNs, pace);
    return start;
}

FrameClock::Taken FrameClock::Take(std::uint64_t nowNs, const Pace &pace)
{
    const double planned = m_earliestNs;
    const double start = PlannedStart(nowNs, pace).value_or(static_cast<double>(nowNs) - pace.exposureNs);
    Taken taken{m_number++, OnTheClock(start), 0, m_toldNs == start, std::numeric_limits<double>::infinity()};
    if (!pace.isTriggered)
        taken.skipped = static_cast<std::uint64_t>(std::max(0.0, std::round((start - planned) / pace.periodNs)));
    if (m_lastNs.has_value())
        taken.sinceLastNs = start - *m_lastNs;
    m_lastNs = start;
    m_earliestNs = start + pace.periodNs;
    if (pace.isTimer)
        m_timerNs += pace.timerNs;
    m_triggeredNs.reset();
    m_toldNs.reset();
    return taken;
}

} // namespace orvsim
