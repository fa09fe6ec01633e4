#include "orvdoctor/Addresses.h"

#include <algorithm>

#include <arpa/inet.h>

namespace orv {
namespace {

constexpr std::uint32_t kFirstMulticast = 0xE0000000; // 224.0.0.0

bool IsNamedIn(const std::string &name, const OrvCam::InterfaceDescription &interface)
{
    return interface.text == name || interface.text.compare(0, name.size() + 2, name + " (") == 0;
}

/// The parts of a text between characters that no address has.
std::vector<std::uint32_t> AddressesIn(const std::string &text)
{
    std::vector<std::uint32_t> addresses;
    for (std::size_t begin = 0; begin < text.size();) {
        const std::size_t end = std::min(text.find_first_not_of("0123456789.", begin), text.size());
        if (const auto address = ParseIpv4(text.substr(begin, end - begin)))
            addresses.push_back(*address);
        begin = end + 1;
    }
    return addresses;
}

} // namespace

std::optional<std::uint32_t> ParseIpv4(const std::string &text)
{
    in_addr address{};
    if (inet_pton(AF_INET, text.c_str(), &address) != 1)
        return std::nullopt;
    return ntohl(address.s_addr);
}

std::string Ipv4Text(std::uint32_t address)
{
    std::string text;
    for (int shift = 24; shift >= 0; shift -= 8)
        text += std::to_string(address >> shift & 0xFF) + (shift > 0 ? "." : "");
    return text;
}

bool IsSubnetMask(std::uint32_t mask)
{
    const std::uint32_t host = ~mask;
    return mask != 0 && host != 0 && (host & (host + 1)) == 0;
}

std::string SubnetText(std::uint32_t address, std::uint32_t mask)
{
    int bits = 0;
    while (bits < 32 && (mask << bits & 0x80000000U) != 0)
        ++bits;
    return Ipv4Text(address) + "/" + std::to_string(bits);
}

bool IsInSubnet(std::uint32_t address, std::uint32_t other, std::uint32_t mask)
{
    return ((address ^ other) & mask) == 0;
}

bool IsHostAddress(std::uint32_t address, std::uint32_t mask)
{
    const std::uint32_t host = address & ~mask;
    return address >> 24 != 0 && address < kFirstMulticast && host != 0 && host != ~mask;
}

std::uint32_t ProposeAddress(const HostInterfaceFacts &interface, std::uint32_t cameraAddress,
                             const std::vector<std::uint32_t> &taken)
{
    constexpr std::uint32_t kTries = 1024; // beyond that the subnet counts as full
    const std::uint32_t mask = interface.subnetMask;
    if (!IsSubnetMask(mask))
        return 0;
    const std::uint32_t network = interface.address & mask;
    for (std::uint32_t step = 0; step < kTries; ++step) {
        const std::uint32_t candidate = network | ((cameraAddress + step) & ~mask);
        const std::uint32_t last = candidate & 0xFF;
        const bool mayBeGateway = (candidate & ~mask) == 1 || last == 254;
        if (!mayBeGateway && IsHostAddress(candidate, mask) && last != 0 && last != 255 &&
            candidate != interface.address && std::find(taken.begin(), taken.end(), candidate) == taken.end())
            return candidate;
    }
    return 0;
}

std::optional<std::uint32_t> AddressOf(const OrvCam::InterfaceDescription &interface)
{
    for (const std::string *text : {&interface.text, &interface.id}) {
        const std::vector<std::uint32_t> addresses = AddressesIn(*text);
        if (!addresses.empty())
            return addresses.front();
    }
    return std::nullopt;
}

const HostInterfaceFacts *InterfaceOf(const OrvCam::DeviceDescription &camera,
                                      const std::vector<HostInterfaceFacts> &interfaces)
{
    const std::optional<std::uint32_t> told = AddressOf(camera.interface);
    const auto find = [&](auto fits) -> const HostInterfaceFacts * {
        const auto found = std::find_if(interfaces.begin(), interfaces.end(), fits);
        return found == interfaces.end() ? nullptr : &*found;
    };
    if (told)
        return find([&](const HostInterfaceFacts &interface) { return interface.address == *told; });
    if (const auto *named = find([&](const auto &interface) {
            return interface.address != 0 && IsNamedIn(interface.name, camera.interface);
        }))
        return named;
    const auto address = ParseIpv4(camera.address);
    if (!address)
        return nullptr;
    return find([&](const HostInterfaceFacts &interface) {
        return interface.isUp && interface.address != 0 &&
               IsInSubnet(*address, interface.address, interface.subnetMask);
    });
}

} // namespace orv
