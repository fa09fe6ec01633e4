#include "producer/gige/FrameAssembler.h"

#include "producer/gige/Bootstrap.h"

#include <algorithm>

namespace nuvark::gige {

namespace {

/// A packet waits for another one of its block while so many others come.
constexpr std::size_t kKeptPackets = 16;

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
    : m_sink(sink), m_settings(settings), m_frames(sink, m_settings, m_numbers, m_counters)
{
}

FrameAssembler::Kind FrameAssembler::Classify(const StreamPacket &packet, FrameBlock *&block)
{
    block = m_frames.Find(packet);
    if (block != nullptr)
        return Kind::Open;
    if (m_frames.IsMissed(packet))
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
        m_frames.DeliverAll(); // what is open will not go on
        m_bufferless.fill({});
    }
    m_frames.MakeWay(now);
    FrameBlock *block = m_refuseNew ? nullptr : m_frames.Open(packet, DataPerPacket(packet));
    if (block != nullptr && (packet.flags & kFlagFormerDropped) == 0)
        m_frames.WaitForMissed(step.leftOut, packet.extendedIds, now);
    else
        m_frames.CountMissed(step.leftOut);
    return block;
}

/// Of a full one, as told or as packets have shown.
std::size_t FrameAssembler::DataPerPacket(const StreamPacket &packet) const
{
    const std::size_t learned = m_learned[packet.extendedIds ? 1 : 0];
    const std::size_t header = packet.extendedIds ? kExtendedHeaderSize : kStandardHeaderSize;
    const std::size_t told = std::max(m_settings.packetSize, kSmallestPacket + header) - kIpUdpHeaders - header;
    return learned != 0 ? learned : told;
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

void FrameAssembler::OnPacket(orv::ByteSpan datagram, TimePoint now)
{
    ++m_counters.packets;
    m_frames.NoteArrival(datagram.size, now);
    const std::optional<StreamPacket> packet = ParseStreamPacket(datagram);
    if (packet && packet->blockId != 0)
        Sort(*packet, datagram, now);
    else
        ++m_counters.unusable; // block id 0: a test packet
}

void FrameAssembler::OnLanded(orv::ByteSpan header, std::uint32_t packets, TimePoint now)
{
    const std::optional<StreamPacket> first = ParseStreamPacket(header);
    FrameBlock *block = first ? m_frames.Find(*first) : nullptr;
    if (block == nullptr)
        return;
    m_counters.packets += packets;
    m_counters.fullPackets += packets;
    m_counters.resent += block->Plan().CountRequested(first->packetId, first->packetId + packets - 1);
    m_frames.NoteArrival(packets * (header.size + block->DataPerPacket()), now);
    AgeKept(packets);
    block->TakeLanded(first->packetId, packets, now, now + m_settings.resend.initialTimeout);
}

void FrameAssembler::Sort(const StreamPacket &packet, orv::ByteSpan datagram, TimePoint now)
{
    AgeKept(1);
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
        block = kind == Kind::Missed ? m_frames.OpenMissed(packet, DataPerPacket(packet)) : Begin(packet, now);
    if (block != nullptr) {
        TakeKept(*block, now);
        Take(*block, packet, now);
        if (kind == Kind::Missed)
            m_frames.NoteLateBeginning(*block, now);
    } else {
        NoteBufferless(packet.blockId, !m_refuseNew && m_sink.WantsFrames());
        CountLate(packet.blockId); // as the rest of it will be
    }
    m_frames.DeliverReady();
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

void FrameAssembler::AgeKept(std::size_t packets)
{
    if (m_kept.empty() || (m_keptAge += packets) <= kKeptPackets)
        return;
    ++m_counters.unusable;
    m_kept.clear();
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
        m_frames.RefuseMissed(packet, now);
    }
    m_frames.DeliverReady();
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
        if (wasRequested && m_frames.IsNewest(block) && block.MayFollow(packet.packetId))
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

void FrameAssembler::RefuseNewFrames()
{
    m_refuseNew = true;
    m_frames.GiveUpMissed();
}

void FrameAssembler::AbandonAll()
{
    for (const std::uint64_t id : m_frames.AbandonAll())
        NoteBufferless(id, true);
}

} // namespace nuvark::gige
