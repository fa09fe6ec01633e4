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

} // namespace orvsim
