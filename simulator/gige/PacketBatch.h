#pragma once

#include "simulator/gige/GvspPackets.h"
#include "simulator/gige/SendGate.h"
#include "simulator/gige/StreamSocket.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace orvsim {

/// Collects datagrams for one receiver and hands them to the kernel with few system calls: sendmmsg for many messages,
/// and packets of one length in a row as one message that the kernel cuts up (UDP_SEGMENT), where it can. Pixels are
/// gathered from their frame, not copied in user space.
///
/// One thread.
class PacketBatch {
public:
    static constexpr std::size_t kCapacity = 512;

    explicit PacketBatch(StreamSocket &socket);
    ~PacketBatch();

    /// Whether the kernel may cut messages up. What is captured on the way then are the uncut ones. True to begin with.
    void AllowSegments(bool allowed) { m_maySegment = allowed; }

    /// The batch must be empty.
    void SetReceiver(const Endpoint &to);
    /// The batch must not be full. The packet's body stays readable until Flush() has returned.
    void Add(const Packet &packet) { m_packets.push_back(packet); }
    bool IsFull() const { return m_packets.size() == kCapacity; }

    struct Sent {
        std::uint64_t packets = 0;
        std::uint64_t bytes = 0;
        std::uint64_t errors = 0; ///< packets that the system refused, for instance as too large
    };
    /// Sends all and is empty afterwards. Waits while the system has no room; gives up when the pass is worthless.
    Sent Flush(const SendGate &gate, SendGate::Pass pass);

private:
    struct Messages;

    std::size_t RunLength(std::size_t first) const;
    std::size_t FillMessages(std::size_t first);
    std::size_t Account(std::size_t messages, Sent &sent) const;
    bool WaitForRoom(const SendGate &gate, SendGate::Pass pass) const;

    StreamSocket &m_socket;
    bool m_maySegment = true;
    bool m_canSegment = false; ///< until the kernel says otherwise
    std::vector<Packet> m_packets;
    std::unique_ptr<Messages> m_messages;
};

} // namespace orvsim
