#pragma once

#include "orvdoctor/Addresses.h"
#include "orvdoctor/Diagnosis.h"

#include <functional>
#include <vector>

/// Facts of cameras in the states that matter, for the tables to change a little.
namespace doctor {

using orv::Facts;
using Camera = OrvCam::DeviceDescription;
using Stream = OrvCam::StreamStatistics;
using Host = orv::HostCounts;
using Interface = orv::HostInterfaceFacts;

using Change = std::function<void(Facts &)>;
using Changes = std::vector<Change>;

/// The part of the facts that a member belongs to; of the interfaces it is eth0, the camera's.
template <class Part> Part &PartOf(Facts &facts);
template <> inline Facts &PartOf(Facts &facts)
{
    return facts;
}
template <> inline Camera &PartOf(Facts &facts)
{
    return facts.camera;
}
template <> inline Stream &PartOf(Facts &facts)
{
    return facts.stream;
}
template <> inline Host &PartOf(Facts &facts)
{
    return facts.host;
}
template <> inline Interface &PartOf(Facts &facts)
{
    return facts.interfaces.at(1);
}

template <class Part, class Member, class Value> Change Set(Member Part::*member, Value value)
{
    return [=](Facts &facts) { PartOf<Part>(facts).*member = static_cast<Member>(value); };
}

inline Interface MadeInterface(const char *name, const char *address, const char *mask = "255.255.255.0")
{
    Interface made;
    made.name = name;
    made.address = orv::ParseIpv4(address).value();
    made.subnetMask = orv::ParseIpv4(mask).value();
    made.mtu = 1500;
    made.isLoopback = made.name == "lo";
    return made;
}

/// One more interface, in the subnet of the camera as eth0 is.
inline void AddTwin(Facts &facts)
{
    facts.interfaces.push_back(MadeInterface("eth1", "10.0.0.2"));
}

inline Facts Changed(Facts facts, const Changes &changes)
{
    for (const Change &change : changes)
        change(facts);
    return facts;
}

/// A camera on eth0 that streams 30 pictures a second without any trouble.
inline Facts Healthy(const Changes &changes = {})
{
    Facts facts;
    facts.camera.serial = "C1";
    facts.camera.address = "10.0.0.20";
    facts.camera.subnetMask = "255.255.255.0";
    facts.camera.state = OrvCam::DeviceState::OpenHere;
    facts.camera.interface = {OrvCam::ORV_INTERFACE_GEV, "GEV:eth0:10.0.0.1", "eth0 (10.0.0.1)", "x.cti"};
    facts.interfaces = {MadeInterface("lo", "127.0.0.1"), MadeInterface("eth0", "10.0.0.1"),
                        MadeInterface("wlan0", "10.0.7.1")};
    facts.isOpen = facts.isStreaming = true;
    facts.streamingSeconds = facts.countedSeconds = 10;
    facts.secondsSinceFrame = facts.usualPauseSeconds = facts.longestPauseSeconds = 0.03;
    facts.completeFrames = 300;
    facts.routeIsKnown = true;
    facts.routeInterface = "eth0";
    facts.host.areKnown = true;
    facts.host.arrived = {{"lo", 0, 0}, {"eth0", 300 * 720, 300U << 20}, {"wlan0", 10, 1000}, {"eth1", 0, 0}};
    facts.exposureUs = 5000;
    facts.hasGain = true;
    facts.frameRateHz = 30;
    facts.payloadSize = 1U << 20;
    facts.receiveBufferLimit = 212992;
    facts.stream.delivered = facts.stream.started = 300;
    facts.stream.packets = 300 * 720;
    facts.stream.receiveBuffer = facts.stream.wantedReceiveBuffer = 8U << 20;
    facts.stream.packetSize = 1500;
    facts.hasPicture = true;
    facts.darkShare = facts.saturatedShare = 0.1;
    return Changed(facts, changes);
}

/// The same camera, 3 s after a start that nothing came of.
inline Facts NothingComes(const Changes &changes = {})
{
    Facts facts = Healthy();
    facts.hasPicture = false;
    facts.streamingSeconds = facts.secondsSinceFrame = facts.countedSeconds = 3;
    facts.usualPauseSeconds = facts.longestPauseSeconds = 0;
    facts.completeFrames = 0;
    facts.host.arrived[1] = {"eth0", 25, 2840};
    facts.stream.delivered = facts.stream.started = facts.stream.packets = 0;
    return Changed(facts, changes);
}

/// Pictures come, and each lacks something.
inline Facts Incomplete(const Changes &changes = {})
{
    Facts facts = Healthy();
    facts.hasPicture = false;
    facts.stream.delivered = facts.stream.incomplete = 60;
    facts.stream.packets = 30000;
    facts.stream.fullPackets = 29000;
    facts.stream.missing = 13200;
    facts.stream.requested = 14000;
    facts.stream.resent = 800;
    return Changed(facts, changes);
}

/// A search has found nothing, though the host has two interfaces with link and address.
inline Facts Missing(const Changes &changes = {})
{
    Facts facts;
    facts.isMissing = true;
    facts.interfaces = Healthy().interfaces;
    facts.host.areKnown = true;
    return Changed(facts, changes);
}

/// NothingComes() on a host whose eth1 is in the subnet of the camera, too.
inline Facts BetweenTwo(const Changes &changes = {})
{
    Facts facts = NothingComes();
    AddTwin(facts);
    facts.routeInterface = "eth1";
    return Changed(facts, changes);
}

/// Nobody has opened the camera.
inline Facts Free(const Changes &changes = {})
{
    Facts facts = Healthy();
    facts.isOpen = facts.isStreaming = facts.hasPicture = false;
    facts.stream = {};
    facts.camera.state = OrvCam::DeviceState::Free;
    return Changed(facts, changes);
}

/// Not opened either, for it is in a subnet of its own.
inline Facts Foreign(const Changes &changes = {})
{
    Facts facts = Free();
    facts.camera.address = "192.168.5.20";
    facts.camera.state = OrvCam::DeviceState::Unreachable;
    return Changed(facts, changes);
}

} // namespace doctor
