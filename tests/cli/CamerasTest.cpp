#include "CliFixture.h"

#include "cli/Cameras.h"

#include <cstdio>
#include <fstream>

namespace {

using orvsim::ProgramRun;
using testing::HasSubstr;
using testing::Not;

class Cameras : public CliTest {};

TEST_F(Cameras, NoneIsAnExitCodeOfItsOwn)
{
    const ProgramRun run = Orvcam({"list"});
    EXPECT_EQ(4, run.exitCode);
    EXPECT_EQ("", run.output);
    EXPECT_THAT(run.errors, HasSubstr("no camera was found"));
    const ProgramRun doctor = Orvcam({"doctor", "--json"});
    EXPECT_EQ(3, doctor.exitCode) << "the test's network has the loopback alone";
    EXPECT_EQ("\"no-interface\"", Member(doctor.output, "cause"));
    EXPECT_THAT(doctor.errors, HasSubstr("no camera was found"));
}

TEST_F(Cameras, WithoutAProducerTheReasonIsTold)
{
    // A copy of the program that no producer lies beside.
    const std::string alone = testing::TempDir() + "orvcam-alone" + std::to_string(getpid());
    const ProgramRun run = orvsim::RunForeignProgram({"sh", "-c",
                                                      "mkdir " + alone + " && cp " ORVCAM_PROGRAM " " + alone +
                                                          "/ && GENICAM_GENTL64_PATH= " + alone +
                                                          "/orvcam list; code=$?; rm -r " + alone + "; exit $code"});
    if (run.exitCode == 4)
        GTEST_SKIP() << "a producer is installed on this computer";
    EXPECT_EQ(1, run.exitCode);
    EXPECT_THAT(run.errors, HasSubstr("Nuvark.cti"));
}

TEST_F(Cameras, AreMeantByAnyOfTheirNames)
{
    orvsim::CameraOptions options = Small("ONE");
    options.userName = "left";
    Open(options);
    options = Small("TWO");
    options.userName = "right \033[31m\"end\"";
    options.model = "Other";
    Open(options);
    const ProgramRun list = Orvcam({"list", "--json"});
    EXPECT_EQ(0, list.exitCode);
    const std::string first = list.output.substr(list.output.find("\"ONE\""));
    EXPECT_EQ("\"127.0.0.21\"", Member(first, "address"));
    EXPECT_EQ("\"free\"", Member(first, "state"));
    std::string mac = Member(first, "mac");
    mac = mac.substr(1, mac.size() - 2);
    EXPECT_THAT(list.output, HasSubstr("right \\u001b[31m\\\"end\\\""));
    const ProgramRun table = Orvcam({"list"});
    EXPECT_THAT(table.output, HasSubstr("127.0.0.22"));
    EXPECT_THAT(table.output, Not(HasSubstr("\033"))) << "a name must not steer the terminal";
    std::string upperMac = mac;
    for (char &c : upperMac)
        c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    for (const std::string &name :
         {std::string("ONE"), std::string("left"), std::string("Cam"), std::string("127.0.0.21"), mac, upperMac}) {
        SCOPED_TRACE(name);
        const ProgramRun info = Orvcam({"info", name, "--json"});
        EXPECT_EQ(0, info.exitCode) << info.errors;
        EXPECT_EQ("\"ONE\"", Member(info.output, "serial"));
        EXPECT_EQ("64", Member(info.output, "Width"));
    }
    const ProgramRun none = Orvcam({"info", "THREE"});
    EXPECT_EQ(4, none.exitCode);
    EXPECT_THAT(none.errors, HasSubstr("\"THREE\""));
    EXPECT_THAT(none.errors, HasSubstr("ONE"));
    const ProgramRun missing = Orvcam({"doctor", "THREE", "--json"});
    EXPECT_EQ(4, missing.exitCode) << "others are found, so what may keep it away are hints";
    EXPECT_EQ("false", Member(missing.output, "isFault"));
    EXPECT_EQ(0, Orvcam({"stream", "--frames", "1"}).exitCode) << "the first that is free";
}

TEST_F(Cameras, WithoutANameTheBestIsMeant)
{
    using OrvCam::DeviceState;
    const struct {
        std::vector<DeviceState> states;
        orvcli::ExitCode code;
        std::size_t chosen = 0;
    } kCases[] = {
        {{DeviceState::Busy}, orvcli::ExitCode::Ok, 0},
        {{DeviceState::Busy, DeviceState::Unknown, DeviceState::Free}, orvcli::ExitCode::Ok, 2},
        {{DeviceState::Unreachable, DeviceState::Unknown}, orvcli::ExitCode::Ok, 1},
        {{DeviceState::Unreachable, DeviceState::ReadOnly}, orvcli::ExitCode::Busy},
        {{DeviceState::Unreachable, DeviceState::Unreachable}, orvcli::ExitCode::Failed},
    };
    for (const auto &row : kCases) {
        orvcli::Cameras all(row.states.size());
        for (std::size_t i = 0; i < all.size(); ++i) {
            all[i].id = std::to_string(i);
            all[i].mac = "00:00:00:00:00:00"; // cameras without one are not the same for that
            all[i].state = row.states[i];
        }
        OrvCam::DeviceDescription camera;
        const orvcli::Outcome outcome = orvcli::ChooseCamera(all, "", camera);
        EXPECT_EQ(row.code, outcome.code) << outcome.problem;
        if (outcome.IsOk()) {
            EXPECT_EQ(std::to_string(row.chosen), camera.id);
        }
    }
}

TEST_F(Cameras, OneThatAnotherHoldsIsBusyAndCanStillBeRead)
{
    Open(Small("ONE"));
    orvsim::ForeignProgram holder;
    ASSERT_TRUE(holder.Start({ORVCAM_PROGRAM, "stream", "ONE"}));
    EXPECT_TRUE(Eventually([] { return Member(Orvcam({"list", "--json"}).output, "state") == "\"busy\""; }));
    const struct {
        std::vector<std::string> words;
        int exitCode;
    } kCases[] = {
        {{"stream", "ONE", "--frames", "1"}, 5},
        {{"features", "ONE", "--set", "Gain=1"}, 5},
        {{"events", "ONE", "--seconds", "1"}, 5},
        {{"stream", "ONE", "--json"}, 5},
        {{"events", "ONE", "--json"}, 5},
        {{"force-ip", "ONE", "127.0.0.28", "255.0.0.0"}, 5},
        {{"features", "ONE", "--get", "Width"}, 0},
        {{"info", "ONE"}, 0},
        {{"doctor", "ONE"}, 3},
    };
    for (const auto &row : kCases) {
        SCOPED_TRACE(row.words[0] + " " + row.words.back());
        const ProgramRun run = Orvcam(row.words);
        EXPECT_EQ(row.exitCode, run.exitCode) << run.errors;
        if (row.exitCode == 5) {
            EXPECT_THAT(run.errors + run.output, HasSubstr("in use by another program"));
            EXPECT_EQ(row.words.back() == "--json", Member(run.output, "exitCode") == "5");
        }
    }
    EXPECT_EQ("\"held-by-another\"", Member(Orvcam({"doctor", "ONE", "--json"}).output, "cause"));
    holder.Interrupt();
    EXPECT_EQ(0, holder.Finish());
    EXPECT_THAT(holder.Output(), HasSubstr(" frames, "));
    EXPECT_EQ(0, Orvcam({"stream", "ONE", "--frames", "1"}).exitCode) << "free again";
}

TEST_F(Cameras, WithABrokenDescriptionSayThatItIs)
{
    if (!ForeignCamera::Installed())
        GTEST_SKIP() << "the software camera of others is not installed";
    const std::string file = testing::TempDir() + "orvcam-broken" + std::to_string(getpid()) + ".xml";
    std::ofstream(file) << "<RegisterDescription>\n<Group>\n</RegisterDescription>\n";
    ForeignCamera camera;
    EXPECT_TRUE(camera.Start("127.0.0.12", "ORV12", 0, file));
    const struct {
        const char *command;
        int exitCode;
    } kCases[] = {{"info", 1}, {"features", 1}, {"stream", 1}, {"doctor", 3}};
    for (const auto &row : kCases) {
        SCOPED_TRACE(row.command);
        const ProgramRun run = Orvcam({row.command, "ORV12"});
        EXPECT_EQ(row.exitCode, run.exitCode);
        EXPECT_THAT(run.errors + run.output, HasSubstr("cannot be used: the camera"));
    }
    EXPECT_EQ("\"description-unusable\"", Member(Orvcam({"doctor", "ORV12", "--json"}).output, "cause"));
    std::remove(file.c_str()); // not read before the camera is asked for it
}

TEST_F(Cameras, OfOthersAreListedReadSetAndStreamed)
{
    if (!ForeignCamera::Installed())
        GTEST_SKIP() << "the software camera of others is not installed";
    ForeignCamera camera;
    ASSERT_TRUE(camera.Start("127.0.0.12", "ORV12"));
    EXPECT_THAT(Orvcam({"list"}).output, HasSubstr("ORV12"));
    const ProgramRun set = Orvcam({"features", "ORV12", "--set", "AcquisitionFrameRate=100", "--set", "Width=320",
                                   "--get", "Width", "--get", "PixelFormat"});
    EXPECT_EQ(0, set.exitCode) << set.errors;
    EXPECT_EQ("320\nMono8\n", set.output);
    EXPECT_THAT(Orvcam({"xml", "ORV12"}).output, HasSubstr("</RegisterDescription>"));
    const ProgramRun stream = Orvcam({"stream", "ORV12", "--frames", "10", "--json"});
    EXPECT_EQ(0, stream.exitCode) << stream.errors;
    EXPECT_EQ(10, Figure(stream.output, "frames"));
}

} // namespace
