#include "producer/gige/FrameAssembler.h"

#include "producer/gige/Bootstrap.h"

#include <algorithm>

namespace nuvark::gige {

namespace {

/// A block up to this far behind the newest is late; farther behind, the camera has begun to count anew.
constexpr std::int64_t kLateDistance = 100;
/// A packet other than a leader opens a block only this close to the newest one; anything else is junk.
constexpr std::int64_t kBlindDistance = 16;
constexpr std::size_t kNewerFramesBegun = 2;
constexpr std::size_t kSmallestPacket = 46;

std::uint64_t PacketsFor(std::uint64_t bytes, std::size_t dataPerPacket)
{
    return bytes / dataPerPacket + (bytes % dataPerPacket != 0 ? 1 : 0);
}

} // namespace

FrameAssembler::FrameAssembler(FrameSink &sink, Settings settings) : m_sink(sink), m_settings(settings) {}

std::int64_t FrameAssembler::Distance(const StreamPacket &packet) const
{
    if (packet.extendedIds)
        return static_cast<std::int64_t>(packet.blockId - m_newestId);
    const auto distance = static_cast<std::int16_t>(packet.blockId - m_newestId);
    // 65535 is followed by 1: across the wrap there is one number less than there seems to be.
    if (distance > 0 && packet.blockId < m_newestId)
        return distance - 1;
    if (distance < 0 && packet.blockId > m_newestId)
        return distance + 1;
    return distance;
}

FrameAssembler::Kind FrameAssembler::Classify(const StreamPacket &packet, Block *&block)
{
    for (Block &open : m_open) {
        if (open.id == packet.blockId && open.extendedIds == packet.extendedIds) {
            block = &open;
            return Kind::Open;
        }
    }
    const bool isLeader = packet.format == static_cast<std::uint8_t>(PacketFormat::Leader);
    if (!m_started)
        return Kind::New;
    if (packet.extendedIds != m_newestExtended)
        return isLeader ? Kind::New : Kind::Junk;
    const std::int64_t distance = Distance(packet);
    if (distance <= 0 && distance > -kLateDistance)
        return Kind::Late;
    return isLeader || (distance > 0 && distance <= kBlindDistance) ? Kind::New : Kind::Junk;
}

FrameAssembler::Block *FrameAssembler::Begin(const StreamPacket &packet)
{
    // Counting anew, or in another form: what is open will not go on.
    if (m_started && (packet.extendedIds != m_newestExtended || Distance(packet) <= 0))
        DeliverAll();
    m_started = true;
    m_newestId = packet.blockId;
    m_newestExtended = packet.extendedIds;
    Block block;
    if (m_refuseNew || !m_sink.TakeBuffer(block.target))
        return nullptr;
    block.id = packet.blockId;
    block.extendedIds = packet.extendedIds;
    block.received.swap(m_spareBits);
    const std::size_t header = packet.extendedIds ? kExtendedHeaderSize : kStandardHeaderSize;
    const std::size_t told = std::max(m_settings.packetSize, kSmallestPacket + header) - kIpUdpHeaders - header;
    const std::size_t learned = m_learned[packet.extendedIds ? 1 : 0];
    SetDataSize(block, learned != 0 ? learned : told);
    m_open.push_back(std::move(block));
    return &m_open.back();
}

void FrameAssembler::SetDataSize(Block &block, std::size_t bytes)
{
    block.dataPerPacket = bytes;
    block.maxPayload =
        static_cast<std::uint32_t>(std::min<std::uint64_t>(PacketsFor(block.target.size, bytes), 0xFFFFFFF0));
    block.received.assign(block.maxPayload / 64 + 1, 0);
    block.receivedCount = 0;
}

void FrameAssembler::OnPacket(orv::ByteSpan datagram, TimePoint now)
{
    ++m_counters.packets;
    const std::optional<StreamPacket> packet = ParseStreamPacket(datagram);
    if (!packet || packet->blockId == 0) {
        ++m_counters.unusable; // block id 0: a test packet
        return;
    }
    Block *block = nullptr;
    const Kind kind = Classify(*packet, block);
    if (kind == Kind::Late || kind == Kind::Junk) {
        ++(kind == Kind::Late ? m_counters.late : m_counters.unusable);
        return;
    }
    if (packet->IsError()) {
        ++m_counters.refused;
        return;
    }
    if (kind == Kind::New)
        block = Begin(*packet);
    if (block == nullptr)
        return; // no buffer: the rest of the block comes as late and is dropped
    block->lastPacket = now;
    switch (static_cast<PacketFormat>(packet->format)) {
    case PacketFormat::Leader:
        OnLeader(*block, *packet);
        break;
    case PacketFormat::Trailer:
        OnTrailer(*block, *packet);
        break;
    case PacketFormat::Payload:
        OnPayload(*block, *packet);
        break;
    default:
        ++m_counters.unusable;
        break;
    }
    DeliverReady(now);
}

void FrameAssembler::OnLeader(Block &block, const StreamPacket &packet)
{
    std::optional<Leader> leader = ParseLeader(packet.content);
    if (!leader || packet.packetId != 0) {
        ++m_counters.unusable;
        return;
    }
    if (block.leader) {
        ++m_counters.duplicates;
        return;
    }
    block.leader = std::move(leader);
}

void FrameAssembler::OnTrailer(Block &block, const StreamPacket &packet)
{
    const std::optional<Trailer> trailer = ParseTrailer(packet.content);
    if (!trailer || packet.packetId == 0) {
        ++m_counters.unusable;
        return;
    }
    if (block.trailer) {
        ++m_counters.duplicates;
        return;
    }
    block.trailer = trailer;
    block.payloadCount = packet.packetId - 1;
    if (block.payloadCount < block.highestPayload)
        block.isBroken = true;
    if (block.payloadCount > block.shortId)
        ForgetShortPacket(block);
}

void FrameAssembler::OnPayload(Block &block, const StreamPacket &packet)
{
    if (packet.packetId == 0) {
        ++m_counters.unusable;
        return;
    }
    block.highestPayload = std::max(block.highestPayload, packet.packetId);
    if (block.trailer && packet.packetId > block.payloadCount)
        block.isBroken = true;
    LearnDataSize(block, packet);
    if (packet.packetId > block.shortId)
        ForgetShortPacket(block);
    const bool isFull = packet.content.size >= block.dataPerPacket;
    if (!isFull && packet.packetId < std::max(block.highestPayload, block.payloadCount)) {
        ++m_counters.unusable; // cut on the way; the hole stays open for a better copy
        return;
    }
    if (packet.packetId > block.maxPayload) {
        block.isClipped = true;
        return;
    }
    std::uint64_t &bits = block.received[packet.packetId / 64];
    const std::uint64_t bit = std::uint64_t{1} << (packet.packetId % 64);
    if ((bits & bit) != 0) {
        ++m_counters.duplicates;
        return;
    }
    bits |= bit;
    ++block.receivedCount;
    const std::size_t stored = Store(block, packet);
    if (!isFull) {
        block.shortId = packet.packetId;
        block.shortSize = stored;
    }
}

void FrameAssembler::ForgetShortPacket(Block &block)
{
    if (block.shortId == 0)
        return;
    block.received[block.shortId / 64] &= ~(std::uint64_t{1} << (block.shortId % 64));
    --block.receivedCount;
    block.receivedBytes -= block.shortSize;
    block.shortId = 0;
    ++m_counters.unusable;
}

void FrameAssembler::LearnDataSize(Block &block, const StreamPacket &packet)
{
    const std::size_t size = packet.content.size;
    if (packet.packetId == 2 && size != 0 && block.shortId == 1 && block.shortSize == size &&
        block.receivedCount == 1) {
        ShrinkDataSize(block);
        return;
    }
    const bool isFull = size > block.dataPerPacket ||
                        // The first of several packets is a full one.
                        (packet.packetId == 1 && size != 0 && size < block.dataPerPacket && block.leader &&
                         ExpectedBytes(block, Leader::Packing::Continuous) > size);
    if (!isFull)
        return;
    m_learned[block.extendedIds ? 1 : 0] = size;
    if (block.receivedCount == 0) {
        SetDataSize(block, size);
        return;
    }
    // Packets have been placed by the wrong size already; the next frame will be right.
    block.isBroken = true;
}

/// The first two packets are alike and not the last ones, so that is what a full one holds. The first one is in place
/// by either size.
void FrameAssembler::ShrinkDataSize(Block &block)
{
    m_learned[block.extendedIds ? 1 : 0] = block.shortSize;
    SetDataSize(block, block.shortSize);
    block.received[0] = 1U << 1;
    block.receivedCount = 1;
    block.shortId = 0;
}

std::size_t FrameAssembler::Store(Block &block, const StreamPacket &packet)
{
    const std::uint64_t offset = std::uint64_t{packet.packetId - 1} * block.dataPerPacket;
    const std::size_t room = offset < block.target.size ? block.target.size - offset : 0;
    const std::size_t size = std::min({packet.content.size, block.dataPerPacket, room});
    if (packet.content.size > room)
        block.isClipped = true;
    std::copy_n(packet.content.data, size, block.target.data + offset);
    block.receivedBytes += size;
    block.end = std::max(block.end, offset + size);
    return size;
}

std::uint32_t FrameAssembler::Lines(const Block &block)
{
    const std::uint32_t announced = block.leader->height;
    return block.trailer ? std::min(announced, block.trailer->height.value_or(announced)) : announced;
}

std::uint64_t FrameAssembler::ExpectedBytes(const Block &block, Leader::Packing packing) const
{
    if (!block.leader)
        return 0;
    if (block.leader->CarriesChunks() && block.trailer && block.trailer->chunkSize != 0)
        return block.trailer->chunkSize;
    if (block.leader->hasImage)
        return block.leader->ImageBytes(Lines(block), packing);
    return block.leader->size;
}

bool FrameAssembler::IsLargerThanBuffer(const Block &block) const
{
    if (block.payloadCount > block.maxPayload)
        return true;
    const std::uint64_t expected = ExpectedBytes(block, Leader::Packing::Continuous);
    if (expected != 0 && !block.leader->CarriesChunks())
        return expected > block.target.size; // a last packet padded to full size does not count
    return block.isClipped || expected > block.target.size;
}

bool FrameAssembler::IsShortOfImage(const Block &block) const
{
    return block.leader && block.leader->hasImage && block.end < ExpectedBytes(block, Leader::Packing::Continuous);
}

bool FrameAssembler::IsComplete(const Block &block) const
{
    return block.leader && block.trailer && block.receivedCount >= std::min(block.payloadCount, block.maxPayload) &&
           !block.isBroken;
}

bool FrameAssembler::IsWaitingForTrigger(const Block &block) const
{
    // Some cameras send the leader when the acquisition starts and the data when a trigger comes.
    return block.leader && block.highestPayload == 0 && !block.trailer && m_open.size() == 1;
}

bool FrameAssembler::HasWaitedLongEnough(std::size_t index, TimePoint now) const
{
    const Block &block = m_open[index];
    const std::size_t newer = m_open.size() - index - 1;
    if (newer >= kNewerFramesBegun)
        return true;
    if (newer > 0 && IsComplete(m_open[index + 1]))
        return true;
    return !IsWaitingForTrigger(block) && now - block.lastPacket >= m_settings.retention;
}

void FrameAssembler::DeliverReady(TimePoint now)
{
    while (!m_open.empty() && (IsComplete(m_open.front()) || HasWaitedLongEnough(0, now))) {
        Deliver(m_open.front());
        Recycle(m_open.front());
        m_open.pop_front();
    }
}

void FrameAssembler::Recycle(Block &block)
{
    m_spareBits.swap(block.received);
}

void FrameAssembler::OnTime(TimePoint now)
{
    DeliverReady(now);
}

std::optional<TimePoint> FrameAssembler::NextDeadline() const
{
    if (m_open.empty() || IsWaitingForTrigger(m_open.front()))
        return std::nullopt;
    return m_open.front().lastPacket + m_settings.retention;
}

void FrameAssembler::DeliverAll()
{
    for (Block &block : m_open) {
        Deliver(block);
        Recycle(block);
    }
    m_open.clear();
}

void FrameAssembler::AbandonAll()
{
    for (Block &block : m_open) {
        m_sink.GiveBack(block.target);
        Recycle(block);
    }
    m_open.clear();
}

void FrameAssembler::Deliver(Block &block)
{
    const bool complete = IsComplete(block) && !IsLargerThanBuffer(block) && !IsShortOfImage(block);
    const FrameInfo info = Describe(block, complete);
    if (!complete) {
        ++m_counters.incompleteFrames;
        ZeroHoles(block, info.dataSize);
        m_counters.missing += MissingPackets(block, info.dataSize);
    }
    m_sink.Deliver(block.target, info);
}

/// Of the packets that can touch the buffer: of those beyond it nobody knows which came.
std::uint32_t FrameAssembler::MissingPackets(const Block &block, std::uint64_t dataSize)
{
    const std::uint64_t told = std::max<std::uint64_t>(block.payloadCount, PacketsFor(dataSize, block.dataPerPacket));
    const auto expected = static_cast<std::uint32_t>(std::min<std::uint64_t>(told, block.maxPayload));
    std::uint32_t missing = 0;
    for (std::uint32_t id = 1; id <= expected; ++id)
        missing += HasPacket(block, id) ? 0 : 1;
    return missing;
}

bool FrameAssembler::HasPacket(const Block &block, std::uint32_t id)
{
    return (block.received[id / 64] >> (id % 64) & 1) != 0;
}

void FrameAssembler::ZeroHoles(const Block &block, std::uint64_t end)
{
    for (std::uint32_t id = 1; id <= block.maxPayload; ++id) {
        const std::uint64_t offset = std::uint64_t{id - 1} * block.dataPerPacket;
        if (offset >= end)
            return;
        const std::size_t there = !HasPacket(block, id) ? 0
                                  : id == block.shortId ? block.shortSize
                                                        : block.dataPerPacket;
        const std::uint64_t slot = std::min<std::uint64_t>(block.dataPerPacket, end - offset);
        if (there < slot)
            std::fill_n(block.target.data + offset + there, slot - there, 0);
    }
}

FrameInfo FrameAssembler::Describe(const Block &block, bool complete) const
{
    FrameInfo info;
    info.frameId = block.id;
    info.isIncomplete = !complete;
    info.isLargerThanBuffer = IsLargerThanBuffer(block);
    info.bigEndianPixels = m_settings.bigEndianPixels;
    std::uint64_t expected = std::max(block.end, std::uint64_t{block.payloadCount} * block.dataPerPacket);
    if (block.leader) {
        const Leader &leader = *block.leader;
        info.payloadType = GenTLPayloadType(leader.payloadType);
        info.timestamp = leader.timestamp;
        info.fileName = leader.fileName;
        info.hasImage = leader.hasImage;
        info.pixelFormat = leader.pixelFormat;
        info.width = leader.width;
        info.height = leader.height;
        info.deliveredHeight = Lines(block);
        info.xOffset = leader.offsetX;
        info.yOffset = leader.offsetY;
        info.xPadding = leader.paddingX;
        info.yPadding = leader.paddingY;
        const std::uint64_t told = ExpectedBytes(block, Leader::Packing::PerLine);
        // A complete frame ends where its data ends, except that the last packet may have been padded.
        if (told != 0)
            expected = complete ? std::min(block.end, told) : told;
    } else if (block.trailer) {
        info.payloadType = GenTLPayloadType(block.trailer->payloadType);
    }
    info.dataSize = std::min<std::uint64_t>(expected, block.target.size);
    info.sizeFilled = std::min<std::uint64_t>(block.receivedBytes, info.dataSize);
    // With holes nobody can say where the chunks begin.
    if (complete && block.leader->CarriesChunks()) {
        info.hasChunks = true;
        info.chunkPayloadSize = std::min<std::uint64_t>(block.trailer->chunkSize, info.sizeFilled);
        if (info.chunkPayloadSize == 0)
            info.chunkPayloadSize = info.sizeFilled;
        info.chunkLayoutId = block.trailer->chunkLayoutId;
    }
    return info;
}

} // namespace nuvark::gige
