#include "simulator/core/CameraModel.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>

namespace orvsim {
namespace {

bool Lists(const std::vector<std::string> &names, const std::string &name)
{
    return std::find(names.begin(), names.end(), name) != names.end();
}

/// All that a client can see of a feature, as one text.
std::string SeenOf(const FeatureTable &table, const Feature &feature)
{
    std::string seen = table.GetText(feature.name);
    const auto add = [&seen](auto value) { seen += "|" + std::to_string(value); };
    if (feature.integerRange) {
        const IntegerRange range = feature.integerRange();
        add(range.minimum);
        add(range.maximum);
        add(range.increment);
    }
    if (feature.floatRange) {
        add(feature.floatRange().minimum);
        add(feature.floatRange().maximum);
    }
    if (feature.isAvailable)
        add(feature.isAvailable());
    if (feature.isLocked)
        add(feature.isLocked());
    return seen;
}

using Sight = std::map<std::string, std::string>;

Sight SeenOf(const FeatureTable &table)
{
    Sight sight;
    for (const Feature &feature : table.Features())
        sight[feature.name] = SeenOf(table, feature);
    return sight;
}

/// Values worth trying: the ends, the middle, every entry.
std::vector<std::string> CandidatesFor(const Feature &feature)
{
    std::vector<std::string> candidates;
    if (feature.type == FeatureType::Integer && feature.integerRange) {
        const IntegerRange range = feature.integerRange();
        const std::int64_t middle = (range.maximum - range.minimum) / 2 / range.increment * range.increment;
        for (const std::int64_t value : {range.minimum, range.minimum + middle, range.maximum})
            candidates.push_back(std::to_string(value));
    } else if (feature.type == FeatureType::Float && feature.floatRange) {
        for (const double value : {feature.floatRange().minimum, feature.floatRange().maximum})
            candidates.push_back(std::to_string(value));
    } else if (feature.type == FeatureType::Boolean) {
        candidates = {"0", "1"};
    } else if (feature.type == FeatureType::String) {
        candidates = {"name"};
    } else if (feature.type == FeatureType::Command) {
        candidates = {"1"};
    }
    for (const EnumerationEntry &entry : feature.entries)
        candidates.push_back(entry.name);
    return candidates;
}

void ExpectWithinLimits(const FeatureTable &table, const std::string &when)
{
    for (const Feature &feature : table.Features()) {
        if (feature.type == FeatureType::Integer && feature.integerRange && feature.getInteger) {
            const IntegerRange range = feature.integerRange();
            EXPECT_LE(range.minimum, feature.getInteger()) << feature.name << " " << when;
            EXPECT_GE(range.maximum, feature.getInteger()) << feature.name << " " << when;
            EXPECT_EQ((range.maximum - range.minimum) % range.increment, 0) << feature.name << " " << when;
            EXPECT_EQ((feature.getInteger() - range.minimum) % range.increment, 0) << feature.name << " " << when;
        } else if (feature.type == FeatureType::Float && feature.floatRange && feature.getFloat) {
            EXPECT_LE(feature.floatRange().minimum, feature.getFloat()) << feature.name << " " << when;
            EXPECT_GE(feature.floatRange().maximum, feature.getFloat()) << feature.name << " " << when;
        }
    }
}

class CameraModelTest : public testing::Test {
protected:
    CameraModelTest() : model(Options()) {}

    static CameraOptions Options()
    {
        CameraOptions options;
        options.sensor.width = 640;
        options.sensor.height = 480;
        options.linkMbps = 1000;
        return options;
    }

    Outcome Set(const std::string &name, const std::string &text)
    {
        std::string problem;
        return model.features.SetText(name, text, problem);
    }
    std::int64_t Number(const std::string &name) const { return std::stoll(model.features.GetText(name)); }

    CameraModel model;
};

// Consumers cache what nobody told them to forget, so whatever a write changes must name it; and a client that walks
// through the settings must never find one outside its own limits.
TEST_F(CameraModelTest, WhatAWriteChangesNamesItAndStaysWithinItsLimits)
{
    for (const Feature &written : model.features.Features()) {
        const bool isClockOrLock = written.name == "TLParamsLocked" || written.name == "DeviceReset";
        if (written.access == FeatureAccess::ReadOnly || isClockOrLock)
            continue;
        for (const std::string &candidate : CandidatesFor(written)) {
            const Sight before = SeenOf(model.features);
            if (Set(written.name, candidate) != Outcome::Ok)
                continue;
            ExpectWithinLimits(model.features, "after " + written.name);
            const Sight after = SeenOf(model.features);
            for (const Feature &changed : model.features.Features()) {
                if (changed.name == written.name || changed.isVolatile ||
                    before.at(changed.name) == after.at(changed.name))
                    continue;
                EXPECT_TRUE(Lists(changed.dependsOn, written.name) || Lists(written.selects, changed.name))
                    << written.name << " = " << candidate << " changes " << changed.name << " from "
                    << before.at(changed.name) << " to " << after.at(changed.name);
            }
        }
    }
}

// Whatever sensor, link and pace the program was told of.
TEST(CameraModelOptions, StartWithinTheirLimits)
{
    struct Case {
        const char *name;
        void (*change)(CameraOptions &);
    };
    const Case cases[] = {
        {"slowest clock", [](CameraOptions &o) { o.maxPixelClockMHz = 20; }},
        {"fastest clock", [](CameraOptions &o) { o.maxPixelClockMHz = 100'000; }},
        {"slowest link", [](CameraOptions &o) { o.linkMbps = 1; }},
        {"fastest link", [](CameraOptions &o) { o.linkMbps = 1'000'000; }},
        {"slowest rate", [](CameraOptions &o) { o.frameRate = 0.01; }},
        {"fastest rate", [](CameraOptions &o) { o.frameRate = 1e6; }},
        {"smallest sensor",
         [](CameraOptions &o) {
             o.sensor.width = 64;
             o.sensor.height = 64;
         }},
        {"largest sensor",
         [](CameraOptions &o) {
             o.sensor.width = 16384;
             o.sensor.height = 16384;
         }},
    };
    for (const Case &row : cases) {
        for (const TimingFamily family : {TimingFamily::PixelClock, TimingFamily::LineTime}) {
            CameraOptions options;
            options.family = family;
            row.change(options);
            const CameraModel model(options);
            ExpectWithinLimits(model.features, row.name);
        }
    }
}

TEST(CameraModelOptions, ASmallSensorIsNotReducedToNothing)
{
    CameraOptions options;
    options.sensor.width = 64;
    options.sensor.height = 64;
    CameraModel model(options);
    std::string problem;
    for (const char *name : {"BinningHorizontal", "DecimationHorizontal", "BinningVertical", "DecimationVertical"}) {
        for (const char *factor : {"2", "3", "4"})
            model.features.SetText(name, factor, problem);
        ExpectWithinLimits(model.features, std::string("after ") + name);
    }
    EXPECT_EQ(model.features.GetText("WidthMax"), "32");
    EXPECT_EQ(model.features.GetText("HeightMax"), "8");
}

TEST_F(CameraModelTest, RegionAndReductionFitTheSensor)
{
    EXPECT_EQ(Set("OffsetX", "320"), Outcome::InvalidValue) << "the whole width is in use";
    EXPECT_EQ(Set("Width", "320"), Outcome::Ok);
    EXPECT_EQ(Set("OffsetX", "320"), Outcome::Ok);
    EXPECT_EQ(Set("Width", "328"), Outcome::InvalidValue);
    EXPECT_EQ(Set("BinningHorizontal", "2"), Outcome::Ok);
    EXPECT_EQ(Number("WidthMax"), 320);
    EXPECT_EQ(Number("Width"), 320);
    EXPECT_EQ(Number("OffsetX"), 0);
    EXPECT_EQ(Set("DecimationHorizontal", "4"), Outcome::Ok);
    EXPECT_EQ(Number("Width"), 80);
    EXPECT_EQ(Number("PayloadSize"), 80 * 480);
}

TEST_F(CameraModelTest, StreamingLocksWhatChangesTheFrame)
{
    ASSERT_EQ(Set("TLParamsLocked", "1"), Outcome::Ok);
    const std::size_t payload = model.PayloadBytes();
    for (const Feature &feature : model.features.Features()) {
        if (feature.access == FeatureAccess::ReadOnly || feature.name == "TLParamsLocked" ||
            feature.name == "DeviceReset")
            continue;
        for (const std::string &candidate : CandidatesFor(feature)) {
            Set(feature.name, candidate);
            EXPECT_EQ(model.PayloadBytes(), payload) << feature.name << " = " << candidate;
        }
    }
    EXPECT_EQ(Set("Width", "320"), Outcome::ReadOnly);
    EXPECT_EQ(Set("ExposureTime", "2000"), Outcome::Ok);
}

TEST_F(CameraModelTest, EveryFormatHasAWireCodeAndASize)
{
    const Feature *format = model.features.Find("PixelFormat");
    EXPECT_GT(format->entries.size(), 60U);
    for (const EnumerationEntry &entry : format->entries) {
        ASSERT_EQ(Set("PixelFormat", entry.name), Outcome::Ok) << entry.name;
        EXPECT_EQ(model.features.GetText("PixelFormat"), entry.name);
        const std::int64_t bits = entry.value >> 16 & 0xff;
        EXPECT_EQ(Number("PayloadSize"), 640 * 480 * bits / 8) << entry.name;
    }
    CameraOptions mono = Options();
    mono.sensor.isColour = false;
    const CameraModel monochrome(mono);
    for (const EnumerationEntry &entry : monochrome.features.Find("PixelFormat")->entries)
        EXPECT_EQ(entry.name.rfind("Mono", 0), 0U) << entry.name;
}

TEST_F(CameraModelTest, UserSetsKeepSettingsAndTheDefaultIsFixed)
{
    ASSERT_EQ(Set("ExposureTime", "1234"), Outcome::Ok);
    EXPECT_EQ(Set("UserSetSave", "1"), Outcome::ReadOnly) << "the default set is not for saving";
    ASSERT_EQ(Set("UserSetSelector", "UserSet1"), Outcome::Ok);
    ASSERT_EQ(Set("UserSetSave", "1"), Outcome::Ok);
    ASSERT_EQ(Set("UserSetSelector", "Default"), Outcome::Ok);
    ASSERT_EQ(Set("UserSetLoad", "1"), Outcome::Ok);
    EXPECT_EQ(model.features.GetText("ExposureTime"), "10000");
    ASSERT_EQ(Set("UserSetDefault", "UserSet1"), Outcome::Ok);
    ASSERT_EQ(Set("DeviceReset", "1"), Outcome::Ok);
    EXPECT_TRUE(model.isResetRequested);
    model.ResetState();
    EXPECT_EQ(model.features.GetText("ExposureTime"), "1234");
}

TEST_F(CameraModelTest, TheLinksLimitHoldsTheRateOrCostsPackets)
{
    model.wireBytes = [](std::size_t bytes) { return bytes * 12 / 10; };
    const auto lossShare = [this] { return model.LossShareOf({0, 0, 0, false, 0}); };
    ASSERT_EQ(Set("ExposureTime", "100"), Outcome::Ok);
    ASSERT_EQ(Set("Frame_PixelClock", "40"), Outcome::Ok);
    EXPECT_EQ(lossShare(), 0);
    ASSERT_EQ(Set("Frame_PixelClock", "400"), Outcome::Ok);
    const double periodUs = (640 + 128) * (480 + 16) / 400.0;
    EXPECT_NEAR(lossShare(), 1 - 1000 / (640 * 480 * 1.2 * 8 / periodUs), 1e-6);
    ASSERT_EQ(Set("DeviceLinkThroughputLimitMode", "On"), Outcome::Ok);
    EXPECT_LT(lossShare(), 1e-9);
    EXPECT_NEAR(std::stod(model.features.GetText("ResultingFrameRate")), 125e6 / (640 * 480 * 1.2), 0.01);
}

TEST_F(CameraModelTest, CountersAndEventsFollowFrames)
{
    ASSERT_EQ(Set("CounterEventSource", "ExposureStart"), Outcome::Ok);
    ASSERT_EQ(Set("EventSelector", "ExposureEnd"), Outcome::Ok);
    ASSERT_EQ(Set("EventNotification", "On"), Outcome::Ok);
    ASSERT_EQ(Set("AcquisitionMode", "MultiFrame"), Outcome::Ok);
    ASSERT_EQ(Set("AcquisitionFrameCount", "3"), Outcome::Ok);
    ASSERT_EQ(Set("AcquisitionStart", "1"), Outcome::Ok);
    int taken = 0;
    while (model.acquisition.IsRunning() && taken < 10) {
        model.TakeFrame(model.clock.Now());
        ++taken;
    }
    EXPECT_EQ(taken, 3);
    EXPECT_EQ(Number("CounterValue"), 3);
    ASSERT_EQ(model.pendingEvents.size(), 3U);
    EXPECT_EQ(model.pendingEvents[2].kind, EventKind::ExposureEnd);
    EXPECT_EQ(model.pendingEvents[2].frameNumber, 2U);
}

} // namespace
} // namespace orvsim
