#pragma once

#include "orvdoctor/Facts.h"

#include <functional>
#include <optional>
#include <string>
#include <vector>

/// "Why is there no picture?" Facts of camera, stream and host, and what follows from them.
///
/// Diagnose() is pure arithmetic on facts; Gather...() ask camera and host. No Qt. Any thread.
namespace orv {

enum class Cause {
    ForeignSubnet,  ///< the camera's address fits none of the host's interfaces
    HeldByAnother,  ///< another program controls it
    CameraBusy,     ///< it answers that it is busy, though nobody controls it
    BadDescription, ///< what tells of its features is missing, or cannot be read
    CameraSilent,   ///< no answer on the control channel
    WaitsForTrigger,
    AcquisitionEnded,  ///< it was told to take so many pictures only
    LongExposure,      ///< longer than has been waited
    StreamBlocked,     ///< stream packets reach this host and are thrown away in it: a firewall, mostly
    NoPackets,         ///< control works, no stream packet arrives
    ReversePathFilter, ///< the kernel drops what comes from an address that it would not answer that way
    TwoInterfacesInOneSubnet,
    PacketsTooLarge,   ///< packet size above what the path carries
    SocketBufferSmall, ///< packets lost in this host, with a buffer smaller than asked
    StreamInterrupted, ///< frames stopped to come for a while, and came again
    PacketsLost,       ///< frames stay incomplete, packets are missing on the way
    NoBuffers,         ///< frames lost since the program was slow to give buffers back
    UnusablePackets,   ///< packets arrive, no frame comes of them
    // of a camera that is not found
    NoInterface,      ///< no interface but the loopback is up
    SearchNotSent,    ///< the system refuses to send the search through an interface
    InterfaceAddress, ///< an interface has no IPv4 address
    InterfaceLink,    ///< nothing is plugged in, or it is switched off
    Firewall,         ///< is switched on, and packets were thrown away during the search
    Black,            ///< pictures come and are black
    Saturated         ///< pictures come and are white
};

/// Something that the program can do about it at the press of a button.
enum class Cure {
    None,
    SetAddress,
    SwitchTriggerOff,
    TriggerOnce,
    TakeContinuously,
    ReducePacketSize,
    ShortenExposure,
    LengthenExposure
};

struct Diagnosis {
    Cause cause;
    std::string finding; ///< what is wrong, with figures: a sentence
    std::string remedy;  ///< what to do: a sentence
    std::string command; ///< to be run in a shell, where there is one: "sudo sysctl -w net.core.rmem_max=16777216"
    std::string lasting; ///< a second one that keeps it so after a restart, where the first does not
    Cure cure = Cure::None;
    Cure otherCure = Cure::None; ///< a second way
    double value = 0;            ///< that the cure sets: bytes of a packet, microseconds of exposure
    std::string address;         ///< that Cure::SetAddress proposes, and its mask
    std::string subnetMask;
    bool isFault = true; ///< as IsFault() says; no hint where to look for a missing camera is one when others are found
};

/// How long a stream may be without pictures before that counts, seconds.
constexpr double kPatienceSeconds = 1.0;
/// The same for a stream between whose complete frames such pauses are usual: three of them, or ten seconds and
/// somewhat more than one.
double PatienceSeconds(double usualPauseSeconds);
/// From which share of dark or saturated pixels on a picture shows nothing.
constexpr double kDarkLimit = 0.99;
constexpr double kSaturatedLimit = 0.95;

/// What keeps pictures away, the surest and most specific cause first; empty when nothing does.
std::vector<Diagnosis> Diagnose(const Facts &facts);

/// The causes' names in scripts: "foreign-subnet".
const char *NameOf(Cause cause);
/// False where camera and network do what they were told: a trigger awaited, a long exposure, a dark scene.
bool IsFault(Cause cause);

/// Where the host's side is read from; tests name folders of their own.
struct HostFolders {
    std::string sysClassNet = "/sys/class/net";
    std::string procSys = "/proc/sys";
    std::string procNet = "/proc/net";
    std::string etc = "/etc";
    std::string services = "/sys/fs/cgroup/system.slice"; ///< a folder for each that runs
};

/// The host's side: interfaces, filters, limits, and the way to the camera of the facts. Asks the kernel alone.
void GatherHost(Facts &facts, const HostFolders &folders = {});
/// Whether a failed search may keep a camera from being found: not on the loopback, nor on a tunnel, which may have
/// good reasons to carry none. \param interfaces  of the host.
bool MayHideCameras(const SearchFailure &failure, const std::vector<HostInterfaceFacts> &interfaces);
/// What the kernel has counted up to now.
HostCounts ReadHostCounts(const HostFolders &folders = {});

/// A trigger that keeps frames from being taken until it comes.
struct StartTrigger {
    std::string selector; ///< of TriggerSelector, "" for a camera without
    std::string source;
};
/// What is known of all the start triggers, though a camera shows but one of them at a time: that at which
/// TriggerSelector stands. The others are looked at by moving it for a moment, which is a write, so that this is done
/// once, and again when somebody has moved it since: who does may have switched triggers, too.
struct TriggerLook {
    std::optional<std::string> from; ///< where the selector stood then; none: there was no such look
    std::vector<StartTrigger> on;    ///< as last seen
};
/// The settings of an opened camera; features that it lacks are left out. Register round trips: not on the GUI thread.
/// \param look  of the same camera, from one time to the next; null: nothing is written, and triggers other than the
///              selected one are not looked at.
/// \param onAnswer  called whenever the camera has answered: it is slow, but not silent.
void GatherCamera(
    OrvCam::Device &device, Facts &facts, TriggerLook *look, const std::function<void()> &onAnswer = [] {});
/// Shares of dark and saturated pixels; looks at some ten thousand of them.
void GatherPicture(const _OrvImage &image, Facts &facts);

/// What was counted between two readings. Sizes are the later one's.
OrvCam::StreamStatistics Since(const OrvCam::StreamStatistics &before, const OrvCam::StreamStatistics &now);
HostCounts Since(const HostCounts &before, const HostCounts &now);

/// Does at an opened camera what `cure` says, with the diagnosis' value where one is needed; SetAddress is not for an
/// open one. \return ORV_CAM_OK or the status of the feature that refused; many settings do while the camera streams.
/// Register round trips: not on the GUI thread.
int ApplyCure(OrvCam::Device &device, Cure cure, const Diagnosis &diagnosis);
/// The cure shows in the next acquisition only.
bool WantsRestart(Cure cure);

} // namespace orv
