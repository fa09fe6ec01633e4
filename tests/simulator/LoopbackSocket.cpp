#include "tests/simulator/LoopbackSocket.h"

#include <gtest/gtest.h>

#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace orvsim {

LoopbackSocket::LoopbackSocket() : m_fd(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0))
{
    const int on = 1;
    setsockopt(m_fd, SOL_SOCKET, SO_BROADCAST, &on, sizeof on);
    const int bytes = 8 << 20;
    setsockopt(m_fd, SOL_SOCKET, SO_RCVBUF, &bytes, sizeof bytes);
    const sockaddr_in address = ToSocketAddress({INADDR_LOOPBACK, 0});
    EXPECT_EQ(bind(m_fd, reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
}

LoopbackSocket::~LoopbackSocket()
{
    close(m_fd);
}

Endpoint LoopbackSocket::Where() const
{
    sockaddr_in address = {};
    socklen_t length = sizeof address;
    getsockname(m_fd, reinterpret_cast<sockaddr *>(&address), &length);
    return ToEndpoint(address);
}

void LoopbackSocket::Send(const Endpoint &to, const Datagram &bytes)
{
    const sockaddr_in address = ToSocketAddress(to);
    sendto(m_fd, bytes.data(), bytes.size(), 0, reinterpret_cast<const sockaddr *>(&address), sizeof address);
}

std::optional<LoopbackSocket::Arrival> LoopbackSocket::Receive(int limitMs)
{
    pollfd polled = {m_fd, POLLIN, 0};
    if (poll(&polled, 1, limitMs) <= 0)
        return std::nullopt;
    Datagram bytes(65536);
    sockaddr_in from = {};
    socklen_t length = sizeof from;
    const ssize_t size = recvfrom(m_fd, bytes.data(), bytes.size(), 0, reinterpret_cast<sockaddr *>(&from), &length);
    if (size < 0)
        return std::nullopt;
    bytes.resize(static_cast<std::size_t>(size));
    return Arrival{ToEndpoint(from), std::move(bytes)};
}

Datagram LoopbackSocket::Next()
{
    auto arrival = Receive();
    return arrival.has_value() ? std::move(arrival->bytes) : Datagram();
}

std::vector<Datagram> LoopbackSocket::Take(std::size_t count)
{
    std::vector<Datagram> datagrams;
    while (datagrams.size() < count) {
        auto arrival = Receive();
        if (!arrival.has_value())
            break;
        datagrams.push_back(std::move(arrival->bytes));
    }
    return datagrams;
}

} // namespace orvsim
