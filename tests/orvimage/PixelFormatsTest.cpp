#include "TestImages.h"

#include "orvimage/Convert.h"

#include <set>

using orvtest::TypeNamed;

namespace {

TEST(PixelFormats, RowsAreNumberedAndNamesUnique)
{
    std::set<std::string> names;
    for (std::uint32_t row = 1; row <= ORV_COLOR_MODEL_COUNT; ++row) {
        const OrvColorModelDescription &model = s_colorModelDescription[row - 1];
        EXPECT_EQ(model.pixelType & 0xFF, row) << model.name;
        EXPECT_TRUE(names.insert(model.name).second) << model.name;
        EXPECT_EQ(orv::FindColorModel(model.pixelType), &model) << model.name;
        EXPECT_EQ(orv::FindColorModel(std::string(model.name)), &model);
        // As many channels as letters, and memory for them.
        const std::string letters = model.channels;
        EXPECT_EQ(std::count(letters.begin(), letters.end(), ' ') + 1, model.channelCount) << model.name;
        EXPECT_EQ((model.pixelType >> 8 & 0xFF) * 2 + 6, static_cast<std::uint32_t>(model.bitsPerChannel));
        EXPECT_GE(orv::BitsPerPixel(model.pixelType), static_cast<std::uint32_t>(model.bitsPerChannel));
    }
}

TEST(PixelFormats, CodesOfKnownRows)
{
    const struct {
        const char *name;
        std::uint32_t code;
        const char *channels;
    } kRows[] = {
        {"Mono8", 0x01080101, "Y"},
        {"Mono10", 0x01100202, "Y"},
        {"Mono10p", 0x010A0203, "Y"},
        {"Mono12Packed", 0x010C0308, "Y"},
        {"Mono16", 0x0110050B, "Y"},
        {"BayerGR8", 0x0308010D, "G R G2 B"},
        {"BayerRG8", 0x0308010E, "R G B G2"},
        {"BayerGB8", 0x0308010F, "G B G2 R"},
        {"BayerBG12p", 0x030C0320, "B G R G2"},
        {"BayerGR10Packed", 0x030C0221, "G R G2 B"},
        {"BayerBG16", 0x03100530, "B G R G2"},
        {"TrueSense_BGGR_WBBW_0_8", 0x04080131, "R G B W"},
        {"TrueSense_RGGB_WRRW_3_14", 0x04100470, "R G B W"},
        {"RGB8", 0x02180171, "R G B"},
        {"BGR8", 0x02180172, "B G R"},
        {"RGBa8", 0x02200173, "R G B A"},
        {"BGRa8", 0x02200174, "B G R A"},
        {"RGB16", 0x0230057B, "R G B"},
        {"YCbCr422_8", 0x05100185, "Y Cb Y Cr"},
    };
    for (const auto &row : kRows) {
        EXPECT_EQ(TypeNamed(row.name), row.code) << row.name;
        EXPECT_STREQ(orv::FindColorModel(row.code)->channels, row.channels);
    }
}

TEST(PixelFormats, LookUpTakesExactCodesOnly)
{
    EXPECT_EQ(orv::FindColorModel(0x01080100U), nullptr);
    EXPECT_EQ(orv::FindColorModel(0x01080186U), nullptr); // one row too far
    EXPECT_EQ(orv::FindColorModel(0x01080201U), nullptr); // wrong depth class
    EXPECT_EQ(orv::FindColorModel(0x01080001U), nullptr); // a wire code
    EXPECT_EQ(orv::FindColorModel(std::string("mono8")), nullptr);
}

TEST(PixelFormats, ChannelPositions)
{
    const struct {
        int (*index)(char);
        const char *order;
    } kFunctions[] = {{GetIndexMONO, "Y"},    {GetIndexRGB, "RGB"},   {GetIndexBGR, "BGR"},
                      {GetIndexRGBA, "RGBA"}, {GetIndexBGRA, "BGRA"}, {GetIndexYUV, "YUV"}};
    for (const auto &function : kFunctions) {
        const std::string order = function.order;
        for (const char letter : std::string("RGBAYUVX")) {
            const std::size_t found = order.find(letter);
            EXPECT_EQ(function.index(letter), found == std::string::npos ? -1 : static_cast<int>(found))
                << order << ' ' << letter;
        }
        EXPECT_EQ(function.index('\0'), -1);
    }
}

TEST(WireFormats, EveryOwnCodeComesBack)
{
    int withCode = 0;
    for (const OrvColorModelDescription &model : s_colorModelDescription) {
        const std::uint32_t wire = orv::WireFromPixelType(model.pixelType);
        if (wire == 0)
            continue;
        ++withCode;
        EXPECT_EQ(orv::PixelTypeFromWire(wire), model.pixelType) << model.name;
        // The wire's bits per pixel are right in every code: the rows must agree with them.
        EXPECT_EQ(orv::BitsPerPixel(wire), orv::BitsPerPixel(model.pixelType)) << model.name;
    }
    EXPECT_EQ(withCode, 133 - 64 - 4); // all but the four-colour sensors, the dense mono rows and RGB8Dense
}

TEST(WireFormats, CodesAndAliases)
{
    const struct {
        std::uint32_t wire;
        const char *row; ///< null: none
        const char *name;
    } kCodes[] = {
        {0x01080001, "Mono8", "Mono8"},
        {0x01100003, "Mono10", "Mono10"},
        {0x010C0004, "Mono10Packed", "Mono10Packed"},
        {0x010C0047, "Mono12p", "Mono12p"},
        {0x01080009, "BayerRG8", "BayerRG8"},
        {0x010A0056, "BayerGR10p", "BayerGR10p"},
        {0x010C002D, "BayerBG12Packed", "BayerBG12Packed"},
        {0x02180015, "BGR8", "BGR8"},
        {0x0210001F, "YUV422_8_UYVY", "YUV422_8_UYVY"},
        {0x02100043, "YUV422_8_UYVY", "YCbCr422_8_CbYCrY"},
        {0x02180020, "YUV444_8", "YUV8_UYV"},
        {0x82100005, "YUV422_8", "0x82100005"},
        {0x810C0002, "BayerRG12Packed", "0x810C0002"},
        {0x81100009, "BayerBG16", "0x81100009"},
        {0x010800C9, "Mono8", "R8"},
        {0x021E005C, "RGB10Dense", "RGB10p"},
        {0x01010037, nullptr, "Mono1p"},
        {0x02100035, nullptr, "RGB565p"},
        {0x01080108, nullptr, "0x01080108"},
        {0, nullptr, "0x00000000"},
        {0xFFFFFFFF, nullptr, "0xFFFFFFFF"},
    };
    for (const auto &code : kCodes) {
        const std::uint32_t expected = code.row == nullptr ? orv::kPixelTypeNone : TypeNamed(code.row);
        EXPECT_EQ(orv::PixelTypeFromWire(code.wire), expected) << std::hex << code.wire;
        EXPECT_EQ(orv::WireFormatName(code.wire), code.name);
    }
    EXPECT_EQ(orv::WireFromPixelType(0x01080199), 0U);
}

TEST(PixelFormats, OnlyFourColourSensorsAreNotDisplayable)
{
    for (const OrvColorModelDescription &model : s_colorModelDescription)
        EXPECT_EQ(orv::IsDisplayable(model.pixelType), model.pixelType >> 24 != 4) << model.name;
    EXPECT_FALSE(orv::IsDisplayable(0));
}

} // namespace
