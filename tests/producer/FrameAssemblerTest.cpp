// Which packets make which frames, and when these are delivered.
#include "AssemblerBench.h"

using namespace assembling;

TEST(FrameAssembler, DeliversFramesAsTheyComplete)
{
    const struct {
        const char *name;
        const char *script;
        const char *delivered;
    } kRows[] = {
        {"in order", "L1 P1.1 P1.2 P1.3 P1.4 P1.5 T1", "1"},
        {"backwards", "T1 P1.5 P1.4 P1.3 P1.2 P1.1 L1", "1"},
        {"everything twice", "L1 L1 P1.1 P1.1 P1.2 P1.2 P1.3 P1.4 P1.5 P1.5 T1 T1", "1"},
        {"two frames interleaved", "L1 L2 P1.1 P2.1 P1.2 P2.2 P1.3 P2.3 P1.4 P2.4 P1.5 P2.5 T1 T2", "1 2"},
        {"not before the last packet", "L1 P1.1 P1.2 P1.4 P1.5 T1", ""},
        {"a hole is given up when the next frame completes", "L1 P1.1 P1.2 P1.4 P1.5 T1 A2", "1! 2"},
        {"the next frame waits for its turn", "L1 P1.1 L2 P2.1 P2.2 P2.3 P2.4 P2.5 P1.2 P1.3 P1.4 P1.5 T1 T2", "1 2"},
        {"a lost leader", "P1.1 P1.2 P1.3 P1.4 P1.5 T1 A2", "1! 2"},
        {"a lost trailer", "L1 P1.1 P1.2 P1.3 P1.4 P1.5 A2", "1! 2"},
        {"two newer frames have begun", "L1 P1.1 L2 L3", "1!"},
        {"one newer frame is not enough", "L1 P1.1 L2", ""},
        {"retention runs out", "L1 P1.1 L2 W100", "1!"},
        {"retention counts from the last packet", "L1 P1.1 L2 W60 P1.2 W60", ""},
        {"the newest frame may pause", "L1 P1.1 W999 P1.2 P1.3 P1.4 P1.5 T1", "1"},
        {"but not for ever", "L1 P1.1 W1000", "1!"},
        {"nor when its end has come", "L1 P1.1 T1 W100", "1!"},
        {"or nothing is missing but the end", "L1 P1.1 P1.2 P1.3 P1.4 P1.5 W100", "1!"},
        {"a lone leader waits for the trigger", "L1 W5000 P1.1 P1.2 P1.3 P1.4 P1.5 T1", "1"},
        {"the lone leader of an older frame does not", "L1 L2 P2.1 W100 W1000", "1! 2!"},
        {"a late packet does not open its frame again", "A1 P1.3 L1 A2 T1", "1 2"},
        {"a late packet of a lost frame", "L1 P1.1 A2 P1.2 A3", "1! 2 3"},
        {"block 0 is a test packet", "L0 P0.1 T0 A1", "1"},
        {"any number may be the first", "A65400 A65401", "65400 65401"},
        {"block numbers wrap from 65535 to 1", "A65534 A65535 A1 A2", "65534 65535 1 2"},
        {"a hole at the wrap", "L65535 P65535.1 A1 A2", "65535! 1 2"},
        {"late across the wrap", "A65535 A1 P65535.2 A2", "65535 1 2"},
        {"numbers may jump ahead", "A1 A900", "1 900"},
        {"far back is counting anew", "A500 A501 A1 A2", "500 501 1 2"},
        {"counting anew ends what is open", "A500 L501 P501.1 A1", "500 501! 1"},
        {"a stray packet of a far block opens nothing", "L10 P10.1 P5000.1 P10.2 P10.3 P10.4 P10.5 T10 A11", "10 11"},
        {"a refused packet is a hole", "L1 P1.1 P1.2 E1.3 P1.4 P1.5 T1 A2", "1! 2"},
        {"a resent packet closes it", "L1 P1.1 P1.2 E1.3 P1.4 P1.5 T1 R1.3", "1"},
        {"a refused packet opens no frame", "E1.3 W200 A2", "2"},
        {"the camera's memory ran over", "L1 P1.1 P1.2 O1 A2", "1! 2"},
        {"an answer that comes much too late is no new beginning", "A1 A300 R1 R1.1 A301", "1 300 301"},
        {"given back, they stay away", "L1 P1.1 L2 P2.1 B P1.2 P2.2 T2 A3", "3"},
    };
    for (const auto &row : kRows) {
        for (const bool extended : {false, true}) {
            const std::string script = row.script;
            if (extended && script.find("65535") != std::string::npos)
                continue; // only 16-bit numbers wrap there
            Bench bench({kBytes, 1000, extended});
            bench.Run(script);
            EXPECT_EQ(bench.sink.Summary(), row.delivered) << row.name << (extended ? ", extended ids" : "");
            bench.ExpectCompleteFramesAreRight();
        }
    }
}

TEST(FrameAssembler, CountsWhatHappened)
{
    using Counters = FrameAssembler::Counters;
    const struct {
        const char *name;
        const char *script;
        std::uint64_t Counters::*counter;
        std::uint64_t count;
    } kRows[] = {
        {"full packets", "L1 P1.1 P1.2 P1.2 P1.3/5 T1", &Counters::fullPackets, 2},
        {"late packets", "A1 P1.2 T1 A2", &Counters::late, 2},
        {"no buffer: nothing is late", "A1 A2", &Counters::late, 0},
        {"no buffer", "A1 A2", &Counters::withoutBuffer, kPackets + 2},
        {"no buffer, and none wanted", "A1 A2", &Counters::withoutBuffer, 0},
        {"had to give its buffer back", "L1 P1.1 B P1.2 T1", &Counters::withoutBuffer, 2},
        {"numbers left out", "A1 A4", &Counters::missedFrames, 2},
        {"counting anew, seemingly ahead", "A60000 A1", &Counters::missedFrames, 0},
        {"long away", "A1 W10 A2 W2000 A202", &Counters::missedFrames, 199},
        {"the camera's memory ran over", "L1 P1.1 O1.2 O1.3 O1 A2", &Counters::droppedByCamera, 1},
    };
    for (const auto &row : kRows) {
        Bench bench({kBytes, std::string(row.name).find("no buffer") == 0 ? 1 : 1000});
        bench.sink.wants = std::string(row.name).find("none wanted") == std::string::npos;
        bench.Run(row.script);
        EXPECT_EQ(bench.assembler.Count().*row.counter, row.count) << row.name;
    }
    Bench told({kBytes, 1000, true});
    for (const std::uint32_t id : {1U, 2U})
        told.Send(Packet(true, 0, 3, 5, id, Pixels(5, (id - 1) * kData, kData), kFlagFormerDropped));
    EXPECT_EQ(told.assembler.Count().droppedByCamera, 1U) << "the block before, whatever packet says so";
}

TEST(FrameAssembler, WithoutABufferTheWholeFrameIsLostOnce)
{
    Bench bench({kBytes, 1});
    bench.Run("L1 P1.1 A2 P2.1 T1"); // the only buffer is taken when frame 2 comes
    EXPECT_EQ(bench.sink.taken, 2);
    bench.Run("W100");
    EXPECT_EQ(bench.sink.Summary(), "1!");
}

TEST(FrameAssembler, OnceRefusedNoFrameBeginsButOpenOnesEnd)
{
    Bench bench;
    bench.Run("L1 P1.1 P1.2");
    bench.assembler.RefuseNewFrames();
    bench.Run("A2 P1.3 P1.4 P1.5 T1");
    EXPECT_EQ(bench.sink.Summary(), "1");
    EXPECT_EQ(bench.sink.taken, 1);
}

TEST(FrameAssembler, TellsWhenItWantsToBeWoken)
{
    Bench bench;
    EXPECT_FALSE(bench.assembler.NextDeadline());
    bench.Run("L1");
    EXPECT_FALSE(bench.assembler.NextDeadline()) << "a lone leader has no time-out";
    bench.Run("P1.1");
    ASSERT_TRUE(bench.assembler.NextDeadline());
    bench.assembler.OnTime(*bench.assembler.NextDeadline());
    EXPECT_EQ(bench.sink.Summary(), "1!");
}
