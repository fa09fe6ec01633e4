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
constexpr std::uint32_t kPerWindow = 256;
constexpr std::chrono::milliseconds kWindow{1};
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

std::uint32_t ResendWindow::Take(std::uint32_t wanted, TimePoint now)
{
    if (!m_begin || now - *m_begin >= kWindow) {
        m_begin = now;
        m_left = kPerWindow;
    }
    const std::uint32_t granted = std::min(wanted, m_left);
    m_left -= granted;
    return granted;
}

ResendPlan::Hole *ResendPlan::Find(std::uint32_t id)
{
    for (Hole &hole : m_holes) {
        if (id >= hole.first && id <= hole.last)
            return &hole;
    }
    return nullptr;
}

bool ResendPlan::WasRequested(std::uint32_t id) const
{
    const Hole *hole = const_cast<ResendPlan *>(this)->Find(id);
    return hole != nullptr && hole->tries > 0;
}

void ResendPlan::Postpone(std::uint32_t id, TimePoint due)
{
    Hole *hole = Find(id);
    if (hole == nullptr || hole->due >= due)
        return;
    hole->due = due;
    hole->tries -= hole->tries > 0 ? 1 : 0; // that was no answer yet
}

std::optional<TimePoint> ResendPlan::NextDue() const
{
    std::optional<TimePoint> next;
    for (const Hole &hole : m_holes)
        next = next ? std::min(*next, hole.due) : hole.due;
    return m_stopped ? std::nullopt : next;
}

void ResendPlan::Collect(const ResendSettings &settings, const Extent &extent, const Has &has, TimePoint now,
                         ResendWindow &window, std::vector<ResendRequest> &out)
{
    for (std::size_t i = 0; i < m_holes.size() && !m_stopped;) {
        if (m_holes[i].due <= now && !Ask(m_holes[i], settings, extent, has, now, window, out))
            m_holes.erase(m_holes.begin() + static_cast<std::ptrdiff_t>(i));
        else
            ++i;
    }
}

bool ResendPlan::Ask(Hole &hole, const ResendSettings &settings, const Extent &extent, const Has &has, TimePoint now,
                     ResendWindow &window, std::vector<ResendRequest> &out)
{
    const std::uint64_t share = std::uint64_t{extent.lastId + 1} * settings.requestPercent / 100;
    const std::uint64_t allowed = std::max(kAlwaysAllowed, share);
    const std::uint32_t last = std::min(hole.last, extent.lastId);
    bool isMissing = false;
    bool isPartial = false;
    for (std::uint32_t id = hole.first; id <= last; ++id) {
        if (has(id))
            continue;
        isMissing = true;
        std::uint32_t end = id;
        while (end < last && end - id + 1 < kPerRequest && !has(end + 1))
            ++end;
        const std::uint32_t granted = window.Take(end - id + 1, now);
        if (hole.tries >= settings.tries || m_requested + granted > allowed) {
            m_stopped = true;
            return true;
        }
        if (granted == 0) {
            isPartial = true;
            break;
        }
        isPartial = granted < end - id + 1;
        end = id + granted - 1;
        m_requested += granted;
        // The end is meant, not a number: some cameras answer a request for their trailer's number with an error.
        out.push_back({0, false, id, extent.open && end == extent.lastId ? kToTheEnd : end});
        id = end;
        if (isPartial)
            break;
    }
    if (isPartial) {
        // The rest in the next window; what has been asked for is not asked for again so soon.
        hole.due = now + kWindow;
        if (!out.empty() && out.back().first >= hole.first && out.back().last != kToTheEnd &&
            out.back().last < hole.last) {
            const Hole asked{hole.first, out.back().last, now + settings.packetTimeout, hole.tries + 1};
            hole.first = out.back().last + 1;
            m_holes.push_back(asked); // invalidates `hole`
        }
        return true;
    }
    hole.due = now + settings.packetTimeout;
    ++hole.tries;
    return isMissing;
}

} // namespace nuvark::gige
