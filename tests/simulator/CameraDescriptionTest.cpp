// The real camera's description, in the eyes of a checker and of somebody else's GenApi.
#include "simulator/core/ChunkTable.h"
#include "simulator/features/FeatureNodes.h"
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
        bridge = std::make_unique<GenApiBridge>(
            camera->Core().DescriptionXml(),
            [this](auto address, auto size, auto *bytes) { return camera->Core().Read(address, size, bytes); },
            [this](auto address, auto size, auto *bytes) {
                return camera->Core().Write(address, size, bytes).outcome;
            });
    }

    bool IsHeldByTheCore(const std::string &name) { return !camera->Core().GetFeature(name).empty(); }

    std::unique_ptr<GigeCamera> camera;
    std::unique_ptr<GenApiBridge> bridge;
};

TEST_P(CameraDescription, KeepsTheRules)
{
    EXPECT_THAT(DescriptionProblems(camera->Core().DescriptionXml()), testing::IsEmpty());
    EXPECT_EQ(bridge->KindOf("GevGVSPExtendedIDMode").empty(), GetParam().isLegacy) << "of version 2";
}

TEST_P(CameraDescription, EveryFeatureReadsAsTheCoreHoldsIt)
{
    ASSERT_TRUE(bridge->IsOpen());
    const std::vector<std::string> names = bridge->Features();
    for (const Feature &feature : camera->Core().Features().Features())
        EXPECT_EQ(std::count(names.begin(), names.end(), feature.name), feature.isHidden ? 0 : 1) << feature.name;
    int compared = 0;
    for (const std::string &name : names) {
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
    EXPECT_EQ(bridge->FloatRangeOf("DeviceTemperature").minimum, -40);
    EXPECT_EQ(bridge->FloatRangeOf("DeviceTemperature").maximum, 125) << "behind a conversion";
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

/// Reads chunks from the end, as a receiver does: length, identifier, data. \return data by identifier.
std::map<std::uint32_t, std::vector<std::uint8_t>> ChunksIn(const std::vector<std::uint8_t> &payload)
{
    std::map<std::uint32_t, std::vector<std::uint8_t>> chunks;
    const auto begin = payload.begin();
    std::ptrdiff_t end = static_cast<std::ptrdiff_t>(payload.size());
    while (end >= 8) {
        orv::ByteReader tail({&payload[static_cast<std::size_t>(end) - 8], 8});
        const std::uint32_t id = tail.U32();
        const std::ptrdiff_t length = tail.U32();
        if (length > end - 8)
            return {};
        chunks[id] = {begin + (end - 8 - length), begin + (end - 8)};
        end -= 8 + length;
    }
    EXPECT_EQ(end, 0);
    return chunks;
}

TEST_P(CameraDescription, ChunksAreReadInTheFormTheyCome)
{
    CameraState state{CameraOptions()};
    state.hasChunks = true;
    state.chunks[static_cast<std::size_t>(ChunkKind::Height)] = false;
    ChunkValues values;
    values.timestampNs = 0x0102030405060708;
    values.frameNumber = 12;
    values.counter = 34;
    values.pixelFormat = 0x01080009;
    values.frame.width = 320;
    values.frame.gainDb = 1.5;
    values.frame.exposureUs = 250.25;
    const std::vector<std::uint8_t> image(1000, 0xab);
    std::vector<std::uint8_t> payload = image;
    AppendChunks(state, values, payload);
    EXPECT_EQ(payload.size(), image.size() + ChunkBytes(state));
    const auto chunks = ChunksIn(payload);
    EXPECT_EQ(chunks.size(), kChunkKinds - 1);
    EXPECT_EQ(chunks.at(0x0001), image);
    for (const auto &[id, data] : chunks)
        bridge->Attach(ChunkPortName(id), data);
    const std::pair<const char *, std::string> texts[] = {
        {"ChunkTimestamp", std::to_string(values.timestampNs)},
        {"ChunkFrameID", "12"},
        {"ChunkCounterValue", "34"},
        {"ChunkPixelFormat", std::to_string(0x01080009)},
        {"ChunkWidth", "320"},
        {"ChunkGain", "1.5"},
        {"ChunkExposureTime", "250.25"},
        {"ChunkHeight", ""},
    };
    for (const auto &[name, text] : texts)
        EXPECT_EQ(bridge->Get(name), text) << name << bridge->Error();
}

INSTANTIATE_TEST_SUITE_P(Cameras, CameraDescription, testing::ValuesIn(kKinds),
                         [](const auto &row) { return "Camera" + std::to_string(row.index); });

} // namespace
} // namespace orvsim
