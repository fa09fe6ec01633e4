#include "cli/Command.h"
#include "cli/Terminal.h"
#include "orvcam/OrvLog.h"

#include <csignal>
#include <cstdio>

namespace {

using namespace orvcli;

void LogToErrors(OrvCam::LogLevel level, const char *text, void *)
{
    const char *const kNames[] = {"debug", "info", "warning", "error"};
    std::fprintf(stderr, "orvcam: %s: %s\n", kNames[static_cast<int>(level)], Printable(text).c_str());
}

int Run(const CommandLine &line)
{
    if (line.options.isVerbose)
        OrvCam::SetLogSink(LogToErrors, nullptr);
    Outcome outcome = line.command->run(line.options);
    OrvCam::SetLogSink(nullptr, nullptr);
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0)
        outcome = Fail("the output could not be written");
    if (!outcome.problem.empty())
        std::fprintf(stderr, "orvcam: %s: %s\n", line.command->name.c_str(), outcome.problem.c_str());
    return static_cast<int>(outcome.code);
}

} // namespace

int main(int argc, char **argv)
{
    // Whoever stops reading ends the output, not the program: a camera that is streaming has to be stopped first.
    std::signal(SIGPIPE, SIG_IGN);
    const CommandLine line = ParseCommandLine({argv + 1, argv + argc});
    if (!line.problem.empty()) {
        std::fprintf(stderr, "orvcam: %s; --help tells more\n", line.problem.c_str());
        return static_cast<int>(ExitCode::Usage);
    }
    if (line.isVersionWanted) {
        std::puts("orvcam " ORVCAM_VERSION);
        return 0;
    }
    if (line.options.isHelpWanted) {
        std::fputs((line.command != nullptr ? HelpText(*line.command) : HelpText()).c_str(), stdout);
        return 0;
    }
    if (line.command == nullptr) {
        std::fputs(HelpText().c_str(), stderr);
        return static_cast<int>(ExitCode::Usage);
    }
    return Run(line);
}
