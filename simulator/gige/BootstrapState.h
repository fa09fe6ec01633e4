#pragma once

#include "simulator/gige/Endpoint.h"
#include "simulator/gige/StreamSender.h"

#include <cstdint>
#include <optional>

namespace orvsim {

/// Addresses of the bootstrap registers that more than one place speaks of.
constexpr std::uint32_t kRegUserName = 0x00E8;
constexpr std::uint32_t kRegControlPrivilege = 0x0A00;
constexpr std::uint32_t kRegStreamPacketSize = 0x0D04;

constexpr std::uint32_t kControlExclusive = 0x00000001; ///< of CCP
constexpr std::uint32_t kControlShared = 0x00000002;    ///< others may read

constexpr std::uint32_t kConfigHeartbeatOff = 0x00000001; ///< of the GVCP configuration
constexpr std::uint32_t kConfigPending = 0x00000002;
constexpr std::uint32_t kConfigStatusCodes1 = 0x00000004; ///< extended status codes of version 1.1
constexpr std::uint32_t kConfigUnconditionalAction = 0x00000008;
constexpr std::uint32_t kConfigStatusCodes2 = 0x00040000; ///< extended status codes of version 2.0

constexpr std::uint32_t kStreamMultiPart = 0x40; ///< of the stream's capability and configuration

/// Bounds of SCPS: the size of the whole IP packet, bytes.
constexpr std::uint32_t kMinPacketSize = 220;
constexpr std::uint32_t kMaxPacketSize = 16384;
constexpr std::uint32_t kPacketSizeStep = 4;

// Other bounds; what is written beyond them is brought within.
constexpr std::uint32_t kMinHeartbeatMs = 500;
constexpr std::uint32_t kMaxDiscoveryDelayMs = 5000;
constexpr std::uint32_t kMaxMessageTimeoutMs = 60000;
constexpr std::uint32_t kMaxMessageRetries = 100;

/// What a register write asked for beyond being remembered. Bits.
enum Change : std::uint32_t {
    kStreamChanged = 0x01,
    kMessagesChanged = 0x02,
    kControlTaken = 0x04,
    kControlLost = 0x08, ///< given back or taken away
    kFireTestPacket = 0x10,
    kLatchTimestamp = 0x20,
    kResetTimestamp = 0x40,
};

struct NetworkAddress {
    std::uint32_t address = 0; ///< host byte order, as the following
    std::uint32_t subnetMask = 0;
    std::uint32_t gateway = 0;
};

/// Where events go. Port 0: the channel is closed.
struct MessageTarget {
    Endpoint to;
    std::uint32_t timeoutMs = 0; ///< 0: no acknowledge is wanted
    std::uint32_t retries = 0;   ///< 0: no acknowledge is wanted
    bool extendedIds = false;
};

/// The words behind the bootstrap registers that can change, each as its register shows it.
struct BootstrapState {
    std::uint32_t address = 0;
    std::uint32_t subnetMask = 0;
    std::uint32_t gateway = 0;
    std::uint32_t networkConfiguration = 0x6;
    std::uint32_t persistentAddress = 0;
    std::uint32_t persistentMask = 0;
    std::uint32_t persistentGateway = 0;

    std::uint32_t heartbeatMs = 3000;
    std::uint32_t latchedHigh = 0;
    std::uint32_t latchedLow = 0;
    std::uint32_t discoveryDelayMs = 0;
    std::uint32_t gvcpConfiguration = kConfigStatusCodes1; ///< most hosts know them and few switch them on
    std::uint32_t gvspConfiguration = 0;

    std::uint32_t privilege = 0; ///< CCP; not 0: somebody is in control
    std::uint32_t controllerAddress = 0;
    std::uint32_t controllerPort = 0;

    std::uint32_t messagePort = 0;
    std::uint32_t messageAddress = 0;
    std::uint32_t messageTimeoutMs = 200;
    std::uint32_t messageRetries = 3;
    std::uint32_t messageSourcePort = 0;

    std::uint32_t streamPort = 0;
    std::uint32_t streamPacketSize = 0x40000000; ///< with the flags of SCPS
    std::uint32_t streamDelay = 0;               ///< ticks, which are nanoseconds
    std::uint32_t streamAddress = 0;
    std::uint32_t streamSourcePort = 0;
    std::uint32_t streamOptions = 0; ///< that can be switched on in the configuration
    std::uint32_t streamConfiguration = 0;

    std::uint32_t actionDeviceKey = 0;
    std::uint32_t actionGroupKey = 0;
    std::uint32_t actionGroupMask = 0;

    bool isLegacy = false;          ///< version 1.2
    std::uint32_t changes = 0;      ///< Change bits that nobody has acted on yet
    std::optional<Endpoint> caller; ///< whose write is being done; none: the camera's own

    bool IsControlled() const { return privilege != 0; }
    Endpoint Controller() const { return {controllerAddress, static_cast<std::uint16_t>(controllerPort)}; }
    bool IsController(const Endpoint &from) const { return IsControlled() && from == Controller(); }
    /// Takes control away: the channels close, and their addresses go, so that the next controller cannot send to the
    /// last one.
    void ReleaseControl();
    bool IsMultiPart() const; ///< frames have a second part
    StreamTarget Stream() const;
    MessageTarget Messages() const;
};

bool IsMulticast(std::uint32_t address);

} // namespace orvsim
