#include "simulator/gige/Endpoint.h"

namespace orvsim {

std::string ToText(const Endpoint &endpoint)
{
    std::string text;
    for (int shift = 24; shift >= 0; shift -= 8)
        text += std::to_string(endpoint.address >> shift & 0xff) + (shift > 0 ? "." : ":");
    return text + std::to_string(endpoint.port);
}

} // namespace orvsim
