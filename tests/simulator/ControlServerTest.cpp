#include "tests/simulator/ControlFixture.h"

namespace orvsim {
namespace {

constexpr int kNone = -1; // no answer

class ControlServerTest : public ControlTest {};

struct Exchange {
    const char *name;
    const char *command;
    const char *answer; ///< empty: none
    bool isInControl;
};

const Exchange kExchanges[] = {
    {"read one register", "42 01 0080 0004 0001 00000A00", "0000 0081 0004 0001 00000000", false},
    {"read three registers", "42 01 0080 000C 0002 00000934 00000938 00000940",
     "0000 0081 000C 0002 F9D4007F 00000BB8 3B9ACA00", false},
    {"take control", "42 01 0082 0008 0003 00000A00 00000002", "0000 0083 0004 0003 0000 0001", false},
    {"set up the stream in one packet", "42 01 0082 0018 0004 00000D18 C0A80A01 00000D04 400005DC 00000D00 0000C35A",
     "0000 0083 0004 0004 0000 0003", true},
    {"read the user name", "42 01 0084 0008 0005 000000E8 0000 0010",
     "0000 0085 0014 0005 000000E8 6C656674 00000000 00000000 00000000", false},
    {"write the user name", "42 01 0086 0014 0006 000000E8 72656172 00000000 00000000 00000000",
     "0000 0087 0004 0006 0000 0010", true},
    {"no acknowledge wanted", "42 00 0080 0004 0001 00000A00", "", false},
    {"bytes behind the command are a driver's padding", "42 01 0080 0004 0001 00000A00 00000000",
     "0000 0081 0004 0001 00000000", false},
    {"wrong key", "43 01 0080 0004 0001 00000A00", "", false},
    {"shorter than a header", "42 01 0080 0004 00", "", false},
    {"request id 0", "42 01 0080 0004 0000 00000A00", "", false},
    {"length beyond the datagram", "42 01 0080 0008 0001 00000A00", "800E 0081 0000 0001", false},
    {"unknown command", "42 01 0200 0000 0001", "8001 0201 0000 0001", false},
    {"no address to read", "42 01 0080 0000 0001", "800E 0081 0000 0001", false},
    {"half an address", "42 01 0080 0002 0001 0A00", "800E 0081 0000 0001", false},
    {"half a pair to write", "42 01 0082 0004 0001 00000A00", "800E 0083 0000 0001", true},
    {"unaligned register", "42 01 0080 0004 0001 00000A02", "8005 0081 0000 0001", false},
    {"unaligned memory", "42 01 0084 0008 0001 0000B002 0000 0004", "8005 0085 0000 0001", false},
    {"unaligned count", "42 01 0084 0008 0001 0000B000 0000 0006", "8005 0085 0000 0001", false},
    {"more memory than a packet holds", "42 01 0084 0008 0001 0000B000 0000 021C", "8002 0085 0000 0001", false},
    {"no memory", "42 01 0084 0008 0001 0000B000 0000 0000", "8002 0085 0000 0001", false},
    {"memory that is not there", "42 01 0084 0008 0001 0000F000 0000 0004", "8003 0085 0000 0001", false},
    {"odd bytes to write", "42 01 0086 0006 0001 000000E8 7265", "8005 0087 0004 0001 0000 0000", true},
    {"nothing to write", "42 01 0086 0004 0001 000000E8", "800E 0087 0000 0001", true},
    {"write-only register", "42 01 0080 0004 0001 00000944", "8006 0081 0000 0001", false},
    {"reading stops at the first failure", "42 01 0080 000C 0001 00000938 0000F000 00000940",
     "8003 0081 0004 0001 00000BB8", false},
    {"writing stops at the first failure", "42 01 0082 0018 0001 00000938 00000FA0 0000A008 00000001 00000D08 00000001",
     "8004 0083 0004 0001 0000 0001", true},
};

TEST_F(ControlServerTest, AnswersByteForByte)
{
    for (const Exchange &row : kExchanges) {
        ControlFixture fixture;
        if (row.isInControl)
            fixture.TakeControl();
        const auto replies = fixture.Handle(kHost, FromHex(row.command));
        const Datagram expected = FromHex(row.answer);
        ASSERT_EQ(replies.size(), expected.empty() ? 0U : 1U) << row.name;
        if (!replies.empty()) {
            EXPECT_EQ(replies[0].bytes, expected) << row.name;
        }
    }
}

TEST_F(ControlServerTest, DiscoveryIsPutOffAndBroadcastAsAsked)
{
    TakeControl();
    Write(0x0950, 300);
    bool differs = false;
    for (int i = 0; i < 20; ++i) {
        const auto replies = Handle(kHost, FromHex("42 11 0002 0000 FFFF"));
        ASSERT_EQ(replies.size(), 1U);
        EXPECT_EQ(replies[0].to, kHost) << "the same subnet needs no broadcast";
        EXPECT_LE(replies[0].at, now + std::chrono::milliseconds(300));
        differs = differs || replies[0].at > now;
    }
    EXPECT_TRUE(differs);
    const Endpoint foreign{0x0A000001, 5000};
    EXPECT_EQ(Handle(foreign, FromHex("42 11 0002 0000 FFFF"))[0].to, (Endpoint{0xffffffff, 5000}));
    EXPECT_EQ(Handle(foreign, FromHex("42 01 0002 0000 FFFF"))[0].to, foreign);
}

TEST_F(ControlServerTest, BroadcastsMayOnlySearchForceAndAct)
{
    const auto count = [this](const Datagram &command) {
        return server.HandleBroadcast(kHost, SpanOf(command), now).size();
    };
    EXPECT_EQ(count(FromHex("42 01 0002 0000 FFFF")), 1U);
    EXPECT_EQ(count(commands.Read(0x0A00)), 0U);
    EXPECT_EQ(count(commands.Write(0x0A00, 2)), 0U);
    EXPECT_EQ(count(FromHex("42 01 0200 0000 0001")), 0U);
    EXPECT_EQ(count(FromHex("42 01 0080 0008 0001 00000A00")), 0U);
    EXPECT_FALSE(device.bootstrap.State().IsControlled());
}

struct PrivilegeRow {
    const char *name;
    std::uint32_t held; ///< CCP as the host kHost has written it; 0: nobody
    Endpoint caller;
    GvcpCommand command;
    std::vector<std::uint32_t> words;
    int status;
};
const PrivilegeRow kPrivileges[] = {
    {"free: anybody reads", 0, kOtherHost, GvcpCommand::ReadRegister, {0x0938}, 0},
    {"free: nobody writes", 0, kHost, GvcpCommand::WriteRegister, {0x0938, 5000}, 0x8006},
    {"free: control may be taken exclusively", 0, kHost, GvcpCommand::WriteRegister, {0x0A00, 1}, 0},
    {"free: control may be taken through memory", 0, kHost, GvcpCommand::WriteMemory, {0x0A00, 2}, 0},
    {"free: writing across CCP is no way in", 0, kHost, GvcpCommand::WriteMemory, {0x09FC, 0, 2}, 0x8006},
    {"free: giving back what nobody has", 0, kHost, GvcpCommand::WriteRegister, {0x0A00, 0}, 0},
    {"control: the controller writes", 2, kHost, GvcpCommand::WriteRegister, {0x0938, 5000}, 0},
    {"control: becomes exclusive", 2, kHost, GvcpCommand::WriteRegister, {0x0A00, 1}, 0},
    {"control: another port is another application", 2, kOtherPort, GvcpCommand::WriteRegister, {0x0938, 5000}, 0x8006},
    {"control: others read", 2, kOtherHost, GvcpCommand::ReadRegister, {0x0938}, 0},
    {"control: others do not take it", 2, kOtherHost, GvcpCommand::WriteRegister, {0x0A00, 2}, 0x8006},
    {"control: no switch-over with any key", 6, kOtherHost, GvcpCommand::WriteRegister, {0x0A00, 0x00010002}, 0x8006},
    {"control: others do not end it", 2, kOtherHost, GvcpCommand::WriteRegister, {0x0A00, 0}, 0x8006},
    {"exclusive: the controller reads", 1, kHost, GvcpCommand::ReadRegister, {0x0938}, 0},
    {"exclusive: others do not read", 1, kOtherHost, GvcpCommand::ReadRegister, {0x0938}, 0x8006},
    {"exclusive: nor write", 1, kOtherHost, GvcpCommand::WriteMemory, {0xA000, 4}, 0x8006},
    {"exclusive: everybody may search", 1, kOtherHost, GvcpCommand::Discovery, {}, 0},
};

TEST_F(ControlServerTest, PrivilegesFollowTheMatrix)
{
    for (const PrivilegeRow &row : kPrivileges) {
        ControlFixture fixture;
        if (row.held != 0)
            fixture.TakeControl(row.held);
        const Datagram command = fixture.commands.Make(row.command, row.words);
        const auto replies = fixture.Handle(row.caller, command);
        ASSERT_EQ(replies.size(), 1U) << row.name;
        const Datagram &answer = replies[0].bytes;
        EXPECT_EQ(answer[0] << 8 | answer[1], row.status) << row.name;
        if (row.status == 0x8006) {
            EXPECT_EQ(answer.size(), 8U) << row.name;
        }
    }
}

TEST_F(ControlServerTest, ShowsWhoIsInControl)
{
    TakeControl(6); // with switch-over, which is not offered
    EXPECT_EQ(Read(0x0A00), 2U);
    EXPECT_EQ(Read(0x0A04), kHost.port);
    EXPECT_EQ(Read(0x0A14, kOtherHost), kHost.address);
    Write(0x0A00, 0);
    EXPECT_EQ(Read(0x0A04), 0U);
    EXPECT_EQ(Read(0x0A14), 0U);
}

TEST_F(ControlServerTest, RepeatedCommandIsAnsweredAgainNotDoneAgain)
{
    TakeControl();
    const Datagram write = commands.Write(FakeDevice::kCounter, 1);
    const Datagram first = Ask(kHost, write);
    EXPECT_EQ(Ask(kHost, write), first);
    EXPECT_EQ(device.writes, 1U);
    EXPECT_EQ(Status(kOtherHost, write), 0x8006) << "the same bytes from elsewhere are another command";
    EXPECT_EQ(Write(FakeDevice::kCounter, 1), 0);
    EXPECT_EQ(device.writes, 2U);

    Datagram silent = commands.Write(FakeDevice::kCounter, 1);
    silent[1] = 0;
    EXPECT_EQ(Status(kHost, silent), kNone);
    EXPECT_EQ(Status(kHost, silent), kNone);
    EXPECT_EQ(device.writes, 3U);
    Write(0x0938, 60000);
    Status(kHost, silent);
    EXPECT_EQ(device.writes, 4U) << "only the last command is remembered";
    Pass(6000);
    Status(kHost, silent);
    EXPECT_EQ(device.writes, 5U) << "a new client on an old port";
}

TEST_F(ControlServerTest, WhatWasAnsweredEndsWithControl)
{
    const Datagram take = commands.Make(GvcpCommand::WriteRegister, {0x0A00, 2, 0x0938, 500});
    EXPECT_EQ(Status(kHost, take), 0);
    Pass(1200);
    EXPECT_FALSE(device.bootstrap.State().IsControlled());
    EXPECT_EQ(Status(kHost, take), 0);
    EXPECT_TRUE(device.bootstrap.State().IsController(kHost)) << "done again, not said again";
}

TEST_F(ControlServerTest, SilenceEndsControlAndClosesTheChannels)
{
    TakeControl();
    Write(0x0938, 1000);
    Write(0x0D18, kHost.address);
    Write(0x0D00, 50010);
    Write(0x0B10, kHost.address);
    Write(0x0B00, 50011);
    EXPECT_EQ(device.target.to, (Endpoint{kHost.address, 50010}));
    EXPECT_EQ(device.stops, 0);

    for (int i = 0; i < 5; ++i) {
        Pass(900);
        Read(0x0A00); // any command of the controller counts
    }
    Pass(900);
    Read(0x0A00, kOtherPort); // nobody else's does
    EXPECT_TRUE(device.bootstrap.State().IsControlled());
    Pass(101);
    EXPECT_FALSE(device.bootstrap.State().IsControlled());
    EXPECT_EQ(device.target.to.port, 0);
    EXPECT_EQ(device.stops, 1);
    for (const std::uint32_t address : {0x0A00, 0x0A04, 0x0A14, 0x0B00, 0x0B10, 0x0D00, 0x0D18})
        EXPECT_EQ(Read(address), 0U) << std::hex << address;
    EXPECT_EQ(Write(0x0938, 1000), 0x8006);
}

TEST_F(ControlServerTest, HeartbeatIsBoundedAndCanBeSwitchedOff)
{
    TakeControl();
    Write(0x0938, 1);
    EXPECT_EQ(Read(0x0938), 500U);
    Write(0x0954, kConfigHeartbeatOff);
    Pass(3600 * 1000);
    EXPECT_TRUE(device.bootstrap.State().IsControlled());
    Write(0x0954, 0);
    Pass(501);
    EXPECT_FALSE(device.bootstrap.State().IsControlled());
}

TEST_F(ControlServerTest, SlowCommandIsAnnouncedOnlyWhereAskedFor)
{
    using std::chrono::milliseconds;
    TakeControl();
    device.slowMs = 1500;
    auto replies = Handle(kHost, commands.Write(FakeDevice::kSlow, 1));
    ASSERT_EQ(replies.size(), 1U);
    EXPECT_EQ(replies[0].at, now + milliseconds(1500));

    Write(0x0954, kConfigPending);
    const Datagram write = FromHex("42 01 0082 0008 0106 0000A004 00000002");
    replies = Handle(kHost, write);
    ASSERT_EQ(replies.size(), 2U);
    EXPECT_EQ(replies[0].bytes, FromHex("0000 0089 0004 0106 0000 05DC"));
    EXPECT_EQ(replies[0].at, now);
    EXPECT_EQ(replies[1].bytes, FromHex("0000 0083 0004 0106 0000 0001"));
    EXPECT_EQ(replies[1].at, now + milliseconds(1500));

    Pass(1000);
    replies = Handle(kHost, write);
    ASSERT_EQ(replies.size(), 1U) << "asked again while at it";
    EXPECT_EQ(replies[0].bytes, FromHex("0000 0089 0004 0106 0000 01F4"));
    Pass(600);
    EXPECT_EQ(Ask(kHost, write), FromHex("0000 0083 0004 0106 0000 0001"));
}

TEST_F(ControlServerTest, ResetDropsTheController)
{
    TakeControl();
    server.RequestReset();
    Pass(1);
    EXPECT_EQ(Read(0x0A00), 0U);
    EXPECT_EQ(device.stops, 1);
}

} // namespace
} // namespace orvsim
