#include "fuzz/PacketWire.h"

#include "tests/support/SendRun.h"

#include <array>
#include <cstdio>

#include <netinet/in.h>
#include <netinet/udp.h>
#include <poll.h>
#include <sys/socket.h>

namespace orv::fuzz {

namespace {

using nuvark::gige::UdpSocket;

constexpr std::uint32_t kLoopback = 0x7f000001;
constexpr std::size_t kReceiveBuffer = 4U << 20; ///< bytes, far more than an input has
constexpr std::size_t kMostSegments = 64;        ///< of one message, by the kernel
constexpr std::size_t kMostMessageBytes = 65507;
constexpr int kArrivalMs = 5000;

bool Wait(int socket, int limitMs)
{
    pollfd readable{socket, POLLIN, 0};
    return poll(&readable, 1, limitMs) == 1;
}

/// Two UDP sockets that hear nobody but each other. They stay open for the process's whole life.
struct UdpPair {
    UdpPair() : camera(UdpSocket::Open(kLoopback).value), host(UdpSocket::Open(kLoopback).value)
    {
        const int on = 1;
        if (!camera.Connect({kLoopback, host.LocalPort()}).Ok() || !host.Connect({kLoopback, camera.LocalPort()}).Ok())
            return;
        host.SetReceiveBuffer(kReceiveBuffer);
        hasRuns = setsockopt(host.Fd(), SOL_UDP, UDP_GRO, &on, sizeof on) == 0 && DeliversRuns();
    }
    /// A kernel may know the options and yet hand out each datagram by itself.
    bool DeliversRuns() const
    {
        Bytes bytes(30);
        return SendRun(camera.Fd(), bytes, 20) && Wait(host.Fd(), kArrivalMs) &&
               recv(host.Fd(), bytes.data(), bytes.size(), 0) == static_cast<ssize_t>(bytes.size());
    }
    void Drain() const
    {
        std::uint8_t byte = 0;
        while (recv(host.Fd(), &byte, sizeof byte, MSG_DONTWAIT) >= 0) {
        }
    }

    UdpSocket camera;
    UdpSocket host;
    bool hasRuns = false;
};

const UdpPair &TheUdpPair()
{
    static const UdpPair pair;
    return pair;
}

} // namespace

PacketWire::PacketWire(int in, int out, std::uint32_t sender, bool hasRuns)
    : batch(std::make_unique<nuvark::gige::PacketBatch>(out, sender)), m_in(in), m_out(out), m_hasRuns(hasRuns)
{
}

std::unique_ptr<PacketWire> PacketWire::Single()
{
    int ends[2] = {-1, -1};
    Require(socketpair(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, ends) == 0, "there are sockets");
    std::unique_ptr<PacketWire> wire(new PacketWire(ends[0], ends[1], 0, false));
    for (const int i : {0, 1})
        wire->m_ends[i] = nuvark::gige::Descriptor(ends[i]);
    return wire;
}

std::unique_ptr<PacketWire> PacketWire::Runs()
{
    const UdpPair &pair = TheUdpPair();
    pair.Drain();
    return std::unique_ptr<PacketWire>(new PacketWire(pair.camera.Fd(), pair.host.Fd(), kLoopback, true));
}

bool PacketWire::HasRuns()
{
    static const bool has = [] {
        const bool found = TheUdpPair().hasRuns;
        if (!found)
            std::fprintf(stderr, "packets in runs are left out: no UDP_SEGMENT or no UDP_GRO on loopback\n");
        return found;
    }();
    return has;
}

std::size_t PacketWire::RunLength(const std::vector<Bytes> &datagrams, std::size_t first)
{
    const std::size_t size = datagrams[first].size();
    if (size == 0)
        return 1;
    const std::size_t most = std::min({datagrams.size() - first, kMostSegments, kMostMessageBytes / size});
    std::size_t length = 1;
    while (length < most && datagrams[first + length].size() == size)
        ++length;
    const std::size_t next = length < most ? datagrams[first + length].size() : 0;
    return next != 0 && next < size ? length + 1 : length;
}

void PacketWire::Put(const std::vector<Bytes> &datagrams)
{
    for (std::size_t i = 0; i < datagrams.size();) {
        const std::size_t end = i + (m_hasRuns ? RunLength(datagrams, i) : 1);
        const std::size_t size = datagrams[i].size();
        Bytes message;
        for (; i < end; ++i)
            message.insert(message.end(), datagrams[i].begin(), datagrams[i].end());
        Require(SendRun(m_in, message, size), "the socket has room");
    }
}

bool PacketWire::WaitForMore() const
{
    return Wait(m_out, kArrivalMs);
}

} // namespace orv::fuzz
