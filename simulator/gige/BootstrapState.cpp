#include "simulator/gige/BootstrapState.h"

namespace orvsim {
namespace {

constexpr std::uint32_t kDontFragment = 0x40000000;
constexpr std::uint32_t kExtendedIds = 0x40000000;
constexpr std::uint32_t kAllIn = 0x4;
constexpr std::uint32_t kResendDestination = 0x8;

} // namespace

void BootstrapState::ReleaseControl()
{
    privilege = 0;
    controllerAddress = 0;
    controllerPort = 0;
    streamPort = 0;
    streamAddress = 0;
    messagePort = 0;
    messageAddress = 0;
    changes |= kControlLost | kStreamChanged | kMessagesChanged;
}

StreamTarget BootstrapState::Stream() const
{
    StreamTarget target;
    if (streamAddress != 0)
        target.to = {streamAddress, static_cast<std::uint16_t>(streamPort)};
    target.packetSize = streamPacketSize & 0xffff;
    target.dontFragment = (streamPacketSize & kDontFragment) != 0;
    target.packetDelayNs = streamDelay;
    target.isMultiPart = IsMultiPart();
    // Only the extended header has room for the number of parts.
    target.extendedIds = (gvspConfiguration & kExtendedIds) != 0 || target.isMultiPart;
    target.allIn = (streamConfiguration & kAllIn) != 0;
    target.extendedStatus = (gvcpConfiguration & kConfigStatusCodes1) != 0;
    target.oldChunkType = isLegacy;
    target.resendToRequester = (streamConfiguration & kResendDestination) != 0;
    return target;
}

bool BootstrapState::IsMultiPart() const
{
    return (streamConfiguration & kStreamMultiPart) != 0;
}

MessageTarget BootstrapState::Messages() const
{
    MessageTarget target;
    if (messageAddress != 0)
        target.to = {messageAddress, static_cast<std::uint16_t>(messagePort)};
    target.timeoutMs = messageTimeoutMs;
    target.retries = messageRetries;
    target.extendedIds = (gvspConfiguration & kExtendedIds) != 0;
    return target;
}

bool IsMulticast(std::uint32_t address)
{
    return address >> 28 == 0xe;
}

} // namespace orvsim
