#include "simulator/gige/MessageChannel.h"
#include "tests/simulator/ControlFixture.h"

namespace orvsim {
namespace {

using std::chrono::milliseconds;

constexpr std::uint64_t kTicks = 0xE8D4A51000;

class Messages : public ::testing::Test {
protected:
    Messages()
    {
        target.to = kHost;
        target.timeoutMs = 200;
        target.retries = 2;
        channel.SetTarget(target);
    }
    std::vector<Reply> Pass(int ms)
    {
        now += milliseconds(ms);
        return channel.Tick(now);
    }
    static DeviceEvent Event(std::uint16_t id, std::vector<std::uint8_t> data = {}) { return {id, kTicks, 0, data}; }

    MessageTarget target;
    MessageChannel channel{4};
    TimePoint now = TimePoint{} + std::chrono::hours(1);
};

TEST_F(Messages, BytesOfBothForms)
{
    struct Row {
        const char *name;
        bool extendedIds;
        std::uint64_t block;
        bool hasData;
        const char *bytes;
    };
    const Row rows[] = {
        {"event", false, 0x1234, false, "42 01 00C0 0010 0001 0000 9002 0000 1234 000000E8D4A51000"},
        {"event, extended", true, 0x123456789, false,
         "42 11 00C0 0018 0001 0018 9002 0000 0000 0000000123456789 000000E8D4A51000"},
        {"with data", false, 0x1234, true, "42 01 00C2 0014 0001 0000 9002 0000 1234 000000E8D4A51000 000061A8"},
        {"with data, extended", true, 0x123456789, true,
         "42 11 00C2 001C 0001 001C 9002 0000 0000 0000000123456789 000000E8D4A51000 000061A8"},
    };
    const std::vector<std::uint8_t> data = {0, 0, 0x61, 0xA8};
    for (const Row &row : rows) {
        MessageChannel fresh;
        target.extendedIds = row.extendedIds;
        fresh.SetTarget(target);
        ASSERT_TRUE(fresh.Push(Event(0x9002, row.hasData ? data : std::vector<std::uint8_t>()), row.block));
        const auto sent = fresh.Tick(now);
        ASSERT_EQ(sent.size(), 1U) << row.name;
        EXPECT_EQ(sent[0].bytes, FromHex(row.bytes)) << row.name;
        EXPECT_EQ(sent[0].to, kHost);
    }
}

TEST_F(Messages, AreRepeatedUnderOneIdThenGivenUp)
{
    channel.Push(Event(0x9001), 1);
    channel.Push(Event(0x9002), 1);
    const auto first = Pass(0);
    ASSERT_EQ(first.size(), 1U) << "the second waits for the first";
    EXPECT_TRUE(Pass(199).empty());
    for (int i = 0; i < 2; ++i) {
        const auto again = Pass(i == 0 ? 1 : 200);
        ASSERT_EQ(again.size(), 1U);
        EXPECT_EQ(again[0].bytes, first[0].bytes);
    }
    const auto next = Pass(200);
    ASSERT_EQ(next.size(), 1U);
    EXPECT_EQ(next[0].bytes[11], 0x02) << "the next event";
    EXPECT_EQ(next[0].bytes[7], 2) << "under the next id";
    const MessageCounts counts = channel.Counts();
    EXPECT_EQ(counts.sent, 2U);
    EXPECT_EQ(counts.repeated, 2U);
    EXPECT_EQ(counts.unanswered, 1U);
}

TEST_F(Messages, OnlyTheRightAcknowledgeCounts)
{
    struct Row {
        const char *name;
        const char *bytes;
        Endpoint from;
        bool counts;
    };
    const Row rows[] = {
        {"another id", "0000 00C1 0000 0002", kHost, false},
        {"another command", "0000 00C3 0000 0001", kHost, false},
        {"another host", "0000 00C1 0000 0001", kOtherHost, false},
        {"too short", "0000 00C1 0000", kHost, false},
        {"failure", "8FFF 00C1 0000 0001", kHost, false},
        {"right", "0000 00C1 0000 0001", kHost, true},
    };
    for (const Row &row : rows) {
        MessageChannel fresh;
        fresh.SetTarget(target);
        fresh.Push(Event(0x9001), 1);
        ASSERT_EQ(fresh.Tick(now).size(), 1U);
        fresh.Receive(row.from, SpanOf(FromHex(row.bytes)));
        EXPECT_EQ(fresh.Tick(now + milliseconds(200)).empty(), row.counts) << row.name;
    }
}

TEST_F(Messages, WithoutRepeatsNoAcknowledgeIsAskedFor)
{
    target.retries = 0;
    channel.SetTarget(target);
    channel.Push(Event(0x9001), 1);
    channel.Push(Event(0x9002), 1);
    const auto sent = Pass(0);
    ASSERT_EQ(sent.size(), 2U);
    EXPECT_EQ(sent[0].bytes[1], 0x00);
    EXPECT_TRUE(Pass(1000).empty());
}

TEST_F(Messages, QueueIsBoundedAndForgottenWithItsDestination)
{
    for (int i = 0; i < 4; ++i)
        EXPECT_TRUE(channel.Push(Event(0x9001), 1));
    EXPECT_FALSE(channel.Push(Event(0x9001), 1));
    EXPECT_EQ(channel.Counts().dropped, 1U);
    Pass(0);
    target.to = kOtherHost;
    channel.SetTarget(target);
    EXPECT_TRUE(Pass(1000).empty()) << "neither what waited nor what was under way";
    channel.SetTarget({});
    EXPECT_FALSE(channel.Push(Event(0x9001), 1)) << "closed";
}

} // namespace
} // namespace orvsim
