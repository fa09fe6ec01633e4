#pragma once

#include <cstdint>

/// The form of the acknowledge target's inputs.
namespace acknowledgeinput {

/// What the host does. Before a command of the first six: an address (four bytes), a count (two bytes) and the number
/// of datagrams that come back; each is a byte (kRightId ...) and a piece. The last two are followed by a piece alone.
enum Step : std::uint8_t {
    kReadRegister,
    kWriteRegister,
    kReadRegisters,
    kWriteRegisters,
    kReadMemory,
    kWriteMemory,
    kMessage, ///< comes over the message channel
    kBare,    ///< goes to each of the parsers
    kSteps
};

/// The datagram gets the id of the command that it answers.
constexpr std::uint8_t kRightId = 0x01;

} // namespace acknowledgeinput
