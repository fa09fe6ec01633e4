#pragma once

#include "simulator/features/Outcome.h"

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace orvsim {

/// Chunk and event data behind addresses: libaravis's GenApi reads such ports from its own buffers only, so each gets a
/// stretch of addresses far above the device's, and the description loses the ports' identifiers.
class DataWindows {
public:
    /// \return the description as the library can read it.
    std::string Open(std::string xml);
    void Attach(const std::string &port, std::vector<std::uint8_t> bytes) { m_bytes[port] = std::move(bytes); }

    static bool Contains(std::uint64_t address) { return address >> 56 == 0x41; }
    /// NoSuchAddress past the attached bytes.
    Outcome Read(std::uint64_t address, std::uint32_t size, std::uint8_t *target) const;

private:
    std::vector<std::string> m_ports;
    std::map<std::string, std::vector<std::uint8_t>> m_bytes;
};

} // namespace orvsim
