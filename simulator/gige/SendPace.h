#pragma once

#include "simulator/gige/GvspPackets.h"
#include "simulator/gige/SendGate.h"

#include <cstdint>

namespace orvsim {

/// When packets leave: `groupPackets` at once, the k-th packet's target time being k * packetNs after the start.
struct SendPace {
    std::uint32_t groupPackets = 1;
    double packetNs = 0; ///< 0: as fast as it goes

    SendTime TargetTime(SendTime start, std::uint32_t packet) const
    {
        return start + std::chrono::nanoseconds(static_cast<std::int64_t>(packetNs * packet));
    }
};

/// Datagrams that are handed to the system at once when nothing limits the pace.
constexpr std::uint32_t kMostGroupPackets = 512;

/// The pace of a block. With a packet delay: that one, in groups of at most a millisecond. Without: as over a link of
/// 1 Gbit/s, but within half of the frame's period, in bursts that an ordinary receive buffer takes; so a host that
/// keeps up loses nothing, and a high frame rate goes at full speed.
///
/// \param periodNs  until the next frame; 0: unknown, which is full speed
SendPace PaceOf(const Block &block, std::uint64_t packetDelayNs, std::uint64_t periodNs);

} // namespace orvsim
