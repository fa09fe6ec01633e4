#include "simulator/app/Options.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <set>

namespace orvsim {
namespace {

ProgramOptions Parsed(const std::vector<std::string> &arguments)
{
    std::string problem;
    const std::optional<ProgramOptions> options = ParseOptions(arguments, problem);
    EXPECT_TRUE(options.has_value()) << problem;
    return options.value_or(ProgramOptions());
}

std::string Problem(const std::vector<std::string> &arguments)
{
    std::string problem;
    EXPECT_FALSE(ParseOptions(arguments, problem).has_value());
    return problem;
}

TEST(Options, WithoutAnyThereIsOneCameraOnLoopback)
{
    const ProgramOptions options = Parsed({});
    ASSERT_EQ(options.cameras.size(), 1U);
    EXPECT_FALSE(options.cameras[0].hasAddress);
    EXPECT_EQ(options.cameras[0].gige.address >> 24, 127U);
    EXPECT_FALSE(options.cameras[0].hasSerial);
    EXPECT_EQ(SerialAt(0x7f00ffff), "SIM65535");
}

TEST(Options, OptionsBeforeTheFirstCameraHoldForAll)
{
    const ProgramOptions options =
        Parsed({"--width", "640", "--drop=0.01", "--camera", "--address", "127.0.0.1", "--serial", "LEFT", "--mono",
                "--camera", "--width", "320", "--set", "Gain=6", "--camera"});
    ASSERT_EQ(options.cameras.size(), 3U);
    EXPECT_EQ(options.cameras[0].camera.serial, "LEFT");
    EXPECT_FALSE(options.cameras[0].camera.sensor.isColour);
    EXPECT_EQ(options.cameras[0].camera.sensor.width, 640);
    EXPECT_EQ(options.cameras[1].camera.sensor.width, 320);
    EXPECT_TRUE(options.cameras[1].camera.sensor.isColour);
    EXPECT_EQ(options.cameras[1].camera.features.at("Gain"), "6");
    EXPECT_DOUBLE_EQ(options.cameras[2].camera.faults.dropRate, 0.01);
    EXPECT_TRUE(options.cameras[0].hasAddress);
    EXPECT_FALSE(options.cameras[1].hasAddress);
}

TEST(Options, FileAndCommandLineKnowTheSameNames)
{
    const std::string path = testing::TempDir() + "orvsim-options.conf";
    std::ofstream(path) << "# two cameras\n"
                           "fps = 12.5\n"
                           "\n"
                           "[camera]\n"
                           "  serial = A \n"
                           "legacy = yes\n"
                           "[camera]\n"
                           "pace = line-time\n"
                           "legacy = no\n";
    const ProgramOptions options = Parsed({"--config", path});
    std::remove(path.c_str());
    ASSERT_EQ(options.cameras.size(), 2U);
    EXPECT_DOUBLE_EQ(options.cameras[0].camera.frameRate, 12.5);
    EXPECT_EQ(options.cameras[0].camera.serial, "A");
    EXPECT_TRUE(options.cameras[0].gige.legacy);
    EXPECT_FALSE(options.cameras[1].gige.legacy);
    EXPECT_EQ(options.cameras[1].camera.family, TimingFamily::LineTime);
    EXPECT_FALSE(options.cameras[1].camera.hasFramePrefix);
}

TEST(Options, WhatIsWrongIsNamed)
{
    struct Case {
        std::vector<std::string> arguments;
        const char *part;
    };
    const Case cases[] = {
        {{"--widht", "640"}, "\"--widht\""},
        {{"640"}, "\"640\" is not an option"},
        {{"--width"}, "--width needs a value"},
        {{"--width", "640px"}, "--width: \"640px\" is not a number of 64 to 16384"},
        {{"--drop", "nan"}, "--drop"},
        {{"--address", "localhost"}, "not an IPv4 address"},
        {{"--address", "224.0.0.5"}, "not an IPv4 address"},
        {{"--address", "127.255.255.255"}, "not an IPv4 address"},
        {{"--interface", "no-such-0"}, "no network interface \"no-such-0\""},
        {{"--mono=maybe"}, "neither yes nor no"},
        {{"--set", "Gain"}, "not Feature=Value"},
        {{"--serial", "0123456789abcdef"}, "1 to 15 bytes"},
        {{"--pace", "clock"}, "none of pixel-clock"},
        {{"--statistics", "-1"}, "not a number of seconds"},
        {{"--config", "/nowhere/orvsim.conf"}, "/nowhere/orvsim.conf: cannot be read"},
    };
    for (const Case &row : cases)
        EXPECT_NE(Problem(row.arguments).find(row.part), std::string::npos) << Problem(row.arguments);
}

TEST(Options, AFilesProblemsNameTheLine)
{
    const std::string path = testing::TempDir() + "orvsim-wrong.conf";
    for (const auto &[text, problem] : {std::pair{"width = 640\n[cameras]\n", ":2: \"[cameras]\""},
                                        {"width = 640\n\nheight = tall\n", ":3: height: \"tall\""}}) {
        std::ofstream(path) << text;
        EXPECT_NE(Problem({"--config", path}).find(path + problem), std::string::npos) << problem;
    }
    std::remove(path.c_str());
}

TEST(Options, EveryFaultHasNamesOfItsOwnAndIsExplained)
{
    const std::string help = HelpText();
    std::set<std::string> names;
    for (const FaultRow &row : FaultRows()) {
        EXPECT_TRUE(names.insert(row.feature).second) << row.feature;
        EXPECT_TRUE(names.insert(row.option).second) << row.option;
        EXPECT_NE(row.rate == nullptr, row.number == nullptr) << row.feature;
        EXPECT_NE(help.find(std::string("--") + row.option + " "), std::string::npos) << row.option;
    }
}

} // namespace
} // namespace orvsim
