#include "simulator/imaging/TestPatterns.h"

#include "simulator/imaging/PixelPacking.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <numeric>
#include <vector>

namespace orvsim {

namespace {

/// Whether a bar is lit in a colour: white is all of them, black none, in the order of falling luma.
float BarLight(int bar, Channel channel)
{
    const bool green = bar < 4;
    const bool red = bar % 4 < 2;
    const bool blue = bar % 2 == 0;
    switch (channel) {
    case Channel::Red:
        return red ? 1 : 0;
    case Channel::Green:
        return green ? 1 : 0;
    case Channel::Blue:
        return blue ? 1 : 0;
    case Channel::Luma:
        break;
    }
    return (red ? 0.299F : 0) + (green ? 0.587F : 0) + (blue ? 0.114F : 0);
}

std::uint16_t Ramp(int place, int size, int highest)
{
    return static_cast<std::uint16_t>(std::int64_t{place} * highest / std::max(1, size - 1));
}

/// A sample of the pixel in that column and line of the whole picture.
std::uint16_t PatternSample(const PatternLine &line, const Readout &readout, int column, int row, Channel channel)
{
    const int highest = (1 << line.bits) - 1;
    switch (line.pattern) {
    case TestPattern::White:
        return static_cast<std::uint16_t>(highest);
    case TestPattern::GreyHorizontalRamp:
        return Ramp(column, readout.across.pictureSize, highest);
    case TestPattern::GreyVerticalRamp:
        return Ramp(row, readout.down.pictureSize, highest);
    case TestPattern::ColourBar:
        return static_cast<std::uint16_t>(
            std::lround(BarLight(column * 8 / readout.across.pictureSize, channel) * static_cast<float>(highest)));
    case TestPattern::Black:
    case TestPattern::FrameCounter:
    case TestPattern::Off:
        break;
    }
    return 0;
}

/// Pixels until the packed image is at the start of a byte again.
int PixelsToWholeBytes(const orv::PixelLayout &layout)
{
    return 8 / std::gcd(layout.bitsPerPixel, 8);
}

/// Samples of consecutive pixels, the first with that value.
std::vector<std::uint16_t> Counting(const orv::PixelLayout &layout, std::uint64_t value, int pixels)
{
    const unsigned mask = (1U << layout.bits) - 1;
    std::vector<std::uint16_t> samples;
    samples.reserve(static_cast<std::size_t>(pixels * layout.samplesPerPixel));
    for (int pixel = 0; pixel < pixels; ++pixel)
        samples.insert(samples.end(), static_cast<std::size_t>(layout.samplesPerPixel),
                       static_cast<std::uint16_t>((value + static_cast<unsigned>(pixel)) & mask));
    return samples;
}

/// Each line is the one above, moved by a pixel: lines that start at whole bytes are copied from one long line.
void CopyCounter(const FrameSettings &settings, const orv::PixelLayout &layout, std::uint64_t frameNumber,
                 std::uint8_t *image)
{
    const int step = PixelsToWholeBytes(layout);
    const std::size_t lineBytes = orv::LineBytes(layout, static_cast<std::uint32_t>(settings.width));
    const int pixels = (settings.width + settings.height + step - 1) / step * step;
    std::vector<std::uint8_t> packed(orv::LineBytes(layout, static_cast<std::uint32_t>(pixels)));
    for (int start = 0; start < step; ++start) {
        const auto samples = Counting(layout, frameNumber + static_cast<unsigned>(start), pixels);
        std::fill(packed.begin(), packed.end(), std::uint8_t{0});
        PackSamples(packed.data(), layout, 0, static_cast<int>(samples.size()), samples.data());
        for (int y = start; y < settings.height; y += step)
            std::memcpy(image + static_cast<std::size_t>(y) * lineBytes,
                        packed.data() + orv::LineBytes(layout, static_cast<std::uint32_t>(y - start)), lineBytes);
    }
}

} // namespace

void DrawPattern(const PatternLine &line, const Readout &readout, int y, int begin, int end, std::uint16_t *samples)
{
    const int row = readout.down.picture[static_cast<std::size_t>(y)];
    for (int x = begin; x < end; ++x)
        *samples++ = PatternSample(line, readout, readout.across.picture[static_cast<std::size_t>(x)], row,
                                   x % 2 == 0 ? line.even : line.odd);
}

void FillFrameCounter(const FrameSettings &settings, const orv::PixelLayout &layout, std::uint64_t frameNumber,
                      std::uint8_t *image)
{
    if (settings.width % PixelsToWholeBytes(layout) == 0)
        return CopyCounter(settings, layout, frameNumber, image);
    std::memset(image, 0, ImageBytes(settings));
    const int samplesPerLine = settings.width * layout.samplesPerPixel;
    for (int y = 0; y < settings.height; ++y) {
        const auto samples = Counting(layout, frameNumber + static_cast<unsigned>(y), settings.width);
        PackSamples(image, layout, static_cast<std::uint64_t>(y) * static_cast<unsigned>(samplesPerLine),
                    samplesPerLine, samples.data());
    }
}

} // namespace orvsim
