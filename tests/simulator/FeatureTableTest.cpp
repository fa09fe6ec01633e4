#include "tests/simulator/ToyCamera.h"

#include <gtest/gtest.h>

#include <cmath>
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

Bytes Double(double value)
{
    std::uint64_t bits = 0;
    std::memcpy(&bits, &value, sizeof bits);
    return Number(bits, 8);
}

struct Write {
    const char *rule;
    const char *feature;
    Bytes bytes;
    Outcome outcome;
    const char *text; ///< of the feature afterwards
};

Outcome WriteValue(ToyCamera &camera, const Write &write)
{
    const std::uint32_t address = camera.table.SlotsOf(write.feature).value;
    return camera.registers.Write(address, static_cast<std::uint32_t>(write.bytes.size()), write.bytes.data());
}

} // namespace

TEST(FeatureTable, TextsAreCheckedLikeRegisters)
{
    struct Case {
        const char *feature;
        const char *text;
        const char *problem;
        const char *after;
    };
    const Case cases[] = {
        {"Width", "1280", "", "1280"},
        {"Width", "0x40", "", "64"},
        {"Width", "3", "Width 3: must be 16 to 1280 in steps of 16", "640"},
        {"Width", "64 ", "Width 64 : must be 16 to 1280 in steps of 16", "640"},
        {"OffsetX", "641", "OffsetX 641: must be 0 to 640", "0"},
        {"SimLevel", "-99", "SimLevel -99: must be -100 to 100 in steps of 5", "-5"},
        {"SimFact", "1", "SimFact 1: is read-only", "1099511627776"},
        {"ExposureTime", "20.5", "", "20.5"},
        {"ExposureTime", "1e3", "", "1000"},
        {"ExposureTime", "20,5", "ExposureTime 20,5: must be 10 to 1000000", "10000.25"},
        {"ExposureTime", "nan", "ExposureTime nan: must be 10 to 1000000", "10000.25"},
        {"ExposureTime", "9.99", "ExposureTime 9.99: must be 10 to 1000000", "10000.25"},
        {"PixelFormat", "Rgb", "PixelFormat Rgb: must be one of Mono8", "Mono8"},
        {"PixelFormat", "Mono10", "PixelFormat Mono10: must be one of Mono8", "Mono8"},
        {"ReverseX", "true", "", "1"},
        {"TriggerSoftware", "", "TriggerSoftware: is not available now", ""},
        {"UserSetSave", "", "", ""},
        {"DeviceUserID", "sixteen letters!", "", "sixteen letters!"},
        {"DeviceUserID", "seventeen letters", "DeviceUserID seventeen letters: must be at most 16 bytes", "toy"},
        {"DeviceUserID", "taken", "DeviceUserID taken: was refused by the camera", "taken"},
        {"SimIris", "5.6", "SimIris 5.6: cannot be set by text", "2.8"},
        {"GevSCPSPacketSize", "20000", "GevSCPSPacketSize 20000: must be 46 to 16000 in steps of 2", "1500"},
        {"SimHost", "other", "", "other"},
        {"NoSuchFeature", "1", "NoSuchFeature: is not a feature of this camera", ""},
    };
    for (const Case &row : cases) {
        SCOPED_TRACE(std::string(row.feature) + " " + row.text);
        ToyCamera camera;
        EXPECT_EQ(camera.Set(row.feature, row.text), row.problem);
        EXPECT_EQ(camera.table.GetText(row.feature), row.after);
    }
}

TEST(FeatureTable, RegistersRefuseWhatTheFeatureDoesNotTake)
{
    const double kNan = std::numeric_limits<double>::quiet_NaN();
    const Write writes[] = {
        {"between steps", "Width", Number(650, 4), Outcome::InvalidValue, "640"},
        {"unsigned", "Width", Number(0xfffffff0, 4), Outcome::InvalidValue, "640"},
        {"half of eight bytes", "SimCount", Number(2, 4), Outcome::Ok, "9294967296"},
        {"read-only", "SimFact", Number(1, 8), Outcome::ReadOnly, "1099511627776"},
        {"not a number", "ExposureTime", Double(kNan), Outcome::InvalidValue, "10000.25"},
        {"no such entry", "PixelFormat", Number(5, 4), Outcome::InvalidValue, "Mono8"},
        {"entry that is not available", "PixelFormat", Number(7, 4), Outcome::InvalidValue, "Mono8"},
        {"neither 0 nor 1", "ReverseX", Number(2, 4), Outcome::InvalidValue, "0"},
        {"command by another value", "UserSetSave", Number(2, 4), Outcome::InvalidValue, ""},
        {"text up to its zero", "DeviceUserID", {'a', 'b', 0, 'c'}, Outcome::Ok, "ab"},
        {"scaled between steps", "SimIris", Number(561, 4), Outcome::InvalidValue, "2.8"},
    };
    for (const Write &write : writes) {
        SCOPED_TRACE(write.rule);
        ToyCamera camera;
        EXPECT_EQ(WriteValue(camera, write), write.outcome);
        EXPECT_EQ(camera.table.GetText(write.feature), write.text);
    }
}

TEST(FeatureTable, LocksAndAvailabilityCountAtTheMomentOfTheWrite)
{
    ToyCamera camera;
    camera.format = 99;
    EXPECT_EQ(camera.table.GetText("PixelFormat"), "99") << "a value without an entry";
    camera.isStreaming = 1;
    EXPECT_EQ(WriteValue(camera, {"", "Width", Number(656, 4), {}, ""}), Outcome::ReadOnly);
    EXPECT_EQ(camera.Set("Width", "656"), "Width 656: is locked now");
    camera.isStreaming = 0;
    EXPECT_EQ(camera.Set("Width", "656"), "");
    camera.isMirrored = 1;
    EXPECT_EQ(camera.Set("TriggerSoftware", ""), "");
    EXPECT_EQ(camera.triggers, 1);
    camera.isDeep = true;
    EXPECT_EQ(camera.Set("PixelFormat", "Mono12"), "PixelFormat Mono12: must be one of Mono8, Mono10");
    EXPECT_EQ(camera.Set("PixelFormat", "Mono10"), "");
    EXPECT_EQ(camera.Set("UserSetSave", ""), "");
    EXPECT_EQ(camera.Set("UserSetSave", ""), "UserSetSave: cannot be set just now");
    EXPECT_EQ(camera.Set("GevSCPSPacketSize", "8000"), "");
    EXPECT_EQ(camera.packetWord, 0x40000000u | 8000) << "fields of one register keep each other";
}

} // namespace orvsim
