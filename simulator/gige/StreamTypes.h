#pragma once

#include "simulator/gige/Endpoint.h"

#include <cstdint>

namespace orvsim {

/// What the stream registers say.
struct StreamTarget {
    Endpoint to;                     ///< port 0: the channel is closed
    std::uint32_t packetSize = 1500; ///< of the whole IP packet; taken as 96 to 65535
    bool dontFragment = true;
    std::uint64_t packetDelayNs = 0; ///< between two packets' starts
    bool extendedIds = false;
    bool allIn = false;       ///< a frame that fits one packet goes as one
    bool isMultiPart = false; ///< frames have a second picture; needs extended ids
    /// The host understands the status codes of GigE Vision 1.1: resent packets and those not sent yet are marked so.
    bool extendedStatus = true;
    bool oldChunkType = false;      ///< frames with chunks are of version 1.2's payload type
    bool resendToRequester = false; ///< sent again to whoever asked, not to the stream's destination
};

constexpr std::uint32_t kToBlockEnd = 0xffffffff;
constexpr std::uint32_t kMostRefusals = 64; ///< that one request is answered with

struct ResendRequest {
    std::uint64_t blockId = 0;
    std::uint32_t firstPacket = 0;
    std::uint32_t lastPacket = 0; ///< inclusive; kToBlockEnd: all that follow
    bool extendedIds = false;
};

/// Packets on the wire, faults included; what was held back by a fault is not counted as sent.
struct StreamCounts {
    std::uint64_t frames = 0;
    std::uint64_t packets = 0;
    std::uint64_t bytes = 0; ///< of UDP payload
    std::uint64_t resentPackets = 0;
    std::uint64_t refusedPackets = 0;
    std::uint64_t lostOnLink = 0; ///< beyond the link's limit
    std::uint64_t sendErrors = 0; ///< packets that the system did not take
};

} // namespace orvsim
