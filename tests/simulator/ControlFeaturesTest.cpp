// What the control channel does besides reading and writing: addresses, stream registers, resends, actions, faults.
#include "tests/simulator/ControlFixture.h"

namespace orvsim {
namespace {

std::vector<std::uint32_t> ForceIpWords(std::uint64_t mac, std::uint32_t address)
{
    std::vector<std::uint32_t> words(14, 0);
    words[0] = static_cast<std::uint32_t>(mac >> 32);
    words[1] = static_cast<std::uint32_t>(mac);
    words[5] = address;
    words[9] = 0xFFFF0000;
    words[13] = 0xC0A80AFE;
    return words;
}

TEST(ForceIp, MovesOnlyTheDeviceThatIsMeantAndFree)
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
        const Datagram command = fixture.commands.Make(GvcpCommand::ForceIp, ForceIpWords(mac, row.address));
        const auto replies = fixture.server.HandleBroadcast(kHost, SpanOf(command), fixture.now);
        EXPECT_EQ(replies.size(), row.isAnswered ? 1U : 0U) << row.name;
        EXPECT_EQ(fixture.Read(0x0024), row.after) << row.name;
    }
}

TEST(ForceIp, RestartTakesThePersistentAddress)
{
    ControlFixture fixture;
    fixture.TakeControl();
    fixture.Write(0x064C, 0xC0A80A63);
    fixture.Write(0x065C, 0xFFFFFF00);
    fixture.Write(0x0014, 0x1);
    EXPECT_EQ(fixture.Read(0x0014), 0x5U) << "link-local stays on";
    fixture.Write(0x0A00, 0);
    const std::uint64_t mac = fixture.device.bootstrap.Mac();
    EXPECT_TRUE(fixture.Handle(kHost, fixture.commands.Make(GvcpCommand::ForceIp, ForceIpWords(mac, 0))).empty());
    EXPECT_EQ(fixture.device.network.address, 0xC0A80A63U);
    EXPECT_EQ(fixture.Read(0x0024), 0xC0A80A63U);
}

TEST(StreamRegisters, PacketSizeIsFittedAndFireReadsZero)
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

TEST(StreamRegisters, OnlyTheControllerOrAGroupCanBeTheDestination)
{
    ControlFixture fixture;
    fixture.TakeControl();
    for (const std::uint32_t address : {0x0D18, 0x0B10}) {
        EXPECT_EQ(fixture.Write(address, kHost.address), 0);
        EXPECT_EQ(fixture.Write(address, 0xEF000001), 0) << "239.0.0.1";
        EXPECT_EQ(fixture.Write(address, kOtherHost.address), 0x8002);
        EXPECT_EQ(fixture.Write(address, 0xffffffff), 0x8002);
        EXPECT_EQ(fixture.Read(address), 0xEF000001U);
        EXPECT_EQ(fixture.Write(address, 0), 0);
    }
    EXPECT_EQ(fixture.Write(0x0D00, 0x0001C35A), 0x8002) << "there is no second interface";
}

TEST(StreamRegisters, ReachTheStream)
{
    ControlFixture fixture;
    fixture.TakeControl();
    const Datagram list =
        fixture.commands.Make(GvcpCommand::WriteRegister,
                              {0x0D18, kHost.address, 0x0D08, 36912, 0x0D24, 0xC, 0x0960, 0x40000000, 0x0D00, 50010});
    EXPECT_EQ(fixture.Status(kHost, list), 0);
    const StreamTarget &target = fixture.device.target;
    EXPECT_EQ(target.to, (Endpoint{kHost.address, 50010}));
    EXPECT_EQ(target.packetDelayNs, 36912U);
    EXPECT_TRUE(target.extendedIds);
    EXPECT_TRUE(target.allIn);
    EXPECT_TRUE(target.resendToRequester);
    EXPECT_EQ(fixture.Write(0x0D24, 0x10), 0x8002) << "an option that is not offered";
    fixture.Write(0x0D00, 0);
    EXPECT_EQ(target.to.port, 0);
}

TEST(Timestamp, IsLatchedAndReset)
{
    ControlFixture fixture;
    fixture.TakeControl();
    fixture.Write(0x0944, 2);
    EXPECT_EQ(fixture.Read(0x0948), 0x12U);
    EXPECT_EQ(fixture.Read(0x094C), 0x3456789aU);
    fixture.Write(0x0944, 1);
    EXPECT_EQ(fixture.device.ticks, 0U);
    EXPECT_EQ(fixture.Status(kHost, fixture.commands.Read(0x0944)), 0x8006) << "write-only";
}

class ResendRight : public ::testing::Test {
protected:
    void Stream(std::uint32_t destination, std::uint32_t options = 0)
    {
        fixture.TakeControl();
        fixture.Write(0x0D18, destination);
        fixture.Write(0x0D24, options);
        fixture.Write(0x0D00, 50010);
    }
    std::size_t Asked(const Endpoint &from, const char *command = "42 00 0040 000C 0007 0000 1234 00000005 00000007")
    {
        const std::size_t before = fixture.device.resends.size();
        EXPECT_TRUE(fixture.Handle(from, Hex(command)).empty());
        return fixture.device.resends.size() - before;
    }
    ControlFixture fixture;
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
    fixture.Write(0x0D00, 0);
    EXPECT_EQ(Asked(kHost), 0U) << "closed";
}

TEST_F(ResendRight, OfEverybodyInAGroupButNotToTheirOwnAddress)
{
    Stream(0xEF000001);
    EXPECT_EQ(Asked(kOtherHost), 1U);
    fixture.Write(0x0D24, 0x8); // to whoever asked
    EXPECT_EQ(Asked(kOtherHost), 0U);
    EXPECT_EQ(Asked(kHost), 1U);
}

TEST_F(ResendRight, FormsAreReadAlike)
{
    Stream(kHost.address);
    Asked(kHost, "42 00 0040 000C 0009 0000 1234 00000005 00FFFFFF");
    Asked(kHost, "42 10 0040 0014 0008 0000 0000 00000005 00000007 0000000123456789");
    ASSERT_EQ(fixture.device.resends.size(), 2U);
    const ResendRequest &standard = fixture.device.resends[0];
    EXPECT_EQ(standard.blockId, 0x1234U);
    EXPECT_EQ(standard.firstPacket, 5U);
    EXPECT_EQ(standard.lastPacket, 0xffffffffU);
    EXPECT_FALSE(standard.extendedIds);
    const ResendRequest &extended = fixture.device.resends[1];
    EXPECT_EQ(extended.blockId, 0x123456789U);
    EXPECT_EQ(extended.lastPacket, 7U);
    EXPECT_TRUE(extended.extendedIds);
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
    fixture.Pass(1000);
    EXPECT_EQ(Asked(kHost, wholeBlock), 1U) << "the budget fills up again";
}

TEST(Action, NeedsKeysMaskAndRight)
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

TEST(Action, WithATimeIsRefusedForWantOfACommonClock)
{
    ControlFixture fixture;
    fixture.TakeControl();
    fixture.Write(0x9804, 1);
    const auto make = [&fixture] {
        return fixture.commands.Make(GvcpCommand::Action, {0, 0, 1, 0, 100}, kFlagAcknowledge | kFlagScheduled);
    };
    EXPECT_EQ(fixture.Status(kHost, make()), 0x8001);
    fixture.Write(0x0954, kConfigStatusCodes2);
    EXPECT_EQ(fixture.Status(kHost, make()), 0x8013);
    EXPECT_EQ(fixture.device.actions, 0);
}

TEST(Legacy, HasNeitherLongIdsNorTheRegistersOfVersion2)
{
    ControlFixture fixture(true);
    EXPECT_EQ(fixture.Read(0x0000), 0x00010002U);
    for (const std::uint32_t address : {0x092C, 0x0930, 0x0958, 0x0960, 0x0964, 0x0B1C, 0x0D1C, 0x0D20, 0x0D24})
        EXPECT_EQ(fixture.Status(kHost, fixture.commands.Read(address)), 0x8003) << std::hex << address;
    EXPECT_EQ(fixture.Read(0x0934) & kConfigStatusCodes2, 0U);
    EXPECT_TRUE(fixture.device.target.oldChunkType);
    EXPECT_EQ(fixture.Handle(kHost, Hex("42 01 0002 0000 FFFF"))[0].bytes.size(), 256U);
}

class ControlFaults : public ::testing::Test {
protected:
    ControlFaults() { fixture.TakeControl(); }
    std::vector<Reply> Count() { return fixture.Handle(kHost, last = fixture.commands.Write(FakeDevice::kCounter, 1)); }
    ControlFixture fixture;
    Faults &faults = fixture.device.faults;
    Datagram last;
};

TEST_F(ControlFaults, AnswersLateTwiceOrUnderAnotherId)
{
    faults.answerDelayMs = 70;
    faults.answerTwiceRate = 1;
    auto replies = Count();
    ASSERT_EQ(replies.size(), 2U);
    EXPECT_EQ(replies[0].bytes, replies[1].bytes);
    EXPECT_EQ(replies[0].at, fixture.now + std::chrono::milliseconds(70));
    faults = {};
    faults.answerWrongIdRate = 1;
    replies = Count();
    ASSERT_EQ(replies.size(), 1U);
    EXPECT_NE(replies[0].bytes[6] << 8 | replies[0].bytes[7], last[6] << 8 | last[7]);
    EXPECT_EQ(fixture.device.writes, 2U);
}

TEST_F(ControlFaults, LostAnswerComesWithTheRepeat)
{
    faults.answerNotRate = 1;
    EXPECT_TRUE(Count().empty());
    faults = {};
    EXPECT_EQ(fixture.Status(kHost, last), 0);
    EXPECT_EQ(fixture.device.writes, 1U);
}

TEST_F(ControlFaults, BusyHasDoneNothing)
{
    faults.answerErrorRate = 1;
    ASSERT_EQ(Count().size(), 1U);
    EXPECT_EQ(fixture.device.writes, 0U);
    EXPECT_EQ(fixture.Status(kHost, last), 0x8007);
    faults = {};
    EXPECT_EQ(fixture.Status(kHost, last), 0);
    EXPECT_EQ(fixture.device.writes, 1U);
}

TEST_F(ControlFaults, VanishesAndReturnsFree)
{
    faults.vanishAfterMs = 400;
    faults.vanishForMs = 1000;
    fixture.Pass(399);
    EXPECT_EQ(Count().size(), 1U);
    fixture.Pass(1);
    EXPECT_TRUE(fixture.server.IsVanished(fixture.now));
    EXPECT_EQ(fixture.device.stops, 1);
    EXPECT_EQ(fixture.device.resets, 1);
    EXPECT_TRUE(Count().empty());
    EXPECT_TRUE(fixture.Handle(kOtherHost, Hex("42 01 0002 0000 FFFF")).empty());
    fixture.Pass(1000);
    EXPECT_EQ(fixture.Handle(kOtherHost, Hex("42 01 0002 0000 FFFF")).size(), 1U);
    EXPECT_EQ(fixture.Read(0x0A00), 0U);
    EXPECT_EQ(fixture.device.writes, 1U);

    faults.vanishForMs = 0; // for good
    fixture.TakeControl();
    fixture.Pass(400);
    fixture.Pass(24 * 3600 * 1000);
    EXPECT_TRUE(fixture.Handle(kHost, Hex("42 01 0002 0000 FFFF")).empty());
}

TEST_F(ControlFaults, ControlIsTakenAway)
{
    faults.loseControlAfterMs = 250;
    fixture.Pass(249);
    EXPECT_EQ(fixture.Read(0x0A00), 2U);
    fixture.Pass(1);
    EXPECT_EQ(fixture.Read(0x0A00), 0U);
    EXPECT_EQ(fixture.Write(FakeDevice::kCounter, 1), 0x8006);
}

} // namespace
} // namespace orvsim
