#include "core/DiagnosticLog.h"

#include <log4cpp/Category.hh>
#include <log4cpp/PropertyConfigurator.hh>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cwchar>
#include <filesystem>
#include <memory>
#include <pwd.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

namespace orvlog4cpp = log4cpp;

namespace {

constexpr char kStateFolderVariable[] = "ORVPLAYER_STATE_DIR";
constexpr char kWithCode[] = "%s, code=%lu";
constexpr std::size_t kFirstCapacity = 512; // characters; enough for nearly every line

static_assert(sizeof(unsigned long) == sizeof(std::uint64_t), "codes are printed with %lu");

orvlog4cpp::Category &CategoryOf(const char *name)
{
    return orvlog4cpp::Category::getInstance(name);
}

/// Empty when the link cannot be read.
std::string ExecutablePath()
{
    char path[4096];
    const ssize_t length = readlink("/proc/self/exe", path, sizeof path);
    return length < 0 ? std::string() : std::string(path, static_cast<std::size_t>(length));
}

std::string BesideExecutable(const char *fileName)
{
    const std::string executable = ExecutablePath();
    return executable.substr(0, executable.rfind('/')) + "/" + fileName;
}

std::filesystem::path HomeFolder()
{
    const char *home = std::getenv("HOME");
    if (home != nullptr && *home == '/')
        return home;
    const passwd *const user = getpwuid(getuid());
    return user != nullptr ? user->pw_dir : "/";
}

std::filesystem::path StateFolder()
{
    const char *stateHome = std::getenv("XDG_STATE_HOME");
    const bool isUsable = stateHome != nullptr && *stateHome == '/'; // the convention: a relative path counts as unset
    return (isUsable ? std::filesystem::path(stateHome) : HomeFolder() / ".local/state") / "OrvPlayer";
}

bool MakePrivateFolder(const std::filesystem::path &folder)
{
    std::error_code ignored; // whatever went wrong on the way, what counts is the folder at the end
    std::filesystem::create_directories(folder.parent_path(), ignored);
    mkdir(folder.c_str(), S_IRWXU);
    return std::filesystem::is_directory(folder, ignored);
}

bool TryConfigure(const std::string &path)
{
    try {
        orvlog4cpp::PropertyConfigurator::configure(path);
        return true;
    } catch (const std::exception &) { // ConfigureFailure, and what a malformed file makes the parsers throw
        return false;
    }
}

orvlog4cpp::Priority::Value PriorityOf(LogLevel level)
{
    using orvlog4cpp::Priority;
    constexpr Priority::PriorityLevel kPriorities[] = {Priority::DEBUG, Priority::INFO,  Priority::NOTICE,
                                                       Priority::WARN,  Priority::ERROR, Priority::FATAL};
    return kPriorities[static_cast<int>(level)];
}

void Write(LogLevel level, std::uint64_t code, const char *message) noexcept
{
    switch (level) {
    case LogLevel::Debug:
        return OrvLog4Cpp_Debug(kLogCategory, code, message);
    case LogLevel::Info:
        return OrvLog4Cpp_Info(kLogCategory, code, message);
    case LogLevel::Notice:
        return OrvLog4Cpp_Notice(kLogCategory, message);
    case LogLevel::Warning:
        return OrvLog4Cpp_Warning(kLogCategory, code, message);
    case LogLevel::Error:
        return OrvLog4Cpp_Error(kLogCategory, code, message);
    case LogLevel::Fatal:
        return OrvLog4Cpp_Fatal(kLogCategory, code, message);
    }
}

std::unique_ptr<char[]> Format(const char *format, va_list arguments)
{
    std::size_t capacity = kFirstCapacity;
    for (;;) {
        std::unique_ptr<char[]> text(new char[capacity]());
        va_list copy;
        va_copy(copy, arguments);
        const int result = std::vsnprintf(text.get(), capacity, format, copy);
        va_end(copy);
        // Negative is never a lack of room but an argument without a text form: more room would not help.
        if (result < 0 || static_cast<std::size_t>(result) < capacity)
            return text;
        capacity = static_cast<std::size_t>(result) + 1;
    }
}

/// Zero-terminated whatever happens; a character that the locale lacks ends the text.
std::unique_ptr<char[]> Multibyte(const wchar_t *wide, std::size_t length)
{
    const std::size_t capacity = length * MB_CUR_MAX + 1;
    std::unique_ptr<char[]> text(new char[capacity]());
    std::wcstombs(text.get(), wide, capacity - 1);
    return text;
}

void LogArrow(const char *operation, const char *arrow)
{
    LogFormatted(LogLevel::Debug, 0, "%s%s", operation, arrow);
}

} // namespace

void OrvLog4Cpp_configure(const char *fileName, const char * /*categoryName*/) noexcept
{
    PrepareLogStateFolder();
    const std::string path = BesideExecutable(fileName);
    std::printf("OrvLog4Cpp: trying to load %s\n", path.c_str());
    if (TryConfigure(path))
        std::puts("OrvLog4Cpp: PropertyConfigurator::configure succeeded!");
    else
        std::puts("OrvLog4Cpp: PropertyConfigurator::configure failed, logging is disabled!");
}

bool PrepareLogStateFolder() noexcept
{
    const char *const chosen = std::getenv(kStateFolderVariable);
    const std::filesystem::path folder = chosen != nullptr && *chosen != '\0' ? chosen : StateFolder();
    setenv(kStateFolderVariable, folder.c_str(), 1);
    return MakePrivateFolder(folder);
}

void OrvLog4Cpp_Debug(const char *category, std::uint64_t code, const char *message) noexcept
{
    CategoryOf(category).debug(kWithCode, message, code);
}

void OrvLog4Cpp_Info(const char *category, std::uint64_t code, const char *message) noexcept
{
    CategoryOf(category).info(kWithCode, message, code);
}

void OrvLog4Cpp_Notice(const char *category, const char *message) noexcept
{
    CategoryOf(category).notice("%s", message);
}

void OrvLog4Cpp_Warning(const char *category, std::uint64_t code, const char *message) noexcept
{
    CategoryOf(category).warn(kWithCode, message, code);
}

void OrvLog4Cpp_Error(const char *category, std::uint64_t code, const char *message) noexcept
{
    CategoryOf(category).error(kWithCode, message, code);
}

void OrvLog4Cpp_Fatal(const char *category, std::uint64_t code, const char *message) noexcept
{
    CategoryOf(category).fatal(kWithCode, message, code);
}

char *help_str(const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    std::unique_ptr<char[]> text = Format(format, arguments);
    va_end(arguments);
    return text.release();
}

char *help_str(const wchar_t *format, ...)
{
    std::size_t capacity = kFirstCapacity;
    for (;;) {
        const std::unique_ptr<wchar_t[]> wide(new wchar_t[capacity]());
        va_list arguments;
        va_start(arguments, format);
        errno = 0;
        const int result = std::vswprintf(wide.get(), capacity, format, arguments);
        va_end(arguments);
        // A lack of room is negative too; only an argument without a wide form is past helping.
        if (result >= 0 || errno == EILSEQ)
            return Multibyte(wide.get(), std::wcslen(wide.get())).release();
        capacity *= 2;
    }
}

bool IsLogEnabled(LogLevel level) noexcept
{
    return CategoryOf(kLogCategory).isPriorityEnabled(PriorityOf(level));
}

void LogFormatted(LogLevel level, std::uint64_t code, const char *format, ...) noexcept
{
    if (!IsLogEnabled(level))
        return;
    va_list arguments;
    va_start(arguments, format);
    const std::unique_ptr<char[]> text = Format(format, arguments);
    va_end(arguments);
    Write(level, code, text.get());
}

LogScope::LogScope(const char *enterName, const char *leaveName) noexcept : m_leaveName(leaveName)
{
    LogArrow(enterName, " -> ENTER");
}

LogScope::~LogScope()
{
    LogArrow(m_leaveName, " <- LEAVE");
}
