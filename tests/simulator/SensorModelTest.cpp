#include "simulator/ImagingFixture.h"

#include <gtest/gtest.h>

#include <cmath>

namespace orvsim {

namespace {

constexpr double kRange = 4095; // 12 bits

/// Samples of the white patch over some phases: the same place, other noise.
std::vector<int> WhiteSamples(FrameRenderer &renderer, const FrameSettings &settings, int phases = 16)
{
    std::vector<int> samples;
    for (int phase = 0; phase < phases; ++phase) {
        const std::vector<int> frame = SamplesOf(Rendered(renderer, settings, phase), settings);
        samples.insert(samples.end(), frame.begin(), frame.end());
    }
    return samples;
}

} // namespace

class SensorModelTest : public testing::Test {
protected:
    const SensorTraits m_sensor = SheetSensor(false);
    FrameRenderer m_renderer{m_sensor, 1};
    FrameSettings m_settings = OnPatch(kWhitePatch, "Mono12");
};

TEST_F(SensorModelTest, MeanFollowsExposureAndGainUntilItSaturates)
{
    struct Row {
        double exposureUs;
        double gainDb;
        double expected; // levels, black included
    };
    const double perMs = kWhiteLight * m_sensor.sensitivity * 1000 / m_sensor.fullWell * kRange;
    const Row rows[] = {
        {0, 0, 64},
        {1000, 0, 64 + perMs},
        {2000, 0, 64 + 2 * perMs},
        {10000, 0, 64 + 10 * perMs},
        {1000, 6.0206, 64 + 2 * perMs},
        {1000, 20, 64 + 10 * perMs},
        {4000, -6.0206, 64 + 2 * perMs},
        {40000, 0, kRange},
        {40000, -6.0206, 64 + kRange / 2}, // the pixel is full before the converter is
        {10000, 20, kRange},
    };
    for (const Row &row : rows) {
        m_settings.exposureUs = row.exposureUs;
        m_settings.gainDb = row.gainDb;
        EXPECT_NEAR(StatisticsOf(WhiteSamples(m_renderer, m_settings)).mean, row.expected, 1 + 0.005 * row.expected)
            << row.exposureUs << " us, " << row.gainDb << " dB";
    }
}

TEST_F(SensorModelTest, NoiseFollowsThePhotonTransferCurve)
{
    for (const double gainDb : {0.0, 6.0}) {
        const double k = kRange / m_sensor.fullWell * std::pow(10, gainDb / 20); // levels per electron
        for (const double exposureUs : {100.0, 500.0, 1500.0, 4500.0}) {
            m_settings.exposureUs = exposureUs;
            m_settings.gainDb = gainDb;
            const Statistics seen = StatisticsOf(WhiteSamples(m_renderer, m_settings, 32));
            const double expected = (seen.mean - 64) * k + std::pow(m_sensor.readNoise * k, 2) + 1.0 / 12;
            EXPECT_NEAR(seen.variance, expected, 0.05 * expected) << exposureUs << " us, " << gainDb << " dB";
        }
    }
}

TEST_F(SensorModelTest, DepthIsTheConvertersUpperBitsOrAllOfThemLeftJustified)
{
    const std::vector<int> native = SamplesOf(Rendered(m_renderer, m_settings), m_settings);
    const struct {
        const char *format;
        int right;
        int left;
    } rows[] = {{"Mono8", 4, 0},  {"Mono10", 2, 0}, {"Mono10p", 2, 0},     {"Mono12p", 0, 0},
                {"Mono14", 0, 2}, {"Mono16", 0, 4}, {"Mono12Packed", 0, 0}};
    for (const auto &row : rows) {
        FrameSettings settings = m_settings;
        settings.pixelType = orvtest::TypeNamed(row.format);
        const std::vector<int> samples = SamplesOf(Rendered(m_renderer, settings), settings);
        for (std::size_t i = 0; i < native.size(); ++i)
            ASSERT_EQ(samples[i], native[i] >> row.right << row.left) << row.format << " sample " << i;
    }
}

TEST_F(SensorModelTest, GammaBendsTheRangeAndKeepsItsEnds)
{
    m_settings.exposureUs = 2500;
    const std::vector<int> straight = SamplesOf(Rendered(m_renderer, m_settings), m_settings);
    m_settings.gamma = 0.5;
    const std::vector<int> bent = SamplesOf(Rendered(m_renderer, m_settings), m_settings);
    for (std::size_t i = 0; i < straight.size(); ++i)
        ASSERT_NEAR(bent[i], std::sqrt(straight[i] / kRange) * kRange, 1);
    m_settings.exposureUs = 100000;
    EXPECT_EQ(SamplesOf(Rendered(m_renderer, m_settings), m_settings), std::vector<int>(32 * 32, 4095));
}

TEST_F(SensorModelTest, BinningAddsOrAveragesSignalsAndTheirNoise)
{
    m_settings.exposureUs = 1500;
    const Statistics single = StatisticsOf(WhiteSamples(m_renderer, m_settings, 32));
    m_settings.binningX = 2;
    m_settings.binningY = 2;
    m_settings.offsetX /= 2;
    m_settings.offsetY /= 2;
    m_settings.width = 16;
    m_settings.height = 16;
    const Statistics average = StatisticsOf(WhiteSamples(m_renderer, m_settings, 64));
    m_settings.binningModeX = BinningMode::Sum;
    const Statistics sumOfColumns = StatisticsOf(WhiteSamples(m_renderer, m_settings, 64));
    m_settings.binningModeY = BinningMode::Sum;
    const Statistics sum = StatisticsOf(WhiteSamples(m_renderer, m_settings, 64));
    EXPECT_NEAR(average.mean, single.mean, 2);
    EXPECT_NEAR(average.variance, single.variance / 4, 0.08 * single.variance / 4);
    EXPECT_NEAR(sumOfColumns.mean - 64, 2 * (single.mean - 64), 0.01 * sumOfColumns.mean);
    EXPECT_NEAR(sumOfColumns.variance, single.variance, 0.08 * single.variance);
    EXPECT_NEAR(sum.mean - 64, 4 * (single.mean - 64), 0.01 * sum.mean);
    EXPECT_NEAR(sum.variance, 4 * single.variance, 0.08 * 4 * single.variance);
}

TEST(ColourSensor, WhiteBalanceScalesEachColourAlone)
{
    FrameRenderer renderer(Quiet(SheetSensor(true)), 1);
    FrameSettings settings = OnPatch(20, "RGB8"); // grey
    settings.blackLevel = 0;
    const Light plain = MeanColour(renderer, settings);
    settings.balanceRed = 1.5;
    settings.balanceBlue = 0.5;
    const Light balanced = MeanColour(renderer, settings);
    EXPECT_NEAR(balanced.red, 1.5 * plain.red, 2);
    EXPECT_NEAR(balanced.green, plain.green, 0.5);
    EXPECT_NEAR(balanced.blue, 0.5 * plain.blue, 2);
}

} // namespace orvsim
