#pragma once

#include "orvcam/OrvCam.h"

#include <cstdint>
#include <string>
#include <vector>

/// "Why is there no picture?" Facts of camera, stream and host, and what follows from them.
///
/// Diagnose() is pure arithmetic on facts; Gather...() ask camera and host. No Qt, no sockets of its own.
namespace orv {

/// A network interface of this host, as the kernel tells of it.
struct HostInterfaceFacts {
    std::string name;
    std::uint32_t address = 0; ///< IPv4, host byte order, as the next
    std::uint32_t subnetMask = 0;
    int mtu = 0;               ///< bytes, 0 when not known
    int reversePathFilter = 0; ///< the stricter of the interface's own and "all": 0 off, 1 strict, 2 loose
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
    OrvCam::StreamStatistics stream;      ///< of the present acquisition
    std::uint64_t receiveBufferLimit = 0; ///< net.core.rmem_max, bytes
    bool isSilent = false;                ///< the camera does not answer on its control channel

    // The camera's settings.
    bool hasTrigger = false; ///< "TriggerMode" is On for the frame start
    std::string triggerSource;
    double exposureUs = 0;
    double frameRateHz = 0; ///< that the settings lead to, 0 when not known
    std::uint64_t payloadSize = 0;

    // The last picture's levels, as shares of its pixels.
    bool hasPicture = false;
    double darkShare = 0;      ///< at most 1 % above the lowest level
    double saturatedShare = 0; ///< at the highest level
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
};

/// What keeps pictures away, the surest and most specific cause first; empty when nothing does.
std::vector<Diagnosis> Diagnose(const Facts &facts);

/// The causes' names in scripts: "foreign-subnet".
const char *NameOf(Cause cause);

/// The host's side: interfaces, their filters, limits. Reads /sys and /proc.
void GatherHost(Facts &facts);
/// The settings of an opened camera; features that it lacks are left out. Register round trips: not on the GUI thread.
void GatherCamera(OrvCam::Device &device, Facts &facts);
/// Shares of dark and saturated pixels; looks at some ten thousand of them.
void GatherPicture(const _OrvImage &image, Facts &facts);

} // namespace orv
