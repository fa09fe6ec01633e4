// The real camera's description, in the eyes of a checker and of somebody else's GenApi.
#include "simulator/gige/GigeCamera.h"
#include "simulator/gige/Gvcp.h"

#include "tests/simulator/DescriptionChecks.h"
#include "tests/simulator/GenApiBridge.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace orvsim {
namespace {

struct Kind {
    const char *name;
    bool isColour;
    TimingFamily family;
    bool isLegacy;
};
const Kind kKinds[] = {
    {"colour", true, TimingFamily::PixelClock, false},
    {"mono by line time, of two parts", false, TimingFamily::LineTime, false},
    {"legacy", true, TimingFamily::PixelClock, true},
};

class CameraDescription : public testing::TestWithParam<Kind> {
protected:
    CameraDescription()
    {
        CameraOptions options;
        options.sensor.width = 64;
        options.sensor.height = 64;
        options.sensor.isColour = GetParam().isColour;
        options.family = GetParam().family;
        GigeOptions gige;
        gige.legacy = GetParam().isLegacy;
        gige.multiPart = !GetParam().isColour;
        camera = std::make_unique<GigeCamera>(options, gige);
        const auto read = [this](std::uint32_t address, std::uint32_t size, std::uint8_t *bytes) {
            return camera->Core().Read(address, size, bytes);
        };
        const auto write = [this](std::uint32_t address, std::uint32_t size, const std::uint8_t *bytes) {
            return camera->Core().Write(address, size, bytes).outcome;
        };
        bridge = std::make_unique<GenApiBridge>(camera->Core().DescriptionXml(), read, write);
    }

    bool IsHeldByTheCore(const std::string &name) { return !camera->Core().GetFeature(name).empty(); }

    std::unique_ptr<GigeCamera> camera;
    std::unique_ptr<GenApiBridge> bridge;
};

TEST_P(CameraDescription, KeepsTheRules)
{
    EXPECT_THAT(DescriptionProblems(camera->Core().DescriptionXml()), testing::IsEmpty());
}

TEST_P(CameraDescription, EveryFeatureReadsAsTheCoreHoldsIt)
{
    ASSERT_TRUE(bridge->IsOpen());
    int compared = 0;
    for (const std::string &name : bridge->Features()) {
        const bool isData = name.rfind("Chunk", 0) == 0 || name.rfind("Event", 0) == 0; // of frames and messages
        if (bridge->KindOf(name) == "Command" || bridge->AccessOf(name) == "WO" || !bridge->IsAvailable(name) ||
            (isData && !IsHeldByTheCore(name)))
            continue;
        const std::string value = bridge->Get(name);
        EXPECT_EQ(bridge->Error(), "") << name;
        if (!IsHeldByTheCore(name))
            continue;
        ++compared;
        EXPECT_EQ(value, camera->Core().GetFeature(name)) << name;
    }
    EXPECT_GT(compared, 90);
}

// Locks and ranges hold, and nothing that can be written refuses what it says itself.
TEST_P(CameraDescription, EveryFeatureTakesItsOwnValueBack)
{
    for (const std::string &name : bridge->Features()) {
        const std::string kind = bridge->KindOf(name);
        const bool isLeftOut = kind == "Command" || name == "GevCCP" || name == "GevSCPHostPort";
        if (isLeftOut || bridge->AccessOf(name) != "RW" || !bridge->IsAvailable(name) || bridge->IsLocked(name))
            continue;
        const std::string value = bridge->Get(name);
        EXPECT_TRUE(bridge->Set(name, value)) << name << " = " << value << ": " << bridge->Error();
        EXPECT_EQ(bridge->Get(name), value) << name;
    }
}

TEST_P(CameraDescription, LimitsFollowFromOtherFeatures)
{
    EXPECT_EQ(bridge->IntegerRangeOf("OffsetX").maximum, 0);
    ASSERT_TRUE(bridge->Set("Width", "32"));
    EXPECT_EQ(bridge->IntegerRangeOf("OffsetX").maximum, 32);
    const double slow = bridge->FloatRangeOf("AcquisitionFrameRate").maximum;
    ASSERT_TRUE(bridge->Set("ExposureTime", "1000000"));
    EXPECT_LT(bridge->FloatRangeOf("AcquisitionFrameRate").maximum, slow);
    ASSERT_TRUE(bridge->Set("TLParamsLocked", "1"));
    EXPECT_TRUE(bridge->IsLocked("Width"));
    EXPECT_FALSE(bridge->Set("Width", "64"));
    EXPECT_FALSE(bridge->IsAvailable("TriggerSoftware"));
    ASSERT_TRUE(bridge->Set("TriggerMode", "On"));
    EXPECT_TRUE(bridge->IsAvailable("TriggerSoftware"));
}

TEST_P(CameraDescription, ConvertedValuesHaveTheirLimits)
{
    const FloatRange range = bridge->FloatRangeOf("DeviceTemperature");
    EXPECT_EQ(range.minimum, -40);
    EXPECT_EQ(range.maximum, 125);
}

// What a frame costs on the wire is up to the packets' size and the length of their ids.
TEST_P(CameraDescription, TheFastestRateOfALimitedLinkFollowsFromThePackets)
{
    bridge->CacheRegisters();
    ASSERT_TRUE(bridge->Set("DeviceLinkThroughputLimitMode", "On"));
    ASSERT_TRUE(bridge->Set("DeviceLinkThroughputLimit", "125000"));
    std::int64_t overhead = 100;
    camera->Core().SetWireBytes([&overhead](std::size_t bytes) { return bytes + static_cast<std::size_t>(overhead); });
    std::vector<std::pair<const char *, const char *>> settings = {{"GevSCPSPacketSize", "1000"}};
    if (!GetParam().isLegacy)
        settings.emplace_back("GevGVSPExtendedIDMode", "On");
    for (const auto &[name, value] : settings) {
        const double before = bridge->FloatRangeOf("AcquisitionFrameRate").maximum;
        const std::string resulting = bridge->Get("ResultingFrameRate");
        ASSERT_TRUE(bridge->Set(name, value));
        overhead *= 10;
        EXPECT_LT(bridge->FloatRangeOf("AcquisitionFrameRate").maximum, before) << "after " << name;
        EXPECT_NE(bridge->Get("ResultingFrameRate"), resulting) << "after " << name;
    }
}

TEST_P(CameraDescription, EventsAreReadInTheFormTheyCome)
{
    orv::ByteWriter frame;
    frame.U64(0x1122);
    const auto data = frame.Take();
    EventMessage message;
    message.eventId = 0x9007; // FrameEnd
    message.blockId = 7;
    message.timestamp = 0x123456789;
    message.data = {data.data(), data.size()};
    for (const bool isExtended : {false, true}) {
        if (isExtended && GetParam().isLegacy)
            continue;
        SCOPED_TRACE(isExtended ? "extended" : "standard");
        if (isExtended) {
            ASSERT_TRUE(bridge->Set("GevGVSPExtendedIDMode", "On")) << bridge->Error();
        }
        const Datagram datagram = MakeEvent(message, 1, isExtended, false);
        bridge->Attach("EventPort_9007", {datagram.begin() + kGvcpHeaderSize, datagram.end()});
        EXPECT_EQ(bridge->Get("EventFrameEndTimestamp"), std::to_string(0x123456789)) << bridge->Error();
        EXPECT_EQ(bridge->Get("EventFrameEndFrameID"), std::to_string(0x1122)) << bridge->Error();
    }
}

INSTANTIATE_TEST_SUITE_P(Cameras, CameraDescription, testing::ValuesIn(kKinds),
                         [](const auto &row) { return "Camera" + std::to_string(row.index); });

} // namespace
} // namespace orvsim
