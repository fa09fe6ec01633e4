#include "tests/simulator/ForeignProgram.h"

#include <csignal>
#include <cstdlib>
#include <sstream>

#include <fcntl.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

extern char **environ;

namespace orvsim {
namespace {

/// What the child needs, prepared before the fork: afterwards only calls that are safe then.
struct Launch {
    pid_t parent;
    std::vector<char *> arguments;
    std::vector<char *> environment;
    int output;
    int errors;
};

[[noreturn]] void BecomeProgram(const Launch &launch)
{
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != launch.parent)
        _exit(127); // the test ended before the line above
    dup2(open("/dev/null", O_RDONLY | O_CLOEXEC), STDIN_FILENO);
    dup2(launch.output, STDOUT_FILENO);
    dup2(launch.errors, STDERR_FILENO);
    execvpe(launch.arguments[0], launch.arguments.data(), launch.environment.data());
    _exit(127);
}

std::vector<char *> Pointers(std::vector<std::string> &texts)
{
    std::vector<char *> pointers;
    for (std::string &text : texts)
        pointers.push_back(text.data());
    pointers.push_back(nullptr);
    return pointers;
}

/// Numbers and messages as the programs' sources have them.
std::vector<std::string> PlainEnvironment()
{
    std::vector<std::string> environment;
    for (char **entry = environ; *entry != nullptr; ++entry) {
        const std::string text = *entry;
        if (text.rfind("LC_ALL=", 0) != 0)
            environment.push_back(text);
    }
    environment.push_back("LC_ALL=C.UTF-8");
    return environment;
}

std::string Content(int file)
{
    std::string text;
    char part[65536];
    for (ssize_t size; (size = pread(file, part, sizeof part, static_cast<off_t>(text.size()))) > 0;)
        text.append(part, static_cast<std::size_t>(size));
    return text;
}

} // namespace

bool ForeignProgram::Installed(const std::string &name)
{
    const char *path = std::getenv("PATH");
    std::istringstream folders(path != nullptr ? path : "");
    for (std::string folder; std::getline(folders, folder, ':');) {
        if (access((folder + "/" + name).c_str(), X_OK) == 0)
            return true;
    }
    return false;
}

bool ForeignProgram::Start(const std::vector<std::string> &words)
{
    std::vector<std::string> arguments = words;
    std::vector<std::string> environment = PlainEnvironment();
    m_output = memfd_create("output", MFD_CLOEXEC);
    m_errors = memfd_create("errors", MFD_CLOEXEC);
    const Launch launch{getpid(), Pointers(arguments), Pointers(environment), m_output, m_errors};
    m_process = fork();
    if (m_process == 0)
        BecomeProgram(launch);
    if (m_process > 0)
        m_watch = static_cast<int>(syscall(SYS_pidfd_open, m_process, 0));
    return m_watch >= 0;
}

ForeignProgram::~ForeignProgram()
{
    Finish(std::chrono::milliseconds(0));
    for (const int file : {m_watch, m_output, m_errors}) {
        if (file >= 0)
            close(file);
    }
}

void ForeignProgram::Interrupt()
{
    if (m_process > 0)
        kill(m_process, SIGINT);
}

bool ForeignProgram::HasEnded(std::chrono::milliseconds limit)
{
    if (m_process <= 0)
        return true;
    pollfd watched = {m_watch, POLLIN, 0};
    if (poll(&watched, 1, static_cast<int>(limit.count())) <= 0)
        return false;
    int status = 0;
    waitpid(m_process, &status, 0);
    m_process = 0;
    if (WIFEXITED(status))
        m_exitCode = WEXITSTATUS(status);
    return true;
}

std::optional<int> ForeignProgram::Finish(std::chrono::milliseconds limit)
{
    if (!HasEnded(limit)) {
        kill(m_process, SIGKILL);
        waitpid(m_process, nullptr, 0);
        m_process = 0;
    }
    return m_exitCode;
}

std::string ForeignProgram::Output() const
{
    return Content(m_output);
}

std::string ForeignProgram::Errors() const
{
    return Content(m_errors);
}

ProgramRun RunForeignProgram(const std::vector<std::string> &words)
{
    ForeignProgram program;
    if (!program.Start(words))
        return {};
    const std::optional<int> exitCode = program.Finish();
    return {exitCode, program.Output(), program.Errors()};
}

} // namespace orvsim
