#include "CliFixture.h"

namespace {

using orvsim::ProgramRun;
using testing::HasSubstr;

class Events : public CliTest {
protected:
    void SetUp() override { Open(Small("ONE")); }
};

TEST_F(Events, OfTheCameraComeAsTheyHappen)
{
    for (const std::vector<std::string> &words : {std::vector<std::string>{"Test"}, {"ExposureEnd", "--streaming"}}) {
        SCOPED_TRACE(words[0]);
        orvsim::ForeignProgram program;
        std::vector<std::string> all = {ORVCAM_PROGRAM, "events", "--json", "--on"};
        all.insert(all.end(), words.begin(), words.end());
        ASSERT_TRUE(program.Start(all));
        EXPECT_TRUE(Eventually([&] {
            std::string problem;
            cameras[0]->Core().SetFeature("TestEventGenerate", "1", problem);
            return !program.Output().empty();
        }));
        program.Interrupt();
        EXPECT_EQ(0, program.Finish()) << program.Errors();
        EXPECT_EQ("\"" + words[0] + "\"", Member(program.Output(), "event"));
        EXPECT_GT(Figure(program.Output(), "timestamp"), 0);
        const std::string on = cameras[0]->Core().GetFeature("EventNotification");
        EXPECT_EQ("Off", on) << "as it was before";
    }
}

TEST_F(Events, TrafficIsCountedByChannel)
{
    const ProgramRun events = Orvcam({"events", "--seconds", "0.2", "--traffic"});
    EXPECT_EQ(0, events.exitCode) << events.errors;
    EXPECT_THAT(events.output, testing::ContainsRegex("^packets: control [1-9][0-9]* .*stream 0, events 0"));
    const ProgramRun stream = Orvcam({"stream", "--frames", "10", "--traffic", "--json"});
    EXPECT_EQ(0, stream.exitCode) << stream.errors;
    const std::string channel = stream.output.substr(stream.output.find("\"stream\": {"));
    EXPECT_GE(Figure(channel, "packets"), 10 * 5) << "leader, three of payload and trailer of each frame";
    EXPECT_GE(Figure(channel, "bytes"), 10 * 64 * 48);
    const ProgramRun wrong = Orvcam({"events", "--on", "NoSuch", "--seconds", "0.1"});
    EXPECT_EQ(1, wrong.exitCode);
    EXPECT_THAT(wrong.errors, HasSubstr("\"NoSuch\""));
}

TEST_F(Events, ForcedAddresses)
{
    Open(Small("TWO"));
    const struct {
        std::vector<std::string> words;
        int exitCode;
        const char *told;
    } kCases[] = {
        {{"ONE", "127.0.0.300", "255.0.0.0"}, 2, "127.0.0.300"},
        {{"ONE", "127.0.0.28", "255.0.255.0"}, 2, "255.0.255.0"},
        {{"ONE", "128.0.0.28", "255.0.0.0"}, 2, "127.0.0.0/8"},
        {{"ONE", "127.0.0.1", "255.0.0.0"}, 2, "This computer itself"},
        {{"ONE", "127.0.0.22", "255.0.0.0"}, 2, "Another camera"},
        {{"ONE", "128.0.0.28", "255.0.0.0", "--unchecked"}, 1, "did not confirm"},
        {{"NONE", "127.0.0.28", "255.0.0.0"}, 4, "NONE"},
        {{"ONE", "127.0.0.28", "255.0.0.0"}, 0, "is now at 127.0.0.28"},
    };
    for (const auto &row : kCases) {
        SCOPED_TRACE(row.told);
        std::vector<std::string> words = {"force-ip"};
        words.insert(words.end(), row.words.begin(), row.words.end());
        const ProgramRun run = Orvcam(words);
        EXPECT_EQ(row.exitCode, run.exitCode);
        EXPECT_THAT(run.errors + run.output, HasSubstr(row.told));
    }
    EXPECT_EQ(0x7f00001cu, cameras[0]->Address());
}

} // namespace
