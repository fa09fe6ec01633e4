#pragma once

#include "base/Bytes.h"
#include "simulator/gige/StreamTypes.h"
#include "simulator/imaging/FrameStore.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

/// The camera's side of the GigE Vision stream protocol: which packets a frame makes and how they look on the wire.
/// All fields are big-endian; pixels go as they are. Pure functions.
namespace orvsim {

namespace gvsp {
enum class Format : std::uint8_t { Leader = 1, Trailer = 2, Payload = 3, AllIn = 4, PartPayload = 7 };

constexpr std::uint16_t kPayloadImage = 0x0001;
constexpr std::uint16_t kPayloadExtendedChunks = 0x0005; ///< image and chunks before version 2.0
constexpr std::uint16_t kPayloadMultiPart = 0x000a;      ///< since version 2.1
constexpr std::uint16_t kPayloadChunksFollow = 0x4000;   ///< since version 2.0

constexpr std::uint16_t kStatusResent = 0x0100;      ///< of a standard packet; an extended one has kFlagResent
constexpr std::uint16_t kStatusUnavailable = 0x800c; ///< gone, or never was
constexpr std::uint16_t kStatusNotYet = 0x8010;
constexpr std::uint16_t kFlagResent = 0x0001;

constexpr std::size_t kIpAndUdpBytes = 28;
constexpr std::size_t kStandardHeaderBytes = 8;
constexpr std::size_t kExtendedHeaderBytes = 20;
constexpr std::size_t kLeaderBytes = 36;
constexpr std::size_t kTrailerBytes = 8;
constexpr std::size_t kChunkTrailerBytes = 16;
constexpr std::size_t kPartLeaderBytes = 12; ///< before the part table
constexpr std::size_t kPartEntryBytes = 48;  ///< of that table
constexpr std::size_t kPartTrailerBytes = 4;
constexpr std::size_t kPartTrailerEntryBytes = 16;
constexpr std::size_t kPartHeaderBytes = 8; ///< before the data of a part's packet
constexpr std::size_t kParts = 2;           ///< of a multi-part frame

constexpr std::uint32_t kSmallestPacketSize = 96; ///< room for every leader but a multi-part one
constexpr std::uint32_t kSmallestPartPacketSize = 156;
constexpr std::uint32_t kLargestPacketSize = 65535;

constexpr std::size_t HeaderBytes(bool extendedIds)
{
    return extendedIds ? kExtendedHeaderBytes : kStandardHeaderBytes;
}
/// The packet size that is used when this one is asked for.
constexpr std::uint32_t Usable(std::uint32_t packetSize)
{
    return std::clamp(packetSize, kSmallestPacketSize, kLargestPacketSize);
}
/// Bytes behind the header of a packet of that size.
constexpr std::uint32_t PacketRoom(std::uint32_t packetSize, bool extendedIds)
{
    return Usable(packetSize) - static_cast<std::uint32_t>(kIpAndUdpBytes + HeaderBytes(extendedIds));
}
} // namespace gvsp

/// A datagram in two pieces: what was written for it, and pixels that belong to a frame.
struct Packet {
    std::array<std::uint8_t, gvsp::kExtendedHeaderBytes + gvsp::kPartLeaderBytes + gvsp::kParts * gvsp::kPartEntryBytes>
        head;
    std::size_t headBytes = 0;
    orv::ByteSpan body;

    std::size_t Size() const { return headBytes + body.size; }
};

/// A frame and how it is cut into packets. Packet ids run from 0 (leader) to packetCount - 1 (trailer); a frame that
/// goes all-in is the one packet 0. A frame with a second picture goes as two parts, each of which begins with a packet
/// of its own, and always with extended ids.
struct Block {
    std::shared_ptr<const Frame> frame;
    std::uint64_t id = 0; ///< as on the wire
    bool extendedIds = false;
    bool extendedStatus = true; ///< see StreamTarget
    bool oldChunkType = false;  ///< the same
    bool isAllIn = false;
    std::uint32_t packetSize = 0; ///< of a full IP packet
    std::uint32_t dataBytes = 0;  ///< of a full payload packet
    std::uint32_t packetCount = 0;
    bool countsFromPart = false;        ///< offsets in packets of parts; else from the beginning of the block
    std::uint32_t firstPartPackets = 0; ///< payload packets of the image; 0: the frame is not multi-part

    bool IsMultiPart() const { return firstPartPackets > 0; }
};
Block MakeBlock(std::shared_ptr<const Frame> frame, const StreamTarget &target, std::uint64_t id);

enum class Sending { First, Again };
/// \param packetId  below packetCount
Packet MakePacket(const Block &block, std::uint32_t packetId, Sending sending);
/// Stands for a packet that is asked for and cannot be sent: a header alone.
Packet MakeRefusal(std::uint16_t status, std::uint64_t blockId, std::uint32_t packetId, bool extendedIds);
/// A datagram as long as a full packet that belongs to no block: its id is 0.
std::vector<std::uint8_t> MakeTestPacket(const StreamTarget &target);

/// The id of an acquisition's count-th block, counted from 1: 16 bits without 0, or the count itself.
std::uint64_t BlockIdOnWire(std::uint64_t count, bool extendedIds);

/// Bytes that the payload takes on an Ethernet wire, from preamble to gap, in all packets of its block.
std::uint64_t EthernetBytes(std::size_t payloadBytes, std::uint32_t packetSize, bool extendedIds);
/// The same of a multi-part block. Both parts are taken to be of one length, which they are with 8 bits per pixel; with
/// other formats the result can be a packet's overhead too low.
std::uint64_t MultiPartEthernetBytes(std::size_t payloadBytes, std::uint32_t packetSize);

} // namespace orvsim
