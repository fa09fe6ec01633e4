#include "producer/gige/FrameBlock.h"

#include <algorithm>
#include <iterator>

/// Receiving; FrameOutcome.cpp holds what is said of a frame in the end.
namespace nuvark::gige {

namespace {

constexpr int kMostCutEnds = 3;
/// Of a block that is larger than its buffer the first packet beyond may be lost with some others.
constexpr std::uint32_t kMostBeyond = 64;
/// Fewer bytes of data no packet has that is meant to be full.
constexpr std::size_t kLeastData = 10;

} // namespace

FrameBlock::FrameBlock(const StreamPacket &first, const FrameTarget &target, Former former,
                       std::vector<std::uint64_t> bits)
    : m_id(first.blockId), m_extendedIds(first.extendedIds), m_target(target), m_former(std::move(former)),
      m_received(std::move(bits))
{
    SetDataSize(m_former.dataPerPacket);
}

void FrameBlock::Describe(Former &former) const
{
    if (m_trailer)
        former.payloadPackets = m_payloadCount;
    if (m_leader)
        former.parts = m_leader->parts;
}

void FrameBlock::SetDataSize(std::size_t bytes)
{
    m_dataPerPacket = bytes;
    m_maxPayload = static_cast<std::uint32_t>(std::min<std::uint64_t>(PacketsFor(m_target.size, bytes), 0xFFFFFFF0));
    m_received.assign(m_maxPayload / 64 + 1, 0);
    m_receivedCount = 0;
}

FrameBlock::Verdict FrameBlock::Take(const StreamPacket &packet, TimePoint now, TimePoint gapDue)
{
    m_lastPacket = now;
    m_gapDue = gapDue;
    const Verdict verdict = TakeContent(packet);
    if (verdict == Verdict::Taken)
        Reach(packet.packetId);
    else if (verdict == Verdict::Contradicted)
        m_plan.AddHole(packet.packetId, packet.packetId, now);
    return verdict;
}

FrameBlock::Verdict FrameBlock::TakeContent(const StreamPacket &packet)
{
    switch (static_cast<PacketFormat>(packet.format)) {
    case PacketFormat::Leader:
        return TakeLeader(packet);
    case PacketFormat::Trailer:
        return TakeTrailer(packet);
    case PacketFormat::Payload:
        return m_parts.empty() ? TakePayload(packet, packet.content) : Verdict::Unusable;
    case PacketFormat::AllIn:
        return TakeAllIn(packet);
    case PacketFormat::MultiPart:
        return TakePart(packet);
    default:
        return Verdict::Unusable;
    }
}

bool FrameBlock::IsFullPayload(const StreamPacket &packet) const
{
    const auto format = static_cast<PacketFormat>(packet.format);
    return (format == PacketFormat::Payload || format == PacketFormat::MultiPart) &&
           packet.content.size >= m_dataPerPacket;
}

void FrameBlock::Reach(std::uint32_t id)
{
    if (id > m_maxPayload + 1)
        return;
    if (id > m_next && !m_tailNoted) // else the tail's hole holds it already
        m_plan.AddHole(m_next, id - 1, m_gapDue);
    m_next = std::max(m_next, id + 1);
}

FrameBlock::Verdict FrameBlock::TakeLeader(const StreamPacket &packet)
{
    std::optional<Leader> leader = ParseLeader(packet.content, packet.partCount);
    if (!leader || packet.packetId != 0)
        return Verdict::Unusable;
    const std::uint8_t *begin = packet.content.data;
    if (m_leader) {
        if (std::equal(m_leaderBytes.begin(), m_leaderBytes.end(), begin, begin + packet.content.size))
            return Verdict::Duplicate;
        if (m_highestPayload != 0)
            return Verdict::Unusable; // another frame with the same number; the packets lie as the first one said
        ForgetParts();
        m_leader.reset();
        return Verdict::Contradicted;
    }
    m_leaderBytes.assign(begin, begin + packet.content.size);
    m_leader = std::move(leader);
    TakeLayout();
    return Verdict::Taken;
}

/// As the leader that has come tells it.
void FrameBlock::TakeLayout()
{
    if (m_leader->IsMultiPart() && m_partsAreGuessed && m_leader->parts != m_former.parts)
        PlaceAnew();
    else if (m_leader->IsMultiPart() && m_parts.empty() && m_receivedCount == 0)
        LayOutParts(m_leader->parts);
    else if (m_leader->IsMultiPart() == m_parts.empty())
        m_isBroken = true; // what came before it was of the other kind
    m_partsAreGuessed = false;
    if (m_trailer)
        Reach(m_payloadCount + 1); // which was beyond what there seemed to be room for
}

/// Packets lie where parts of another size would have had them: they are missing again.
void FrameBlock::PlaceAnew()
{
    ForgetParts();
    LayOutParts(m_leader->parts);
    if (m_next > 1)
        m_plan.AddHole(1, m_next - 1, m_gapDue);
}

/// And what has been placed in them.
void FrameBlock::ForgetParts()
{
    if (m_parts.empty())
        return;
    m_parts.clear();
    SetDataSize(m_dataPerPacket + kPartHeaderSize);
    m_receivedBytes = m_end = 0;
    m_isClipped = m_partsAreGuessed = false;
}

/// One part behind the other, each beginning with a packet of its own.
void FrameBlock::LayOutParts(const std::vector<PartDescription> &parts)
{
    const std::size_t data = std::max(m_dataPerPacket, kPartHeaderSize + 1) - kPartHeaderSize;
    SetDataSize(data);
    std::uint64_t begin = 0;
    std::uint64_t packets = 0;
    for (const PartDescription &part : parts) {
        const std::uint64_t room = m_target.size - begin;
        const std::uint64_t count = PacketsFor(std::min(part.length, room), data);
        m_parts.push_back({static_cast<std::uint32_t>(packets + 1), static_cast<std::uint32_t>(count), begin,
                           std::min(part.length, room)});
        packets += count;
        if (part.length > room) {
            m_isClipped = true;
            break;
        }
        begin += part.length;
    }
    m_maxPayload = static_cast<std::uint32_t>(std::min<std::uint64_t>(packets, 0xFFFFFFF0));
    m_received.assign(m_maxPayload / 64 + 1, 0);
}

FrameBlock::Verdict FrameBlock::TakeTrailer(const StreamPacket &packet)
{
    const std::optional<Trailer> trailer = ParseTrailer(packet.content);
    if (!trailer || packet.packetId == 0)
        return Verdict::Unusable;
    if (m_trailer)
        return m_payloadCount == packet.packetId - 1 ? Verdict::Duplicate : Verdict::Unusable;
    m_trailer = trailer;
    m_payloadCount = packet.packetId - 1;
    if (m_payloadCount < m_highestPayload)
        m_isBroken = true;
    if (m_payloadCount > m_shortId)
        ForgetShortPacket();
    return Verdict::Taken;
}

FrameBlock::Verdict FrameBlock::TakePayload(const StreamPacket &packet, orv::ByteSpan data)
{
    const std::uint32_t id = packet.packetId;
    const std::uint64_t announced = ExpectedBytes(Leader::Packing::PerLine);
    const bool fits = announced != 0 && announced <= m_target.size && !m_leader->CarriesChunks();
    if (id == 0 || (id > m_maxPayload && fits && m_receivedCount != 0))
        return Verdict::Unusable;
    if (id > std::max(m_maxPayload, m_highestPayload) && id - std::max(m_maxPayload, m_highestPayload) > kMostBeyond)
        return Verdict::Unusable;
    m_highestPayload = std::max(m_highestPayload, id);
    if (m_trailer && id > m_payloadCount)
        m_isBroken = true;
    LearnDataSize(id, data.size);
    if (id > m_shortId)
        ForgetShortPacket();
    const bool isFull = data.size >= m_dataPerPacket;
    if (!isFull && id < std::max(m_highestPayload, m_payloadCount))
        return Verdict::Unusable; // cut on the way; the hole stays open for a better copy
    if (id > m_maxPayload) {
        m_isClipped = true;
        return Verdict::Taken;
    }
    if (HasPayload(id))
        return TakeSecondCopy(id, data);
    Store(SlotOf(id), data);
    m_received[id / 64] |= std::uint64_t{1} << (id % 64);
    ++m_receivedCount;
    if (!isFull) {
        m_shortSize = StoredBytes(id, {SlotOf(id).offset, data.size});
        m_shortId = id;
    }
    return Verdict::Taken;
}

/// What packet `id` left in the buffer, given the slot that it filled.
std::size_t FrameBlock::StoredBytes(std::uint32_t id, const Slot &slot) const
{
    const std::size_t room = slot.offset < m_target.size ? m_target.size - slot.offset : 0;
    return std::min({slot.size, m_dataPerPacket, room, id == m_shortId ? m_shortSize : slot.size});
}

FrameBlock::Verdict FrameBlock::TakeSecondCopy(std::uint32_t id, orv::ByteSpan data)
{
    const Slot slot = SlotOf(id);
    const std::size_t stored = StoredBytes(id, slot);
    if (data.size < stored)
        return Verdict::Unusable;
    if (std::equal(data.data, data.data + stored, m_target.data + slot.offset))
        return Verdict::Duplicate;
    if (m_plan.IsStopped() || !IsCurable()) {
        m_isBroken = true; // no third one will tell which of them is right; the first one stays
        return Verdict::Unusable;
    }
    Forget(id);
    return Verdict::Contradicted;
}

void FrameBlock::Forget(std::uint32_t id)
{
    m_receivedBytes -= StoredBytes(id, SlotOf(id));
    m_received[id / 64] &= ~(std::uint64_t{1} << (id % 64));
    --m_receivedCount;
    if (id == m_shortId)
        m_shortId = 0;
}

void FrameBlock::ForgetShortPacket()
{
    if (m_shortId == 0)
        return;
    m_plan.AddHole(m_shortId, m_shortId, m_gapDue);
    Forget(m_shortId);
}

FrameBlock::Verdict FrameBlock::TakePart(const StreamPacket &packet)
{
    const std::optional<PartHeader> header = ParsePartHeader(packet.content);
    const std::uint32_t id = packet.packetId;
    if (header && m_parts.empty() && !m_leader && m_receivedCount == 0 && !m_former.parts.empty()) {
        LayOutParts(m_former.parts);
        m_partsAreGuessed = true;
    }
    if (m_parts.empty() && m_next == 0) { // without its leader nobody can say where it belongs
        m_plan.AddHole(0, 0, m_gapDue);
        m_next = 1;
    }
    if (!header || header->part >= m_parts.size() || id == 0)
        return Verdict::Unusable;
    if (m_receivedCount == 0 && header->part == 0 && !m_isBroken)
        LearnPartSize(id, *header);
    const Part &part = m_parts[header->part];
    const std::uint64_t inPart = std::uint64_t{id - part.firstPacket} * m_dataPerPacket;
    const bool isHere = id >= part.firstPacket && id - part.firstPacket < part.packets &&
                        (header->offset == inPart || header->offset == part.begin + inPart);
    const std::size_t full = isHere ? std::min<std::uint64_t>(m_dataPerPacket, part.length - inPart) : 0;
    if (!isHere || header->data.size < full)
        return Verdict::Unusable;
    m_highestPayload = std::max(m_highestPayload, id);
    if (m_trailer && id > m_payloadCount)
        m_isBroken = true;
    if (HasPayload(id))
        return TakeSecondCopy(id, {header->data.data, full});
    Store({part.begin + inPart, full}, {header->data.data, full});
    m_received[id / 64] |= std::uint64_t{1} << (id % 64);
    ++m_receivedCount;
    return Verdict::Taken;
}

/// Of the packets of a multi-part block, before any has been placed: each tells how much is before it.
void FrameBlock::LearnPartSize(std::uint32_t id, const PartHeader &header)
{
    // The first one shows only what it has itself; when that is less than told it may have been cut on the way.
    const std::uint64_t size = id == 1 ? std::max(header.data.size, m_dataPerPacket) : header.offset / (id - 1);
    const bool isEven = id == 1 || header.offset % (id - 1) == 0;
    if (!isEven || size == m_dataPerPacket || size < kLeastData || size >= m_parts[0].length)
        return;
    m_learnedSize = m_dataPerPacket = size + kPartHeaderSize;
    m_parts.clear();
    LayOutParts(m_leader ? m_leader->parts : m_former.parts);
}

FrameBlock::Verdict FrameBlock::TakeAllIn(const StreamPacket &packet)
{
    if (m_leader && m_trailer)
        return Verdict::Duplicate;
    const std::optional<AllInContent> content = SplitAllIn(packet.content);
    if (!content || packet.packetId != 0 || m_leader || m_trailer || m_receivedCount != 0)
        return Verdict::Unusable;
    m_leader = ParseLeader(content->leader);
    m_trailer = ParseTrailer(content->trailer);
    const bool isCut = m_leader && m_trailer && content->data.size < ExpectedBytes(Leader::Packing::Continuous);
    if (!m_leader || !m_trailer || (isCut && !m_plan.IsStopped())) {
        m_leader.reset();
        m_trailer.reset();
        return Verdict::Unusable;
    }
    m_leaderBytes.assign(content->leader.data, content->leader.data + content->leader.size);
    ForgetParts();
    if (content->data.size == 0)
        return Verdict::Taken;
    SetDataSize(content->data.size);
    m_payloadCount = m_highestPayload = 1;
    if (m_maxPayload == 0)
        return Verdict::Taken;
    Store(SlotOf(1), content->data);
    m_received[0] |= 1U << 1;
    m_receivedCount = 1;
    return Verdict::Taken;
}

void FrameBlock::LearnDataSize(std::uint32_t id, std::size_t size)
{
    if (size < kLeastData)
        return;
    if (id == 2 && m_shortId == 1 && m_shortSize == size && m_receivedCount == 1) {
        ShrinkDataSize();
        return;
    }
    const bool isFull = size > m_dataPerPacket ||
                        // The first of several packets is a full one.
                        (id == 1 && size < m_dataPerPacket && m_leader && m_plan.IsStopped() &&
                         ExpectedBytes(Leader::Packing::Continuous) > size);
    if (!isFull)
        return;
    m_learnedSize = size;
    if (m_receivedCount == 0)
        SetDataSize(size);
    else
        m_isBroken = true; // packets have been placed by the wrong size already; the next frame will be right
}

/// The first two packets are alike and not the last ones, so that is what a full one holds. The first one is in place
/// by either size.
void FrameBlock::ShrinkDataSize()
{
    m_learnedSize = m_shortSize;
    SetDataSize(m_shortSize);
    m_received[0] = 1U << 1;
    m_receivedCount = 1;
    m_shortId = 0;
}

FrameBlock::Slot FrameBlock::SlotOf(std::uint32_t id) const
{
    if (m_parts.empty())
        return {std::uint64_t{id - 1} * m_dataPerPacket, m_dataPerPacket};
    // The last one that begins there is not empty.
    const auto isBefore = [](std::uint32_t packet, const Part &part) { return packet < part.firstPacket; };
    const Part &part = *std::prev(std::upper_bound(m_parts.begin(), m_parts.end(), id, isBefore));
    const std::uint64_t inPart = std::uint64_t{id - part.firstPacket} * m_dataPerPacket;
    return {part.begin + inPart, std::min<std::uint64_t>(m_dataPerPacket, part.length - inPart)};
}

void FrameBlock::Store(const Slot &slot, orv::ByteSpan data)
{
    const std::size_t room = slot.offset < m_target.size ? m_target.size - slot.offset : 0;
    const std::size_t size = std::min({data.size, slot.size, room});
    if (data.size > room)
        m_isClipped = true;
    if (data.data != m_target.data + slot.offset)
        std::copy_n(data.data, size, m_target.data + slot.offset);
    m_receivedBytes += size;
    m_end = std::max(m_end, slot.offset + size);
}

std::optional<Landing> FrameBlock::NextLanding() const
{
    // The parts of a multi-part block do not follow each other without gaps.
    if (m_trailer || m_next == 0 || !m_parts.empty() || m_isBroken)
        return std::nullopt;
    const std::uint64_t image = m_leader && m_leader->CarriesChunks() ? 0 : ExpectedBytes(Leader::Packing::PerLine);
    const std::uint64_t end = image != 0 ? std::min<std::uint64_t>(image, m_target.size) : m_target.size;
    const std::uint64_t offset = std::uint64_t{m_next - 1} * m_dataPerPacket;
    if (offset + m_dataPerPacket > end)
        return std::nullopt;
    Landing landing;
    landing.begin = m_target.data + offset;
    landing.headerSize = m_extendedIds ? kExtendedHeaderSize : kStandardHeaderSize;
    landing.dataSize = m_dataPerPacket;
    landing.packets = (end - offset) / m_dataPerPacket;
    landing.extendedIds = m_extendedIds;
    landing.blockId = m_id;
    landing.firstPacket = m_next;
    return landing;
}

bool FrameBlock::HasPacket(std::uint32_t id) const
{
    if (id == 0)
        return m_leader.has_value();
    if (m_trailer && id > m_payloadCount)
        return true;
    return id <= m_maxPayload && HasPayload(id);
}

ResendPlan::Extent FrameBlock::GetExtent() const
{
    if (m_trailer)
        return {std::min(m_payloadCount, m_maxPayload) + 1, false, true, 0};
    const std::uint32_t highest = std::min(m_highestPayload, m_maxPayload);
    const std::uint32_t likely = m_former.payloadPackets != 0 ? m_former.payloadPackets : m_maxPayload;
    return {std::max(ExpectedPackets(), highest) + 1, true, IsLengthKnown(),
            std::clamp(likely, highest, m_maxPayload) + 1};
}

/// In packets, before the trailer has told.
bool FrameBlock::IsLengthKnown() const
{
    return !m_parts.empty() || (ExpectedBytes(Leader::Packing::PerLine) != 0 && !m_leader->CarriesChunks());
}

/// Payload packets, as far as leader and buffer tell.
std::uint32_t FrameBlock::ExpectedPackets() const
{
    if (!m_parts.empty() || !IsLengthKnown())
        return m_maxPayload;
    const std::uint64_t bytes = ExpectedBytes(Leader::Packing::PerLine);
    return static_cast<std::uint32_t>(std::min<std::uint64_t>(PacketsFor(bytes, m_dataPerPacket), m_maxPayload));
}

void FrameBlock::NoteTail(TimePoint due)
{
    if (m_tailNoted || m_trailer)
        return;
    m_tailNoted = true;
    m_plan.AddHole(m_next, kToTheEnd, due);
}

bool FrameBlock::MindsSilence() const
{
    const bool isProbing = m_probe != 0 && m_probe + 1 == m_next && !HasPacket(m_probe);
    return !m_tailNoted && !m_trailer && !isProbing;
}

void FrameBlock::NoteSilence(TimePoint due)
{
    if (!MindsSilence())
        return;
    const bool isAnswered = m_probe != 0 && m_probe + 1 == m_next;
    // The trailer is asked for as the end: its number some cameras refuse.
    const ResendPlan::Extent extent = GetExtent();
    if (isAnswered || m_next == 0 || m_next >= (extent.isKnown ? extent.lastId : extent.likelyLastId)) {
        NoteTail(due);
        return;
    }
    m_probe = m_next++;
    m_plan.AddHole(m_probe, m_probe, due);
}

bool FrameBlock::NoteCameraLoss(bool isEnd)
{
    m_plan.Stop();
    m_hasEnded = m_hasEnded || isEnd;
    return !std::exchange(m_cameraLoss, true);
}

bool FrameBlock::ForgetCutEnd(TimePoint due)
{
    if (m_plan.IsStopped() || m_shortId == 0 || m_cutEnds >= kMostCutEnds || !IsComplete() || !IsShorterThanTold())
        return false;
    ++m_cutEnds;
    m_gapDue = due;
    ForgetShortPacket();
    return true;
}

} // namespace nuvark::gige
