#include "AssemblerBench.h"
#include "DeviceFixture.h"
#include "support/PrivateNetwork.h"

#include <future>

#include <sys/resource.h>

using namespace nuvark;
using namespace nuvark::gige;

namespace {

Status WriteWord(Camera &camera, std::uint32_t address, std::uint32_t value)
{
    const std::uint32_t bigEndian = htonl(value);
    return camera.Write(address, reinterpret_cast<const std::uint8_t *>(&bigEndian), sizeof bigEndian);
}

/// The camera's sending side: pictures of one line in packets of any size.
class Sender {
public:
    explicit Sender(std::uint32_t port, const char *to = "127.0.0.1")
        : m_to{*ParseAddress(to), static_cast<std::uint16_t>(port)}
    {
        m_socket = UdpSocket::Open(*ParseAddress(kScriptedAddress)).value;
    }

    /// Leader, payload in equal packets, and trailer.
    void Frame(std::uint16_t block, std::uint32_t packets, std::uint32_t packetData)
    {
        Leader(block, packets * packetData);
        for (std::uint32_t id = 1; id <= packets; ++id)
            Send(assembling::Packet(false, 0, 3, block, id, std::vector<std::uint8_t>(packetData)));
        Send(assembling::Packet(false, 0, 2, block, packets + 1, assembling::TrailerContent(1)));
    }
    void Leader(std::uint16_t block, std::uint32_t size)
    {
        Send(assembling::Packet(false, 0, 1, block, 0, assembling::LeaderContent({payload::kImage, size, 1})));
    }

private:
    void Send(const std::vector<std::uint8_t> &packet)
    {
        EXPECT_TRUE(m_socket.SendVia(1, *ParseAddress(kScriptedAddress), m_to, {packet.data(), packet.size()}).Ok());
    }

    const Endpoint m_to;
    UdpSocket m_socket;
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
    EXPECT_EQ(device->Read(0x0934, bytes, sizeof bytes).Code(), GC_ERR_TIMEOUT);
    EXPECT_TRUE(Becomes([&] { return listener.isLost.load(); }));
    EXPECT_NE(listener.text.find("not answered"), std::string::npos) << listener.text;
}

/// What goes on while a camera vanishes.
enum class Busy { Idle, Reading, Writing, PutOff, Streaming };

/// \return how many commands the camera has heard and not answered when its loss is told.
std::size_t UnansweredUntilLoss(Busy busy, const char *address)
{
    constexpr std::uint32_t kMakers = 0xA000;
    std::atomic<std::size_t> unanswered{0};
    RegisterCamera camera(address);
    Listener listener;
    auto opened = OpenOnLoopback(address, CameraAccess::Control, listener);
    EXPECT_TRUE(opened.Ok()) << opened.status.Text();
    Camera &device = *opened.value;
    OneBuffer sink(1000);
    const auto stream = device.MakeStream(0);
    EXPECT_TRUE(busy != Busy::Streaming || stream->Start(sink, 1000).Ok());
    camera.SetHook([=](auto, auto at) {
        return busy == Busy::PutOff && at == kMakers ? RegisterCamera::Reaction::PutOff
                                                     : RegisterCamera::Reaction::Answer;
    });
    std::atomic<bool> isAtWork{busy == Busy::Idle || busy == Busy::Streaming};
    std::thread worker([&] {
        std::uint8_t bytes[4];
        while (busy != Busy::Idle && busy != Busy::Streaming && !listener.isLost) {
            const bool isReading = busy == Busy::Reading;
            isAtWork = true;
            (void)(isReading ? device.Read(kMakers, bytes, sizeof bytes) : WriteWord(device, kMakers, 1));
        }
    });
    const auto beats = [&] { return camera.Count(RegisterCamera::kPrivilege); };
    const std::size_t before = beats();
    EXPECT_TRUE(Becomes([&] { return isAtWork && beats() >= before + 2; })) << "control is kept meanwhile";
    camera.SetHook([&](auto, auto) {
        ++unanswered;
        return RegisterCamera::Reaction::Stay;
    });
    EXPECT_TRUE(Becomes([&] { return listener.isLost.load(); }));
    const std::size_t count = unanswered;
    worker.join();
    std::uint8_t bytes[4];
    EXPECT_EQ(device.Read(kMakers, bytes, sizeof bytes).Code(), GC_ERR_IO);
    return count;
}

/// Counted in questions, which come at a known rate, and on a busy machine later than that but never sooner.
TEST(LossOfACamera, IsToldWithinThreeSecondsWhateverGoesOn)
{
    const struct {
        Busy busy;
        const char *name;
        const char *address;
        std::size_t most; ///< commands in three seconds
    } kRows[] = {{Busy::Idle, "idle", "127.0.0.31", 10},
                 {Busy::Reading, "a read under way", "127.0.0.32", 16},
                 {Busy::Writing, "a write under way", "127.0.0.33", 16},
                 {Busy::PutOff, "a command that the camera needs 10 s for", "127.0.0.34", 10},
                 {Busy::Streaming, "a stream running", "127.0.0.35", 10}};
    std::vector<std::future<std::size_t>> counts;
    for (const auto &row : kRows)
        counts.push_back(std::async(std::launch::async, UnansweredUntilLoss, row.busy, row.address));
    for (std::size_t i = 0; i < counts.size(); ++i) {
        const std::size_t unanswered = counts[i].get();
        EXPECT_LE(unanswered, kRows[i].most) << kRows[i].name;
        EXPECT_GE(unanswered, 4U) << kRows[i].name << ": one or two lost packets are no loss";
    }
}

TEST_F(GigeDeviceTest, AReaderIsToldWhoHoldsTheCamera)
{
    camera.Set(RegisterCamera::kPrivilege, 1);
    camera.Set(0x0A14, *ParseAddress("127.0.0.9"));
    camera.SetHook([](auto, auto address) {
        return address == 0x0A14 || address == 0x0A04 ? RegisterCamera::Reaction::Answer
                                                      : RegisterCamera::Reaction::Deny;
    });
    const auto opened = OpenOnLoopback(kScriptedAddress, CameraAccess::ReadOnly, listener);
    EXPECT_EQ(opened.status.Code(), GC_ERR_ACCESS_DENIED);
    EXPECT_NE(opened.status.Text().find("held by another program at 127.0.0.9"), std::string::npos)
        << opened.status.Text();
}

TEST_F(GigeDeviceTest, WhatCouldNotBeSentIsSentLater)
{
    if (!SetSpareAddress(true))
        GTEST_SKIP() << "the loopback network is not ours to change";
    RegisterCamera spare(kSpareAddress);
    spare.Set(RegisterCamera::kStreamPort, 4711);
    spare.Set(0x0938, 10000); // it must not be lost meanwhile
    ASSERT_NO_FATAL_FAILURE(Open(kSpareAddress));
    ASSERT_TRUE(SetSpareAddress(false));
    static_cast<GigeDevice &>(*device).WriteWithoutWaiting({RegisterCamera::kStreamPort, 0});
    // Long enough for the heartbeat to fail with it once.
    std::uint8_t bytes[4];
    EXPECT_EQ(device->Read(0x0934, bytes, sizeof bytes).Code(), GC_ERR_TIMEOUT);
    ASSERT_TRUE(SetSpareAddress(true));
    EXPECT_TRUE(Becomes([&] { return spare.Get(RegisterCamera::kStreamPort) == 0; }));
    EXPECT_FALSE(listener.isLost);
}

TEST_F(GigeDeviceTest, ABusyCameraIsNotFloodedWithWhatItPutsOff)
{
    camera.Set(RegisterCamera::kStreamPort, 4711);
    camera.SetHook([](auto command, auto address) {
        const bool isWrite = command == static_cast<std::uint16_t>(Command::WriteRegister);
        return isWrite && address == RegisterCamera::kStreamPort ? RegisterCamera::Reaction::Busy
                                                                 : RegisterCamera::Reaction::Answer;
    });
    ASSERT_NO_FATAL_FAILURE(Open());
    const std::size_t before = camera.Count(RegisterCamera::kStreamPort);
    const std::size_t beats = camera.Count(RegisterCamera::kPrivilege);
    static_cast<GigeDevice &>(*device).WriteWithoutWaiting({RegisterCamera::kStreamPort, 0});
    EXPECT_TRUE(Becomes([&] { return camera.Count(RegisterCamera::kPrivilege) >= beats + 4; }));
    const std::size_t writes = camera.Count(RegisterCamera::kStreamPort) - before;
    EXPECT_GE(writes, 2U) << "it is tried again";
    EXPECT_LE(writes, 20U) << "once with each beat, a few more where an answer is late";
    camera.SetHook({});
    EXPECT_TRUE(Becomes([&] { return camera.Get(RegisterCamera::kStreamPort) == 0; }));
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
    ASSERT_TRUE(WriteWord(*device, kTimeout, 500).Ok());
    const std::size_t before = camera.Commands().size();
    EXPECT_TRUE(Becomes([&] { return camera.Commands().size() >= before + 15; }, std::chrono::seconds(10)))
        << "three beats in each half second; otherwise it were ten";

    ASSERT_TRUE(WriteWord(*device, kTimeout, 0xFFFFFFFF).Ok());
    camera.SetHook([](auto, auto) { return RegisterCamera::Reaction::Stay; });
    EXPECT_TRUE(Becomes([&] { return listener.isLost.load(); }))
        << "a heartbeat that was switched off does not hide the loss";
}

TEST_F(GigeDeviceTest, AStreamThatCannotStartLeavesItsChannelClosed)
{
#if defined(__has_feature)
#if __has_feature(address_sanitizer)
    // Its companion looks whether memory can be read by means of a pipe, and takes every object for broken without one.
    GTEST_SKIP() << "not without descriptors under this sanitizer";
#endif
#endif
    ASSERT_NO_FATAL_FAILURE(Open());
    camera.SetHook([](auto command, auto address) {
        const bool isSize =
            command == static_cast<std::uint16_t>(Command::ReadRegister) && address == RegisterCamera::kPacketSize;
        return isSize ? RegisterCamera::Reaction::Refuse : RegisterCamera::Reaction::Answer;
    });
    EXPECT_FALSE(StartStream().Ok());
    EXPECT_TRUE(Becomes([&] { return camera.Get(RegisterCamera::kStreamPort) == 0; }));
    camera.SetHook({});

    // One descriptor is left: for the socket, not for what wakes the receiver.
    const int next = dup(0);
    close(next);
    rlimit before{};
    getrlimit(RLIMIT_NOFILE, &before);
    const rlimit tight{static_cast<rlim_t>(next) + 1, before.rlim_max};
    setrlimit(RLIMIT_NOFILE, &tight);
    EXPECT_EQ(StartStream().Code(), GC_ERR_RESOURCE_EXHAUSTED);
    setrlimit(RLIMIT_NOFILE, &before);
    EXPECT_TRUE(Becomes([&] { return camera.Get(RegisterCamera::kStreamPort) == 0; }));

    EXPECT_TRUE(StartStream().Ok());
    EXPECT_NE(camera.Get(RegisterCamera::kStreamPort), 0U);
}

TEST_F(GigeDeviceTest, AReaderStartsOnlyWhatIsSentToEverybody)
{
    ASSERT_NO_FATAL_FAILURE(Open(kScriptedAddress, CameraAccess::ReadOnly));
    camera.Set(RegisterCamera::kStreamAddress, *ParseAddress("127.0.0.5"));
    EXPECT_EQ(StartStream().Code(), GC_ERR_ACCESS_DENIED);
    camera.Set(RegisterCamera::kStreamAddress, *ParseAddress("239.1.2.3"));
    EXPECT_EQ(StartStream().Code(), GC_ERR_ACCESS_DENIED) << "not opened by who controls it";
    constexpr std::uint16_t kPort = 45678;
    camera.Set(RegisterCamera::kStreamPort, kPort);
    const Status started = StartStream();
    ASSERT_TRUE(started.Ok()) << started.Text();
    Sender(kPort, "239.1.2.3").Frame(1, 1, 1000);
    EXPECT_TRUE(Becomes([&] { return sink.complete == 1; }));
}

TEST_F(GigeDeviceTest, ThePathIsLookedAtWithEachStart)
{
    const struct {
        const char *name;
        RegisterCamera::Path path;
        std::uint32_t told; ///< the camera's register before
        std::uint32_t size;
    } kRows[] = {{"as it is", {9000, 0, 1}, 9000, 9000},
                 {"narrower than at the last start", {1500, 0, 1}, 9000, 1500},
                 {"a camera that takes multiples of 32, and no small ones", {1480, 1000, 32}, 1500, 1472},
                 {"of an odd size", {3333, 0, 1}, 9000, 3332},
                 {"no size yet, and everything passes", {65000, 0, 1}, 0, 65000},
                 {"no test packets", {0, 0, 1}, 1472, 1472},
                 {"no test packets, and zero is no size", {0, 0, 1}, 0, 1500},
                 {"not all of them", {1400, 0, 1, true}, 1500, 1400}};
    ASSERT_NO_FATAL_FAILURE(Open());
    for (const auto &row : kRows) {
        camera.Set(RegisterCamera::kPacketSize, row.told);
        camera.SetPath(row.path);
        EXPECT_EQ(stream->Packets().size, row.told) << row.name << ": nothing runs yet";
        const std::size_t before = camera.Count(RegisterCamera::kPacketSize);
        ASSERT_TRUE(StartStream().Ok()) << row.name;
        EXPECT_EQ(camera.Get(RegisterCamera::kPacketSize), row.size) << row.name;
        EXPECT_EQ(stream->Packets().size, row.size) << row.name;
        EXPECT_LE(camera.Count(RegisterCamera::kPacketSize) - before, 200U) << row.name << ": a search by halves";
        stream->StopReceiving(StreamChannel::Stop::AtOnce);
    }
    EXPECT_EQ(sink.incomplete, 0) << "no test packet is a frame";
}

TEST_F(GigeDeviceTest, PacketSizeAndDelayAreTheCamerasOwnRegisters)
{
    constexpr std::uint32_t kDelay = 0x0D08;
    constexpr std::uint32_t kFlags = 0x60000000; // big-endian pixels, not to be fragmented
    camera.SetPath({9000, 576, 8});
    ASSERT_NO_FATAL_FAILURE(Open());
    camera.Set(RegisterCamera::kPacketSize, kFlags | 1500);
    EXPECT_TRUE(stream->SetPacketSize(4000).Ok());
    EXPECT_EQ(camera.Get(RegisterCamera::kPacketSize), kFlags | 4000);
    const Status refused = stream->SetPacketSize(1001);
    EXPECT_EQ(refused.Code(), GC_ERR_INVALID_ADDRESS);
    EXPECT_NE(refused.Text().find("packets of 1001 bytes"), std::string::npos) << refused.Text();
    EXPECT_NE(refused.Text().find("bad alignment"), std::string::npos) << "its own answer: " << refused.Text();
    EXPECT_EQ(camera.Get(RegisterCamera::kPacketSize), kFlags | 4000);
    EXPECT_TRUE(stream->SetPacketDelay(0xFFFFFFFF).Ok());
    EXPECT_EQ(camera.Get(kDelay), 0xFFFFFFFF);
    camera.SetHook([](auto, auto address) {
        return address == kDelay ? RegisterCamera::Reaction::Refuse : RegisterCamera::Reaction::Answer;
    });
    EXPECT_EQ(stream->SetPacketDelay(1).Code(), GC_ERR_INVALID_ADDRESS) << "a camera without such a register";
    camera.SetHook({});

    stream.reset();
    device.reset();
    ASSERT_NO_FATAL_FAILURE(Open(kScriptedAddress, CameraAccess::ReadOnly));
    EXPECT_EQ(stream->SetPacketSize(1504).Code(), GC_ERR_ACCESS_DENIED);
    EXPECT_EQ(stream->SetPacketDelay(2).Code(), GC_ERR_ACCESS_DENIED);
    EXPECT_EQ(camera.Get(RegisterCamera::kPacketSize), kFlags | 4000);
}

TEST_F(GigeDeviceTest, TheWayFromTheCameraIsOpened)
{
    UdpSocket ears = UdpSocket::Open(*ParseAddress(kScriptedAddress)).value;
    camera.Set(0x0900, 1);
    for (std::uint32_t capability : {0x092C, 0x0930})
        camera.Set(capability, 0x80000000);
    for (std::uint32_t source : {0x0D1C, 0x0B1C})
        camera.Set(source, ears.LocalPort());
    ASSERT_NO_FATAL_FAILURE(Open());
    const auto senderOfNext = [&] {
        std::uint8_t bytes[64];
        Endpoint sender;
        EXPECT_TRUE(Becomes([&] { return ears.HasDatagram(); }));
        EXPECT_NE(ears.Receive(bytes, sizeof bytes, &sender), 0U);
        return sender.port;
    };
    ASSERT_TRUE(StartStream().Ok());
    EXPECT_EQ(senderOfNext(), camera.Get(RegisterCamera::kStreamPort));
    ASSERT_TRUE(device->ListenToMessages(true).Ok());
    EXPECT_EQ(senderOfNext(), camera.Get(0x0B00));
}

TEST_F(GigeDeviceTest, PacketsLongerThanExpectedCostOneFrameOnly)
{
    ASSERT_NO_FATAL_FAILURE(Open());
    ASSERT_TRUE(StartStream().Ok());
    Sender sender(camera.Get(RegisterCamera::kStreamPort));
    sender.Frame(1, 3, 4000); // in packets of 1500, as the camera says
    EXPECT_TRUE(Becomes([&] { return sink.incomplete == 1; }));
    sender.Frame(2, 3, 4000);
    EXPECT_TRUE(Becomes([&] { return sink.complete == 1; }));
    EXPECT_GE(stream->Counters().oversizedPackets, 1U);
    EXPECT_EQ(sink.incomplete, 1);
}

TEST_F(GigeDeviceTest, TheCountersOfARunAreThereWhileItStops)
{
    ASSERT_NO_FATAL_FAILURE(Open());
    std::future<StreamCounters> asked;
    sink.onDeliver = [&] {
        asked = std::async(std::launch::async, [&] { return stream->Counters(); });
        (void)asked.wait_for(std::chrono::milliseconds(50));
    };
    ASSERT_TRUE(StartStream().Ok());
    Sender(camera.Get(RegisterCamera::kStreamPort)).Leader(1, 1000); // alone it waits for a trigger
    EXPECT_TRUE(Becomes([&] { return stream->Counters().packets == 1; }));
    stream->StopReceiving(StreamChannel::Stop::AtOnce);
    ASSERT_TRUE(asked.valid());
    EXPECT_EQ(asked.get().packets, 1U);
}
