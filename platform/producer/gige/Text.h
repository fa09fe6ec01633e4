#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>

/// Addresses and numbers as text. IPv4 addresses are in host byte order everywhere in this folder.
namespace nuvark::gige {

/// "0xa00"
std::string Hex(std::uint64_t value);
/// "192.168.10.20"
std::string AddressText(std::uint32_t address);
std::optional<std::uint32_t> ParseAddress(const std::string &text);
/// "02:00:00:ab:cd:ef"
std::string MacText(const std::array<std::uint8_t, 6> &mac);

} // namespace nuvark::gige
