#include "producer/gige/Gvsp.h"

#include <limits>

namespace nuvark::gige {

namespace {

constexpr std::uint8_t kExtendedFlag = 0x80;

bool HasImageLeader(std::uint16_t type)
{
    const std::uint16_t base = type & 0xBFFF;
    return base == payload::kImage || base == payload::kExtendedChunk;
}

std::uint64_t SaturatingMultiply(std::uint64_t a, std::uint64_t b)
{
    std::uint64_t product = 0;
    return __builtin_mul_overflow(a, b, &product) ? std::numeric_limits<std::uint64_t>::max() : product;
}

std::uint64_t SaturatingAdd(std::uint64_t a, std::uint64_t b)
{
    std::uint64_t sum = 0;
    return __builtin_add_overflow(a, b, &sum) ? std::numeric_limits<std::uint64_t>::max() : sum;
}

} // namespace

std::optional<StreamPacket> ParseStreamPacket(orv::ByteSpan datagram)
{
    if (datagram.size < kStandardHeaderSize)
        return std::nullopt;
    orv::ByteReader in(datagram);
    StreamPacket packet;
    packet.status = in.U16();
    packet.extendedIds = (datagram.data[4] & kExtendedFlag) != 0;
    packet.format = datagram.data[4] & ~kExtendedFlag;
    if (packet.extendedIds) {
        in.Skip(6); // flags, format, reserved
        packet.blockId = in.U64();
        packet.packetId = in.U32();
    } else {
        packet.blockId = in.U16();
        packet.packetId = in.U32() & 0x00FFFFFF;
    }
    if (!in.Ok())
        return std::nullopt;
    packet.content = in.Rest();
    return packet;
}

std::optional<Leader> ParseLeader(orv::ByteSpan content)
{
    orv::ByteReader in(content);
    Leader leader;
    in.Skip(2);
    leader.payloadType = in.U16();
    leader.timestamp = in.U64();
    if (!in.Ok())
        return std::nullopt;
    const std::uint16_t base = leader.payloadType & 0xBFFF;
    if (HasImageLeader(leader.payloadType)) {
        leader.hasImage = true;
        leader.pixelFormat = in.U32();
        leader.width = in.U32();
        leader.height = in.U32();
        leader.offsetX = in.U32();
        leader.offsetY = in.U32();
        leader.paddingX = in.U16();
        leader.paddingY = in.U16();
    } else if (base == payload::kRaw || base == payload::kFile || base == payload::kJpeg ||
               base == payload::kJpeg2000) {
        leader.size = in.U64();
        if (base == payload::kFile) {
            const std::size_t room = in.Rest().size;
            leader.fileName = in.Text(room);
        }
    }
    if (!in.Ok())
        return std::nullopt;
    return leader;
}

std::uint64_t Leader::ImageBytes(std::uint32_t lines, Packing packing) const
{
    const std::uint64_t bitsPerPixel = pixelFormat >> 16 & 0xFF;
    const std::uint64_t lineBits = SaturatingMultiply(width, bitsPerPixel);
    const std::uint64_t padding = SaturatingAdd(SaturatingMultiply(paddingX, lines), paddingY);
    // Lines with padding of their own do begin on a byte.
    const std::uint64_t pixels = packing == Packing::Continuous && paddingX == 0
                                     ? SaturatingAdd(SaturatingMultiply(lineBits, lines), 7) / 8
                                     : SaturatingMultiply(SaturatingAdd(lineBits, 7) / 8, lines);
    return SaturatingAdd(pixels, padding);
}

bool Leader::CarriesChunks() const
{
    const std::uint16_t base = payloadType & 0xBFFF;
    return (payloadType & payload::kChunksFollow) != 0 || base == payload::kChunk || base == payload::kExtendedChunk;
}

std::optional<Trailer> ParseTrailer(orv::ByteSpan content)
{
    orv::ByteReader in(content);
    Trailer trailer;
    in.Skip(2);
    trailer.payloadType = in.U16();
    if (!in.Ok())
        return std::nullopt;
    // Each field counts only when it is there: some cameras cut their trailers short.
    const auto next = [&in] {
        const std::uint32_t value = in.U32();
        return in.Ok() ? std::optional<std::uint32_t>(value) : std::nullopt;
    };
    switch (trailer.payloadType) {
    case payload::kImage:
        trailer.height = next();
        break;
    case payload::kImage | payload::kChunksFollow:
        trailer.height = next();
        trailer.chunkSize = next().value_or(0);
        trailer.chunkLayoutId = next().value_or(0);
        break;
    case payload::kExtendedChunk: // the order differs from its successor's
        trailer.chunkSize = next().value_or(0);
        trailer.height = next();
        trailer.chunkLayoutId = next().value_or(0);
        break;
    case payload::kChunk:
        trailer.chunkSize = next().value_or(0);
        break;
    default:
        if ((trailer.payloadType & payload::kChunksFollow) != 0) {
            trailer.chunkSize = next().value_or(0);
            trailer.chunkLayoutId = next().value_or(0);
        }
        break;
    }
    return trailer;
}

PAYLOADTYPE_INFO_ID GenTLPayloadType(std::uint16_t payloadType)
{
    if ((payloadType & payload::kDeviceSpecific) != 0)
        return PAYLOAD_TYPE_DEVICE_SPECIFIC;
    switch (payloadType & ~payload::kChunksFollow) {
    case payload::kImage:
    case payload::kExtendedChunk:
        return PAYLOAD_TYPE_IMAGE;
    case payload::kRaw:
        return PAYLOAD_TYPE_RAW_DATA;
    case payload::kFile:
        return PAYLOAD_TYPE_FILE;
    case payload::kChunk:
        return PAYLOAD_TYPE_CHUNK_ONLY;
    case payload::kJpeg:
        return PAYLOAD_TYPE_JPEG;
    case payload::kJpeg2000:
        return PAYLOAD_TYPE_JPEG2000;
    default:
        return PAYLOAD_TYPE_UNKNOWN;
    }
}

} // namespace nuvark::gige
