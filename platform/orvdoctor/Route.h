#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace orv {

/// The interface that the kernel would send to the address through, by all its rules and tables; "" when it has no way
/// there, nothing when it cannot be asked. \param address  IPv4, host byte order.
std::optional<std::string> RouteTo(std::uint32_t address);

} // namespace orv
