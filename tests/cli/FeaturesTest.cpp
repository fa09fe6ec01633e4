#include "CliFixture.h"

namespace {

using orvsim::ProgramRun;
using testing::HasSubstr;
using testing::Not;

class Features : public CliTest {
protected:
    void SetUp() override { Open(Small("ONE")); }
};

TEST_F(Features, TreeShowsAccessValuesUnitsAndLimits)
{
    const ProgramRun run = Orvcam({"features"});
    EXPECT_EQ(0, run.exitCode) << run.errors;
    EXPECT_THAT(run.output, testing::StartsWith("DeviceControl\n  DeviceVendorName "));
    EXPECT_THAT(run.output, testing::ContainsRegex("\n  Width +RW  64 px +\\[32 [.][.] 64 step 8\\]\n"));
    EXPECT_THAT(run.output, testing::ContainsRegex("\n  TriggerMode +RW  Off +\\{Off, On\\}\n"));
    EXPECT_THAT(run.output, testing::ContainsRegex("\n  AcquisitionStart +WO  \\(command\\)\n"));
    EXPECT_THAT(run.output, testing::ContainsRegex("\n +GevCurrentIPAddress +R[OW]  127[.]0[.]0[.]21\n"));
    const ProgramRun few = Orvcam({"features", "--visibility", "beginner"});
    EXPECT_LT(few.output.size(), run.output.size());
    const ProgramRun json = Orvcam({"features", "--json"});
    const std::string width = json.output.substr(json.output.find("{\"name\": \"Width\""));
    EXPECT_EQ("64", Member(width, "value"));
    EXPECT_EQ("\"ImageFormatControl\"", Member(width, "category"));
    EXPECT_EQ("8", Member(width, "increment"));
    EXPECT_EQ("\"px\"", Member(width, "unit"));
    EXPECT_THAT(Orvcam({"features", "--interface"}).output, HasSubstr("127.0.0.1"));
    EXPECT_THAT(Orvcam({"features", "--stream"}).output,
                testing::ContainsRegex("\n  StreamPacketResendEnable +RW  true\n"));
}

TEST_F(Features, ActionsAreDoneInTheirOrder)
{
    std::vector<std::string> words = {"features", "--get", "Width", "--set", "Width=32", "--get", "Width"};
    for (const char *more : {"--set=ExposureTime=2500.5", "--get=ExposureTime", "--set=ReverseX=yes", "--get=ReverseX",
                             "--set=DeviceUserID=a b", "--get=DeviceUserID", "--set=TriggerMode=On",
                             "--run=TriggerSoftware", "--get=TriggerMode"})
        words.push_back(more);
    const ProgramRun run = Orvcam(words);
    EXPECT_EQ(0, run.exitCode) << run.errors;
    EXPECT_EQ("64\n32\n2500.5\ntrue\na b\nOn\n", run.output);
    const ProgramRun json = Orvcam(
        {"features", "--json", "--get", "Width", "--get", "TriggerMode", "--set", "Width=0x28", "--get", "Width"});
    EXPECT_EQ("{\"TriggerMode\": \"On\", \"Width\": 40}\n", json.output);
}

TEST_F(Features, WhatCannotBeDoneNamesFeatureValueAndLimits)
{
    const struct {
        const char *option, *value;
        std::vector<const char *> told;
    } kCases[] = {
        {"--set", "Width=99999", {"Width", "99999", "32 to 64 in steps of 8"}},
        {"--set", "Width=33", {"Width", "33", "in steps of 8"}},
        {"--set", "Width=wide", {"Width", "wide", "no integer"}},
        {"--set", "ExposureTime=1,5", {"ExposureTime", "1,5", "no float"}},
        {"--set", "TriggerMode=Maybe", {"TriggerMode", "Maybe", "Off, On"}},
        {"--set", "ReverseX=perhaps", {"ReverseX", "perhaps", "no boolean"}},
        {"--set", "DeviceVendorName=me", {"DeviceVendorName", "cannot be written"}},
        {"--set", "NoSuch=1", {"NoSuch", "no such feature"}},
        {"--get", "NoSuch", {"NoSuch", "no such feature", "127.0.0.21"}},
        {"--get", "AcquisitionStart", {"AcquisitionStart", "cannot be read"}},
        {"--run", "Width", {"Width", "another kind"}},
        {"--run", "NoSuch", {"NoSuch"}},
    };
    for (const auto &row : kCases) {
        SCOPED_TRACE(row.value);
        const ProgramRun run = Orvcam({"features", row.option, row.value, "--get", "Width"});
        EXPECT_EQ(1, run.exitCode);
        EXPECT_EQ("", run.output) << "nothing more is done after a failure";
        for (const char *part : row.told)
            EXPECT_THAT(run.errors, HasSubstr(part));
    }
}

TEST_F(Features, DescriptionIsPrintedUnpacked)
{
    const ProgramRun run = Orvcam({"xml"});
    EXPECT_EQ(0, run.exitCode);
    EXPECT_EQ(cameras[0]->Core().DescriptionXml(), run.output);
}

} // namespace
