#include "producer/gige/MissedBlocks.h"

#include <algorithm>
#include <utility>

namespace nuvark::gige {

namespace {

constexpr std::uint64_t kMostInAGap = 8;
constexpr std::size_t kMostWaiting = 32;
constexpr int kMostUnanswered = 3;
/// An answer to the last request may still be on its way.
constexpr std::uint64_t kRequestsToJudgeBy = 2;

/// Its first packet, and no more.
constexpr ResendPlan::Extent kFirstPacket{0, false, true, 0};

} // namespace

bool MissedBlocks::IsWorthWaiting(std::uint64_t count, std::size_t spareBuffers) const
{
    if (!m_settings.enabled || m_unanswered >= kMostUnanswered || count == 0 || count > kMostInAGap)
        return false;
    const std::size_t waiting = m_blocks.size() + static_cast<std::size_t>(count);
    return waiting <= std::min(kMostWaiting, spareBuffers / 2);
}

void MissedBlocks::Add(std::uint64_t id, bool extendedIds, bool isLast, TimePoint now)
{
    m_blocks.push_back({id, extendedIds, isLast, now, {}});
    m_blocks.back().plan.AddHole(0, 0, now + m_settings.initialTimeout);
}

std::deque<MissedBlocks::Missed>::iterator MissedBlocks::Find(std::uint64_t id)
{
    return std::find_if(m_blocks.begin(), m_blocks.end(), [id](const Missed &block) { return block.id == id; });
}

bool MissedBlocks::Has(std::uint64_t id, bool extendedIds) const
{
    return std::any_of(m_blocks.begin(), m_blocks.end(), [id, extendedIds](const Missed &block) {
        return block.id == id && block.extendedIds == extendedIds;
    });
}

ResendPlan MissedBlocks::Take(std::uint64_t id)
{
    const auto block = Find(id);
    ResendPlan plan = std::move(block->plan);
    m_blocks.erase(block);
    if (plan.Requested() != 0)
        m_unanswered = 0;
    return plan;
}

std::size_t MissedBlocks::OnRefusal(const StreamPacket &packet, TimePoint now)
{
    const auto block = Find(packet.blockId);
    if (packet.status == kStatusNotYetAvailable || packet.status == kStatusTemporarilyUnavailable) {
        block->plan.Postpone(0, now + m_settings.packetTimeout);
        return 0;
    }
    const bool isGone = packet.status == kStatusOverrun || packet.status == kStatusAllRemoved;
    if (!isGone && block->plan.Requested() == 0)
        return 0; // somebody else may have asked
    m_unanswered = 0;
    m_blocks.erase(block);
    return 1;
}

std::size_t MissedBlocks::OnTime(TimePoint now)
{
    std::size_t givenUp = 0;
    while (!m_blocks.empty() && now - m_blocks.front().since >= m_settings.retention)
        givenUp += GiveUpOldest();
    return givenUp;
}

std::size_t MissedBlocks::TakeRequests(const ResendPlan::Timing &timing, ResendWindow &window,
                                       std::vector<ResendRequest> &requests, std::uint64_t &asked)
{
    for (Missed &block : m_blocks) {
        const std::size_t before = requests.size();
        asked -= block.plan.Requested();
        block.plan.Collect(
            timing, kFirstPacket, [](std::uint32_t) { return false; }, window, requests);
        asked += block.plan.Requested();
        for (std::size_t i = before; i < requests.size(); ++i) {
            requests[i].blockId = block.id;
            requests[i].extendedIds = block.extendedIds;
        }
    }
    std::size_t givenUp = 0;
    while (!m_blocks.empty() && m_blocks.front().plan.IsStopped())
        givenUp += GiveUpOldest();
    return givenUp;
}

std::size_t MissedBlocks::GiveUpOldest()
{
    const Missed oldest = std::move(m_blocks.front());
    m_blocks.pop_front();
    if (oldest.isLast && oldest.plan.Requested() >= kRequestsToJudgeBy)
        ++m_unanswered;
    return 1 + (m_unanswered >= kMostUnanswered ? GiveUpAll() : 0);
}

std::size_t MissedBlocks::GiveUpAll()
{
    std::size_t givenUp = 0;
    while (!m_blocks.empty())
        givenUp += GiveUpOldest();
    return givenUp;
}

std::optional<TimePoint> MissedBlocks::NextDeadline() const
{
    if (m_blocks.empty())
        return std::nullopt;
    TimePoint next = m_blocks.front().since + m_settings.retention;
    for (const Missed &block : m_blocks) {
        if (const std::optional<TimePoint> due = block.plan.NextDue())
            next = std::min(next, *due);
    }
    return next;
}

} // namespace nuvark::gige
