#include "TestImages.h"

#include "orvimage/Convert.h"

using orvtest::TestImage;
using orvtest::TypeNamed;

namespace {

/// Colour of a destination pixel, 0xffRRGGBB; a grey level for Mono8.
std::uint32_t ColourIn(const TestImage &image, int x, int y)
{
    const OrvColorModelDescription &model = *orv::FindColorModel(image->pixelType);
    const std::uint8_t *const pixel = image.Bytes() + static_cast<std::size_t>(y) * image->linePitch +
                                      static_cast<std::size_t>(x * model.channelCount);
    if (image->pixelType == orv::kMono8)
        return *pixel;
    const auto channel = [&](char letter) { return std::uint32_t{pixel[model.channelIndex(letter)]}; };
    return 0xff000000U | channel('R') << 16 | channel('G') << 8 | channel('B');
}

std::uint32_t LevelOf(std::uint32_t colour)
{
    const double level = 0.299 * (colour >> 16 & 0xff) + 0.587 * (colour >> 8 & 0xff) + 0.114 * (colour & 0xff);
    return static_cast<std::uint32_t>(level + 0.5);
}

TEST(ConvertImage, EverySourceAndDestinationEqualTheViewAtFullScale)
{
    std::mt19937 random(4);
    for (const OrvColorModelDescription &model : s_colorModelDescription) {
        if (!orv::IsDisplayable(model.pixelType))
            continue;
        const int width = 150; // more than two vectors of bytes
        const int height = 6;
        const bool isContinuous = model.pixelType % 2 == 0;
        TestImage source(model.pixelType, width, height, 5, isContinuous ? ORV_LINES_CONTINUOUS : ORV_LINES_PITCHED);
        source.FillRandom(random);
        source->frameId = 99;
        std::vector<std::uint32_t> expected(width * height);
        ASSERT_EQ(orv::plain::ConvertView(source.get(), {1, 0, 0}, {expected.data(), width, height, width, 0}), 0);
        for (const char *name : {"Mono8", "RGB8", "BGR8", "RGBa8", "BGRa8"}) {
            TestImage destination(TypeNamed(name), width, height, 3);
            if (destination->pixelType == model.pixelType)
                continue;
            ASSERT_EQ(orv::ConvertImage(source.get(), destination.get()), ORV_IMAGE_OK) << model.name << name;
            EXPECT_EQ(destination->frameId, 99U);
            for (int y = 0; y < height; ++y) {
                for (int x = 0; x < width; ++x) {
                    const std::uint32_t colour = expected[static_cast<std::size_t>(y * width + x)];
                    const std::uint32_t wanted = destination->pixelType == orv::kMono8 ? LevelOf(colour) : colour;
                    // The grey weights are rounded to 16 bits: one level where the exact value is halfway.
                    const std::uint32_t got = ColourIn(destination, x, y);
                    const bool isClose =
                        destination->pixelType == orv::kMono8 && got + 1 >= wanted && got <= wanted + 1;
                    ASSERT_TRUE(got == wanted || isClose) << model.name << " to " << name << ' ' << x << ',' << y;
                }
            }
        }
    }
}

TEST(ConvertImage, SameTypeIsACopyAndOpaqueAlpha)
{
    TestImage source(TypeNamed("Mono12p"), 3, 2);
    TestImage destination(TypeNamed("Mono12p"), 3, 2, 4);
    std::memset(source.Bytes(), 0xA5, source.Size());
    ASSERT_EQ(orv::ConvertImage(source.get(), destination.get()), ORV_IMAGE_OK);
    EXPECT_EQ(destination.Bytes()[0], 0xA5);
    TestImage withAlpha(orv::kBGRa8, 3, 2);
    ASSERT_EQ(orv::ConvertImage(source.get(), withAlpha.get()), ORV_IMAGE_OK);
    EXPECT_EQ(withAlpha.Bytes()[3], 255);
}

TEST(ConvertImage, Refusals)
{
    TestImage mono(orv::kMono8, 4, 4);
    TestImage rgb(orv::kRGB8, 4, 4);
    TestImage smaller(orv::kRGB8, 4, 3);
    TestImage bayer(orv::kBayerGR8, 4, 4);
    TestImage fourColour(TypeNamed("TrueSense_BGGR_WBBW_2_8"), 4, 4);
    EXPECT_EQ(orv::ConvertImage(nullptr, rgb.get()), ORV_IMAGE_ERR_INVALID_ARGUMENT);
    EXPECT_EQ(orv::ConvertImage(mono.get(), nullptr), ORV_IMAGE_ERR_INVALID_ARGUMENT);
    EXPECT_EQ(orv::ConvertImage(mono.get(), smaller.get()), ORV_IMAGE_ERR_MISMATCH);
    EXPECT_EQ(orv::ConvertImage(mono.get(), bayer.get()), ORV_IMAGE_ERR_NOT_CONVERTIBLE);
    EXPECT_EQ(orv::ConvertImage(fourColour.get(), rgb.get()), ORV_IMAGE_ERR_NOT_CONVERTIBLE);
    mono->dataSize = 15;
    EXPECT_EQ(orv::ConvertImage(mono.get(), rgb.get()), ORV_IMAGE_ERR_TOO_SHORT);
    mono->dataSize = 16;
    rgb->dataSize = 47;
    EXPECT_EQ(orv::ConvertImage(mono.get(), rgb.get()), ORV_IMAGE_ERR_TOO_SHORT);
}

} // namespace
