#include "simulator/gige/BlockIds.h"

#include <algorithm>

namespace orvsim {

namespace {

/// Events are told while their frame is under way or shortly after.
constexpr std::size_t kRemembered = 64;

} // namespace

bool BlockIds::BeginsAnew(std::uint64_t frameNumber) const
{
    const orv::MutexLock lock(m_mutex);
    return m_last.empty() || frameNumber <= m_last.back().first;
}

std::uint64_t BlockIds::Next(std::uint64_t frameNumber, const Faults &faults, FaultDice &dice)
{
    const bool isRepeated = dice.Falls(faults.repeatIdRate);
    const bool isOneLeftOut = dice.Falls(faults.skipIdRate);
    const bool isFirst = BeginsAnew(frameNumber);
    const orv::MutexLock lock(m_mutex);
    std::uint64_t count = static_cast<std::uint64_t>(std::max<std::int64_t>(faults.firstBlockId, 1));
    if (isFirst)
        m_last.clear();
    else
        count = m_last.back().second + (isRepeated ? 0 : 1);
    if (isOneLeftOut)
        ++count;
    m_last.emplace_back(frameNumber, count);
    if (m_last.size() > kRemembered)
        m_last.pop_front();
    return count;
}

std::uint64_t BlockIds::CountOf(std::uint64_t frameNumber, std::int64_t firstBlockId) const
{
    const orv::MutexLock lock(m_mutex);
    for (const auto &[number, count] : m_last) {
        if (number == frameNumber)
            return count;
    }
    if (m_last.empty())
        return static_cast<std::uint64_t>(std::max<std::int64_t>(firstBlockId, 1)) + frameNumber;
    const auto &[number, count] = m_last.back();
    if (frameNumber > number)
        return count + (frameNumber - number);
    return count > number - frameNumber ? count - (number - frameNumber) : 1;
}

} // namespace orvsim
