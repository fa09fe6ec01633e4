#pragma once

#include "orvdoctor/Diagnosis.h"

#include <cstdint>
#include <string>
#include <vector>

namespace orv {

/// An address that a person wants a camera to have, as typed.
struct AddressChoice {
    std::string address;
    std::string subnetMask;
    std::string gateway; ///< "0.0.0.0" for none
};

/// Why a camera could not have the address, or could not be reached there: a sentence; "" when nothing speaks against
/// it. \param interface  of this host, that the camera was found on; where its address is 0 nothing is known of its
/// network. \param taken  addresses of other cameras. Any thread.
std::string ProblemOf(const AddressChoice &choice, const HostInterfaceFacts &interface,
                      const std::vector<std::uint32_t> &taken);

} // namespace orv
