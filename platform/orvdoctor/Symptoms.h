#pragma once

#include "orvdoctor/Diagnosis.h"

#include <optional>

/// What several rules ask of the facts.
namespace orv {

/// Streams and has shown nothing for longer than anybody should wait for the first frame.
bool IsWithoutFrames(const Facts &facts);
/// Seconds from one picture to the next by exposure and frame rate; 0 when not known.
double PicturePeriodSeconds(const Facts &facts);
/// The settings account for so long a time without a picture; by default for the present one.
bool IsWithinPicturePeriod(const Facts &facts, double pauseSeconds);
bool IsWithinPicturePeriod(const Facts &facts);
/// No stream packet came where some should have come.
bool LacksPackets(const Facts &facts);
/// Of the stream's packets, as agreed or else as the camera is set; 0 when not known.
std::uint64_t PacketSize(const Facts &facts);
/// Frames come, and none of them complete.
bool HasOnlyIncompleteFrames(const Facts &facts);
/// What came in at an interface in the time that is judged; null when not known.
const HostCounts::Arrived *ArrivedAt(const Facts &facts, const std::string &interface);
/// At least as much came in there as a stream at an eighth of its speed: a link may be slower than the settings.
bool MayCarryStream(const Facts &facts, const std::string &interface);
/// This host threw away, for other reasons than its reverse-path filter, as many packets as the stream may have.
bool ThrowsStreamAway(const Facts &facts);
/// Of every frame just the short packets at its ends come.
bool LosesAllLongPackets(const Facts &facts);

/// The two interfaces whose subnets both hold the camera's address; the camera's own second. Of a camera that is
/// missing, any two whose subnets overlap. Null where there are none.
struct Twins {
    const HostInterfaceFacts *other = nullptr;
    const HostInterfaceFacts *cameras = nullptr;
};
Twins FindTwins(const Facts &facts);

using Finding = std::optional<Diagnosis>;

/// "net.core.rmem_max=16777216" and the like: for now, and for good.
void SetSysctl(Diagnosis &diagnosis, const std::vector<std::string> &settings);
/// "eth0 (10.0.0.1/24)"
std::string InterfaceText(const HostInterfaceFacts &interface);

// The rules: each names its cause when the facts show it. ConnectionRules.cpp
Finding FindHolder(const Facts &facts);
Finding FindForeignSubnet(const Facts &facts);
Finding FindBusyAnswers(const Facts &facts);
Finding FindUnusableDescription(const Facts &facts);
Finding FindSilence(const Facts &facts);
// HostRules.cpp
Finding FindReversePathFilter(const Facts &facts);
Finding FindTwoInterfaces(const Facts &facts);
Finding FindBlockedStream(const Facts &facts);
Finding FindNoPackets(const Facts &facts);
// SearchRules.cpp
Finding FindNoInterface(const Facts &facts);
Finding FindInterfaceAddress(const Facts &facts);
Finding FindInterfaceLink(const Facts &facts);
Finding FindSearchFailure(const Facts &facts);
Finding FindFirewall(const Facts &facts);
// StreamRules.cpp
Finding FindTrigger(const Facts &facts);
Finding FindEndedAcquisition(const Facts &facts);
Finding FindLongExposure(const Facts &facts);
Finding FindLargePackets(const Facts &facts);
Finding FindSmallBuffer(const Facts &facts);
Finding FindNoBuffers(const Facts &facts);
Finding FindLostPackets(const Facts &facts);
Finding FindInterruption(const Facts &facts);
Finding FindUnusablePackets(const Facts &facts);
Finding FindBlack(const Facts &facts);
Finding FindSaturated(const Facts &facts);

} // namespace orv
