#include "producer/gige/GvcpClient.h"
#include "producer/gige/Text.h"

#include "ProducerFixture.h"
#include "ScriptedDevice.h"

#include <csignal>
#include <utility>

#include <pthread.h>

using namespace nuvark;
using namespace nuvark::gige;

namespace {

constexpr std::uint16_t kReadAnswer = AcknowledgeOf(Command::ReadRegister);
const std::vector<std::uint8_t> kValue = {0, 0, 0, 42};
const std::vector<std::uint8_t> kWrong = {0, 0, 0, 13};

std::unique_ptr<GvcpClient> Connect(const GvcpClient::Timing &timing = {})
{
    auto client = GvcpClient::Open(*ParseAddress("127.0.0.1"), *ParseAddress(kScriptedAddress), timing);
    EXPECT_TRUE(client.Ok());
    return std::move(client.value);
}

GC_ERROR Read(GvcpClient &client, Effort effort = Effort::Normal)
{
    std::uint32_t value = 0;
    const GC_ERROR code = client.ReadRegister(0x100, value, effort).Code();
    EXPECT_EQ(value, code == GC_ERR_SUCCESS ? 42U : 0U);
    return code;
}

/// Times of that many milliseconds for each try and for all of them.
GvcpClient::Timing Quick(int eachTry, int total)
{
    GvcpClient::Timing timing;
    timing.firstTry = timing.furtherTry = std::chrono::milliseconds(eachTry);
    timing.total = std::chrono::milliseconds(total);
    return timing;
}

bool IsWrite(const ScriptedDevice::Received &got)
{
    return got.command == static_cast<std::uint16_t>(Command::WriteRegister);
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
             std::this_thread::sleep_for(std::chrono::milliseconds(300));
             device.Answer(0, kReadAnswer, got.id, kValue);
         },
         GC_ERR_SUCCESS, 1},
        {"busy is asked again as a new command",
         [busy = 2](auto &device, auto &got) mutable {
             device.Answer(busy-- > 0 ? kStatusBusy : kStatusSuccess, kReadAnswer, got.id, kValue);
         },
         GC_ERR_SUCCESS, 3},
        {"busy for good", [](auto &device, auto &got) { device.Answer(kStatusBusy, kReadAnswer, got.id, {}); },
         GC_ERR_BUSY, 6},
        {"refused without a payload", [](auto &device, auto &got) { device.Answer(0x8003, kReadAnswer, got.id, {}); },
         GC_ERR_INVALID_ADDRESS, 1},
        {"too short an answer",
         [](auto &device, auto &got) {
             device.Answer(0, kReadAnswer, got.id, {0, 0});
         },
         GC_ERR_IO, 1},
        {"silence", [](auto &, auto &) {}, GC_ERR_TIMEOUT, 5},
    };
    for (const auto &row : kRows) {
        ScriptedDevice device(row.script);
        const auto client = Connect();
        SCOPED_TRACE(row.name);
        EXPECT_EQ(Read(*client), row.code);
        const auto commands = device.Commands();
        ASSERT_EQ(commands.size(), row.commands);
        const bool isBusy = std::string(row.name).rfind("busy", 0) == 0;
        for (std::size_t i = 1; i < commands.size(); ++i)
            EXPECT_EQ(commands[i].id == commands[0].id, !isBusy) << "repeats keep their id";
    }
}

TEST(GvcpClient, SilenceIsAllTriesInVainAndALateAnswerEndsIt)
{
    enum class Mode { Lose, LoseOne, Answer, AnswerTheLast };
    std::atomic<Mode> mode{Mode::Lose};
    ScriptedDevice device([&](auto &self, auto &got) {
        if (mode == Mode::Answer)
            self.Answer(0, kReadAnswer, got.id, kValue);
        else if (mode == Mode::AnswerTheLast)
            self.Answer(0, kReadAnswer, got.id - 1, kWrong);
        else if (mode == Mode::LoseOne)
            mode = Mode::Answer;
    });
    const auto client = Connect(Quick(50, 250));
    EXPECT_EQ(Read(*client, Effort::Beat), GC_ERR_TIMEOUT);
    EXPECT_EQ(Read(*client, Effort::Quick), GC_ERR_TIMEOUT);
    EXPECT_TRUE(client->IsAnswering()) << "a heartbeat or a closing write may get lost";
    mode = Mode::LoseOne;
    EXPECT_EQ(Read(*client), GC_ERR_SUCCESS) << "all tries are left";

    mode = Mode::Lose;
    for (const bool isFirst : {true, false}) {
        const std::size_t before = device.Commands().size();
        EXPECT_EQ(Read(*client), GC_ERR_TIMEOUT);
        EXPECT_EQ(device.Commands().size() - before > 1, isFirst) << "from then on each command is tried once";
        EXPECT_FALSE(client->IsAnswering());
    }
    const TimePoint before = client->LastAnswer();
    mode = Mode::AnswerTheLast;
    EXPECT_EQ(Read(*client), GC_ERR_TIMEOUT);
    EXPECT_TRUE(client->IsAnswering());
    EXPECT_GT(client->LastAnswer(), before);
}

TEST(GvcpClient, WaitsForSlowWritesAsLongAsTheCameraShowsThatItIsThere)
{
    constexpr std::uint32_t kMakers = 0xA000;
    constexpr std::uint32_t kBootstrap = 0x0A00;
    std::atomic<bool> showsItself{true};
    std::uint16_t slowId = 0; ///< of the write under way
    int questions = 0;        ///< meanwhile, of which the second comes after all the time for an ordinary command
    ScriptedDevice device([&](auto &self, auto &got) {
        if (IsWrite(got)) {
            questions = got.id == slowId ? questions : 0;
            slowId = got.id;
        } else if (showsItself) {
            self.Answer(0, kReadAnswer, got.id, kValue);
            if (++questions == 2)
                self.Answer(0, kReadAnswer + 2, slowId, {0, 0, 0, 1});
        }
    });
    const auto client = Connect(Quick(100, 300));
    client->SetSilenceLimit(std::chrono::milliseconds(1150));
    EXPECT_EQ(client->WriteRegister(kBootstrap, 1).Code(), GC_ERR_TIMEOUT);
    EXPECT_LE(device.Commands().size(), 3U) << "tries";
    EXPECT_EQ(Read(*client), GC_ERR_SUCCESS);
    EXPECT_TRUE(client->WriteRegister(kMakers, 1).Ok());

    showsItself = false;
    const std::size_t before = device.Commands().size();
    EXPECT_EQ(client->WriteRegister(kMakers, 1).Code(), GC_ERR_TIMEOUT);
    EXPECT_GE(device.Commands().size() - before, 2U) << "it was asked whether it is there";
    EXPECT_LE(device.Commands().size() - before, 4U) << "a silent camera is given up after the limit";
}

TEST(GvcpClient, ASlowWriteIsRepeatedOnlyWhenItIsLost)
{
    const struct {
        const char *name;
        bool isFirstLost;
        std::chrono::milliseconds takes; // and meanwhile the camera is deaf
        std::size_t writes;
    } kRows[] = {{"lost on the way", true, std::chrono::milliseconds(0), 2},
                 {"carried out for longer than many tries", false, std::chrono::milliseconds(600), 1}};
    for (const auto &row : kRows) {
        bool isLost = row.isFirstLost;
        ScriptedDevice device([&](auto &self, auto &got) {
            if (!IsWrite(got))
                self.Answer(0, kReadAnswer, got.id, kValue);
            else if (!std::exchange(isLost, false)) {
                std::this_thread::sleep_for(row.takes);
                self.Answer(0, kReadAnswer + 2, got.id, {0, 0, 0, 1});
            }
        });
        const auto client = Connect(Quick(100, 2200));
        EXPECT_TRUE(client->WriteRegister(0xA000, 1).Ok()) << row.name;
        EXPECT_EQ(Read(*client), GC_ERR_SUCCESS) << row.name << ": what has piled up is through";
        std::vector<std::uint16_t> ids;
        for (const auto &got : device.Commands()) {
            if (IsWrite(got))
                ids.push_back(got.id);
        }
        ASSERT_EQ(ids.size(), row.writes) << row.name;
        EXPECT_EQ(ids.front(), ids.back()) << row.name;
    }
}

TEST(Silence, CountsQuestionsRatherThanTime)
{
    using std::chrono::seconds;
    const TimePoint start = Clock::now();
    Silence silence;
    EXPECT_EQ(silence.InVain(start + seconds(60)).count(), 0) << "nobody has asked";
    for (int i = 0; i < 3; ++i)
        silence.OnAsked(start + seconds(1));
    EXPECT_EQ(silence.InVain(start + seconds(60)).count(), 0) << "this program may have been stopped";
    silence.OnAsked(start + seconds(2));
    EXPECT_EQ(silence.InVain(start + seconds(3)), seconds(2));
    silence.Excuse(start + seconds(5));
    EXPECT_EQ(silence.InVain(start + seconds(4)).count(), 0);
    EXPECT_EQ(silence.InVain(start + seconds(5)), seconds(4));
    silence.OnHeard(start + seconds(6));
    EXPECT_EQ(silence.InVain(start + seconds(9)).count(), 0);
    EXPECT_GE(silence.LongestGap(), seconds(5));

    silence.OnAsked(start + seconds(10));
    silence.OnHeard(start + seconds(20));
    silence.ForgetGaps();
    silence.OnAsked(start + seconds(21));
    silence.OnHeard(start + seconds(21));
    EXPECT_EQ(silence.LongestGap(), seconds(11)) << "the answer may have waited here while this program was stopped";
}

TEST(GvcpClient, PutOffForeverIsNoAnswer)
{
    ScriptedDevice device([](auto &self, auto &got) {
        while (!self.IsStopping()) { // in all, not since the last of them: that would never end
            self.Answer(0, kPendingAcknowledge, got.id, {0, 0, 0x01, 0xF4});
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
    });
    GvcpClient::Timing timing;
    timing.pending = std::chrono::milliseconds(300);
    const auto client = Connect(timing);
    EXPECT_EQ(Read(*client), GC_ERR_TIMEOUT);
    EXPECT_EQ(device.Commands().size(), 1U) << "no further tries";
}

TEST(GvcpClient, AnInterruptEndsTheWaitAndLeavesOnlyTheLastWord)
{
    std::atomic<bool> answering{false};
    ScriptedDevice device([&](auto &self, auto &got) {
        if (answering)
            self.Answer(0, kReadAnswer, got.id, kValue);
    });
    const auto client = Connect(Quick(60000, 60000));
    std::thread reader([&] { EXPECT_EQ(Read(*client), GC_ERR_ABORT); });
    EXPECT_TRUE(Becomes([&] { return !device.Commands().empty(); }));
    client->Interrupt();
    reader.join();
    answering = true;
    EXPECT_EQ(Read(*client), GC_ERR_ABORT);
    EXPECT_EQ(Read(*client, Effort::Last), GC_ERR_SUCCESS);
}

TEST(UdpSocket, ASignalDoesNotEndAWait)
{
    struct sigaction action = {};
    action.sa_handler = [](int) {};
    struct sigaction before = {};
    sigaction(SIGUSR1, &action, &before);
    const auto socket = UdpSocket::Open(*ParseAddress("127.0.0.1"));
    ASSERT_TRUE(socket.Ok());
    std::atomic<bool> done{false};
    std::thread waiter([&] {
        const Stopwatch watch;
        EXPECT_EQ(socket.value.WaitReadable(Clock::now() + std::chrono::milliseconds(200), nullptr),
                  UdpSocket::Wait::TimedOut);
        EXPECT_GE(watch.Milliseconds(), 199);
        done = true;
    });
    while (!done) {
        pthread_kill(waiter.native_handle(), SIGUSR1);
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    waiter.join();
    sigaction(SIGUSR1, &before, nullptr);
}

TEST(GvcpClient, RequestIdsWrapWithoutZero)
{
    ScriptedDevice device([](auto &self, auto &got) { self.Answer(0, kReadAnswer, got.id, kValue); });
    const auto client = Connect();
    for (int i = 0; i < 65540; ++i)
        ASSERT_EQ(Read(*client), GC_ERR_SUCCESS) << i;
    for (const auto &command : device.Commands())
        ASSERT_NE(command.id, 0);
}
