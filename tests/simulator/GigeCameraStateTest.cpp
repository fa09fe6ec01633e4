// What becomes of a camera's state on the way: resets, acquisitions that follow each other, actions, slow commands.
#include "tests/simulator/OneCamera.h"
#include "tests/simulator/StreamFixture.h"

namespace orvsim {
namespace {

TEST_F(OneCamera, AnActionIsAcknowledgedWhereItTriggers)
{
    OpenAndControl();
    host.Ask(address, host.commands.Make(GvcpCommand::WriteRegister, {0x090C, 7, 0x9800, 1, 0x9804, 1}));
    const auto act = [this](int limitMs) {
        return host.Ask(address, host.commands.Make(GvcpCommand::Action, {7, 1, 1}), limitMs);
    };
    EXPECT_EQ(act(200), Datagram{}) << "it waits for no trigger";
    Set("TriggerMode", "On");
    Set("TriggerSource", "Software");
    EXPECT_EQ(act(5000).size(), 8U);
}

struct Kept {
    const char *name;
    std::uint32_t reg;
    std::uint32_t value;
};
const Kept kTransportState[] = {
    {"heartbeat", 0x0938, 4000},
    {"GVCP configuration", 0x0954, 2},
    {"GVSP configuration", 0x0960, 0x40000000},
    {"MCTT", 0x0B14, 77},
    {"SCPS", 0x0D04, 8000},
    {"SCPD", 0x0D08, 1234},
    {"stream options", 0x0D24, 13},
    {"action's group mask", 0x9804, 0xff},
};

TEST_F(OneCamera, ComesBackAsSwitchedOn)
{
    for (const bool isReset : {true, false}) {
        SCOPED_TRACE(isReset ? "reset" : "vanished for a while");
        Open(SmallCamera(isReset ? "T1" : "T2"), At(isReset ? 0 : 1));
        std::vector<std::uint32_t> fresh;
        for (const Kept &row : kTransportState)
            fresh.push_back(host.Read(address, row.reg));
        const std::string exposure = Get("ExposureTime");
        TakeControl();
        for (const Kept &row : kTransportState)
            EXPECT_EQ(host.Write(address, row.reg, row.value), 0) << row.name;
        EXPECT_EQ(host.Write(address, 0x064C, 0x7f000009), 0);
        Set("ExposureTime", "1234");
        if (isReset) {
            Set("DeviceReset", "1");
        } else {
            Set("SimVanishFor", "50");
            Set("SimVanishAfter", "1");
        }
        ASSERT_TRUE(ComesTrue([this] { return Get("GevPrimaryApplicationSocket") == "0"; }));
        ASSERT_TRUE(ComesTrue([this] { return !host.Ask(address, host.commands.Read(0), 100).empty(); }));
        for (std::size_t i = 0; i < fresh.size(); ++i)
            EXPECT_EQ(host.Read(address, kTransportState[i].reg), fresh[i]) << kTransportState[i].name;
        EXPECT_EQ(host.Read(address, 0x064C), 0x7f000009U) << "the persistent address is what it says";
        EXPECT_NE(host.Read(address, 0x0D1C), 0U) << "SCSP";
        EXPECT_EQ(Get("ExposureTime"), exposure);
    }
}

TEST_F(OneCamera, WhatIsLeftOfAnAcquisitionDoesNotHoldUpTheNext)
{
    OpenAndControl();
    Set("SimStallEvery", "1");
    for (const bool isStalled : {true, false}) {
        const auto slowDown = [&](bool isSlow) {
            if (isStalled)
                Set("SimStallTime", isSlow ? "60000" : "0");
            else
                EXPECT_EQ(host.Write(address, 0x0D08, isSlow ? 4'000'000'000 : 0), 0); // ns between packets
        };
        for (const bool isAborted : {false, true}) {
            SCOPED_TRACE(std::string(isStalled ? "stalled" : "delayed") + (isAborted ? ", aborted" : ", stopped"));
            TestHost receiver;
            StreamTo(receiver.Port());
            slowDown(true);
            Set("AcquisitionStart", "1");
            ASSERT_TRUE(receiver.Receive()) << "the leader, then nothing for long";
            Set(isAborted ? "AcquisitionAbort" : "AcquisitionStop", "1");
            slowDown(false);
            const std::uint64_t before = camera->Counts().frames;
            Set("AcquisitionStart", "1");
            EXPECT_TRUE(ComesTrue([&] { return camera->Counts().frames > before; }));
            Set("AcquisitionStop", "1");
        }
    }
}

TEST_F(OneCamera, AnAbortedFrameEndsAtOnceAndIsNotToBeHad)
{
    OpenAndControl();
    TestHost receiver;
    StreamTo(receiver.Port());
    Set("SimStallEvery", "1");
    Set("SimStallTime", "60000");
    Set("AcquisitionStart", "1");
    ASSERT_TRUE(receiver.Receive());
    Set("AcquisitionAbort", "1");
    while (receiver.Receive(100)) { // what came before the stall
    }
    const auto refusal = [&] {
        host.Send({address, kGvcpPort}, host.commands.Make(GvcpCommand::PacketResend, {1, 0, 0}, 0));
        const auto answer = receiver.Receive();
        return answer && answer->bytes.size() >= 2 && answer->bytes[0] == 0x80 && answer->bytes[1] == 0x0c;
    };
    EXPECT_TRUE(ComesTrue(refusal));
    EXPECT_EQ(camera->Counts().frames, 0U);
}

TEST_F(OneCamera, SlowCommandsAreAnnouncedAndThenAnswered)
{
    CameraOptions options = SmallCamera();
    options.faults.commandMs = 250;
    OpenAndControl(options);
    const std::uint32_t load = RegisterOf("UserSetLoad");
    for (const bool isAnnounced : {false, true}) {
        EXPECT_EQ(host.Write(address, 0x0954, isAnnounced ? kConfigPending : 0), 0);
        const auto start = std::chrono::steady_clock::now();
        host.Send({address, kGvcpPort}, host.commands.Write(load, 1));
        if (isAnnounced) {
            const Datagram notice = host.Next();
            ASSERT_EQ(notice.size(), 12U);
            EXPECT_EQ(notice[3], 0x89) << "PENDING_ACK";
            EXPECT_EQ(notice[10] << 8 | notice[11], 250) << "ms";
            EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(250));
        }
        EXPECT_EQ(host.Next().at(3), 0x83);
        EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(250));
    }
}

TEST_F(OneCamera, LiesAboutThePayloadAndSendsItWhole)
{
    CameraOptions options = SmallCamera();
    options.faults.payloadSizeError = -100;
    OpenAndControl(options);
    const std::uint32_t size = RegisterOf("PayloadSize");
    EXPECT_EQ(host.Read(address, size), 64U * 48 - 100);
    LoopbackSocket receiver;
    StreamTo(receiver.Port());
    Set("AcquisitionMode", "SingleFrame");
    Set("AcquisitionStart", "1");
    std::size_t payload = 0;
    for (const Datagram &datagram : receiver.Take(5))
        payload += Parse(datagram).format == 3 ? Parse(datagram).content.size() : 0;
    EXPECT_EQ(payload, 64U * 48);
}

} // namespace
} // namespace orvsim
