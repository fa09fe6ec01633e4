#pragma once

#include "orvcam/OrvCam.h"

#include <cstdint>
#include <string>
#include <vector>

/// "Why is there no picture?" Facts of camera, stream and host, and what follows from them.
///
/// Diagnose() is pure arithmetic on facts; Gather...() ask camera and host. No Qt, no sockets of its own. Any thread.
namespace orv {

/// A network interface of this host, as the kernel tells of it.
struct HostInterfaceFacts {
    std::string name;
    std::uint32_t address = 0; ///< IPv4, host byte order, as the next
    std::uint32_t subnetMask = 0;
    int mtu = 0;               ///< bytes, 0 when not known
    int reversePathFilter = 0; ///< in force, the higher of the interface's own and "all": 0 off, 1 strict, 2 loose
    bool isUp = true;
};

/// All that is looked at. What could not be found out stays as it is here.
struct Facts {
    OrvCam::DeviceDescription camera;
    std::vector<HostInterfaceFacts> interfaces;

    bool isOpen = false;      ///< the camera is open in this program, for control
    bool isStreaming = false; ///< an acquisition was started
    double streamingSeconds = 0;
    double secondsSinceFrame = 0;         ///< since the last frame, complete or not, or since the start
    OrvCam::StreamStatistics stream;      ///< of the time that is judged: the present acquisition or its last part
    std::uint64_t receiveBufferLimit = 0; ///< net.core.rmem_max, bytes
    std::string firewall;                 ///< what guards the host, "ufw" or "firewalld"; "" when not known
    bool isSilent = false;                ///< the camera does not answer on its control channel

    // The camera's settings.
    bool hasTrigger = false; ///< "TriggerMode" is On for the start of frames, exposures or the acquisition
    std::string triggerSource;
    double exposureUs = 0;       ///< 0 when not known
    bool exposureIsAuto = false; ///< the camera chooses the exposure itself
    bool hasGain = false;
    double gain = 0;        ///< in the camera's unit, mostly dB
    double frameRateHz = 0; ///< that the settings lead to, 0 when not known
    std::uint64_t payloadSize = 0;
    std::uint16_t streamPort = 0; ///< UDP port that the camera sends its stream from, 0 when not known

    // The last picture's levels, as shares of its pixels.
    bool hasPicture = false;
    double darkShare = 0;      ///< at most 3 % above the lowest level, in every colour
    double saturatedShare = 0; ///< at most 1 % below the highest level, in every colour
};

enum class Cause {
    ForeignSubnet, ///< the camera's address fits none of the host's interfaces
    HeldByAnother, ///< another program controls it
    CameraSilent,  ///< no answer on the control channel
    WaitsForTrigger,
    LongExposure,      ///< longer than has been waited
    NoPackets,         ///< control works, no stream packet arrives: a firewall, mostly
    ReversePathFilter, ///< the kernel drops what comes from an address that it would not answer that way
    TwoInterfacesInOneSubnet,
    PacketsTooLarge,   ///< packet size above what the path carries
    SocketBufferSmall, ///< packets lost in this host, with a buffer smaller than asked
    PacketsLost,       ///< frames stay incomplete, packets are missing on the way
    NoBuffers,         ///< frames lost since the program was slow to give buffers back
    UnusablePackets,   ///< packets arrive, no frame comes of them
    Black,             ///< pictures come and are black
    Saturated          ///< pictures come and are white
};

/// Something that the program can do about it at the press of a button.
enum class Cure {
    None,
    SetAddress,
    SwitchTriggerOff,
    TriggerOnce,
    ReducePacketSize,
    ShortenExposure,
    LengthenExposure
};

struct Diagnosis {
    Cause cause;
    std::string finding; ///< what is wrong, with figures: a sentence
    std::string remedy;  ///< what to do: a sentence
    std::string command; ///< to be run in a shell, where there is one: "sudo sysctl -w net.core.rmem_max=16777216"
    Cure cure = Cure::None;
    Cure otherCure = Cure::None; ///< a second way
    double value = 0;            ///< that the cure sets: bytes of a packet, microseconds of exposure
    std::string address;         ///< that Cure::SetAddress proposes, and its mask
    std::string subnetMask;
};

/// How long a stream may be without pictures before that counts, seconds.
constexpr double kPatienceSeconds = 1.0;
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
    std::string etc = "/etc";
    std::string run = "/run";
};

/// The host's side: interfaces, their filters, limits. Reads /sys and /proc.
void GatherHost(Facts &facts, const HostFolders &folders = {});
/// The settings of an opened camera; features that it lacks are left out. Register round trips, and where "TriggerMode"
/// is off for the present "TriggerSelector" the others are looked at in turn: not on the GUI thread.
void GatherCamera(OrvCam::Device &device, Facts &facts);
/// Shares of dark and saturated pixels; looks at some ten thousand of them.
void GatherPicture(const _OrvImage &image, Facts &facts);

/// What was counted between two readings of the same stream. Sizes are the later one's.
OrvCam::StreamStatistics Since(const OrvCam::StreamStatistics &before, const OrvCam::StreamStatistics &now);

/// Does at an opened camera what `cure` says, with the diagnosis' value where one is needed; SetAddress is not for an
/// open one. \return ORV_CAM_OK or the status of the feature that refused; many settings do while the camera streams.
/// Register round trips: not on the GUI thread.
int ApplyCure(OrvCam::Device &device, Cure cure, const Diagnosis &diagnosis);

} // namespace orv
