#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include <sys/types.h>

namespace orvsim {

/// A program of others as a child process, in the "C" locale. It ends with this object, and with the test program at
/// the latest. One thread.
class ForeignProgram {
public:
    static constexpr std::chrono::seconds kLimit{60};

    ForeignProgram() = default;
    ~ForeignProgram();
    ForeignProgram(const ForeignProgram &) = delete;
    ForeignProgram &operator=(const ForeignProgram &) = delete;

    /// Whether the path names such a program.
    static bool Installed(const std::string &name);

    /// Once per object. \param words  name, then arguments.
    [[nodiscard]] bool Start(const std::vector<std::string> &words);
    pid_t Process() const { return m_process; } ///< 0 once it has ended
    /// As Ctrl+C would.
    void Interrupt();
    /// Waits for its end. \return true once it has ended.
    bool HasEnded(std::chrono::milliseconds limit = std::chrono::milliseconds(0));
    /// Waits for its end and kills it when that does not come. \return exit code; nothing after a signal.
    std::optional<int> Finish(std::chrono::milliseconds limit = kLimit);

    /// What it has written so far.
    std::string Output() const;
    std::string Errors() const;

private:
    pid_t m_process = 0;
    int m_watch = -1;  ///< process descriptor: readable once the process has ended
    int m_output = -1; ///< files in memory
    int m_errors = -1;
    std::optional<int> m_exitCode;
};

/// What a program that ran to its end has left.
struct ProgramRun {
    std::optional<int> exitCode; ///< nothing: it could not start, was killed, or took too long
    std::string output;
    std::string errors;
};
ProgramRun RunForeignProgram(const std::vector<std::string> &words);

} // namespace orvsim
