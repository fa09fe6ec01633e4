#include "CliFixture.h"

#include "cli/FrameGaps.h"
#include "cli/Observation.h"
#include "support/Sanitized.h"
#include "support/ScriptedCamera.h"

#include <csignal>

namespace {

using orvsim::ProgramRun;
using testing::HasSubstr;
using testing::Not;

class Streams : public CliTest {};

TEST_F(Streams, FiguresAreThoseOfTheCamera)
{
    Open(Small("ONE"));
    const ProgramRun run = Orvcam({"stream", "ONE", "--frames", "40", "--json"});
    EXPECT_EQ(0, run.exitCode) << run.errors;
    EXPECT_EQ("", run.errors) << "no progress where there is no terminal";
    EXPECT_EQ(40, Figure(run.output, "frames"));
    EXPECT_EQ(0, Figure(run.output, "incomplete"));
    EXPECT_EQ(0, Figure(run.output, "lost"));
    EXPECT_EQ(0, Figure(run.output, "resent"));
    EXPECT_EQ(40 * 64 * 48, Figure(run.output, "bytes"));
    EXPECT_NEAR(50, Figure(run.output, "fps"), 45) << "a busy machine may hold them up";
    EXPECT_NEAR(Figure(run.output, "fps") * 64 * 48 / 1e6, Figure(run.output, "mbPerSecond"), 1e-6);
    EXPECT_GT(Figure(run.output, "cpuSeconds"), 0);
    EXPECT_GE(Figure(run.output, "delivered"), 40);
    EXPECT_EQ('{', run.output.front());
    EXPECT_EQ(run.output.size() - 1, run.output.find('\n')) << "one object in one line";
}

TEST_F(Streams, LostAndIncompleteFramesAreCounted)
{
    orvsim::CameraOptions options = Small("ONE");
    options.faults.skipIdRate = 1; // each frame leaves the number before it out
    Open(options);
    ProgramRun run = Orvcam({"stream", "--frames", "11", "--json"});
    EXPECT_EQ(10, Figure(run.output, "lost")) << run.output << run.errors;
    EXPECT_GE(Figure(run.output, "missed"), 10) << run.output;
    options = Small("TWO");
    options.faults.dropPacket = 1;
    options.faults.resendMode = 1; // and it is not sent again
    Open(options);
    run = Orvcam({"stream", "TWO", "--frames", "10", "--json"});
    EXPECT_EQ(10, Figure(run.output, "incomplete")) << run.output << run.errors;
    EXPECT_EQ(1, run.exitCode) << "not one is good";
    options = Small("THREE");
    options.faults.dropPacket = 1; // sent again when it is asked for
    Open(options);
    EXPECT_EQ(0, Orvcam({"stream", "THREE", "--frames", "10"}).exitCode);
    run = Orvcam({"stream", "THREE", "--frames", "10", "--json", "--set-stream", "StreamPacketResendEnable=0"});
    EXPECT_EQ(10, Figure(run.output, "incomplete")) << run.output << run.errors;
    const std::string size = "DeviceStreamChannelPacketSize=";
    run = Orvcam({"stream", "THREE", "--frames", "10", "--json", "--set-stream", size + "576"});
    EXPECT_EQ(576, Figure(run.output, "packetSize")) << run.output << run.errors;
    for (const std::string &setting : {std::string("NoSuchSetting=0"), size + "60000"})
        EXPECT_EQ(1, Orvcam({"stream", "THREE", "--frames", "1", "--set-stream", setting}).exitCode) << setting;
}

TEST_F(Streams, FramesThatOvertakeEachOtherAreNotLost)
{
    const struct {
        std::vector<std::uint64_t> ids;
        std::uint64_t lost;
    } kCases[] = {
        {{}, 0},
        {{7, 8, 9}, 0},
        {{7, 9, 12}, 3},
        {{1, 3, 2, 4}, 0},
        {{1, 4, 2, 5}, 1},
        {{1, 2, 2, 3}, 0},                // one id twice
        {{65534, 65535, 1, 2}, 0},        // short ids have no 0
        {{65533, 1, 65535, 3, 65534}, 1}, // 2
        {{65535, 65536}, 0},              // long ones go on
        {{5000, 5002, 1, 2}, 1},          // a camera that counts anew
        {{1, 2, 70000}, 69997},
    };
    for (const auto &row : kCases) {
        orvcli::FrameGaps gaps;
        for (const std::uint64_t id : row.ids)
            gaps.Take(id);
        EXPECT_EQ(row.lost, gaps.Lost()) << testing::PrintToString(row.ids);
    }
}

/// The doctor's patience is a multiple of the pauses between pictures; what the first took says nothing of them.
TEST(Watching, TheWaitForTheFirstPictureIsNoPause)
{
    std::vector<std::string> log;
    orv::Mutex logMutex;
    scripted::Stream stream(&log, &logMutex);
    stream.AllocBufferQueue(nullptr, 3);
    orvcli::Observation observation;
    OrvCam::StreamStatistics counts;
    counts.underruns = 40;
    stream.SetStatistics(counts);
    stream.Deliver({});
    observation.Watch(stream, 0.1);
    orv::Facts facts;
    observation.Tell(facts);
    EXPECT_EQ(40u, facts.stream.underruns);
    EXPECT_EQ(1u, facts.completeFrames);
    EXPECT_EQ(0, facts.longestPauseSeconds);
}

TEST_F(Streams, ThatCannotStartHaveFiguresAllTheSame)
{
    if (kIsSanitized)
        GTEST_SKIP() << "sanitizers need more address space than a test can take away";
    orvsim::CameraOptions options = Small("ONE");
    options.sensor.width = options.sensor.height = 1024;
    Open(options);
    const ProgramRun run = orvsim::RunForeignProgram(
        {"sh", "-c", "ulimit -v 2000000; exec " ORVCAM_PROGRAM " stream --buffers 4096 --frames 5 --json"});
    EXPECT_EQ(1, run.exitCode);
    EXPECT_THAT(run.errors, HasSubstr("buffers"));
    EXPECT_EQ(0, Figure(run.output, "frames")) << run.errors;
}

TEST_F(Streams, EndAfterTheirTimeAndOnRequest)
{
    Open(Small("ONE"));
    EXPECT_EQ(0, Orvcam({"stream", "--seconds", "0.2"}).exitCode);
    const std::uint64_t before = cameras[0]->Counts().frames;
    orvsim::ForeignProgram program;
    ASSERT_TRUE(program.Start({ORVCAM_PROGRAM, "stream", "--json"}));
    EXPECT_TRUE(Eventually([&] { return cameras[0]->Counts().frames >= before + 3; }));
    program.Interrupt();
    EXPECT_EQ(0, program.Finish());
    EXPECT_GE(Figure(program.Output(), "frames"), 0);
    const ProgramRun after = Orvcam({"features", "--set", "Width=32"});
    EXPECT_EQ(0, after.exitCode) << "camera stopped, unlocked and let go: " << after.errors;
}

TEST_F(Streams, ThatBringNothingEndWithAHint)
{
    orvsim::CameraOptions options = Small("ONE");
    options.features["TriggerMode"] = "On";
    Open(options);
    const ProgramRun run = Orvcam({"stream", "--frames", "5", "--timeout", "0.3", "--json"});
    EXPECT_EQ(1, run.exitCode);
    EXPECT_THAT(run.errors, HasSubstr("orvcam doctor"));
    EXPECT_EQ(0, Figure(run.output, "frames"));
    const ProgramRun doctor = Orvcam({"doctor", "--seconds", "1.5"});
    EXPECT_EQ(3, doctor.exitCode);
    EXPECT_THAT(doctor.output, HasSubstr("trigger"));
    const ProgramRun json = Orvcam({"doctor", "--seconds", "1.5", "--json"});
    EXPECT_EQ(3, json.exitCode);
    EXPECT_EQ("\"waits-for-trigger\"", Member(json.output, "cause"));
    EXPECT_EQ("\"\"", Member(json.output, "problem")) << "the cause says it all";
    EXPECT_EQ(0, Orvcam({"features", "--set", "TriggerMode=Off"}).exitCode);
    const ProgramRun well = Orvcam({"doctor", "--seconds", "1"});
    EXPECT_EQ(0, well.exitCode) << well.output;
}

TEST_F(Streams, OfACameraThatGoesEndWithTheLoss)
{
    for (const char *command : {"stream", "events"}) {
        SCOPED_TRACE(command);
        orvsim::CameraOptions options = Small("ONE");
        options.faults.vanishAfterMs = 1000;
        Open(options);
        const ProgramRun run = Orvcam({command, "--json"});
        EXPECT_EQ(6, run.exitCode) << run.errors;
        EXPECT_NE("", run.output);
        cameras.clear();
    }
}

} // namespace
