#include "simulator/gige/SendPace.h"

#include <algorithm>

namespace orvsim {

namespace {

constexpr double kLongestGroupNs = 1e6;
/// Shorter waits than this are not worth a sleep.
constexpr double kShortestGroupNs = 1e5;
/// A quarter of the receive buffer that Linux gives by default, which counts the buffers' overhead too.
constexpr std::uint32_t kBurstBytes = 52 << 10;
constexpr double kGigabitNsPerByte = 8;

std::uint32_t Packets(double count)
{
    return static_cast<std::uint32_t>(std::clamp(count, 1.0, static_cast<double>(kMostGroupPackets)));
}

} // namespace

SendPace PaceOf(const Block &block, std::uint64_t packetDelayNs, std::uint64_t periodNs)
{
    if (packetDelayNs > 0) {
        const auto delayNs = static_cast<double>(packetDelayNs);
        return {Packets(kLongestGroupNs / delayNs), delayNs};
    }
    const std::size_t payloadBytes = block.frame->payload.size();
    const std::uint64_t wireBytes = block.IsMultiPart()
                                        ? MultiPartEthernetBytes(payloadBytes, block.packetSize)
                                        : EthernetBytes(payloadBytes, block.packetSize, block.extendedIds);
    const double spreadNs =
        std::min(static_cast<double>(wireBytes) * kGigabitNsPerByte, static_cast<double>(periodNs) / 2);
    const double packetNs = spreadNs / block.packetCount;
    if (spreadNs < kShortestGroupNs)
        return {kMostGroupPackets, 0};
    const std::uint32_t burst = std::max(kBurstBytes / block.packetSize, 1U);
    return {std::max(burst, Packets(kShortestGroupNs / packetNs)), packetNs};
}

} // namespace orvsim
