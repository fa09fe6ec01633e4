#include "orvdoctor/Addresses.h"
#include "orvdoctor/FactText.h"
#include "orvdoctor/Firewall.h"
#include "orvdoctor/Symptoms.h"

#include <algorithm>

/// What this host's kernel does with packets: whether they come in, where, and what becomes of them.
namespace orv {
namespace {

constexpr int kStrict = 1, kLoose = 2;

bool HasLostTouch(const Facts &facts)
{
    return LacksPackets(facts) || facts.isSilent;
}

std::string ArrivedText(const HostCounts::Arrived &arrived)
{
    return CountText(arrived.packets, "packet", "packets") + " (" + BytesText(arrived.bytes) + ")";
}

/// As sysctl wants it: with the dot in a VLAN's name as a slash.
std::string FilterSetting(std::string interface, int value)
{
    std::replace(interface.begin(), interface.end(), '.', '/');
    return "net.ipv4.conf." + interface + ".rp_filter=" + std::to_string(value);
}

/// Interfaces whose filter may have thrown away what came.
std::vector<const HostInterfaceFacts *> FilteringInterfaces(const Facts &facts)
{
    std::vector<const HostInterfaceFacts *> found;
    for (const HostInterfaceFacts &interface : facts.interfaces)
        if (interface.isUp && !interface.isLoopback && interface.reversePathFilter != 0 &&
            (found.empty() || found.back()->name != interface.name))
            found.push_back(&interface);
    return found;
}

/// A loose filter lets through what this host has any way to; where there is none, only no filter does.
void LoosenFilters(const std::vector<const HostInterfaceFacts *> &interfaces, bool hasAnyWay, const Facts &facts,
                   Diagnosis &diagnosis)
{
    const bool isLooseEnough = hasAnyWay && std::all_of(interfaces.begin(), interfaces.end(), [](const auto *one) {
                                   return one->reversePathFilter == kStrict;
                               });
    const int value = isLooseEnough ? kLoose : 0;
    std::vector<std::string> settings;
    if (value < facts.reversePathFilterOfAll)
        settings.push_back(FilterSetting("all", value));
    for (const HostInterfaceFacts *interface : interfaces)
        settings.push_back(FilterSetting(interface->name, value));
    SetSysctl(diagnosis, settings);
    diagnosis.remedy = isLooseEnough ? "Make the filter loose there." : "Switch the filter off there.";
}

std::string FilterText(int filter)
{
    return filter == kStrict ? "strict (rp_filter = 1)" : "loose (rp_filter = 2)";
}

/// Where the way back leads through another interface, a strict filter throws even questions for this computer's
/// address (ARP) away, so that nothing is sent to it; the kernel does not count those. But it counts what came in:
/// where nothing did, nobody asked. \return what came in at the filtering one of two interfaces in one subnet; null
/// otherwise.
const HostCounts::Arrived *MaybeFilteredQuestions(const Facts &facts)
{
    const Twins twins = FindTwins(facts);
    if (!facts.isMissing || !twins.other)
        return nullptr;
    for (const HostInterfaceFacts *interface : {twins.other, twins.cameras}) {
        const HostCounts::Arrived *const arrived = ArrivedAt(facts, interface->name);
        if (interface->reversePathFilter == kStrict && arrived && arrived->packets > 0)
            return arrived;
    }
    return nullptr;
}

Finding FindFilterInSearch(const Facts &facts)
{
    const std::vector<const HostInterfaceFacts *> interfaces = FilteringInterfaces(facts);
    if (interfaces.empty())
        return {};
    std::string names;
    for (const HostInterfaceFacts *interface : interfaces)
        names +=
            (names.empty() ? "" : ", ") + InterfaceText(*interface) + " " + FilterText(interface->reversePathFilter);
    Diagnosis diagnosis{};
    if (facts.host.filtered > 0)
        diagnosis.finding = "While cameras were searched for, the kernel's reverse-path filter threw " +
                            CountText(facts.host.filtered, "packet", "packets") +
                            " away, as it does with the answers of a camera that it would not send to by the same "
                            "interface. It is switched on for " +
                            names + ".";
    else if (const HostCounts::Arrived *const arrived = MaybeFilteredQuestions(facts))
        diagnosis.finding = "Two interfaces of this computer are in one subnet, and the kernel's reverse-path filter "
                            "throws away what a camera sends to the one that it would not be answered by; " +
                            ArrivedText(*arrived) + " came in through " + Printable(arrived->name) +
                            " during the search. The filter is switched on for " + names + ".";
    const bool hasDefault = std::any_of(facts.interfaces.begin(), facts.interfaces.end(),
                                        [](const HostInterfaceFacts &one) { return one.hasDefaultRoute; });
    LoosenFilters(interfaces, hasDefault || FindTwins(facts).other, facts, diagnosis);
    return diagnosis;
}

/// What came in where the camera's stream may: at its own interface, at that of the way to it or at a twin. The kernel
/// counts what it throws away for all interfaces together, and other people's packets are among it. \return null where
/// too little for a stream came.
const HostCounts::Arrived *MaybeArrivedStream(const Facts &facts)
{
    const HostInterfaceFacts *const own = InterfaceOf(facts.camera, facts.interfaces);
    const Twins twins = FindTwins(facts);
    for (const std::string &name :
         {own ? own->name : std::string(), facts.routeInterface, twins.other ? twins.other->name : std::string()})
        if (MayCarryStream(facts, name))
            return ArrivedAt(facts, name);
    return nullptr;
}

/// Moves one of the two elsewhere, though never what the rest of the world is reached through.
void Separate(const Twins &twins, Diagnosis &diagnosis)
{
    if (twins.other->hasDefaultRoute) {
        diagnosis.remedy = "Give " + Printable(twins.cameras->name) +
                           " and the camera addresses in a subnet that no other interface has; " +
                           Printable(twins.other->name) + " carries the way to other networks and should stay.";
        return;
    }
    diagnosis.remedy = "Give each interface a subnet of its own, or take the address off the one that the camera is "
                       "not connected to; for good in the network settings.";
    diagnosis.command = "sudo ip address del " + SubnetText(twins.other->address, twins.other->subnetMask) + " dev " +
                        ShellWord(twins.other->name);
}

} // namespace

std::string InterfaceText(const HostInterfaceFacts &interface)
{
    return Printable(interface.name) +
           (interface.address != 0 ? " (" + SubnetText(interface.address, interface.subnetMask) + ")" : "");
}

void SetSysctl(Diagnosis &diagnosis, const std::vector<std::string> &settings)
{
    std::string words;
    for (const std::string &setting : settings)
        words += " " + ShellWord(setting);
    diagnosis.command = "sudo sysctl -w" + words;
    diagnosis.lasting = "printf '%s\\n'" + words + " | sudo tee -a /etc/sysctl.d/60-orvcam.conf";
}

Finding FindReversePathFilter(const Facts &facts)
{
    if (facts.host.filtered == 0 && !MaybeFilteredQuestions(facts))
        return {};
    if (facts.isMissing)
        return FindFilterInSearch(facts);
    const auto address = ParseIpv4(facts.camera.address);
    const HostInterfaceFacts *const interface = InterfaceOf(facts.camera, facts.interfaces);
    const bool isOwnWay = facts.routeIsKnown && interface && facts.routeInterface == interface->name;
    if (!address || !interface || interface->reversePathFilter == 0 || isOwnWay || !HasLostTouch(facts))
        return {};
    Diagnosis diagnosis{};
    diagnosis.finding = "The kernel's reverse-path filter threw " +
                        CountText(facts.host.filtered, "packet", "packets") + " away: on " + InterfaceText(*interface) +
                        " it is " + FilterText(interface->reversePathFilter);
    if (!facts.routeIsKnown)
        diagnosis.finding += ".";
    else if (facts.routeInterface.empty())
        diagnosis.finding += ", and this computer has no way to " + Ipv4Text(*address) + ".";
    else
        diagnosis.finding +=
            ", and the way to " + Ipv4Text(*address) + " leads through " + Printable(facts.routeInterface) + ".";
    LoosenFilters({interface}, !facts.routeInterface.empty(), facts, diagnosis);
    return diagnosis;
}

Finding FindTwoInterfaces(const Facts &facts)
{
    const Twins twins = FindTwins(facts);
    if (!twins.other || !(HasLostTouch(facts) || (facts.isMissing && facts.host.filtered > 0)))
        return {};
    const bool leadsElsewhere = facts.routeIsKnown && facts.routeInterface == twins.other->name;
    const bool comesElsewhere =
        LacksPackets(facts) && MayCarryStream(facts, twins.other->name) && !MayCarryStream(facts, twins.cameras->name);
    if (!facts.isMissing && !leadsElsewhere && !comesElsewhere)
        return {};
    Diagnosis diagnosis{};
    diagnosis.finding =
        InterfaceText(*twins.other) + " and " + InterfaceText(*twins.cameras) + " are in the same subnet";
    if (comesElsewhere)
        diagnosis.finding += ": " + ArrivedText(*ArrivedAt(facts, twins.other->name)) + " came in through " +
                             Printable(twins.other->name) + " meanwhile, but the camera was found through " +
                             Printable(twins.cameras->name) + ".";
    else if (leadsElsewhere)
        diagnosis.finding += ", and the way to the camera leads through " + Printable(twins.other->name) +
                             ", though it was found through " + Printable(twins.cameras->name) + ".";
    else
        diagnosis.finding += ": what is meant for a camera at one of them may go out through the other.";
    Separate(twins, diagnosis);
    return diagnosis;
}

Finding FindBlockedStream(const Facts &facts)
{
    const auto address = ParseIpv4(facts.camera.address);
    const HostCounts::Arrived *const arrived = MaybeArrivedStream(facts);
    if (!LacksPackets(facts) || !ThrowsStreamAway(facts) || !arrived || !address || FindReversePathFilter(facts))
        return {};
    const HostInterfaceFacts *const interface = InterfaceOf(facts.camera, facts.interfaces);
    const Passage passage = LetThrough(facts, Ipv4Text(*address), 0, interface ? interface->name : "");
    Diagnosis diagnosis{};
    diagnosis.finding =
        "Not one stream packet has reached this program for " + SecondsText(facts.countedSeconds) + ", while " +
        ArrivedText(*arrived) + " came in through " + Printable(arrived->name) + " and this computer threw at least " +
        CountText(static_cast<std::uint64_t>(facts.host.undelivered), "packet", "packets") +
        " away, as a firewall does" + (facts.firewall.empty() ? "." : "; " + facts.firewall + " is switched on.");
    diagnosis.remedy = "Let UDP packets from " + Ipv4Text(*address) + " through.";
    if (!passage.advice.empty())
        diagnosis.remedy += " " + passage.advice;
    diagnosis.command = passage.command;
    diagnosis.lasting = passage.lasting;
    return diagnosis;
}

Finding FindNoPackets(const Facts &facts)
{
    if (!LacksPackets(facts) || FindBlockedStream(facts) || FindReversePathFilter(facts))
        return {};
    const HostInterfaceFacts *const interface = InterfaceOf(facts.camera, facts.interfaces);
    const HostCounts::Arrived *const arrived = interface ? ArrivedAt(facts, interface->name) : nullptr;
    Diagnosis diagnosis{};
    diagnosis.finding = "The camera answers commands, but not one stream packet has arrived for " +
                        SecondsText(facts.countedSeconds) + ".";
    if (arrived)
        diagnosis.finding += " All that came in through " + Printable(interface->name) + " meanwhile were " +
                             ArrivedText(*arrived) + ".";
    if (arrived && !MayCarryStream(facts, interface->name))
        diagnosis.remedy = "The camera sends nothing, or something on the way keeps it off: start the stream again, "
                           "check switches and routers between, or restart the camera.";
    else
        diagnosis.remedy = "Start the stream again, or restart the camera. When that does not help, see whether a "
                           "firewall keeps UDP packets off.";
    return diagnosis;
}

} // namespace orv
