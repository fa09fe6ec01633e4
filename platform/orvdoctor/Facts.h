#pragma once

#include "orvcam/OrvCam.h"

#include <cstdint>
#include <string>
#include <vector>

/// What is known when somebody asks why there is no picture. Values alone: gathered by Gather...(), judged by
/// Diagnose().
namespace orv {

/// A network interface of this host, as the kernel tells of it. One that has several addresses has several rows.
struct HostInterfaceFacts {
    std::string name;
    std::uint32_t address = 0; ///< IPv4, host byte order, as the next; 0: it has none
    std::uint32_t subnetMask = 0;
    int mtu = 0;               ///< bytes, 0 when not known
    int reversePathFilter = 0; ///< in force, the higher of the interface's own and "all": 0 off, 1 strict, 2 loose
    bool isUp = true;
    bool hasLink = true; ///< something is plugged in and switched on at the other end
    bool isLoopback = false;
    bool isPointToPoint = false;  ///< mostly a tunnel, which need not carry broadcasts
    bool hasDefaultRoute = false; ///< the way to everywhere else leads through it
};

/// What this host's kernel has counted, all programs and cameras together. Of use as the difference of two readings.
struct HostCounts {
    struct Arrived {
        std::string name; ///< of the interface
        std::uint64_t packets = 0, bytes = 0;
    };
    std::vector<Arrived> arrived;
    std::uint64_t filtered = 0;   ///< thrown away by the reverse-path filter (IPReversePathFilter)
    std::int64_t undelivered = 0; ///< other IP packets that came in and reached no program, nor were sent on
    bool areKnown = false;
};

/// A search that the system did not let out.
struct SearchFailure {
    std::string interface; ///< as it is listed: "eth0 (10.0.0.1)"
    std::string reason;    ///< with the system's words for it
};

/// All that is looked at. What could not be found out stays as it is here.
struct Facts {
    OrvCam::DeviceDescription camera;
    bool isMissing = false; ///< cameras were searched for and this one, or any, was not among them
    /// Of one that is missing: the search does find cameras.
    bool othersAreFound = false;
    std::vector<SearchFailure> searchFailures; ///< of that search
    std::vector<HostInterfaceFacts> interfaces;
    std::vector<std::uint32_t> takenAddresses; ///< of other cameras
    bool routeIsKnown = false;
    std::string routeInterface; ///< that this host would send to the camera through; "" when it has no way there

    /// Why the opened camera has no features: a sentence; "" when it has.
    std::string descriptionProblem;
    bool isOpen = false;      ///< the camera is open in this program, for control
    bool isSilent = false;    ///< it does not answer on its control channel
    bool answersBusy = false; ///< it answers that it is busy, though nobody holds it
    bool isStreaming = false; ///< an acquisition was started
    double streamingSeconds = 0;
    double secondsSinceFrame = 0;     ///< since the last frame, complete or not, or since the start
    double usualPauseSeconds = 0;     ///< between complete frames, as PictureRhythm learned it
    double longestPauseSeconds = 0;   ///< between two frames, complete or not; 0 where it is not to be judged
    std::uint64_t completeFrames = 0; ///< since the start, as the next
    std::uint64_t incompleteFrames = 0;

    /// Counts of the time that is judged: since the last complete frame where frames have stopped to come, else of the
    /// whole acquisition.
    OrvCam::StreamStatistics stream;
    HostCounts host;           ///< of the same time, or of the search for a camera that is missing
    double countedSeconds = 0; ///< how long that time is

    std::uint64_t receiveBufferLimit = 0; ///< net.core.rmem_max, bytes
    int reversePathFilterOfAll = 0;       ///< the setting of "all", which every interface's own is raised to
    std::string firewall;      ///< that guards the host: "ufw", "firewalld", "nftables", "iptables"; "" when not known
    std::string firewallChain; ///< where nftables takes rules for what comes in: "inet filter input"

    // The camera's settings.
    bool hasTrigger = false;     ///< "TriggerMode" is On for the start of frames, exposures or the acquisition
    std::string triggerSelector; ///< where that is so, else the present one; "" for a camera without
    std::string triggerSource;
    std::string acquisitionMode;             ///< "Continuous", "SingleFrame", "MultiFrame"; "" when not known
    std::uint64_t acquisitionFrameCount = 0; ///< of MultiFrame, 0 when not known
    double exposureUs = 0;                   ///< 0 when not known
    bool exposureIsAuto = false;             ///< the camera chooses the exposure itself
    bool hasGain = false;
    double gain = 0;        ///< in the camera's unit, mostly dB
    double frameRateHz = 0; ///< that the settings lead to, 0 when not known
    std::uint64_t payloadSize = 0;
    std::uint64_t packetSize = 0; ///< that it is set to, 0 when not known; what the stream tells is surer

    // The pictures' levels, as shares of their pixels: the least that was seen in the time looked at.
    bool hasPicture = false;
    double darkShare = 0;      ///< at most 3 % above the lowest level, in every colour
    double saturatedShare = 0; ///< at most 1 % below the highest level, in every colour
};

} // namespace orv
