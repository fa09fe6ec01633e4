#include "orvdoctor/Symptoms.h"

#include "orvdoctor/Addresses.h"

#include <algorithm>

namespace orv {
namespace {

constexpr std::uint64_t kPacketOverhead = 36; ///< bytes of headers in a packet, GigE Vision's short form
/// Camera clocks are not exact, reading out and sending take their time.
constexpr double kPeriodSlack = 1.2;
constexpr double kReadOutSeconds = 0.5;

} // namespace

bool IsWithoutFrames(const Facts &facts)
{
    return facts.isOpen && facts.isStreaming && facts.secondsSinceFrame >= kPatienceSeconds;
}

double PicturePeriodSeconds(const Facts &facts)
{
    const double byRate = facts.frameRateHz > 0 ? 1 / facts.frameRateHz : 0;
    return std::max(facts.exposureUs / 1e6, byRate);
}

bool IsWithinPicturePeriod(const Facts &facts)
{
    const double period = PicturePeriodSeconds(facts);
    return period >= kPatienceSeconds / 2 && facts.secondsSinceFrame < period * kPeriodSlack + kReadOutSeconds;
}

bool LacksPackets(const Facts &facts)
{
    return IsWithoutFrames(facts) && facts.stream.packets == 0 && !facts.hasTrigger && !facts.isSilent &&
           !IsWithinPicturePeriod(facts);
}

bool HasOnlyIncompleteFrames(const Facts &facts)
{
    return facts.isStreaming && facts.stream.incomplete > 0 && facts.stream.incomplete >= facts.stream.delivered;
}

bool LosesAllLongPackets(const Facts &facts)
{
    constexpr std::uint64_t kShortPerFrame = 3; // leader, trailer and a short last one
    const OrvCam::StreamStatistics &stream = facts.stream;
    if (!HasOnlyIncompleteFrames(facts) || stream.packetSize <= kPacketOverhead)
        return false;
    const std::uint64_t perFrame = facts.payloadSize / (stream.packetSize - kPacketOverhead);
    return perFrame > 2 * kShortPerFrame && stream.packets <= kShortPerFrame * stream.delivered;
}

Twins FindTwins(const Facts &facts)
{
    const auto address = ParseIpv4(facts.camera.address);
    const HostInterfaceFacts *const cameras = InterfaceOf(facts.camera, facts.interfaces);
    const auto holdsIt = [&](const HostInterfaceFacts &interface) {
        return interface.isUp && interface.subnetMask != 0 &&
               IsInSubnet(*address, interface.address, interface.subnetMask);
    };
    if (!address || !cameras || !holdsIt(*cameras))
        return {};
    for (const HostInterfaceFacts &interface : facts.interfaces)
        if (interface.name != cameras->name && holdsIt(interface))
            return {&interface, cameras};
    return {};
}

OrvCam::StreamStatistics Since(const OrvCam::StreamStatistics &before, const OrvCam::StreamStatistics &now)
{
    using Counter = std::uint64_t OrvCam::StreamStatistics::*;
    constexpr Counter kCounters[] = {
        &OrvCam::StreamStatistics::delivered,      &OrvCam::StreamStatistics::incomplete,
        &OrvCam::StreamStatistics::underruns,      &OrvCam::StreamStatistics::started,
        &OrvCam::StreamStatistics::packets,        &OrvCam::StreamStatistics::requested,
        &OrvCam::StreamStatistics::resent,         &OrvCam::StreamStatistics::missing,
        &OrvCam::StreamStatistics::duplicates,     &OrvCam::StreamStatistics::late,
        &OrvCam::StreamStatistics::refused,        &OrvCam::StreamStatistics::unusable,
        &OrvCam::StreamStatistics::oversized,      &OrvCam::StreamStatistics::kernelDrops,
        &OrvCam::StreamStatistics::fullPackets,    &OrvCam::StreamStatistics::withoutBuffer,
        &OrvCam::StreamStatistics::droppedByCamera};
    OrvCam::StreamStatistics difference = now;
    for (const Counter counter : kCounters)
        difference.*counter -= std::min(before.*counter, now.*counter); // a restarted count begins at 0
    return difference;
}

} // namespace orv
