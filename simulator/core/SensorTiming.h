#pragma once

#include "simulator/core/CameraOptions.h"
#include "simulator/core/CameraState.h"

#include <cstdint>

namespace orvsim {

/// Clocks of the shortest line of cameras with a line time.
constexpr std::int64_t kShortestLineClocks = 250;

/// How fast a sensor with these settings can go. All times in nanoseconds.
///
/// A line takes its columns and a blanking of kBlankingColumns at one column per pixel clock; cameras with a line time
/// take that many clocks of kLineClockMHz, however many columns are read. A frame takes its lines and kBlankingLines.
/// Exposure overlaps with the readout of the frame before.
struct SensorTiming {
    static constexpr int kBlankingColumns = 128;
    static constexpr int kBlankingLines = 16;
    static constexpr double kLineClockMHz = 75;

    double lineNs = 0;
    double readoutNs = 0;
    double linkNs = 0;   ///< of one frame under the throughput limit; 0 without a limit
    double periodNs = 0; ///< the shortest from one frame's start to the next
    double MaximumRateHz() const { return 1e9 / periodNs; }
};

/// \param wireBytes  what one frame costs on the link.
SensorTiming TimingOf(const CameraState &state, TimingFamily family, std::uint64_t wireBytes);

/// Sets the sensor's pace and, where it is too long, the exposure so that the state's rate is reached, as far as the
/// sensor can.
void MakeFastEnough(CameraState &state, const CameraOptions &options);

/// Share of the packets that a link of that speed cannot carry at one frame per period; 0 for no limit.
double LossShare(std::uint64_t wireBytes, double periodNs, std::int64_t linkMbps);

} // namespace orvsim
