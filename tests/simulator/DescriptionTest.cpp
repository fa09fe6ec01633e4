#include "tests/simulator/DescriptionChecks.h"
#include "tests/simulator/ToyCamera.h"
#include "tests/simulator/XmlTree.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace orvsim {

namespace {

using testing::ElementsAre;

} // namespace

TEST(Description, KeepsTheRules)
{
    const ToyCamera camera;
    EXPECT_THAT(DescriptionProblems(camera.Xml()), testing::IsEmpty());
    EXPECT_EQ(camera.Xml(), ToyCamera().Xml()) << "the same table gives the same text";
}

// What a consumer shows or keeps by; how values are read and written others show below.
TEST(Description, NodesLookAsTheirRowsSay)
{
    XmlElement root;
    std::string error;
    ASSERT_TRUE(ParseXml(ToyCamera().Xml(), root, error)) << error;
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
        {"ExposureTime", "Representation", "Logarithmic"},
        {"UserSetSave_Reg", "AccessMode", "RW"},
        {"UserSetSave", "PollingTime", "100"},
        {"SimLevel_Reg", "Cachable", "NoCache"},
        {"SimLevel_Reg", "PollingTime", "500"},
        {"GainSelector", "pSelected", "Gain"},
        {"SimFact", "Max", ""},
    };
    for (const Case &row : cases)
        EXPECT_EQ(root.Named(row.node).TextOf(row.tag), row.text) << row.node << " " << row.tag;
    EXPECT_EQ(root.Named("Width").attributes.at("NameSpace"), "Standard");
    EXPECT_EQ(root.Named("SimLevel").attributes.at("NameSpace"), "Custom");
    EXPECT_EQ(root.attributes.at("ModelName"), "Toy_1") << "consumers make identifiers of it";
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
        const std::string text = bridge.Get(feature.name);
        if (feature.access == FeatureAccess::WriteOnly && feature.type == FeatureType::Integer) {
            EXPECT_NE(bridge.Error(), "") << feature.name;
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
        {"SimIris", "5.6"},
        {"GevSCPSPacketSize", "8000"},
        {"GevSCPSDoNotFragment", "0"},
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

// Here and below registers are cached: whatever a write changes must say so to be seen.
TEST(Description, LimitsFollowTheCamera)
{
    ToyCamera camera;
    GenApiBridge bridge = camera.Open();
    bridge.CacheRegisters();
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
    bridge.CacheRegisters();
    EXPECT_FALSE(bridge.IsLocked("Width"));
    EXPECT_TRUE(bridge.Set("TLParamsLocked", "1"));
    EXPECT_TRUE(bridge.IsLocked("Width"));
    EXPECT_FALSE(bridge.Set("Width", "320"));
    EXPECT_THAT(bridge.Error(), testing::HasSubstr("ReadOnly"));
    EXPECT_TRUE(bridge.Set("TLParamsLocked", "0"));

    EXPECT_FALSE(bridge.IsAvailable("TriggerSoftware"));
    EXPECT_FALSE(bridge.Set("TriggerSoftware", ""));
    EXPECT_TRUE(bridge.Set("ReverseX", "1"));
    EXPECT_TRUE(bridge.IsAvailable("TriggerSoftware"));

    EXPECT_THAT(bridge.OpenEntriesOf("PixelFormat"), ElementsAre("Mono8"));
    EXPECT_TRUE(bridge.Set("SimDeep", "1"));
    EXPECT_THAT(bridge.OpenEntriesOf("PixelFormat"), ElementsAre("Mono8", "Mono10", "Mono12"));
    EXPECT_TRUE(bridge.Set("Width", "656"));
    EXPECT_THAT(bridge.OpenEntriesOf("PixelFormat"), ElementsAre("Mono8", "Mono10"));
    EXPECT_FALSE(bridge.Set("PixelFormat", "Mono12"));

    EXPECT_EQ(bridge.Get("Gain"), "1.5");
    EXPECT_TRUE(bridge.Set("GainSelector", "Digital"));
    EXPECT_EQ(bridge.Get("Gain"), "2.5");
}

} // namespace orvsim
