#include "simulator/gige/PacketBatch.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

#include <netinet/udp.h>
#include <poll.h>
#include <sys/socket.h>

#ifndef UDP_SEGMENT
#define UDP_SEGMENT 103
#endif

namespace orvsim {

namespace {

/// Limits of the kernel for one message that it cuts up.
constexpr std::size_t kMostSegments = 64;
constexpr std::size_t kMostMessageBytes = 65507;
constexpr std::size_t kPiecesPerPacket = 2; // head, body
constexpr int kRoomPollMs = 10;

bool KernelSegments(int fd)
{
    int value = 0;
    socklen_t length = sizeof value;
    return getsockopt(fd, IPPROTO_UDP, UDP_SEGMENT, &value, &length) == 0;
}

bool IsNoRoom(int error)
{
    return error == EAGAIN || error == EWOULDBLOCK || error == ENOBUFS;
}

} // namespace

/// What sendmmsg wants, filled anew for each call.
struct PacketBatch::Messages {
    struct Control {
        alignas(cmsghdr) std::uint8_t bytes[CMSG_SPACE(sizeof(std::uint16_t))];
    };

    void Add(const Packet *packets, std::size_t count)
    {
        msghdr &header = headers[used].msg_hdr;
        header = {};
        header.msg_name = &receiver;
        header.msg_namelen = sizeof receiver;
        header.msg_iov = &pieces[usedPieces];
        for (std::size_t i = 0; i < count; ++i)
            AddPieces(packets[i]);
        header.msg_iovlen = static_cast<std::size_t>(&pieces[usedPieces] - header.msg_iov);
        if (count > 1)
            SetSegment(header, static_cast<std::uint16_t>(packets[0].Size()));
        packetsOf[used++] = count;
    }

    void AddPieces(const Packet &packet)
    {
        pieces[usedPieces++] = {const_cast<std::uint8_t *>(packet.head.data()), packet.headBytes};
        if (packet.body.size > 0)
            pieces[usedPieces++] = {const_cast<std::uint8_t *>(packet.body.data), packet.body.size};
    }

    void SetSegment(msghdr &header, std::uint16_t segmentBytes)
    {
        header.msg_control = controls[used].bytes;
        header.msg_controllen = sizeof controls[used].bytes;
        cmsghdr *control = CMSG_FIRSTHDR(&header);
        control->cmsg_level = IPPROTO_UDP;
        control->cmsg_type = UDP_SEGMENT;
        control->cmsg_len = CMSG_LEN(sizeof segmentBytes);
        std::memcpy(CMSG_DATA(control), &segmentBytes, sizeof segmentBytes);
    }

    sockaddr_in receiver{};
    std::size_t used = 0;
    std::size_t usedPieces = 0;
    std::array<mmsghdr, kCapacity> headers{};
    std::array<std::size_t, kCapacity> packetsOf{};
    std::array<Control, kCapacity> controls{};
    std::array<iovec, kCapacity * kPiecesPerPacket + 1> pieces{};
};

PacketBatch::PacketBatch(StreamSocket &socket)
    : m_socket(socket), m_canSegment(KernelSegments(socket.Fd())), m_messages(std::make_unique<Messages>())
{
    m_packets.reserve(kCapacity);
}

PacketBatch::~PacketBatch() = default;

void PacketBatch::SetReceiver(const Endpoint &to)
{
    m_messages->receiver = ToSocketAddress(to);
}

PacketBatch::Sent PacketBatch::Flush(const SendGate &gate, SendGate::Pass pass)
{
    Sent sent;
    std::size_t first = 0;
    while (first < m_packets.size() && gate.IsOpen(pass)) {
        const std::size_t filled = FillMessages(first);
        const int taken = sendmmsg(m_socket.Fd(), m_messages->headers.data(), static_cast<unsigned>(filled), 0);
        if (taken > 0) {
            first += Account(static_cast<std::size_t>(taken), sent);
            continue;
        }
        if (errno == EINTR || (IsNoRoom(errno) && WaitForRoom(gate, pass)))
            continue;
        if (m_messages->packetsOf[0] > 1) {
            m_canSegment = false; // not on this way out: the same packets go one by one
            continue;
        }
        ++sent.errors;
        ++first;
    }
    m_packets.clear();
    return sent;
}

/// Packets from `first` on that make one message: all of one length, but for a shorter last.
std::size_t PacketBatch::RunLength(std::size_t first) const
{
    const std::size_t bytes = m_packets[first].Size();
    if (!m_maySegment || !m_canSegment)
        return 1;
    const std::size_t most = std::min({m_packets.size() - first, kMostSegments, kMostMessageBytes / bytes});
    std::size_t count = 1;
    while (count < most && m_packets[first + count].Size() == bytes)
        ++count;
    if (count > 1 && count < most && m_packets[first + count].Size() < bytes)
        ++count;
    return std::max<std::size_t>(count, 1);
}

std::size_t PacketBatch::FillMessages(std::size_t first)
{
    m_messages->used = 0;
    m_messages->usedPieces = 0;
    while (first < m_packets.size()) {
        const std::size_t count = RunLength(first);
        m_messages->Add(&m_packets[first], count);
        first += count;
    }
    return m_messages->used;
}

std::size_t PacketBatch::Account(std::size_t messages, Sent &sent) const
{
    std::size_t packets = 0;
    for (std::size_t i = 0; i < messages; ++i) {
        packets += m_messages->packetsOf[i];
        sent.bytes += m_messages->headers[i].msg_len;
    }
    sent.packets += packets;
    return packets;
}

bool PacketBatch::WaitForRoom(const SendGate &gate, SendGate::Pass pass) const
{
    pollfd room{m_socket.Fd(), POLLOUT, 0};
    poll(&room, 1, kRoomPollMs);
    return gate.IsOpen(pass);
}

} // namespace orvsim
