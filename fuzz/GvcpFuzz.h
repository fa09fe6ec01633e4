#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

/// Commands of a session put one after another in the form that the fuzz target reads: for each a byte that chooses the
/// sender and the way, a length of two bytes (big-endian), the datagram.
std::vector<std::vector<std::uint8_t>> GvcpSeeds();

/// Plays the input to a camera's control server and ends the program where a rule is broken.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size);
