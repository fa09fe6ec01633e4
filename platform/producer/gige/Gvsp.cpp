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

void ReadImageFields(orv::ByteReader &in, Leader &leader)
{
    leader.hasImage = true;
    leader.width = in.U32();
    leader.height = in.U32();
    leader.offsetX = in.U32();
    leader.offsetY = in.U32();
    leader.paddingX = in.U16();
    leader.paddingY = in.U16();
}

void ReadParts(orv::ByteReader &in, std::uint8_t count, Leader &leader)
{
    for (std::uint8_t i = 0; i < count; ++i) {
        PartDescription part;
        part.dataType = in.U16();
        part.length = in.U48();
        part.pixelFormat = in.U32();
        in.Skip(2);
        part.sourceId = in.U8();
        in.Skip(5); // zones
        part.purposeId = in.U16();
        part.regionId = in.U16();
        Leader fields;
        ReadImageFields(in, fields);
        in.Skip(4);
        part.width = fields.width;
        part.height = fields.height;
        part.offsetX = fields.offsetX;
        part.offsetY = fields.offsetY;
        part.paddingX = fields.paddingX;
        if (part.IsImage() && !leader.hasImage) {
            fields.payloadType = leader.payloadType;
            fields.timestamp = leader.timestamp;
            fields.pixelFormat = part.pixelFormat;
            fields.parts = std::move(leader.parts);
            fields.imagePart = i;
            leader = std::move(fields);
        }
        leader.parts.push_back(part);
    }
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
        packet.flags = in.U16();
        in.Skip(3); // format, reserved
        packet.partCount = in.U8();
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

std::optional<Leader> ParseLeader(orv::ByteSpan content, std::uint8_t partCount)
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
        leader.pixelFormat = in.U32();
        ReadImageFields(in, leader);
    } else if (base == payload::kMultiPart) {
        ReadParts(in, partCount, leader);
        if (partCount == 0)
            return std::nullopt;
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

std::optional<PartHeader> ParsePartHeader(orv::ByteSpan content)
{
    orv::ByteReader in(content);
    PartHeader header;
    header.part = in.U8();
    in.Skip(1); // zones
    header.offset = in.U48();
    if (!in.Ok())
        return std::nullopt;
    header.data = in.Rest();
    return header;
}

std::optional<AllInContent> SplitAllIn(orv::ByteSpan content)
{
    orv::ByteReader in(content);
    in.Skip(2);
    const std::uint16_t type = in.U16();
    const std::uint16_t base = type & 0xBFFF;
    std::size_t leader = 0;
    std::size_t trailer = 0;
    if (HasImageLeader(type)) {
        leader = 36;
        trailer = base == payload::kExtendedChunk || (type & payload::kChunksFollow) != 0 ? 16 : 8;
    } else if (base == payload::kChunk) {
        leader = 12;
        trailer = 8;
    } else if (base == payload::kRaw) {
        leader = 20;
        trailer = (type & payload::kChunksFollow) != 0 ? 12 : 4;
    } else if (base == payload::kJpeg || base == payload::kJpeg2000) {
        leader = 32;
        trailer = (type & payload::kChunksFollow) != 0 ? 12 : 4;
    }
    if (!in.Ok() || leader == 0 || content.size < leader + trailer)
        return std::nullopt;
    const std::uint8_t *data = content.data + leader + trailer;
    return AllInContent{
        {content.data, leader}, {content.data + leader, trailer}, {data, content.size - leader - trailer}};
}

PAYLOADTYPE_INFO_ID GenTLPayloadType(std::uint16_t payloadType)
{
    if ((payloadType & payload::kDeviceSpecific) != 0)
        return PAYLOAD_TYPE_DEVICE_SPECIFIC;
    switch (payloadType & ~payload::kChunksFollow) {
    case payload::kImage:
    case payload::kExtendedChunk:
        return PAYLOAD_TYPE_IMAGE;
    case payload::kMultiPart:
        return PAYLOAD_TYPE_MULTI_PART;
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

PARTDATATYPE_ID GenTLPartType(std::uint16_t dataType)
{
    constexpr std::uint16_t kConfidenceMap = 0x0009;
    constexpr std::uint16_t kJpeg = 0x000B;
    constexpr std::uint16_t kJpeg2000 = 0x000C;
    constexpr std::uint16_t kDeviceSpecific = 0x8000;
    if (dataType <= kConfidenceMap)
        return dataType;
    if (dataType == kJpeg)
        return PART_DATATYPE_JPEG;
    if (dataType == kJpeg2000)
        return PART_DATATYPE_JPEG2000;
    return (dataType & kDeviceSpecific) != 0 ? PART_DATATYPE_CUSTOM_ID : PART_DATATYPE_UNKNOWN;
}

} // namespace nuvark::gige
