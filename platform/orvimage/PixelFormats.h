#pragma once

#include "orvimage/OrvImage.h"

#include <cstdint>
#include <string>

/// Position of a channel letter ('R', 'G', 'B', 'A', 'Y', 'U', 'V') within a pixel of the layout, -1 when it lacks it.
int GetIndexMONO(char channel);
int GetIndexRGB(char channel);
int GetIndexBGR(char channel);
int GetIndexRGBA(char channel);
int GetIndexBGRA(char channel);
int GetIndexYUV(char channel);

/// One row of the pixel-format table.
///
/// The pixel type code is the application's own: class in bits 24 to 31 (1 mono, 2 RGB, 3 Bayer, 4 four-colour sensor,
/// 5 YUV), bits per pixel in memory in bits 16 to 23, depth class in bits 8 to 15 (1: 8 bits, 2: 10, 3: 12, 4: 14,
/// 5: 16), row number (from 1) in the low byte.
struct OrvColorModelDescription {
    const char *name;
    const char *channels; ///< letters separated by blanks, "R G B", "G R G2 B"
    std::int32_t channelCount;
    std::int32_t bitsPerChannel;
    int (*channelIndex)(char); ///< null where the layout has no fixed position per channel
    std::uint32_t pixelType;
};

constexpr int ORV_COLOR_MODEL_COUNT = 133;
/// Indexed by (pixel type & 0xFF) - 1.
extern const OrvColorModelDescription s_colorModelDescription[ORV_COLOR_MODEL_COUNT];

namespace orv {

constexpr std::uint32_t kPixelTypeNone = 0;
constexpr std::uint32_t kMono8 = 0x01080101;
constexpr std::uint32_t kMono10 = 0x01100202;
constexpr std::uint32_t kMono16 = 0x0110050B;
constexpr std::uint32_t kBayerGR8 = 0x0308010D;
constexpr std::uint32_t kRGB8 = 0x02180171;
constexpr std::uint32_t kBGR8 = 0x02180172;
constexpr std::uint32_t kRGBa8 = 0x02200173;
constexpr std::uint32_t kBGRa8 = 0x02200174;
constexpr std::uint32_t kRGB16 = 0x0230057B;
constexpr std::uint32_t kYCbCr422_8 = 0x05100185;

constexpr std::uint32_t BitsPerPixel(std::uint32_t pixelType)
{
    return (pixelType >> 16) & 0xFF;
}

/// The row of a pixel type, null when the code is not exactly one of the table's.
const OrvColorModelDescription *FindColorModel(std::uint32_t pixelType);
/// The row with that name (as GenICam spells it), null when there is none.
const OrvColorModelDescription *FindColorModel(const std::string &name);

/// The pixel type of a PFNC wire code, kPixelTypeNone when the table has no such format. Old GigE Vision codes and
/// several wire codes for one row are accepted.
std::uint32_t PixelTypeFromWire(std::uint32_t pfncCode);
/// The PFNC wire code of a pixel type, 0 for the formats that have none.
std::uint32_t WireFromPixelType(std::uint32_t pixelType);
/// A name for any wire code: the PFNC name where known, else "0x01080001".
std::string WireFormatName(std::uint32_t pfncCode);

} // namespace orv
