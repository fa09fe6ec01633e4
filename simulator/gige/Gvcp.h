#pragma once

#include "base/Bytes.h"
#include "simulator/features/Outcome.h"
#include "simulator/gige/Endpoint.h"
#include "simulator/gige/StreamSender.h"

#include <cstdint>
#include <optional>

/// GVCP on the wire, as a device sees it: commands are taken apart, acknowledges and events put together. All numbers
/// big-endian. Functions without state; any thread.
namespace orvsim {

constexpr std::uint16_t kGvcpPort = 3956;
constexpr std::size_t kGvcpHeaderSize = 8;
constexpr std::size_t kMaxGvcpData = 536; ///< bytes of memory in one packet, so that it fits 576 bytes of IP
constexpr std::size_t kMaxReadRegisters = 135;
constexpr std::size_t kMaxWriteRegisters = 67;
constexpr std::size_t kDiscoveryDataSize = 248; ///< registers 0x0000 to 0x00F7

constexpr std::uint8_t kFlagAcknowledge = 0x01;
constexpr std::uint8_t kFlagBroadcastAnswer = 0x10; ///< of DISCOVERY and FORCEIP
constexpr std::uint8_t kFlagExtendedIds = 0x10;     ///< of PACKETRESEND, EVENT and EVENTDATA
constexpr std::uint8_t kFlagScheduled = 0x80;       ///< of ACTION: a time follows

/// An acknowledge has the number of its command plus one.
enum class GvcpCommand : std::uint16_t {
    Discovery = 0x0002,
    ForceIp = 0x0004,
    PacketResend = 0x0040,
    ReadRegister = 0x0080,
    WriteRegister = 0x0082,
    ReadMemory = 0x0084,
    WriteMemory = 0x0086,
    Pending = 0x0088, ///< exists as an acknowledge only
    Event = 0x00C0,
    EventData = 0x00C2,
    Action = 0x0100,
};

enum class GvcpStatus : std::uint16_t {
    Success = 0x0000,
    NotImplemented = 0x8001,
    InvalidParameter = 0x8002,
    InvalidAddress = 0x8003,
    WriteProtect = 0x8004,
    BadAlignment = 0x8005,
    AccessDenied = 0x8006,
    Busy = 0x8007,
    InvalidHeader = 0x800E,
    NoReferenceTime = 0x8013, ///< only with the extended status codes of version 2.0
    Error = 0x8FFF,
};
GvcpStatus StatusOf(Outcome outcome);

enum class Framing {
    Good,
    NotForUs, ///< no GVCP command at all: never answered
    BadLength ///< the header says more bytes than came
};
struct ParsedCommand {
    Framing framing = Framing::NotForUs;
    std::uint8_t flags = 0;
    std::uint16_t code = 0;
    std::uint16_t requestId = 0;
    orv::ByteSpan payload; ///< as long as the header says: what a driver padded is cut off

    bool Has(std::uint8_t flag) const { return (flags & flag) != 0; }
    bool Is(GvcpCommand command) const { return code == static_cast<std::uint16_t>(command); }
};
ParsedCommand ParseCommand(orv::ByteSpan datagram);

struct ForceIpCommand {
    std::uint64_t mac = 0;
    std::uint32_t address = 0; ///< 0: configure the network anew
    std::uint32_t subnetMask = 0;
    std::uint32_t gateway = 0;
};
std::optional<ForceIpCommand> ParseForceIp(orv::ByteSpan payload);

struct ActionCommand {
    std::uint32_t deviceKey = 0;
    std::uint32_t groupKey = 0;
    std::uint32_t groupMask = 0;
};
/// \param scheduled  an execution time of 8 bytes must follow; it is not looked at
std::optional<ActionCommand> ParseAction(orv::ByteSpan payload, bool scheduled);

struct ResendCommand {
    std::uint16_t channel = 0;
    ResendRequest request; ///< "to the end of the block" in the form of 32 bits
};
std::optional<ResendCommand> ParseResend(orv::ByteSpan payload, bool extendedIds);

Datagram MakeAcknowledge(GvcpStatus status, std::uint16_t commandCode, std::uint16_t requestId,
                         orv::ByteSpan payload = {});
/// Payload of WRITEREG_ACK and WRITEMEM_ACK (index of 16 bits) and of PENDING_ACK (milliseconds).
std::vector<std::uint8_t> IndexPayload(std::uint16_t index);

/// A message of the device: EVENT_CMD without data, EVENTDATA_CMD with.
struct EventMessage {
    std::uint16_t eventId = 0;
    std::uint16_t channel = 0;
    std::uint64_t blockId = 0; ///< its low 16 bits in the standard form
    std::uint64_t timestamp = 0;
    orv::ByteSpan data;
};
Datagram MakeEvent(const EventMessage &event, std::uint16_t requestId, bool extendedIds, bool wantsAcknowledge);

/// The command code and id that an acknowledge of the host names; nothing when it is none or says failure.
struct ParsedAcknowledge {
    std::uint16_t commandCode = 0;
    std::uint16_t requestId = 0;
};
std::optional<ParsedAcknowledge> ParseAcknowledge(orv::ByteSpan datagram);

} // namespace orvsim
