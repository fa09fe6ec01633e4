#pragma once

#include "orvcam/OrvCam.h"
#include "orvcam/OrvFeatures.h"

#include <cstdint>
#include <string>

namespace orv::cam {

/// Three IPv4 addresses in host byte order.
struct ForcedAddress {
    std::uint32_t address = 0;
    std::uint32_t subnetMask = 0;
    std::uint32_t gateway = 0; ///< 0: none
};

/// Refuses what no device can have: an address of no host, a mask with holes, a gateway outside of the subnet.
/// \param gateway  "" counts as "0.0.0.0". \return false with a sentence in `*error`.
bool ParseForcedAddress(const std::string &address, const std::string &subnetMask, const std::string &gateway,
                        ForcedAddress *forced, std::string *error);

/// Gives a device another address through its interface's features, by the names of the Standard Features Naming
/// Convention (GenTL part): DeviceSelector, DeviceID, GevDeviceMACAddress, GevDeviceForceIP and what belongs to it.
///
/// Nobody else may move DeviceSelector meanwhile. \return ORV_CAM_ERR_NOT_IMPLEMENTED without these features,
/// ORV_CAM_ERR_NOT_FOUND when the interface does not list the device, or the command's status.
int ForceAddressThrough(OrvCam::FeatureArray &interface, const OrvCam::DeviceDescription &device,
                        const ForcedAddress &address);
/// What a person is told of it. \param words  the producer's, "" where it gives none.
std::string ForceAddressFailure(const OrvCam::DeviceDescription &device, int status, const std::string &words);

} // namespace orv::cam
