#include "simulator/core/CameraState.h"

#include "simulator/core/SensorTiming.h"

#include "orvimage/PixelFormats.h"

#include <algorithm>

namespace orvsim {

CameraState::CameraState(const CameraOptions &options)
    : pixelClockMHz(std::min<std::int64_t>(40, options.maxPixelClockMHz)), lineClocks(2000),
      throughputLimit((options.linkMbps > 0 ? options.linkMbps : 1000) * 1'000'000 / 8)
{
    frame.width = options.sensor.width / 8 * 8;
    frame.height = options.sensor.height / 2 * 2;
    const OrvColorModelDescription *row = orv::FindColorModel(options.sensor.isColour ? "BayerRG8" : "Mono8");
    frame.pixelType = row->pixelType;
    if (options.frameRate > 0) {
        isRateEnabled = true;
        rateHz = options.frameRate;
        MakeFastEnough(*this, options);
    }
    chunks.fill(true);
}

} // namespace orvsim
