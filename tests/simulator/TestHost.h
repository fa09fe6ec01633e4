#pragma once

#include "tests/simulator/ControlFixture.h"
#include "tests/simulator/LoopbackSocket.h"

#include <string>

namespace orvsim {

/// The n-th address (0 to 59) of this process in the loopback network: other test runs use others.
std::uint32_t TestAddress(int n);

/// A host's socket, with commands that wait for their answers.
class TestHost : public LoopbackSocket {
public:
    /// Sends a command to a camera and waits for its answer; empty when none came.
    Datagram Ask(std::uint32_t camera, const Datagram &command, int limitMs = 10'000);
    /// Status of the answer; -1 without one.
    int Write(std::uint32_t camera, std::uint32_t reg, std::uint32_t value);
    std::uint32_t Read(std::uint32_t camera, std::uint32_t reg);
    std::string ReadMemory(std::uint32_t camera, std::uint32_t address, std::size_t size);

    CommandWriter commands;
};

} // namespace orvsim
