#include "tests/simulator/ToyCamera.h"

#include <gmock/gmock.h>
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

TEST(FeatureTable, TextsShowTheValues)
{
    ToyCamera camera;
    camera.exposureUs = 1e6;
    const std::pair<const char *, const char *> texts[] = {
        {"Width", "640"},
        {"SimLevel", "-5"},
        {"SimCount", "5000000000"},
        {"ExposureTime", "1000000"},
        {"Gain", "1.5"},
        {"PixelFormat", "Mono8"},
        {"ReverseX", "0"},
        {"TriggerSoftware", ""},
        {"DeviceUserID", "toy"},
        {"DeviceTemperature", "-12.5"},
        {"SimEnd", "640"},
        {"SimShare", "50"},
        {"GevSCPSPacketSize", "1500"},
        {"GevSCPSDoNotFragment", "1"},
        {"SimHost", "host"},
        {"ChunkTimestamp", ""},
        {"NoSuchFeature", ""},
    };
    for (const auto &[name, text] : texts)
        EXPECT_EQ(camera.table.GetText(name), text) << name;
    camera.format = 99;
    EXPECT_EQ(camera.table.GetText("PixelFormat"), "99") << "a value without an entry";
}

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
        {"Width", "24", "Width 24: must be 16 to 1280 in steps of 16", "640"},
        {"Width", "1296", "Width 1296: must be 16 to 1280 in steps of 16", "640"},
        {"Width", "64 ", "Width 64 : must be 16 to 1280 in steps of 16", "640"},
        {"OffsetX", "641", "OffsetX 641: must be 0 to 640", "0"},
        {"SimLevel", "-100", "", "-100"},
        {"SimLevel", "-99", "SimLevel -99: must be -100 to 100 in steps of 5", "-5"},
        {"SimFact", "1", "SimFact 1: is read-only", "1099511627776"},
        {"ExposureTime", "20.5", "", "20.5"},
        {"ExposureTime", "1e3", "", "1000"},
        {"ExposureTime", "20,5", "ExposureTime 20,5: must be 10 to 1000000", "10000.25"},
        {"ExposureTime", "nan", "ExposureTime nan: must be 10 to 1000000", "10000.25"},
        {"ExposureTime", "inf", "ExposureTime inf: must be 10 to 1000000", "10000.25"},
        {"ExposureTime", "9.99", "ExposureTime 9.99: must be 10 to 1000000", "10000.25"},
        {"PixelFormat", "Mono10", "PixelFormat Mono10: must be one of Mono8", "Mono8"},
        {"PixelFormat", "Rgb", "PixelFormat Rgb: must be one of Mono8", "Mono8"},
        {"ReverseX", "true", "", "1"},
        {"ReverseX", "2", "ReverseX 2: must be 0 or 1", "0"},
        {"TriggerSoftware", "", "TriggerSoftware: is not available now", ""},
        {"UserSetSave", "", "", ""},
        {"DeviceUserID", "sixteen letters!", "", "sixteen letters!"},
        {"DeviceUserID", "seventeen letters", "DeviceUserID seventeen letters: must be at most 16 bytes", "toy"},
        {"DeviceUserID", "taken", "DeviceUserID taken: was refused by the camera", "taken"},
        {"SimIris", "5.6", "SimIris 5.6: cannot be set by text", "2.8"},
        {"GevSCPSPacketSize", "8000", "", "8000"},
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
    const double kInfinity = std::numeric_limits<double>::infinity();
    const Write writes[] = {
        {"in range", "Width", Number(656, 4), Outcome::Ok, "656"},
        {"below", "Width", Number(0, 4), Outcome::InvalidValue, "640"},
        {"between steps", "Width", Number(650, 4), Outcome::InvalidValue, "640"},
        {"unsigned", "Width", Number(0xfffffff0, 4), Outcome::InvalidValue, "640"},
        {"negative in four bytes", "SimLevel", Number(0xffffffec, 4), Outcome::Ok, "-20"},
        {"negative in eight bytes", "SimCount", Number(static_cast<std::uint64_t>(-7), 8), Outcome::Ok, "-7"},
        {"half of eight bytes", "SimCount", Number(2, 4), Outcome::Ok, "9294967296"},
        {"read-only", "SimFact", Number(1, 8), Outcome::ReadOnly, "1099511627776"},
        {"float", "ExposureTime", Double(12.5), Outcome::Ok, "12.5"},
        {"float above", "ExposureTime", Double(1e7), Outcome::InvalidValue, "10000.25"},
        {"not a number", "ExposureTime", Double(kNan), Outcome::InvalidValue, "10000.25"},
        {"infinite", "ExposureTime", Double(kInfinity), Outcome::InvalidValue, "10000.25"},
        {"no such entry", "PixelFormat", Number(5, 4), Outcome::InvalidValue, "Mono8"},
        {"entry that is not available", "PixelFormat", Number(7, 4), Outcome::InvalidValue, "Mono8"},
        {"neither 0 nor 1", "ReverseX", Number(2, 4), Outcome::InvalidValue, "0"},
        {"not available", "TriggerSoftware", Number(1, 4), Outcome::ReadOnly, ""},
        {"command by another value", "UserSetSave", Number(2, 4), Outcome::InvalidValue, ""},
        {"text up to its zero", "DeviceUserID", {'a', 'b', 0, 'c'}, Outcome::Ok, "ab"},
        {"scaled", "SimIris", Number(560, 4), Outcome::Ok, "5.6"},
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
}

TEST(FeatureTable, FieldsOfOneRegisterKeepEachOther)
{
    ToyCamera camera;
    EXPECT_EQ(camera.Set("GevSCPSPacketSize", "8000"), "");
    EXPECT_EQ(camera.packetWord, 0x40000000u | 8000);
    EXPECT_EQ(camera.Set("GevSCPSDoNotFragment", "0"), "");
    EXPECT_EQ(camera.packetWord, 8000u);
}

TEST(FeatureTable, OnlyWhatIsNeededHasARegister)
{
    ToyCamera camera;
    const auto slots = [&](const char *name) { return camera.table.SlotsOf(name); };
    EXPECT_NE(slots("Width").minimum, 0u);
    EXPECT_NE(slots("Width").isLocked, 0u);
    EXPECT_EQ(slots("Width").isAvailable, 0u);
    EXPECT_EQ(slots("OffsetX").isLocked, 0u);
    EXPECT_EQ(slots("ExposureTime").minimum, 0u) << "fixed limits stand in the description";
    EXPECT_EQ(slots("Gain").increment, 0u);
    EXPECT_NE(slots("PixelFormat").entries, 0u);
    EXPECT_EQ(slots("GainSelector").entries, 0u);
    EXPECT_NE(slots("TriggerSoftware").isAvailable, 0u);
    EXPECT_EQ(slots("ChunkTimestamp").value, 0u);
    EXPECT_EQ(slots("GevSCPSPacketSize").value, 0x900u);
}

} // namespace orvsim
