#include "simulator/ImagingFixture.h"

#include "simulator/imaging/ClockWindow.h"
#include "simulator/imaging/Font.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace orvsim {

namespace {

struct Size {
    int width;
    int height;
};
constexpr Size kSizes[] = {{1, 1}, {7, 5}, {33, 17}, {64, 48}};

SensorTraits SmallSensor()
{
    SensorTraits sensor;
    sensor.width = 128;
    sensor.height = 96;
    return sensor;
}

std::vector<std::uint8_t> RenderedInto(FrameRenderer &renderer, const FrameSettings &settings, std::uint8_t filling,
                                       std::size_t guard)
{
    std::vector<std::uint8_t> memory(ImageBytes(settings) + 2 * guard, filling);
    renderer.Render(settings, 3, memory.data() + guard);
    renderer.Stamp(settings, 42, 1'000'000'000, memory.data() + guard);
    return memory;
}

bool IsFilled(const std::uint8_t *bytes, std::size_t count, std::uint8_t value)
{
    return std::all_of(bytes, bytes + count, [&](std::uint8_t byte) { return byte == value; });
}

void ExpectColour(const Light &seen, const Light &expected, const std::string &what)
{
    EXPECT_NEAR(seen.red, expected.red, 2) << what;
    EXPECT_NEAR(seen.green, expected.green, 2) << what;
    EXPECT_NEAR(seen.blue, expected.blue, 2) << what;
}

} // namespace

TEST(FrameFormats, EveryFormatFillsItsBytesAndNoOthers)
{
    constexpr std::size_t kGuard = 64;
    FrameRenderer renderer(SmallSensor(), 1);
    FrameRenderer other(SmallSensor(), 1);
    EXPECT_GE(SendableFormats().size(), 60U);
    for (const std::string &format : SendableFormats()) {
        for (const Size &size : kSizes) {
            SCOPED_TRACE(format + " " + std::to_string(size.width) + " x " + std::to_string(size.height));
            FrameSettings settings = FullFrame(SmallSensor(), format);
            settings.width = size.width;
            settings.height = size.height;
            settings.offsetX = 36;
            settings.offsetY = 20;
            const auto over0 = RenderedInto(renderer, settings, 0x00, kGuard);
            const auto over1 = RenderedInto(other, settings, 0xff, kGuard);
            const std::size_t bytes = ImageBytes(settings);
            EXPECT_TRUE(std::equal(over0.begin() + kGuard, over0.begin() + kGuard + static_cast<std::ptrdiff_t>(bytes),
                                   over1.begin() + kGuard));
            EXPECT_TRUE(IsFilled(over0.data(), kGuard, 0) && IsFilled(over0.data() + kGuard + bytes, kGuard, 0));
            EXPECT_TRUE(IsFilled(over1.data(), kGuard, 0xff) && IsFilled(over1.data() + kGuard + bytes, kGuard, 0xff));
        }
    }
}

TEST(FrameFormats, EveryColourFormatShowsTheSameColours)
{
    FrameRenderer renderer(Quiet(SheetSensor(true)), 1);
    for (const int patch : {6, 12, 13, 14, 15, kWhitePatch}) { // orange, blue, green, red, yellow, white
        const Light expected = MeanColour(renderer, OnPatch(patch, "RGB8"));
        for (const std::string &format : SendableFormats()) {
            if (orv::LayoutOf(orvtest::TypeNamed(format)).family == orv::PixelFamily::Mono)
                continue;
            ExpectColour(MeanColour(renderer, OnPatch(patch, format)), expected, format + " " + std::to_string(patch));
        }
    }
    const auto level = [](double light) { return static_cast<float>(light * 255.0 / 4096 * 4095 * 0.8 + 4); };
    ExpectColour(MeanColour(renderer, OnPatch(14, "RGB8")), {level(0.76), level(0.14), level(0.16)}, "red");
}

TEST(FrameFormats, MirroredAndBinnedColourFiltersKeepTheirColours)
{
    FrameRenderer renderer(Quiet(SheetSensor(true)), 1);
    for (const char *const format : {"BayerGR8", "BayerRG8", "BayerGB8", "BayerBG8"}) {
        const FrameSettings plain = OnPatch(14, format);
        const Light expected = MeanColour(renderer, plain);
        FrameSettings mirrored = plain;
        mirrored.reverseX = true;
        mirrored.reverseY = true;
        mirrored.offsetX = Sheet::kWidth - plain.offsetX - plain.width;
        mirrored.offsetY = Sheet::kHeight - plain.offsetY - plain.height;
        FrameSettings binned = plain;
        binned.binningX = binned.binningY = 2;
        binned.offsetX /= 2;
        binned.offsetY /= 2;
        binned.width = binned.height = 14;
        for (const FrameSettings &settings : {mirrored, binned})
            ExpectColour(MeanColour(renderer, settings), expected, format);
    }
}

TEST(FrameFormats, SensorsOfAnyShapeGivePictures)
{
    for (const Size &size : {Size{64, 64}, {65, 199}, {2048, 64}, {64, 3000}, {16, 16}}) {
        SensorTraits sensor;
        sensor.width = size.width;
        sensor.height = size.height;
        FrameRenderer renderer(sensor, 1);
        FrameSettings settings = FullFrame(sensor, "RGB8");
        auto payload = Rendered(renderer, settings, 63);
        renderer.Stamp(settings, 1, 2, payload.data());
        EXPECT_GT(StatisticsOf(SamplesOf(payload, settings)).variance, 10) << size.width << " x " << size.height;
    }
}

TEST(Stamp, NumberAndTimeCanBeReadOffThePicture)
{
    SensorTraits sensor = Quiet(SheetSensor(false));
    sensor.width = 640;
    sensor.height = 480;
    FrameRenderer renderer(sensor, 1);
    Canvas canvas(sensor.width, sensor.height, false);
    const PixelArea area = ClockWindow(canvas).Area();
    constexpr int kDot = 3; // pixels, at this size
    const std::string number = "90123456";
    const FrameSettings settings = FullFrame(sensor, "Mono8");
    auto payload = Rendered(renderer, settings);
    renderer.Stamp(settings, 1'090'123'456, 83'000'000, payload.data()); // two stamps: the last one counts
    renderer.Stamp(settings, 7'890'123'456, 83'000'000, payload.data());
    for (int column = 0; column < TextWidth(number); ++column) {
        for (int row = 0; row < kGlyphHeight; ++row) {
            const int x = area.left + column * kDot + kDot / 2;
            const int y = area.top + row * kDot + kDot / 2;
            const bool isLit = payload[static_cast<std::size_t>(y * sensor.width + x)] > 80;
            const char character = number[static_cast<std::size_t>(column / kGlyphPitch)];
            ASSERT_EQ(isLit, HasDot(character, column % kGlyphPitch, row)) << column << ", " << row;
        }
    }
    EXPECT_EQ(ClockWindow::TextOf(5, (25 * 3600 + 61) * 1'000'000'000ULL + 7'000'000).time, "01:01:01.007");
}

TEST(Stamp, LeavesTheRestOfTheFrameAlone)
{
    const SensorTraits sensor = SheetSensor(true);
    FrameRenderer renderer(sensor, 1);
    for (const char *const format : {"BayerRG8", "YUV422_8", "Mono12p"}) {
        FrameSettings settings = FullFrame(sensor, format);
        settings.width = 1277; // packed lines start inside bytes
        const auto before = SamplesOf(Rendered(renderer, settings), settings);
        auto payload = Rendered(renderer, settings);
        renderer.Stamp(settings, 123, 456, payload.data());
        const auto after = SamplesOf(payload, settings);
        const int perPixel = orv::LayoutOf(settings.pixelType).samplesPerPixel;
        std::size_t changed = 0;
        for (std::size_t i = 0; i < after.size(); ++i) {
            if (after[i] == before[i])
                continue;
            ++changed;
            const int x = static_cast<int>(i) / perPixel % settings.width;
            const int y = static_cast<int>(i) / perPixel / settings.width;
            ASSERT_TRUE(x >= chart::kClock.left && x < chart::kClock.Right()) << format << " " << x << ", " << y;
            ASSERT_TRUE(y >= chart::kClock.top && y < chart::kClock.Bottom()) << format << " " << x << ", " << y;
        }
        EXPECT_GT(changed, 1000U);
        settings.offsetY = 500; // does not show the clock
        settings.height = 300;
        payload = Rendered(renderer, settings);
        const auto without = payload;
        renderer.Stamp(settings, 123, 456, payload.data());
        EXPECT_EQ(payload, without);
    }
}

} // namespace orvsim
