#pragma once

#include "simulator/imaging/Canvas.h"
#include "simulator/imaging/Chart.h"
#include "simulator/imaging/FrameRenderer.h"

#include "orvimage/Convert.h"
#include "orvimage/PixelFormats.h"
#include "orvimage/PixelLayout.h"
#include "orvimage/Samples.h"
#include "orvimage/TestImages.h"

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace orvsim {

/// A sensor of the chart's own size: a pixel per unit, so that tests know where things are.
inline SensorTraits SheetSensor(bool isColour)
{
    SensorTraits sensor;
    sensor.width = Sheet::kWidth;
    sensor.height = Sheet::kHeight;
    sensor.isColour = isColour;
    return sensor;
}

/// One whose noise is far below an 8-bit step.
inline SensorTraits Quiet(SensorTraits sensor)
{
    sensor.sensitivity *= 1e6;
    sensor.fullWell *= 1e6;
    return sensor;
}

inline FrameSettings FullFrame(const SensorTraits &sensor, const std::string &format)
{
    FrameSettings settings;
    settings.width = sensor.width;
    settings.height = sensor.height;
    settings.pixelType = orvtest::TypeNamed(format);
    return settings;
}

/// The inner 32 x 32 pixels of a patch of the chart's colours, numbered by line.
inline FrameSettings OnPatch(int patch, const std::string &format)
{
    FrameSettings settings;
    settings.offsetX = (static_cast<int>(chart::kColours.left) + 14 + 51 * (patch % 6) + 8) / 2 * 2;
    settings.offsetY = (static_cast<int>(chart::kColours.top) + 40 + 54 * (patch / 6) + 8) / 2 * 2;
    settings.width = 32;
    settings.height = 32;
    settings.pixelType = orvtest::TypeNamed(format);
    return settings;
}
constexpr int kWhitePatch = 18; ///< light 0.96
constexpr double kWhiteLight = 0.96;

inline std::vector<std::uint8_t> Rendered(FrameRenderer &renderer, const FrameSettings &settings, int phase = 0)
{
    std::vector<std::uint8_t> payload(ImageBytes(settings));
    renderer.Render(settings, phase, payload.data());
    return payload;
}

/// All samples of an image without padding.
inline std::vector<int> SamplesOf(const std::vector<std::uint8_t> &payload, const FrameSettings &settings)
{
    const orv::PixelLayout layout = orv::LayoutOf(settings.pixelType);
    const orv::SampleRun run{payload.data(), payload.data() + payload.size(), 0};
    const auto count = static_cast<std::size_t>(settings.width * settings.height * layout.samplesPerPixel);
    std::vector<int> samples;
    for (std::size_t k = 0; k < count; ++k)
        samples.push_back(orv::SampleAt(run, layout.packing, layout.bits, k));
    return samples;
}

/// The formats that a camera can send and a receiver can interpret.
inline std::vector<std::string> SendableFormats()
{
    std::vector<std::string> names;
    for (const OrvColorModelDescription &model : s_colorModelDescription) {
        if (orv::WireFromPixelType(model.pixelType) != 0 &&
            orv::LayoutOf(model.pixelType).family != orv::PixelFamily::Unknown)
            names.emplace_back(model.name);
    }
    return names;
}

struct Statistics {
    double mean = 0;
    double variance = 0;
};

inline Statistics StatisticsOf(const std::vector<int> &samples)
{
    double sum = 0;
    double squares = 0;
    for (const int sample : samples) {
        sum += sample;
        squares += static_cast<double>(sample) * sample;
    }
    const auto count = static_cast<double>(samples.size());
    return {sum / count, squares / count - sum / count * sum / count};
}

/// Mean colour of a region after conversion to RGB8, as a viewer would see it; 0 to 255.
inline Light MeanColour(FrameRenderer &renderer, const FrameSettings &settings)
{
    std::vector<std::uint8_t> payload = Rendered(renderer, settings);
    _OrvImage *source = nullptr;
    OrvCreateImageHeader(&source, static_cast<std::uint32_t>(settings.width),
                         static_cast<std::uint32_t>(settings.height), settings.pixelType, payload.data(),
                         payload.size(), 0);
    orvtest::TestImage shown(orv::kRGB8, source->width, source->height);
    EXPECT_EQ(orv::ConvertImage(source, shown.get()), 0);
    OrvReleaseImageHeader(&source);
    Light sum{0, 0, 0};
    const auto pixels = static_cast<float>(shown.Size() / 3);
    for (std::size_t at = 0; at < shown.Size(); at += 3) {
        sum.red += shown.Bytes()[at] / pixels;
        sum.green += shown.Bytes()[at + 1] / pixels;
        sum.blue += shown.Bytes()[at + 2] / pixels;
    }
    return sum;
}

} // namespace orvsim
