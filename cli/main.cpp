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

Outcome RunCommand(const CommandLine &line)
{
    if (line.options.isVerbose)
        OrvCam::SetLogSink(LogToErrors, nullptr);
    Report report;
    Outcome outcome = line.command->run(line.options, report);
    OrvCam::SetLogSink(nullptr, nullptr);
    if (line.options.isJson)
        report.End(outcome);
    if (!outcome.problem.empty())
        outcome.problem = line.command->name + ": " + outcome.problem;
    return outcome;
}

Outcome Refuse(const CommandLine &line, const std::string &problem)
{
    const Outcome outcome = Fail(problem, ExitCode::Usage);
    if (line.options.isJson)
        Report().End(outcome);
    return outcome;
}

Outcome Run(const CommandLine &line)
{
    if (!line.problem.empty())
        return Refuse(line, line.problem + "; --help tells more");
    if (line.isVersionWanted) {
        PrintLine("orvcam " ORVCAM_VERSION);
        return {};
    }
    if (line.options.isHelpWanted) {
        std::fputs((line.command != nullptr ? HelpText(*line.command) : HelpText()).c_str(), stdout);
        return {};
    }
    if (line.command == nullptr) {
        Outcome outcome = Refuse(line, "there is no command");
        outcome.problem += "\n\n" + HelpText();
        return outcome;
    }
    return RunCommand(line);
}

} // namespace

int main(int argc, char **argv)
{
    // Whoever stops reading ends the output, not the program: a camera that is streaming has to be stopped first.
    std::signal(SIGPIPE, SIG_IGN);
    Outcome outcome = Run(ParseCommandLine({argv + 1, argv + argc}));
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0)
        outcome = Fail("the output could not be written");
    if (!outcome.problem.empty())
        std::fprintf(stderr, "orvcam: %s\n", outcome.problem.c_str());
    return static_cast<int>(outcome.code);
}
