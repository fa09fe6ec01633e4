#pragma once

#include <cstdint>

/// Bootstrap registers and the bits in them that this stack uses. Masks apply to the value in host byte order.
namespace nuvark::gige {

constexpr std::uint32_t kRegFirstUrl = 0x0200;
constexpr std::uint32_t kRegSecondUrl = 0x0400;
constexpr std::uint32_t kUrlSize = 512;
constexpr std::uint32_t kRegDeviceMode = 0x0004;
constexpr std::uint32_t kRegMessageChannels = 0x0900;
constexpr std::uint32_t kRegStreamChannels = 0x0904;
constexpr std::uint32_t kRegStreamCapability = 0x092C;
constexpr std::uint32_t kRegMessageCapability = 0x0930;
constexpr std::uint32_t kRegCapability = 0x0934;
constexpr std::uint32_t kRegHeartbeatTimeout = 0x0938;
constexpr std::uint32_t kRegTickFrequencyHigh = 0x093C;
constexpr std::uint32_t kRegTickFrequencyLow = 0x0940;
constexpr std::uint32_t kRegConfiguration = 0x0954;
constexpr std::uint32_t kRegPendingTimeout = 0x0958;
constexpr std::uint32_t kRegControlPrivilege = 0x0A00;
constexpr std::uint32_t kRegControllerPort = 0x0A04;
constexpr std::uint32_t kRegControllerAddress = 0x0A14;
constexpr std::uint32_t kRegMessagePort = 0x0B00;
constexpr std::uint32_t kRegMessageAddress = 0x0B10;
constexpr std::uint32_t kRegMessageTimeout = 0x0B14; ///< ms until the camera repeats a message
constexpr std::uint32_t kRegMessageRepeats = 0x0B18;
constexpr std::uint32_t kRegMessageSource = 0x0B1C; ///< the camera's own port
/// From here on the maker decides what is behind an address; writing there may store files or move a lens.
constexpr std::uint32_t kFirstMakerRegister = 0xA000;

constexpr std::uint32_t kCapabilityController = 0x08000000;   ///< the two controller registers exist
constexpr std::uint32_t kCapabilityStatusCodes1 = 0x00400000; ///< those of 1.1: why a packet is not sent again
constexpr std::uint32_t kCapabilityStatusCodes2 = 0x00040000;
constexpr std::uint32_t kCapabilityResend = 0x00000004;
constexpr std::uint32_t kCapabilityPending = 0x00000020;
constexpr std::uint32_t kCapabilityWriteMemory = 0x00000002;
constexpr std::uint32_t kCapabilityConcatenation = 0x00000001; ///< several registers in one command
/// Of the streams' and of the message channel's: the register with the camera's own port exists.
constexpr std::uint32_t kCapabilitySourcePort = 0x80000000;
constexpr std::uint32_t kDeviceModeBigEndian = 0x80000000;
constexpr std::uint32_t kConfigurationStatusCodes1 = 0x00000004;
constexpr std::uint32_t kConfigurationStatusCodes2 = 0x00040000;
constexpr std::uint32_t kConfigurationPending = 0x00000002;

constexpr std::uint32_t kPrivilegeExclusive = 0x00000001;
constexpr std::uint32_t kPrivilegeControl = 0x00000002;
constexpr std::uint32_t kPrivilegeMask = 0x00000003;

constexpr std::uint32_t StreamRegister(std::uint32_t channel, std::uint32_t offset)
{
    return 0x0D00 + 0x40 * channel + offset;
}
constexpr std::uint32_t kStreamPort = 0x00;
constexpr std::uint32_t kStreamPacketSize = 0x04;
constexpr std::uint32_t kStreamPacketDelay = 0x08;
constexpr std::uint32_t kStreamAddress = 0x18;
constexpr std::uint32_t kStreamSource = 0x1C; ///< the camera's own port
constexpr std::uint32_t kPortMask = 0x0000FFFF;

constexpr std::uint32_t kPacketSizeFireTest = 0x80000000;
constexpr std::uint32_t kPacketSizeDoNotFragment = 0x40000000;
constexpr std::uint32_t kPacketSizeBigEndian = 0x20000000;
constexpr std::uint32_t kPacketSizeMask = 0x0000FFFF;

/// IP and UDP headers, which the packet size register counts in.
constexpr std::uint32_t kIpUdpHeaders = 28;

} // namespace nuvark::gige
