#include "tests/simulator/DescriptionChecks.h"
#include "tests/simulator/DescriptionIndex.h"
#include "tests/simulator/ToyCamera.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>

namespace orvsim {

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

/// A description's nodes by name.
class Nodes {
public:
    explicit Nodes(const std::string &xml)
    {
        std::string error;
        EXPECT_TRUE(ParseXml(xml, m_root, error)) << error;
        m_index = std::make_unique<DescriptionIndex>(m_root, m_problems);
    }
    const XmlElement &operator[](const std::string &name) const
    {
        static const XmlElement kNone;
        const XmlElement *node = m_index->Find(name);
        EXPECT_NE(node, nullptr) << name;
        return node != nullptr ? *node : kNone;
    }
    std::vector<std::string> Texts(const std::string &name, const std::string &tag) const
    {
        std::vector<std::string> texts;
        for (const XmlElement &child : (*this)[name].children) {
            if (child.tag == tag)
                texts.push_back(child.text);
        }
        return texts;
    }
    const std::map<std::string, std::string> &Root() const { return m_root.attributes; }

private:
    XmlElement m_root;
    std::vector<std::string> m_problems;
    std::unique_ptr<DescriptionIndex> m_index;
};

} // namespace

TEST(Description, KeepsTheRules)
{
    const ToyCamera camera;
    EXPECT_THAT(DescriptionProblems(camera.Xml()), IsEmpty());
    EXPECT_EQ(camera.Xml(), ToyCamera().Xml()) << "the same table gives the same text";
}

TEST(Description, NodesLookAsTheirRowsSay)
{
    const Nodes nodes(ToyCamera().Xml());
    struct Case {
        const char *node;
        const char *tag;
        const char *text;
    };
    const Case cases[] = {
        {"Width", "ToolTip", "Columns <of> the frame & more."},
        {"Width", "Streamable", "Yes"},
        {"Width", "Unit", "px"},
        {"GevSCPSPacketSize", "DisplayName", "Gev SCPS Packet Size"},
        {"TLParamsLocked", "DisplayName", "TL Params Locked"},
        {"TLParamsLocked", "Visibility", "Invisible"},
        {"SimCount", "Visibility", "Guru"},
        {"SimLevel", "Min", "-100"},
        {"SimLevel", "Inc", "5"},
        {"ExposureTime", "Representation", "Logarithmic"},
        {"SimLevel_Reg", "Sign", "Signed"},
        {"Width_Reg", "Sign", "Unsigned"},
        {"Width_Reg", "Endianess", "BigEndian"},
        {"SimKey_Reg", "AccessMode", "WO"},
        {"TriggerSoftware_Reg", "AccessMode", "WO"},
        {"UserSetSave_Reg", "AccessMode", "RW"},
        {"UserSetSave", "PollingTime", "100"},
        {"DeviceTemperature_Reg", "Cachable", "NoCache"},
        {"DeviceTemperature_Reg", "PollingTime", "500"},
        {"GevSCPSPacketSize_Reg", "LSB", "31"},
        {"GevSCPSPacketSize_Reg", "MSB", "16"},
        {"GevSCPSDoNotFragment_Reg", "Bit", "1"},
        {"PixelFormat_Mono12_Available", "Formula", "((MASK >> 2) & 1)"},
        {"ChunkPort_1A02", "ChunkID", "1A02"},
        {"EventPort_9007", "EventID", "9007"},
        {"SimFact", "Max", ""},
    };
    for (const Case &row : cases)
        EXPECT_EQ(nodes[row.node].TextOf(row.tag), row.text) << row.node << " " << row.tag;
    EXPECT_EQ(nodes["SimPacketWord_Reg"].tag, "IntReg") << "a whole register has no mask";
    EXPECT_EQ(nodes["Width"].attributes.at("NameSpace"), "Standard");
    EXPECT_EQ(nodes["SimLevel"].attributes.at("NameSpace"), "Custom");
    EXPECT_EQ(nodes.Root().at("ModelName"), "Toy_1") << "consumers make identifiers of it";
    EXPECT_EQ(nodes.Texts("Root", "pFeature").front(), "ImageFormatControl");
}

TEST(Description, RegistersNameWhatChangesThem)
{
    const Nodes nodes(ToyCamera().Xml());
    const auto invalidators = [&](const char *name) { return nodes.Texts(name, "pInvalidator"); };
    for (const char *name : {"Gain_Reg", "Gain_MinReg", "Gain_MaxReg"})
        EXPECT_THAT(invalidators(name), ElementsAre("GainSelector")) << name;
    EXPECT_THAT(invalidators("Width_MaxReg"), ElementsAre("OffsetX"));
    EXPECT_THAT(invalidators("Width_LockedReg"), UnorderedElementsAre("OffsetX", "TLParamsLocked"));
    EXPECT_THAT(invalidators("PixelFormat_EntriesReg"), UnorderedElementsAre("SimDeep", "Width"));
    EXPECT_THAT(invalidators("TriggerSoftware_AvailableReg"), ElementsAre("ReverseX"));
    EXPECT_THAT(invalidators("ExposureTime_Reg"), IsEmpty());
}

TEST(Description, SomebodyElsesGenApiReadsEveryFeature)
{
    ToyCamera camera;
    GenApiBridge bridge = camera.Open();
    ASSERT_TRUE(bridge.IsOpen());
    std::vector<std::string> names;
    for (const Feature &feature : camera.table.Features()) {
        if (feature.isHidden)
            continue;
        names.push_back(feature.name);
        const bool isElsewhere =
            std::holds_alternative<ChunkField>(feature.source) || std::holds_alternative<EventField>(feature.source);
        const std::string text = bridge.Get(feature.name);
        if (isElsewhere || feature.name == "SimKey") {
            EXPECT_NE(bridge.Error(), "") << feature.name;
            EXPECT_EQ(text, "") << feature.name;
            continue;
        }
        EXPECT_EQ(bridge.Error(), "") << feature.name;
        EXPECT_EQ(text, camera.table.GetText(feature.name)) << feature.name;
    }
    EXPECT_THAT(bridge.Features(), testing::UnorderedElementsAreArray(names));
    EXPECT_EQ(bridge.AccessOf("SimKey"), "WO");
    EXPECT_EQ(bridge.AccessOf("SimFact"), "RO");
    EXPECT_EQ(bridge.AccessOf("Width"), "RW");
}

TEST(Description, SomebodyElsesGenApiWritesEveryKind)
{
    const std::pair<const char *, const char *> writes[] = {
        {"Width", "320"},
        {"SimLevel", "-40"},
        {"SimCount", "-4000000000"},
        {"ExposureTime", "100.5"},
        {"Gain", "3.25"},
        {"PixelFormat", "Mono10"},
        {"ReverseX", "1"},
        {"DeviceUserID", "sixteen letters!"},
        {"DeviceUserID", "2"},
        {"SimIris", "5.6"},
        {"GevSCPSPacketSize", "8000"},
        {"GevSCPSDoNotFragment", "0"},
        {"SimPacketWord", "4294967295"},
        {"SimHost", "other"},
    };
    for (const auto &[name, text] : writes) {
        ToyCamera camera;
        camera.isDeep = true;
        GenApiBridge bridge = camera.Open();
        ASSERT_NE(camera.table.GetText(name), text);
        EXPECT_TRUE(bridge.Set(name, text)) << name << bridge.Error();
        EXPECT_EQ(camera.table.GetText(name), text) << name;
    }
    ToyCamera camera;
    GenApiBridge bridge = camera.Open();
    EXPECT_TRUE(bridge.Set("SimKey", "4294967295")) << bridge.Error();
    EXPECT_EQ(camera.key, 0xffffffff);
    EXPECT_TRUE(bridge.Set("GevSCPSPacketSize", "576"));
    EXPECT_EQ(camera.packetWord, 0x40000000u | 576) << "the register's other fields stay";
    camera.isMirrored = 1;
    EXPECT_TRUE(bridge.Set("TriggerSoftware", "")) << bridge.Error();
    EXPECT_EQ(camera.triggers, 1);
}

TEST(Description, LimitsFollowTheCamera)
{
    ToyCamera camera;
    GenApiBridge bridge = camera.Open();
    const auto expect = [&](const char *name, IntegerRange range) {
        const IntegerRange seen = bridge.IntegerRangeOf(name);
        EXPECT_EQ(seen.minimum, range.minimum) << name;
        EXPECT_EQ(seen.maximum, range.maximum) << name;
        EXPECT_EQ(seen.increment, range.increment) << name;
    };
    expect("Width", {16, 1280, 16});
    EXPECT_TRUE(bridge.Set("OffsetX", "100"));
    expect("Width", {16, 1168, 16});
    expect("SimLevel", {-100, 100, 5});
    expect("SimCount", {-5'000'000'000, 10'000'000'000, 1});
    expect("GevSCPSPacketSize", {46, 16000, 2});
    EXPECT_EQ(bridge.FloatRangeOf("ExposureTime").maximum, 1e6);
    EXPECT_EQ(bridge.FloatRangeOf("Gain").maximum, 12.5);
    EXPECT_TRUE(bridge.Set("GainSelector", "Digital"));
    EXPECT_EQ(bridge.FloatRangeOf("Gain").maximum, 24);
    EXPECT_EQ(bridge.FloatRangeOf("SimIris").minimum, 1);
    EXPECT_EQ(bridge.FloatRangeOf("SimIris").maximum, 22);
    EXPECT_FALSE(bridge.Set("Width", "1184"));
    EXPECT_FALSE(bridge.Set("Width", "650")) << "the camera itself refuses what lies between the steps";
    EXPECT_EQ(camera.width, 640);
}

TEST(Description, LocksAvailabilityEntriesAndSelectorsAreSeen)
{
    ToyCamera camera;
    GenApiBridge bridge = camera.Open();
    EXPECT_FALSE(bridge.IsLocked("Width"));
    EXPECT_TRUE(bridge.Set("TLParamsLocked", "1"));
    EXPECT_TRUE(bridge.IsLocked("Width"));
    EXPECT_FALSE(bridge.Set("Width", "320"));
    EXPECT_THAT(bridge.Error(), testing::HasSubstr("ReadOnly"));

    EXPECT_FALSE(bridge.IsAvailable("TriggerSoftware"));
    EXPECT_FALSE(bridge.Set("TriggerSoftware", ""));
    EXPECT_TRUE(bridge.Set("ReverseX", "1"));
    EXPECT_TRUE(bridge.IsAvailable("TriggerSoftware"));

    EXPECT_THAT(bridge.OpenEntriesOf("PixelFormat"), ElementsAre("Mono8"));
    EXPECT_TRUE(bridge.Set("SimDeep", "1"));
    EXPECT_THAT(bridge.OpenEntriesOf("PixelFormat"), ElementsAre("Mono8", "Mono10", "Mono12"));
    camera.width = 656;
    EXPECT_THAT(bridge.OpenEntriesOf("PixelFormat"), ElementsAre("Mono8", "Mono10"));
    EXPECT_FALSE(bridge.Set("PixelFormat", "Mono12"));

    EXPECT_THAT(bridge.SelectedBy("GainSelector"), ElementsAre("Gain"));
    EXPECT_EQ(bridge.Get("Gain"), "1.5");
    EXPECT_TRUE(bridge.Set("GainSelector", "Digital"));
    EXPECT_EQ(bridge.Get("Gain"), "2.5");
}

TEST(Description, ChunksAndEventsAreReadFromTheirData)
{
    ToyCamera camera;
    GenApiBridge bridge = camera.Open();
    bridge.Attach("ChunkPort_1A02", {0, 0, 0, 1, 0, 0, 0, 2, 0x3f, 0xf8, 0, 0, 0, 0, 0, 0});
    bridge.Attach("EventPort_9007", {0, 0, 0, 0, 0xff, 0, 0, 7});
    EXPECT_EQ(bridge.Get("ChunkTimestamp"), "4294967298") << bridge.Error();
    EXPECT_EQ(bridge.Get("ChunkGain"), "1.5") << bridge.Error();
    EXPECT_EQ(bridge.Get("EventFrameEndFrameID"), "4278190087") << bridge.Error();
}

} // namespace orvsim
