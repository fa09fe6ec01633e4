#include "DiagnosisFacts.h"

#include <gmock/gmock.h>

#include <set>
#include <string>

namespace {

using namespace doctor;
using orv::Cause;
using OrvCam::DeviceState;
using testing::HasSubstr;
using testing::Not;

struct Case {
    const char *rule;
    Facts facts;
    std::string causes; ///< the names of all that must be found, in this order
};

/// What camera and network were told to do is no fault.
const std::set<std::string> kCalm = {"waits-for-trigger", "long-exposure",         "acquisition-ended", "black",
                                     "saturated",         "interface-without-link"};

const Change kTwin = AddTwin;
const Change kTrigger = Set(&Facts::hasTrigger, true);
const Change kOutage = Set(&Facts::longestPauseSeconds, 3.5);
const Change kSilent = Set(&Facts::isSilent, true);
const Change kLargePackets = Set(&Stream::packetSize, 9000);
const Change kSmallBuffer = Set(&Stream::receiveBuffer, 425984);
const Change kElsewhere = Set(&Camera::address, "192.168.5.20");
const Change kStrictFilter = Set(&Interface::reversePathFilter, 1);
const Change kStreamOnEth1 = [](Facts &facts) { facts.host.arrived[3] = {"eth1", 20000, 30U << 20}; };
const Change kStreamOnEth0 = Set(&Host::arrived, Healthy().host.arrived);
const Change kForbidden =
    Set(&Facts::searchFailures, std::vector<orv::SearchFailure>{{"eth0 (10.0.0.1)", "Operation not permitted"}});
const Change kFirewall = Set(&Facts::firewall, "ufw");

/// A few packets, and none at any other interface.
Change ArrivedAt(const char *interface)
{
    return Set(&Host::arrived, std::vector<Host::Arrived>{{interface, 4, 240}});
}

const Case kOfConnection[] = {
    {"a healthy camera", Healthy(), ""},
    {"nothing known at all", Facts(), ""},
    {"a free camera", Free(), ""},
    {"one that is reached through a router", Healthy({kElsewhere}), ""},
    {"one without an address", Free({Set(&Camera::address, "")}), ""},
    {"held by somebody", Free({Set(&Camera::state, DeviceState::Busy)}), "held-by-another"},
    {"to be looked at only", Free({Set(&Camera::state, DeviceState::ReadOnly)}), "held-by-another"},
    {"held, behind a router", Free({Set(&Camera::state, DeviceState::Busy), kElsewhere}), "held-by-another"},
    {"held by this program", Free({Set(&Camera::state, DeviceState::OpenHere), Set(&Camera::holder, "10.0.0.1:4000")}),
     ""},
    {"busy without a holder", Free({Set(&Facts::answersBusy, true)}), "camera-busy"},
    {"in another subnet", Foreign(), "foreign-subnet"},
    {"told by no producer", Foreign({Set(&Camera::state, DeviceState::Unknown)}), "foreign-subnet"},
    {"in the subnet of an interface that is down",
     Free({Set(&Camera::state, DeviceState::Unknown), Set(&Interface::isUp, false)}), "foreign-subnet"},
    {"a silent camera", NothingComes({kSilent}), "camera-silent"},
    {"its trigger is history", NothingComes({kSilent, kTrigger}), "camera-silent"},
    {"so are losses before it fell silent", Incomplete({kSilent}), "camera-silent"},
    {"a description that cannot be used", Free({Set(&Facts::descriptionProblem, "It ends in line 3")}),
     "description-unusable"},
};

const Case kOfSearch[] = {
    {"none is found, and nothing is known why", Missing(), ""},
    {"the answers were filtered", Missing({Set(&Interface::reversePathFilter, 2), Set(&Host::filtered, 3)}),
     "reverse-path-filter"},
    {"they were, between two interfaces", Missing({kTwin, kStrictFilter, Set(&Host::filtered, 3)}),
     "reverse-path-filter two-interfaces-in-one-subnet"},
    {"the kernel counts nothing beside a strict filter, and something came in there",
     Missing({kTwin, kStrictFilter, ArrivedAt("eth0")}), "reverse-path-filter"},
    {"nothing came in there", Missing({kTwin, kStrictFilter, ArrivedAt("eth1")}), ""},
    {"a filter that dropped nothing", Missing({kStrictFilter}), ""},
    {"no interface", Missing({[](Facts &f) { f.interfaces.resize(1); }}), "no-interface"},
    {"all are switched off", Missing({[](Facts &f) { f.interfaces[1].isUp = f.interfaces[2].isUp = false; }}),
     "no-interface"},
    {"one has no address", Missing({Set(&Interface::address, 0)}), "interface-without-address"},
    {"nor a link", Missing({Set(&Interface::address, 0), Set(&Interface::hasLink, false)}), "interface-without-link"},
    {"the search was forbidden", Missing({kForbidden}), "search-not-sent"},
    {"it was, of a tunnel", Missing({kForbidden, Set(&Interface::isPointToPoint, true)}), ""},
    {"a firewall that dropped something", Missing({kFirewall, Set(&Host::undelivered, 2)}), "firewall"},
    {"a firewall that dropped nothing", Missing({kFirewall}), ""},
    {"a firewall that others are found behind",
     Missing({kFirewall, Set(&Host::undelivered, 2), Set(&Facts::othersAreFound, true)}), "firewall"},
    {"strays without a firewall", Missing({Set(&Host::undelivered, 2)}), ""},
};

const Case kOfHost[] = {
    {"nothing arrives", NothingComes(), "no-packets"},
    {"just started", NothingComes({Set(&Facts::secondsSinceFrame, 0.5), Set(&Facts::streamingSeconds, 0.5)}), ""},
    {"does not stream", NothingComes({Set(&Facts::isStreaming, false)}), ""},
    {"packets that this host throws away", NothingComes({kStreamOnEth0, Set(&Host::undelivered, 400)}),
     "stream-blocked"},
    {"too few of them for a stream", NothingComes({kStreamOnEth0, Set(&Host::undelivered, 4)}), "no-packets"},
    {"packets that came in where the camera is not", NothingComes({kStreamOnEth1, Set(&Host::undelivered, 400)}),
     "no-packets"},
    {"those of the way to the camera",
     NothingComes({kStreamOnEth1, Set(&Facts::routeInterface, "eth1"), Set(&Host::undelivered, 400)}),
     "stream-blocked"},
    {"the way leads through the other interface", BetweenTwo(), "two-interfaces-in-one-subnet no-packets"},
    {"the stream comes in through the other one", BetweenTwo({Set(&Facts::routeInterface, "eth0"), kStreamOnEth1}),
     "two-interfaces-in-one-subnet no-packets"},
    {"two interfaces that do no harm", BetweenTwo({Set(&Facts::routeInterface, "eth0")}), "no-packets"},
    {"a silent camera between them", BetweenTwo({kSilent}), "two-interfaces-in-one-subnet camera-silent"},
    {"two interfaces and pictures", Healthy({kTwin}), ""},
    {"the second one is down", BetweenTwo({[](Facts &f) { f.interfaces.back().isUp = false; }}), "no-packets"},
    {"two addresses of one", BetweenTwo({[](Facts &f) { f.interfaces.back().name = "eth0"; }}), "no-packets"},
    {"a strict filter that dropped packets", BetweenTwo({kStrictFilter, Set(&Host::filtered, 50)}),
     "reverse-path-filter two-interfaces-in-one-subnet"},
    {"one that dropped nothing", BetweenTwo({kStrictFilter}), "two-interfaces-in-one-subnet no-packets"},
    {"one that dropped what is not the camera's", NothingComes({kStrictFilter, Set(&Host::filtered, 50)}),
     "no-packets"},
    {"a loose filter and a camera without a way to it",
     NothingComes({kElsewhere, Set(&Interface::reversePathFilter, 2), Set(&Facts::routeInterface, ""),
                   Set(&Host::filtered, 50)}),
     "reverse-path-filter"},
};

const Case kOfSettings[] = {
    {"waits for a trigger", NothingComes({kTrigger}), "waits-for-trigger"},
    {"a trigger that comes often", Healthy({kTrigger}), ""},
    {"one every two seconds", NothingComes({kTrigger, Set(&Facts::usualPauseSeconds, 2)}), ""},
    {"one that was late once", Healthy({kTrigger, kOutage}), ""},
    {"a trigger, and pictures with holes", Incomplete({kTrigger}), "packets-lost"},
    {"a long exposure", NothingComes({Set(&Facts::exposureUs, 10e6), Set(&Facts::frameRateHz, 0.1)}), "long-exposure"},
    {"a low frame rate", NothingComes({Set(&Facts::frameRateHz, 0.2)}), "long-exposure"},
    {"packets of a frame that takes its time", NothingComes({Set(&Facts::frameRateHz, 0.2), Set(&Stream::packets, 10)}),
     "long-exposure"},
    {"an exposure that must be over", NothingComes({Set(&Facts::exposureUs, 1e6), Set(&Facts::frameRateHz, 1)}),
     "no-packets"},
    {"one that brings its pictures", Healthy({Set(&Facts::exposureUs, 0.9e6)}), ""},
    {"one behind a trigger", NothingComes({kTrigger, Set(&Facts::exposureUs, 10e6)}), "waits-for-trigger"},
    {"the one picture it was told to take",
     NothingComes({Set(&Facts::acquisitionMode, "SingleFrame"), Set(&Facts::incompleteFrames, 1)}),
     "acquisition-ended"},
    {"fewer than it was told to take",
     NothingComes({Set(&Facts::acquisitionMode, "MultiFrame"), Set(&Facts::acquisitionFrameCount, 5),
                   Set(&Facts::completeFrames, 3)}),
     "no-packets"},
    {"black pictures", Healthy({Set(&Facts::darkShare, 1)}), "black"},
    {"a night sky", Healthy({Set(&Facts::darkShare, 0.98)}), ""},
    {"white pictures", Healthy({Set(&Facts::saturatedShare, 0.99)}), "saturated"},
    {"a bright background", Healthy({Set(&Facts::saturatedShare, 0.9)}), ""},
    {"levels of no picture", Healthy({Set(&Facts::hasPicture, false), Set(&Facts::darkShare, 1)}), ""},
    {"black, before the stream broke", NothingComes({Set(&Facts::hasPicture, true), Set(&Facts::darkShare, 1)}),
     "no-packets"},
};

const Case kOfStream[] = {
    {"packets above the interface's size", Incomplete({kLargePackets}), "packets-too-large"},
    {"of which nothing is left", NothingComes({kLargePackets}), "packets-too-large no-packets"},
    {"of late", Healthy({kLargePackets, Set(&Stream::incomplete, 70)}), "packets-too-large"},
    {"that the interface takes all the same", Healthy({kLargePackets}), ""},
    {"above the path's size: only leaders and trailers come, also asked for again",
     Incomplete({Set(&Stream::delivered, 20), Set(&Stream::incomplete, 20), Set(&Stream::started, 22),
                 Set(&Stream::packets, 64 + 5568), Set(&Stream::refused, 5568), Set(&Stream::fullPackets, 0),
                 Set(&Interface::mtu, 0)}),
     "packets-too-large"},
    {"pictures so small that they have few packets",
     Incomplete({Set(&Facts::payloadSize, 4000), Set(&Stream::packets, 120), Set(&Stream::fullPackets, 0),
                 Set(&Stream::missing, 180)}),
     "packets-lost"},
    {"a small socket buffer that ran over", Incomplete({kSmallBuffer, Set(&Stream::kernelDrops, 13000)}),
     "socket-buffer-small"},
    {"by batches", Incomplete({kSmallBuffer, Set(&Stream::kernelDrops, 700)}), "socket-buffer-small"},
    {"by a few, while the network lost most", Incomplete({kSmallBuffer, Set(&Stream::kernelDrops, 13)}),
     "socket-buffer-small packets-lost"},
    {"that never ran over", Healthy({kSmallBuffer}), ""},
    {"and every packet came again", Healthy({kSmallBuffer, Set(&Stream::kernelDrops, 10)}), ""},
    {"a large one that ran over: a busy computer", Incomplete({Set(&Stream::kernelDrops, 13000)}), "packets-lost"},
    {"no free buffers", Healthy({Set(&Stream::underruns, 40), Set(&Stream::delivered, 260)}), "no-buffers"},
    {"one frame in all the time without one", Healthy({Set(&Stream::underruns, 1)}), ""},
    {"packets arrive, and no frame comes of them",
     NothingComes({Set(&Stream::packets, 10), Set(&Stream::unusable, 10)}), "unusable-packets"},
    {"pictures with holes", Incomplete(), "packets-lost"},
    {"one picture in five with holes", Healthy({Set(&Stream::incomplete, 60), Set(&Stream::missing, 60)}),
     "packets-lost"},
    {"pictures lost as a whole", Healthy({Set(&Stream::missed, 40)}), "packets-lost"},
    {"in a small socket buffer", Healthy({kSmallBuffer, Set(&Stream::missed, 40), Set(&Stream::kernelDrops, 40)}),
     "socket-buffer-small"},
    {"one in ten thousand, and one of them as a whole",
     Healthy({Set(&Stream::delivered, 10000), Set(&Stream::missed, 1)}), ""},
    {"one in ten thousand",
     Healthy({Set(&Stream::delivered, 10000), Set(&Stream::incomplete, 1), Set(&Stream::missing, 1)}), ""},
    {"an outage", Healthy({kOutage}), "stream-interrupted"},
    {"one as long as pauses are", Healthy({kOutage, Set(&Facts::usualPauseSeconds, 3)}), ""},
    {"the only pause there was", Healthy({kOutage, Set(&Facts::usualPauseSeconds, 0)}), ""},
    {"as long as the camera exposes", Healthy({kOutage, Set(&Facts::exposureUs, 3e6)}), ""},
    {"an outage, and another that lasts", NothingComes({kOutage, Set(&Facts::usualPauseSeconds, 0.03)}),
     "no-packets stream-interrupted"},
    {"packets lost and sent again", Healthy({Set(&Stream::requested, 5000), Set(&Stream::resent, 5000)}), ""},
};

template <std::size_t Count> void Check(const Case (&table)[Count], std::set<Cause> *everNamed)
{
    for (const Case &row : table) {
        SCOPED_TRACE(row.rule);
        std::string named;
        for (const orv::Diagnosis &diagnosis : orv::Diagnose(row.facts)) {
            const std::string name = orv::NameOf(diagnosis.cause);
            named += (named.empty() ? "" : " ") + name;
            EXPECT_EQ(diagnosis.isFault, kCalm.count(name) == 0 && !row.facts.othersAreFound) << name;
            for (const std::string &text : {diagnosis.finding, diagnosis.remedy})
                EXPECT_THAT(text, AllOf(testing::EndsWith("."), Not(HasSubstr("  ")), Not(HasSubstr(".."))));
            everNamed->insert(diagnosis.cause);
        }
        EXPECT_EQ(named, row.causes);
    }
}

TEST(Causes, EachIsNamedForItsFactsAndForNoOthers)
{
    std::set<Cause> named;
    Check(kOfConnection, &named);
    Check(kOfSearch, &named);
    Check(kOfHost, &named);
    Check(kOfSettings, &named);
    Check(kOfStream, &named);
    EXPECT_EQ(named.size(), static_cast<std::size_t>(Cause::Saturated) + 1) << "a cause without a case";
}

} // namespace
