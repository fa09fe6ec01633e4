#include "simulator/gige/ControlSockets.h"

#include "simulator/gige/Gvcp.h"

#include <cerrno>
#include <cstring>
#include <utility>

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace orvsim {
namespace {

// Commands are short; what is longer is cut, and its length field then says that it is no command.
constexpr std::size_t kReceiveSize = 2048;

void Enable(int fd, int level, int option)
{
    const int on = 1;
    setsockopt(fd, level, option, &on, sizeof on);
}

Descriptor OpenSocket(const Endpoint &endpoint, bool isShared)
{
    Descriptor socket(::socket(AF_INET, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    if (!socket.IsOpen())
        return socket;
    Enable(socket.Get(), SOL_SOCKET, SO_BROADCAST);
    Enable(socket.Get(), IPPROTO_IP, IP_PKTINFO);
    if (isShared) // every camera of this machine hears the broadcasts
        Enable(socket.Get(), SOL_SOCKET, SO_REUSEADDR);
    const sockaddr_in address = ToSocketAddress(endpoint);
    if (bind(socket.Get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0)
        return Descriptor();
    return socket;
}

std::uint16_t PortOf(int fd)
{
    sockaddr_in address = {};
    socklen_t length = sizeof address;
    getsockname(fd, reinterpret_cast<sockaddr *>(&address), &length);
    return ntohs(address.sin_port);
}

/// Index of the interface that has the address; the loopback interface has all of 127.0.0.0/8. 0: none.
int InterfaceOf(std::uint32_t address)
{
    ifaddrs *list = nullptr;
    if (getifaddrs(&list) != 0)
        return 0;
    int found = 0;
    for (const ifaddrs *entry = list; entry != nullptr && found == 0; entry = entry->ifa_next) {
        if (entry->ifa_addr == nullptr || entry->ifa_addr->sa_family != AF_INET)
            continue;
        const auto *own = reinterpret_cast<const sockaddr_in *>(entry->ifa_addr);
        const bool isLoopback = (entry->ifa_flags & IFF_LOOPBACK) != 0 && address >> 24 == 127;
        if (isLoopback || ntohl(own->sin_addr.s_addr) == address)
            found = static_cast<int>(if_nametoindex(entry->ifa_name));
    }
    freeifaddrs(list);
    return found;
}

int ArrivalInterface(msghdr &message)
{
    for (cmsghdr *part = CMSG_FIRSTHDR(&message); part != nullptr; part = CMSG_NXTHDR(&message, part)) {
        if (part->cmsg_level != IPPROTO_IP || part->cmsg_type != IP_PKTINFO)
            continue;
        in_pktinfo info;
        std::memcpy(&info, CMSG_DATA(part), sizeof info);
        return info.ipi_ifindex;
    }
    return 0;
}

} // namespace

Descriptor::~Descriptor()
{
    if (m_fd >= 0)
        close(m_fd);
}

Descriptor::Descriptor(Descriptor &&other) noexcept : m_fd(std::exchange(other.m_fd, -1)) {}

Descriptor &Descriptor::operator=(Descriptor &&other) noexcept
{
    std::swap(m_fd, other.m_fd);
    return *this;
}

std::string ControlSockets::Open(const NetworkAddress &network)
{
    const Endpoint control{network.address, kGvcpPort};
    m_interface = InterfaceOf(network.address);
    m_sockets[Control] = OpenSocket(control, false);
    if (!m_sockets[Control].IsOpen())
        return "cannot use " + ToText(control) + ": " + std::strerror(errno);
    m_sockets[Messages] = OpenSocket({network.address, 0}, false);
    if (!m_sockets[Messages].IsOpen())
        return "no port for messages at " + ToText(control) + ": " + std::strerror(errno);
    m_messagePort = PortOf(m_sockets[Messages].Get());
    m_sockets[GlobalBroadcast] = OpenSocket({0xffffffff, kGvcpPort}, true);
    const std::uint32_t subnetBroadcast = network.address | ~network.subnetMask;
    if (subnetBroadcast != network.address && subnetBroadcast != 0xffffffff)
        m_sockets[SubnetBroadcast] = OpenSocket({subnetBroadcast, kGvcpPort}, true);
    return {};
}

std::optional<ControlSockets::Arrival> ControlSockets::Receive(Channel channel)
{
    const int fd = Fd(channel);
    while (fd >= 0) {
        Arrival arrival;
        arrival.bytes.resize(kReceiveSize);
        sockaddr_in from = {};
        iovec data = {arrival.bytes.data(), arrival.bytes.size()};
        alignas(cmsghdr) char control[CMSG_SPACE(sizeof(in_pktinfo))];
        msghdr message = {};
        message.msg_name = &from;
        message.msg_namelen = sizeof from;
        message.msg_iov = &data;
        message.msg_iovlen = 1;
        message.msg_control = control;
        message.msg_controllen = sizeof control;
        const ssize_t size = recvmsg(fd, &message, 0);
        if (size < 0 && errno != EINTR && errno != ECONNREFUSED)
            return std::nullopt;
        const bool isBroadcast = channel == GlobalBroadcast || channel == SubnetBroadcast;
        if (size < 0 || (isBroadcast && ArrivalInterface(message) != m_interface))
            continue;
        arrival.bytes.resize(static_cast<std::size_t>(size));
        arrival.from = ToEndpoint(from);
        return arrival;
    }
    return std::nullopt;
}

void ControlSockets::Send(Channel channel, const Endpoint &to, const Datagram &bytes)
{
    const sockaddr_in address = ToSocketAddress(to);
    sendto(Fd(channel), bytes.data(), bytes.size(), 0, reinterpret_cast<const sockaddr *>(&address), sizeof address);
}

} // namespace orvsim
