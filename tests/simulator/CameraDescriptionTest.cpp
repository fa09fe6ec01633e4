// The real camera's description, in the eyes of a checker and of somebody else's GenApi.
#include "simulator/core/ChunkTable.h"
#include "simulator/features/FeatureNodes.h"
#include "simulator/features/NumberText.h"
#include "simulator/gige/GigeCamera.h"
#include "simulator/gige/Gvcp.h"

#include "tests/simulator/DescriptionChecks.h"
#include "tests/simulator/GenApiBridge.h"
#include "tests/simulator/XmlTree.h"

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
        std::string error;
        EXPECT_TRUE(ParseXml(camera->Core().DescriptionXml(), root, error)) << error;
        bridge = std::make_unique<GenApiBridge>(
            camera->Core().DescriptionXml(),
            [this](auto address, auto size, auto *bytes) { return camera->Core().Read(address, size, bytes); },
            [this](auto address, auto size, auto *bytes) {
                return camera->Core().Write(address, size, bytes).outcome;
            });
    }

    const XmlElement &Node(const std::string &name) const { return root.Named(name); }
    bool IsHeldByTheCore(const std::string &name) { return !camera->Core().GetFeature(name).empty(); }

    std::unique_ptr<GigeCamera> camera;
    std::unique_ptr<GenApiBridge> bridge;
    XmlElement root;
};

TEST_P(CameraDescription, KeepsTheRules)
{
    EXPECT_THAT(DescriptionProblems(camera->Core().DescriptionXml()), testing::IsEmpty());
    EXPECT_EQ(bridge->KindOf("GevGVSPExtendedIDMode").empty(), GetParam().isLegacy) << "of version 2";
}

// What a consumer shows or keeps by.
TEST_P(CameraDescription, NodesLookAsTheirRowsSay)
{
    const char *const cases[][3] = {
        {"Width", "Streamable", "Yes"},
        {"Width", "Unit", "px"},
        {"GevSCPSPacketSize", "DisplayName", "Gev SCPS Packet Size"},
        {"TLParamsLocked", "Visibility", "Invisible"},
        {"ExposureTime", "Representation", "Logarithmic"},
        {"DeviceTemperature_Reg", "Cachable", "NoCache"},
        {"DeviceTemperature_Reg", "PollingTime", "2000"},
        {"GainSelector", "pSelected", "Gain"},
    };
    for (const auto &[node, tag, text] : cases)
        EXPECT_EQ(Node(node).TextOf(tag), text) << node << " " << tag;
    EXPECT_EQ(Node("Width").attributes.at("NameSpace"), "Standard");
    EXPECT_EQ(Node("SimDropRate").attributes.at("NameSpace"), "Custom");
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

// Registers are cached: whatever a write changes must say so to be seen.
TEST_P(CameraDescription, LimitsFollowFromOtherFeatures)
{
    bridge->CacheRegisters();
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

/// Big-endian, as the register of that name says, and `shift` bytes farther behind.
std::uint64_t NumberIn(const std::vector<std::uint8_t> &data, const XmlElement &reg, std::size_t shift = 0)
{
    const std::size_t begin = static_cast<std::size_t>(IntegerFrom(reg.TextOf("Address")).value_or(-1)) + shift;
    const std::size_t length = static_cast<std::size_t>(IntegerFrom(reg.TextOf("Length")).value_or(-1));
    std::uint64_t number = 0;
    for (std::size_t i = begin; i < begin + length; ++i)
        number = number << 8 | data.at(i);
    return number;
}

TEST_P(CameraDescription, EventsLieWhereItSaysInBothForms)
{
    EventMessage message;
    message.eventId = 0x9007; // FrameEnd
    message.blockId = 7;
    message.timestamp = 0x123456789;
    const std::vector<std::uint8_t> frame = {0, 0, 0, 0, 0, 0, 0x11, 0x22};
    message.data = {frame.data(), frame.size()};
    for (const bool isExtended : {false, true}) {
        if (isExtended && GetParam().isLegacy)
            continue;
        const Datagram datagram = MakeEvent(message, 1, isExtended, false);
        const std::vector<std::uint8_t> item(datagram.begin() + kGvcpHeaderSize, datagram.end());
        for (const auto &[name, value] : {std::pair<std::string, std::uint64_t>{"EventFrameEndTimestamp", 0x123456789},
                                          {"EventFrameEndFrameID", 0x1122}}) {
            const XmlElement &reg = Node(name + "_Reg");
            unsigned shift = 0; // of the extended form
            EXPECT_EQ(std::sscanf(Node(reg.TextOf("pAddress")).TextOf("Formula").c_str(), "(FORM * %u)", &shift),
                      GetParam().isLegacy ? EOF : 1);
            EXPECT_EQ(NumberIn(item, reg, isExtended ? shift : 0), value) << name;
            EXPECT_EQ(Node(reg.TextOf("pPort")).TextOf("EventID"), "9007");
        }
    }
}

TEST_P(CameraDescription, ChunksLieWhereItSays)
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
    std::map<std::string, std::uint64_t> expected = {
        {"Timestamp", values.timestampNs}, {"FrameID", 12}, {"CounterValue", 34},
        {"PixelFormat", 0x01080009},       {"Width", 320},  {"Gain", 0x3ff8000000000000}}; // 1.5
    const std::vector<std::uint8_t> image(1000, 0xab);
    std::vector<std::uint8_t> payload = image;
    AppendChunks(state, values, payload);
    EXPECT_EQ(payload.size(), image.size() + ChunkBytes(state));
    std::map<std::string, std::vector<std::uint8_t>> chunks; // read from the end: data, identifier, length
    for (std::size_t end = payload.size(); end >= 8;) {
        orv::ByteReader tail({&payload[end - 8], 8});
        const std::uint32_t id = tail.U32();
        const std::size_t length = tail.U32();
        ASSERT_LE(length, end - 8);
        const auto begin = payload.begin() + static_cast<std::ptrdiff_t>(end - 8 - length);
        chunks[ChunkPortName(id)] = {begin, begin + static_cast<std::ptrdiff_t>(length)};
        end -= 8 + length;
    }
    EXPECT_EQ(chunks.size(), kChunkKinds - 1);
    EXPECT_EQ(chunks.at(ChunkPortName(1)), image);
    for (const auto &[name, value] : expected) {
        const XmlElement &reg = Node("Chunk" + name + "_Reg");
        EXPECT_EQ(NumberIn(chunks.at(reg.TextOf("pPort")), reg), value) << name;
    }
}

TEST(DescriptionChecks, FindWhatIsWrong)
{
    GigeCamera camera{CameraOptions(), GigeOptions()};
    const char *const faults[][3] = {
        {"</Category>", "", "not well formed"},
        {"<Integer Name=\"Height\"", "<Integer Name=\"Width\"", "Width: the name is there twice"},
        {"<pPort>Device<", "<pPort>Devise<", "'Devise', which does not exist"},
        {"<Length>4</Length>", "", "something is missing"},
        {"<pValue>Width_Reg<", "<Unit>px</Unit><pValue>Width_Reg<", "not at its place"},
        {"<Visibility>Guru<", "<Visibility>Nobody<", "<Visibility> says 'Nobody'"},
        {"((HIGH &lt;&lt; 32) | LOW)", "(HIGH &lt;&lt; 32 | LOW)", "not read alike"},
        {"(TO / 100.0)", "(FROM / 100.0)", "not read alike"},
        {"Name=\"LOW\"", "Name=\"E\"", "cannot be called 'E'"},
    };
    for (const auto &[piece, replacement, problem] : faults) {
        std::string xml = camera.Core().DescriptionXml();
        ASSERT_NE(xml.find(piece), std::string::npos) << piece;
        xml.replace(xml.find(piece), std::string(piece).size(), replacement);
        EXPECT_THAT(DescriptionProblems(xml), testing::Contains(testing::HasSubstr(problem))) << piece;
    }
}

INSTANTIATE_TEST_SUITE_P(Cameras, CameraDescription, testing::ValuesIn(kKinds),
                         [](const auto &row) { return "Camera" + std::to_string(row.index); });

} // namespace
} // namespace orvsim
