#include "simulator/imaging/ConfidencePlane.h"
#include "simulator/ImagingFixture.h"

#include <gtest/gtest.h>

#include <cstdlib>

namespace orvsim {

namespace {

SensorTraits SmallSensor(bool isColour = true)
{
    SensorTraits sensor = Quiet(SheetSensor(isColour));
    sensor.width = 160;
    sensor.height = 120;
    return sensor;
}

/// Sample of the full frame that a mirrored region's pixel must equal.
struct Cut {
    int offsetX;
    int offsetY;
    int width;
    int height;
    bool reverseX;
    bool reverseY;
};
constexpr Cut kCuts[] = {{0, 0, 160, 120, true, false},
                         {0, 0, 160, 120, false, true},
                         {32, 20, 51, 33, false, false},
                         {32, 20, 51, 33, true, true},
                         {109, 87, 51, 33, true, false}};

void ExpectCutOfFullFrame(FrameRenderer &renderer, FrameSettings settings, const Cut &cut, int tolerance)
{
    const std::vector<int> full = SamplesOf(Rendered(renderer, settings), settings);
    const int fullWidth = settings.width;
    const int fullHeight = settings.height;
    settings.offsetX = cut.offsetX;
    settings.offsetY = cut.offsetY;
    settings.width = cut.width;
    settings.height = cut.height;
    settings.reverseX = cut.reverseX;
    settings.reverseY = cut.reverseY;
    const std::vector<int> seen = SamplesOf(Rendered(renderer, settings), settings);
    const int channels = orv::LayoutOf(settings.pixelType).samplesPerPixel;
    for (int i = 0; i < static_cast<int>(seen.size()); ++i) {
        const int x = cut.offsetX + i / channels % cut.width;
        const int y = cut.offsetY + i / channels / cut.width;
        const int fullX = cut.reverseX ? fullWidth - 1 - x : x;
        const int fullY = cut.reverseY ? fullHeight - 1 - y : y;
        const int expected = full[static_cast<std::size_t>((fullY * fullWidth + fullX) * channels + i % channels)];
        ASSERT_LE(std::abs(seen[static_cast<std::size_t>(i)] - expected), tolerance) << x << ", " << y;
    }
}

} // namespace

TEST(TestPatterns, RegionsAndMirrorsCutTheFullPicture)
{
    FrameRenderer renderer(SmallSensor(), 1);
    for (const Cut &cut : kCuts) {
        for (const TestPattern pattern :
             {TestPattern::GreyHorizontalRamp, TestPattern::GreyVerticalRamp, TestPattern::ColourBar}) {
            for (const char *const format : {"Mono12p", "RGB8"}) {
                FrameSettings settings = FullFrame(SmallSensor(), format);
                settings.testPattern = pattern;
                ExpectCutOfFullFrame(renderer, settings, cut, 0);
            }
        }
        ExpectCutOfFullFrame(renderer, FullFrame(SmallSensor(), "RGB8"), cut, 1); // the scene, all but free of noise
    }
}

TEST(TestPatterns, BinnedAndDecimatedPicturesAreMadeOfTheFullOne)
{
    FrameRenderer renderer(SmallSensor(false), 1);
    const FrameSettings whole = FullFrame(SmallSensor(false), "Mono12");
    const std::vector<int> full = SamplesOf(Rendered(renderer, whole), whole);
    FrameSettings binned = whole;
    binned.binningX = 2;
    binned.binningY = 2;
    binned.decimationX = 2;
    binned.width = 40;
    binned.height = 60;
    const std::vector<int> seen = SamplesOf(Rendered(renderer, binned), binned);
    for (int i = 0; i < 40 * 60; ++i) {
        const int *const upper = full.data() + i / 40 * 2 * 160 + i % 40 * 4;
        const double mean = (upper[0] + upper[1] + upper[160] + upper[161]) / 4.0;
        ASSERT_NEAR(seen[static_cast<std::size_t>(i)], mean, 1.6) << i;
    }
}

TEST(TestPatterns, HaveTheirLevelsWhateverTheSensorIsSetTo)
{
    FrameRenderer renderer(SmallSensor(), 1);
    FrameSettings settings = FullFrame(SmallSensor(), "RGB10");
    settings.exposureUs = 1;
    settings.gainDb = 30;
    settings.gamma = 0.4;
    settings.balanceRed = 3;
    const auto pixel = [&](TestPattern pattern, int x, int y) {
        settings.testPattern = pattern;
        const std::vector<int> samples = SamplesOf(Rendered(renderer, settings), settings);
        const auto at = samples.begin() + (y * 160 + x) * 3;
        return std::vector<int>(at, at + 3);
    };
    const auto grey = [](int level) { return std::vector<int>(3, level); };
    EXPECT_EQ(pixel(TestPattern::Black, 80, 60), grey(0));
    EXPECT_EQ(pixel(TestPattern::White, 80, 60), grey(1023));
    EXPECT_EQ(pixel(TestPattern::GreyHorizontalRamp, 0, 5), grey(0));
    EXPECT_EQ(pixel(TestPattern::GreyHorizontalRamp, 159, 5), grey(1023));
    EXPECT_EQ(pixel(TestPattern::GreyVerticalRamp, 5, 119), grey(1023));
    const std::vector<int> bars[] = {{1023, 1023, 1023}, {1023, 1023, 0}, {0, 1023, 1023}, {0, 1023, 0},
                                     {1023, 0, 1023},    {1023, 0, 0},    {0, 0, 1023},    {0, 0, 0}};
    for (int bar = 0; bar < 8; ++bar) {
        EXPECT_EQ(pixel(TestPattern::ColourBar, bar * 20, 7), bars[bar]) << bar;
        EXPECT_EQ(pixel(TestPattern::ColourBar, bar * 20 + 19, 7), bars[bar]) << bar;
    }
}

TEST(TestPatterns, FrameCounterIsExactInEveryFormatAndFrame)
{
    FrameRenderer renderer(SmallSensor(), 1);
    for (const std::string &format : SendableFormats()) {
        for (const int width : {160, 31, 2}) {
            FrameSettings settings = FullFrame(SmallSensor(), format);
            settings.testPattern = TestPattern::FrameCounter;
            settings.width = width;
            settings.height = 23;
            settings.offsetX = 8;
            settings.reverseX = true; // neither counts
            std::vector<std::uint8_t> payload(ImageBytes(settings), 0xff);
            renderer.Render(settings, 0, payload.data());
            const orv::PixelLayout layout = orv::LayoutOf(settings.pixelType);
            for (const std::uint64_t number : {0ULL, 1ULL, 255ULL, 65530ULL, (1ULL << 40) + 77}) {
                renderer.Stamp(settings, number, 5, payload.data());
                const std::vector<int> samples = SamplesOf(payload, settings);
                for (std::size_t i = 0; i < samples.size(); ++i) {
                    const std::size_t at = i / static_cast<std::size_t>(layout.samplesPerPixel);
                    const std::size_t column = at % static_cast<std::size_t>(width);
                    const std::size_t line = at / static_cast<std::size_t>(width);
                    ASSERT_EQ(static_cast<std::uint64_t>(samples[i]), (column + line + number) % (1ULL << layout.bits))
                        << format << " " << column << ", " << line << " frame " << number;
                }
            }
        }
    }
}

TEST(ConfidencePlane, FallsFromTheMiddleToTheCornersOfTheRegion)
{
    ConfidencePlane plane;
    FrameSettings settings;
    for (const auto &[width, height] : {std::pair{9, 5}, std::pair{1, 1}, std::pair{3, 7}}) {
        settings.width = width;
        settings.height = height;
        std::vector<std::uint8_t> bytes{7};
        plane.AppendTo(bytes, settings, 3);
        ASSERT_EQ(bytes.size(), 1 + ConfidencePlane::Bytes(settings));
        EXPECT_EQ(bytes[1 + bytes.size() / 2 - 1], 255) << "in the middle";
        if (width > 1) {
            EXPECT_EQ(bytes[1], 63);
            EXPECT_EQ(bytes.back(), 63);
        }
    }
}

} // namespace orvsim
