// What frames cost on an Ethernet wire.
#include "simulator/gige/GvspPackets.h"

#include <algorithm>

namespace orvsim {

namespace {

using namespace gvsp;

/// Preamble 8, header 14, check sequence 4, gap 12.
constexpr std::uint64_t kEthernetOverhead = 38;
/// Shorter packets are filled up.
constexpr std::uint64_t kEthernetLeast = 46;

std::uint64_t OnEthernet(std::uint64_t ipBytes)
{
    return std::max(ipBytes, kEthernetLeast) + kEthernetOverhead;
}

} // namespace

std::uint64_t EthernetBytes(std::size_t payloadBytes, std::uint32_t packetSize, bool extendedIds)
{
    const std::uint64_t overhead = kIpAndUdpBytes + HeaderBytes(extendedIds);
    const std::uint64_t dataBytes = PacketRoom(packetSize, extendedIds);
    const std::uint64_t rest = payloadBytes % dataBytes;
    return OnEthernet(overhead + kLeaderBytes) + OnEthernet(overhead + kTrailerBytes) +
           payloadBytes / dataBytes * OnEthernet(overhead + dataBytes) + (rest > 0 ? OnEthernet(overhead + rest) : 0);
}

std::uint64_t MultiPartEthernetBytes(std::size_t payloadBytes, std::uint32_t packetSize)
{
    const std::uint64_t overhead = kIpAndUdpBytes + kExtendedHeaderBytes;
    const std::uint64_t dataOverhead = overhead + kPartHeaderBytes;
    const std::uint64_t dataBytes = std::max(Usable(packetSize), kSmallestPartPacketSize) - dataOverhead;
    const std::uint64_t partBytes = payloadBytes / kParts;
    const std::uint64_t rest = partBytes % dataBytes;
    return OnEthernet(overhead + kPartLeaderBytes + kParts * kPartEntryBytes) +
           OnEthernet(overhead + kPartTrailerBytes + kParts * kPartTrailerEntryBytes) +
           kParts * (partBytes / dataBytes * OnEthernet(dataOverhead + dataBytes) +
                     (rest > 0 ? OnEthernet(dataOverhead + rest) : 0));
}

} // namespace orvsim
