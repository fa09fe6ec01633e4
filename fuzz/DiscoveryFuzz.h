#pragma once

#include <cstdint>

/// The form of the discovery target's inputs: for each datagram a byte, then a piece.
namespace discoveryinput {

constexpr std::uint32_t kSenders[] = {0xC0A80A14, 0xC0A80A15, 0x0A000009, 0x00000000}; ///< the two lower bits choose
constexpr std::uint8_t kSenderMask = 0x03;
constexpr std::uint8_t kTimePasses = 0x04; ///< before the datagram: a tenth of a second

} // namespace discoveryinput
