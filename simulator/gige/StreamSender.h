#pragma once

#include "simulator/core/Camera.h"
#include "simulator/gige/FrameSource.h"
#include "simulator/gige/StreamTypes.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace orvsim {

/// The stream channel of a GigE Vision camera: takes the camera's frames and sends them as GVSP packets.
///
/// A thread of its own waits for frames and sends them, many packets per system call; another answers requests for
/// packets from the last frames, which are kept. Without a packet delay a frame's packets go as over a link of 1
/// Gbit/s, but within half of the frame's period: a host that keeps up loses none, and high frame rates go at full
/// speed. A new target takes effect with the next frame; a closed one stops at once: what the system has not been given
/// by then is not sent. Frames that come due while the channel is closed are thrown away unrendered.
///
/// A packet that the link has no room for (FrameJob::lossShare) does not come through by being sent again either.
///
/// Threads: Open(), Start() and Stop() from the owner's, the rest from any. Stop() joins; the destructor calls it.
/// Never calls the camera with a mutex of its own held, so the camera may call it (register functions) with its own.
class StreamSender {
public:
    /// Tells the camera what payloads cost on the wire. The camera outlives the sender.
    /// \param historyFrames  frames that packets can be sent again from
    StreamSender(Camera &camera, int historyFrames);
    /// Sends another source's frames. \param seed  of the faults
    StreamSender(std::shared_ptr<FrameSource> source, std::uint64_t seed, int historyFrames);
    ~StreamSender();

    /// Binds the socket to an address of this machine (host byte order) with a free port. Before Start().
    /// \return what went wrong; empty on success.
    std::string Open(std::uint32_t address);
    std::uint16_t SourcePort() const;
    void Start();
    void Stop();

    void SetTarget(const StreamTarget &target);
    /// Frames of acquisitions before `first` are given up, the one under way too.
    void DropBefore(std::uint64_t first);
    /// One datagram of packetSize - 28 bytes to the target; none while the channel is closed or when the size is beyond
    /// the path's artificial limit.
    void FireTestPacket();
    /// Packets larger than this are lost, as on a path with that MTU; 0: no limit.
    void SetPathMtu(std::uint32_t bytes);
    /// Does not wait for the answer. While 256 requests wait, others are dropped.
    void Resend(const ResendRequest &request, const Endpoint &requester);
    /// Block id that the frame of that number had or will have, for events. Not with the camera's mutex held.
    std::uint64_t BlockIdOf(std::uint64_t frameNumber) const;
    StreamCounts Counts() const;

    /// Bytes on the wire (frames of Ethernet with preamble and gap) of a payload at a packet size.
    static std::uint64_t WireBytes(std::size_t payloadBytes, std::uint32_t packetSize, bool extendedIds);

private:
    struct Parts;
    std::unique_ptr<Parts> m_parts;
};

} // namespace orvsim
