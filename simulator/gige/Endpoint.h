#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <netinet/in.h>

namespace orvsim {

using Datagram = std::vector<std::uint8_t>;

/// An IPv4 address and UDP port, both in host byte order.
struct Endpoint {
    std::uint32_t address = 0;
    std::uint16_t port = 0;

    bool operator==(const Endpoint &other) const { return address == other.address && port == other.port; }
    bool operator!=(const Endpoint &other) const { return !(*this == other); }
};

/// "127.0.0.2", of an address in host byte order.
std::string AddressText(std::uint32_t address);
/// "127.0.0.2:3956"
std::string ToText(const Endpoint &endpoint);

/// As the socket calls want it, and back.
sockaddr_in ToSocketAddress(const Endpoint &endpoint);
Endpoint ToEndpoint(const sockaddr_in &address);

} // namespace orvsim
