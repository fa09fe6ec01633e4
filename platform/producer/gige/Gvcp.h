#pragma once

#include "base/Bytes.h"
#include "producer/Status.h"

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

/// Wire form of the GigE Vision control protocol: pure functions over byte spans, no sockets.
namespace nuvark::gige {

constexpr std::uint16_t kControlPort = 3956;
constexpr std::size_t kHeaderSize = 8;
/// Bytes of data that one READMEM or WRITEMEM carries. 512 rather than the possible 536: every device takes it.
constexpr std::size_t kMemoryChunk = 512;
/// Registers that one READREG and one WRITEREG can name, so that the packet gets through everywhere.
constexpr std::size_t kMaxReads = 135;
constexpr std::size_t kMaxWrites = 67;

enum class Command : std::uint16_t {
    Discovery = 0x0002,
    ForceAddress = 0x0004,
    ReadRegister = 0x0080,
    WriteRegister = 0x0082,
    ReadMemory = 0x0084,
    WriteMemory = 0x0086
};
constexpr std::uint16_t kPendingAcknowledge = 0x0089;

/// The acknowledge that answers a command.
constexpr std::uint16_t AcknowledgeOf(Command command)
{
    return static_cast<std::uint16_t>(static_cast<std::uint16_t>(command) + 1);
}

constexpr std::uint16_t kStatusSuccess = 0x0000;
constexpr std::uint16_t kStatusAccessDenied = 0x8006;
constexpr std::uint16_t kStatusBusy = 0x8007;

using Datagram = std::vector<std::uint8_t>;

/// \param allowBroadcastAnswer lets a device in a foreign subnet answer by broadcast.
Datagram MakeDiscovery(std::uint16_t requestId, bool allowBroadcastAnswer);
/// Addresses in host byte order. Its acknowledge may be broadcast, since the camera may be in a foreign subnet.
Datagram MakeForceAddress(std::uint16_t requestId, const std::array<std::uint8_t, 6> &mac, std::uint32_t address,
                          std::uint32_t mask, std::uint32_t gateway);
/// At most kMaxReads addresses; more than one only for devices with the concatenation capability.
Datagram MakeReadRegister(std::uint16_t requestId, const std::vector<std::uint32_t> &addresses);
struct RegisterWrite {
    std::uint32_t address;
    std::uint32_t value;
};
/// At most kMaxWrites; likewise.
Datagram MakeWriteRegister(std::uint16_t requestId, const std::vector<RegisterWrite> &writes);
/// Address and count are multiples of 4.
Datagram MakeReadMemory(std::uint16_t requestId, std::uint32_t address, std::uint16_t count);
Datagram MakeWriteMemory(std::uint16_t requestId, std::uint32_t address, orv::ByteSpan data);

/// An acknowledge as it came; `payload` points into the datagram and has the length that the header states.
struct Acknowledge {
    std::uint16_t status = 0;
    std::uint16_t code = 0;
    std::uint16_t requestId = 0;
    orv::ByteSpan payload;
};
/// Nothing when the datagram is shorter than its header says. A longer one is cut: some drivers leave padding.
std::optional<Acknowledge> ParseAcknowledge(orv::ByteSpan datagram);

/// Payload of a READREG acknowledge; nothing unless it holds exactly `count` values or more.
std::optional<std::vector<std::uint32_t>> ParseReadRegister(orv::ByteSpan payload, std::size_t count);
/// Payload of a WRITEREG acknowledge: how many were written. Nothing where the device does not say.
std::optional<std::uint16_t> ParseWritten(orv::ByteSpan payload);
/// Payload of a READMEM acknowledge for `address`; nothing when it is another address or shorter than `count`.
std::optional<orv::ByteSpan> ParseReadMemory(orv::ByteSpan payload, std::uint32_t address, std::size_t count);
/// Payload of a PENDING acknowledge: milliseconds until the command is done.
std::optional<std::uint16_t> ParsePending(orv::ByteSpan payload);

/// What a device tells about itself in a DISCOVERY acknowledge. Addresses are in host byte order.
struct DiscoveryAnswer {
    std::uint16_t versionMajor = 0;
    std::uint16_t versionMinor = 0;
    std::uint32_t deviceMode = 0;
    std::array<std::uint8_t, 6> mac{};
    std::uint32_t address = 0;
    std::uint32_t subnetMask = 0;
    std::uint32_t gateway = 0;
    std::string manufacturer;
    std::string model;
    std::string deviceVersion;
    std::string manufacturerInfo;
    std::string serial;
    std::string userName;
};
std::optional<DiscoveryAnswer> ParseDiscovery(orv::ByteSpan payload);

/// The GenTL status for a control status; `context` says what was asked ("write 0xa00").
Status StatusFromWire(std::uint16_t wireStatus, bool isWrite, const std::string &context);

} // namespace nuvark::gige
