#include "orvdoctor/Addresses.h"
#include "orvdoctor/FactText.h"
#include "orvdoctor/Firewall.h"
#include "orvdoctor/Symptoms.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

/// What keeps cameras from being found.
namespace orv {
namespace {

bool IsInUse(const HostInterfaceFacts &interface)
{
    return interface.isUp && !interface.isLoopback;
}

/// "eth0", "eth0 and eth1", "eth0, eth1 and eth2" of the interfaces that `fits` is true for; "" without any.
template <class Fits> std::string NamesOf(const Facts &facts, Fits fits)
{
    std::vector<std::string> names;
    for (const HostInterfaceFacts &interface : facts.interfaces)
        if (fits(interface) && (names.empty() || names.back() != Printable(interface.name)))
            names.push_back(Printable(interface.name));
    std::string text;
    for (std::size_t i = 0; i < names.size(); ++i)
        text += (i == 0 ? "" : i + 1 == names.size() ? " and " : ", ") + names[i];
    return text;
}

const HostInterfaceFacts *WithoutAddress(const Facts &facts)
{
    const auto found = std::find_if(facts.interfaces.begin(), facts.interfaces.end(), [](const auto &interface) {
        return IsInUse(interface) && interface.hasLink && interface.address == 0;
    });
    return found == facts.interfaces.end() ? nullptr : &*found;
}

/// In the network that cameras give themselves an address of when nobody else does; where another interface has that
/// already, in a private one that none has.
std::string FreeAddress(const Facts &facts)
{
    constexpr std::uint32_t kLinkLocal = 0xA9FE0101; // 169.254.1.1
    constexpr std::uint32_t kPrivate = 0xC0A80A01;   // 192.168.10.1
    const auto isFree = [&](std::uint32_t address, std::uint32_t mask) {
        return std::none_of(facts.interfaces.begin(), facts.interfaces.end(), [&](const auto &interface) {
            return interface.address != 0 && IsInSubnet(address, interface.address, mask & interface.subnetMask);
        });
    };
    if (isFree(kLinkLocal, 0xFFFF0000))
        return SubnetText(kLinkLocal, 0xFFFF0000);
    std::uint32_t address = kPrivate;
    while (!isFree(address, 0xFFFFFF00) && address < kPrivate + (200U << 8))
        address += 1U << 8;
    return SubnetText(address, 0xFFFFFF00);
}

/// Null without one.
const SearchFailure *FailedSearch(const Facts &facts)
{
    const auto failed =
        std::find_if(facts.searchFailures.begin(), facts.searchFailures.end(),
                     [&](const SearchFailure &failure) { return MayHideCameras(failure, facts.interfaces); });
    return failed == facts.searchFailures.end() ? nullptr : &*failed;
}

/// What a packet filter's rule for outgoing packets answers the sender.
bool IsForbidden(const std::string &reason)
{
    return reason.find(std::strerror(EPERM)) != std::string::npos ||
           reason.find(std::strerror(EACCES)) != std::string::npos;
}

/// Lets the search out.
std::string LettingOut(const Facts &facts)
{
    if (facts.firewall == "ufw")
        return "sudo ufw allow out proto udp to any port 3956";
    if (facts.firewall == "iptables")
        return "sudo iptables -I OUTPUT -p udp --dport 3956 -j ACCEPT";
    return "sudo nft list ruleset";
}

} // namespace

bool MayHideCameras(const SearchFailure &failure, const std::vector<HostInterfaceFacts> &interfaces)
{
    return std::none_of(interfaces.begin(), interfaces.end(), [&](const HostInterfaceFacts &one) {
        return (one.isPointToPoint || one.isLoopback) && failure.interface.rfind(one.name + " ", 0) == 0;
    });
}

Finding FindNoInterface(const Facts &facts)
{
    if (!facts.isMissing || std::any_of(facts.interfaces.begin(), facts.interfaces.end(), IsInUse))
        return {};
    const auto switchedOff = std::find_if(facts.interfaces.begin(), facts.interfaces.end(),
                                          [](const HostInterfaceFacts &one) { return !one.isUp && !one.isLoopback; });
    Diagnosis diagnosis{};
    if (switchedOff == facts.interfaces.end()) {
        diagnosis.finding = "This computer has no network interface but the loopback.";
        diagnosis.remedy = "Plug in a network adapter, or load its driver.";
        return diagnosis;
    }
    diagnosis.finding = "No network interface but the loopback is switched on.";
    diagnosis.remedy = "Switch " + Printable(switchedOff->name) + " on, and give it an address.";
    diagnosis.command = "sudo ip link set dev " + ShellWord(switchedOff->name) + " up";
    return diagnosis;
}

Finding FindInterfaceAddress(const Facts &facts)
{
    const HostInterfaceFacts *const interface = facts.isMissing ? WithoutAddress(facts) : nullptr;
    if (!interface)
        return {};
    Diagnosis diagnosis{};
    const std::string name = Printable(interface->name);
    diagnosis.finding = "The interface " + name + " has a link but no IPv4 address: no camera is found through it.";
    diagnosis.remedy = "Give it an address, and when the camera is found, the camera one in the same subnet. The "
                       "command's address lasts until a restart; for good it belongs into the network settings.";
    diagnosis.command = "sudo ip address add " + FreeAddress(facts) + " dev " + ShellWord(interface->name);
    return diagnosis;
}

Finding FindInterfaceLink(const Facts &facts)
{
    if (!facts.isMissing)
        return {};
    const std::string names =
        NamesOf(facts, [](const HostInterfaceFacts &one) { return IsInUse(one) && !one.hasLink; });
    if (names.empty())
        return {};
    Diagnosis diagnosis{};
    diagnosis.finding = "There is no link at " + names + ".";
    diagnosis.remedy = "If the camera is to be found there, check its power and both ends of the cable.";
    return diagnosis;
}

Finding FindSearchFailure(const Facts &facts)
{
    const SearchFailure *const failed = facts.isMissing ? FailedSearch(facts) : nullptr;
    if (!failed)
        return {};
    Diagnosis diagnosis{};
    diagnosis.finding =
        "The search through " + Printable(failed->interface) + " failed: " + Printable(failed->reason) + ".";
    if (!IsForbidden(failed->reason)) {
        diagnosis.remedy = "Look whether the interface is still there and has its address, then search again.";
        diagnosis.command = "ip address";
        return diagnosis;
    }
    diagnosis.remedy = "A rule for what this computer sends forbids it: let UDP out to port 3956, then search again.";
    diagnosis.command = LettingOut(facts);
    return diagnosis;
}

Finding FindFirewall(const Facts &facts)
{
    constexpr int kDiscoveryPort = 3956;
    if (!facts.isMissing || facts.firewall.empty() || facts.host.undelivered == 0)
        return {};
    const auto used = std::find_if(facts.interfaces.begin(), facts.interfaces.end(),
                                   [](const auto &one) { return IsInUse(one) && one.hasLink && one.address != 0; });
    const Passage passage = LetThrough(facts, "", kDiscoveryPort, used == facts.interfaces.end() ? "" : used->name);
    Diagnosis diagnosis{};
    diagnosis.finding = "The firewall " + facts.firewall + " is switched on, and " +
                        CountText(static_cast<std::uint64_t>(facts.host.undelivered), "packet", "packets") +
                        " that came in during the search reached no program; a camera's answer may be among them.";
    diagnosis.remedy = "Let answers of cameras through (UDP from port 3956), then search again.";
    if (!passage.advice.empty())
        diagnosis.remedy += " " + passage.advice;
    diagnosis.command = passage.command;
    diagnosis.lasting = passage.lasting;
    return diagnosis;
}

} // namespace orv
