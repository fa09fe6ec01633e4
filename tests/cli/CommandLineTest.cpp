#include "CliFixture.h"

#include <fstream>
#include <sstream>

namespace {

using orvsim::ProgramRun;
using testing::HasSubstr;

TEST(CommandLine, WhatIsNotUnderstoodIsToldWithWhatAndWhere)
{
    const struct {
        std::vector<std::string> words;
        const char *told;
    } kCases[] = {
        {{}, "usage: orvcam"},
        {{"lits"}, "\"lits\""},
        {{"list", "--frames", "3"}, "list: there is no option \"--frames\""},
        {{"--frames", "3", "stream"}, "\"--frames\""},
        {{"stream", "-x"}, "\"-x\""},
        {{"stream", "--frames"}, "--frames needs COUNT"},
        {{"stream", "--frames", "0"}, "--frames: \"0\""},
        {{"stream", "--frames=5x"}, "--frames: \"5x\""},
        {{"stream", "--seconds", "1,5"}, "--seconds: \"1,5\""},
        {{"stream", "--seconds", "0"}, "a number of 0.001 to"},
        {{"stream", "--seconds", "nan"}, "--seconds: \"nan\""},
        {{"list", "--json=yes"}, "--json has no value"},
        {{"features", "--set", "Width"}, "NAME=VALUE"},
        {{"features", "--visibility", "wizard"}, "wizard"},
        {{"list", "more"}, "\"more\" is one word too many"},
        {{"force-ip", "cam"}, "CAMERA ADDRESS MASK"},
    };
    for (const auto &row : kCases) {
        SCOPED_TRACE(row.told);
        const ProgramRun run = Orvcam(row.words);
        EXPECT_EQ(2, run.exitCode);
        EXPECT_EQ("", run.output);
        EXPECT_THAT(run.errors, HasSubstr(row.told));
    }
}

/// Every command and every option stands in --help, in the command's own help and in the manual page.
TEST(CommandLine, HelpAndManualPageKnowEverything)
{
    const ProgramRun all = Orvcam({"--help"});
    EXPECT_EQ(0, all.exitCode);
    std::stringstream page;
    page << std::ifstream(ORVCAM_MAN_PAGE).rdbuf();
    std::string manual = page.str();
    for (std::size_t at = manual.find("\\-"); at != std::string::npos; at = manual.find("\\-", at))
        manual.replace(at, 2, "-");
    const char *const kCommands[] = {"list", "info", "features", "xml", "stream", "events", "force-ip", "doctor"};
    for (const char *command : kCommands) {
        SCOPED_TRACE(command);
        EXPECT_THAT(all.output, HasSubstr(std::string("\n  ") + command));
        EXPECT_THAT(manual, testing::ContainsRegex(std::string("\n[.]BR? ") + command));
        const ProgramRun own = Orvcam({command, "--help"});
        EXPECT_EQ(0, own.exitCode);
        EXPECT_THAT(own.output, HasSubstr(std::string("usage: orvcam ") + command));
        std::istringstream lines(own.output);
        for (std::string line; std::getline(lines, line);) {
            if (line.rfind("  --", 0) != 0)
                continue;
            const std::string option = line.substr(2, line.find(' ', 2) - 2);
            EXPECT_THAT(manual, HasSubstr(option));
        }
    }
    EXPECT_THAT(Orvcam({"--version"}).output, testing::StartsWith("orvcam "));
}

TEST(CommandLine, ManualPageIsWellFormed)
{
    if (!orvsim::ForeignProgram::Installed("man"))
        GTEST_SKIP() << "man is not installed";
    const ProgramRun run = orvsim::RunForeignProgram({"man", "--warnings", "-l", ORVCAM_MAN_PAGE});
    EXPECT_EQ(0, run.exitCode);
    EXPECT_EQ("", run.errors);
    EXPECT_THAT(run.output, HasSubstr("EXIT STATUS"));
}

TEST(CommandLine, OutputThatCannotBeWrittenIsAFailure)
{
    for (const char *words : {"--help", "list --help", "--version", "list --json"}) {
        SCOPED_TRACE(words);
        const std::string line = "exec " ORVCAM_PROGRAM " " + std::string(words) + " > /dev/full";
        const ProgramRun run = orvsim::RunForeignProgram({"sh", "-c", line});
        EXPECT_EQ(1, run.exitCode);
        EXPECT_THAT(run.errors, HasSubstr("could not be written"));
    }
}

} // namespace
