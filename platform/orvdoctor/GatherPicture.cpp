#include "orvdoctor/Diagnosis.h"
#include "orvimage/PixelLayout.h"
#include "orvimage/Samples.h"

#include <algorithm>
#include <cstddef>

namespace orv {
namespace {

constexpr int kPlacesPerSide = 100;

/// Levels of a sample between which it is neither dark nor saturated.
struct Limits {
    int dark;      ///< at most this
    int saturated; ///< at least this
};

Limits LimitsOf(const PixelSource &source)
{
    const int levels = 1 << source.significantBits;
    const PixelFamily family = source.layout.family;
    if (family == PixelFamily::Yuv422 || family == PixelFamily::Yuv444) // luma may keep to the video range
        return {levels * 20 / 256, levels * 234 / 256};
    // Black level and noise of a sensor without light stay below the first.
    return {levels / 32, levels - 1 - (levels - 1) / 100};
}

/// The samples of pixel x that tell how bright it is: all its colours, or its luma.
struct Brightness {
    std::uint64_t first = 0;
    int count = 1;
    int places[3] = {0, 0, 0};
};

Brightness BrightnessOf(const PixelLayout &layout, int x)
{
    const auto column = static_cast<unsigned>(x);
    switch (layout.family) {
    case PixelFamily::Rgb:
        return {column * static_cast<unsigned>(layout.samplesPerPixel),
                3,
                {layout.place[0], layout.place[1], layout.place[2]}};
    case PixelFamily::Yuv444:
        return {column * static_cast<unsigned>(layout.samplesPerPixel), 1, {layout.place[0], 0, 0}};
    case PixelFamily::Yuv422:
        return {column * 2U, 1, {layout.place[0], 0, 0}}; // the second luma comes two after the first
    default:
        return {column, 1, {0, 0, 0}};
    }
}

} // namespace

void GatherPicture(const _OrvImage &image, Facts &facts)
{
    facts.hasPicture = false;
    PixelSource source;
    if (OpenPixelSource(&image, source) != ORV_IMAGE_OK)
        return;
    const Limits limits = LimitsOf(source);
    const int columns = std::min(source.width, kPlacesPerSide);
    const int rows = std::min(source.height, kPlacesPerSide);
    int dark = 0;
    int saturated = 0;
    for (int row = 0; row < rows; ++row) {
        const SampleRun line = source.Line(static_cast<int>(std::int64_t{row} * source.height / rows));
        for (int column = 0; column < columns; ++column) {
            // A shifting start: columns of the same parity all over would see one colour of a mosaic only.
            const int x =
                static_cast<int>((std::int64_t{column} * source.width + row % 2 * (source.width / columns)) / columns) %
                source.width;
            const Brightness pixel = BrightnessOf(source.layout, x);
            int lowest = limits.saturated;
            int highest = 0;
            for (int i = 0; i < pixel.count; ++i) {
                const int value = SampleAt(line, source.layout.packing, source.layout.bits,
                                           line.first + pixel.first + static_cast<unsigned>(pixel.places[i]));
                lowest = std::min(lowest, value);
                highest = std::max(highest, value);
            }
            dark += highest <= limits.dark ? 1 : 0;
            saturated += lowest >= limits.saturated ? 1 : 0;
        }
    }
    facts.hasPicture = true;
    facts.darkShare = static_cast<double>(dark) / (columns * rows);
    facts.saturatedShare = static_cast<double>(saturated) / (columns * rows);
}

} // namespace orv
