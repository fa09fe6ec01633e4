#pragma once

#include "simulator/core/Faults.h"
#include "simulator/imaging/FrameSettings.h"

#include <cstdint>
#include <map>
#include <string>

namespace orvsim {

/// Which feature sets the sensor's pace, by the value of "FamilyID".
enum class TimingFamily { LineTime = 1, PixelClock = 2 };

/// What a camera is, before anybody connects.
struct CameraOptions {
    std::string vendor = "OrvPlayer";
    std::string model = "OrvSim";
    std::string deviceVersion = "1.0";
    std::string manufacturerInfo = "software camera";
    std::string serial = "SIM0001";
    std::string userName;
    SensorTraits sensor;
    std::string pixelFormat; ///< by name; empty: BayerRG8 or Mono8
    double frameRate = 0;    ///< free-running rate that is switched on at start; 0: as fast as the sensor goes
    TimingFamily family = TimingFamily::PixelClock;
    /// True: the timing feature is "Frame_PixelClock"/"Frame_LineTime", false: "PixelClock"/"LineTime".
    bool hasFramePrefix = true;
    std::int64_t maxPixelClockMHz = 400;
    /// Mbit/s that the link carries; what the sensor delivers beyond that is lost. 0: no limit.
    std::int64_t linkMbps = 0;
    std::uint64_t seed = 1;
    std::size_t frameMemory = 192U << 20; ///< bytes for frames prepared ahead
    Faults faults;
    std::map<std::string, std::string> features; ///< set before the first client comes: name, text
};

} // namespace orvsim
