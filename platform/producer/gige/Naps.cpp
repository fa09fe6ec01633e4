#include "producer/gige/Naps.h"

#include <algorithm>

namespace nuvark::gige {

namespace {

/// A shorter one costs as much as it saves, a longer one gains little more.
constexpr std::chrono::nanoseconds kShortest = std::chrono::microseconds(500);
constexpr std::chrono::nanoseconds kLongest = std::chrono::milliseconds(8);
/// 10 Gbit/s, the quickest link that cameras of this kind come with.
constexpr double kMostBytesPerNanosecond = 1.25;
/// What is added to a nap: the rest's 16th part, since one more wake-up costs more than a frame that lies there for so
/// long, up to what nobody notices.
constexpr int kMarginShare = 16;
constexpr std::chrono::nanoseconds kLongestMargin = std::chrono::microseconds(250);
/// By what part of itself a frame changes the usual pace at most: an odd one does not make the next one late.
constexpr int kStepShare = 8;
/// For a frame that was overslept it loses the 64th part of itself at first, then twice as much each time, an eighth at
/// most.
constexpr int kFirstCut = 64;
constexpr int kLastCut = 8;

std::chrono::nanoseconds UntilHalfFull(std::size_t bytes)
{
    return std::chrono::nanoseconds(static_cast<std::int64_t>(double(bytes) / 2 / kMostBytesPerNanosecond));
}

} // namespace

Naps::Naps(std::size_t receiveBuffer) : m_longest(std::min(kLongest, UntilHalfFull(receiveBuffer))) {}

std::chrono::nanoseconds Naps::Next(const std::optional<FrameProgress> &progress, TimePoint now, TimePoint until)
{
    if (!progress)
        return {};
    const bool hasCome = Look(*progress, now);
    const std::chrono::nanoseconds rest = m_pace * progress->toCome;
    const std::chrono::nanoseconds nap = std::min(rest + std::min(rest / kMarginShare, kLongestMargin), m_longest);
    m_nap = hasCome && nap >= kShortest && now + nap <= until ? nap : std::chrono::nanoseconds(0);
    return m_nap;
}

/// \return whether something of the frame has come since the last time.
bool Naps::Look(const FrameProgress &progress, TimePoint now)
{
    const bool isSame = progress.blockId == m_blockId && progress.toCome <= m_toCome;
    if (!isSame) {
        BeginFrame(progress, now);
        return true;
    }
    if (progress.toCome == m_toCome)
        return false;
    m_toCome = progress.toCome;
    if (MayMeasure(now)) {
        m_pace = std::min(PaceSince(m_beginning, now), PaceSince(m_last, now));
        const std::chrono::nanoseconds step = std::max(m_paceBefore / kStepShare, std::chrono::nanoseconds(1));
        m_usualPace = m_paceBefore.count() == 0 ? m_pace : std::clamp(m_pace, m_paceBefore - step, m_paceBefore + step);
        m_overslept = 0;
    } else if (m_hasData) {
        return true; // a portion or two tell no pace
    }
    m_last = {now, m_toCome};
    if (!m_hasData)
        m_beginning = m_last;
    m_hasData = true;
    return true;
}

void Naps::BeginFrame(const FrameProgress &progress, TimePoint now)
{
    if (m_nap.count() != 0 && progress.blockId != m_blockId) { // through before the nap's end
        m_usualPace = std::min(m_usualPace, m_nap / m_toCome);
        m_usualPace -= m_usualPace / std::max(kFirstCut >> m_overslept, kLastCut);
        m_overslept = std::min(m_overslept + 1, kLastCut);
    }
    m_pace = m_paceBefore = m_usualPace;
    m_blockId = progress.blockId;
    m_toCome = progress.toCome;
    m_beginning = m_last = {now, m_toCome};
    m_hasData = false;
}

/// Of a frame's beginning, too, once a pause before its data does not matter any more.
bool Naps::MayMeasure(TimePoint now) const
{
    return now - m_last.at >= kShortest && (m_hasData || m_toCome <= m_last.toCome / 2);
}

std::chrono::nanoseconds Naps::PaceSince(const Mark &mark, TimePoint now) const
{
    return std::min((now - mark.at) / (mark.toCome - m_toCome), kLongest); // more makes no difference
}

} // namespace nuvark::gige
