#include "simulator/gige/StreamSocket.h"

#include <cerrno>
#include <cstring>

#include <sys/socket.h>
#include <unistd.h>

namespace orvsim {

namespace {

/// The kernel grants what its limit allows.
constexpr int kSendBufferBytes = 8 << 20;

std::string Failure(const Endpoint &endpoint, const char *what)
{
    return "stream socket at " + ToText(endpoint) + ": " + what + ": " + std::strerror(errno);
}

} // namespace

StreamSocket::~StreamSocket()
{
    if (m_fd >= 0)
        close(m_fd);
}

std::string StreamSocket::Open(std::uint32_t address)
{
    if (m_fd >= 0)
        close(m_fd);
    m_fd = socket(AF_INET, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (m_fd < 0)
        return Failure({address, 0}, "cannot open");
    setsockopt(m_fd, SOL_SOCKET, SO_SNDBUF, &kSendBufferBytes, sizeof kSendBufferBytes);
    sockaddr_in local = ToSocketAddress({address, 0});
    if (bind(m_fd, reinterpret_cast<sockaddr *>(&local), sizeof local) != 0)
        return Failure({address, 0}, "cannot bind");
    socklen_t length = sizeof local;
    if (getsockname(m_fd, reinterpret_cast<sockaddr *>(&local), &length) != 0)
        return Failure({address, 0}, "has no name");
    m_port = ntohs(local.sin_port);
    return {};
}

void StreamSocket::SetDontFragment(bool dontFragment)
{
    // PROBE sets the bit whatever has been learnt of the path, as a camera does that keeps no routes.
    const int value = dontFragment ? IP_PMTUDISC_PROBE : IP_PMTUDISC_DONT;
    setsockopt(m_fd, IPPROTO_IP, IP_MTU_DISCOVER, &value, sizeof value);
}

bool StreamSocket::Send(orv::ByteSpan datagram, const Endpoint &to)
{
    const sockaddr_in address = ToSocketAddress(to);
    const auto sent =
        sendto(m_fd, datagram.data, datagram.size, 0, reinterpret_cast<const sockaddr *>(&address), sizeof address);
    return sent == static_cast<ssize_t>(datagram.size);
}

} // namespace orvsim
