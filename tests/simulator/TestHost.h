#pragma once

#include "tests/simulator/ControlFixture.h"

#include <chrono>
#include <optional>
#include <string>

namespace orvsim {

/// The n-th address (0 to 59) of this process in the loopback network: other test runs use others.
std::uint32_t TestAddress(int n);

/// A host's UDP socket on 127.0.0.1, with commands that wait for their answers. Nothing waits longer than 5 s.
class TestHost {
public:
    TestHost();
    ~TestHost();
    TestHost(const TestHost &) = delete;

    std::uint16_t Port() const;
    void Send(const Endpoint &to, const Datagram &bytes);
    struct Arrival {
        Endpoint from;
        Datagram bytes;
    };
    std::optional<Arrival> Receive(int limitMs = 5000);

    /// Sends a command to a camera and waits for its answer; empty when none came.
    Datagram Ask(std::uint32_t camera, const Datagram &command, int limitMs = 5000);
    /// Status of the answer; -1 without one.
    int Write(std::uint32_t camera, std::uint32_t reg, std::uint32_t value);
    std::uint32_t Read(std::uint32_t camera, std::uint32_t reg);
    std::string ReadMemory(std::uint32_t camera, std::uint32_t address, std::size_t size);

    CommandWriter commands;

private:
    int m_fd;
};

} // namespace orvsim
