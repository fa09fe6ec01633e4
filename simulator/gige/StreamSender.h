#pragma once

#include "simulator/core/Camera.h"
#include "simulator/gige/Endpoint.h"

#include <cstdint>
#include <memory>
#include <string>

namespace orvsim {

/// What the stream registers say.
struct StreamTarget {
    Endpoint to;                     ///< port 0: the channel is closed
    std::uint32_t packetSize = 1500; ///< of the whole IP packet
    bool dontFragment = true;
    std::uint64_t packetDelayNs = 0; ///< between two packets' starts
    bool extendedIds = false;
    bool allIn = false;             ///< a frame that fits one packet goes as one
    bool resendToRequester = false; ///< sent again to whoever asked, not to the stream's destination
};

struct ResendRequest {
    std::uint64_t blockId = 0;
    std::uint32_t firstPacket = 0;
    std::uint32_t lastPacket = 0; ///< inclusive; 0xffffffff: to the end of the block
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
    std::uint64_t sendErrors = 0;
};

/// The stream channel of a GigE Vision camera: takes the camera's frames and sends them as GVSP packets.
///
/// A thread of its own waits for frames and sends them, many packets per system call. The last frames are kept so that
/// packets can be sent again. A new target takes effect with the next frame; a closed one stops at once.
///
/// Threads: every function from any thread. Stop() joins; the destructor calls it.
class StreamSender {
public:
    /// \param historyFrames  frames that packets can be sent again from
    StreamSender(Camera &camera, int historyFrames);
    ~StreamSender();

    /// Binds the socket to an address of this machine (host byte order) with a free port.
    /// \return what went wrong; empty on success.
    std::string Open(std::uint32_t address);
    std::uint16_t SourcePort() const;
    void Start();
    void Stop();

    void SetTarget(const StreamTarget &target);
    /// One datagram of packetSize - 28 bytes to the target; none while the channel is closed or when the size is beyond
    /// the path's artificial limit.
    void FireTestPacket();
    /// Packets larger than this are lost, as on a path with that MTU; 0: no limit.
    void SetPathMtu(std::uint32_t bytes);
    void Resend(const ResendRequest &request, const Endpoint &requester);
    /// Block id that the frame of that number had or will have, for events.
    std::uint64_t BlockIdOf(std::uint64_t frameNumber) const;
    StreamCounts Counts() const;

    /// Bytes on the wire (frames of Ethernet with preamble and gap) of a payload at a packet size.
    static std::uint64_t WireBytes(std::size_t payloadBytes, std::uint32_t packetSize, bool extendedIds);

private:
    struct Parts;
    std::unique_ptr<Parts> m_parts;
};

} // namespace orvsim
