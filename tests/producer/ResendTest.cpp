// What is asked for again, when, and when no more.
#include "AssemblerBench.h"

using namespace assembling;

TEST(ResendCommand, HasTheFormOfTheBlocksIds)
{
    // Packets 5 to the end of block 0x1234; a standard command keeps 24 bits of the packet numbers.
    EXPECT_EQ(MakeResendCommand(0x0102, 1, {0x1234, false, 5, kToTheEnd}),
              (std::vector<std::uint8_t>{0x42, 0x00, 0x00, 0x40, 0x00, 0x0C, 0x01, 0x02, 0x00, 0x01,
                                         0x12, 0x34, 0x00, 0x00, 0x00, 0x05, 0x00, 0xFF, 0xFF, 0xFF}));
    EXPECT_EQ(MakeResendCommand(7, 0, {0x1234, true, 5, kToTheEnd}),
              (std::vector<std::uint8_t>{0x42, 0x10, 0x00, 0x40, 0x00, 0x14, 0x00, 0x07, 0x00, 0x00,
                                         0x00, 0x00, 0x00, 0x00, 0x00, 0x05, 0xFF, 0xFF, 0xFF, 0xFF,
                                         0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x12, 0x34}));
}

TEST(Resend, AsksAgainForWhatIsMissing)
{
    const struct {
        const char *name;
        const char *script;
        const char *asked;
        const char *delivered;
    } kRows[] = {
        {"nothing missing", "A1 A2 W50 ?", "", "1 2"},
        {"a hole, after the initial timeout", "L1 P1.1 P1.3 ? W1 ? R1.2 P1.4 P1.5 T1", "; 1:2", "1"},
        {"neighbours together", "L1 P1.1 P1.4 P1.5 T1 W1 ? R1.2 R1.3", "1:2-3", "1"},
        {"apart when there is something between", "L1 P1.1 P1.3 P1.5 T1 W1 ?", "1:2 1:4", ""},
        {"what came out of order is not asked for", "L1 P1.1 P1.3 P1.2 P1.4 P1.5 W1 ? T1", "", "1"},
        {"again after the packet timeout", "L1 P1.1 P1.3 P1.4 P1.5 T1 W1 ? W19 ? W1 ? R1.2", "1:2; ; 1:2", "1"},
        {"earlier where frames come fast, then ever later", "A1 W6 A2 W6 L3 P3.2 W1 ? W2 ? W1 ? W5 ? W1 ?",
         "3:1; ; 3:1; ; 3:1", "1 2"},
        {"a lost leader", "P1.1 P1.2 W1 ? L1 P1.3 P1.4 P1.5 T1", "1:0", "1"},
        {"a lost tail, when the next frame begins", "L1 P1.1 P1.2 P1.3 L2 W1 ?", "1:4-", ""},
        {"a lost trailer", "L1 P1.1 P1.2 P1.3 P1.4 P1.5 A2 W1 ? T1", "1:6-", "1 2"},
        {"in silence one packet", "L1 P1.1 P1.2 W19 ? W1 ?", "; 1:3", ""},
        {"and when that has come, the tail", "L1 P1.1 P1.2 W20 ? R1.3 W20 ?", "1:3; 1:4-", ""},
        {"but not when the camera goes on", "L1 P1.1 P1.2 W20 ? N1.3 P1.3 P1.4 W20 ?", "1:3; 1:5", ""},
        {"nor when it has not got so far", "L1 P1.1 P1.2 W20 ? E1.3 P1.3 P1.5 W1 ?", "1:3; 1:4", ""},
        {"the trailer alone, when nothing comes", "L1 P1.1 P1.2 P1.3 P1.4 P1.5 W20 ? T1", "1:6-", "1"},
        {"a silence before the next frame", "L1 P1.1 P1.2 W20 ? L2 W1 ?", "1:3; 1:4-", ""},
        {"a lone leader waits for its trigger", "L1 W5000 ?", "", ""},
        {"the next frame waits", "L1 P1.1 P1.3 P1.4 P1.5 T1 A2 A3 W1 ? R1.2 A4", "1:2", "1 2 3 4"},
        {"until the retention", "L1 P1.1 P1.3 P1.4 P1.5 T1 A2 W99 W1", "", "1! 2"},
        {"a refusal ends it", "L1 P1.1 P1.3 P1.4 P1.5 T1 A2 W1 ? E1.2 W30 ?", "1:2; ", "1! 2"},
        {"but not one that nobody asked for", "L1 P1.1 P1.3 P1.4 E1.2 W1 ?", "1:2", ""},
        {"nothing of what the camera lost itself", "L1 P1.1 O1.2 P1.3 P1.4 P1.5 T1 W1 ? A2", "", "1! 2"},
        {"nor after its end", "L1 P1.1 O1 W1 ?", "", "1!"},
        {"not yet there: later", "L1 P1.1 P1.3 P1.4 P1.5 T1 W1 ? W15 N1.2 N1.2 W10 ? W10 ? R1.2", "1:2; ; 1:2", "1"},
        {"asked for often enough",
         "L1 P1.1 P1.3 P1.4 P1.5 T1 A2 W1 ? W20 ? P1.1 W20 ? P1.1 W20 ? P1.1 W20 ? P1.1 W20 ? P1.1 W20 ? P1.1 W20 ? "
         "P1.1 W20 X1.4 ?",
         "1:2; 1:2; 1:2; 1:2; 1:2; 1:2; 1:2; 1:2; ", "1! 2"},
        {"packets that contradict are both wrong", "L1 P1.1 X1.1 P1.2 P1.3 P1.4 P1.5 T1 ? R1.1", "1:1", "1"},
        {"the first one may be the wrong one", "L1 X1.1 P1.1 P1.2 P1.3 P1.4 P1.5 T1 ? R1.1", "1:1", "1"},
        {"in the midst of a tail", "L1 P1.1 L2 P1.3 X1.3 W1 ?", "1:2-", ""},
        {"but the first one stays when no third can come", "L1 P1.1 P1.3 W1 ? E1.2 X1.3 P1.4 P1.5 R1.2 T1 W100", "1:2",
         "1!"},
        {"a cut packet", "L1 P1.1/7 P1.2 P1.3 P1.4 P1.5 T1 W1 ? R1.1", "1:1", "1"},
        {"a cut packet in the midst", "L1 P1.1 P1.2 P1.3/7 P1.4 P1.5 T1 W1 ? R1.3", "1:3", "1"},
        {"a cut last packet", "L1 P1.1 P1.2 P1.3 P1.4 P1.5/7 T1 W1 ? R1.5", "1:5", "1"},
        {"nothing for delivered frames", "L1 P1.1 P1.3 P1.4 P1.5 T1 W100 ? P1.2 ?", "; ", "1!"},
        {"across the wrap", "A65535 P1.1 A2 W1 ?", "1:0 1:2-", "65535"},
        {"a stray packet does not jump ahead", "A1 P9.3 L2 P2.1 P2.2 P2.3 P2.4 P2.5 T2 A3", "", "1 2 3"},
    };
    for (const auto &row : kRows) {
        for (const bool extended : {false, true}) {
            const std::string script = row.script;
            if (extended && script.find("65535") != std::string::npos)
                continue;
            Bench bench({kBytes, 1000, extended, true});
            bench.Run(script);
            EXPECT_EQ(bench.asked, row.asked) << row.name;
            EXPECT_EQ(bench.sink.Summary(), row.delivered) << row.name;
            bench.ExpectCompleteFramesAreRight();
        }
    }
}

// Blocks of which nothing came: the camera may have lost them, dropped them or never numbered a frame so.
TEST(Resend, AsksForTheFirstPacketOfMissedBlocks)
{
    const std::string eight = "2:0 3:0 4:0 5:0 6:0 7:0 8:0 9:0";
    const std::string unanswered = "W1 ? W20 ? W80 ";
    const struct {
        const char *name;
        std::string script;
        std::string asked;
        const char *delivered;
        std::uint64_t missed;
        std::uint64_t late = 0;
    } kRows[] = {
        {"then for the rest", "A1 A3 ? W1 ? R2 ? R2.1 R2.2 R2.3 R2.4 R2.5 T2", "; 2:0; 2:1-", "1 2 3", 0},
        {"which may have a hole of its own", "A1 A3 W1 ? R2 R2.1 R2.3 T2 ?", "2:0; 2:2 2:4-5", "1", 0},
        {"not when it comes by itself", "A1 A3 A2 W30 ?", "", "1 2 3", 0},
        {"nor its rest while that may come", "A1 A3 P2.2 ? L2 P2.1 P2.3 P2.4 P2.5 T2", "", "1 2 3", 0},
        {"but what it lacks", "A1 A3 P2.2 W1 ?", "2:0-1 2:3-", "1", 0},
        {"several", "A1 A4 W1 ? R3 R2", "2:0 3:0", "1", 0},
        {"in their order", "A1 A4 W1 ? A3 A2", "2:0 3:0", "1 2 3 4", 0},
        {"at most eight", "A1 A10 W1 ?", eight, "1", 0},
        {"of more the camera has forgotten the first ones", "A1 A11 W1 ?", "", "1 11", 9},
        {"at the wrap", "A65534 A1 W1 ? A65535", "65535:0", "65534 65535 1", 0},
        {"behind it", "A65535 A3 W1 ? A2 A1", "1:0 2:0", "65535 1 2 3", 0},
        {"the camera is asked again", "A1 W100 A3 W1 ? W19 ? W1 ?", "2:0; ; 2:0", "1", 0},
        {"and given up after the retention", "A1 A3 W99 A4 W1 ?", "", "1 3 4", 1},
        {"what comes then is late", "A1 A3 W1 ? W99 R2 R2.1 ?", "2:0; ", "1 3", 1, 2},
        {"a refusal ends it at once", "A1 A4 W1 ? E2.0 E3.0", "2:0 3:0", "1 4", 2},
        {"however many there are", "A1 A3 W1 ? E2.0 E2.1 E2.2", "2:0", "1 3", 1, 2},
        {"not one that nobody asked for", "A1 A3 E2.0 W1 ?", "2:0", "1", 0},
        {"the camera's memory ran over", "A1 A3 O2", "", "1 3", 1},
        {"not yet there: later", "A1 A3 W1 ? N2.0 W19 ? W1 ? A2", "2:0; ; 2:0", "1 2 3", 0},
        {"not for ever", "A1 A3 W1 ? N2.0 W20 ? N2.0 W79", "2:0; 2:0", "1 3", 1},
        {"three gaps without an answer are enough",
         "A1 A3 " + unanswered + "A6 " + unanswered + "A8 " + unanswered + "A10 W1 ? A12",
         "2:0; 2:0; 4:0 5:0; 4:0 5:0; 7:0; 7:0; ", "1 3 6 8 10 12", 6},
        {"also for what is waited for", "A1 A3 W1 ? A5 A7 W1 ? W20 ? W79", "2:0; 4:0 6:0; 2:0 4:0 6:0", "1 3 5 7", 3},
        {"one with an answer begins the count anew",
         "A1 A3 " + unanswered + "A5 " + unanswered + "A7 W1 ? A6 A9 " + unanswered + "A11 W1 ?",
         "2:0; 2:0; 4:0; 4:0; 6:0; 8:0; 8:0; 10:0", "1 3 5 6 7 9", 3},
        {"so does a refusal", "A1 A3 " + unanswered + "A5 " + unanswered + "A7 W1 ? E6.0 A9 " + unanswered + "A11 W1 ?",
         "2:0; 2:0; 4:0; 4:0; 6:0; 8:0; 8:0; 10:0", "1 3 5 7 9", 4},
        {"counting anew ends it", "A500 A502 A1 W1 ?", "", "500 502 1", 1},
        {"giving back, too", "A1 A3 L4 P4.1 B R2 A5", "", "1 5", 1, 1},
    };
    for (const auto &row : kRows) {
        for (const bool extended : {false, true}) {
            if (extended && row.script.find("A65") != std::string::npos)
                continue;
            Bench bench({kBytes, 1000, extended, true});
            bench.Run(row.script);
            EXPECT_EQ(bench.asked, row.asked) << row.name;
            EXPECT_EQ(bench.sink.Summary(), row.delivered) << row.name;
            bench.ExpectCompleteFramesAreRight();
            EXPECT_EQ(bench.assembler.Count().missedFrames, row.missed) << row.name;
            EXPECT_EQ(bench.assembler.Count().late, row.late) << row.name;
            bench.assembler.DeliverAll();
            EXPECT_EQ(bench.sink.taken, static_cast<int>(bench.sink.frames.size()) + bench.sink.givenBack) << row.name;
        }
    }
}

TEST(Resend, MissedBlocksLeaveTheBuffersToFramesThatCome)
{
    const auto run = [](std::size_t spare, int buffers, const char *script) {
        Bench bench({kBytes, buffers, false, true});
        bench.sink.spare = spare;
        bench.Run(script);
        return bench.sink.Summary() + " of " + std::to_string(bench.sink.taken) + ", missed " +
               std::to_string(bench.assembler.Count().missedFrames) + ", without " +
               std::to_string(bench.assembler.Count().withoutBuffer);
    };
    EXPECT_EQ(run(2, 9, "A1 A3 W1 ?"), "1 of 2, missed 0, without 0") << "one for it, one for the next frame";
    EXPECT_EQ(run(1, 9, "A1 A3 W1 ?"), "1 3 of 2, missed 1, without 0");
    EXPECT_EQ(run(2, 9, "A1 A3 A4 A5 A6"), "1 3 4 5 6 of 5, missed 1, without 0") << "the others use them up";
    EXPECT_EQ(run(9, 1, "A1 A3 W1 ?"), "1 of 2, missed 1, without 6") << "before a frame without one nobody waits";
    EXPECT_EQ(run(9, 2, "A1 A3 W1 ? R2 R2.1"), "1 3 of 3, missed 0, without 2") << "it came and there was none";

    Bench unwanted({kBytes, 1000, false, true});
    unwanted.Run("A1 A3");
    unwanted.assembler.RefuseNewFrames();
    EXPECT_EQ(unwanted.sink.Summary(), "1 3");

    Bench told({kBytes, 1000, true, true}); // the camera says that it dropped the block before
    told.Run("A1");
    for (std::uint32_t id = 1; id <= 2; ++id)
        told.Send(Packet(true, 0, 3, 3, id, Pixels(3, (id - 1) * kData, kData), kFlagFormerDropped));
    told.Run("W1 ?");
    EXPECT_EQ(told.asked, "3:0");
}

namespace {

constexpr std::uint32_t kMany = 1000; // packets

/// A frame of many packets without those from the hundredth on, and a millisecond.
void SendLossy(Bench &bench, std::uint64_t block, std::uint32_t lastLost)
{
    bench.Leader(block, {payload::kImage, kWidth, 2 * kMany});
    for (std::uint32_t id = 1; id <= kMany; ++id) {
        if (id < 100 || id > lastLost)
            bench.Payload(block, id);
    }
    bench.Trailer(block, kMany + 1, 2 * kMany);
    bench.now += std::chrono::milliseconds(1);
}

} // namespace

TEST(Resend, AFrameIsAskedForAsAWholeOrNotAtAll)
{
    const struct {
        std::uint32_t percent;
        std::uint32_t lastLost;
        std::uint64_t requested;
    } kRows[] = {{100, 499, 400}, {100, 1000, 901}, {50, 499, 400}, {50, 749, 0}};
    for (const auto &row : kRows) {
        Bench bench({kData * kMany, 1000, false, true, row.percent});
        SendLossy(bench, 1, row.lastLost);
        for (int i = 0; i < 10; ++i) {
            (void)bench.Requests();
            bench.now += std::chrono::milliseconds(1);
        }
        EXPECT_EQ(bench.assembler.Count().requested, row.requested) << row.percent << " %, to " << row.lastLost;
    }
    Bench starved({kBytes, 1000, false, true});
    starved.sink.spare = 1; // what waits behind the hole would leave none
    starved.Run("L1 P1.1 P1.3 P1.4 P1.5 T1 A2 A3");
    EXPECT_EQ(starved.sink.Summary(), "1! 2 3");
}

TEST(Resend, TheLineIsShared)
{
    // A quarter of a gigabit line carries 558 packets of 56 bytes in a millisecond.
    Bench bench({kData * kMany, 1000, false, true});
    SendLossy(bench, 1, 649);
    SendLossy(bench, 2, 199);
    bench.Payload(3, 1); // without its leader
    bench.now += std::chrono::milliseconds(1);
    const auto count = [&bench](const std::string &block) {
        const std::uint64_t before = bench.assembler.Count().requested;
        const std::string requests = bench.Requests();
        EXPECT_EQ(requests.substr(0, 2), block);
        return bench.assembler.Count().requested - before;
    };
    EXPECT_EQ(count("1:"), 558U) << "550 of the first frame, the beginning of the second one's";
    EXPECT_EQ(bench.Requests(), "");
    bench.now += std::chrono::milliseconds(1);
    EXPECT_EQ(bench.Requests(), "2:108-171 2:172-199 3:0") << "the rest a moment later";
    EXPECT_EQ(bench.Requests(), "");
    bench.now += std::chrono::milliseconds(20);
    EXPECT_EQ(count("1:"), 558U) << "and again when no answer has come";
}

TEST(Resend, ATailOfUnknownLengthIsOneRequest)
{
    // Chunks follow, so the leader does not tell how long the block is; the buffer has room for much more.
    const LeaderOptions chunked{payload::kImage | payload::kChunksFollow, kWidth, kLines};
    Bench bench({kData * kMany, 1000, false, true});
    bench.Leader(1, chunked);
    bench.Run("P1.1 P1.2 P1.3 P1.4 P1.5 T1");
    bench.Leader(2, chunked);
    bench.Run("P2.1 P2.4 L3 W1");
    EXPECT_EQ(bench.Requests(), "2:2-3 2:5-");
    EXPECT_EQ(bench.assembler.Count().requested, 4U) << "like the frame before: one more and the trailer";

    Bench paused({kData * kMany, 1000, false, true});
    paused.Leader(1, chunked);
    paused.Run("P1.1 P1.2 W20 ? E1.3 W20 ? P1.3 P1.5 W1 ?");
    EXPECT_EQ(paused.asked, "1:3; 1:3; 1:4") << "a pause is no loss";
}

TEST(Resend, TheLineIsSharedByTailsOfUnknownLengthToo)
{
    const LeaderOptions chunked{payload::kImage | payload::kChunksFollow, kWidth, kLines};
    Bench bench({kData * kMany, 1000, false, true});
    for (std::uint64_t block = 1; block <= 3; ++block) {
        bench.Leader(block, chunked);
        for (std::uint32_t id = 1; id <= (block == 1 ? kMany : 1); ++id)
            bench.Payload(block, id);
        if (block == 1)
            bench.Trailer(block, kMany + 1);
    }
    bench.now += std::chrono::milliseconds(1);
    const std::string first = bench.Requests();
    EXPECT_EQ(first.substr(0, 7), "2:2-65 ");
    EXPECT_EQ(first.substr(first.rfind(' ')), " 2:514-559") << "a millisecond's worth";
    bench.now += std::chrono::milliseconds(1);
    EXPECT_EQ(bench.Requests(), "2:560-") << "the rest, at most another one's";
}
