#include "producer/gige/NetworkInterfaces.h"

#include "producer/gige/Text.h"
#include "producer/gige/UdpSocket.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>
#include <sstream>

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

namespace nuvark::gige {

namespace {

std::uint32_t AddressOf(const sockaddr *address)
{
    if (address == nullptr || address->sa_family != AF_INET)
        return 0;
    return ntohl(reinterpret_cast<const sockaddr_in *>(address)->sin_addr.s_addr);
}

void FillLinkFacts(int socketFd, NetworkInterface &interface)
{
    ifreq request{};
    std::strncpy(request.ifr_name, interface.name.c_str(), IFNAMSIZ - 1);
    if (ioctl(socketFd, SIOCGIFMTU, &request) == 0 && request.ifr_mtu > 0)
        interface.mtu = static_cast<std::uint32_t>(request.ifr_mtu);
    if (ioctl(socketFd, SIOCGIFHWADDR, &request) == 0)
        std::memcpy(interface.mac.data(), request.ifr_hwaddr.sa_data, interface.mac.size());
}

NetworkInterface Describe(const ifaddrs &entry)
{
    NetworkInterface interface;
    interface.name = entry.ifa_name;
    // An alias ("lo:1") is a label of its link, not a link.
    interface.name.erase(std::min(interface.name.find(':'), interface.name.size()));
    interface.index = static_cast<int>(if_nametoindex(interface.name.c_str()));
    interface.address = AddressOf(entry.ifa_addr);
    interface.mask = AddressOf(entry.ifa_netmask);
    interface.pointToPoint = (entry.ifa_flags & IFF_POINTOPOINT) != 0;
    // Loopback answers its subnet broadcast too, although it has no broadcast flag.
    if (!interface.pointToPoint && interface.mask != 0xFFFFFFFF)
        interface.broadcast = interface.address | ~interface.mask;
    return interface;
}

/// The gateway of the default route through a link; the kernel writes addresses as they lie in memory.
std::uint32_t FindGateway(const std::string &link)
{
    std::ifstream routes("/proc/net/route");
    std::string line;
    std::getline(routes, line); // the columns' names
    while (std::getline(routes, line)) {
        std::istringstream columns(line);
        std::string name;
        std::uint32_t destination = 0;
        std::uint32_t gateway = 0;
        columns >> name >> std::hex >> destination >> gateway;
        if (columns && name == link && destination == 0 && gateway != 0)
            return ntohl(gateway);
    }
    return 0;
}

/// The address of this host that its routes lead to `other` from, 0 when none does.
std::uint32_t SourceFor(std::uint32_t other)
{
    Result<UdpSocket> probe = UdpSocket::Open(0);
    sockaddr_in local{};
    socklen_t length = sizeof local;
    if (!probe.Ok() || !probe.value.Connect({other, 9}).Ok() || // nothing is sent
        getsockname(probe.value.Fd(), reinterpret_cast<sockaddr *>(&local), &length) != 0)
        return 0;
    return ntohl(local.sin_addr.s_addr);
}

std::vector<std::uint32_t> KnownCameras()
{
    const char *text = std::getenv(kKnownCamerasVariable);
    std::vector<std::uint32_t> addresses;
    std::string list = text != nullptr ? text : "";
    std::replace(list.begin(), list.end(), ',', ' ');
    std::istringstream words(list);
    for (std::string word; words >> word;) {
        if (const auto address = ParseAddress(word))
            addresses.push_back(*address);
    }
    return addresses;
}

} // namespace

bool NetworkInterface::Reaches(std::uint32_t other) const
{
    return Contains(other) || std::find(knownCameras.begin(), knownCameras.end(), other) != knownCameras.end();
}

std::string NetworkInterface::DisplayName() const
{
    return name + " (" + AddressText(address) + ")";
}

std::uint32_t PresentMtu(const NetworkInterface &interface)
{
    NetworkInterface present = interface;
    const Descriptor query(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (query.IsOpen())
        FillLinkFacts(query.Get(), present);
    return present.mtu;
}

std::vector<NetworkInterface> ListNetworkInterfaces()
{
    std::vector<NetworkInterface> interfaces;
    ifaddrs *first = nullptr;
    if (getifaddrs(&first) != 0)
        return interfaces;
    const std::unique_ptr<ifaddrs, decltype(&freeifaddrs)> owner(first, freeifaddrs);
    const Descriptor query(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    for (const ifaddrs *entry = first; entry != nullptr; entry = entry->ifa_next) {
        if (AddressOf(entry->ifa_addr) == 0 || (entry->ifa_flags & IFF_UP) == 0)
            continue;
        NetworkInterface interface = Describe(*entry);
        const bool secondary = std::any_of(interfaces.begin(), interfaces.end(), [&](const NetworkInterface &other) {
            return other.index == interface.index && !other.pointToPoint && other.Contains(interface.address);
        });
        if (secondary)
            continue;
        FillLinkFacts(query.Get(), interface);
        interface.gateway = FindGateway(interface.name);
        interfaces.push_back(std::move(interface));
    }
    for (std::uint32_t camera : KnownCameras()) {
        const std::uint32_t source = SourceFor(camera);
        for (NetworkInterface &interface : interfaces) {
            if (interface.Contains(camera) || (source != 0 && interface.address == source))
                interface.knownCameras.push_back(camera);
        }
    }
    return interfaces;
}

} // namespace nuvark::gige
