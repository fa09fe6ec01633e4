#include "producer/gige/GvcpClient.h"
#include "producer/gige/Text.h"
#include "ProducerFixture.h"
#include "support/PrivateNetwork.h"

using nuvark::gige::GvcpClient;

namespace {

constexpr std::uint32_t kPrivilegeRegister = 0x0A00;
constexpr std::uint64_t kHeartbeatTimeout = 0x0938;

/// Another program that controls the camera.
class Rival {
public:
    explicit Rival(const std::string &address)
    {
        auto client = GvcpClient::Open(0x7F000001, *nuvark::gige::ParseAddress(address));
        m_client = std::move(client.value);
    }
    bool TakeControl() { return m_client->WriteRegister(kPrivilegeRegister, 2).Ok(); }
    bool Release() { return m_client->WriteRegister(kPrivilegeRegister, 0).Ok(); }
    std::uint32_t Privilege()
    {
        std::uint32_t value = 99;
        return m_client->ReadRegister(kPrivilegeRegister, value).Ok() ? value : 99;
    }

private:
    std::unique_ptr<GvcpClient> m_client;
};

} // namespace

TEST_F(CameraTest, DiscoveryFindsTheCameraWithItsFacts)
{
    std::uint32_t count = 1;
    EXPECT_EQ(Gc().IFGetNumDevices(interface, &count), GC_ERR_SUCCESS);
    EXPECT_EQ(count, 0U) << "before the first update";
    bool8_t changed = 0;
    ASSERT_EQ(Gc().IFUpdateDeviceList(interface, &changed, 200), GC_ERR_SUCCESS);
    EXPECT_EQ(changed, 1);
    ASSERT_EQ(Gc().IFGetNumDevices(interface, &count), GC_ERR_SUCCESS);
    ASSERT_EQ(count, 1U);
    const std::pair<DEVICE_INFO_CMD, std::string> kTexts[] = {{DEVICE_INFO_ID, DeviceId()},
                                                              {DEVICE_INFO_VENDOR, "Aravis"},
                                                              {DEVICE_INFO_MODEL, "Fake"},
                                                              {DEVICE_INFO_SERIAL_NUMBER, kCameraSerial},
                                                              {NUVARK_DEVICE_INFO_IP_ADDRESS, camera.Address()}};
    const auto info = [&](DEVICE_INFO_CMD command) {
        return
            [&, command](auto... out) { return Gc().IFGetDeviceInfo(interface, DeviceId().c_str(), command, out...); };
    };
    for (const auto &[command, text] : kTexts)
        EXPECT_EQ(Ask(info(command)), text);
    EXPECT_EQ(AccessStatus(), DEVICE_ACCESS_STATUS_READWRITE);
    EXPECT_EQ(AskFor<std::uint64_t>(info(DEVICE_INFO_TIMESTAMP_FREQUENCY)), 1000000000U);

    ASSERT_EQ(Gc().IFUpdateDeviceList(interface, &changed, 100), GC_ERR_SUCCESS);
    EXPECT_EQ(changed, 0);
    camera.Kill();
    EXPECT_EQ(OpenDevice(), GC_ERR_TIMEOUT) << "nobody at the address";
    ASSERT_EQ(Gc().IFUpdateDeviceList(interface, &changed, 100), GC_ERR_SUCCESS);
    EXPECT_EQ(changed, 1);
    ASSERT_EQ(Gc().IFGetNumDevices(interface, &count), GC_ERR_SUCCESS);
    EXPECT_EQ(count, 0U);
}

TEST_F(CameraTest, OpensWithoutAListAndByOtherNames)
{
    for (const std::string &name : {DeviceId(), camera.Address(), camera.Serial()}) {
        ASSERT_EQ(ProducerTest::OpenDevice(name, DEVICE_ACCESS_EXCLUSIVE), GC_ERR_SUCCESS)
            << name << " " << LastError();
        EXPECT_EQ(Ask([&](auto... out) { return Gc().DevGetInfo(device, DEVICE_INFO_ID, out...); }), DeviceId());
        EXPECT_EQ(Gc().DevClose(device), GC_ERR_SUCCESS);
    }
    for (const char *none : {"GEV:020000abcdef", ""})
        EXPECT_EQ(Gc().IFOpenDevice(interface, none, DEVICE_ACCESS_CONTROL, &device), GC_ERR_INVALID_ID) << none;
    EXPECT_EQ(Gc().IFOpenDevice(interface, DeviceId().c_str(), 77, &device), GC_ERR_INVALID_PARAMETER);
}

TEST_F(CameraTest, ANameOfTwoCamerasOpensNeither)
{
    ForeignCamera twin;
    if (!InPrivateNetwork())
        GTEST_SKIP() << "there is room for one camera only";
    ASSERT_TRUE(twin.Start("127.0.0.12", kCameraSerial));
    for (const bool isListed : {false, true}) {
        if (isListed) {
            ASSERT_EQ(Gc().IFUpdateDeviceList(interface, nullptr, 300), GC_ERR_SUCCESS);
        }
        EXPECT_EQ(Gc().IFOpenDevice(interface, kCameraSerial, DEVICE_ACCESS_CONTROL, &device), GC_ERR_AMBIGUOUS);
        EXPECT_EQ(Gc().IFOpenDevice(interface, "00:00:00:00:00:00", DEVICE_ACCESS_CONTROL, &device), GC_ERR_INVALID_ID)
            << "having no MAC is no name";
        ASSERT_EQ(Gc().IFOpenDevice(interface, twin.Address().c_str(), DEVICE_ACCESS_CONTROL, &device), GC_ERR_SUCCESS)
            << LastError();
        EXPECT_EQ(Ask([&](auto... out) { return Gc().DevGetInfo(device, DEVICE_INFO_ID, out...); }),
                  "GEV:ip:" + twin.Address());
        EXPECT_EQ(Gc().DevClose(device), GC_ERR_SUCCESS);
    }
}

TEST_F(CameraTest, OpensOnceHere)
{
    ASSERT_EQ(OpenDevice(), GC_ERR_SUCCESS) << LastError();
    EXPECT_EQ(AccessStatus(), DEVICE_ACCESS_STATUS_OPEN_READWRITE);
    DEV_HANDLE second = nullptr;
    EXPECT_EQ(Gc().IFOpenDevice(interface, DeviceId().c_str(), DEVICE_ACCESS_CONTROL, &second), GC_ERR_RESOURCE_IN_USE);
    EXPECT_EQ(Rival(camera.Address()).Privilege(), 2U);
    ASSERT_EQ(Gc().DevClose(device), GC_ERR_SUCCESS);
    EXPECT_EQ(Rival(camera.Address()).Privilege(), 0U) << "closing gives control up";
    EXPECT_EQ(OpenDevice(), GC_ERR_SUCCESS) << LastError();
}

TEST_F(CameraTest, ACameraHeldByAnotherProgramIsSeenAndRefused)
{
    Rival rival(camera.Address());
    ASSERT_TRUE(rival.TakeControl());
    ASSERT_EQ(Gc().IFUpdateDeviceList(interface, nullptr, 200), GC_ERR_SUCCESS);
    EXPECT_EQ(AccessStatus(), DEVICE_ACCESS_STATUS_BUSY);
    EXPECT_EQ(OpenDevice(), GC_ERR_ACCESS_DENIED);
    EXPECT_THAT(LastError(), testing::HasSubstr("held by another program"));

    ASSERT_EQ(OpenDevice(DEVICE_ACCESS_READONLY), GC_ERR_SUCCESS) << "reading is allowed";
    EXPECT_EQ(AccessStatus(), DEVICE_ACCESS_STATUS_OPEN_READONLY);
    EXPECT_NE(ReadRegister(kWidth), 0U);
    EXPECT_EQ(WriteRegister(kWidth, 64), GC_ERR_ACCESS_DENIED);
    ASSERT_EQ(Gc().DevClose(device), GC_ERR_SUCCESS);
    EXPECT_EQ(rival.Privilege(), 2U) << "the other program keeps its control";

    ASSERT_TRUE(rival.Release());
    EXPECT_EQ(OpenDevice(), GC_ERR_SUCCESS) << LastError();
}

TEST_F(CameraTest, RegistersTakeAnyLengthAndAlignment)
{
    ASSERT_EQ(OpenDevice(), GC_ERR_SUCCESS) << LastError();
    ASSERT_EQ(WriteRegister(kWidth, 320), GC_ERR_SUCCESS) << LastError();
    EXPECT_EQ(ReadRegister(kWidth), 320U);

    constexpr std::uint64_t kUserName = 0xE8;
    const std::string sixteen = "0123456789abcdef";
    for (std::size_t offset = 0; offset < 5; ++offset) {
        for (std::size_t size = 1; size <= sixteen.size() - offset; ++size) {
            ASSERT_EQ(Write(kUserName, sixteen.data(), sixteen.size()), GC_ERR_SUCCESS) << LastError();
            ASSERT_EQ(Write(kUserName + offset, std::string(size, '*').data(), size), GC_ERR_SUCCESS) << LastError();
            std::string expected = sixteen;
            expected.replace(offset, size, size, '*');
            std::string whole(16, '\0');
            ASSERT_EQ(Read(kUserName, whole.data(), whole.size()), GC_ERR_SUCCESS);
            EXPECT_EQ(whole, expected) << offset << "+" << size;
            std::string part(size, '\0');
            ASSERT_EQ(Read(kUserName + offset, part.data(), size), GC_ERR_SUCCESS);
            EXPECT_EQ(part, std::string(size, '*')) << offset << "+" << size;
        }
    }
    char byte = 0;
    EXPECT_EQ(Read(std::uint64_t{1} << 32, &byte, 1), GC_ERR_INVALID_ADDRESS);
    EXPECT_EQ(Read(0xFFFFFFFFFFFFFFFF, &byte, 1), GC_ERR_INVALID_ADDRESS);

    std::uint8_t width[4] = {0, 0, 0, 64};
    std::uint8_t height[4] = {0, 0, 0, 32};
    PORT_REGISTER_STACK_ENTRY entries[] = {
        {kWidth, width, 4}, {kHeight, height, 4}, {std::uint64_t{1} << 40, height, 4}, {kWidth, height, 4}};
    size_t done = std::size(entries);
    EXPECT_EQ(Gc().GCWritePortStacked(port, entries, &done), GC_ERR_INVALID_ADDRESS);
    EXPECT_EQ(done, 2U) << "up to the first failure";
    EXPECT_EQ(ReadRegister(kWidth), 64U);
    EXPECT_EQ(ReadRegister(kHeight), 32U);
}

TEST_F(CameraTest, ASilentCameraComesBack)
{
    ASSERT_EQ(OpenDevice(), GC_ERR_SUCCESS) << LastError();
    ASSERT_EQ(WriteRegister(kHeartbeatTimeout, 10000), GC_ERR_SUCCESS) << "it must not be lost meanwhile";
    camera.Suspend();
    std::uint8_t bytes[4];
    for (int i = 0; i < 4; ++i)
        EXPECT_EQ(Read(kWidth, bytes, 4), GC_ERR_TIMEOUT);
    EXPECT_THAT(LastError(), testing::HasSubstr("does not answer"));
    camera.Resume();
    EXPECT_TRUE(Becomes([&] { return Read(kWidth, bytes, 4) == GC_ERR_SUCCESS; }));
    // Late answers of the earlier commands must not be taken for those of the next ones.
    const std::uint32_t height = ReadRegister(kHeight);
    ASSERT_EQ(WriteRegister(kWidth, 128), GC_ERR_SUCCESS);
    EXPECT_EQ(ReadRegister(kWidth), 128U);
    EXPECT_EQ(ReadRegister(kHeight), height);
}

TEST_F(CameraTest, ControlTakenAwayIsALoss)
{
    ASSERT_EQ(OpenDevice(), GC_ERR_SUCCESS) << LastError();
    const EVENT_HANDLE lost = Register(NUVARK_EVENT_DEVICE_LOST);
    const std::string address = camera.Address();
    camera.Kill(); // a short power cut: the camera is back at once, but does not know us any more
    ASSERT_TRUE(camera.Start(kCameraAddress, kCameraSerial));
    ASSERT_EQ(camera.Address(), address);
    EXPECT_THAT(NextText(lost), testing::HasSubstr("withdrawn control"));
}

TEST_F(CameraTest, ClosingDoesNotWaitForAWriteUnderWay)
{
    ASSERT_EQ(OpenDevice(), GC_ERR_SUCCESS) << LastError();
    ASSERT_EQ(WriteRegister(kHeartbeatTimeout, 10000), GC_ERR_SUCCESS) << "for so long it would be waited for";
    camera.Suspend();
    std::atomic<bool> writing{false};
    std::thread writer([&] {
        writing = true;
        EXPECT_THAT(WriteRegister(0xA000, 1), testing::AnyOf(GC_ERR_ABORT, GC_ERR_INVALID_HANDLE)) << "no time-out";
    });
    EXPECT_TRUE(Becomes([&] { return writing.load(); }));
    EXPECT_EQ(Gc().DevClose(device), GC_ERR_SUCCESS);
    writer.join();
}
