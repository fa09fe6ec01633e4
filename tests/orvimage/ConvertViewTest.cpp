#include "TestImages.h"

#include "orvimage/Convert.h"

#include <cmath>
#include <hwy/targets.h>

using orvtest::TestImage;
using orvtest::TypeNamed;

namespace {

constexpr std::uint32_t kBackground = 0xff808080;
constexpr std::uint32_t kUntouched = 0x12345678;

struct Window {
    Window(int windowWidth, int windowHeight, int padding = 0)
        : width(windowWidth), height(windowHeight), stride(windowWidth + padding),
          pixels(static_cast<std::size_t>(stride) * static_cast<std::size_t>(windowHeight), kUntouched)
    {
    }

    orv::ViewTarget Target() { return {pixels.data(), width, height, stride, kBackground}; }
    std::uint32_t At(int x, int y) const { return pixels[static_cast<std::size_t>(y * stride + x)]; }

    int width;
    int height;
    int stride;
    std::vector<std::uint32_t> pixels;
};

/// A 4 x 4 mono image whose pixel at x, y is 16 * (4 y + x).
void FillRamp(const TestImage &image)
{
    for (int i = 0; i < 16; ++i)
        image.Bytes()[i] = static_cast<std::uint8_t>(16 * i);
}

std::uint32_t Grey(int level)
{
    return 0xff000000U | static_cast<std::uint32_t>(level) * 0x010101U;
}

TEST(ConvertView, MonoPixelsByHand)
{
    TestImage image(orv::kMono8, 4, 4);
    FillRamp(image);
    const struct {
        const char *rule;
        orv::ViewTransform view;
        int x, y;
        std::uint32_t colour;
    } kCases[] = {
        {"100 %: pixel by pixel", {1, 0, 0}, 2, 1, Grey(96)},
        {"beside the image is background", {1, 0, 0}, 4, 1, kBackground},
        {"offset to the right", {1, 3, 2}, 3, 2, Grey(0)},
        {"left of an offset image", {1, 3, 2}, 2, 2, kBackground},
        {"200 %: squares of four", {2, 0, 0}, 3, 1, Grey(16)},
        {"200 %: next square", {2, 0, 0}, 4, 2, Grey(96)},
        {"negative offset hides pixels", {2, -2, -2}, 0, 0, Grey(80)},
        {"50 %: mean of four", {0.5, 0, 0}, 0, 0, Grey((0 + 16 + 64 + 80) / 4)},
        {"50 %: last", {0.5, 0, 0}, 1, 1, Grey((160 + 176 + 224 + 240) / 4)},
        {"25 %: two pairs of the middle line", {0.25, 1, 1}, 1, 1, Grey((128 + 144 + 160 + 176) / 4)},
        {"30 %: quarter points", {0.3, 0, 0}, 0, 0, Grey((0 + 32 + 128 + 160) / 4)},
    };
    for (const auto &row : kCases) {
        Window window(6, 6);
        ASSERT_EQ(orv::ConvertView(image.get(), row.view, window.Target()), ORV_IMAGE_OK);
        EXPECT_EQ(window.At(row.x, row.y), row.colour) << row.rule;
    }
}

TEST(ConvertView, DeepFormatsShowTheirSignificantBits)
{
    const struct {
        const char *format;
        std::uint32_t significantBits; ///< 0: the format's own
        const char *bytes;
        int level;
    } kCases[] = {
        {"Mono10", 0, "ff 03", 255},  {"Mono12", 0, "00 08", 128},
        {"Mono14", 0, "ff 1f", 127},  {"Mono16", 0, "ff 7f", 127},
        {"Mono16", 12, "00 08", 128}, {"Mono12", 0, "ff ff", 255}, // beyond 12 bits
        {"Mono12p", 0, "00 08", 128}, {"Mono10Packed", 0, "40 00", 64},
        {"Mono12", 40, "00 08", 128}, // a count that cannot be: the format's own
    };
    for (const auto &row : kCases) {
        TestImage image(TypeNamed(row.format), 1, 1);
        if (row.significantBits != 0)
            image->significantBits = row.significantBits;
        const std::vector<std::uint8_t> bytes = orvtest::FromHex(row.bytes);
        ASSERT_EQ(bytes.size(), image.Size()) << row.format;
        std::copy(bytes.begin(), bytes.end(), image.Bytes());
        Window window(1, 1);
        ASSERT_EQ(orv::ConvertView(image.get(), {1, 0, 0}, window.Target()), ORV_IMAGE_OK);
        EXPECT_EQ(window.At(0, 0), Grey(row.level)) << row.format << ' ' << row.bytes;
    }
}

TEST(ConvertView, ColourFormatsByHand)
{
    const struct {
        const char *format;
        const char *bytes; ///< of two pixels
        std::uint32_t first, second;
    } kCases[] = {
        {"RGB8", "01 02 03 ff 00 80", 0xff010203, 0xffff0080},
        {"BGR8", "01 02 03 ff 00 80", 0xff030201, 0xff8000ff},
        {"RGBa8", "01 02 03 00 ff 00 80 00", 0xff010203, 0xffff0080},
        {"BGRa8", "01 02 03 00 ff 00 80 00", 0xff030201, 0xff8000ff},
        {"RGB12", "f0 0f 00 00 80 00 00 08 f0 07 00 00", 0xffff0008, 0xff807f00},
        {"BGR10", "fc 03 00 00 80 00 00 02 00 00 ff 03", 0xff2000ff, 0xffff0080},
        // Y 100 with neutral chroma is grey; full Cr and Cb push their channels by 1.402 and 1.772 times 127.
        {"YUV422_8", "64 80 c8 80", 0xff646464, 0xffc8c8c8},
        {"YUV422_8_UYVY", "80 64 80 c8", 0xff646464, 0xffc8c8c8},
        {"YCbCr422_8", "64 80 64 ff", 0xffff0964, 0xffff0964},
        {"YUV422_8", "64 ff 64 80", 0xff6438ff, 0xff6438ff},
        {"YUV444_8", "80 64 ff ff 64 80", 0xffff0964, 0xff6438ff},
        {"YUV422_10", "90 01 00 02 20 03 00 02", 0xff646464, 0xffc8c8c8},
    };
    for (const auto &row : kCases) {
        TestImage image(TypeNamed(row.format), 2, 1);
        const std::vector<std::uint8_t> bytes = orvtest::FromHex(row.bytes);
        ASSERT_EQ(bytes.size(), image.Size()) << row.format;
        std::copy(bytes.begin(), bytes.end(), image.Bytes());
        Window window(2, 1);
        ASSERT_EQ(orv::ConvertView(image.get(), {1, 0, 0}, window.Target()), ORV_IMAGE_OK);
        EXPECT_EQ(window.At(0, 0), row.first) << row.format << ' ' << row.bytes;
        EXPECT_EQ(window.At(1, 0), row.second) << row.format << ' ' << row.bytes;
    }
}

TEST(ConvertView, BayerPhasesGiveTheSceneBackAtEveryScale)
{
    // A scene of one colour must come out in that colour everywhere, whatever the phase, edges included.
    constexpr int kRed = 200;
    constexpr int kGreen = 90;
    constexpr int kBlue = 30;
    const struct {
        const char *phase;
        int cell[4];
    } kPhases[] = {{"BayerGR8", {kGreen, kRed, kBlue, kGreen}},
                   {"BayerRG8", {kRed, kGreen, kGreen, kBlue}},
                   {"BayerGB8", {kGreen, kBlue, kRed, kGreen}},
                   {"BayerBG8", {kBlue, kGreen, kGreen, kRed}}};
    for (const auto &phase : kPhases) {
        TestImage image(TypeNamed(phase.phase), 37, 23);
        for (int y = 0; y < 23; ++y) {
            for (int x = 0; x < 37; ++x)
                image.Bytes()[37 * y + x] = static_cast<std::uint8_t>(phase.cell[y % 2 * 2 + x % 2]);
        }
        for (const double scale : {3.0, 1.0, 0.7, 0.5, 0.4, 0.25, 0.2, 0.1}) {
            Window window(20, 10);
            ASSERT_EQ(orv::ConvertView(image.get(), {scale, -1, -1}, window.Target()), ORV_IMAGE_OK);
            int shown = 0;
            for (const std::uint32_t pixel : window.pixels) {
                if (pixel == kBackground)
                    continue;
                ++shown;
                ASSERT_EQ(pixel, 0xff000000U | kRed << 16 | kGreen << 8 | kBlue) << phase.phase << ' ' << scale;
            }
            EXPECT_GT(shown, 0);
        }
    }
}

std::vector<std::string> DisplayableFormats()
{
    std::vector<std::string> names;
    for (const OrvColorModelDescription &model : s_colorModelDescription) {
        if (orv::IsDisplayable(model.pixelType))
            names.emplace_back(model.name);
    }
    return names;
}

struct RandomView {
    explicit RandomView(std::mt19937 &random)
    {
        const auto below = [&](int limit) { return static_cast<int>(random() % static_cast<unsigned>(limit)); };
        constexpr double kScales[] = {0.05, 0.2, 0.25, 0.3, 0.5, 0.55, 0.75, 1, 1.5, 2, 7};
        const double jitter = below(2) == 0 ? 1.0 : 0.7 + below(600) / 1000.0;
        view.scale = kScales[below(11)] * jitter;
        const bool isLarge = view.scale < 0.4;
        width = 1 + below(isLarge ? 400 : 60);
        height = 1 + below(isLarge ? 120 : 40);
        windowWidth = 1 + below(90);
        windowHeight = 1 + below(40);
        view.offsetX = below(41) - 20;
        view.offsetY = below(41) - 20;
        padding = below(3) == 0 ? 0 : below(9);
        isContinuous = below(4) == 0;
    }

    orv::ViewTransform view{};
    int width, height, windowWidth, windowHeight, padding;
    bool isContinuous;
};

TEST(ConvertView, EqualsThePlainVersionForAllFormatsAndGeometries)
{
    std::int64_t remaining = hwy::SupportedTargets();
    while (remaining != 0) {
        const std::int64_t target = remaining & -remaining;
        remaining &= ~target;
        hwy::SetSupportedTargetsForTest(target);
        std::mt19937 random(3);
        for (const std::string &name : DisplayableFormats()) {
            for (int round = 0; round < 24; ++round) {
                const RandomView setup(random);
                TestImage image(TypeNamed(name), static_cast<std::uint32_t>(setup.width),
                                static_cast<std::uint32_t>(setup.height), static_cast<std::uint32_t>(setup.padding),
                                setup.isContinuous ? ORV_LINES_CONTINUOUS : ORV_LINES_PITCHED);
                image.FillRandom(random);
                orv::LevelColours colours(random() % 4 == 0 ? 1 + random() % 5000 : 0);
                for (std::uint32_t &colour : colours)
                    colour = static_cast<std::uint32_t>(random());
                Window fast(setup.windowWidth, setup.windowHeight, 3);
                Window plain(setup.windowWidth, setup.windowHeight, 3);
                ASSERT_EQ(orv::ConvertView(image.get(), setup.view, fast.Target(), &colours), ORV_IMAGE_OK) << name;
                ASSERT_EQ(orv::plain::ConvertView(image.get(), setup.view, plain.Target(), &colours), ORV_IMAGE_OK);
                ASSERT_EQ(fast.pixels, plain.pixels)
                    << hwy::TargetName(target) << ' ' << name << ' ' << setup.width << 'x' << setup.height << " scale "
                    << setup.view.scale << " offset " << setup.view.offsetX << ',' << setup.view.offsetY;
            }
        }
    }
    hwy::SetSupportedTargetsForTest(0);
}

TEST(ConvertView, FlatAndNarrowImagesAreSeen)
{
    // As fitted into the window: the scale of the long side, the image in the middle of the short one.
    constexpr int kWidth = 128;
    constexpr int kHeight = 72;
    for (const char *format : {"Mono8", "Mono12", "Mono12p", "BayerRG8", "RGB8", "YCbCr422_8", "YUV444_8"}) {
        for (const int across : {1, 2, 3, 4, 5}) {
            for (const int along : {72, 90, 129, 200, 300, 700, 820, 8192}) {
                for (const bool isHigh : {false, true}) {
                    const int width = isHigh ? across : along;
                    const int height = isHigh ? along : across;
                    const double scale =
                        std::min(static_cast<double>(kWidth) / width, static_cast<double>(kHeight) / height);
                    const auto offset = [&](int window, int image) {
                        return static_cast<int>(std::floor((window - image * scale) / 2 + 0.5));
                    };
                    const orv::ViewTransform view{scale, offset(kWidth, width), offset(kHeight, height)};
                    TestImage image(TypeNamed(format), static_cast<std::uint32_t>(width),
                                    static_cast<std::uint32_t>(height));
                    std::mt19937 random(5);
                    image.FillRandom(random);
                    for (const orv::LevelColours &colours : {orv::LevelColours(), orv::LevelColours{1, 2, 3}}) {
                        Window fast(kWidth, kHeight);
                        Window plain(kWidth, kHeight);
                        ASSERT_EQ(orv::ConvertView(image.get(), view, fast.Target(), &colours), ORV_IMAGE_OK);
                        ASSERT_EQ(orv::plain::ConvertView(image.get(), view, plain.Target(), &colours), ORV_IMAGE_OK);
                        ASSERT_EQ(fast.pixels, plain.pixels) << format << ' ' << width << 'x' << height;
                        const auto shown =
                            fast.pixels.size() -
                            static_cast<std::size_t>(std::count(fast.pixels.begin(), fast.pixels.end(), kBackground));
                        EXPECT_GT(shown, isHigh ? kHeight / 2U : kWidth / 2U)
                            << format << ' ' << width << 'x' << height;
                    }
                }
            }
        }
    }
}

TEST(ConvertView, FlatImagesByHand)
{
    const struct {
        const char *rule;
        double scale;
        int offsetY;
        int shownLine; ///< -1: none
    } kCases[] = {
        {"a line thinner than a window pixel", 0.25, 3, 3},
        {"the first window line", 0.25, 0, 0},
        {"the last window line", 0.25, 7, 7},
        {"above the window", 0.25, -1, -1},
        {"below the window", 0.25, 8, -1},
    };
    for (const auto &row : kCases) {
        TestImage image(orv::kMono8, 16, 1);
        for (int x = 0; x < 16; ++x)
            image.Bytes()[x] = static_cast<std::uint8_t>(10 * x);
        Window window(4, 8);
        ASSERT_EQ(orv::ConvertView(image.get(), {row.scale, 0, row.offsetY}, window.Target()), ORV_IMAGE_OK);
        for (int y = 0; y < 8; ++y)
            EXPECT_EQ(window.At(1, y), y == row.shownLine ? Grey(55) : kBackground) << row.rule << ' ' << y;
    }
}

TEST(ConvertView, FalseColoursByLevel)
{
    TestImage image(TypeNamed("Mono12"), 4, 1);
    const std::uint16_t levels[] = {0, 1023, 2048, 0xffff};
    std::memcpy(image.Bytes(), levels, sizeof levels);
    Window window(4, 1);
    const orv::LevelColours four = {1, 2, 3, 4}; // spread over 4096 levels; made opaque
    ASSERT_EQ(orv::ConvertView(image.get(), {1, 0, 0}, window.Target(), &four), ORV_IMAGE_OK);
    EXPECT_EQ(window.pixels, (std::vector<std::uint32_t>{0xff000001, 0xff000001, 0xff000003, 0xff000004}));
}

TEST(ConvertView, RefusedImagesLeaveTheWindowAlone)
{
    const struct {
        const char *rule;
        std::uint32_t pixelType;
        OrvLineLayout layout;
        std::size_t missingBytes;
        int status;
    } kCases[] = {
        {"a byte short", orv::kMono8, ORV_LINES_PITCHED, 1, ORV_IMAGE_ERR_TOO_SHORT},
        {"packed, a byte short", TypeNamed("Mono12p"), ORV_LINES_CONTINUOUS, 1, ORV_IMAGE_ERR_TOO_SHORT},
        {"empty", TypeNamed("BayerRG10Packed"), ORV_LINES_PITCHED, 1000, ORV_IMAGE_ERR_TOO_SHORT},
        {"four-colour sensor", TypeNamed("TrueSense_GBRG_WGGW_0_8"), ORV_LINES_PITCHED, 0,
         ORV_IMAGE_ERR_NOT_CONVERTIBLE},
        {"complete", orv::kMono8, ORV_LINES_PITCHED, 0, ORV_IMAGE_OK},
    };
    for (const auto &row : kCases) {
        TestImage image(row.pixelType, 9, 7, 2, row.layout);
        image->dataSize -= std::min(image->dataSize, row.missingBytes);
        Window window(5, 5);
        EXPECT_EQ(orv::ConvertView(image.get(), {1, 0, 0}, window.Target()), row.status) << row.rule;
        EXPECT_EQ(window.At(2, 2) == kUntouched, row.status != ORV_IMAGE_OK) << row.rule;
    }

    TestImage image(orv::kMono8, 4, 4);
    Window window(5, 5);
    for (const double scale :
         {0.0, -1.0, std::numeric_limits<double>::quiet_NaN(), std::numeric_limits<double>::infinity()})
        EXPECT_EQ(orv::ConvertView(image.get(), {scale, 0, 0}, window.Target()), ORV_IMAGE_ERR_INVALID_ARGUMENT);
    EXPECT_EQ(orv::ConvertView(nullptr, {1, 0, 0}, window.Target()), ORV_IMAGE_ERR_INVALID_ARGUMENT);
    image->pixelType = 0x01080099;
    EXPECT_EQ(orv::ConvertView(image.get(), {1, 0, 0}, window.Target()), ORV_IMAGE_ERR_UNKNOWN_FORMAT);
    image->pixelType = orv::kMono8;
    image->linePitch = 3;
    EXPECT_EQ(orv::ConvertView(image.get(), {1, 0, 0}, window.Target()), ORV_IMAGE_ERR_INVALID_ARGUMENT);
}

TEST(ConvertView, ExtremeGeometriesStayInside)
{
    TestImage image(orv::kBayerGR8, 3, 1000);
    const orv::ViewTransform kViews[] = {
        {1e-9, 0, 0}, {1e9, 0, 0}, {1, 2000000000, 0}, {0.3, -2000000000, -2000000000}, {64, -190, -60000}};
    for (const orv::ViewTransform &view : kViews) {
        Window fast(17, 9);
        Window plain(17, 9);
        ASSERT_EQ(orv::ConvertView(image.get(), view, fast.Target()), ORV_IMAGE_OK);
        ASSERT_EQ(orv::plain::ConvertView(image.get(), view, plain.Target()), ORV_IMAGE_OK);
        EXPECT_EQ(fast.pixels, plain.pixels) << view.scale;
    }
}

} // namespace
