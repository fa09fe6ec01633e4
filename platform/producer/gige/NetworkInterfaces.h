#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace nuvark::gige {

/// One IPv4 address of this host. Addresses in host byte order.
struct NetworkInterface {
    std::string name; ///< "eth0"
    int index = 0;    ///< the system's number of the link
    std::uint32_t address = 0;
    std::uint32_t mask = 0;
    std::uint32_t broadcast = 0; ///< the subnet's, 0 where the link has none
    std::array<std::uint8_t, 6> mac{};
    std::uint32_t mtu = 1500;
    bool pointToPoint = false;
    std::uint32_t gateway = 0; ///< of the default route, 0 where none leads through this link
    /// Cameras that are asked for one by one, since broadcasts do not get to them, and that this address leads to.
    std::vector<std::uint32_t> knownCameras;

    /// One stays itself while it is plugged in anew and gets another index, or while its mask or its gateway change.
    bool IsSame(const NetworkInterface &other) const { return name == other.name && address == other.address; }
    bool Contains(std::uint32_t other) const { return pointToPoint || ((other ^ address) & mask) == 0; }
    /// In the subnet, or beyond a router but known.
    bool Reaches(std::uint32_t other) const;
    std::string DisplayName() const; ///< "eth0 (10.0.0.1)"
};

/// What the link's MTU is now; the one in `interface` when the system does not say.
std::uint32_t PresentMtu(const NetworkInterface &interface);

/// Names an environment variable: addresses of cameras that broadcasts do not get to, "192.168.7.20,10.1.0.5".
constexpr char kKnownCamerasVariable[] = "NUVARK_CAMERA_ADDRESSES";

/// All addresses of links that are up, loopback included. A second address of a link in the same subnet is left out:
/// it would show every camera twice. Takes well under a millisecond.
std::vector<NetworkInterface> ListNetworkInterfaces();

} // namespace nuvark::gige
