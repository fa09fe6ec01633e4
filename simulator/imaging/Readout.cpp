#include "simulator/imaging/Readout.h"

#include <algorithm>

namespace orvsim {

namespace {

struct AxisSettings {
    int sensorSize;
    int offset;
    int size;
    int binning;
    int decimation;
    bool isMirrored;
};

/// First sensor pixel of a pixel of the picture. With a colour filter both move in cells of two.
int FirstOf(int place, int stride, bool isMosaic)
{
    return isMosaic ? place / 2 * 2 * stride + place % 2 : place * stride;
}

Readout::Axis AxisOf(const AxisSettings &settings, bool isMosaic)
{
    Readout::Axis axis;
    const int stride = std::max(1, settings.binning) * std::max(1, settings.decimation);
    axis.step = isMosaic ? 2 : 1;
    axis.count = std::max(1, settings.binning);
    axis.pictureSize = std::max(1, settings.sensorSize / stride);
    const int last = settings.sensorSize - 1 - (axis.count - 1) * axis.step;
    for (int i = 0; i < settings.size; ++i) {
        const int seen = std::clamp(settings.offset + i, 0, axis.pictureSize - 1);
        const int place = settings.isMirrored ? axis.pictureSize - 1 - seen : seen;
        axis.picture.push_back(place);
        axis.first.push_back(std::clamp(FirstOf(place, stride, isMosaic), 0, std::max(0, last)));
    }
    while (axis.count > 1 && (axis.count - 1) * axis.step >= settings.sensorSize)
        --axis.count; // a sensor smaller than its binning
    return axis;
}

} // namespace

Readout::Readout(const SensorTraits &sensor, const FrameSettings &settings, bool isMosaic)
    : across(AxisOf(
          {sensor.width, settings.offsetX, settings.width, settings.binningX, settings.decimationX, settings.reverseX},
          isMosaic)),
      down(AxisOf({sensor.height, settings.offsetY, settings.height, settings.binningY, settings.decimationY,
                   settings.reverseY},
                  isMosaic))
{
}

Readout::Axis::Range Readout::Axis::Seeing(int begin, int end) const
{
    Range range{0, 0};
    for (int i = 0; i < static_cast<int>(first.size()); ++i) {
        if (first[static_cast<std::size_t>(i)] >= end || End(i) <= begin)
            continue;
        if (range.end == 0)
            range.begin = i;
        range.end = i + 1;
    }
    return range;
}

Readout::Axis::Range Readout::Axis::Needed(int begin, int end) const
{
    if (begin >= end)
        return {0, 0};
    // Mirrored frames run backwards, so the extremes lie at the ends in either order; a colour filter swaps neighbours.
    const auto lowest = std::min_element(first.begin() + begin, first.begin() + end);
    const auto highest = std::max_element(first.begin() + begin, first.begin() + end);
    return {*lowest, *highest + (count - 1) * step + 1};
}

} // namespace orvsim
