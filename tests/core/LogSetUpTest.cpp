// Start-up of the log, seen from outside: each case starts a copy of this binary, which configures and logs.

#include "core/DiagnosticLog.h"

#include <gmock/gmock.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

namespace {

namespace fs = std::filesystem;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;

constexpr char kProbeArgument[] = "--log-probe";
constexpr char kPropertyFile[] = "orvplayerlog.property";

int RunProbe()
{
    OrvLog4Cpp_configure(kPropertyFile, kLogCategory);
    OrvLog4Cpp_Info(kLogCategory, 0, "too small to keep");
    OrvLog4Cpp_Notice(kLogCategory, "milestone");
    OrvLog4Cpp_Error(kLogCategory, 7, "failure");
    std::puts("still running");
    return 0;
}

/// A folder with the probe in "bin", "elsewhere" as its working directory and "home" as the user's home.
class LogSetUp : public testing::Test {
protected:
    void SetUp() override
    {
        char folder[] = "/tmp/orv-log-XXXXXX";
        ASSERT_NE(mkdtemp(folder), nullptr);
        m_root = folder;
        for (const char *name : {"bin", "elsewhere", "home"})
            fs::create_directory(m_root / name);
        fs::copy_file("/proc/self/exe", m_root / "bin/probe");
    }
    void TearDown() override { fs::remove_all(m_root); }

    void InstallSample(const char *folder)
    {
        fs::copy_file(ORV_SAMPLE_LOG_PROPERTIES, m_root / folder / kPropertyFile);
    }
    void Install(const char *folder, const std::string &text)
    {
        std::ofstream(m_root / folder / kPropertyFile) << text;
    }

    /// What the probe prints, with the temporary folder called ROOT.
    std::string Run(const std::string &environment = {})
    {
        const std::string command =
            "cd " + Path("elsewhere") + " && env -u XDG_STATE_HOME -u ORVPLAYER_STATE_DIR HOME=" + Path("home") + " " +
            environment + " " + Path("bin/probe") + " " + kProbeArgument + " 2>&1; echo exit $?";
        FILE *const pipe = popen(command.c_str(), "r");
        std::string output;
        char chunk[256];
        while (std::fgets(chunk, sizeof chunk, pipe) != nullptr)
            output += chunk;
        pclose(pipe);
        for (std::size_t at; (at = output.find(m_root.string())) != std::string::npos;)
            output.replace(at, m_root.string().size(), "ROOT");
        return output;
    }

    std::string Path(const char *name) const { return (m_root / name).string(); }

    std::string Log(const char *folder) const
    {
        std::ostringstream text;
        text << std::ifstream(m_root / folder / "orvplayer.log").rdbuf();
        return text.str();
    }

    fs::path m_root;
};

constexpr char kLoaded[] = "OrvLog4Cpp: trying to load ROOT/bin/orvplayerlog.property\n"
                           "OrvLog4Cpp: PropertyConfigurator::configure succeeded!\n"
                           "still running\nexit 0\n";
constexpr char kNotLoaded[] = "OrvLog4Cpp: trying to load ROOT/bin/orvplayerlog.property\n"
                              "OrvLog4Cpp: PropertyConfigurator::configure failed, logging is disabled!\n"
                              "still running\nexit 0\n";
constexpr char kDefaultFolder[] = "home/.local/state/OrvPlayer";

TEST_F(LogSetUp, TheSampleFileKeepsMilestonesInThePrivateStateFolder)
{
    InstallSample("bin");
    EXPECT_EQ(Run(), kLoaded);
    const std::string log = Log(kDefaultFolder);
    EXPECT_THAT(log, HasSubstr("NOTICE"));
    EXPECT_THAT(log, HasSubstr("] milestone\n"));
    EXPECT_THAT(log, EndsWith("] failure, code=7\n"));
    EXPECT_THAT(log, Not(HasSubstr("too small")));
    EXPECT_EQ(fs::status(m_root / kDefaultFolder).permissions(), fs::perms::owner_all);
}

TEST_F(LogSetUp, TheEnvironmentChoosesTheStateFolder)
{
    InstallSample("bin");
    Run("XDG_STATE_HOME=" + Path("state"));
    EXPECT_THAT(Log("state/OrvPlayer"), HasSubstr("milestone"));
    Run("XDG_STATE_HOME=relative");
    EXPECT_THAT(Log(kDefaultFolder), HasSubstr("milestone")) << "a relative folder counts as none";
    Run("ORVPLAYER_STATE_DIR=" + Path("mine"));
    EXPECT_THAT(Log("mine"), HasSubstr("milestone"));
    EXPECT_EQ(Run("XDG_STATE_HOME=/proc/none"), kLoaded) << "one that cannot be made stops nothing";
}

TEST_F(LogSetUp, OnlyTheFileBesideTheExecutableCounts)
{
    InstallSample("elsewhere");
    EXPECT_EQ(Run(), kNotLoaded);
    EXPECT_EQ(Log(kDefaultFolder), "");
}

TEST_F(LogSetUp, AMalformedFileDisablesLoggingAndNothingElse)
{
    for (const char *text : {"", "log4cpp.rootCategory=LOUD\n", "log4cpp.rootCategory=WARN, nobody\n",
                             "log4cpp.rootCategory=WARN, A\nlog4cpp.appender.A=NoSuchAppender\n",
                             "log4cpp.rootCategory=WARN, A\nlog4cpp.appender.A=FileAppender\n"
                             "log4cpp.appender.A.fileName=/dev/null\n",
                             "\x01\xff=\n\n= = =\n"}) {
        Install("bin", text);
        EXPECT_EQ(Run(), kNotLoaded) << text;
    }
}

} // namespace

int main(int argc, char **argv)
{
    if (argc == 2 && std::strcmp(argv[1], kProbeArgument) == 0)
        return RunProbe();
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
