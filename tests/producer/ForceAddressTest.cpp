// Cameras that no route leads to: found, shown, and given an address.
#include "producer/gige/ForceAddress.h"
#include "producer/gige/NetworkInterfaces.h"
#include "producer/gige/Text.h"

#include "HexBytes.h"
#include "ScriptedDevice.h"
#include "SimulatedFixture.h"

using namespace nuvark::gige;

namespace {

constexpr std::uint32_t kForeignAddress = 0xC0A84D05; // 192.168.77.5
constexpr std::uint8_t kForeignMac[6] = {0x02, 0, 0, 0xAB, 0xCD, 0xEF};

std::vector<std::uint8_t> DiscoveryPayload(std::uint32_t address, const char *model)
{
    orv::ByteWriter out;
    out.U32(0x00010002);
    out.U32(0x80000001);
    out.U16(0);
    out.Bytes({kForeignMac, sizeof kForeignMac});
    std::vector<std::uint8_t> rest(232, 0);
    for (int i = 0; i < 4; ++i)
        rest[20 + i] = static_cast<std::uint8_t>(address >> (24 - 8 * i));
    std::copy(model, model + std::strlen(model), rest.begin() + 88);
    out.Bytes({rest.data(), rest.size()});
    return out.Take();
}

class ForceAddressTest : public SimulatedTest {
protected:
    GC_ERROR Force(const std::string &name, std::uint32_t address, std::uint32_t mask)
    {
        const std::int64_t last = GetNumber(interface, "DeviceSelectorMax");
        for (std::int64_t i = 0; i <= last; ++i) {
            EXPECT_EQ(SetNumber(interface, "DeviceSelector", i), GC_ERR_SUCCESS) << LastError();
            char model[0x400] = {};
            size_t size = sizeof model;
            EXPECT_EQ(Gc().GCReadPort(interface, AddressOf(interface, "DeviceModelName"), model, &size),
                      GC_ERR_SUCCESS);
            if (model != name)
                continue;
            EXPECT_EQ(SetNumber(interface, "GevDeviceForceIPAddress", address), GC_ERR_SUCCESS);
            EXPECT_EQ(SetNumber(interface, "GevDeviceForceSubnetMask", mask), GC_ERR_SUCCESS);
            EXPECT_EQ(SetNumber(interface, "GevDeviceForceGateway", 0), GC_ERR_SUCCESS);
            EXPECT_EQ(GetNumber(interface, "GevDeviceForceIPAddress"), address);
            return SetNumber(interface, "GevDeviceForceIP", 1);
        }
        ADD_FAILURE() << "no " << name;
        return GC_ERR_ERROR;
    }
    std::string Info(const std::string &id, DEVICE_INFO_CMD command)
    {
        return Ask([&](auto... out) { return Gc().IFGetDeviceInfo(interface, id.c_str(), command, out...); });
    }
};

} // namespace

TEST_F(ForceAddressTest, ACameraMovesAndIsFoundAgain)
{
    StartCamera();
    ASSERT_EQ(Gc().IFUpdateDeviceList(interface, nullptr, 300), GC_ERR_SUCCESS);
    EXPECT_EQ(Force("OrvSim", kSimulatedAddress + 1, 0xFF00FF00), GC_ERR_INVALID_VALUE) << "no mask";
    EXPECT_EQ(Force("OrvSim", 0x7F000000, 0xFF000000), GC_ERR_INVALID_VALUE) << "a whole subnet";
    EXPECT_EQ(Force("OrvSim", 0xEF010203, 0xFF000000), GC_ERR_INVALID_VALUE) << "a multicast group";
    ASSERT_NO_FATAL_FAILURE(OpenDevice());
    EXPECT_EQ(Force("OrvSim", kSimulatedAddress + 1, 0xFF000000), GC_ERR_ACCESS_DENIED) << "open";
    ASSERT_EQ(Gc().DevClose(device), GC_ERR_SUCCESS);
    ASSERT_EQ(Force("OrvSim", kSimulatedAddress + 1, 0xFF000000), GC_ERR_SUCCESS) << LastError();
    EXPECT_EQ(camera->Address(), kSimulatedAddress + 1);
    EXPECT_EQ(Info("SIM-PRODUCER", NUVARK_DEVICE_INFO_IP_ADDRESS), AddressText(kSimulatedAddress + 1))
        << "without another look";
    ASSERT_NO_FATAL_FAILURE(OpenDevice());
    ASSERT_EQ(Gc().DevClose(device), GC_ERR_SUCCESS);

    // Moved by somebody else, it is still the camera with that identifier.
    std::uint64_t mac = static_cast<std::uint64_t>(GetNumber(interface, "GevDeviceMACAddress"));
    std::array<std::uint8_t, 6> bytes;
    for (std::size_t i = 6; i > 0; --i, mac >>= 8)
        bytes[i - 1] = static_cast<std::uint8_t>(mac);
    const std::string id = Info("SIM-PRODUCER", DEVICE_INFO_ID);
    for (const NetworkInterface &lo : ListNetworkInterfaces()) {
        if (lo.address == 0x7F000001) {
            ASSERT_TRUE(ForceAddress(lo, {bytes, kSimulatedAddress + 2, 0xFF000000, 0}).Ok());
        }
    }
    ASSERT_NO_FATAL_FAILURE(OpenDevice(id.c_str()));
    EXPECT_EQ(Info(id, NUVARK_DEVICE_INFO_IP_ADDRESS), AddressText(kSimulatedAddress + 2));
}

TEST_F(ForceAddressTest, SettingsAndSelectionBelongToTheCamera)
{
    StartCamera();
    orvsim::CameraOptions options = SmallCamera();
    options.serial = "SECOND";
    orvsim::GigeOptions gige;
    gige.address = kSimulatedAddress + 5;
    gige.legacy = true;
    auto second = std::make_unique<orvsim::GigeCamera>(options, gige);
    ASSERT_EQ(second->Open(), "");
    ASSERT_EQ(SetNumber(interface, "DeviceUpdateList", 1), GC_ERR_SUCCESS);
    EXPECT_EQ(SetNumber(interface, "DeviceSelector", 2), GC_ERR_INVALID_VALUE) << "there are numbers 0 and 1";
    const auto selectedAddress = [&] { return GetNumber(interface, "GevDeviceIPAddress"); };
    ASSERT_EQ(SetNumber(interface, "DeviceSelector", 0), GC_ERR_SUCCESS);
    const std::int64_t secondsPlace = selectedAddress() == kSimulatedAddress + 5 ? 0 : 1;
    ASSERT_EQ(SetNumber(interface, "DeviceSelector", 1 - secondsPlace), GC_ERR_SUCCESS);
    EXPECT_EQ(GetNumber(interface, "DeviceTLVersionMajor"), 2);
    ASSERT_EQ(SetNumber(interface, "GevDeviceForceIPAddress", 0x7F000055), GC_ERR_SUCCESS);
    ASSERT_EQ(SetNumber(interface, "DeviceSelector", secondsPlace), GC_ERR_SUCCESS);
    EXPECT_EQ(GetNumber(interface, "DeviceTLVersionMajor"), 1) << "an old camera";
    EXPECT_EQ(GetNumber(interface, "DeviceTLVersionMinor"), 2);
    EXPECT_EQ(GetNumber(interface, "GevDeviceForceIPAddress"), 0) << "the other camera's";

    // A write of fewer bytes leaves the rest alone.
    ASSERT_EQ(SetNumber(interface, "GevDeviceForceIPAddress", 0x7F000066), GC_ERR_SUCCESS);
    const std::uint64_t at = AddressOf(interface, "GevDeviceForceIPAddressReg");
    const std::uint8_t low = 0x77;
    size_t size = 0;
    EXPECT_EQ(Gc().GCWritePort(interface, at, &low, &size), GC_ERR_SUCCESS);
    EXPECT_EQ(GetNumber(interface, "GevDeviceForceIPAddress"), 0x7F000066);
    size = 1;
    EXPECT_EQ(Gc().GCWritePort(interface, at, &low, &size), GC_ERR_SUCCESS);
    EXPECT_EQ(GetNumber(interface, "GevDeviceForceIPAddress"), 0x7F000077);

    // Its place in the list may change, the camera that is meant does not.
    camera->Close();
    ASSERT_EQ(Gc().IFUpdateDeviceList(interface, nullptr, 200), GC_ERR_SUCCESS);
    EXPECT_EQ(selectedAddress(), kSimulatedAddress + 5);
    EXPECT_EQ(GetNumber(interface, "DeviceSelector"), 0);
    second.reset();
    ASSERT_EQ(camera->Open(), "");
    ASSERT_EQ(Gc().IFUpdateDeviceList(interface, nullptr, 200), GC_ERR_SUCCESS);
    EXPECT_EQ(SetNumber(interface, "GevDeviceForceIP", 1), GC_ERR_NOT_AVAILABLE) << "not to another camera";
}

TEST_F(ForceAddressTest, ACameraInAForeignSubnetIsListedAndTakesAnAddress)
{
    std::atomic<int> forceStatus{0}; // below zero: no answer
    // With an address that this network does not have it hears broadcasts and nothing else.
    ScriptedDevice foreign(
        [&](auto &device, auto &got) {
            EXPECT_EQ(got.flags, 0x11) << "may be answered by broadcast";
            if (got.command == 0x0002)
                device.Answer(0, 3, got.id, DiscoveryPayload(kForeignAddress, "Faraway"));
            else if (got.command == 0x0004 && forceStatus >= 0)
                device.Answer(static_cast<std::uint16_t>(forceStatus), 5, got.id, {});
        },
        "255.255.255.255");
    ASSERT_EQ(Gc().IFUpdateDeviceList(interface, nullptr, 200), GC_ERR_SUCCESS);
    const std::string id = "GEV:020000abcdef";
    EXPECT_EQ(Info(id, NUVARK_DEVICE_INFO_IP_ADDRESS), "192.168.77.5");
    const auto status = AskFor<std::int32_t>(
        [&](auto... out) { return Gc().IFGetDeviceInfo(interface, id.c_str(), DEVICE_INFO_ACCESS_STATUS, out...); });
    EXPECT_EQ(status, DEVICE_ACCESS_STATUS_NOACCESS);
    EXPECT_EQ(ProducerTest::OpenDevice(id, DEVICE_ACCESS_CONTROL), GC_ERR_ACCESS_DENIED);

    EXPECT_EQ(Force("Faraway", 0x7F000030, 0xFF000000), GC_ERR_SUCCESS) << LastError();
    EXPECT_EQ(foreign.Last(0x0004).payload,
              FromHex("00 00 02 00 00 AB CD EF 00 00 00 00 00 00 00 00 00 00 00 00 7F 00 00 30"
                      "00 00 00 00 00 00 00 00 00 00 00 00 FF 00 00 00"
                      "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00"));
    forceStatus = 0x8006;
    EXPECT_EQ(Force("Faraway", 0x7F000030, 0xFF000000), GC_ERR_ACCESS_DENIED);
    forceStatus = -1;
    EXPECT_EQ(Force("Faraway", 0x7F000030, 0xFF000000), GC_ERR_TIMEOUT);
    EXPECT_EQ(Force("Faraway", 0, 0), GC_ERR_SUCCESS) << "to find one by itself, which no camera answers";
}

TEST(ForceAddress, WhatIsNotLetOutIsToldAtOnce)
{
    NetworkInterface gone;
    gone.name = "eth7";
    gone.index = 0x7FFFFFFF;
    gone.address = 0x0A000001;
    for (const std::uint32_t address : {0x0A000014u, 0u}) {
        const nuvark::Status status = ForceAddress(gone, {{2, 0, 0, 0, 0, 1}, address, 0xFFFFFF00, 0});
        EXPECT_EQ(status.Code(), GC_ERR_IO);
        EXPECT_NE(status.Text().find("through eth7 (10.0.0.1): cannot send: "), std::string::npos) << status.Text();
    }
}

TEST_F(ProducerTest, KnownCamerasAreAskedOneByOne)
{
    // Bound to its own address it hears no broadcast.
    ScriptedDevice quiet([](auto &device, auto &got) {
        if (got.command == 0x0002)
            device.Answer(0, 3, got.id, DiscoveryPayload(*ParseAddress(kScriptedAddress), "Quiet"));
        else
            device.Answer(0, static_cast<std::uint16_t>(got.command + 1), got.id, {0, 0, 0, 0});
    });
    setenv(kKnownCamerasVariable, "nonsense, 127.0.0.21", 1);
    ASSERT_NO_FATAL_FAILURE(OpenInterface());
    EXPECT_EQ(Gc().IFUpdateDeviceList(interface, nullptr, 200), GC_ERR_SUCCESS);
    std::uint32_t count = 0;
    EXPECT_EQ(Gc().IFGetNumDevices(interface, &count), GC_ERR_SUCCESS);
    EXPECT_EQ(count, 1U);
    unsetenv(kKnownCamerasVariable);
}
