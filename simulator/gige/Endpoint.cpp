#include "simulator/gige/Endpoint.h"

namespace orvsim {

std::string AddressText(std::uint32_t address)
{
    std::string text;
    for (int shift = 24; shift >= 0; shift -= 8)
        text += std::to_string(address >> shift & 0xff) + (shift > 0 ? "." : "");
    return text;
}

std::string ToText(const Endpoint &endpoint)
{
    return AddressText(endpoint.address) + ":" + std::to_string(endpoint.port);
}

sockaddr_in ToSocketAddress(const Endpoint &endpoint)
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(endpoint.address);
    address.sin_port = htons(endpoint.port);
    return address;
}

Endpoint ToEndpoint(const sockaddr_in &address)
{
    return {ntohl(address.sin_addr.s_addr), ntohs(address.sin_port)};
}

} // namespace orvsim
