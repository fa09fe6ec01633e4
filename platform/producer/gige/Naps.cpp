#include "producer/gige/Naps.h"

#include <algorithm>

namespace nuvark::gige {

namespace {

/// A shorter one costs as much as it saves, a longer one gains little more.
constexpr std::chrono::nanoseconds kShortest = std::chrono::microseconds(500);
constexpr std::chrono::nanoseconds kLongest = std::chrono::milliseconds(8);
/// 10 Gbit/s, the quickest link that cameras of this kind come with.
constexpr double kMostBytesPerNanosecond = 1.25;

std::chrono::nanoseconds UntilHalfFull(std::size_t bytes)
{
    return std::chrono::nanoseconds(static_cast<std::int64_t>(double(bytes) / 2 / kMostBytesPerNanosecond));
}

} // namespace

Naps::Naps(std::size_t receiveBuffer) : m_longest(std::min(kLongest, UntilHalfFull(receiveBuffer))) {}

std::chrono::nanoseconds Naps::Next(const std::optional<FrameProgress> &progress, TimePoint now)
{
    if (!progress || !Look(*progress, now))
        return {};
    const std::chrono::nanoseconds nap = std::min(m_pace * progress->toCome * 7 / 8, m_longest);
    return nap < kShortest ? std::chrono::nanoseconds(0) : nap;
}

/// \return whether something of the frame has come since the last time.
bool Naps::Look(const FrameProgress &progress, TimePoint now)
{
    const bool isSame = progress.blockId == m_blockId && progress.toCome <= m_toCome;
    if (isSame && progress.toCome == m_toCome)
        return false;
    const bool mayMeasure = isSame && m_hasData;
    m_blockId = progress.blockId;
    m_toCome = progress.toCome;
    m_hasData = isSame;
    if (mayMeasure && now - m_before < kShortest)
        return true; // a portion or two tell no pace
    if (mayMeasure)
        m_pace = (now - m_before) / (m_toComeBefore - m_toCome);
    m_toComeBefore = m_toCome;
    m_before = now;
    return true;
}

} // namespace nuvark::gige
