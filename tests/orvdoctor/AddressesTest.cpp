#include "DiagnosisFacts.h"

#include <gtest/gtest.h>

namespace {

using doctor::MadeInterface;
using orv::Ipv4Text;
using orv::ParseIpv4;

TEST(Addresses, OnlyFourNumbersAreAnAddress)
{
    EXPECT_EQ(ParseIpv4("192.168.10.20"), 0xC0A80A14U);
    EXPECT_EQ(Ipv4Text(0xC0A80A14U), "192.168.10.20");
    for (const char *text : {"", "1.2.3", "1.2.3.4.5", "256.1.1.1", "1.2.3.4 ", " 1.2.3.4", "1.2.3.x", "0x1.2.3.4",
                             "01.2.3.4", "1..2.3", "-1.2.3.4"})
        EXPECT_FALSE(ParseIpv4(text)) << text;
}

TEST(Addresses, MasksAreOnesThenZeros)
{
    for (const char *mask : {"128.0.0.0", "255.0.0.0", "255.255.252.0", "255.255.255.254"})
        EXPECT_TRUE(orv::IsSubnetMask(*ParseIpv4(mask))) << mask;
    for (const char *mask : {"0.0.0.0", "255.255.255.255", "255.0.255.0", "0.255.255.0", "127.0.0.0"})
        EXPECT_FALSE(orv::IsSubnetMask(*ParseIpv4(mask))) << mask;
    EXPECT_EQ(orv::SubnetText(0x0A000001, 0xFFFFFC00), "10.0.0.1/22");
}

TEST(Addresses, TheProposedOneIsFreeAndOfTheSubnet)
{
    const struct {
        const char *rule, *own, *mask, *camera;
        std::vector<const char *> taken;
        const char *proposed; ///< "" for none
    } cases[] = {
        {"keeps the camera's last digits", "10.0.0.1", "255.255.255.0", "192.168.5.20", {}, "10.0.0.20"},
        {"not the host's own", "10.0.0.20", "255.255.255.0", "192.168.5.20", {}, "10.0.0.21"},
        {"nor another's", "10.0.0.1", "255.255.255.0", "192.168.5.20", {"10.0.0.20", "10.0.0.21"}, "10.0.0.22"},
        {"nor where gateways are", "10.0.0.7", "255.255.255.0", "192.168.5.1", {}, "10.0.0.2"},
        {"past the broadcast address", "10.0.0.7", "255.255.255.0", "192.168.5.254", {}, "10.0.0.2"},
        {"a wide subnet keeps more digits", "169.254.3.1", "255.255.0.0", "10.1.77.9", {}, "169.254.77.9"},
        {"a tiny subnet", "10.0.0.5", "255.255.255.252", "1.2.3.4", {}, "10.0.0.6"},
        {"a full one", "10.0.0.5", "255.255.255.252", "1.2.3.4", {"10.0.0.6"}, ""},
        {"a link between two only", "10.0.0.5", "255.255.255.255", "1.2.3.4", {}, ""},
    };
    for (const auto &row : cases) {
        std::vector<std::uint32_t> taken;
        for (const char *address : row.taken)
            taken.push_back(*ParseIpv4(address));
        const std::uint32_t proposed =
            orv::ProposeAddress(MadeInterface("eth0", row.own, row.mask), *ParseIpv4(row.camera), taken);
        EXPECT_EQ(proposed ? Ipv4Text(proposed) : "", row.proposed) << row.rule;
    }
}

TEST(Addresses, TheCamerasInterfaceIsFound)
{
    const std::vector<orv::HostInterfaceFacts> host{
        MadeInterface("eth0", "10.0.0.1"), MadeInterface("eth0.5", "10.0.5.1"), MadeInterface("eth1", "10.0.0.2")};
    const struct {
        const char *rule, *text, *id, *camera, *name;
    } cases[] = {
        {"by the address in its text", "eth1 (10.0.0.2)", "x", "10.0.0.9", "eth1"},
        {"which stands above its name", "eth0 (10.0.5.1)", "x", "10.0.0.9", "eth0.5"},
        {"by the address in its identifier", "Camera port", "GEV:eth1:10.0.0.2", "", "eth1"},
        {"an address that the host lacks is another host's", "eth0 (10.9.9.9)", "x", "10.0.0.9", ""},
        {"by its name", "eth0.5", "x", "10.0.0.9", "eth0.5"},
        {"by the camera's subnet", "Camera port", "x", "10.0.5.77", "eth0.5"},
        {"or not at all", "Camera port", "x", "172.16.0.1", ""},
    };
    for (const auto &row : cases) {
        OrvCam::DeviceDescription camera;
        camera.address = row.camera;
        camera.interface.text = row.text;
        camera.interface.id = row.id;
        const orv::HostInterfaceFacts *found = orv::InterfaceOf(camera, host);
        EXPECT_EQ(found ? found->name : "", row.name) << row.rule;
    }
}

} // namespace
