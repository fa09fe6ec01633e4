#include "producer/gige/UdpSocket.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

#include <arpa/inet.h>
#include <linux/sock_diag.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

namespace nuvark::gige {

namespace {

sockaddr_in ToSystem(Endpoint endpoint)
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(endpoint.address);
    address.sin_port = htons(endpoint.port);
    return address;
}

/// What the host lacks is told apart from what the network refuses.
Status SystemError(const char *what)
{
    const bool isLack = errno == EMFILE || errno == ENFILE || errno == ENOMEM || errno == ENOBUFS;
    return {isLack ? GC_ERR_RESOURCE_EXHAUSTED : GC_ERR_IO, std::string(what) + ": " + std::strerror(errno)};
}

/// poll() that signals do not end.
int PollUntil(pollfd *fds, nfds_t count, TimePoint deadline)
{
    int ready = 0;
    do {
        const auto left = std::max<std::chrono::nanoseconds>(deadline - Clock::now(), std::chrono::nanoseconds(0));
        const auto seconds = std::chrono::floor<std::chrono::seconds>(left);
        const timespec timeout{static_cast<time_t>(seconds.count()), static_cast<long>((left - seconds).count())};
        ready = ppoll(fds, count, &timeout, nullptr);
    } while (ready < 0 && errno == EINTR);
    return ready;
}

} // namespace

Descriptor &Descriptor::operator=(Descriptor &&other) noexcept
{
    if (this != &other) {
        Close();
        m_fd = other.m_fd;
        other.m_fd = -1;
    }
    return *this;
}

void Descriptor::Close()
{
    if (m_fd >= 0)
        close(m_fd);
    m_fd = -1;
}

WakeUp::WakeUp() : m_event(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)) {}

void WakeUp::Set()
{
    const std::uint64_t one = 1;
    // Fails only when the counter is full, and then the descriptor is readable anyway.
    [[maybe_unused]] const ssize_t written = write(m_event.Get(), &one, sizeof one);
}

bool WakeUp::WaitUntil(TimePoint deadline) const
{
    pollfd fd{Fd(), POLLIN, 0};
    return PollUntil(&fd, 1, deadline) > 0;
}

UdpSocket UdpSocket::Make()
{
    UdpSocket made;
    made.m_fd = Descriptor(socket(AF_INET, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    return made;
}

Status UdpSocket::Bind(Endpoint local)
{
    const sockaddr_in name = ToSystem(local);
    if (bind(Fd(), reinterpret_cast<const sockaddr *>(&name), sizeof name) != 0)
        return SystemError("cannot bind a UDP socket");
    return {};
}

Result<UdpSocket> UdpSocket::Open(std::uint32_t address)
{
    UdpSocket result = Make();
    if (!result.m_fd.IsOpen())
        return SystemError("cannot open a UDP socket");
    Status bound = result.Bind({address, 0});
    if (!bound.Ok())
        return bound;
    return result;
}

Result<UdpSocket> UdpSocket::OpenGroup(std::uint32_t group, std::uint16_t port, int interfaceIndex)
{
    UdpSocket result = Make();
    if (!result.m_fd.IsOpen())
        return SystemError("cannot open a UDP socket");
    const int on = 1;
    setsockopt(result.Fd(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    Status bound = result.Bind({group, port});
    if (!bound.Ok())
        return bound;
    ip_mreqn membership{};
    membership.imr_multiaddr.s_addr = htonl(group);
    membership.imr_ifindex = interfaceIndex;
    if (setsockopt(result.Fd(), IPPROTO_IP, IP_ADD_MEMBERSHIP, &membership, sizeof membership) != 0)
        return SystemError("cannot join the multicast group of the stream");
    return result;
}

Status UdpSocket::EnableBroadcast()
{
    const int on = 1;
    if (setsockopt(Fd(), SOL_SOCKET, SO_BROADCAST, &on, sizeof on) != 0)
        return SystemError("cannot allow broadcasts");
    return {};
}

Status UdpSocket::Connect(Endpoint peer)
{
    const sockaddr_in remote = ToSystem(peer);
    if (connect(Fd(), reinterpret_cast<const sockaddr *>(&remote), sizeof remote) != 0)
        return SystemError("cannot reach the camera's address");
    return {};
}

Status UdpSocket::Send(orv::ByteSpan datagram)
{
    // A refusal here belongs to an earlier datagram (the peer's port was closed then); the retry logic deals with it.
    if (send(Fd(), datagram.data, datagram.size, MSG_NOSIGNAL) < 0 && errno != ECONNREFUSED && errno != EAGAIN)
        return SystemError("cannot send");
    return {};
}

Status UdpSocket::SendTo(Endpoint peer, orv::ByteSpan datagram)
{
    const sockaddr_in remote = ToSystem(peer);
    if (sendto(Fd(), datagram.data, datagram.size, MSG_NOSIGNAL, reinterpret_cast<const sockaddr *>(&remote),
               sizeof remote) < 0)
        return SystemError("cannot send");
    return {};
}

Status UdpSocket::SendVia(int interfaceIndex, std::uint32_t source, Endpoint peer, orv::ByteSpan datagram)
{
    sockaddr_in remote = ToSystem(peer);
    iovec part{const_cast<std::uint8_t *>(datagram.data), datagram.size};
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(in_pktinfo))] = {};
    msghdr message{};
    message.msg_name = &remote;
    message.msg_namelen = sizeof remote;
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    message.msg_control = control;
    message.msg_controllen = sizeof control;
    cmsghdr *header = CMSG_FIRSTHDR(&message);
    header->cmsg_level = IPPROTO_IP;
    header->cmsg_type = IP_PKTINFO;
    header->cmsg_len = CMSG_LEN(sizeof(in_pktinfo));
    in_pktinfo info{};
    info.ipi_ifindex = interfaceIndex;
    info.ipi_spec_dst.s_addr = htonl(source);
    std::memcpy(CMSG_DATA(header), &info, sizeof info);
    if (sendmsg(Fd(), &message, MSG_NOSIGNAL) < 0)
        return SystemError("cannot send");
    return {};
}

UdpSocket::Wait UdpSocket::WaitReadable(TimePoint deadline, const WakeUp *wakeUp) const
{
    pollfd fds[2] = {{Fd(), POLLIN, 0}, {wakeUp != nullptr ? wakeUp->Fd() : -1, POLLIN, 0}};
    const int ready = PollUntil(fds, 2, deadline);
    if (ready > 0 && fds[1].revents != 0)
        return Wait::Interrupted;
    return ready > 0 ? Wait::Readable : Wait::TimedOut;
}

std::size_t UdpSocket::Receive(std::uint8_t *buffer, std::size_t capacity, Endpoint *sender)
{
    sockaddr_in remote{};
    socklen_t length = sizeof remote;
    const ssize_t size = recvfrom(Fd(), buffer, capacity, 0, reinterpret_cast<sockaddr *>(&remote), &length);
    if (size < 0)
        return 0;
    if (sender != nullptr)
        *sender = {ntohl(remote.sin_addr.s_addr), ntohs(remote.sin_port)};
    return static_cast<std::size_t>(size);
}

bool UdpSocket::HasDatagram() const
{
    std::uint8_t byte = 0;
    return recv(Fd(), &byte, sizeof byte, MSG_PEEK | MSG_DONTWAIT) >= 0;
}

std::uint16_t UdpSocket::LocalPort() const
{
    sockaddr_in local{};
    socklen_t length = sizeof local;
    getsockname(Fd(), reinterpret_cast<sockaddr *>(&local), &length);
    return ntohs(local.sin_port);
}

std::size_t UdpSocket::SetReceiveBuffer(std::size_t bytes)
{
    const int wanted = static_cast<int>(std::min<std::size_t>(bytes, 1U << 30));
    if (setsockopt(Fd(), SOL_SOCKET, SO_RCVBUFFORCE, &wanted, sizeof wanted) != 0)
        setsockopt(Fd(), SOL_SOCKET, SO_RCVBUF, &wanted, sizeof wanted);
    int granted = 0;
    socklen_t length = sizeof granted;
    getsockopt(Fd(), SOL_SOCKET, SO_RCVBUF, &granted, &length);
    // The kernel doubles the number for its own bookkeeping and reports the double.
    return granted > 0 ? static_cast<std::size_t>(granted) / 2 : 0;
}

std::uint32_t UdpSocket::Drops() const
{
    std::array<std::uint32_t, SK_MEMINFO_VARS> values{};
    socklen_t length = sizeof values;
    if (getsockopt(Fd(), SOL_SOCKET, SO_MEMINFO, values.data(), &length) != 0)
        return 0;
    return values[SK_MEMINFO_DROPS];
}

} // namespace nuvark::gige
