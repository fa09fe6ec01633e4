#pragma once

#include "tests/simulator/ForeignProgram.h"

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace orvsim {

/// A packet as a dissector sees it: texts of the fields that were asked for, by name. Fields that it lacks are empty.
using DissectedPacket = std::map<std::string, std::string>;

/// Records loopback's UDP packets from and to one address, and has Wireshark take them apart.
///
/// Recording needs the right to, which root has, and everybody in a private network. One thread.
class PacketCapture {
public:
    PacketCapture();
    ~PacketCapture();
    PacketCapture(const PacketCapture &) = delete;
    PacketCapture &operator=(const PacketCapture &) = delete;

    /// Returns once packets are recorded. \return why that cannot be; empty when it can.
    std::string Start(std::uint32_t address);
    /// Returns once everything that was sent before is recorded. False when the recording has broken off.
    [[nodiscard]] bool Stop();

    /// \param ports  UDP ports of protocols that have none of their own: port, Wireshark's name of the protocol.
    /// \param problem  What the dissector complains of; empty when it ran to its end.
    std::vector<DissectedPacket> Dissect(const std::map<std::uint16_t, std::string> &ports,
                                         const std::vector<std::string> &fields, std::string &problem) const;

private:
    bool WaitForMark(const std::string &mark);

    ForeignProgram m_recorder;
    std::string m_folder;
    std::uint32_t m_address = 0;
};

} // namespace orvsim
