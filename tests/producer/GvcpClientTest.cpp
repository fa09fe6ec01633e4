#include "producer/gige/GvcpClient.h"
#include "producer/gige/Text.h"

#include "ProducerFixture.h"

#include <gtest/gtest.h>

#include <functional>
#include <mutex>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

using namespace nuvark;
using namespace nuvark::gige;

namespace {

constexpr char kAddress[] = "127.0.0.21";

/// A device that answers as a test wants. The script gets each command and sends what it likes; on its own thread.
class ScriptedDevice {
public:
    struct Received {
        std::uint16_t command = 0;
        std::uint16_t id = 0;
        std::vector<std::uint8_t> payload;
    };
    using Script = std::function<void(ScriptedDevice &, const Received &)>;

    explicit ScriptedDevice(Script script) : m_script(std::move(script))
    {
        m_fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        sockaddr_in local{};
        local.sin_family = AF_INET;
        local.sin_port = htons(kControlPort);
        inet_pton(AF_INET, kAddress, &local.sin_addr);
        EXPECT_EQ(bind(m_fd, reinterpret_cast<sockaddr *>(&local), sizeof local), 0);
        m_thread = std::thread([this] { Run(); });
    }
    ~ScriptedDevice()
    {
        m_stopping = true;
        m_thread.join();
        close(m_fd);
    }

    void Answer(std::uint16_t status, std::uint16_t code, std::uint16_t id, const std::vector<std::uint8_t> &payload)
    {
        orv::ByteWriter out;
        out.U16(status);
        out.U16(code);
        out.U16(static_cast<std::uint16_t>(payload.size()));
        out.U16(id);
        out.Bytes({payload.data(), payload.size()});
        const auto datagram = out.Take();
        sendto(m_fd, datagram.data(), datagram.size(), 0, reinterpret_cast<sockaddr *>(&m_peer), sizeof m_peer);
    }
    std::vector<Received> Commands()
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_commands;
    }

private:
    void Run()
    {
        while (!m_stopping) {
            pollfd ready{m_fd, POLLIN, 0};
            if (poll(&ready, 1, 10) <= 0)
                continue;
            std::uint8_t datagram[1024];
            socklen_t length = sizeof m_peer;
            const ssize_t size =
                recvfrom(m_fd, datagram, sizeof datagram, 0, reinterpret_cast<sockaddr *>(&m_peer), &length);
            Received received{std::uint16_t(datagram[2] << 8 | datagram[3]),
                              std::uint16_t(datagram[6] << 8 | datagram[7]),
                              std::vector<std::uint8_t>(datagram + 8, datagram + size)};
            {
                const std::lock_guard<std::mutex> lock(m_mutex);
                m_commands.push_back(received);
            }
            m_script(*this, received);
        }
    }

    const Script m_script;
    int m_fd = -1;
    sockaddr_in m_peer{};
    std::atomic<bool> m_stopping{false};
    std::mutex m_mutex;
    std::vector<Received> m_commands;
    std::thread m_thread;
};

constexpr std::uint16_t kReadAnswer = AcknowledgeOf(Command::ReadRegister);
const std::vector<std::uint8_t> kValue = {0, 0, 0, 42};
const std::vector<std::uint8_t> kWrong = {0, 0, 0, 13};

std::unique_ptr<GvcpClient> Connect()
{
    auto client = GvcpClient::Open(*ParseAddress("127.0.0.1"), *ParseAddress(kAddress));
    EXPECT_TRUE(client.Ok());
    return std::move(client.value);
}

} // namespace

TEST(GvcpClient, FindsTheRightAnswerAmongOthers)
{
    const struct {
        const char *name;
        ScriptedDevice::Script script;
        GC_ERROR code;
        std::size_t commands;
    } kRows[] = {
        {"plain answer", [](auto &device, auto &got) { device.Answer(0, kReadAnswer, got.id, kValue); }, GC_ERR_SUCCESS,
         1},
        {"answers with other ids and codes come before it",
         [](auto &device, auto &got) {
             device.Answer(0, kReadAnswer, got.id + 1, kWrong);
             device.Answer(0, kReadAnswer + 4, got.id, kWrong);
             device.Answer(0, kReadAnswer, got.id, kValue);
         },
         GC_ERR_SUCCESS, 1},
        {"the first try is lost",
         [lost = false](auto &device, auto &got) mutable {
             if (lost)
                 device.Answer(0, kReadAnswer, got.id, kValue);
             lost = true;
         },
         GC_ERR_SUCCESS, 2},
        {"pending, then an answer later than any try waits",
         [](auto &device, auto &got) {
             device.Answer(0, kPendingAcknowledge, got.id, {0, 0, 0x03, 0xE8});
             std::this_thread::sleep_for(std::chrono::milliseconds(400));
             device.Answer(0, kReadAnswer, got.id, kValue);
         },
         GC_ERR_SUCCESS, 1},
        {"busy is asked again as a new command",
         [busy = 2](auto &device, auto &got) mutable {
             device.Answer(busy-- > 0 ? kStatusBusy : kStatusSuccess, kReadAnswer, got.id, kValue);
         },
         GC_ERR_SUCCESS, 3},
        {"busy for good", [](auto &device, auto &got) { device.Answer(kStatusBusy, kReadAnswer, got.id, {}); },
         GC_ERR_BUSY, 4},
        {"refused without a payload", [](auto &device, auto &got) { device.Answer(0x8003, kReadAnswer, got.id, {}); },
         GC_ERR_INVALID_ADDRESS, 1},
        {"too short an answer",
         [](auto &device, auto &got) {
             device.Answer(0, kReadAnswer, got.id, {0, 0});
         },
         GC_ERR_IO, 1},
        {"silence", [](auto &, auto &) {}, GC_ERR_TIMEOUT, 4},
    };
    for (const auto &row : kRows) {
        ScriptedDevice device(row.script);
        const auto client = Connect();
        std::uint32_t value = 0;
        EXPECT_EQ(client->ReadRegister(0x100, value).Code(), row.code) << row.name;
        EXPECT_EQ(value, row.code == GC_ERR_SUCCESS ? 42U : 0U) << row.name;
        const auto commands = device.Commands();
        ASSERT_EQ(commands.size(), row.commands) << row.name;
        const bool isBusy = std::string(row.name).rfind("busy", 0) == 0;
        for (std::size_t i = 1; i < commands.size(); ++i)
            EXPECT_EQ(commands[i].id == commands[0].id, !isBusy) << row.name << ": repeats keep their id";
    }
}

TEST(GvcpClient, AfterAllTriesEachFurtherCommandMakesOneShortTry)
{
    std::atomic<bool> answering{false};
    ScriptedDevice device([&](ScriptedDevice &self, const ScriptedDevice::Received &got) {
        if (answering)
            self.Answer(0, kReadAnswer, got.id, kValue);
    });
    const auto client = Connect();
    std::uint32_t value = 0;
    EXPECT_FALSE(client->ReadRegister(0x100, value).Ok());
    EXPECT_FALSE(client->IsAnswering());
    EXPECT_EQ(device.Commands().size(), 4U);
    EXPECT_FALSE(client->ReadRegister(0x100, value).Ok());
    EXPECT_EQ(device.Commands().size(), 5U);
    answering = true;
    EXPECT_TRUE(client->ReadRegister(0x100, value).Ok());
    EXPECT_TRUE(client->IsAnswering());
}

TEST(GvcpClient, AnInterruptEndsTheWaitAndRefusesUntilResumed)
{
    std::atomic<bool> answering{false};
    ScriptedDevice device([&](ScriptedDevice &self, const ScriptedDevice::Received &got) {
        if (answering)
            self.Answer(0, kReadAnswer, got.id, kValue);
    });
    const auto client = Connect();
    std::thread reader([&] {
        std::uint32_t value = 0;
        EXPECT_EQ(client->ReadRegister(0x100, value).Code(), GC_ERR_ABORT);
    });
    EXPECT_TRUE(Becomes([&] { return !device.Commands().empty(); }));
    const Stopwatch watch;
    client->Interrupt();
    reader.join();
    EXPECT_LT(watch.Milliseconds(), 150);
    std::uint32_t value = 0;
    answering = true;
    EXPECT_EQ(client->ReadRegister(0x100, value).Code(), GC_ERR_ABORT);
    client->Resume();
    EXPECT_TRUE(client->ReadRegister(0x100, value).Ok());
}

TEST(GvcpClient, RequestIdsWrapWithoutZero)
{
    ScriptedDevice device(
        [](ScriptedDevice &self, const ScriptedDevice::Received &got) { self.Answer(0, kReadAnswer, got.id, kValue); });
    const auto client = Connect();
    std::uint32_t value = 0;
    for (int i = 0; i < 65540; ++i)
        ASSERT_TRUE(client->ReadRegister(0x100, value).Ok()) << i;
    for (const auto &command : device.Commands())
        ASSERT_NE(command.id, 0);
}
