#pragma once

#include "orvdoctor/Diagnosis.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

/// IPv4 addresses as text and as numbers in host byte order, and what belongs to which subnet.
namespace orv {

/// "192.168.10.20"; nothing for any other text, leading zeros included.
std::optional<std::uint32_t> ParseIpv4(const std::string &text);
std::string Ipv4Text(std::uint32_t address);
/// Ones from the top, then zeros, at least one of each kind.
bool IsSubnetMask(std::uint32_t mask);
/// "10.0.0.1/24"
std::string SubnetText(std::uint32_t address, std::uint32_t mask);

bool IsInSubnet(std::uint32_t address, std::uint32_t other, std::uint32_t mask);
/// An address of one host within the mask's subnet: neither its network's own nor its broadcast, and of a class that
/// hosts have.
bool IsHostAddress(std::uint32_t address, std::uint32_t mask);

/// An address in the interface's subnet that looks free: the camera's own last digits when nobody else is known to have
/// them, else the next. \param taken  addresses that others have. \return 0 when the subnet has no room.
std::uint32_t ProposeAddress(const HostInterfaceFacts &interface, std::uint32_t cameraAddress,
                             const std::vector<std::uint32_t> &taken);

/// The address that an interface's text or identifier names, "eth0 (10.0.0.1)".
std::optional<std::uint32_t> AddressOf(const OrvCam::InterfaceDescription &interface);
/// The host's interface that the camera was found on: by the address in the interface's text or identifier, else by its
/// name, else by the camera's subnet; null when none fits.
const HostInterfaceFacts *InterfaceOf(const OrvCam::DeviceDescription &camera,
                                      const std::vector<HostInterfaceFacts> &interfaces);

} // namespace orv
