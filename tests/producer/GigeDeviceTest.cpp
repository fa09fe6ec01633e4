#include "producer/gige/GigeDevice.h"
#include "producer/gige/Text.h"

#include "ProducerFixture.h"
#include "ScriptedDevice.h"
#include "support/PrivateNetwork.h"

#include <future>

using namespace nuvark;
using namespace nuvark::gige;

namespace {

class Listener final : public CameraListener {
public:
    void OnCameraLost(const std::string &reason) override
    {
        text = reason;
        isLost = true;
    }
    std::string text;
    std::atomic<bool> isLost{false};
};

/// A camera of plain registers, opened for control.
class GigeDeviceTest : public ::testing::Test {
protected:
    void Open(const char *address = kScriptedAddress, CameraAccess access = CameraAccess::Control)
    {
        NetworkInterface interface;
        interface.name = "lo";
        interface.index = 1;
        interface.address = *ParseAddress("127.0.0.1");
        interface.mask = 0xFF000000;
        auto opened = GigeDevice::Open(interface, *ParseAddress(address), access, listener);
        ASSERT_TRUE(opened.Ok()) << opened.status.Text();
        device = std::move(opened.value);
    }
    Status WriteWord(std::uint32_t address, std::uint32_t value)
    {
        const std::uint8_t bytes[4] = {std::uint8_t(value >> 24), std::uint8_t(value >> 16), std::uint8_t(value >> 8),
                                       std::uint8_t(value)};
        return device->Write(address, bytes, sizeof bytes);
    }

    RegisterCamera camera;
    Listener listener;
    std::unique_ptr<Camera> device;
};

} // namespace

TEST_F(GigeDeviceTest, ACameraThatNothingCanBeSentToIsLost)
{
    if (!SetSpareAddress(true))
        GTEST_SKIP() << "the loopback network is not ours to change";
    RegisterCamera spare(kSpareAddress);
    ASSERT_NO_FATAL_FAILURE(Open(kSpareAddress));
    ASSERT_TRUE(SetSpareAddress(false));
    std::uint8_t bytes[4];
    EXPECT_EQ(device->Read(0x0934, bytes, sizeof bytes).Code(), GC_ERR_IO);
    EXPECT_TRUE(Becomes([&] { return listener.isLost.load(); }));
    EXPECT_NE(listener.text.find("not answered"), std::string::npos) << listener.text;
}

TEST_F(GigeDeviceTest, WhatCouldNotBeSentIsSentLater)
{
    if (!SetSpareAddress(true))
        GTEST_SKIP() << "the loopback network is not ours to change";
    RegisterCamera spare(kSpareAddress);
    spare.Set(RegisterCamera::kStreamPort, 4711);
    ASSERT_NO_FATAL_FAILURE(Open(kSpareAddress));
    ASSERT_TRUE(SetSpareAddress(false));
    static_cast<GigeDevice &>(*device).WriteWithoutWaiting({RegisterCamera::kStreamPort, 0});
    // Long enough for the heartbeat to fail with it once.
    std::uint8_t bytes[4];
    EXPECT_EQ(device->Read(0x0934, bytes, sizeof bytes).Code(), GC_ERR_IO);
    ASSERT_TRUE(SetSpareAddress(true));
    EXPECT_TRUE(Becomes([&] { return spare.Get(RegisterCamera::kStreamPort) == 0; }));
    EXPECT_FALSE(listener.isLost);
}

TEST_F(GigeDeviceTest, ControlIsGivenUpHoweverManyCommandsWait)
{
    camera.SetHook([](auto, auto) {
        std::this_thread::sleep_for(std::chrono::milliseconds(5)); // so that there are always some waiting
        return RegisterCamera::Reaction::Answer;
    });
    for (int round = 0; round < 10; ++round) {
        ASSERT_NO_FATAL_FAILURE(Open());
        ASSERT_EQ(camera.Get(RegisterCamera::kPrivilege), 2U);
        std::vector<std::thread> readers;
        for (int i = 0; i < 4; ++i) {
            readers.emplace_back([&] {
                std::uint8_t bytes[4];
                while (device->Read(0x0934, bytes, sizeof bytes).Ok()) {
                }
            });
        }
        const std::size_t begun = camera.Commands().size();
        EXPECT_TRUE(Becomes([&] { return camera.Commands().size() > begun + 6; }));
        device->Close();
        for (std::thread &reader : readers)
            reader.join();
        EXPECT_EQ(camera.Get(RegisterCamera::kPrivilege), 0U) << round;
    }
}

TEST_F(GigeDeviceTest, TheHeartbeatFollowsItsRegister)
{
    constexpr std::uint32_t kTimeout = 0x0938;
    ASSERT_NO_FATAL_FAILURE(Open());
    ASSERT_TRUE(WriteWord(kTimeout, 500).Ok());
    const std::size_t before = camera.Commands().size();
    const Stopwatch watch;
    EXPECT_TRUE(Becomes([&] { return camera.Commands().size() >= before + 6; }));
    EXPECT_LT(watch.Milliseconds(), 1500) << "three beats in each half second";

    ASSERT_TRUE(WriteWord(kTimeout, 0xFFFFFFFF).Ok());
    camera.SetHook([](auto, auto) { return RegisterCamera::Reaction::Stay; });
    EXPECT_TRUE(Becomes([&] { return listener.isLost.load(); }, std::chrono::seconds(8)))
        << "a heartbeat that was switched off does not hide the loss";
}
