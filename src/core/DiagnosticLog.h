#pragma once

#include <cstdint>

/// The diagnostic log: log4cpp behind plain functions.
///
/// What is written, and where, is up to the property file. Every function may be called from any thread, except those
/// of start-up (OrvLog4Cpp_configure, PrepareLogStateFolder), which belong to main before other threads exist. Nothing
/// here throws: a logging system that breaks ends the program rather than being silently lost.

/// The category of everything the application logs.
constexpr char kLogCategory[] = "ORVPLR";

// Start-up ------------------------------------------------------------------------------------------------------------

/// Prepares the state folder, then loads `fileName` from the executable's own folder, never from the working directory.
/// A missing or malformed file is told on standard output and leaves logging unconfigured. `categoryName` is reserved.
void OrvLog4Cpp_configure(const char *fileName, const char *categoryName) noexcept;

/// Makes the folder for log files, private to the user, and names it in the environment as ORVPLAYER_STATE_DIR, where
/// the property file finds it. It is $XDG_STATE_HOME/OrvPlayer, else ~/.local/state/OrvPlayer; a variable that is set
/// already is kept.
/// \return False when the folder is not there afterwards; log4cpp then drops what is meant for files in it.
bool PrepareLogStateFolder() noexcept;

/// A 32-bit status as the logged code, so that -40051 is written as 4294927245 and not sign-extended.
constexpr std::uint64_t LogCode(std::int32_t status)
{
    return static_cast<std::uint32_t>(status);
}

// The log functions ---------------------------------------------------------------------------------------------------

// All write "<message>, code=<code>" but OrvLog4Cpp_Notice, which writes the message bare. `code` is the status of a
// library call or a count, 0 when there is none.
void OrvLog4Cpp_Debug(const char *category, std::uint64_t code, const char *message) noexcept;
void OrvLog4Cpp_Info(const char *category, std::uint64_t code, const char *message) noexcept;
void OrvLog4Cpp_Notice(const char *category, const char *message) noexcept;
void OrvLog4Cpp_Warning(const char *category, std::uint64_t code, const char *message) noexcept;
void OrvLog4Cpp_Error(const char *category, std::uint64_t code, const char *message) noexcept;
void OrvLog4Cpp_Fatal(const char *category, std::uint64_t code, const char *message) noexcept;

/// The printf-formatted text in an array of its own, whatever its length; the caller deletes it (delete[]).
char *help_str(const char *format, ...) __attribute__((format(printf, 1, 2)));
/// The same from a wide format, as multibyte text of the process locale. A character that the locale lacks ends the
/// text there.
char *help_str(const wchar_t *format, ...);

// Formatting only what is written -------------------------------------------------------------------------------------

enum class LogLevel { Debug, Info, Notice, Warning, Error, Fatal };

/// Whether a line of this level would go anywhere. Cheap enough for every frame: one look-up by name, no formatting.
bool IsLogEnabled(LogLevel level) noexcept;

/// Formats and logs under kLogCategory, when the level is enabled. The code is left out at level Notice.
void LogFormatted(LogLevel level, std::uint64_t code, const char *format, ...) noexcept
    __attribute__((format(printf, 3, 4)));

/// Logs "<operation> -> ENTER" now and "<operation> <- LEAVE" at the end of the scope, at debug level.
///
/// The names are texts that outlive the scope, normally literals such as "GrabbingFifo::PopOldestBuffer()".
class LogScope {
public:
    explicit LogScope(const char *operation) noexcept : LogScope(operation, operation) {}
    /// For an operation that leaves under another name than it enters.
    LogScope(const char *enterName, const char *leaveName) noexcept;
    ~LogScope();
    LogScope(const LogScope &) = delete;
    LogScope &operator=(const LogScope &) = delete;

private:
    const char *m_leaveName;
};
