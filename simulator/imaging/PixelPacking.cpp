#include "simulator/imaging/PixelPacking.h"

#include "orvimage/Samples.h"

#include <algorithm>
#include <cstring>

namespace orvsim {

namespace {

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "words and bit strings are copied as they lie in registers");

/// Four samples fill whole bytes at 10, 12 and 14 bits.
template <int Bits> void PackFours(std::uint8_t *bytes, int count, const std::uint16_t *samples)
{
    for (int i = 0; i < count; i += 4, bytes += Bits / 2) {
        const std::uint64_t string = samples[i] | std::uint64_t{samples[i + 1]} << Bits |
                                     std::uint64_t{samples[i + 2]} << 2 * Bits |
                                     std::uint64_t{samples[i + 3]} << 3 * Bits;
        std::memcpy(bytes, &string, Bits / 2);
    }
}

template <int LowBits> void PackGroups(std::uint8_t *bytes, int count, const std::uint16_t *samples)
{
    constexpr unsigned kLow = (1U << LowBits) - 1;
    for (int i = 0; i < count; i += 2, bytes += 3) {
        bytes[0] = static_cast<std::uint8_t>(samples[i] >> LowBits);
        bytes[1] = static_cast<std::uint8_t>((samples[i] & kLow) | (samples[i + 1] & kLow) << 4);
        bytes[2] = static_cast<std::uint8_t>(samples[i + 1] >> LowBits);
    }
}

/// \param count  a multiple of 4; the first sample starts a byte
/// \return false when there is no fast way.
bool PackWhole(std::uint8_t *bytes, const orv::PixelLayout &layout, int count, const std::uint16_t *samples)
{
    if (layout.packing == orv::SamplePacking::Grouped10)
        PackGroups<2>(bytes, count, samples);
    else if (layout.packing == orv::SamplePacking::Grouped12)
        PackGroups<4>(bytes, count, samples);
    else if (layout.bits == 10)
        PackFours<10>(bytes, count, samples);
    else if (layout.bits == 12)
        PackFours<12>(bytes, count, samples);
    else
        return false;
    return true;
}

std::uint16_t Clipped(int value, int highest)
{
    return static_cast<std::uint16_t>(std::clamp(value, 0, highest));
}

/// One pixel's luma and chroma, scaled by 2^16; chroma without its offset.
struct Yuv {
    int y;
    int u;
    int v;
};

Yuv YuvOf(const ColourSamples &colours, int x)
{
    const int red = colours.red[x];
    const int green = colours.green[x];
    const int blue = colours.blue[x];
    return {19595 * red + 38470 * green + 7471 * blue, -11059 * red - 21709 * green + 32768 * blue,
            32768 * red - 27439 * green - 5329 * blue};
}

} // namespace

void PackSamples(std::uint8_t *image, const orv::PixelLayout &layout, std::uint64_t first, int count,
                 const std::uint16_t *samples)
{
    if (layout.packing == orv::SamplePacking::Bytes) {
        for (int i = 0; i < count; ++i)
            image[first + static_cast<unsigned>(i)] = static_cast<std::uint8_t>(samples[i]);
        return;
    }
    if (layout.packing == orv::SamplePacking::Words) {
        if (count > 0) // no samples may also mean no memory
            std::memcpy(image + 2 * first, samples, 2 * static_cast<std::size_t>(count));
        return;
    }
    const auto oneByOne = [&](int begin, int end) {
        for (int i = begin; i < end; ++i)
            orv::StoreSample(image, layout.packing, layout.bits, first + static_cast<unsigned>(i), samples[i]);
    };
    const int begin = std::min(count, static_cast<int>((4 - first % 4) % 4));
    const int whole = (count - begin) / 4 * 4;
    const auto bitsPerFour =
        static_cast<std::uint64_t>(layout.packing == orv::SamplePacking::BitString ? 4 * layout.bits : 48);
    std::uint8_t *const bytes = image + (first + static_cast<unsigned>(begin)) / 4 * bitsPerFour / 8;
    oneByOne(0, begin);
    if (!PackWhole(bytes, layout, whole, samples + begin))
        oneByOne(begin, begin + whole);
    oneByOne(begin + whole, count);
}

void InterleaveRgb(const orv::PixelLayout &layout, const ColourSamples &colours, int pixels, std::uint16_t *samples)
{
    const auto opaque = static_cast<std::uint16_t>((1 << layout.bits) - 1);
    for (int x = 0; x < pixels; ++x, samples += layout.samplesPerPixel) {
        samples[layout.samplesPerPixel - 1] = opaque; // three samples: overwritten at once
        samples[layout.place[0]] = colours.red[x];
        samples[layout.place[1]] = colours.green[x];
        samples[layout.place[2]] = colours.blue[x];
    }
}

void EncodeYuv(const orv::PixelLayout &layout, const ColourSamples &colours, int pixels, std::uint16_t *samples)
{
    const int highest = (1 << layout.bits) - 1;
    const int middle = 1 << (layout.bits - 1);
    const auto rounded = [&](int scaled, int offset) {
        return Clipped(((scaled + (1 << 15)) >> 16) + offset, highest);
    };
    if (layout.family == orv::PixelFamily::Yuv444) {
        for (int x = 0; x < pixels; ++x, samples += 3) {
            const Yuv pixel = YuvOf(colours, x);
            samples[layout.place[0]] = rounded(pixel.y, 0);
            samples[layout.place[1]] = rounded(pixel.u, middle);
            samples[layout.place[2]] = rounded(pixel.v, middle);
        }
        return;
    }
    const bool isUFirst = layout.place[1] < layout.place[2];
    const int firstChroma = std::min(layout.place[1], layout.place[2]);
    for (int x = 0; x < pixels; x += 2, samples += 4) {
        const bool isPair = x + 1 < pixels;
        const Yuv left = YuvOf(colours, x);
        const Yuv right = isPair ? YuvOf(colours, x + 1) : left;
        const std::uint16_t u = rounded(left.u / 2 + right.u / 2, middle);
        const std::uint16_t v = rounded(left.v / 2 + right.v / 2, middle);
        samples[layout.place[0]] = rounded(left.y, 0);
        samples[firstChroma] = isUFirst ? u : v;
        if (!isPair)
            break;
        samples[layout.place[0] + 2] = rounded(right.y, 0);
        samples[firstChroma + 2] = isUFirst ? v : u;
    }
}

} // namespace orvsim
