#include "producer/gige/Text.h"

#include <arpa/inet.h>
#include <cinttypes>
#include <cstdio>

namespace nuvark::gige {

std::string Hex(std::uint64_t value)
{
    char text[24];
    std::snprintf(text, sizeof text, "0x%" PRIx64, value);
    return text;
}

std::string AddressText(std::uint32_t address)
{
    char text[INET_ADDRSTRLEN] = {};
    const in_addr network{htonl(address)};
    inet_ntop(AF_INET, &network, text, sizeof text);
    return text;
}

std::optional<std::uint32_t> ParseAddress(const std::string &text)
{
    in_addr network{};
    if (inet_pton(AF_INET, text.c_str(), &network) != 1)
        return std::nullopt;
    return ntohl(network.s_addr);
}

std::string MacText(const std::array<std::uint8_t, 6> &mac)
{
    char text[18];
    std::snprintf(text, sizeof text, "%02x:%02x:%02x:%02x:%02x:%02x", mac[0], mac[1], mac[2], mac[3], mac[4], mac[5]);
    return text;
}

} // namespace nuvark::gige
