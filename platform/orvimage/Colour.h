#pragma once

#include "orvimage/PixelLayout.h"

#include <algorithm>
#include <cstdint>

/// Arithmetic on single pixels, shared by the plain and the fast conversions. Colours are 0xffRRGGBB.
namespace orv {

inline std::uint32_t PackColour(int red, int green, int blue)
{
    return 0xff000000U | static_cast<std::uint32_t>(red) << 16 | static_cast<std::uint32_t>(green) << 8 |
           static_cast<std::uint32_t>(blue);
}

inline std::uint32_t Grey(int level)
{
    return 0xff000000U | static_cast<std::uint32_t>(level) * 0x010101U;
}

/// Weights of U and V in the colours, scaled by 2^16.
constexpr int kRedOfV = 91881;   // 1.402
constexpr int kGreenOfU = 22554; // 0.344136
constexpr int kGreenOfV = 46802; // 0.714136
constexpr int kBlueOfU = 116130; // 1.772

/// A pixel 0xffYYUUVV as colour: full range, BT.601 weights, as cameras send it.
inline std::uint32_t YuvToColour(std::uint32_t pixel)
{
    const int base = (static_cast<int>(pixel >> 16 & 0xff) << 16) + (1 << 15);
    const int u = static_cast<int>(pixel >> 8 & 0xff) - 128;
    const int v = static_cast<int>(pixel & 0xff) - 128;
    const auto level = [](int scaled) { return std::clamp(scaled >> 16, 0, 255); };
    return PackColour(level(base + kRedOfV * v), level(base - kGreenOfU * u - kGreenOfV * v),
                      level(base + kBlueOfU * u));
}

/// Grey value of a colour, BT.601 weights.
inline std::uint8_t LumaOf(std::uint32_t colour)
{
    const std::uint32_t red = colour >> 16 & 0xff;
    const std::uint32_t green = colour >> 8 & 0xff;
    const std::uint32_t blue = colour & 0xff;
    return static_cast<std::uint8_t>((red * 19595 + green * 38470 + blue * 7471 + 32768) >> 16);
}

/// Mean of four colours, channel by channel, rounded half up.
inline std::uint32_t MeanOfFour(std::uint32_t a, std::uint32_t b, std::uint32_t c, std::uint32_t d)
{
    constexpr std::uint32_t kOuter = 0x00ff00ffU;
    const std::uint32_t outer = (a & kOuter) + (b & kOuter) + (c & kOuter) + (d & kOuter) + 0x00020002U;
    const std::uint32_t inner = (a >> 8 & 0xff) + (b >> 8 & 0xff) + (c >> 8 & 0xff) + (d >> 8 & 0xff) + 2;
    return 0xff000000U | (outer >> 2 & kOuter) | (inner >> 2) << 8;
}

/// Where the samples of pixel x are, counted from the line's first sample.
struct YuvPlaces {
    int luma;
    int u;
    int v;
};

/// The last pixel of an odd line has only one chroma sample of its pair: it takes both from the pair before.
/// `x` and `width` may count from any even pixel on.
inline YuvPlaces PlacesOfYuv422(const PixelLayout &layout, int x, int width)
{
    const int pair = x / 2 * 2;
    const int chromaPair = pair + 1 < width || pair == 0 ? pair : pair - 2;
    return {2 * pair + layout.place[0] + 2 * (x % 2), 2 * chromaPair + layout.place[1],
            2 * chromaPair + layout.place[2]};
}

} // namespace orv
