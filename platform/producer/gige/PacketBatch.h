#pragma once

#include "base/Bytes.h"
#include "producer/gige/FrameBlock.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

namespace nuvark::gige {

/// Packets taken from a stream's socket at once, those of the running frame straight into its buffer.
///
/// The kernel hands out messages: one packet each, or by UDP_GRO several of one length and a last one that may be
/// shorter. The caller tells where the data of the next packets belongs; the kernel then scatters the payload there and
/// the headers aside, so that nothing is copied again. What really came is seen afterwards: from the first packet on
/// that is not the expected one, everything of the batch is gathered in memory of its own. The places of the expected
/// packets that did not come hold rubbish then; they are holes of the frame, which a later copy or zeros fill.
/// One thread. Between Read() and the last use of Packets() the frame's buffer must stay what it is.
class PacketBatch {
public:
    /// \param camera  host byte order
    PacketBatch(int socket, std::uint32_t camera);
    ~PacketBatch();

    enum class Found {
        Nothing, ///< was there
        All,     ///< that was there has been taken
        Some     ///< more may be there
    };
    /// Does not wait. \param landing  of the running frame, if there is one.
    Found Read(const std::optional<Landing> &landing);

    struct Packet {
        orv::ByteSpan bytes;      ///< the datagram, or the first one's header alone when the rest has landed
        std::uint32_t landed = 0; ///< full packets in a row whose content is in its place in the frame already
        bool isJunk = false;      ///< of another sender, or its message was cut: only for who listens to the traffic
    };
    /// In the order of their coming; good until the next Read().
    const std::vector<Packet> &Packets() const { return m_packets; }
    /// Messages of the last Read() that the kernel had to cut.
    std::uint64_t Cut() const { return m_cut; }

private:
    struct Messages;

    std::size_t ChooseCount(std::size_t landingPackets);
    void Prepare(const std::optional<Landing> &landing, std::size_t count);
    void Settle(const std::optional<Landing> &landing, std::size_t count);
    std::size_t CountLanded(std::size_t index, const Landing &landing, std::uint32_t firstPacket);
    void Gather(std::size_t index, std::size_t from);
    void AddPackets(std::size_t index, const std::optional<Landing> &landing);

    const int m_socket;
    const std::uint32_t m_camera;
    std::unique_ptr<Messages> m_messages;
    std::vector<Packet> m_packets;
    std::uint64_t m_cut = 0;
    std::size_t m_sinceRun = 0;       ///< messages since one of several packets
    std::size_t m_withoutLanding = 0; ///< reads in a row that found something
};

} // namespace nuvark::gige
