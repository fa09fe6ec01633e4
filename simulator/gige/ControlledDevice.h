#pragma once

#include "simulator/core/Camera.h"
#include "simulator/gige/BootstrapState.h"
#include "simulator/gige/StreamSender.h"

#include <cstdint>

namespace orvsim {

/// What the control channel controls: registers, clock and acquisition of the camera, its stream and its address.
/// Called from the control thread only.
class ControlledDevice {
public:
    virtual ~ControlledDevice() = default;

    virtual WriteResult Write(std::uint32_t address, std::uint32_t size, const std::uint8_t *bytes) = 0;
    virtual Outcome Read(std::uint32_t address, std::uint32_t size, std::uint8_t *bytes) = 0;
    virtual std::uint64_t Now() = 0;
    virtual void ResetClock() = 0;
    virtual Faults CurrentFaults() = 0;
    virtual void StopAcquisition() = 0;
    /// The camera, not its transport, is as after switching on.
    virtual void Reset() = 0;
    /// What an action command is for: one software trigger. \return false when the camera waits for none.
    virtual bool RunAction() = 0;

    virtual void SetStreamTarget(const StreamTarget &target) = 0;
    virtual void FireTestPacket() = 0;
    virtual void Resend(const ResendRequest &request, const Endpoint &requester) = 0;
    virtual std::size_t PayloadSize() = 0;

    /// \return false when the address cannot be taken; the device then stays where it is.
    virtual bool MoveTo(const NetworkAddress &network) = 0;
};

} // namespace orvsim
