#include "orvdoctor/Diagnosis.h"
#include "support/ScriptedCamera.h"

#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>

namespace {

namespace fs = std::filesystem;
using orv::Cure;
using orv::Facts;

/// A /sys and a /proc of the test's own.
class HostGather : public testing::Test {
protected:
    HostGather()
    {
        std::string name = testing::TempDir() + "orvdoctor-XXXXXX";
        m_root = mkdtemp(name.data());
        m_folders = {m_root + "/class", m_root + "/proc", m_root + "/proc/net", m_root + "/etc", m_root + "/services"};
    }
    ~HostGather() override { fs::remove_all(m_root); }

    void Put(const std::string &path, const std::string &text)
    {
        fs::create_directories(fs::path(m_root + path).parent_path());
        std::ofstream(m_root + path) << text;
    }
    /// The loopback interface, which every host has.
    orv::HostInterfaceFacts Loopback()
    {
        orv::GatherHost(m_facts, m_folders);
        for (const orv::HostInterfaceFacts &interface : m_facts.interfaces)
            if (interface.name == "lo")
                return interface;
        ADD_FAILURE() << "no loopback interface";
        return {};
    }

    std::string m_root;
    orv::HostFolders m_folders;
    Facts m_facts;
};

TEST_F(HostGather, InterfacesWithSizeAndFilter)
{
    Put("/proc/net/core/rmem_max", "212992\n");
    EXPECT_EQ(Loopback().address >> 24, 127U);
    EXPECT_GT(Loopback().mtu, 1000);
    EXPECT_TRUE(m_facts.interfaces.front().isLoopback);
    EXPECT_EQ(m_facts.receiveBufferLimit, 212992U);
    EXPECT_EQ(m_facts.firewall, "");

    const struct {
        const char *all, *own;
        int inForce;
    } cases[] = {{"0", "0", 0}, {"1", "0", 1}, {"0", "1", 1}, {"2", "1", 2}, {"1", "2", 2}, {"", "1", 1}, {"", "", 0}};
    for (const auto &row : cases) {
        Put("/proc/net/ipv4/conf/all/rp_filter", row.all);
        Put("/proc/net/ipv4/conf/lo/rp_filter", row.own);
        EXPECT_EQ(Loopback().reversePathFilter, row.inForce) << row.all << " " << row.own;
    }
}

TEST_F(HostGather, TheFirewallThatIsSwitchedOn)
{
    const struct {
        const char *rule, *path, *text, *firewall, *chain;
    } cases[] = {
        {"none", "/etc/ufw/ufw.conf", "# comment\nENABLED=no\n", "", ""},
        {"rules that iptables wrote", "/etc/systemd/system/multi-user.target.wants/netfilter-persistent.service", "",
         "iptables", ""},
        {"a script for nft that guards nothing", "/etc/systemd/system/sysinit.target.wants/nftables.service", "", "",
         ""},
        {"one that does", "/etc/nftables.conf",
         "#!/usr/sbin/nft -f\nflush ruleset\n# table inet no { chain no { type filter hook input\n"
         "table ip6 six {\n chain input { type filter hook input priority 0; }\n}\n"
         "table inet guard {\n\tchain forward {\n\t\ttype filter hook forward priority filter;\n\t}\n"
         "\tchain incoming {\n\t\ttype filter hook input priority filter; policy drop;\n\t}\n}\n",
         "nftables", "inet guard incoming"},
        {"the simple one, before its rules", "/etc/ufw/ufw.conf", "# comment\nENABLED=yes\n", "ufw", ""},
        {"the one with zones", "/services/firewalld.service/cgroup.procs", "", "firewalld", ""},
    };
    for (const auto &row : cases) {
        Put(row.path, row.text);
        Loopback();
        EXPECT_EQ(m_facts.firewall, row.firewall) << row.rule;
        EXPECT_EQ(m_facts.firewallChain, row.chain) << row.rule;
    }
}

TEST_F(HostGather, TheWayToTheCameraAndToAllElse)
{
    Put("/proc/net/route", "Iface\tDestination\tGateway\tFlags\tRefCnt\tUse\tMetric\tMask\t\tMTU\tWindow\tIRTT\n"
                           "lo\t00000000\t0100000A\t0003\t0\t0\t100\t00000000\t0\t0\t0\n");
    m_facts.camera.address = "127.0.0.9";
    EXPECT_TRUE(Loopback().hasDefaultRoute);
    EXPECT_EQ(m_facts.routeInterface, "lo");
    Put("/proc/net/route", "lo\t0000000A\t00000000\t0001\t0\t0\t100\t000000FF\t0\t0\t0\n");
    m_facts.camera.address = "240.0.0.1"; // of no use to anybody
    EXPECT_FALSE(Loopback().hasDefaultRoute);
    EXPECT_TRUE(m_facts.routeIsKnown);
    EXPECT_NE(m_facts.routeInterface, "lo");
}

TEST_F(HostGather, WhatTheKernelCounted)
{
    const auto read = [&](const char *received, const char *delivered, const char *filtered, const char *bytes) {
        Put("/proc/net/snmp", std::string("Ip: Forwarding InReceives ForwDatagrams InDelivers ReasmReqds ReasmOKs\n") +
                                  "Ip: 1 " + received + " 20 " + delivered + " 30 10\n");
        Put("/proc/net/netstat", std::string("TcpExt: SyncookiesSent IPReversePathFilter\nTcpExt: 7 ") + filtered +
                                     "\nIpExt: InNoRoutes\nIpExt: 3\n");
        Put("/proc/net/dev", std::string("Inter-| Receive\n face |bytes packets\n  eth0: ") + bytes + " 5 0 0\n");
        return orv::ReadHostCounts(m_folders);
    };
    EXPECT_FALSE(orv::ReadHostCounts(m_folders).areKnown);
    const orv::HostCounts before = read("1000", "900", "4", "70000");
    const orv::HostCounts since = orv::Since(before, read("1500", "1100", "10", "5000000000"));
    EXPECT_TRUE(since.areKnown);
    EXPECT_EQ(since.filtered, 6U);
    EXPECT_EQ(since.undelivered, 500 - 200 - 6);
    ASSERT_EQ(since.arrived.size(), 1U);
    EXPECT_EQ(since.arrived[0].name, "eth0");
    EXPECT_EQ(since.arrived[0].bytes, 4999930000U);
}

class CameraGather : public testing::Test {
protected:
    Facts Gather()
    {
        Facts facts;
        orv::TriggerLook look;
        orv::GatherCamera(device, facts, &look);
        return facts;
    }
    scripted::Device device;
    scripted::FeatureArray &features = device.features;
};

TEST_F(CameraGather, ACameraWithoutAnyOfTheFeatures)
{
    device.description.address = "10.0.0.20";
    const Facts facts = Gather();
    EXPECT_TRUE(facts.isOpen);
    EXPECT_EQ(facts.camera.address, "10.0.0.20");
    EXPECT_FALSE(facts.hasTrigger || facts.isSilent || facts.hasGain || facts.exposureIsAuto);
    EXPECT_EQ(facts.exposureUs + facts.frameRateHz + static_cast<double>(facts.payloadSize), 0);
    device.hasFeatures = false;
    EXPECT_TRUE(Gather().isOpen);
}

TEST_F(CameraGather, TheSettingsThatMatter)
{
    features.AddFloat("ExposureTime", 7500, 1e7);
    features.AddFloat("AcquisitionFrameRate", 12.5, 100);
    features.AddInteger("Gain", 3);
    features.AddInteger("PayloadSize", 1310720);
    features.AddInteger("GevSCPSPacketSize", 8000);
    features.AddEnumeration("ExposureAuto", {"Off", "Continuous"}).Set("", "Continuous");
    Facts facts = Gather();
    EXPECT_EQ(facts.exposureUs, 7500);
    EXPECT_EQ(facts.frameRateHz, 12.5);
    EXPECT_TRUE(facts.hasGain);
    EXPECT_EQ(facts.gain, 3);
    EXPECT_EQ(facts.payloadSize, 1310720U);
    EXPECT_EQ(facts.packetSize, 8000U);
    EXPECT_TRUE(facts.exposureIsAuto);
    features.AddFloat("ResultingFrameRate", 9, 100);
    EXPECT_EQ(Gather().frameRateHz, 9) << "what comes of the settings, not what was asked for";
}

TEST_F(CameraGather, TriggersOfEverySelectorAndTheSelectorStays)
{
    auto &mode = features.AddEnumeration("TriggerMode", {"Off", "On"});
    EXPECT_FALSE(Gather().hasTrigger);
    mode.Set("", "On");
    EXPECT_TRUE(Gather().hasTrigger) << "a camera with a single trigger";

    auto &selector = features.AddEnumeration("TriggerSelector", {"ExposureEnd", "AcquisitionStart", "FrameStart"});
    auto &selected = features.AddEnumeration("TriggerMode", {"Off", "On"}, &selector);
    auto &source = features.AddEnumeration("TriggerSource", {"Line0", "Software"}, &selector);
    selected.Set("ExposureEnd", "On");
    EXPECT_FALSE(Gather().hasTrigger) << "a trigger that keeps no frame from beginning";
    selected.Set("FrameStart", "On");
    source.Set("FrameStart", "Software");
    const Facts facts = Gather();
    EXPECT_TRUE(facts.hasTrigger);
    EXPECT_EQ(facts.triggerSource, "Software");
    EXPECT_EQ(facts.triggerSelector, "FrameStart");
    EXPECT_EQ(selector.Current(), "ExposureEnd");
}

TEST_F(CameraGather, TheSelectorIsWrittenNoOftenerThanNeeded)
{
    auto &selector = features.AddEnumeration("TriggerSelector", {"ExposureEnd", "AcquisitionStart", "FrameStart"});
    auto &mode = features.AddEnumeration("TriggerMode", {"Off", "On"}, &selector);
    mode.Set("FrameStart", "On");
    orv::TriggerLook look;
    const struct {
        const char *rule, *selector, *frameStart;
        orv::TriggerLook *look;
        bool hasTrigger;
        int sets;
    } cases[] = {
        {"without a look, nothing is", "ExposureEnd", "On", nullptr, false, 0},
        {"the first look goes to both start triggers and back", "ExposureEnd", "On", &look, true, 4},
        {"the next one knows", "ExposureEnd", "On", &look, true, 0},
        {"what is selected can be read", "FrameStart", "On", &look, true, 0},
        {"it was moved, so it may have been switched", "ExposureEnd", "Off", &look, false, 4},
        {"which is known then, too", "ExposureEnd", "Off", &look, false, 0},
        {"a start trigger that is selected is not moved to", "AcquisitionStart", "On", &look, true, 2},
    };
    for (const auto &row : cases) {
        selector.Set("", row.selector);
        mode.Set("FrameStart", row.frameStart);
        selector.sets = 0;
        Facts facts;
        int answers = 0;
        orv::GatherCamera(device, facts, row.look, [&] { ++answers; });
        EXPECT_EQ(facts.hasTrigger, row.hasTrigger) << row.rule;
        EXPECT_EQ(selector.sets, row.sets) << row.rule;
        EXPECT_EQ(selector.Current(), row.selector) << row.rule;
        EXPECT_GT(answers, 0) << row.rule;
    }
}

TEST_F(CameraGather, ACameraThatFallsSilentBehindTheSelectorIsToldToGoBack)
{
    auto &selector = features.AddEnumeration("TriggerSelector", {"ExposureEnd", "AcquisitionStart", "FrameStart"});
    auto &mode = features.AddEnumeration("TriggerMode", {"Off", "On"}, &selector);
    mode.readStatus = ORV_CAM_ERR_TIMEOUT;
    orv::TriggerLook look;
    Facts facts;
    orv::GatherCamera(device, facts, &look);
    EXPECT_TRUE(facts.isSilent);
    EXPECT_EQ(selector.Current(), "ExposureEnd");
    EXPECT_EQ(selector.sets, 2) << "there and back, and no further";
    mode.readStatus = ORV_CAM_OK;
    mode.Set("FrameStart", "On");
    facts = Facts();
    orv::GatherCamera(device, facts, &look);
    EXPECT_TRUE(facts.hasTrigger) << "a look that got no answer is none";
}

TEST_F(CameraGather, ASilentCameraIsNotAskedOnAndOn)
{
    auto &mode = features.AddEnumeration("TriggerMode", {"Off", "On"});
    features.AddFloat("ExposureTime", 7500, 1e7);
    mode.readStatus = ORV_CAM_ERR_TIMEOUT;
    const Facts facts = Gather();
    EXPECT_TRUE(facts.isSilent);
    EXPECT_EQ(facts.exposureUs, 0);
    mode.readStatus = ORV_CAM_ERR_NOT_AVAILABLE;
    EXPECT_FALSE(Gather().isSilent) << "it answered, though with a refusal";
}

TEST_F(CameraGather, CuresSetWhatTheySay)
{
    auto &selector = features.AddEnumeration("TriggerSelector", {"AcquisitionStart", "FrameStart"});
    auto &mode = features.AddEnumeration("TriggerMode", {"Off", "On"}, &selector);
    mode.Set("FrameStart", "On");
    orv::Diagnosis diagnosis{};
    EXPECT_EQ(orv::ApplyCure(device, Cure::TriggerOnce, diagnosis), ORV_CAM_OK);
    EXPECT_THAT(device.TakeLog(), testing::ElementsAre("TriggerSoftware"));
    EXPECT_EQ(orv::ApplyCure(device, Cure::SwitchTriggerOff, diagnosis), ORV_CAM_OK);
    EXPECT_FALSE(Gather().hasTrigger);
    EXPECT_EQ(selector.Current(), "AcquisitionStart");
    mode.Set("FrameStart", "On");
    mode.setStatus = ORV_CAM_ERR_NOT_WRITABLE;
    EXPECT_EQ(orv::ApplyCure(device, Cure::SwitchTriggerOff, diagnosis), ORV_CAM_ERR_NOT_WRITABLE);

    auto &acquisition = features.AddEnumeration("AcquisitionMode", {"Continuous", "SingleFrame"});
    acquisition.Set("", "SingleFrame");
    EXPECT_EQ(Gather().acquisitionMode, "SingleFrame");
    EXPECT_EQ(orv::ApplyCure(device, Cure::TakeContinuously, diagnosis), ORV_CAM_OK);
    EXPECT_EQ(Gather().acquisitionMode, "Continuous");

    features.AddFloat("ExposureTime", 7500, 30000);
    diagnosis.value = 1e6;
    EXPECT_EQ(orv::ApplyCure(device, Cure::LengthenExposure, diagnosis), ORV_CAM_OK);
    EXPECT_EQ(Gather().exposureUs, 30000) << "as far as the camera goes";
    diagnosis.value = 20;
    EXPECT_EQ(orv::ApplyCure(device, Cure::ShortenExposure, diagnosis), ORV_CAM_OK);
    EXPECT_EQ(Gather().exposureUs, 20);
    EXPECT_EQ(orv::ApplyCure(device, Cure::ReducePacketSize, diagnosis), ORV_CAM_ERR_FEATURE_NOT_PRESENT);
    EXPECT_EQ(orv::ApplyCure(device, Cure::None, diagnosis), ORV_CAM_ERR_INVALID_PARAMETER);
}

/// An image of one colour, given as bytes of a pixel (or of two, for formats that pair them).
Facts Look(const char *format, const std::vector<std::uint8_t> &bytes, double splitAt = 1,
           const std::vector<std::uint8_t> &others = {})
{
    constexpr std::uint32_t kWidth = 210, kHeight = 130;
    _OrvImage *image = nullptr;
    EXPECT_EQ(OrvCreateImage(&image, kWidth, kHeight, orv::FindColorModel(std::string(format))->pixelType), 0);
    auto *data = static_cast<std::uint8_t *>(image->data);
    for (std::size_t i = 0; i < image->dataSize; ++i)
        data[i] = static_cast<double>(i) < splitAt * static_cast<double>(image->dataSize) ? bytes[i % bytes.size()]
                                                                                          : others[i % others.size()];
    Facts facts;
    orv::GatherPicture(*image, facts);
    OrvReleaseImage(&image);
    return facts;
}

TEST(PictureGather, DarkAndSaturatedSharesInEveryKindOfFormat)
{
    const struct {
        const char *rule, *format;
        std::vector<std::uint8_t> bytes;
        double dark, saturated;
    } cases[] = {
        {"black", "Mono8", {0}, 1, 0},
        {"a sensor's black level", "Mono8", {7}, 1, 0},
        {"dim", "Mono8", {12}, 0, 0},
        {"white", "Mono8", {255}, 0, 1},
        {"bright", "Mono8", {240}, 0, 0},
        {"12 bits in words, full", "Mono12", {0xFF, 0x0F}, 0, 1},
        {"12 bits in words, an eighth", "Mono12", {0x00, 0x02}, 0, 0},
        {"12 bits packed, full", "Mono12p", {0xFF}, 0, 1},
        {"10 bits packed, black", "Mono10p", {0}, 1, 0},
        {"one colour of a mosaic", "BayerRG8", {0, 90}, 0.5, 0},
        {"pure red is neither", "RGB8", {255, 0, 0}, 0, 0},
        {"white in colour", "RGB8", {255}, 0, 1},
        {"black in colour", "BGR8", {0}, 1, 0},
        {"black in video range", "YCbCr422_8", {16, 128}, 1, 0},
        {"white in video range", "YCbCr422_8", {235, 128}, 0, 1},
    };
    for (const auto &row : cases) {
        const Facts facts = Look(row.format, row.bytes);
        EXPECT_TRUE(facts.hasPicture) << row.rule;
        EXPECT_NEAR(facts.darkShare, row.dark, 0.06) << row.rule;
        EXPECT_NEAR(facts.saturatedShare, row.saturated, 0.06) << row.rule;
    }
    EXPECT_NEAR(Look("Mono8", {0}, 0.75, {255}).darkShare, 0.75, 0.02);
}

TEST(PictureGather, WhatIsNoPictureHasNoLevels)
{
    _OrvImage image{};
    Facts facts;
    facts.hasPicture = true;
    orv::GatherPicture(image, facts);
    EXPECT_FALSE(facts.hasPicture);
    std::uint8_t one = 0;
    image.pixelType = orv::kMono8;
    image.bitsPerPixel = image.significantBits = 8;
    image.width = image.height = 100;
    image.linePitch = 100;
    image.data = &one;
    image.dataSize = 1; // less than it claims
    orv::GatherPicture(image, facts);
    EXPECT_FALSE(facts.hasPicture);
}

} // namespace
