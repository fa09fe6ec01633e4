#include "orvdoctor/Diagnosis.h"
#include "orvdoctor/Addresses.h"

#include <gmock/gmock.h>

#include <functional>

namespace {

using orv::Cause;
using orv::Cure;
using orv::Facts;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

orv::HostInterfaceFacts Interface(const char *name, const char *address)
{
    orv::HostInterfaceFacts facts;
    facts.name = name;
    facts.address = orv::ParseIpv4(address).value();
    facts.subnetMask = 0xFFFFFF00;
    facts.mtu = 1500;
    facts.isLoopback = facts.name == "lo";
    return facts;
}

/// A camera on eth0 that streams 30 pictures a second without any trouble.
Facts Healthy()
{
    Facts facts;
    facts.camera.serial = "C1";
    facts.camera.address = "10.0.0.20";
    facts.camera.subnetMask = "255.255.255.0";
    facts.camera.state = OrvCam::DeviceState::OpenHere;
    facts.camera.interface = {OrvCam::ORV_INTERFACE_GEV, "GEV:eth0:10.0.0.1", "eth0 (10.0.0.1)", "x.cti"};
    facts.interfaces = {Interface("lo", "127.0.0.1"), Interface("eth0", "10.0.0.1"), Interface("wlan0", "10.0.7.1")};
    facts.isOpen = facts.isStreaming = true;
    facts.streamingSeconds = facts.countedSeconds = 10;
    facts.secondsSinceFrame = facts.longestPauseSeconds = 0.03;
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
    OrvCam::StreamStatistics &stream = facts.stream;
    stream.delivered = stream.started = 300;
    stream.packets = 300 * 720;
    stream.receiveBuffer = stream.wantedReceiveBuffer = 8U << 20;
    stream.packetSize = 1500;
    facts.hasPicture = true;
    facts.darkShare = facts.saturatedShare = 0.1;
    return facts;
}

/// The same camera, 3 s after a start that nothing came of.
Facts NothingComes()
{
    Facts facts = Healthy();
    facts.hasPicture = false;
    facts.streamingSeconds = facts.secondsSinceFrame = facts.countedSeconds = 3;
    facts.longestPauseSeconds = 0;
    facts.completeFrames = 0;
    facts.host.arrived[1] = {"eth0", 25, 2840};
    facts.stream.delivered = facts.stream.started = facts.stream.packets = 0;
    return facts;
}

/// Pictures come, and each lacks something.
Facts Incomplete()
{
    Facts facts = Healthy();
    facts.hasPicture = false;
    facts.stream.delivered = facts.stream.incomplete = 60;
    facts.stream.packets = 30000;
    facts.stream.fullPackets = 29000;
    facts.stream.missing = 13200;
    facts.stream.requested = 14000;
    facts.stream.resent = 800;
    return facts;
}

/// A search has found nothing, though the host has two interfaces with link and address.
Facts Missing()
{
    Facts facts;
    facts.isMissing = true;
    facts.interfaces = Healthy().interfaces;
    facts.host.areKnown = true;
    return facts;
}

/// NothingComes() on a host whose eth1 is in the subnet of the camera, too.
Facts BetweenTwo()
{
    Facts facts = NothingComes();
    facts.interfaces.push_back(Interface("eth1", "10.0.0.2"));
    facts.routeInterface = "eth1";
    return facts;
}

Facts NotOpen(OrvCam::DeviceState state)
{
    Facts facts = Healthy();
    facts.isOpen = facts.isStreaming = facts.hasPicture = false;
    facts.stream = {};
    facts.camera.state = state;
    return facts;
}

struct Case {
    const char *rule;
    Facts (*base)();
    std::function<void(Facts &)> change;
    std::vector<Cause> causes; ///< all that must be named, in this order
};

const Case kCases[] = {
    // what is well
    {"a healthy camera", Healthy, [](Facts &) {}, {}},
    {"one that just started", NothingComes, [](Facts &f) { f.secondsSinceFrame = f.streamingSeconds = 0.5; }, {}},
    {"one that does not stream", NothingComes, [](Facts &f) { f.isStreaming = false; }, {}},
    {"a free camera", [] { return NotOpen(OrvCam::DeviceState::Free); }, [](Facts &) {}, {}},
    {"a camera that is reached through a router", Healthy, [](Facts &f) { f.camera.address = "192.168.99.5"; }, {}},
    {"nothing known at all", [] { return Facts(); }, [](Facts &) {}, {}},

    {"held by somebody", [] { return NotOpen(OrvCam::DeviceState::Busy); }, [](Facts &) {}, {Cause::HeldByAnother}},
    {"to be looked at only",
     [] { return NotOpen(OrvCam::DeviceState::ReadOnly); },
     [](Facts &) {},
     {Cause::HeldByAnother}},
    {"held by this program itself",
     [] { return NotOpen(OrvCam::DeviceState::OpenHere); },
     [](Facts &f) { f.camera.holder = "10.0.0.1:4000"; },
     {}},

    {"in another subnet",
     [] { return NotOpen(OrvCam::DeviceState::Unreachable); },
     [](Facts &f) { f.camera.address = "192.168.5.20"; },
     {Cause::ForeignSubnet}},
    {"in another subnet, with a producer that does not tell",
     [] { return NotOpen(OrvCam::DeviceState::Unknown); },
     [](Facts &f) { f.camera.address = "192.168.5.20"; },
     {Cause::ForeignSubnet}},
    {"in the subnet of an interface that is down",
     [] { return NotOpen(OrvCam::DeviceState::Unknown); },
     [](Facts &f) { f.interfaces[1].isUp = false; },
     {Cause::ForeignSubnet}},
    {"a camera without an address",
     [] { return NotOpen(OrvCam::DeviceState::Free); },
     [](Facts &f) { f.camera.address = ""; },
     {}},

    {"waits for a trigger", NothingComes, [](Facts &f) { f.hasTrigger = true; }, {Cause::WaitsForTrigger}},
    {"a trigger that comes often", Healthy, [](Facts &f) { f.hasTrigger = true; }, {}},
    {"a trigger, and pictures with holes", Incomplete, [](Facts &f) { f.hasTrigger = true; }, {Cause::PacketsLost}},
    {"a silent camera's trigger is history",
     NothingComes,
     [](Facts &f) { f.hasTrigger = f.isSilent = true; },
     {Cause::CameraSilent}},

    {"a long exposure",
     NothingComes,
     [](Facts &f) {
         f.exposureUs = 10e6;
         f.frameRateHz = 0.1;
     },
     {Cause::LongExposure}},
    {"a low frame rate", NothingComes, [](Facts &f) { f.frameRateHz = 0.2; }, {Cause::LongExposure}},
    {"an exposure that must be over",
     NothingComes,
     [](Facts &f) {
         f.exposureUs = 1e6;
         f.frameRateHz = 1;
     },
     {Cause::NoPackets}},
    {"a long exposure that brings its pictures", Healthy, [](Facts &f) { f.exposureUs = 0.9e6; }, {}},
    {"a long exposure behind a trigger",
     NothingComes,
     [](Facts &f) {
         f.hasTrigger = true;
         f.exposureUs = 10e6;
     },
     {Cause::WaitsForTrigger}},

    {"packets above the interface's size",
     Incomplete,
     [](Facts &f) { f.stream.packetSize = 9000; },
     {Cause::PacketsTooLarge}},
    {"packets of which nothing is left",
     NothingComes,
     [](Facts &f) { f.stream.packetSize = 9000; },
     {Cause::PacketsTooLarge, Cause::NoPackets}},
    {"packets above the path's size: only leaders and trailers come",
     Incomplete,
     [](Facts &f) {
         f.stream.delivered = f.stream.incomplete = 20;
         f.stream.started = 22; // their leaders have come, too
         f.stream.packets = 64 + 5568;
         f.stream.refused = 5568; // asked for again
         f.stream.fullPackets = 0;
         f.interfaces[1].mtu = 0;
     },
     {Cause::PacketsTooLarge}},
    {"packets above the interface's size, of late",
     Healthy,
     [](Facts &f) {
         f.stream.packetSize = 9000;
         f.stream.incomplete = 70;
     },
     {Cause::PacketsTooLarge}},
    {"large packets that the interface takes all the same", Healthy, [](Facts &f) { f.stream.packetSize = 9000; }, {}},
    {"pictures so small that they have few packets",
     Incomplete,
     [](Facts &f) {
         f.payloadSize = 4000;
         f.stream.packets = 120;
         f.stream.fullPackets = 0;
         f.stream.missing = 180;
     },
     {Cause::PacketsLost}},

    {"a small socket buffer that ran over",
     Incomplete,
     [](Facts &f) {
         f.stream.kernelDrops = 13000;
         f.stream.receiveBuffer = 425984;
     },
     {Cause::SocketBufferSmall}},
    {"one that ran over by batches",
     Incomplete,
     [](Facts &f) {
         f.stream.kernelDrops = 700;
         f.stream.receiveBuffer = 425984;
     },
     {Cause::SocketBufferSmall}},
    {"one that a few ran over, while the network lost most",
     Incomplete,
     [](Facts &f) {
         f.stream.kernelDrops = 13;
         f.stream.receiveBuffer = 425984;
     },
     {Cause::SocketBufferSmall, Cause::PacketsLost}},
    {"one that never ran over", Healthy, [](Facts &f) { f.stream.receiveBuffer = 425984; }, {}},
    {"one that ran over, and every packet came again",
     Healthy,
     [](Facts &f) {
         f.stream.receiveBuffer = 425984;
         f.stream.kernelDrops = 10;
     },
     {}},
    {"a large buffer that ran over: a busy computer",
     Incomplete,
     [](Facts &f) { f.stream.kernelDrops = 13000; },
     {Cause::PacketsLost}},

    {"no free buffers",
     Healthy,
     [](Facts &f) {
         f.stream.underruns = 40;
         f.stream.delivered = 260;
     },
     {Cause::NoBuffers}},
    {"one frame in all the time without a buffer", Healthy, [](Facts &f) { f.stream.underruns = 1; }, {}},

    {"the way leads through the other interface",
     BetweenTwo,
     [](Facts &) {},
     {Cause::TwoInterfacesInOneSubnet, Cause::NoPackets}},
    {"the stream comes in through the other one",
     BetweenTwo,
     [](Facts &f) {
         f.routeInterface = "eth0";
         f.host.arrived[3] = {"eth1", 20000, 30U << 20};
     },
     {Cause::TwoInterfacesInOneSubnet, Cause::NoPackets}},
    {"two interfaces that do no harm", BetweenTwo, [](Facts &f) { f.routeInterface = "eth0"; }, {Cause::NoPackets}},
    {"a silent camera between two interfaces",
     BetweenTwo,
     [](Facts &f) { f.isSilent = true; },
     {Cause::TwoInterfacesInOneSubnet, Cause::CameraSilent}},
    {"two interfaces and pictures",
     Healthy,
     [](Facts &f) { f.interfaces.push_back(Interface("eth1", "10.0.0.2")); },
     {}},
    {"the second one is down", BetweenTwo, [](Facts &f) { f.interfaces.back().isUp = false; }, {Cause::NoPackets}},
    {"two addresses of one interface",
     BetweenTwo,
     [](Facts &f) { f.interfaces.back().name = "eth0"; },
     {Cause::NoPackets}},
    {"a strict filter that dropped packets",
     BetweenTwo,
     [](Facts &f) {
         f.interfaces[1].reversePathFilter = 1;
         f.host.filtered = 50;
     },
     {Cause::ReversePathFilter, Cause::TwoInterfacesInOneSubnet}},
    {"a strict filter that dropped nothing",
     BetweenTwo,
     [](Facts &f) { f.interfaces[1].reversePathFilter = 1; },
     {Cause::TwoInterfacesInOneSubnet, Cause::NoPackets}},
    {"a strict filter that dropped what is not the camera's",
     NothingComes,
     [](Facts &f) {
         f.interfaces[1].reversePathFilter = 1;
         f.host.filtered = 50;
     },
     {Cause::NoPackets}},
    {"a loose filter and a camera without a way to it",
     NothingComes,
     [](Facts &f) {
         f.interfaces[1].reversePathFilter = 2;
         f.camera.address = "192.168.5.20";
         f.routeInterface = "";
         f.host.filtered = 50;
     },
     {Cause::ReversePathFilter}},

    {"none is found, and nothing is known why", Missing, [](Facts &) {}, {}},
    {"the answers were filtered",
     Missing,
     [](Facts &f) {
         f.interfaces[1].reversePathFilter = 2;
         f.host.filtered = 3;
     },
     {Cause::ReversePathFilter}},
    {"they were, between two interfaces",
     Missing,
     [](Facts &f) {
         f.interfaces.push_back(Interface("eth1", "10.0.0.2"));
         f.interfaces[1].reversePathFilter = 1;
         f.host.filtered = 3;
     },
     {Cause::ReversePathFilter, Cause::TwoInterfacesInOneSubnet}},
    {"a strict filter beside which the kernel counts nothing, and something came in there",
     Missing,
     [](Facts &f) {
         f.interfaces.push_back(Interface("eth1", "10.0.0.2"));
         f.interfaces[1].reversePathFilter = 1;
         f.host.arrived = {{"eth0", 4, 240}, {"eth1", 0, 0}};
     },
     {Cause::ReversePathFilter}},
    {"nothing came in there",
     Missing,
     [](Facts &f) {
         f.interfaces.push_back(Interface("eth1", "10.0.0.2"));
         f.interfaces[1].reversePathFilter = 1;
         f.host.arrived = {{"eth0", 0, 0}, {"eth1", 4, 240}};
     },
     {}},
    {"a filter that dropped nothing", Missing, [](Facts &f) { f.interfaces[1].reversePathFilter = 1; }, {}},
    {"no interface", Missing, [](Facts &f) { f.interfaces.resize(1); }, {Cause::NoInterface}},
    {"all are switched off",
     Missing,
     [](Facts &f) { f.interfaces[1].isUp = f.interfaces[2].isUp = false; },
     {Cause::NoInterface}},
    {"one has no address", Missing, [](Facts &f) { f.interfaces[1].address = 0; }, {Cause::InterfaceAddress}},
    {"one has no link",
     Missing,
     [](Facts &f) {
         f.interfaces[1].hasLink = false;
         f.interfaces[1].address = 0;
     },
     {Cause::InterfaceLink}},
    {"a firewall that dropped something",
     Missing,
     [](Facts &f) {
         f.firewall = "ufw";
         f.host.undelivered = 2;
     },
     {Cause::Firewall}},
    {"a firewall that dropped nothing", Missing, [](Facts &f) { f.firewall = "ufw"; }, {}},
    {"strays without a firewall", Missing, [](Facts &f) { f.host.undelivered = 2; }, {}},

    {"packets that this host throws away",
     NothingComes,
     [](Facts &f) { f.host.undelivered = 400; },
     {Cause::StreamBlocked}},
    {"too few of them for a stream", NothingComes, [](Facts &f) { f.host.undelivered = 4; }, {Cause::NoPackets}},
    {"the one picture it was told to take",
     NothingComes,
     [](Facts &f) {
         f.acquisitionMode = "SingleFrame";
         f.incompleteFrames = 1;
     },
     {Cause::AcquisitionEnded}},
    {"fewer pictures than it was told to take",
     NothingComes,
     [](Facts &f) {
         f.acquisitionMode = "MultiFrame";
         f.acquisitionFrameCount = 5;
         f.completeFrames = 3;
     },
     {Cause::NoPackets}},
    {"a trigger that comes every two seconds",
     NothingComes,
     [](Facts &f) {
         f.hasTrigger = true;
         f.longestPauseSeconds = 2;
     },
     {}},
    {"busy without a holder",
     [] { return NotOpen(OrvCam::DeviceState::Free); },
     [](Facts &f) { f.answersBusy = true; },
     {Cause::CameraBusy}},
    {"held, behind a router",
     [] { return NotOpen(OrvCam::DeviceState::Busy); },
     [](Facts &f) { f.camera.address = "192.168.5.20"; },
     {Cause::HeldByAnother}},
    {"losses before the camera fell silent", Incomplete, [](Facts &f) { f.isSilent = true; }, {Cause::CameraSilent}},
    {"a silent camera", NothingComes, [](Facts &f) { f.isSilent = true; }, {Cause::CameraSilent}},
    {"nothing arrives", NothingComes, [](Facts &) {}, {Cause::NoPackets}},
    {"packets arrive, and no frame comes of them",
     NothingComes,
     [](Facts &f) { f.stream.packets = f.stream.unusable = 10; },
     {Cause::UnusablePackets}},
    {"packets of a frame that takes its time",
     NothingComes,
     [](Facts &f) {
         f.stream.packets = 10;
         f.frameRateHz = 0.2;
     },
     {Cause::LongExposure}},

    {"pictures with holes", Incomplete, [](Facts &) {}, {Cause::PacketsLost}},
    {"one picture in five with holes",
     Healthy,
     [](Facts &f) { f.stream.incomplete = f.stream.missing = 60; },
     {Cause::PacketsLost}},
    {"one in ten thousand",
     Healthy,
     [](Facts &f) {
         f.stream.delivered = 10000;
         f.stream.incomplete = f.stream.missing = 1;
     },
     {}},
    {"packets lost and sent again", Healthy, [](Facts &f) { f.stream.requested = f.stream.resent = 5000; }, {}},

    {"black pictures", Healthy, [](Facts &f) { f.darkShare = 1; }, {Cause::Black}},
    {"a night sky", Healthy, [](Facts &f) { f.darkShare = 0.98; }, {}},
    {"white pictures",
     Healthy,
     [](Facts &f) {
         f.saturatedShare = 0.99;
         f.darkShare = 0;
     },
     {Cause::Saturated}},
    {"a bright background",
     Healthy,
     [](Facts &f) {
         f.saturatedShare = 0.9;
         f.darkShare = 0;
     },
     {}},
    {"levels of no picture",
     Healthy,
     [](Facts &f) {
         f.hasPicture = false;
         f.darkShare = f.saturatedShare = 1;
     },
     {}},
    {"black, before the stream broke",
     NothingComes,
     [](Facts &f) {
         f.hasPicture = true;
         f.darkShare = 1;
     },
     {Cause::NoPackets}},
};

TEST(Diagnosis, EachCauseIsNamedForItsFactsAndForNoOthers)
{
    for (const Case &row : kCases) {
        Facts facts = row.base();
        row.change(facts);
        std::vector<Cause> named;
        for (const orv::Diagnosis &diagnosis : orv::Diagnose(facts)) {
            named.push_back(diagnosis.cause);
            for (const std::string *text : {&diagnosis.finding, &diagnosis.remedy}) {
                EXPECT_THAT(*text, testing::EndsWith(".")) << row.rule;
                EXPECT_THAT(*text, Not(HasSubstr("  "))) << row.rule;
                EXPECT_THAT(*text, Not(HasSubstr(".."))) << row.rule;
            }
        }
        EXPECT_EQ(named, row.causes) << row.rule;
    }
}

TEST(Diagnosis, EveryCauseHasACaseAndANameOfItsOwn)
{
    std::set<std::string> names;
    for (int i = 0; i <= static_cast<int>(Cause::Saturated); ++i) {
        const Cause cause = static_cast<Cause>(i);
        EXPECT_TRUE(names.insert(orv::NameOf(cause)).second) << i;
        EXPECT_TRUE(std::any_of(std::begin(kCases), std::end(kCases), [&](const Case &row) {
            return std::find(row.causes.begin(), row.causes.end(), cause) != row.causes.end();
        })) << orv::NameOf(cause);
    }
    EXPECT_FALSE(names.count(""));
}

/// What a person reads: figures in the finding, and a command that cures exactly this.
struct TextCase {
    const char *rule;
    Facts (*base)();
    std::function<void(Facts &)> change;
    std::vector<const char *> said; ///< in finding or remedy
    const char *command;
    Cure cure;
    double value;
};

const TextCase kTexts[] = {
    {"who holds it, on this computer",
     [] { return NotOpen(OrvCam::DeviceState::Busy); },
     [](Facts &f) { f.camera.holder = "10.0.0.1:50123"; },
     {"on this computer", "10.0.0.1:50123"},
     "sudo ss -uanp 'sport = :50123'",
     Cure::None,
     0},
    {"who holds it, elsewhere",
     [] { return NotOpen(OrvCam::DeviceState::Busy); },
     [](Facts &f) { f.camera.holder = "10.0.0.9:50123"; },
     {"on another computer", "10.0.0.9:50123"},
     "",
     Cure::None,
     0},
    {"a holder's port that is none",
     [] { return NotOpen(OrvCam::DeviceState::Busy); },
     [](Facts &f) { f.camera.holder = "10.0.0.1:1; reboot"; },
     {"on this computer"},
     "",
     Cure::None,
     0},
    {"the address to set",
     [] { return NotOpen(OrvCam::DeviceState::Unreachable); },
     [](Facts &f) { f.camera.address = "192.168.5.20"; },
     {"192.168.5.20/24", "eth0 (10.0.0.1/24)", "10.0.0.20", "255.255.255.0"},
     "orvcam force-ip C1 10.0.0.20 255.255.255.0",
     Cure::SetAddress,
     0},
    {"a serial number that is a command",
     [] { return NotOpen(OrvCam::DeviceState::Unreachable); },
     [](Facts &f) {
         f.camera.address = "192.168.5.20";
         f.camera.serial = "$(reboot)'\n;reboot";
     },
     {"10.0.0.20"},
     "orvcam force-ip '$(reboot)'\\'' ;reboot' 10.0.0.20 255.255.255.0",
     Cure::SetAddress,
     0},
    {"the trigger's source",
     NothingComes,
     [](Facts &f) {
         f.hasTrigger = true;
         f.triggerSource = "Line1";
     },
     {"TriggerMode is On", "Line1", "3 s"},
     "",
     Cure::SwitchTriggerOff,
     0},
    {"the exposure and the time waited",
     NothingComes,
     [](Facts &f) { f.exposureUs = 12.5e6; },
     {"12.5 s", "3 s have passed"},
     "",
     Cure::ShortenExposure,
     20000},
    {"an automatic exposure has no button",
     NothingComes,
     [](Facts &f) {
         f.exposureUs = 12.5e6;
         f.exposureIsAuto = true;
     },
     {"12.5 s"},
     "",
     Cure::None,
     20000},
    {"packet and interface",
     Incomplete,
     [](Facts &f) { f.stream.packetSize = 9000; },
     {"9000", "eth0", "1500"},
     "sudo ip link set dev eth0 mtu 9000",
     Cure::ReducePacketSize,
     1500},
    {"the camera's packet size where the stream does not tell",
     Incomplete,
     [](Facts &f) {
         f.stream.packetSize = 0;
         f.packetSize = 8000;
     },
     {"8000", "eth0", "1500"},
     "sudo ip link set dev eth0 mtu 8000",
     Cure::ReducePacketSize,
     1500},
    {"packet and path",
     Incomplete,
     [](Facts &f) {
         f.stream.packets = 120;
         f.stream.fullPackets = 0;
         f.stream.packetSize = 8000;
         f.interfaces[1].mtu = 9000;
     },
     {"8000", "not one of the long ones"},
     "",
     Cure::ReducePacketSize,
     1500},
    {"a path narrower than Ethernet",
     Incomplete,
     [](Facts &f) { f.stream.fullPackets = 0; },
     {"1500"},
     "",
     Cure::ReducePacketSize,
     576},
    {"the buffer's figures",
     Incomplete,
     [](Facts &f) {
         f.stream.kernelDrops = 13000;
         f.stream.receiveBuffer = 425984;
         f.stream.wantedReceiveBuffer = 20000000;
     },
     {"at least 13000 packets", "425984", "20000000", "212992"},
     "sudo sysctl -w net.core.rmem_max=33554432",
     Cure::None,
     0},
    {"the filter",
     BetweenTwo,
     [](Facts &f) {
         f.interfaces[1].reversePathFilter = 1;
         f.host.filtered = 264;
     },
     {"264 packets", "eth0 (10.0.0.1/24)", "through eth1", "10.0.0.20", "tee -a /etc/sysctl.d"},
     "sudo sysctl -w net.ipv4.conf.eth0.rp_filter=2",
     Cure::None,
     0},
    {"the filter of a virtual network that nothing but off helps with",
     BetweenTwo,
     [](Facts &f) {
         f.interfaces[1].reversePathFilter = 2;
         f.interfaces[1].name = "eth0.5";
         f.reversePathFilterOfAll = 1;
         f.routeInterface = "";
         f.host.filtered = 264;
     },
     {"eth0.5", "no way to 10.0.0.20"},
     "sudo sysctl -w net.ipv4.conf.all.rp_filter=0 net.ipv4.conf.eth0/5.rp_filter=0",
     Cure::None,
     0},
    {"both interfaces",
     BetweenTwo,
     [](Facts &) {},
     {"eth0 (10.0.0.1/24)", "eth1 (10.0.0.2/24)"},
     "sudo ip address del 10.0.0.2/24 dev eth1",
     Cure::None,
     0},
    {"the other one leads to the rest of the world",
     BetweenTwo,
     [](Facts &f) { f.interfaces.back().hasDefaultRoute = true; },
     {"Give eth0 and the camera addresses", "eth1 carries"},
     "",
     Cure::None,
     0},
    {"an address where there is none",
     Missing,
     [](Facts &f) { f.interfaces[1].address = 0; },
     {"eth0", "until a restart"},
     "sudo ip address add 169.254.1.1/16 dev eth0",
     Cure::None,
     0},
    {"an address that another camera has",
     [] { return NotOpen(OrvCam::DeviceState::Unreachable); },
     [](Facts &f) {
         f.camera.address = "192.168.5.20";
         f.takenAddresses = {0x0A000014};
     },
     {"10.0.0.21"},
     "orvcam force-ip C1 10.0.0.21 255.255.255.0",
     Cure::SetAddress,
     0},
    {"pictures by number",
     NothingComes,
     [](Facts &f) {
         f.acquisitionMode = "MultiFrame";
         f.acquisitionFrameCount = f.completeFrames = 5;
     },
     {"5 pictures", "MultiFrame"},
     "",
     Cure::TakeContinuously,
     0},
    {"silence", NothingComes, [](Facts &f) { f.isSilent = true; }, {"10.0.0.20"}, "ping -c 3 10.0.0.20", Cure::None, 0},
    {"nothing comes",
     NothingComes,
     [](Facts &) {},
     {"3 s", "through eth0 meanwhile were 25 packets (2.84 kB)", "sends nothing"},
     "",
     Cure::None,
     0},
    {"a firewall that nobody knows",
     NothingComes,
     [](Facts &f) { f.host.undelivered = 400; },
     {"400 packets", "as a firewall does", "10.0.0.20"},
     "sudo nft list ruleset",
     Cure::None,
     0},
    {"a firewall by its own tool",
     NothingComes,
     [](Facts &f) {
         f.host.undelivered = 400;
         f.firewall = "ufw";
     },
     {"ufw is switched on"},
     "sudo ufw allow proto udp from 10.0.0.20",
     Cure::None,
     0},
    {"one whose rules are in a file",
     NothingComes,
     [](Facts &f) {
         f.host.undelivered = 400;
         f.firewall = "nftables";
         f.firewallChain = "inet filter input";
     },
     {"/etc/nftables.conf"},
     "sudo nft insert rule inet filter input ip saddr 10.0.0.20 udp sport 1-65535 accept",
     Cure::None,
     0},
    {"one with zones",
     NothingComes,
     [](Facts &f) {
         f.host.undelivered = 400;
         f.firewall = "firewalld";
     },
     {"--permanent"},
     "sudo firewall-cmd --zone=$(sudo firewall-cmd --get-zone-of-interface=eth0 2>/dev/null || sudo firewall-cmd "
     "--get-default-zone) --add-rich-rule='rule family=ipv4 source address=10.0.0.20 protocol value=udp accept'",
     Cure::None,
     0},
    {"one that keeps answers off",
     Missing,
     [](Facts &f) {
         f.host.undelivered = 2;
         f.firewall = "iptables";
     },
     {"2 packets", "may be", "netfilter-persistent save"},
     "sudo iptables -I INPUT -p udp --sport 3956 -j ACCEPT",
     Cure::None,
     0},
    {"lost packets",
     Incomplete,
     [](Facts &) {},
     {"60 of 60 pictures", "in 10 s", "13200", "14000 packets were asked", "800"},
     "",
     Cure::None,
     0},
    {"lost packets, hardly any of them by this computer",
     Incomplete,
     [](Facts &f) { f.stream.kernelDrops = 1; },
     {"Check cables"},
     "",
     Cure::None,
     0},
    {"black, with the settings",
     Healthy,
     [](Facts &f) {
         f.darkShare = 0.9996;
         f.exposureUs = 20;
     },
     {"99.9 %", "20 µs", "gain 0"},
     "",
     Cure::LengthenExposure,
     10000},
    {"white, with the settings",
     Healthy,
     [](Facts &f) {
         f.saturatedShare = 1;
         f.exposureUs = 80000;
     },
     {"100 %", "80 ms"},
     "",
     Cure::ShortenExposure,
     20000},
    {"white with an automatic exposure",
     Healthy,
     [](Facts &f) {
         f.saturatedShare = 1;
         f.exposureIsAuto = true;
     },
     {"100 %", "lens"},
     "",
     Cure::None,
     0},
};

TEST(Diagnosis, FiguresCommandsAndCures)
{
    for (const TextCase &row : kTexts) {
        Facts facts = row.base();
        row.change(facts);
        const std::vector<orv::Diagnosis> found = orv::Diagnose(facts);
        ASSERT_FALSE(found.empty()) << row.rule;
        const orv::Diagnosis &first = found.front();
        for (const char *words : row.said)
            EXPECT_THAT(first.finding + " " + first.remedy + " " + first.lasting, HasSubstr(words)) << row.rule;
        EXPECT_EQ(first.command, row.command) << row.rule;
        EXPECT_EQ(first.cure, row.cure) << row.rule;
        EXPECT_DOUBLE_EQ(first.value, row.value) << row.rule;
    }
}

TEST(Diagnosis, ASoftwareTriggerCanBeGivenAtOnce)
{
    Facts facts = NothingComes();
    facts.hasTrigger = true;
    facts.triggerSource = "Software";
    const orv::Diagnosis found = orv::Diagnose(facts).at(0);
    EXPECT_EQ(found.cure, Cure::SwitchTriggerOff);
    EXPECT_EQ(found.otherCure, Cure::TriggerOnce);
    EXPECT_THAT(found.remedy, HasSubstr("TriggerSoftware"));
}

TEST(Diagnosis, OnlyWhatNobodyWantedIsAFault)
{
    for (int i = 0; i <= static_cast<int>(Cause::Saturated); ++i) {
        const Cause cause = static_cast<Cause>(i);
        const bool isCalm = cause == Cause::WaitsForTrigger || cause == Cause::LongExposure || cause == Cause::Black ||
                            cause == Cause::Saturated || cause == Cause::AcquisitionEnded ||
                            cause == Cause::InterfaceLink;
        EXPECT_EQ(orv::IsFault(cause), !isCalm) << orv::NameOf(cause);
    }
}

TEST(Diagnosis, CountsOfAPartOfTheTime)
{
    OrvCam::StreamStatistics before, now;
    before.delivered = 1000;
    before.packets = 5;
    now.delivered = 1010;
    now.packets = 2; // a stream that was started anew meanwhile
    now.receiveBuffer = before.receiveBuffer = 4096;
    const OrvCam::StreamStatistics since = orv::Since(before, now);
    EXPECT_EQ(since.delivered, 10U);
    EXPECT_EQ(since.packets, 0U);
    EXPECT_EQ(since.receiveBuffer, 4096U) << "a size is no count";
}

} // namespace
