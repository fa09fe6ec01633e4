#include "producer/gige/OpenFrames.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace nuvark::gige {

namespace {

constexpr std::size_t kNewerFramesBegun = 2;
/// Of the newest frame the camera may not have sent the rest yet.
constexpr std::chrono::seconds kNewestRetention{1};
/// A request for missing packets is repeated at the earliest after that.
constexpr std::chrono::microseconds kShortestPacketTimeout{2000};

} // namespace

OpenFrames::OpenFrames(FrameSink &sink, const AssemblySettings &settings, const BlockNumbers &numbers,
                       AssemblyCounters &counters)
    : m_sink(sink), m_settings(settings), m_numbers(numbers), m_counters(counters), m_missed(settings.resend),
      m_window(std::max(settings.packetSize, kSmallestPacket))
{
}

FrameBlock *OpenFrames::Find(const StreamPacket &packet)
{
    for (FrameBlock &block : m_blocks) {
        if (block.Is(packet))
            return &block;
    }
    return nullptr;
}

void OpenFrames::MakeWay(TimePoint now)
{
    for (FrameBlock &block : m_blocks)
        block.NoteTail(now + m_settings.resend.initialTimeout);
    const auto waiting = [this] { return m_blocks.size() + m_missed.Count(); };
    while (waiting() > 1 && 2 * m_sink.SpareBuffers() <= waiting())
        DeliverOldest();
}

FrameBlock *OpenFrames::Open(const StreamPacket &packet, std::size_t dataPerPacket)
{
    FrameTarget target;
    if (!m_sink.TakeBuffer(target))
        return nullptr;
    const std::int64_t distance = m_numbers.Distance(packet.blockId);
    auto next = m_blocks.end();
    while (next != m_blocks.begin() && m_numbers.Distance(std::prev(next)->Id()) > distance)
        --next;
    m_former.dataPerPacket = dataPerPacket;
    FrameBlock &block = *m_blocks.emplace(next, packet, target, m_former, std::move(m_spareBits));
    if (!m_settings.resend.enabled)
        block.Plan().Stop();
    return &block;
}

void OpenFrames::WaitForMissed(std::uint64_t count, bool extendedIds, TimePoint now)
{
    if (!m_missed.IsWorthWaiting(count, m_sink.SpareBuffers()) || m_numbers.Before(count) == 0) {
        CountMissed(count);
        return;
    }
    for (std::uint64_t places = count; places > 0; --places)
        m_missed.Add(m_numbers.Before(places), extendedIds, places == 1, now);
}

FrameBlock *OpenFrames::OpenMissed(const StreamPacket &packet, std::size_t dataPerPacket)
{
    ResendPlan asked = m_missed.Take(packet.blockId);
    FrameBlock *block = Open(packet, dataPerPacket);
    if (block != nullptr)
        block->Plan() = std::move(asked);
    return block;
}

void OpenFrames::NoteLateBeginning(FrameBlock &block, TimePoint now)
{
    block.NoteTail(block.Plan().Requested() != 0 ? now : now + m_settings.resend.initialTimeout);
}

void OpenFrames::RefuseMissed(const StreamPacket &packet, TimePoint now)
{
    CountMissed(m_missed.OnRefusal(packet, now));
}

void OpenFrames::CountMissed(std::uint64_t blocks)
{
    m_counters.missedFrames += blocks;
}

void OpenFrames::GiveUpMissed()
{
    CountMissed(m_missed.GiveUpAll());
    DeliverReady();
}

void OpenFrames::DeliverAll()
{
    GiveUpMissed();
    while (!m_blocks.empty())
        DeliverOldest();
}

std::vector<std::uint64_t> OpenFrames::AbandonAll()
{
    CountMissed(m_missed.GiveUpAll());
    std::vector<std::uint64_t> ids;
    for (const FrameBlock &block : m_blocks) {
        ids.push_back(block.Id());
        m_sink.GiveBack(block.Target());
    }
    m_blocks.clear();
    return ids;
}

/// Later than a frame or two the camera has not kept the packets any more.
std::chrono::microseconds OpenFrames::FirstTimeout() const
{
    const std::chrono::microseconds longest = m_settings.resend.packetTimeout;
    const std::optional<std::chrono::microseconds> frameTime = m_numbers.FrameTime();
    return frameTime ? std::min(longest, std::max(kShortestPacketTimeout, *frameTime / 2)) : longest;
}

void OpenFrames::TakeRequests(std::vector<ResendRequest> &requests, TimePoint now)
{
    for (FrameBlock &block : m_blocks) {
        if (block.Plan().IsStopped())
            continue;
        if (!block.IsCurable()) {
            block.Plan().Stop();
            continue;
        }
        const std::optional<TimePoint> due = block.Plan().NextDue();
        if (!due || *due > now)
            continue;
        const std::size_t before = requests.size();
        const std::uint64_t asked = block.Plan().Requested();
        block.Plan().Collect(
            {m_settings.resend, FirstTimeout(), now}, block.GetExtent(),
            [&block](std::uint32_t id) { return block.HasPacket(id); }, m_window, requests);
        m_counters.requested += block.Plan().Requested() - asked;
        for (std::size_t i = before; i < requests.size(); ++i) {
            requests[i].blockId = block.Id();
            requests[i].extendedIds = block.HasExtendedIds();
        }
    }
    CountMissed(
        m_missed.TakeRequests({m_settings.resend, FirstTimeout(), now}, m_window, requests, m_counters.requested));
    DeliverReady();
}

bool OpenFrames::IsWaitingForTrigger(const FrameBlock &block) const
{
    // Some cameras send the leader when the acquisition starts and the data when a trigger comes.
    return block.IsLeaderAlone() && m_blocks.size() == 1;
}

bool OpenFrames::IsBeingCured(const FrameBlock &block) const
{
    return !block.Plan().IsStopped() && block.IsCurable();
}

/// Of the oldest frame.
bool OpenFrames::IsHopeless(const FrameBlock &block) const
{
    return !IsBeingCured(block) && (block.HasEnded() || m_blocks.size() > kNewerFramesBegun ||
                                    (m_blocks.size() > 1 && std::next(m_blocks.begin())->IsComplete()));
}

TimePoint OpenFrames::GiveUpTime(const FrameBlock &block) const
{
    const bool mayPause = IsNewest(block) && !block.HasTrailer() && !block.HasAllPayload();
    const std::chrono::microseconds retention = m_settings.resend.retention;
    return block.LastPacket() +
           (mayPause ? std::max<std::chrono::microseconds>(retention, kNewestRetention) : retention);
}

/// The oldest frame, by a block before it of which nothing has come yet.
bool OpenFrames::IsHeldBack() const
{
    return !m_missed.IsEmpty() && m_numbers.Distance(m_missed.OldestId()) < m_numbers.Distance(m_blocks.front().Id());
}

void OpenFrames::DeliverReady()
{
    while (!m_blocks.empty() && (m_blocks.front().IsComplete() || IsHopeless(m_blocks.front())) && !IsHeldBack())
        DeliverOldest();
}

/// Of a block of which nothing has come there is nothing to deliver: it is missed for good.
void OpenFrames::DeliverOldest()
{
    if (IsHeldBack()) {
        CountMissed(m_missed.GiveUpOldest());
        return;
    }
    Deliver(m_blocks.front());
    m_spareBits = m_blocks.front().GiveBits();
    m_blocks.front().Describe(m_former);
    m_blocks.pop_front();
}

void OpenFrames::OnTime(TimePoint now)
{
    CountMissed(m_missed.OnTime(now));
    DeliverReady();
    for (FrameBlock &block : m_blocks) {
        if (IsBeingCured(block) && now - block.LastPacket() >= m_settings.resend.packetTimeout &&
            !IsWaitingForTrigger(block))
            block.NoteSilence(now);
    }
    while (!m_blocks.empty() && !IsWaitingForTrigger(m_blocks.front()) && now >= GiveUpTime(m_blocks.front())) {
        DeliverOldest();
        DeliverReady();
    }
}

std::optional<TimePoint> OpenFrames::NextDeadline() const
{
    const std::optional<TimePoint> missed = m_missed.NextDeadline();
    if (m_blocks.empty() || IsWaitingForTrigger(m_blocks.front()))
        return missed;
    TimePoint next = GiveUpTime(m_blocks.front());
    if (missed)
        next = std::min(next, *missed);
    for (const FrameBlock &block : m_blocks) {
        if (!IsBeingCured(block))
            continue;
        if (block.MindsSilence() && !IsWaitingForTrigger(block))
            next = std::min(next, block.LastPacket() + m_settings.resend.packetTimeout);
        const std::optional<TimePoint> due = block.Plan().NextDue();
        if (due)
            next = std::min(next, *due);
    }
    return next;
}

void OpenFrames::Deliver(FrameBlock &block)
{
    const FrameInfo info = block.Describe(m_settings.bigEndianPixels);
    if (info.isIncomplete) {
        block.ZeroHoles(info.dataSize);
        m_counters.missing += block.MissingPackets(info.dataSize);
    }
    m_sink.Deliver(block.Target(), info);
}

} // namespace nuvark::gige
