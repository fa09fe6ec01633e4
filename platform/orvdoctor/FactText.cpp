#include "orvdoctor/FactText.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <locale>
#include <sstream>

namespace orv {
namespace {

constexpr std::size_t kLongestText = 64;

std::string Digits(double value, int precision)
{
    std::ostringstream text;
    text.imbue(std::locale::classic());
    text.precision(precision);
    text << value;
    return text.str();
}

bool IsPlainInShell(char c)
{
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
           (c != '\0' && std::strchr("._:/@%+=-", c) != nullptr);
}

} // namespace

std::string NumberText(double value)
{
    return Digits(value, 4);
}

std::string SecondsText(double seconds)
{
    if (seconds >= 0.9995)
        return Digits(std::round(seconds * 10) / 10, 6) + " s";
    if (seconds >= 0.0009995)
        return Digits(seconds * 1e3, 3) + " ms";
    return Digits(seconds * 1e6, 3) + " \u00b5s";
}

std::string PercentText(double share)
{
    const double percent = std::floor(share * 1000) / 10;
    return Digits(percent, 4) + " %";
}

std::string BytesText(std::uint64_t bytes)
{
    const auto size = static_cast<double>(bytes);
    if (bytes >= 1000000)
        return Digits(size / 1e6, 3) + " MB";
    return bytes >= 1000 ? Digits(size / 1e3, 3) + " kB" : CountText(bytes, "byte", "bytes");
}

std::string CountText(std::uint64_t count, const char *one, const char *many)
{
    return std::to_string(count) + " " + (count == 1 ? one : many);
}

std::string Printable(const std::string &text)
{
    std::string clean;
    for (const char c : text.substr(0, kLongestText))
        clean += static_cast<unsigned char>(c) < 0x20 || c == 0x7F ? ' ' : c;
    // A cut must not leave half a character of UTF-8.
    while (text.size() > kLongestText && !clean.empty() && (clean.back() & 0x80) != 0)
        clean.pop_back();
    return clean;
}

std::string ShellWord(const std::string &text)
{
    const std::string word = Printable(text);
    if (!word.empty() && word[0] != '-' && std::all_of(word.begin(), word.end(), IsPlainInShell))
        return word;
    std::string quoted = "'";
    for (const char c : word)
        quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return quoted + "'";
}

} // namespace orv
