#include "orvdoctor/AddressChoice.h"

#include "orvdoctor/Addresses.h"

#include <algorithm>

namespace orv {
namespace {

std::string ProblemOfGateway(const std::string &text, std::uint32_t address, std::uint32_t mask)
{
    const auto gateway = ParseIpv4(text);
    if (!gateway)
        return "The gateway must be four numbers, as 192.168.1.1; 0.0.0.0 for none.";
    if (*gateway == 0)
        return {};
    if (!IsInSubnet(*gateway, address, mask) || !IsHostAddress(*gateway, mask))
        return "The gateway must be a host of the camera's network; 0.0.0.0 for none.";
    return *gateway == address ? "The gateway cannot be the camera itself." : "";
}

std::string ProblemAt(const HostInterfaceFacts &interface, std::uint32_t address, std::uint32_t mask)
{
    const std::uint32_t network = interface.address & interface.subnetMask;
    if (!IsInSubnet(address, network, interface.subnetMask))
        return "The address must lie in the interface's network, " + SubnetText(network, interface.subnetMask) + ".";
    if (address == interface.address)
        return "This computer itself has the address " + Ipv4Text(address) + ".";
    if (!IsHostAddress(address, interface.subnetMask))
        return Ipv4Text(address) + " is the address of a network or of all its hosts.";
    if (!IsInSubnet(interface.address, address, mask))
        return "With this mask the camera's network lacks this computer, " + Ipv4Text(interface.address) + ".";
    return {};
}

} // namespace

std::string ProblemOf(const AddressChoice &choice, const HostInterfaceFacts &interface,
                      const std::vector<std::uint32_t> &taken)
{
    const auto address = ParseIpv4(choice.address);
    const auto mask = ParseIpv4(choice.subnetMask);
    if (!address)
        return "The address must be four numbers, as 192.168.1.20.";
    if (!mask || !IsSubnetMask(*mask))
        return "The subnet mask must be ones followed by zeros, as 255.255.255.0.";
    const std::string problem = interface.address != 0 ? ProblemAt(interface, *address, *mask) : "";
    if (!problem.empty())
        return problem;
    if (!IsHostAddress(*address, *mask))
        return Ipv4Text(*address) + " is the address of a network or of all its hosts.";
    if (std::find(taken.begin(), taken.end(), *address) != taken.end())
        return "Another camera has the address " + Ipv4Text(*address) + ".";
    return ProblemOfGateway(choice.gateway, *address, *mask);
}

} // namespace orv
