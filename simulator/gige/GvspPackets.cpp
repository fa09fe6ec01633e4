#include "simulator/gige/GvspPackets.h"

#include "orvimage/PixelFormats.h"

#include <algorithm>

namespace orvsim {

namespace {

using namespace gvsp;

constexpr std::uint64_t kIdsBeforeWrap = 0xffff;

// Part data types, and the GenICam components that the parts hold.
constexpr std::uint32_t kPart2DImage = 0x0001;
constexpr std::uint32_t kPartConfidenceMap = 0x0009;
constexpr std::uint32_t kIntensity = 1;
constexpr std::uint32_t kConfidence = 6;
constexpr std::uint8_t kEndOfPart = 0x40;

/// Appends big-endian fields to a packet's head, which has room for every packet of ours.
class HeadWriter {
public:
    explicit HeadWriter(Packet &packet) : m_packet(packet) {}
    void U8(std::uint8_t value) { m_packet.head[m_packet.headBytes++] = value; }
    void U16(std::uint32_t value) { Write(value, 2); }
    void U24(std::uint32_t value) { Write(value, 3); }
    void U32(std::uint32_t value) { Write(value, 4); }
    void U48(std::uint64_t value) { Write(value, 6); }
    void U64(std::uint64_t value) { Write(value, 8); }

private:
    void Write(std::uint64_t value, int count)
    {
        for (int i = count - 1; i >= 0; --i)
            U8(static_cast<std::uint8_t>(value >> (8 * i)));
    }

    Packet &m_packet;
};

struct Header {
    std::uint16_t status = 0;
    std::uint16_t flags = 0; ///< extended ids only
    Format format = Format::Payload;
    std::uint64_t blockId = 0;
    std::uint32_t packetId = 0;
    std::uint8_t parts = 0; ///< that a multi-part leader describes; extended ids only
};

void WriteHeader(HeadWriter &out, const Header &header, bool extendedIds)
{
    out.U16(header.status);
    const auto format = static_cast<std::uint8_t>(header.format);
    if (!extendedIds) {
        out.U16(static_cast<std::uint16_t>(header.blockId));
        out.U8(format);
        out.U24(header.packetId);
        return;
    }
    out.U16(header.flags);
    out.U8(0x80 | format);
    out.U16(0);
    out.U8(header.parts);
    out.U64(header.blockId);
    out.U32(header.packetId);
}

std::uint16_t PayloadType(const Block &block)
{
    if (block.IsMultiPart())
        return kPayloadMultiPart;
    if (!block.frame->hasChunks)
        return kPayloadImage;
    return block.oldChunkType ? kPayloadExtendedChunks : kPayloadImage | kPayloadChunksFollow;
}

void WriteGeometry(HeadWriter &out, const FrameSettings &settings)
{
    out.U32(static_cast<std::uint32_t>(settings.width));
    out.U32(static_cast<std::uint32_t>(settings.height));
    out.U32(static_cast<std::uint32_t>(settings.offsetX));
    out.U32(static_cast<std::uint32_t>(settings.offsetY));
    out.U32(0); // no padding of lines or image
}

/// One of the two pictures of a multi-part frame.
struct Part {
    std::uint32_t dataType;
    std::uint32_t component;
    std::uint32_t pixelType;
    orv::ByteSpan data;
};

std::array<Part, kParts> PartsOf(const Block &block)
{
    const Frame &frame = *block.frame;
    return {{{kPart2DImage, kIntensity, frame.settings.pixelType, {frame.payload.data(), frame.imageBytes}},
             {kPartConfidenceMap,
              kConfidence,
              orv::kMono8,
              {frame.payload.data() + frame.imageBytes, frame.confidenceBytes}}}};
}

void WriteLeader(HeadWriter &out, const Block &block)
{
    const FrameSettings &settings = block.frame->settings;
    out.U16(0); // no interlaced fields
    out.U16(PayloadType(block));
    out.U64(block.frame->timestampNs);
    if (!block.IsMultiPart()) {
        out.U32(orv::WireFromPixelType(settings.pixelType));
        WriteGeometry(out, settings);
        return;
    }
    for (const Part &part : PartsOf(block)) {
        out.U16(part.dataType);
        out.U48(part.data.size);
        out.U32(orv::WireFromPixelType(part.pixelType));
        out.U32(0); // source
        out.U32(0); // no zones
        out.U16(part.component);
        out.U16(0); // region
        WriteGeometry(out, settings);
        out.U32(0); // reserved
    }
}

void WriteTrailer(HeadWriter &out, const Block &block)
{
    const Frame &frame = *block.frame;
    const auto height = static_cast<std::uint32_t>(frame.settings.height);
    const auto bytes = static_cast<std::uint32_t>(frame.payload.size());
    out.U16(0);
    out.U16(PayloadType(block));
    if (block.IsMultiPart()) {
        for (const Part &part : PartsOf(block)) {
            out.U16(part.dataType);
            out.U48(part.data.size);
            out.U32(height);
            out.U32(0); // reserved
        }
        return;
    }
    if (!frame.hasChunks) {
        out.U32(height);
        return;
    }
    out.U32(block.oldChunkType ? bytes : height); // the other order with the other type
    out.U32(block.oldChunkType ? height : bytes);
    out.U32(0); // one layout only
}

std::size_t TrailerBytes(const Frame &frame)
{
    return frame.hasChunks ? kChunkTrailerBytes : kTrailerBytes;
}

Format FormatOf(const Block &block, std::uint32_t packetId)
{
    if (block.isAllIn)
        return Format::AllIn;
    if (packetId == 0)
        return Format::Leader;
    if (packetId + 1 == block.packetCount)
        return Format::Trailer;
    return block.IsMultiPart() ? Format::PartPayload : Format::Payload;
}

orv::ByteSpan DataOf(const Block &block, std::uint32_t packetId)
{
    const std::vector<std::uint8_t> &payload = block.frame->payload;
    const std::size_t begin = std::size_t{packetId - 1} * block.dataBytes;
    return {payload.data() + begin, std::min<std::size_t>(block.dataBytes, payload.size() - begin)};
}

void WritePartPayload(HeadWriter &out, const Block &block, std::uint32_t packetId, Packet &packet)
{
    const std::uint8_t index = packetId > block.firstPartPackets ? 1 : 0;
    const orv::ByteSpan data = PartsOf(block)[index].data;
    const std::size_t offset = std::size_t{packetId - 1 - index * block.firstPartPackets} * block.dataBytes;
    packet.body = {data.data + offset, std::min<std::size_t>(block.dataBytes, data.size - offset)};
    out.U8(index);
    out.U8(offset + packet.body.size == data.size ? kEndOfPart : 0);
    out.U48(offset + (block.countsFromPart ? 0 : static_cast<std::size_t>(data.data - block.frame->payload.data())));
}

std::uint32_t PacketsFor(std::size_t bytes, std::uint32_t dataBytes)
{
    return static_cast<std::uint32_t>((bytes + dataBytes - 1) / dataBytes);
}

/// One part behind the other, each from a packet of its own on.
void CutIntoParts(Block &block)
{
    block.extendedIds = true; // the only ones with room for the number of parts
    block.packetSize = std::max(block.packetSize, kSmallestPartPacketSize);
    block.dataBytes = PacketRoom(block.packetSize, true) - static_cast<std::uint32_t>(kPartHeaderBytes);
    block.firstPartPackets = PacketsFor(block.frame->imageBytes, block.dataBytes);
    block.packetCount = block.firstPartPackets + PacketsFor(block.frame->confidenceBytes, block.dataBytes) + 2;
}

} // namespace

Block MakeBlock(std::shared_ptr<const Frame> frame, const StreamTarget &target, std::uint64_t id)
{
    Block block;
    block.id = id;
    block.extendedIds = target.extendedIds;
    block.extendedStatus = target.extendedStatus;
    block.oldChunkType = target.oldChunkType;
    block.packetSize = Usable(target.packetSize);
    block.dataBytes = PacketRoom(target.packetSize, target.extendedIds);
    block.frame = std::move(frame);
    if (block.frame->confidenceBytes > 0) {
        CutIntoParts(block);
        return block;
    }
    const std::size_t payloadBytes = block.frame->payload.size();
    const std::size_t allInBytes = kLeaderBytes + TrailerBytes(*block.frame) + payloadBytes;
    block.isAllIn = target.allIn && allInBytes <= block.dataBytes;
    block.packetCount = block.isAllIn ? 1 : PacketsFor(payloadBytes, block.dataBytes) + 2;
    return block;
}

Packet MakePacket(const Block &block, std::uint32_t packetId, Sending sending)
{
    Header header;
    header.format = FormatOf(block, packetId);
    header.blockId = block.id;
    header.packetId = packetId;
    if (block.IsMultiPart() && header.format == Format::Leader)
        header.parts = kParts;
    if (sending == Sending::Again && block.extendedIds)
        header.flags = kFlagResent;
    else if (sending == Sending::Again && block.extendedStatus)
        header.status = kStatusResent;

    Packet packet;
    HeadWriter out(packet);
    WriteHeader(out, header, block.extendedIds);
    if (header.format == Format::Leader || header.format == Format::AllIn)
        WriteLeader(out, block);
    if (header.format == Format::Trailer || header.format == Format::AllIn)
        WriteTrailer(out, block);
    if (header.format == Format::AllIn)
        packet.body = {block.frame->payload.data(), block.frame->payload.size()};
    if (header.format == Format::Payload)
        packet.body = DataOf(block, packetId);
    if (header.format == Format::PartPayload)
        WritePartPayload(out, block, packetId, packet);
    return packet;
}

Packet MakeRefusal(std::uint16_t status, std::uint64_t blockId, std::uint32_t packetId, bool extendedIds)
{
    Header header;
    header.status = status;
    header.blockId = blockId;
    header.packetId = packetId;
    Packet packet;
    HeadWriter out(packet);
    WriteHeader(out, header, extendedIds);
    return packet;
}

std::vector<std::uint8_t> MakeTestPacket(const StreamTarget &target)
{
    const Packet head = MakeRefusal(0, 0, 0, target.extendedIds);
    std::vector<std::uint8_t> datagram(Usable(target.packetSize) - kIpAndUdpBytes);
    std::copy_n(head.head.begin(), head.headBytes, datagram.begin());
    return datagram;
}

std::uint64_t BlockIdOnWire(std::uint64_t count, bool extendedIds)
{
    return extendedIds ? count : (count - 1) % kIdsBeforeWrap + 1;
}

} // namespace orvsim
