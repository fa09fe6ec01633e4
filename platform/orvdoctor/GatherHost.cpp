#include "orvdoctor/Addresses.h"
#include "orvdoctor/Firewall.h"
#include "orvdoctor/Route.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <memory>
#include <set>
#include <sstream>

#include <ifaddrs.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <net/if_arp.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace orv {
namespace {

/// A file of one number; 0 without it.
std::int64_t NumberIn(const std::string &path)
{
    std::ifstream file(path);
    std::int64_t number = 0;
    return file >> number ? number : 0;
}

std::uint32_t AddressOf(const sockaddr *address)
{
    if (!address || address->sa_family != AF_INET)
        return 0;
    return ntohl(reinterpret_cast<const sockaddr_in *>(address)->sin_addr.s_addr);
}

/// An interface by itself, whatever addresses it has.
bool IsLink(const ifaddrs &entry)
{
    return entry.ifa_addr && entry.ifa_addr->sa_family == AF_PACKET;
}

/// One that a camera may be plugged into: no bridge, no part of one, no tunnel.
bool IsEthernet(const ifaddrs &entry, const HostFolders &folders)
{
    const std::string folder = folders.sysClassNet + "/" + entry.ifa_name;
    std::error_code ignored;
    return reinterpret_cast<const sockaddr_ll *>(entry.ifa_addr)->sll_hatype == ARPHRD_ETHER &&
           !std::filesystem::exists(folder + "/bridge", ignored) &&
           !std::filesystem::exists(folder + "/master", ignored);
}

int LargestPacket(const std::string &interface)
{
    const int socket = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    ifreq request{};
    interface.copy(request.ifr_name, IFNAMSIZ - 1);
    const bool isTold = socket >= 0 && ioctl(socket, SIOCGIFMTU, &request) == 0;
    if (socket >= 0)
        close(socket);
    return isTold ? request.ifr_mtu : 0;
}

int ReversePathFilter(const HostFolders &folders, const std::string &name)
{
    constexpr int kLoose = 2;
    const std::string conf = folders.procSys + "/net/ipv4/conf/";
    // The kernel goes by the higher number of the two, and the higher one is the laxer.
    const std::int64_t filter = std::max(NumberIn(conf + name + "/rp_filter"), NumberIn(conf + "all/rp_filter"));
    return static_cast<int>(std::min<std::int64_t>(filter, kLoose));
}

/// The interfaces that ways to everywhere lead through: columns of /proc/net/route, figures in hexadecimal.
std::set<std::string> DefaultRoutes(const HostFolders &folders)
{
    constexpr unsigned kUp = 1, kReject = 0x200;
    std::ifstream file(folders.procNet + "/route");
    std::set<std::string> names;
    for (std::string line; std::getline(file, line);) {
        std::istringstream columns(line);
        std::string name;
        std::uint32_t destination = 1, gateway = 0, mask = 1;
        unsigned flags = 0, references = 0, uses = 0, metric = 0;
        columns >> name >> std::hex >> destination >> gateway >> flags >> std::dec >> references >> uses >> metric >>
            std::hex >> mask;
        if (columns && destination == 0 && mask == 0 && (flags & (kUp | kReject)) == kUp)
            names.insert(name);
    }
    return names;
}

HostInterfaceFacts Describe(const ifaddrs &entry, const HostFolders &folders)
{
    HostInterfaceFacts facts;
    facts.name = entry.ifa_name;
    // An alias ("lo:1") is a label of its link, not a link.
    facts.name.erase(std::min(facts.name.find(':'), facts.name.size()));
    facts.address = AddressOf(entry.ifa_addr);
    facts.subnetMask = facts.address != 0 ? AddressOf(entry.ifa_netmask) : 0;
    facts.isUp = (entry.ifa_flags & IFF_UP) != 0;
    facts.hasLink = (entry.ifa_flags & IFF_RUNNING) != 0;
    facts.isLoopback = (entry.ifa_flags & IFF_LOOPBACK) != 0;
    facts.isPointToPoint = (entry.ifa_flags & IFF_POINTOPOINT) != 0;
    facts.mtu = LargestPacket(facts.name);
    facts.reversePathFilter = ReversePathFilter(folders, facts.name);
    return facts;
}

std::vector<HostInterfaceFacts> Interfaces(const HostFolders &folders)
{
    std::vector<HostInterfaceFacts> found;
    ifaddrs *first = nullptr;
    if (getifaddrs(&first) != 0)
        return found;
    const std::unique_ptr<ifaddrs, decltype(&freeifaddrs)> owner(first, freeifaddrs);
    for (const ifaddrs *entry = first; entry; entry = entry->ifa_next)
        if (AddressOf(entry->ifa_addr) != 0)
            found.push_back(Describe(*entry, folders));
    const auto isKnown = [&](const std::string &name) {
        return std::any_of(found.begin(), found.end(), [&](const auto &one) { return one.name == name; });
    };
    for (const ifaddrs *entry = first; entry; entry = entry->ifa_next)
        if (IsLink(*entry) && IsEthernet(*entry, folders) && !isKnown(entry->ifa_name))
            found.push_back(Describe(*entry, folders));
    return found;
}

} // namespace

void GatherHost(Facts &facts, const HostFolders &folders)
{
    facts.interfaces = Interfaces(folders);
    const std::set<std::string> routes = DefaultRoutes(folders);
    for (HostInterfaceFacts &interface : facts.interfaces)
        interface.hasDefaultRoute = routes.count(interface.name) != 0;
    const auto camera = ParseIpv4(facts.camera.address);
    const auto route = camera ? RouteTo(*camera) : std::nullopt;
    facts.routeIsKnown = route.has_value();
    facts.routeInterface = route.value_or("");
    facts.reversePathFilterOfAll = static_cast<int>(NumberIn(folders.procSys + "/net/ipv4/conf/all/rp_filter"));
    facts.receiveBufferLimit = static_cast<std::uint64_t>(NumberIn(folders.procSys + "/net/core/rmem_max"));
    GatherFirewall(facts, folders);
}

} // namespace orv
