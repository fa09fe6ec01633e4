#include "producer/gige/Resend.h"

#include "base/Bytes.h"

#include <algorithm>

namespace nuvark::gige {

namespace {

constexpr std::uint8_t kCommandKey = 0x42;
constexpr std::uint8_t kExtendedIdsFlag = 0x10;
constexpr std::uint16_t kPacketResend = 0x0040;
constexpr std::uint16_t kStandardLength = 12;
constexpr std::uint16_t kExtendedLength = 20;
constexpr std::uint32_t kStandardIdMask = 0x00FFFFFF;

constexpr std::uint32_t kPerRequest = 64;
constexpr std::chrono::milliseconds kWindow{1};
constexpr std::uint64_t kLeastBytesPerWindow = 31250; ///< a quarter of what a gigabit line carries in it
constexpr std::chrono::milliseconds kArrivalSpan{64};
/// A small frame may ask for as many packets, whatever share of it that is.
constexpr std::uint64_t kAlwaysAllowed = 16;

} // namespace

std::vector<std::uint8_t> MakeResendCommand(std::uint16_t requestId, std::uint16_t channel,
                                            const ResendRequest &request)
{
    orv::ByteWriter out;
    out.U8(kCommandKey);
    out.U8(request.extendedIds ? kExtendedIdsFlag : 0);
    out.U16(kPacketResend);
    out.U16(request.extendedIds ? kExtendedLength : kStandardLength);
    out.U16(requestId);
    out.U16(channel);
    if (request.extendedIds) {
        out.U16(0);
        out.U32(request.first);
        out.U32(request.last);
        out.U64(request.blockId);
    } else {
        out.U16(static_cast<std::uint16_t>(request.blockId));
        out.U32(request.first & kStandardIdMask);
        out.U32(request.last & kStandardIdMask);
    }
    return out.Take();
}

void ResendWindow::NoteArrival(std::size_t bytes, TimePoint now)
{
    const auto span = std::chrono::duration_cast<std::chrono::milliseconds>(now - m_spanBegin);
    if (span >= kArrivalSpan) {
        m_bytesPerMs = m_spanBytes / static_cast<std::uint64_t>(span.count());
        m_spanBegin = now;
        m_spanBytes = 0;
    }
    m_spanBytes += bytes;
}

std::uint32_t ResendWindow::Take(std::uint32_t wanted, TimePoint now)
{
    if (!m_begin || now - *m_begin >= kWindow) {
        m_begin = now;
        const std::uint64_t packets = std::max(m_bytesPerMs / 2, kLeastBytesPerWindow) / m_packetSize;
        m_left = static_cast<std::uint32_t>(std::max<std::uint64_t>(packets, 1));
    }
    const std::uint32_t granted = std::min(wanted, m_left);
    m_left -= granted;
    return granted;
}

void ResendPlan::AddHole(std::uint32_t first, std::uint32_t last, TimePoint due)
{
    m_nextDue = m_nextDue ? std::min(*m_nextDue, due) : due;
    const Hole added{first, last, due, 0, false};
    if (m_holes.empty() || m_holes.back().last < first) {
        m_holes.push_back(added);
        return;
    }
    m_former.swap(m_holes);
    m_holes.clear();
    bool isIn = false;
    for (const Hole &hole : m_former) {
        if (hole.first < first)
            m_holes.push_back({hole.first, std::min(hole.last, first - 1), hole.due, hole.tries, hole.isUnanswered});
        if (!isIn && hole.last >= first) {
            m_holes.push_back(added);
            isIn = true;
        }
        if (hole.last > last)
            m_holes.push_back({std::max(hole.first, last + 1), hole.last, hole.due, hole.tries, hole.isUnanswered});
    }
}

const ResendPlan::Hole *ResendPlan::Find(std::uint32_t id) const
{
    const auto hole = std::lower_bound(m_holes.begin(), m_holes.end(), id,
                                       [](const Hole &a, std::uint32_t wanted) { return a.last < wanted; });
    return hole != m_holes.end() && hole->first <= id ? &*hole : nullptr;
}

bool ResendPlan::WasRequested(std::uint32_t id) const
{
    const Hole *hole = m_requested != 0 ? Find(id) : nullptr; // asked for every packet that comes
    return hole != nullptr && hole->tries > 0;
}

std::uint32_t ResendPlan::CountRequested(std::uint32_t first, std::uint32_t last) const
{
    std::uint32_t count = 0;
    for (std::uint32_t id = first; m_requested != 0 && id <= last; ++id)
        count += WasRequested(id) ? 1 : 0;
    return count;
}

void ResendPlan::Postpone(std::uint32_t id, TimePoint due)
{
    auto *hole = const_cast<Hole *>(Find(id));
    if (hole == nullptr || !hole->isUnanswered)
        return; // each packet of it is answered so
    hole->due = std::max(hole->due, due);
    hole->isUnanswered = false;
    --hole->tries; // that was no answer yet
}

std::optional<TimePoint> ResendPlan::NextDue() const
{
    return m_stopped ? std::nullopt : m_nextDue;
}

/// Frames that lack too much are not asked for at all: the answers for a part of it would be in vain.
bool ResendPlan::HasRoomFor(const ResendSettings &settings, const Extent &extent, const Has &has) const
{
    const std::uint64_t end = extent.isKnown ? extent.lastId : extent.likelyLastId;
    const std::uint64_t allowed = std::max(kAlwaysAllowed, (end + 1) * settings.requestPercent / 100);
    std::uint64_t missing = 0;
    for (const Hole &hole : m_holes) {
        for (std::uint64_t id = hole.first; id <= std::min<std::uint64_t>(hole.last, end); ++id)
            missing += has(static_cast<std::uint32_t>(id)) ? 0 : 1;
    }
    return missing <= allowed;
}

/// Something that is due has been asked for often enough.
bool ResendPlan::IsOutOfTries(const Timing &timing, const Extent &extent, const Has &has) const
{
    for (const Hole &hole : m_holes) {
        if (hole.due > timing.now || hole.tries < timing.settings.tries)
            continue;
        for (std::uint32_t id = hole.first; id <= std::min(hole.last, extent.lastId); ++id) {
            if (!has(id))
                return true;
        }
    }
    return false;
}

void ResendPlan::Collect(const Timing &timing, const Extent &extent, const Has &has, ResendWindow &window,
                         std::vector<ResendRequest> &out)
{
    if (m_stopped || !m_nextDue || *m_nextDue > timing.now)
        return;
    // Known before anything is asked for: the answers would come for a frame that is given up.
    if ((timing.settings.requestPercent < 100 && !HasRoomFor(timing.settings, extent, has)) ||
        IsOutOfTries(timing, extent, has)) {
        m_stopped = true;
        return;
    }
    m_former.swap(m_holes);
    m_holes.clear();
    const Round round{timing, extent, has, window, out, out.size()};
    for (const Hole &hole : m_former) {
        if (hole.due > timing.now)
            m_holes.push_back(hole);
        else
            Ask(hole, round);
    }
    m_nextDue.reset();
    for (const Hole &hole : m_holes)
        m_nextDue = m_nextDue ? std::min(*m_nextDue, hole.due) : hole.due;
}

/// Asks for what is missing of a hole. What stays of it goes to m_holes: each run of missing packets as one of its own.
void ResendPlan::Ask(const Hole &hole, const Round &round)
{
    const TimePoint now = round.timing.now;
    const std::uint32_t last = std::min(hole.last, round.extent.lastId);
    for (std::uint32_t id = hole.first; id <= last; ++id) {
        if (round.has(id))
            continue;
        std::uint32_t end = id;
        while (end < last && !round.has(end + 1))
            ++end;
        const std::uint32_t asked = AskForRun(id, end, round);
        if (asked == 0) {
            m_holes.push_back({id, hole.last, now + kWindow, hole.tries, hole.isUnanswered});
            return;
        }
        end = id + asked - 1;
        const auto wait = round.timing.firstTimeout * (1 << std::min(hole.tries, 16U));
        const bool isEnd = end == round.extent.lastId;
        m_holes.push_back({id, isEnd ? hole.last : end, now + std::min(round.timing.settings.packetTimeout, wait),
                           hole.tries + 1, true});
        id = end;
    }
}

/// \return how many packets of it were asked for, none when the window is used up.
std::uint32_t ResendPlan::AskForRun(std::uint32_t first, std::uint32_t last, const Round &round)
{
    const Extent &extent = round.extent;
    // How many packets a tail of unknown length has, only the camera knows: one request for all of them, as soon as as
    // many may be asked for as there are likely to be.
    const bool isTail = extent.open && !extent.isKnown && last == extent.lastId;
    const std::uint32_t wanted = (isTail ? std::max(extent.likelyLastId, first) : last) - first + 1;
    const std::uint32_t granted = round.window.Take(wanted, round.timing.now);
    if (granted == 0)
        return 0;
    m_requested += granted;
    const bool isGuess = isTail && granted == wanted;
    const std::uint32_t end = isGuess ? last : first + granted - 1;
    for (std::uint32_t from = first; from <= end;) {
        const bool continues = round.out.size() > round.begin && round.out.back().last + 1 == from &&
                               from - round.out.back().first < kPerRequest;
        if (!continues)
            round.out.push_back({0, false, from, from});
        ResendRequest &request = round.out.back();
        const std::uint32_t to = isGuess ? end : std::min(end, request.first + kPerRequest - 1);
        // The end is meant, not a number: some cameras answer a request for their trailer's number with an error.
        request.last = extent.open && to == extent.lastId ? kToTheEnd : to;
        from = to + 1;
    }
    return end - first + 1;
}

} // namespace nuvark::gige
