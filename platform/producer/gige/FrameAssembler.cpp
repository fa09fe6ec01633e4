#include "producer/gige/FrameAssembler.h"

#include "producer/gige/Bootstrap.h"

#include <algorithm>
#include <iterator>

namespace nuvark::gige {

namespace {

/// A packet waits for another one of its block while so many others come.
constexpr std::size_t kKeptPackets = 16;
constexpr std::size_t kNewerFramesBegun = 2;
constexpr std::size_t kSmallestPacket = 46;
/// Of the newest frame the camera may not have sent the rest yet.
constexpr std::chrono::seconds kNewestRetention{1};
/// A request for missing packets is repeated at the earliest after that.
constexpr std::chrono::microseconds kShortestPacketTimeout{2000};

bool IsFormat(const StreamPacket &packet, PacketFormat format)
{
    return packet.format == static_cast<std::uint8_t>(format);
}

/// No second packet will come to confirm it.
bool IsWholeBlock(const StreamPacket &packet)
{
    return IsFormat(packet, PacketFormat::AllIn) && packet.packetId == 0 && SplitAllIn(packet.content);
}

} // namespace

FrameAssembler::FrameAssembler(FrameSink &sink, Settings settings)
    : m_sink(sink), m_settings(settings), m_missed(m_settings.resend),
      m_window(std::max(settings.packetSize, kSmallestPacket))
{
}

FrameAssembler::Kind FrameAssembler::Classify(const StreamPacket &packet, FrameBlock *&block)
{
    for (FrameBlock &open : m_open) {
        if (open.Is(packet)) {
            block = &open;
            return Kind::Open;
        }
    }
    if (m_missed.Has(packet.blockId, packet.extendedIds))
        return Kind::Missed;
    switch (m_numbers.PlaceOf(packet)) {
    case BlockNumbers::Place::Past:
        return Kind::Late;
    case BlockNumbers::Place::Next:
        return Kind::New;
    default:
        return Kind::Strange;
    }
}

FrameBlock *FrameAssembler::Begin(const StreamPacket &packet, TimePoint now)
{
    const BlockNumbers::Step step = m_numbers.Advance(packet, now);
    if (step.isAnew) {
        DeliverAll(); // what is open will not go on
        m_bufferless.fill({});
    }
    OnNewFrame(now);
    FrameBlock *block = Open(packet, m_open.end());
    const bool mayWait = block != nullptr && (packet.flags & kFlagFormerDropped) == 0;
    if (mayWait && m_missed.IsWorthWaiting(step.leftOut, m_sink.SpareBuffers()))
        WaitForMissed(step.leftOut, packet.extendedIds, now);
    else
        m_counters.missedFrames += step.leftOut;
    return block;
}

void FrameAssembler::WaitForMissed(std::uint64_t count, bool extendedIds, TimePoint now)
{
    for (std::uint64_t places = count; places > 0; --places)
        m_missed.Add(m_numbers.Before(places), extendedIds, places == 1, now);
}

/// Of a missed block the first packet has come: it takes its place in front of those that wait for it.
FrameBlock *FrameAssembler::BeginMissed(const StreamPacket &packet)
{
    ResendPlan asked = m_missed.Take(packet.blockId);
    const std::int64_t distance = m_numbers.Distance(packet.blockId);
    const auto next = std::find_if(m_open.begin(), m_open.end(),
                                   [&](const FrameBlock &open) { return m_numbers.Distance(open.Id()) > distance; });
    FrameBlock *block = Open(packet, next);
    if (block != nullptr)
        block->Plan() = std::move(asked);
    return block;
}

/// \return nothing when there is no buffer for it.
FrameBlock *FrameAssembler::Open(const StreamPacket &packet, std::list<FrameBlock>::iterator next)
{
    FrameTarget target;
    if (m_refuseNew || !m_sink.TakeBuffer(target)) {
        NoteBufferless(packet.blockId, !m_refuseNew && m_sink.WantsFrames());
        return nullptr;
    }
    const std::size_t header = packet.extendedIds ? kExtendedHeaderSize : kStandardHeaderSize;
    const std::size_t told = std::max(m_settings.packetSize, kSmallestPacket + header) - kIpUdpHeaders - header;
    const std::size_t learned = m_learned[packet.extendedIds ? 1 : 0];
    m_former.dataPerPacket = learned != 0 ? learned : told;
    FrameBlock &block = *m_open.emplace(next, packet, target, m_former, std::move(m_spareBits));
    if (!m_settings.resend.enabled)
        block.Plan().Stop();
    return &block;
}

void FrameAssembler::NoteBufferless(std::uint64_t id, bool isMissed)
{
    m_bufferless[id % m_bufferless.size()] = {id, isMissed};
}

void FrameAssembler::CountLate(std::uint64_t id)
{
    const Bufferless &bufferless = m_bufferless[id % m_bufferless.size()];
    if (bufferless.id != id)
        ++m_counters.late;
    else if (bufferless.isMissed && !m_refuseNew)
        ++m_counters.withoutBuffer;
}

/// What the older frames have not got by now they may have lost.
void FrameAssembler::OnNewFrame(TimePoint now)
{
    for (FrameBlock &block : m_open)
        block.NoteTail(now + m_settings.resend.initialTimeout);
    const auto waiting = [this] { return m_open.size() + m_missed.Count(); };
    while (waiting() > 1 && 2 * m_sink.SpareBuffers() <= waiting())
        DeliverOldest();
}

void FrameAssembler::OnPacket(orv::ByteSpan datagram, TimePoint now)
{
    ++m_counters.packets;
    m_window.NoteArrival(datagram.size, now);
    const std::optional<StreamPacket> packet = ParseStreamPacket(datagram);
    if (packet && packet->blockId != 0)
        Sort(*packet, datagram, now);
    else
        ++m_counters.unusable; // block id 0: a test packet
}

void FrameAssembler::OnLandedPacket(orv::ByteSpan header, orv::ByteSpan content, TimePoint now)
{
    ++m_counters.packets;
    m_window.NoteArrival(header.size + content.size, now);
    std::optional<StreamPacket> packet = ParseStreamPacket(header);
    if (!packet)
        return;
    packet->content = content;
    Sort(*packet, header, now);
}

std::optional<Landing> FrameAssembler::NextLanding() const
{
    return m_open.empty() ? std::nullopt : m_open.back().NextLanding();
}

void FrameAssembler::Sort(const StreamPacket &packet, orv::ByteSpan datagram, TimePoint now)
{
    if (!m_kept.empty() && ++m_keptAge > kKeptPackets) {
        ++m_counters.unusable;
        m_kept.clear();
    }
    FrameBlock *block = nullptr;
    const Kind kind = Classify(packet, block);
    // What was asked for belongs to a block that had begun, or is waited for.
    if (kind == Kind::Late || (block == nullptr && kind != Kind::Missed && packet.IsResent())) {
        CountLate(packet.blockId);
        return;
    }
    if (packet.IsError()) {
        OnError(kind, block, packet, now);
        return;
    }
    if (kind == Kind::Strange && !IsOfKeptBlock(packet.blockId, packet.extendedIds) && !IsWholeBlock(packet)) {
        Keep(packet, datagram);
        return;
    }
    if (block == nullptr)
        block = kind == Kind::Missed ? BeginMissed(packet) : Begin(packet, now);
    if (block != nullptr) {
        TakeKept(*block, now);
        Take(*block, packet, now);
        if (kind == Kind::Missed) // newer ones have begun: its rest follows at once, or is lost like its beginning
            block->NoteTail(block->Plan().Requested() != 0 ? now : now + m_settings.resend.initialTimeout);
    } else {
        CountLate(packet.blockId); // as the rest of it will be
    }
    DeliverReady();
}

bool FrameAssembler::IsOfKeptBlock(std::uint64_t id, bool extendedIds) const
{
    const std::optional<StreamPacket> kept = ParseStreamPacket({m_kept.data(), m_kept.size()});
    return kept && kept->blockId == id && kept->extendedIds == extendedIds;
}

/// Until another packet of the same block shows that it has really begun.
void FrameAssembler::Keep(const StreamPacket &packet, orv::ByteSpan datagram)
{
    if (!m_numbers.IsNear(packet) && !IsFormat(packet, PacketFormat::Leader)) {
        ++m_counters.unusable;
        return;
    }
    m_counters.unusable += m_kept.empty() ? 0 : 1;
    m_keptAge = 0;
    m_kept.assign(datagram.data, datagram.data + datagram.size);
}

void FrameAssembler::TakeKept(FrameBlock &block, TimePoint now)
{
    if (m_kept.empty() || !IsOfKeptBlock(block.Id(), block.HasExtendedIds()))
        return;
    Take(block, *ParseStreamPacket({m_kept.data(), m_kept.size()}), now);
    m_kept.clear();
}

void FrameAssembler::Take(FrameBlock &block, const StreamPacket &packet, TimePoint now)
{
    if ((packet.flags & kFlagFormerDropped) != 0)
        m_counters.droppedByCamera += block.NoteFormerDrop() ? 1 : 0;
    const bool wasRequested = block.Plan().WasRequested(packet.packetId) && !block.HasPacket(packet.packetId);
    switch (block.Take(packet, now, now + m_settings.resend.initialTimeout)) {
    case FrameBlock::Verdict::Taken:
        m_counters.resent += wasRequested ? 1 : 0;
        m_counters.fullPackets += block.IsFullPayload(packet) ? 1 : 0;
        break;
    case FrameBlock::Verdict::Duplicate:
        ++m_counters.duplicates;
        break;
    default:
        ++m_counters.unusable;
        break;
    }
    if (block.LearnedSize() != 0)
        m_learned[block.HasExtendedIds() ? 1 : 0] = block.LearnedSize();
    block.ForgetCutEnd(now);
}

void FrameAssembler::OnError(Kind kind, FrameBlock *block, const StreamPacket &packet, TimePoint now)
{
    ++(kind == Kind::Open || kind == Kind::Missed ? m_counters.refused : m_counters.unusable);
    if (kind == Kind::Open)
        OnRefusal(*block, packet, now);
    if (kind == Kind::Missed) {
        m_counters.droppedByCamera += packet.status == kStatusOverrun ? 1 : 0;
        m_counters.missedFrames += m_missed.OnRefusal(packet, now);
    }
    DeliverReady();
}

void FrameAssembler::OnRefusal(FrameBlock &block, const StreamPacket &packet, TimePoint now)
{
    if (block.HasPacket(packet.packetId))
        return;
    const bool wasRequested = block.Plan().WasRequested(packet.packetId);
    switch (packet.status) {
    case kStatusOverrun:
        m_counters.droppedByCamera += block.NoteCameraLoss(IsFormat(packet, PacketFormat::Trailer)) ? 1 : 0;
        break;
    case kStatusAllRemoved:
    case kStatusCutShort:
        block.Plan().Stop();
        break;
    case kStatusUnavailable:
    case kStatusRemoved:
        if (wasRequested && IsNewest(block) && block.MayFollow(packet.packetId))
            block.Plan().Postpone(packet.packetId, now + m_settings.resend.packetTimeout); // not yet sent, it seems
        else if (wasRequested)
            block.Plan().Stop(); // it cannot become complete any more
        break;
    case kStatusNotYetAvailable:
    case kStatusTemporarilyUnavailable:
        block.Plan().Postpone(packet.packetId, now + m_settings.resend.packetTimeout);
        break;
    default:
        break;
    }
}

void FrameAssembler::TakeRequests(std::vector<ResendRequest> &requests, TimePoint now)
{
    for (FrameBlock &block : m_open) {
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
    m_counters.missedFrames +=
        m_missed.TakeRequests({m_settings.resend, FirstTimeout(), now}, m_window, requests, m_counters.requested);
    DeliverReady();
}

/// Later than a frame or two the camera has not kept the packets any more.
std::chrono::microseconds FrameAssembler::FirstTimeout() const
{
    const std::chrono::microseconds longest = m_settings.resend.packetTimeout;
    const std::optional<std::chrono::microseconds> frameTime = m_numbers.FrameTime();
    return frameTime ? std::min(longest, std::max(kShortestPacketTimeout, *frameTime / 2)) : longest;
}

bool FrameAssembler::IsWaitingForTrigger(const FrameBlock &block) const
{
    // Some cameras send the leader when the acquisition starts and the data when a trigger comes.
    return block.IsLeaderAlone() && m_open.size() == 1;
}

bool FrameAssembler::IsBeingCured(const FrameBlock &block) const
{
    return !block.Plan().IsStopped() && block.IsCurable();
}

/// Of the oldest frame.
bool FrameAssembler::IsHopeless(const FrameBlock &block) const
{
    return !IsBeingCured(block) && (block.HasEnded() || m_open.size() > kNewerFramesBegun ||
                                    (m_open.size() > 1 && std::next(m_open.begin())->IsComplete()));
}

TimePoint FrameAssembler::GiveUpTime(const FrameBlock &block) const
{
    const bool mayPause = IsNewest(block) && !block.HasTrailer() && !block.HasAllPayload();
    const std::chrono::microseconds retention = m_settings.resend.retention;
    return block.LastPacket() +
           (mayPause ? std::max<std::chrono::microseconds>(retention, kNewestRetention) : retention);
}

bool FrameAssembler::IsNewest(const FrameBlock &block) const
{
    return m_numbers.IsNewest(block.Id(), block.HasExtendedIds());
}

/// The oldest frame, by a block before it of which nothing has come yet.
bool FrameAssembler::IsHeldBack() const
{
    return !m_missed.IsEmpty() && m_numbers.Distance(m_missed.OldestId()) < m_numbers.Distance(m_open.front().Id());
}

void FrameAssembler::DeliverReady()
{
    while (!m_open.empty() && (m_open.front().IsComplete() || IsHopeless(m_open.front())) && !IsHeldBack())
        DeliverOldest();
}

/// Of a block of which nothing has come there is nothing to deliver: it is missed for good.
void FrameAssembler::DeliverOldest()
{
    if (IsHeldBack()) {
        m_counters.missedFrames += m_missed.GiveUpOldest();
        return;
    }
    Deliver(m_open.front());
    m_spareBits = m_open.front().GiveBits();
    m_open.front().Describe(m_former);
    m_open.pop_front();
}

void FrameAssembler::OnTime(TimePoint now)
{
    m_counters.missedFrames += m_missed.OnTime(now);
    DeliverReady();
    for (FrameBlock &block : m_open) {
        if (IsBeingCured(block) && now - block.LastPacket() >= m_settings.resend.packetTimeout &&
            !IsWaitingForTrigger(block))
            block.NoteSilence(now);
    }
    while (!m_open.empty() && !IsWaitingForTrigger(m_open.front()) && now >= GiveUpTime(m_open.front())) {
        DeliverOldest();
        DeliverReady();
    }
}

std::optional<TimePoint> FrameAssembler::NextDeadline() const
{
    const std::optional<TimePoint> missed = m_missed.NextDeadline();
    if (m_open.empty() || IsWaitingForTrigger(m_open.front()))
        return missed;
    TimePoint next = GiveUpTime(m_open.front());
    if (missed)
        next = std::min(next, *missed);
    for (const FrameBlock &block : m_open) {
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

void FrameAssembler::DeliverAll()
{
    m_counters.missedFrames += m_missed.GiveUpAll();
    while (!m_open.empty())
        DeliverOldest();
}

void FrameAssembler::RefuseNewFrames()
{
    m_refuseNew = true;
    m_counters.missedFrames += m_missed.GiveUpAll();
    DeliverReady();
}

void FrameAssembler::AbandonAll()
{
    m_counters.missedFrames += m_missed.GiveUpAll();
    for (FrameBlock &block : m_open) {
        NoteBufferless(block.Id(), true);
        m_sink.GiveBack(block.Target());
    }
    m_open.clear();
}

void FrameAssembler::Deliver(FrameBlock &block)
{
    const FrameInfo info = block.Describe(m_settings.bigEndianPixels);
    if (info.isIncomplete) {
        block.ZeroHoles(info.dataSize);
        m_counters.missing += block.MissingPackets(info.dataSize);
    }
    m_sink.Deliver(block.Target(), info);
}

} // namespace nuvark::gige
