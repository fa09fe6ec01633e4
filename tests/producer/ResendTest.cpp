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
        {"a number left out", "A1 A3 W30 ?", "", "1 3"},
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
