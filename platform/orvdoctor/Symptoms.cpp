#include "orvdoctor/Symptoms.h"

#include "orvdoctor/Addresses.h"

#include <algorithm>

namespace orv {
namespace {

constexpr std::uint64_t kPacketOverhead = 36; ///< bytes of headers in a packet, GigE Vision's short form
/// Camera clocks are not exact, reading out and sending take their time.
constexpr double kPeriodSlack = 1.2;
constexpr double kReadOutSeconds = 0.5;
constexpr double kLongPatienceSeconds = 10;
constexpr double kPausesOfPatience = 3;
/// Settings may ask for more than the link carries.
constexpr double kSlowestShare = 0.125;

/// That the camera should have sent at least in the time that is judged.
double LeastBytes(const Facts &facts)
{
    const double pictures = facts.frameRateHz * facts.countedSeconds * kSlowestShare;
    return static_cast<double>(facts.payloadSize) * std::max(1.0, pictures);
}

} // namespace

double PatienceSeconds(double usualPauseSeconds)
{
    const double next = usualPauseSeconds * kPeriodSlack + kReadOutSeconds;
    const double most = std::max(kLongPatienceSeconds, next);
    return std::max(kPatienceSeconds, std::min(most, kPausesOfPatience * usualPauseSeconds));
}

bool IsWithoutFrames(const Facts &facts)
{
    return facts.isOpen && facts.isStreaming && facts.secondsSinceFrame >= PatienceSeconds(facts.usualPauseSeconds);
}

double PicturePeriodSeconds(const Facts &facts)
{
    const double byRate = facts.frameRateHz > 0 ? 1 / facts.frameRateHz : 0;
    return std::max(facts.exposureUs / 1e6, byRate);
}

bool IsWithinPicturePeriod(const Facts &facts, double pauseSeconds)
{
    const double period = PicturePeriodSeconds(facts);
    return period >= kPatienceSeconds / 2 && pauseSeconds < period * kPeriodSlack + kReadOutSeconds;
}

bool IsWithinPicturePeriod(const Facts &facts)
{
    return IsWithinPicturePeriod(facts, facts.secondsSinceFrame);
}

bool LacksPackets(const Facts &facts)
{
    return IsWithoutFrames(facts) && facts.stream.packets == 0 && !facts.hasTrigger && !facts.isSilent &&
           !IsWithinPicturePeriod(facts) && !FindEndedAcquisition(facts);
}

std::uint64_t PacketSize(const Facts &facts)
{
    return facts.stream.packetSize != 0 ? facts.stream.packetSize : facts.packetSize;
}

bool HasOnlyIncompleteFrames(const Facts &facts)
{
    return facts.isStreaming && facts.stream.incomplete > 0 && facts.stream.incomplete >= facts.stream.delivered;
}

const HostCounts::Arrived *ArrivedAt(const Facts &facts, const std::string &interface)
{
    const auto &all = facts.host.arrived;
    const auto found = std::find_if(all.begin(), all.end(), [&](const auto &one) { return one.name == interface; });
    return found == all.end() || !facts.host.areKnown ? nullptr : &*found;
}

bool MayCarryStream(const Facts &facts, const std::string &interface)
{
    const HostCounts::Arrived *const arrived = ArrivedAt(facts, interface);
    return arrived && facts.payloadSize > 0 && static_cast<double>(arrived->bytes) >= LeastBytes(facts);
}

bool ThrowsStreamAway(const Facts &facts)
{
    constexpr double kLargestPacket = 65536; // that the kernel makes of several before it counts
    constexpr double kStrays = 5;
    return facts.host.areKnown && facts.payloadSize > 0 &&
           static_cast<double>(facts.host.undelivered) >= std::max(kStrays, LeastBytes(facts) / kLargestPacket);
}

bool LosesAllLongPackets(const Facts &facts)
{
    constexpr std::uint64_t kShortPerFrame = 3; // leader, trailer and a short last one
    const OrvCam::StreamStatistics &stream = facts.stream;
    const std::uint64_t packetSize = PacketSize(facts);
    if (!HasOnlyIncompleteFrames(facts) || packetSize <= kPacketOverhead)
        return false;
    const std::uint64_t perFrame = facts.payloadSize / (packetSize - kPacketOverhead);
    return perFrame > 2 * kShortPerFrame && stream.packets > 0 && stream.fullPackets == 0;
}

Twins FindTwins(const Facts &facts)
{
    const auto isUsed = [](const HostInterfaceFacts &one) { return one.isUp && one.address != 0 && !one.isLoopback; };
    const auto overlap = [&](const HostInterfaceFacts &a, const HostInterfaceFacts &b) {
        return a.name != b.name && isUsed(a) && isUsed(b) &&
               IsInSubnet(a.address, b.address, a.subnetMask & b.subnetMask);
    };
    const auto address = ParseIpv4(facts.camera.address);
    const HostInterfaceFacts *const cameras = InterfaceOf(facts.camera, facts.interfaces);
    for (const HostInterfaceFacts &own : facts.interfaces) {
        if (!facts.isMissing && (!address || &own != cameras || !IsInSubnet(*address, own.address, own.subnetMask)))
            continue;
        for (const HostInterfaceFacts &other : facts.interfaces)
            if (overlap(own, other) && (facts.isMissing || IsInSubnet(*address, other.address, other.subnetMask)))
                return {&other, &own};
    }
    return {};
}

OrvCam::StreamStatistics Since(const OrvCam::StreamStatistics &before, const OrvCam::StreamStatistics &now)
{
    OrvCam::StreamStatistics difference = now;
    for (const OrvCam::NamedFigure &figure : OrvCam::NamedFigures())
        if (figure.isCount) // a restarted count begins at 0
            difference.*figure.member -= std::min(before.*figure.member, now.*figure.member);
    return difference;
}

} // namespace orv
