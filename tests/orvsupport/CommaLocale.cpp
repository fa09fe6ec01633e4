#include "CommaLocale.h"

#include <clocale>
#include <cstdlib>
#include <cstring>
#include <filesystem>

namespace {

bool HasDecimalComma()
{
    return std::strcmp(std::localeconv()->decimal_point, ",") == 0;
}

bool LoadCommaLocale()
{
    for (const char *name : {"de_DE.UTF-8", "de_DE.utf8", "fr_FR.UTF-8", "de_DE"})
        if (std::setlocale(LC_ALL, name) != nullptr && HasDecimalComma())
            return true;
    return false;
}

std::string CompileGerman()
{
    char folder[] = "/tmp/orv-locale-XXXXXX";
    if (mkdtemp(folder) == nullptr)
        return {};
    const std::string command = "localedef -i de_DE -f UTF-8 '" + std::string(folder) + "/de_DE.UTF-8' >/dev/null 2>&1";
    // A warning makes the result non-zero although the locale was written; loading it is the check.
    [[maybe_unused]] const int result = std::system(command.c_str());
    return folder;
}

} // namespace

CommaLocale::CommaLocale()
{
    if (LoadCommaLocale())
        return;
    m_folder = CompileGerman();
    setenv("LOCPATH", m_folder.c_str(), 1);
    LoadCommaLocale();
}

CommaLocale::~CommaLocale()
{
    std::setlocale(LC_ALL, "C");
    if (m_folder.empty())
        return;
    unsetenv("LOCPATH");
    std::error_code ignored;
    std::filesystem::remove_all(m_folder, ignored);
}

bool CommaLocale::IsActive() const
{
    return HasDecimalComma();
}
