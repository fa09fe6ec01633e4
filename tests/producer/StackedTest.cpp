// Several registers in one command, and control that outlives a stop of this process.
#include "producer/gige/GigeDevice.h"
#include "producer/gige/Text.h"

#include "ScriptedDevice.h"
#include "SimulatedFixture.h"

#include <csignal>

#include <sys/wait.h>

using namespace nuvark;
using namespace nuvark::gige;

namespace {

class NoListener final : public CameraListener {
public:
    void OnCameraLost(const std::string &) override {}
};

/// Registers that can be asked for together. Address 0x8000 and up is refused, from 0xB000 on the camera is busy once.
class ConcatenatingCamera {
public:
    ConcatenatingCamera()
        : m_device([this](ScriptedDevice &device, const ScriptedDevice::Received &got) { OnCommand(device, got); })
    {
    }
    std::uint32_t Get(std::uint32_t address)
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_registers[address];
    }
    /// How many of those commands have come, and how many registers they named in all.
    std::pair<int, int> Count(Command command)
    {
        std::pair<int, int> count;
        for (const auto &got : m_device.Commands()) {
            if (got.command != static_cast<std::uint16_t>(command))
                continue;
            ++count.first;
            count.second += static_cast<int>(got.payload.size() / (command == Command::WriteRegister ? 8 : 4));
        }
        return count;
    }

    std::atomic<bool> tellsHowFar{true};

private:
    void OnCommand(ScriptedDevice &device, const ScriptedDevice::Received &got)
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        orv::ByteReader in({got.payload.data(), got.payload.size()});
        orv::ByteWriter out;
        std::uint16_t status = 0;
        std::uint16_t done = 0;
        if (got.command == static_cast<std::uint16_t>(Command::ReadRegister)) {
            for (; done < got.payload.size() / 4 && status == 0; ++done) {
                const std::uint32_t address = in.U32();
                status = address == 0x8000 ? 0x8003 : 0;
                if (status == 0)
                    out.U32(m_registers[address]);
            }
        } else if (got.command == static_cast<std::uint16_t>(Command::WriteRegister)) {
            for (; done < got.payload.size() / 8; ++done) {
                const std::uint32_t address = in.U32();
                status = address == 0x8000 ? 0x8003 : address == 0xB000 && !m_wasBusy ? 0x8007 : 0;
                m_wasBusy = m_wasBusy || status == 0x8007;
                if (status != 0)
                    break;
                m_registers[address] = in.U32();
            }
            if (status == 0 || tellsHowFar)
                out.U32(done);
        } else { // memory
            const std::uint32_t address = in.U32();
            const std::uint32_t count = in.U32() & 0xFFFF;
            status = address == 0x8000 ? 0x8003 : 0;
            out.U32(address);
            for (std::uint32_t i = 0; i < count; i += 4)
                out.U32(m_registers[address + i]);
        }
        device.Answer(status, static_cast<std::uint16_t>(got.command + 1), got.id, out.Take());
    }

    std::mutex m_mutex;
    bool m_wasBusy = false;
    std::map<std::uint32_t, std::uint32_t> m_registers{{0x0004, 0x80000001}, {0x0904, 1}, {0x0934, 0x1}};
    ScriptedDevice m_device;
};

class StackedTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        NetworkInterface interface;
        interface.name = "lo";
        interface.index = 1;
        interface.address = *ParseAddress("127.0.0.1");
        interface.mask = 0xFF000000;
        auto opened = GigeDevice::Open(interface, *ParseAddress(kScriptedAddress), CameraAccess::Control, listener);
        ASSERT_TRUE(opened.Ok()) << opened.status.Text();
        device = std::move(opened.value);
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

    ConcatenatingCamera camera;
    NoListener listener;
    std::unique_ptr<Camera> device;
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
    const auto writes = camera.Count(Command::WriteRegister);
    ASSERT_TRUE(device->WriteAll(Words(addresses), done).Ok());
    EXPECT_EQ(done, 200U);
    EXPECT_EQ(camera.Get(0x9000 + 4 * 199), 299U);
    EXPECT_EQ(camera.Count(Command::WriteRegister).first - writes.first, 3) << "67 each";
    const auto reads = camera.Count(Command::ReadRegister);
    const std::vector<PortAccess> accesses = Words(addresses);
    std::fill(words.begin(), words.end(), 0);
    ASSERT_TRUE(device->ReadAll(accesses, done).Ok());
    EXPECT_EQ(done, 200U);
    for (std::size_t i = 0; i < words.size(); ++i)
        EXPECT_EQ(ntohl(words[i]), 100 + i);
    EXPECT_LE(camera.Count(Command::ReadRegister).first - reads.first, 3) << "135 each, and a heartbeat";
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
    const auto before = camera.Count(Command::WriteRegister);
    EXPECT_EQ(device->WriteAll(Words({0x9000, 0x8000}), done).Code(), GC_ERR_INVALID_ADDRESS);
    EXPECT_EQ(done, 0U) << "nobody knows, so nothing is claimed";
    EXPECT_EQ(camera.Count(Command::WriteRegister).first - before.first, 1) << "and nothing is written twice";
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
    ASSERT_EQ(WriteRegister(kHeartbeatTimeout, 600), GC_ERR_SUCCESS);
    EVENT_HANDLE lost = nullptr;
    ASSERT_EQ(Gc().GCRegisterEvent(device, NUVARK_EVENT_DEVICE_LOST, &lost), GC_ERR_SUCCESS);
    for (const int stopMs : {400, 1500}) {
        StandStill(std::chrono::milliseconds(stopMs));
        char text[1024] = {};
        size_t size = sizeof text;
        EXPECT_EQ(Gc().EventGetData(lost, text, &size, 1000), GC_ERR_TIMEOUT) << stopMs << " " << text;
        EXPECT_EQ(ReadRegister(kPrivilege) & 3, 2U) << "control is ours, maybe again";
        EXPECT_EQ(WriteRegister(kWidth, 64), GC_ERR_SUCCESS) << LastError();
    }
}
