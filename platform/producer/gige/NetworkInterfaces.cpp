#include "producer/gige/NetworkInterfaces.h"

#include "producer/gige/UdpSocket.h"

#include <algorithm>
#include <cstring>
#include <memory>

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

} // namespace

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
        interfaces.push_back(std::move(interface));
    }
    return interfaces;
}

} // namespace nuvark::gige
