#include "simulator/gige/GvspPackets.h"

#include "orvimage/PixelFormats.h"

#include <algorithm>

namespace orvsim {

namespace {

using namespace gvsp;

constexpr std::uint64_t kIdsBeforeWrap = 0xffff;
/// Preamble 8, header 14, check sequence 4, gap 12.
constexpr std::uint64_t kEthernetOverhead = 38;
/// Shorter packets are filled up.
constexpr std::uint64_t kEthernetLeast = 46;

/// Appends big-endian fields to a packet's head, which has room for every packet of ours.
class HeadWriter {
public:
    explicit HeadWriter(Packet &packet) : m_packet(packet) {}
    void U8(std::uint8_t value) { m_packet.head[m_packet.headBytes++] = value; }
    void U16(std::uint32_t value) { Write(value, 2); }
    void U24(std::uint32_t value) { Write(value, 3); }
    void U32(std::uint32_t value) { Write(value, 4); }
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
    out.U24(0); // reserved; the last byte counts parts, of which an image has none
    out.U64(header.blockId);
    out.U32(header.packetId);
}

std::uint16_t PayloadType(const Block &block)
{
    if (!block.frame->hasChunks)
        return kPayloadImage;
    return block.oldChunkType ? kPayloadExtendedChunks : kPayloadImage | kPayloadChunksFollow;
}

void WriteLeader(HeadWriter &out, const Block &block)
{
    const Frame &frame = *block.frame;
    const FrameSettings &settings = frame.settings;
    out.U16(0); // no interlaced fields
    out.U16(PayloadType(block));
    out.U64(frame.timestampNs);
    out.U32(orv::WireFromPixelType(settings.pixelType));
    out.U32(static_cast<std::uint32_t>(settings.width));
    out.U32(static_cast<std::uint32_t>(settings.height));
    out.U32(static_cast<std::uint32_t>(settings.offsetX));
    out.U32(static_cast<std::uint32_t>(settings.offsetY));
    out.U32(0); // no padding of lines or image
}

void WriteTrailer(HeadWriter &out, const Block &block)
{
    const Frame &frame = *block.frame;
    const auto height = static_cast<std::uint32_t>(frame.settings.height);
    const auto bytes = static_cast<std::uint32_t>(frame.payload.size());
    out.U16(0);
    out.U16(PayloadType(block));
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

std::uint32_t Usable(std::uint32_t packetSize)
{
    return std::clamp(packetSize, kSmallestPacketSize, kLargestPacketSize);
}

std::uint32_t DataBytes(std::uint32_t packetSize, bool extendedIds)
{
    return Usable(packetSize) - static_cast<std::uint32_t>(kIpAndUdpBytes + HeaderBytes(extendedIds));
}

std::uint64_t OnEthernet(std::uint64_t ipBytes)
{
    return std::max(ipBytes, kEthernetLeast) + kEthernetOverhead;
}

Format FormatOf(const Block &block, std::uint32_t packetId)
{
    if (block.isAllIn)
        return Format::AllIn;
    if (packetId == 0)
        return Format::Leader;
    return packetId + 1 == block.packetCount ? Format::Trailer : Format::Payload;
}

orv::ByteSpan DataOf(const Block &block, std::uint32_t packetId)
{
    const std::vector<std::uint8_t> &payload = block.frame->payload;
    const std::size_t begin = std::size_t{packetId - 1} * block.dataBytes;
    return {payload.data() + begin, std::min<std::size_t>(block.dataBytes, payload.size() - begin)};
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
    block.dataBytes = DataBytes(target.packetSize, target.extendedIds);
    const std::size_t allInBytes = kLeaderBytes + TrailerBytes(*frame) + frame->payload.size();
    block.isAllIn = target.allIn && allInBytes <= block.dataBytes;
    const std::size_t dataPackets = (frame->payload.size() + block.dataBytes - 1) / block.dataBytes;
    block.packetCount = block.isAllIn ? 1 : static_cast<std::uint32_t>(dataPackets + 2);
    block.frame = std::move(frame);
    return block;
}

Packet MakePacket(const Block &block, std::uint32_t packetId, Sending sending)
{
    Header header;
    header.format = FormatOf(block, packetId);
    header.blockId = block.id;
    header.packetId = packetId;
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

std::uint64_t EthernetBytes(std::size_t payloadBytes, std::uint32_t packetSize, bool extendedIds)
{
    const std::uint64_t overhead = kIpAndUdpBytes + HeaderBytes(extendedIds);
    const std::uint64_t dataBytes = DataBytes(packetSize, extendedIds);
    const std::uint64_t rest = payloadBytes % dataBytes;
    return OnEthernet(overhead + kLeaderBytes) + OnEthernet(overhead + kTrailerBytes) +
           payloadBytes / dataBytes * OnEthernet(overhead + dataBytes) + (rest > 0 ? OnEthernet(overhead + rest) : 0);
}

} // namespace orvsim
