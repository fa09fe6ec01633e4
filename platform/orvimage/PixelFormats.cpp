#include "orvimage/PixelFormats.h"

#include <cstring>

namespace {

/// Position of a letter in the order that the channels have in memory.
int IndexIn(const char *order, char channel)
{
    const char *found = channel == '\0' ? nullptr : std::strchr(order, channel);
    return found == nullptr ? -1 : static_cast<int>(found - order);
}

enum PixelClass : std::uint32_t { kMono = 1, kRgb = 2, kBayer = 3, kFourColour = 4, kYuv = 5 };

/// The code is computed from its fields so that a row cannot contradict itself.
constexpr std::uint32_t Code(std::uint32_t row, PixelClass pixelClass, std::uint32_t bitsInMemory, std::int32_t bits)
{
    const auto depthClass = static_cast<std::uint32_t>(bits - 6) / 2; // 8, 10 .. 16 bits: 1 .. 5
    return static_cast<std::uint32_t>(pixelClass) << 24 | bitsInMemory << 16 | depthClass << 8 | row;
}

constexpr OrvColorModelDescription Mono(std::uint32_t row, const char *name, std::int32_t bits,
                                        std::uint32_t bitsInMemory)
{
    return {name, "Y", 1, bits, GetIndexMONO, Code(row, kMono, bitsInMemory, bits)};
}

constexpr OrvColorModelDescription Mosaic(std::uint32_t row, const char *name, const char *channels, PixelClass kind,
                                          std::int32_t bits, std::uint32_t bitsInMemory)
{
    return {name, channels, 4, bits, nullptr, Code(row, kind, bitsInMemory, bits)};
}

using IndexFunction = int (*)(char);

constexpr OrvColorModelDescription Colour(std::uint32_t row, const char *name, const char *channels, std::int32_t bits,
                                          std::uint32_t bitsInMemory, IndexFunction index)
{
    const std::int32_t count = index == GetIndexRGBA || index == GetIndexBGRA ? 4 : 3;
    return {name, channels, count, bits, index, Code(row, kRgb, bitsInMemory, bits)};
}

constexpr OrvColorModelDescription Yuv(std::uint32_t row, const char *name, const char *channels, std::int32_t bits,
                                       std::uint32_t bitsInMemory)
{
    return {name, channels, 4, bits, GetIndexYUV, Code(row, kYuv, bitsInMemory, bits)};
}

} // namespace

int GetIndexMONO(char channel)
{
    return IndexIn("Y", channel);
}

int GetIndexRGB(char channel)
{
    return IndexIn("RGB", channel);
}

int GetIndexBGR(char channel)
{
    return IndexIn("BGR", channel);
}

int GetIndexRGBA(char channel)
{
    return IndexIn("RGBA", channel);
}

int GetIndexBGRA(char channel)
{
    return IndexIn("BGRA", channel);
}

int GetIndexYUV(char channel)
{
    return IndexIn("YUV", channel);
}

// The four phases of a colour filter follow each other in every depth and packing, and a four-colour layout's depths in
// every phase; writing these runs out would only invite slips.
#define ORV_BAYER(row, suffix, bits, bitsInMemory)                                                                     \
    Mosaic(row, "BayerGR" suffix, "G R G2 B", kBayer, bits, bitsInMemory),                                             \
        Mosaic((row) + 1, "BayerRG" suffix, "R G B G2", kBayer, bits, bitsInMemory),                                   \
        Mosaic((row) + 2, "BayerGB" suffix, "G B G2 R", kBayer, bits, bitsInMemory),                                   \
        Mosaic((row) + 3, "BayerBG" suffix, "B G R G2", kBayer, bits, bitsInMemory)

#define ORV_TRUESENSE_PHASE(row, layout)                                                                               \
    Mosaic(row, layout "_8", "R G B W", kFourColour, 8, 8),                                                            \
        Mosaic((row) + 1, layout "_10", "R G B W", kFourColour, 10, 16),                                               \
        Mosaic((row) + 2, layout "_12", "R G B W", kFourColour, 12, 16),                                               \
        Mosaic((row) + 3, layout "_14", "R G B W", kFourColour, 14, 16)

#define ORV_TRUESENSE(row, layout)                                                                                     \
    ORV_TRUESENSE_PHASE(row, "TrueSense_" layout "_0"), ORV_TRUESENSE_PHASE((row) + 4, "TrueSense_" layout "_1"),      \
        ORV_TRUESENSE_PHASE((row) + 8, "TrueSense_" layout "_2"),                                                      \
        ORV_TRUESENSE_PHASE((row) + 12, "TrueSense_" layout "_3")

// The "Dense" formats are the application's own: samples follow each other without a gap, least significant bit first.
constexpr OrvColorModelDescription s_colorModelDescription[ORV_COLOR_MODEL_COUNT] = {
    Mono(1, "Mono8", 8, 8),
    Mono(2, "Mono10", 10, 16),
    Mono(3, "Mono10p", 10, 10),
    Mono(4, "Mono10Packed", 10, 12),
    Mono(5, "Mono10Dense", 10, 10),
    Mono(6, "Mono12", 12, 16),
    Mono(7, "Mono12p", 12, 12),
    Mono(8, "Mono12Packed", 12, 12),
    Mono(9, "Mono12Dense", 12, 12),
    Mono(10, "Mono14", 14, 16),
    Mono(11, "Mono16", 16, 16),
    Mono(12, "Mono8Dense", 8, 8),
    ORV_BAYER(13, "8", 8, 8),
    ORV_BAYER(17, "10", 10, 16),
    ORV_BAYER(21, "12", 12, 16),
    ORV_BAYER(25, "10p", 10, 10),
    ORV_BAYER(29, "12p", 12, 12),
    ORV_BAYER(33, "10Packed", 10, 12),
    ORV_BAYER(37, "12Packed", 12, 12),
    ORV_BAYER(41, "14", 14, 16),
    ORV_BAYER(45, "16", 16, 16),
    ORV_TRUESENSE(49, "BGGR_WBBW"),
    ORV_TRUESENSE(65, "GBRG_WGGW"),
    ORV_TRUESENSE(81, "GRBG_WGGW"),
    ORV_TRUESENSE(97, "RGGB_WRRW"),
    Colour(113, "RGB8", "R G B", 8, 24, GetIndexRGB),
    Colour(114, "BGR8", "B G R", 8, 24, GetIndexBGR),
    Colour(115, "RGBa8", "R G B A", 8, 32, GetIndexRGBA),
    Colour(116, "BGRa8", "B G R A", 8, 32, GetIndexBGRA),
    Colour(117, "RGB10", "R G B", 10, 48, GetIndexRGB),
    Colour(118, "BGR10", "B G R", 10, 48, GetIndexBGR),
    Colour(119, "RGB12", "R G B", 12, 48, GetIndexRGB),
    Colour(120, "BGR12", "B G R", 12, 48, GetIndexBGR),
    Colour(121, "RGB14", "R G B", 14, 48, GetIndexRGB),
    Colour(122, "BGR14", "B G R", 14, 48, GetIndexBGR),
    Colour(123, "RGB16", "R G B", 16, 48, GetIndexRGB),
    Colour(124, "BGR16", "B G R", 16, 48, GetIndexBGR),
    Colour(125, "RGB8Dense", "R G B", 8, 24, GetIndexRGB),
    Colour(126, "RGB10Dense", "R G B", 10, 30, GetIndexRGB),
    Colour(127, "RGB12Dense", "R G B", 12, 36, GetIndexRGB),
    Yuv(128, "YUV422_8_UYVY", "Y U V A", 8, 16),
    Yuv(129, "YUV422_8", "Y U V A", 8, 16),
    Yuv(130, "YUV422_10", "Y U V A", 10, 32),
    Yuv(131, "YUV422_10_PACKED", "Y U V A", 10, 20),
    Yuv(132, "YUV444_8", "Y U V A", 8, 24),
    Yuv(133, "YCbCr422_8", "Y Cb Y Cr", 8, 16),
};

#undef ORV_BAYER
#undef ORV_TRUESENSE_PHASE
#undef ORV_TRUESENSE

namespace {

constexpr bool RowNumbersAreRight()
{
    std::uint32_t row = 0;
    for (const OrvColorModelDescription &model : s_colorModelDescription) {
        if ((model.pixelType & 0xFF) != ++row)
            return false;
    }
    return true;
}

constexpr bool Anchored(std::uint32_t pixelType, std::uint32_t code)
{
    return s_colorModelDescription[(code & 0xFF) - 1].pixelType == pixelType && pixelType == code;
}

static_assert(RowNumbersAreRight());
static_assert(Anchored(orv::kMono8, 0x01080101) && Anchored(orv::kMono10, 0x01100202));
static_assert(Anchored(orv::kMono16, 0x0110050B) && Anchored(orv::kBayerGR8, 0x0308010D));
static_assert(Anchored(orv::kRGB8, 0x02180171) && Anchored(orv::kBGR8, 0x02180172));
static_assert(Anchored(orv::kRGBa8, 0x02200173) && Anchored(orv::kBGRa8, 0x02200174));
static_assert(Anchored(orv::kRGB16, 0x0230057B) && Anchored(orv::kYCbCr422_8, 0x05100185));

} // namespace

namespace orv {

const OrvColorModelDescription *FindColorModel(std::uint32_t pixelType)
{
    const std::uint32_t row = pixelType & 0xFF;
    if (row < 1 || row > ORV_COLOR_MODEL_COUNT)
        return nullptr;
    const OrvColorModelDescription &model = s_colorModelDescription[row - 1];
    return model.pixelType == pixelType ? &model : nullptr;
}

const OrvColorModelDescription *FindColorModel(const std::string &name)
{
    for (const OrvColorModelDescription &model : s_colorModelDescription) {
        if (name == model.name)
            return &model;
    }
    return nullptr;
}

} // namespace orv
