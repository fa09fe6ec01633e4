#include "simulator/core/SensorTiming.h"

#include <algorithm>

namespace orvsim {

SensorTiming TimingOf(const CameraState &state, TimingFamily family, std::uint64_t wireBytes)
{
    const FrameSettings &frame = state.frame;
    const int columns = frame.width * frame.binningX * frame.decimationX;
    // Binned lines are all read; lines left out by decimation are skipped.
    const int lines = frame.height * frame.binningY;
    SensorTiming timing;
    if (family == TimingFamily::PixelClock)
        timing.lineNs = (columns + SensorTiming::kBlankingColumns) * 1000.0 / static_cast<double>(state.pixelClockMHz);
    else
        timing.lineNs = static_cast<double>(state.lineClocks) * 1000.0 / SensorTiming::kLineClockMHz;
    timing.readoutNs = (lines + SensorTiming::kBlankingLines) * timing.lineNs;
    if (state.isThroughputLimited)
        timing.linkNs = static_cast<double>(wireBytes) * 1e9 / static_cast<double>(state.throughputLimit);
    timing.periodNs = std::max({timing.readoutNs, timing.linkNs, frame.exposureUs * 1000 + timing.lineNs});
    return timing;
}

void MakeFastEnough(CameraState &state, const CameraOptions &options)
{
    const double periodNs = 1e9 / state.rateHz;
    state.frame.exposureUs = std::min(state.frame.exposureUs, std::max(10.0, periodNs * 0.9 / 1000));
    while (TimingOf(state, options.family, 0).readoutNs > periodNs) {
        std::int64_t &pace = options.family == TimingFamily::PixelClock ? state.pixelClockMHz : state.lineClocks;
        const std::int64_t next = options.family == TimingFamily::PixelClock
                                      ? std::min(pace + 1, options.maxPixelClockMHz)
                                      : std::max(pace - 1, kShortestLineClocks);
        if (next == pace)
            return;
        pace = next;
    }
}

double LossShare(std::uint64_t wireBytes, double periodNs, std::int64_t linkMbps)
{
    if (linkMbps <= 0 || periodNs <= 0)
        return 0;
    const double load = static_cast<double>(wireBytes) * 8000.0 / periodNs; // Mbit/s
    return std::max(0.0, 1 - static_cast<double>(linkMbps) / load);
}

} // namespace orvsim
