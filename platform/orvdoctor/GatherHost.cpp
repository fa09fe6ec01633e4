#include "orvdoctor/Diagnosis.h"

#include <algorithm>
#include <fstream>
#include <memory>

#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>

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

int ReversePathFilter(const HostFolders &folders, const std::string &name)
{
    constexpr int kLoose = 2;
    const std::string conf = folders.procSys + "/net/ipv4/conf/";
    // The kernel goes by the higher number of the two, and the higher one is the laxer.
    const std::int64_t filter = std::max(NumberIn(conf + name + "/rp_filter"), NumberIn(conf + "all/rp_filter"));
    return static_cast<int>(std::min<std::int64_t>(filter, kLoose));
}

HostInterfaceFacts Describe(const ifaddrs &entry, const HostFolders &folders)
{
    HostInterfaceFacts facts;
    facts.name = entry.ifa_name;
    // An alias ("lo:1") is a label of its link, not a link.
    facts.name.erase(std::min(facts.name.find(':'), facts.name.size()));
    facts.address = AddressOf(entry.ifa_addr);
    facts.subnetMask = AddressOf(entry.ifa_netmask);
    facts.isUp = (entry.ifa_flags & IFF_UP) != 0;
    facts.mtu = static_cast<int>(NumberIn(folders.sysClassNet + "/" + facts.name + "/mtu"));
    facts.reversePathFilter = ReversePathFilter(folders, facts.name);
    return facts;
}

/// The firewall that looks to be switched on. Plain packet filter rules are for the administrator's eyes only.
std::string Firewall(const HostFolders &folders)
{
    std::ifstream ufw(folders.etc + "/ufw/ufw.conf");
    for (std::string line; std::getline(ufw, line);)
        if (line.compare(0, 11, "ENABLED=yes") == 0)
            return "ufw";
    return std::ifstream(folders.run + "/firewalld.pid").good() ? "firewalld" : "";
}

} // namespace

void GatherHost(Facts &facts, const HostFolders &folders)
{
    facts.interfaces.clear();
    ifaddrs *first = nullptr;
    if (getifaddrs(&first) == 0) {
        const std::unique_ptr<ifaddrs, decltype(&freeifaddrs)> owner(first, freeifaddrs);
        for (const ifaddrs *entry = first; entry; entry = entry->ifa_next)
            if (AddressOf(entry->ifa_addr) != 0)
                facts.interfaces.push_back(Describe(*entry, folders));
    }
    facts.receiveBufferLimit = static_cast<std::uint64_t>(NumberIn(folders.procSys + "/net/core/rmem_max"));
    facts.firewall = Firewall(folders);
}

} // namespace orv
