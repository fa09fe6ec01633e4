#pragma once

#include "producer/gige/NetworkInterfaces.h"
#include "producer/Status.h"

#include <array>
#include <chrono>
#include <cstdint>

namespace nuvark::gige {

/// An address for the camera with that MAC. In host byte order.
struct AddressAssignment {
    std::array<std::uint8_t, 6> mac{};
    std::uint32_t address = 0; ///< 0: the camera is to find one by itself, as after switching on
    std::uint32_t mask = 0;
    std::uint32_t gateway = 0;
};

struct ForceAddressTiming {
    int tries = 4;
    std::chrono::milliseconds each{500};
};

/// Gives a camera another address until it is switched off (FORCEIP), also one that no route leads to: command and
/// acknowledge are broadcasts. Blocks for the acknowledge; GC_ERR_TIMEOUT when none comes, as from a camera that
/// somebody controls. A camera that is to find an address by itself gives none. GC_ERR_IO at once when this host
/// does not let the command out, GC_ERR_RESOURCE_EXHAUSTED when it has had no memory for it throughout.
Status ForceAddress(const NetworkInterface &interface, const AddressAssignment &assignment,
                    const ForceAddressTiming &timing = {});

} // namespace nuvark::gige
