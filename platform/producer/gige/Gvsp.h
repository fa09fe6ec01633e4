#pragma once

#include "base/Bytes.h"
#include "producer/Transport.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

/// Wire form of the GigE Vision stream protocol: pure functions over byte spans, no sockets.
namespace nuvark::gige {

constexpr std::size_t kStandardHeaderSize = 8;
constexpr std::size_t kExtendedHeaderSize = 20;

enum class PacketFormat : std::uint8_t { Leader = 1, Trailer = 2, Payload = 3, AllIn = 4, MultiPart = 7 };

/// One stream packet. `content` is what follows the header and points into the datagram.
struct StreamPacket {
    std::uint16_t status = 0;
    std::uint16_t flags = 0; ///< of an extended header
    bool extendedIds = false;
    std::uint8_t format = 0; ///< a PacketFormat, or one that we do not know
    std::uint64_t blockId = 0;
    std::uint32_t packetId = 0;
    std::uint8_t partCount = 0; ///< of a multi-part leader; only extended headers have room for it
    orv::ByteSpan content;

    /// An error status means that the packet stands for one that the camera cannot send; it carries no data.
    bool IsError() const { return (status & 0x8000) != 0; }
    /// Not every camera marks them.
    bool IsResent() const { return status == 0x0100 || (flags & 0x0001) != 0; }
};
/// Nothing for a datagram shorter than its header.
std::optional<StreamPacket> ParseStreamPacket(orv::ByteSpan datagram);

/// What comes in a block.
namespace payload {
constexpr std::uint16_t kImage = 0x0001;
constexpr std::uint16_t kRaw = 0x0002;
constexpr std::uint16_t kFile = 0x0003;
constexpr std::uint16_t kChunk = 0x0004;
constexpr std::uint16_t kExtendedChunk = 0x0005; ///< image leader, chunks attached; replaced by the flag below in 2.0
constexpr std::uint16_t kJpeg = 0x0006;
constexpr std::uint16_t kJpeg2000 = 0x0007;
constexpr std::uint16_t kMultiPart = 0x000A;
constexpr std::uint16_t kDeviceSpecific = 0x8000;
constexpr std::uint16_t kChunksFollow = 0x4000;
} // namespace payload

/// Status of a packet that stands for one the camera was asked to send again.
constexpr std::uint16_t kStatusUnavailable = 0x800C;
constexpr std::uint16_t kStatusOverrun = 0x800D; ///< the camera could not send all of the block
constexpr std::uint16_t kStatusNotYetAvailable = 0x8010;
constexpr std::uint16_t kStatusAllRemoved = 0x8011;
constexpr std::uint16_t kStatusRemoved = 0x8012;
constexpr std::uint16_t kStatusTemporarilyUnavailable = 0x8014;
constexpr std::uint16_t kStatusCutShort = 0x8017; ///< a leader or trailer that is too long for a packet

constexpr std::uint16_t kFlagFormerDropped = 0x0002; ///< the camera has not sent the block before

/// One part of a multi-part block, as its leader describes it.
struct PartDescription {
    std::uint16_t dataType = 0;
    std::uint64_t length = 0; ///< bytes
    std::uint32_t pixelFormat = 0;
    std::uint8_t sourceId = 0;
    std::uint16_t purposeId = 0;
    std::uint16_t regionId = 0;
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    std::uint32_t offsetX = 0;
    std::uint32_t offsetY = 0;
    std::uint16_t paddingX = 0; ///< bytes after each line

    bool operator==(const PartDescription &o) const { return dataType == o.dataType && length == o.length; }

    bool IsImage() const { return dataType >= 1 && dataType <= 8; } ///< 2D or 3D, or a plane of one
};

/// The first packet of a block.
struct Leader {
    std::uint16_t payloadType = 0;
    std::uint64_t timestamp = 0;
    bool hasImage = false; ///< the fields down to paddingY hold something
    std::uint32_t pixelFormat = 0;
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    std::uint32_t offsetX = 0;
    std::uint32_t offsetY = 0;
    std::uint16_t paddingX = 0; ///< bytes after each line
    std::uint16_t paddingY = 0; ///< bytes after the image
    std::uint64_t size = 0;     ///< announced bytes, 0 where the type does not tell
    std::string fileName;
    std::vector<PartDescription> parts; ///< of a multi-part block; the image fields are those of the first image
    std::size_t imagePart = 0;          ///< its index, where hasImage

    bool IsMultiPart() const { return (payloadType & 0xBFFF) == payload::kMultiPart; }
    /// Bytes of an image of so many lines. Formats that pack several pixels into a byte may begin each line on a byte
    /// or run on over the line's end; cameras differ in that. Saturates instead of wrapping.
    enum class Packing { PerLine, Continuous };
    std::uint64_t ImageBytes(std::uint32_t lines, Packing packing) const;
    bool CarriesChunks() const;
};
/// \param partCount from the packet's header. A multi-part leader without any part is none.
std::optional<Leader> ParseLeader(orv::ByteSpan content, std::uint8_t partCount = 0);

/// What precedes the data of a multi-part payload packet.
constexpr std::size_t kPartHeaderSize = 8;
struct PartHeader {
    std::uint8_t part = 0;
    std::uint64_t offset = 0; ///< bytes, from the beginning of the part or of the block: cameras differ
    orv::ByteSpan data;
};
std::optional<PartHeader> ParsePartHeader(orv::ByteSpan content);

/// A block in one packet: leader, trailer and data one after another, each as long as its payload type asks for.
struct AllInContent {
    orv::ByteSpan leader;
    orv::ByteSpan trailer;
    orv::ByteSpan data;
};
/// Nothing for a payload type whose leader has no fixed length.
std::optional<AllInContent> SplitAllIn(orv::ByteSpan content);

/// The last packet of a block. Shorter and longer ones than the type asks for are taken; fields are unset then.
struct Trailer {
    std::uint16_t payloadType = 0;
    std::optional<std::uint32_t> height; ///< lines that were really sent
    std::uint32_t chunkSize = 0;         ///< bytes of payload that are laid out as chunks
    std::uint32_t chunkLayoutId = 0;
};
std::optional<Trailer> ParseTrailer(orv::ByteSpan content);

/// The GenTL numbers of a wire payload type and of a part's data type: tables, since the two number differently.
PAYLOADTYPE_INFO_ID GenTLPayloadType(std::uint16_t payloadType);
PARTDATATYPE_ID GenTLPartType(std::uint16_t dataType);
constexpr std::uint16_t kPartOfChunks = 0x000A; ///< a part that holds chunks; GenTL has no number for it

} // namespace nuvark::gige
