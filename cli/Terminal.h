#pragma once

#include <chrono>
#include <cstdio>
#include <string>
#include <vector>

/// What a person sees: results on the standard output, the rest on the error output.
namespace orvcli {

/// With control characters replaced: what a camera calls itself must not steer the terminal.
std::string Printable(const std::string &text);
/// Writes a line of results, and hands it on at once when somebody reads along.
void PrintLine(const std::string &line);
/// Writes a line of what went wrong beside the results to the error output.
void PrintWarning(const std::string &line);
/// Rows with their columns below each other; trailing blanks are left out.
void PrintTable(const std::vector<std::vector<std::string>> &rows);
/// A number with so many digits behind the point, under every locale.
std::string Fixed(double number, int digits);

/// One line of progress that is written over and over; none where the error output is no terminal.
class Progress {
public:
    Progress();
    ~Progress();
    Progress(const Progress &) = delete;
    Progress &operator=(const Progress &) = delete;
    /// Shown at most some times a second.
    void Show(const std::string &line);

private:
    const bool m_isTerminal;
    bool m_isShown = false;
    std::chrono::steady_clock::time_point m_next;
};

/// From now on Ctrl+C, and a polite end from outside, are only remembered; a second one ends the program at once.
void WatchForInterrupt();
bool IsInterrupted();

} // namespace orvcli
