// What the control channel does besides reading and writing: addresses, stream registers, resends, actions, faults.
#include "tests/simulator/ControlFixture.h"

namespace orvsim {
namespace {

constexpr std::uint32_t kMask = 0xFFFF0000;

class ForceIp : public ControlTest {};
class StreamRegisters : public ControlTest {};
class Action : public ControlTest {};

TEST_F(ForceIp, MovesOnlyTheDeviceThatIsMeantAndFree)
{
    constexpr std::uint32_t kNew = 0xC0A80B14;
    struct Row {
        const char *name;
        bool isMine;
        bool isControlled;
        bool isMovable;
        std::uint32_t address;
        bool isAnswered;
        std::uint32_t after;
    };
    const Row rows[] = {
        {"moves", true, false, true, kNew, true, kNew},
        {"another device's", false, false, true, kNew, false, 0xC0A80A14},
        {"in use", true, true, true, kNew, false, 0xC0A80A14},
        {"address that cannot be taken", true, false, false, kNew, false, 0xC0A80A14},
        {"restart of the configuration is not answered", true, false, true, 0, false, 0xC0A80A14},
    };
    for (const Row &row : rows) {
        ControlFixture fixture;
        if (row.isControlled)
            fixture.TakeControl();
        fixture.device.isMovable = row.isMovable;
        const std::uint64_t mac = fixture.device.bootstrap.Mac() + (row.isMine ? 0 : 1);
        const Datagram command = fixture.commands.Make(GvcpCommand::ForceIp, ForceIpWords(mac, row.address, kMask));
        const auto replies = fixture.server.HandleBroadcast(kHost, SpanOf(command), fixture.now);
        EXPECT_EQ(replies.size(), row.isAnswered ? 1U : 0U) << row.name;
        EXPECT_EQ(fixture.Read(0x0024), row.after) << row.name;
    }
}

TEST_F(ForceIp, RestartTakesThePersistentAddress)
{
    TakeControl();
    Write(0x064C, 0xC0A80A63);
    Write(0x065C, 0xFFFFFF00);
    Write(0x0014, 0x1);
    EXPECT_EQ(Read(0x0014), 0x5U) << "link-local stays on";
    Write(0x0A00, 0);
    const std::uint64_t mac = device.bootstrap.Mac();
    EXPECT_TRUE(Handle(kHost, commands.Make(GvcpCommand::ForceIp, ForceIpWords(mac, 0, kMask))).empty());
    EXPECT_EQ(device.network.address, 0xC0A80A63U);
    EXPECT_EQ(Read(0x0024), 0xC0A80A63U);
}

TEST_F(StreamRegisters, PacketSizeIsFittedAndFireReadsZero)
{
    struct Row {
        std::uint32_t written;
        std::uint32_t read;
        int testPackets;
    };
    const Row rows[] = {
        {0x400005DC, 0x400005DC, 0}, {0x000005DF, 0x000005DC, 0}, {0x40000010, 0x400000DC, 0},
        {0x4000FFFF, 0x40004000, 0}, {0xC0000578, 0x40000578, 1}, {0x3FFF05DC, 0x000005DC, 0},
    };
    for (const Row &row : rows) {
        ControlFixture fixture;
        fixture.TakeControl();
        EXPECT_EQ(fixture.Write(0x0D04, row.written), 0);
        EXPECT_EQ(fixture.Read(0x0D04), row.read) << std::hex << row.written;
        EXPECT_EQ(fixture.device.testPackets, row.testPackets) << std::hex << row.written;
        EXPECT_EQ(fixture.device.target.packetSize, row.read & 0xffff);
        EXPECT_EQ(fixture.device.target.dontFragment, (row.read & 0x40000000) != 0);
    }
}

TEST_F(StreamRegisters, OnlyTheControllerOrAGroupCanBeTheDestination)
{
    TakeControl();
    for (const std::uint32_t address : {0x0D18, 0x0B10}) {
        EXPECT_EQ(Write(address, kHost.address), 0);
        EXPECT_EQ(Write(address, 0xEF000001), 0) << "239.0.0.1";
        EXPECT_EQ(Write(address, kOtherHost.address), 0x8002);
        EXPECT_EQ(Write(address, 0xffffffff), 0x8002);
        EXPECT_EQ(Read(address), 0xEF000001U);
        EXPECT_EQ(Write(address, 0), 0);
    }
    EXPECT_EQ(Write(0x0D00, 0x0001C35A), 0x8002) << "there is no second interface";
}

TEST_F(StreamRegisters, ReachTheStream)
{
    TakeControl();
    const Datagram list = commands.Make(GvcpCommand::WriteRegister, {0x0D18, kHost.address, 0x0D08, 36912, 0x0D24, 0xC,
                                                                     0x0960, 0x40000000, 0x0D00, 50010});
    EXPECT_EQ(Status(kHost, list), 0);
    const StreamTarget &target = device.target;
    EXPECT_EQ(target.to, (Endpoint{kHost.address, 50010}));
    EXPECT_EQ(target.packetDelayNs, 36912U);
    EXPECT_TRUE(target.extendedIds);
    EXPECT_TRUE(target.allIn);
    EXPECT_TRUE(target.resendToRequester);
    EXPECT_EQ(Write(0x0D24, 0x10), 0x8002) << "an option that is not offered";
    Write(0x0D00, 0);
    EXPECT_EQ(target.to.port, 0);
}

class ResendRight : public ControlTest {
protected:
    void Stream(std::uint32_t destination, std::uint32_t options = 0)
    {
        TakeControl();
        Write(0x0D18, destination);
        Write(0x0D24, options);
        Write(0x0D00, 50010);
    }
    std::size_t Asked(const Endpoint &from, const char *command = "42 00 0040 000C 0007 0000 1234 00000005 00000007")
    {
        const std::size_t before = device.resends.size();
        EXPECT_TRUE(Handle(from, FromHex(command)).empty());
        return device.resends.size() - before;
    }
};

TEST_F(ResendRight, OfTheControllersAddressOnly)
{
    EXPECT_EQ(Asked(kHost), 0U) << "nobody in control";
    Stream(kHost.address);
    EXPECT_EQ(Asked(kHost), 1U);
    EXPECT_EQ(Asked(kOtherPort), 1U) << "the stream's socket";
    EXPECT_EQ(Asked(kOtherHost), 0U);
    EXPECT_EQ(Asked(kHost, "42 00 0040 000C 0007 0001 1234 00000005 00000007"), 0U) << "no second channel";
    EXPECT_EQ(Asked(kHost, "42 10 0040 000C 0007 0000 1234 00000005 00000007"), 0U) << "too short for its form";
    Write(0x0D00, 0);
    EXPECT_EQ(Asked(kHost), 0U) << "closed";
}

TEST_F(ResendRight, OfEverybodyInAGroupButNotToTheirOwnAddress)
{
    Stream(0xEF000001);
    EXPECT_EQ(Asked(kOtherHost), 1U);
    Write(0x0D24, 0x8); // to whoever asked
    EXPECT_EQ(Asked(kOtherHost), 0U);
    EXPECT_EQ(Asked(kHost), 1U);
}

TEST_F(ResendRight, FormsAreReadAlike)
{
    Stream(kHost.address);
    Asked(kHost, "42 00 0040 000C 0009 0000 1234 00000005 00FFFFFF");
    Asked(kHost, "42 10 0040 0014 0008 0000 0000 00000005 00000007 0000000123456789");
    const ResendRequest expected[] = {{0x1234, 5, 0xffffffff, false}, {0x123456789, 5, 7, true}};
    ASSERT_EQ(device.resends.size(), std::size(expected));
    for (std::size_t i = 0; i < std::size(expected); ++i) {
        const ResendRequest &seen = device.resends[i];
        EXPECT_EQ(
            std::tie(seen.blockId, seen.firstPacket, seen.lastPacket, seen.extendedIds),
            std::tie(expected[i].blockId, expected[i].firstPacket, expected[i].lastPacket, expected[i].extendedIds));
    }
}

TEST_F(ResendRight, IsBounded)
{
    Stream(kHost.address);
    const char *wholeBlock = "42 00 0040 000C 0009 0000 1234 00000000 00FFFFFF"; // 212 packets
    std::size_t answered = 0;
    for (int i = 0; i < 10000; ++i)
        answered += Asked(kHost, wholeBlock);
    EXPECT_LT(answered, 1000U);
    EXPECT_GT(answered, 100U);
    Pass(1000);
    EXPECT_EQ(Asked(kHost, wholeBlock), 1U) << "the budget fills up again";
}

TEST_F(Action, NeedsKeysMaskAndRight)
{
    struct Row {
        const char *name;
        Endpoint from;
        bool isUnconditional;
        std::vector<std::uint32_t> words;
        bool acts;
        bool waitsForTrigger = true;
    };
    const Row rows[] = {
        {"all match", kHost, false, {0x11223344, 1, 0xffffffff}, true},
        {"device key", kHost, false, {0x11223345, 1, 0xffffffff}, false},
        {"group key", kHost, false, {0x11223344, 2, 0xffffffff}, false},
        {"group mask", kHost, false, {0x11223344, 1, 0xfffffff0}, false},
        {"too short", kHost, false, {0x11223344, 1}, false},
        {"not the controller", kOtherHost, false, {0x11223344, 1, 0xffffffff}, false},
        {"anybody where allowed", kOtherHost, true, {0x11223344, 1, 0xffffffff}, true},
        {"nothing to trigger", kHost, false, {0x11223344, 1, 0xffffffff}, true, false},
    };
    for (const Row &row : rows) {
        ControlFixture fixture;
        fixture.TakeControl();
        fixture.Status(
            kHost, fixture.commands.Make(GvcpCommand::WriteRegister, {0x090C, 0x11223344, 0x9800, 1, 0x9804, 0x0f}));
        fixture.device.waitsForTrigger = row.waitsForTrigger;
        fixture.Write(0x0954, row.isUnconditional ? kConfigUnconditionalAction : 0);
        const Datagram command = fixture.commands.Make(GvcpCommand::Action, row.words);
        const auto replies = fixture.server.HandleBroadcast(row.from, SpanOf(command), fixture.now);
        EXPECT_EQ(replies.size(), row.acts && row.waitsForTrigger ? 1U : 0U) << row.name;
        EXPECT_EQ(fixture.device.actions, row.acts ? 1 : 0) << row.name;
    }
}

TEST_F(Action, WithATimeIsRefusedForWantOfACommonClock)
{
    TakeControl();
    Write(0x9804, 1);
    const auto make = [this] {
        return commands.Make(GvcpCommand::Action, {0, 0, 1, 0, 100}, kFlagAcknowledge | kFlagScheduled);
    };
    EXPECT_EQ(Status(kHost, make()), 0x8001);
    Write(0x0954, kConfigStatusCodes2);
    EXPECT_EQ(Status(kHost, make()), 0x8013);
    EXPECT_EQ(device.actions, 0);
}

TEST(LegacyControl, HasNeitherLongIdsNorTheRegistersOfVersion2)
{
    ControlFixture fixture(true);
    EXPECT_EQ(fixture.Read(0x0000), 0x00010002U);
    for (const std::uint32_t address : {0x092C, 0x0930, 0x0958, 0x0960, 0x0964, 0x0B1C, 0x0D1C, 0x0D20, 0x0D24})
        EXPECT_EQ(fixture.Status(kHost, fixture.commands.Read(address)), 0x8003) << std::hex << address;
    EXPECT_EQ(fixture.Read(0x0934) & kConfigStatusCodes2, 0U);
    EXPECT_TRUE(fixture.device.target.oldChunkType);
    EXPECT_EQ(fixture.Handle(kHost, FromHex("42 01 0002 0000 FFFF"))[0].bytes.size(), 256U);
}

class ControlFaults : public ControlTest {
protected:
    ControlFaults() { TakeControl(); }
    std::vector<Reply> Count() { return Handle(kHost, last = commands.Write(FakeDevice::kCounter, 1)); }
    Faults &faults = device.faults;
    Datagram last;
};

TEST_F(ControlFaults, AnswersLateTwiceOrUnderAnotherId)
{
    faults.answerDelayMs = 70;
    faults.answerTwiceRate = 1;
    auto replies = Count();
    ASSERT_EQ(replies.size(), 2U);
    EXPECT_EQ(replies[0].bytes, replies[1].bytes);
    EXPECT_EQ(replies[0].at, now + std::chrono::milliseconds(70));
    faults = {};
    faults.answerWrongIdRate = 1;
    replies = Count();
    ASSERT_EQ(replies.size(), 1U);
    EXPECT_NE(replies[0].bytes[6] << 8 | replies[0].bytes[7], last[6] << 8 | last[7]);
    EXPECT_EQ(device.writes, 2U);
}

TEST_F(ControlFaults, LostAnswerComesWithTheRepeatAndBusyHasDoneNothing)
{
    faults.answerNotRate = 1;
    EXPECT_TRUE(Count().empty());
    faults = {};
    EXPECT_EQ(Status(kHost, last), 0);
    EXPECT_EQ(device.writes, 1U);

    faults.answerErrorRate = 1;
    ASSERT_EQ(Count().size(), 1U);
    EXPECT_EQ(Status(kHost, last), 0x8007);
    EXPECT_EQ(device.writes, 1U);
    faults = {};
    EXPECT_EQ(Status(kHost, last), 0);
    EXPECT_EQ(device.writes, 2U);
}

TEST_F(ControlFaults, ControlIsTakenAway)
{
    faults.loseControlAfterMs = 250;
    Pass(249);
    EXPECT_EQ(Read(0x0A00), 2U);
    Pass(1);
    EXPECT_EQ(Read(0x0A00), 0U);
    EXPECT_EQ(Write(FakeDevice::kCounter, 1), 0x8006);
}

} // namespace
} // namespace orvsim
