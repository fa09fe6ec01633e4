// The feature table by the real camera's features: what is taken by text and what through the registers.
#include "simulator/core/Camera.h"

#include <gtest/gtest.h>

#include <cstring>
#include <limits>
#include <vector>

namespace orvsim {
namespace {

using Bytes = std::vector<std::uint8_t>;

Bytes Number(std::uint64_t value, std::size_t size)
{
    Bytes bytes(size);
    for (std::size_t i = 0; i < size; ++i)
        bytes[i] = static_cast<std::uint8_t>(value >> (8 * (size - 1 - i)));
    return bytes;
}

Bytes NotANumber()
{
    const double value = std::numeric_limits<double>::quiet_NaN();
    std::uint64_t bits = 0;
    std::memcpy(&bits, &value, sizeof bits);
    return Number(bits, 8);
}

struct SmallCamera : Camera {
    SmallCamera() : Camera(Options()) { EXPECT_EQ(Finish(), ""); }
    static CameraOptions Options()
    {
        CameraOptions options;
        options.sensor.width = 640;
        options.sensor.height = 480;
        return options;
    }
    /// "" when that went well, else the problem.
    std::string Set(const char *name, const char *text)
    {
        std::string problem;
        return SetFeature(name, text, problem) == Outcome::Ok ? "" : problem;
    }
    Outcome WriteValue(const char *name, const Bytes &bytes)
    {
        const std::uint32_t address = Features().SlotsOf(name).value;
        return Write(address, static_cast<std::uint32_t>(bytes.size()), bytes.data()).outcome;
    }
};

TEST(FeatureTable, TextsAreCheckedLikeRegisters)
{
    struct Case {
        const char *feature;
        const char *text;
        const char *problem; ///< behind name and text
        const char *after;
    };
    const Case cases[] = {
        {"Width", "320", "", "320"},
        {"Width", "0x40", "", "64"},
        {"Width", "3", "must be 32 to 640 in steps of 8", "640"},
        {"Width", "64 ", "must be 32 to 640 in steps of 8", "640"},
        {"OffsetX", "641", "must be 0 to 0 in steps of 2", "0"},
        {"SimDropPacket", "-1", "", "-1"},
        {"SensorWidth", "64", "is read-only", "640"},
        {"ExposureTime", "20.5", "", "20.5"},
        {"ExposureTime", "1e3", "", "1000"},
        {"ExposureTime", "20,5", "must be 10 to 10000000", "10000"},
        {"ExposureTime", "nan", "must be 10 to 10000000", "10000"},
        {"ExposureTime", "9.99", "must be 10 to 10000000", "10000"},
        {"TriggerMode", "Maybe", "must be one of Off, On", "Off"},
        {"ReverseX", "true", "", "1"},
        {"ReverseX", "2", "must be 0 or 1", "0"},
        {"TimestampLatch", "", "", ""},
        {"DeviceUserID", "sixteen letters!", "", "sixteen letters!"},
        {"DeviceUserID", "seventeen letters", "must be at most 16 bytes", ""},
        {"NoSuchFeature", "1", "is not a feature of this camera", ""},
    };
    for (const Case &row : cases) {
        SCOPED_TRACE(std::string(row.feature) + " " + row.text);
        SmallCamera camera;
        const std::string problem = camera.Set(row.feature, row.text);
        EXPECT_EQ(problem.substr(std::min(problem.size(), problem.rfind(": ") + 2)), row.problem);
        EXPECT_EQ(problem.find(row.feature), *row.problem != 0 ? 0 : std::string::npos);
        EXPECT_EQ(camera.GetFeature(row.feature), row.after);
    }
}

TEST(FeatureTable, RegistersRefuseWhatTheFeatureDoesNotTake)
{
    struct Case {
        const char *rule;
        const char *feature;
        Bytes bytes;
        Outcome outcome;
        const char *after;
    };
    const Case cases[] = {
        {"between steps", "Width", Number(322, 4), Outcome::InvalidValue, "640"},
        {"unsigned", "Width", Number(0xfffffff0, 4), Outcome::InvalidValue, "640"},
        {"signed", "SimDropPacket", Number(~std::uint64_t{0}, 8), Outcome::Ok, "-1"},
        {"half of eight bytes", "SimDropPacket", Number(2, 4), Outcome::InvalidValue, "-1"},
        {"read-only", "SensorWidth", Number(64, 4), Outcome::ReadOnly, "640"},
        {"not a number", "ExposureTime", NotANumber(), Outcome::InvalidValue, "10000"},
        {"no such entry", "TriggerMode", Number(5, 4), Outcome::InvalidValue, "Off"},
        {"neither 0 nor 1", "ReverseX", Number(2, 4), Outcome::InvalidValue, "0"},
        {"command by another value", "TimestampLatch", Number(2, 4), Outcome::InvalidValue, ""},
        {"not available", "TriggerSoftware", Number(1, 4), Outcome::ReadOnly, ""},
    };
    for (const Case &row : cases) {
        SCOPED_TRACE(row.rule);
        SmallCamera camera;
        EXPECT_EQ(camera.WriteValue(row.feature, row.bytes), row.outcome);
        EXPECT_EQ(camera.GetFeature(row.feature), row.after);
    }
}

TEST(FeatureTable, LocksAndAvailabilityCountAtTheMomentOfTheWrite)
{
    SmallCamera camera;
    EXPECT_EQ(camera.Set("TriggerSoftware", ""), "TriggerSoftware: is not available now");
    EXPECT_EQ(camera.Set("TriggerMode", "On"), "");
    EXPECT_EQ(camera.Set("TriggerSoftware", ""), "");
    EXPECT_EQ(camera.Set("TLParamsLocked", "1"), "");
    EXPECT_EQ(camera.WriteValue("Width", Number(320, 4)), Outcome::ReadOnly);
    EXPECT_EQ(camera.Set("Width", "320"), "Width 320: is locked now");
    EXPECT_EQ(camera.Set("TLParamsLocked", "0"), "");
    EXPECT_EQ(camera.Set("Width", "320"), "");
}

} // namespace
} // namespace orvsim
