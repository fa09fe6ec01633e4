#include "cli/Terminal.h"

#include <algorithm>
#include <atomic>
#include <charconv>
#include <csignal>
#include <unistd.h>

namespace orvcli {

namespace {

std::atomic<bool> s_isInterrupted{false};
static_assert(std::atomic<bool>::is_always_lock_free, "set by a signal handler");

/// Columns that UTF-8 text takes, as long as nothing in it is wide.
std::size_t Columns(const std::string &text)
{
    return static_cast<std::size_t>(
        std::count_if(text.begin(), text.end(), [](char c) { return (static_cast<unsigned char>(c) & 0xc0) != 0x80; }));
}

} // namespace

std::string Printable(const std::string &text)
{
    std::string printable;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const auto byte = static_cast<unsigned char>(text[i]);
        const auto next = i + 1 < text.size() ? static_cast<unsigned char>(text[i + 1]) : 0;
        const bool isUpperControl = byte == 0xc2 && next >= 0x80 && next < 0xa0; // U+0080 to U+009F
        if (isUpperControl)
            ++i;
        printable += isUpperControl || byte < 0x20 || byte == 0x7f ? '?' : text[i];
    }
    return printable;
}

void PrintLine(const std::string &line)
{
    std::fwrite(line.data(), 1, line.size(), stdout);
    std::fputc('\n', stdout);
    std::fflush(stdout);
}

void PrintWarning(const std::string &line)
{
    std::fprintf(stderr, "orvcam: warning: %s\n", line.c_str());
}

void PrintTable(const std::vector<std::vector<std::string>> &rows)
{
    std::vector<std::size_t> widths;
    for (const auto &row : rows) {
        widths.resize(std::max(widths.size(), row.size()));
        for (std::size_t i = 0; i < row.size(); ++i)
            widths[i] = std::max(widths[i], Columns(row[i]));
    }
    for (const auto &row : rows) {
        std::string line;
        for (std::size_t i = 0; i < row.size(); ++i)
            line += row[i] + std::string(widths[i] - Columns(row[i]) + 2, ' ');
        line.erase(line.find_last_not_of(' ') + 1);
        PrintLine(line);
    }
}

std::string Fixed(double number, int digits)
{
    char text[400]; // the largest double has 309 digits
    const auto result = std::to_chars(text, text + sizeof text, number, std::chars_format::fixed, digits);
    return std::string(text, result.ptr);
}

Progress::Progress() : m_isTerminal(isatty(STDERR_FILENO) != 0) {}

Progress::~Progress()
{
    if (m_isShown)
        std::fputs("\r\033[K", stderr);
}

void Progress::Show(const std::string &line)
{
    const auto now = std::chrono::steady_clock::now();
    if (!m_isTerminal || now < m_next)
        return;
    m_next = now + std::chrono::milliseconds(250);
    m_isShown = true;
    std::fprintf(stderr, "\r%s\033[K", line.c_str());
    std::fflush(stderr);
}

void WatchForInterrupt()
{
    struct sigaction action = {};
    action.sa_handler = [](int) { s_isInterrupted = true; };
    action.sa_flags = static_cast<int>(SA_RESETHAND);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP})
        sigaction(signal, &action, nullptr);
}

bool IsInterrupted()
{
    return s_isInterrupted;
}

} // namespace orvcli
