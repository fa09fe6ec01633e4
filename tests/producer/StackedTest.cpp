// Several registers in one command, and control that outlives a stop of this process.
#include "DeviceFixture.h"

#include <csignal>

#include <sys/wait.h>

using namespace nuvark;
using namespace nuvark::gige;

namespace {

/// Registers that can be asked for together. Address 0x8000 is refused, at 0xB000 the camera is busy once.
class StackedTest : public GigeDeviceTest {
protected:
    void SetUp() override
    {
        camera.Set(0x0004, 0x80000001); // big-endian
        camera.Set(0x0934, 0x1);
        camera.tellsHowFar = true;
        camera.SetHook([this](auto command, auto address) {
            if (address == 0x8000)
                return RegisterCamera::Reaction::Refuse;
            const bool isWrite = command == static_cast<std::uint16_t>(Command::WriteRegister);
            const bool isBusy = isWrite && address == 0xB000 && !wasBusy.exchange(true);
            return isBusy ? RegisterCamera::Reaction::Busy : RegisterCamera::Reaction::Answer;
        });
        Open();
    }
    std::size_t CountOf(Command command)
    {
        const auto commands = camera.Commands();
        return static_cast<std::size_t>(
            std::count_if(commands.begin(), commands.end(), [command](const ScriptedDevice::Received &got) {
                return got.command == static_cast<std::uint16_t>(command);
            }));
    }
    /// Words, each of its own.
    std::vector<PortAccess> Words(const std::vector<std::uint32_t> &addresses)
    {
        words.assign(addresses.size(), 0);
        std::vector<PortAccess> accesses;
        for (std::size_t i = 0; i < addresses.size(); ++i) {
            words[i] = htonl(static_cast<std::uint32_t>(100 + i));
            accesses.push_back({addresses[i], reinterpret_cast<std::uint8_t *>(&words[i]), 4});
        }
        return accesses;
    }

    std::atomic<bool> wasBusy{false};
    std::vector<std::uint32_t> words;
};

/// Stops this whole process for a while.
void StandStill(std::chrono::milliseconds time)
{
    const pid_t self = getpid();
    const pid_t child = fork();
    if (child == 0) {
        kill(self, SIGSTOP);
        usleep(static_cast<useconds_t>(1000 * time.count()));
        kill(self, SIGCONT);
        _exit(0);
    }
    int status = 0;
    EXPECT_EQ(waitpid(child, &status, 0), child);
}

} // namespace

TEST_F(StackedTest, LongListsGoInFewCommands)
{
    std::vector<std::uint32_t> addresses;
    for (std::uint32_t i = 0; i < 200; ++i)
        addresses.push_back(0x9000 + 4 * i);
    std::size_t done = 0;
    const auto writes = CountOf(Command::WriteRegister);
    ASSERT_TRUE(device->WriteAll(Words(addresses), done).Ok());
    EXPECT_EQ(done, 200U);
    EXPECT_EQ(camera.Get(0x9000 + 4 * 199), 299U);
    EXPECT_EQ(CountOf(Command::WriteRegister) - writes, 3U) << "67 each";
    const auto reads = CountOf(Command::ReadRegister);
    const std::vector<PortAccess> accesses = Words(addresses);
    std::fill(words.begin(), words.end(), 0);
    ASSERT_TRUE(device->ReadAll(accesses, done).Ok());
    EXPECT_EQ(done, 200U);
    for (std::size_t i = 0; i < words.size(); ++i)
        EXPECT_EQ(ntohl(words[i]), 100 + i);
    EXPECT_LE(CountOf(Command::ReadRegister) - reads, 3U) << "135 each, and a heartbeat";
}

TEST_F(StackedTest, WhatWasDoneIsCounted)
{
    std::size_t done = 9;
    EXPECT_EQ(device->WriteAll(Words({0x9000, 0x9004, 0x8000, 0x9008}), done).Code(), GC_ERR_INVALID_ADDRESS);
    EXPECT_EQ(done, 2U);
    EXPECT_EQ(camera.Get(0x9004), 101U);
    EXPECT_EQ(camera.Get(0x9008), 0U);
    EXPECT_EQ(device->ReadAll(Words({0x9000, 0x9004, 0x8000, 0x9008}), done).Code(), GC_ERR_INVALID_ADDRESS);
    EXPECT_EQ(done, 2U);
    EXPECT_EQ(ntohl(words[1]), 101U);
    EXPECT_TRUE(device->WriteAll(Words({0x900C, 0xB000, 0x9010}), done).Ok()) << "busy once";
    EXPECT_EQ(done, 3U);
    EXPECT_EQ(camera.Get(0xB000), 101U);
    EXPECT_EQ(camera.Get(0x9010), 102U);

    camera.tellsHowFar = false;
    const auto before = CountOf(Command::WriteRegister);
    EXPECT_EQ(device->WriteAll(Words({0x9000, 0x8000}), done).Code(), GC_ERR_INVALID_ADDRESS);
    EXPECT_EQ(done, 0U) << "nobody knows, so nothing is claimed";
    EXPECT_EQ(CountOf(Command::WriteRegister) - before, 1U) << "and nothing is written twice";
}

TEST_F(StackedTest, OddOnesGoAlone)
{
    std::vector<PortAccess> accesses = Words({0x9000, 0x9004, 0x9008, 0x900C});
    accesses[1].size = 2;
    accesses[2].address += 1;
    accesses[2].size = 3;
    std::size_t done = 0;
    ASSERT_TRUE(device->ReadAll(accesses, done).Ok());
    EXPECT_EQ(done, 4U);
    EXPECT_TRUE(device->ReadAll({}, done).Ok());
    EXPECT_EQ(done, 0U);
    EXPECT_EQ(device->ReadAll(Words({0x9000, 0x9004}), done).Code(), GC_ERR_SUCCESS);
    device->Close();
    EXPECT_EQ(device->ReadAll(Words({0x9000, 0x9004}), done).Code(), GC_ERR_INVALID_HANDLE);
    EXPECT_EQ(done, 0U);
}

TEST_F(CameraTest, AStoppedProcessDoesNotLoseItsCamera)
{
    constexpr std::uint64_t kHeartbeatTimeout = 0x0938;
    constexpr std::uint64_t kPrivilege = 0x0A00;
    ASSERT_EQ(OpenDevice(), GC_ERR_SUCCESS) << LastError();
    ASSERT_EQ(WriteRegister(kHeartbeatTimeout, 1200), GC_ERR_SUCCESS);
    const EVENT_HANDLE lost = Register(NUVARK_EVENT_DEVICE_LOST);
    const EVENT_HANDLE traffic = Register(NUVARK_EVENT_CONTROL_TRAFFIC);
    for (const int stopMs : {800, 3000}) {
        StandStill(std::chrono::milliseconds(stopMs));
        ASSERT_EQ(Gc().EventFlush(traffic), GC_ERR_SUCCESS);
        for (int i = 0; i < 10; ++i) // beats and their answers
            ASSERT_FALSE(Next(traffic).empty()) << stopMs;
        EXPECT_EQ(NextText(lost, 0), "") << stopMs;
        EXPECT_EQ(ReadRegister(kPrivilege) & 3, 2U) << "control is ours, maybe again";
        EXPECT_EQ(WriteRegister(kWidth, 64), GC_ERR_SUCCESS) << LastError();
    }
}
