#include "orvsupport/ParamText.h"

#include "orvsupport/OrvParamStorage.h"

#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <locale.h>
#include <strings.h>

namespace orv {
namespace {

locale_t CLocale()
{
    static const locale_t s_locale = newlocale(LC_ALL_MASK, "C", nullptr);
    return s_locale;
}

/// Gives the calling thread the "C" locale for a scope, whatever the process has set.
class ScopedCLocale {
public:
    ScopedCLocale() : m_previous(uselocale(CLocale())) {}
    ~ScopedCLocale() { uselocale(m_previous); }
    ScopedCLocale(const ScopedCLocale &) = delete;
    ScopedCLocale &operator=(const ScopedCLocale &) = delete;

private:
    locale_t m_previous;
};

/// A printf format of one conversion, taken apart.
struct Conversion {
    std::string before;  ///< text in front, as written (with "%%")
    std::string options; ///< flags, width and precision
    char letter = 0;
    std::string after;
};

const char *SkipDigits(const char *at)
{
    return at + std::strspn(at, "0123456789");
}

/// Takes the options and the letter of the conversion that starts behind a '%'; null when it is none.
const char *TakeConversion(const char *at, Conversion *conversion)
{
    constexpr int kMaxDigits = 3;
    const char *const flagsEnd = at + std::strspn(at, "-+ #0");
    const char *end = SkipDigits(flagsEnd);
    if (end - flagsEnd > kMaxDigits)
        return nullptr;
    if (*end == '.') {
        const char *const precision = end + 1;
        end = SkipDigits(precision);
        if (end - precision > kMaxDigits)
            return nullptr;
    }
    conversion->options.assign(at, end);
    end += std::strspn(end, "hlLqjzt");
    if (*end == '\0')
        return nullptr;
    conversion->letter = *end;
    return end + 1;
}

bool TakeApart(const char *format, Conversion *conversion)
{
    std::string *literal = &conversion->before;
    while (*format != '\0') {
        if (format[0] != '%') {
            literal->push_back(*format++);
        } else if (format[1] == '%') {
            literal->append("%%");
            format += 2;
        } else {
            if (conversion->letter != 0)
                return false;
            format = TakeConversion(format + 1, conversion);
            if (format == nullptr)
                return false;
            literal = &conversion->after;
        }
    }
    return conversion->letter != 0;
}

bool IsOneOf(char letter, const char *letters)
{
    return letter != 0 && std::strchr(letters, letter) != nullptr;
}

constexpr char kSignedLetters[] = "di";
constexpr char kUnsignedLetters[] = "uoxX";
constexpr char kFloatLetters[] = "aAeEfFgG";

template <class Value> std::string Print(const Conversion &conversion, const char *lengthModifier, Value value)
{
    const std::string format =
        conversion.before + '%' + conversion.options + lengthModifier + conversion.letter + conversion.after;
    const ScopedCLocale cLocale;
    const int length = std::snprintf(nullptr, 0, format.c_str(), value);
    if (length < 0)
        return {};
    std::string text(static_cast<std::size_t>(length) + 1, '\0');
    std::snprintf(text.data(), text.size(), format.c_str(), value);
    text.pop_back();
    return text;
}

template <class Value> std::string Shortest(Value value)
{
    char digits[64]; // the longest double takes 24
    const auto result = std::to_chars(digits, digits + sizeof digits, value);
    return {digits, result.ptr};
}

int HexDigit(char digit)
{
    if (digit >= '0' && digit <= '9')
        return digit - '0';
    const char lower = static_cast<char>(digit | 0x20);
    return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

} // namespace

std::uint32_t FormatInt(const char *format, std::int64_t value, std::string *text)
{
    if (format == nullptr) {
        *text = Shortest(value);
        return ORV_PARAM_OK;
    }
    Conversion conversion;
    if (!TakeApart(format, &conversion))
        return ORV_PARAM_INVALID_ARGUMENT;
    if (IsOneOf(conversion.letter, kSignedLetters))
        *text = Print(conversion, "ll", static_cast<long long>(value));
    else if (IsOneOf(conversion.letter, kUnsignedLetters))
        *text = Print(conversion, "ll", static_cast<unsigned long long>(value));
    else if (IsOneOf(conversion.letter, kFloatLetters))
        *text = Print(conversion, "", static_cast<double>(value));
    else
        return ORV_PARAM_INVALID_ARGUMENT;
    return ORV_PARAM_OK;
}

std::uint32_t FormatFloat(const char *format, double value, std::string *text)
{
    if (format == nullptr) {
        *text = Shortest(value);
        return ORV_PARAM_OK;
    }
    Conversion conversion;
    if (!TakeApart(format, &conversion) || !IsOneOf(conversion.letter, kFloatLetters))
        return ORV_PARAM_INVALID_ARGUMENT;
    *text = Print(conversion, "", value);
    return ORV_PARAM_OK;
}

std::uint32_t FormatString(const char *format, const std::string &value, std::string *text)
{
    if (format == nullptr) {
        *text = value;
        return ORV_PARAM_OK;
    }
    Conversion conversion;
    if (!TakeApart(format, &conversion) || conversion.letter != 's')
        return ORV_PARAM_INVALID_ARGUMENT;
    *text = Print(conversion, "", value.c_str());
    return ORV_PARAM_OK;
}

std::string HexText(const std::string &bytes)
{
    constexpr char kDigits[] = "0123456789abcdef";
    std::string text;
    text.reserve(2 * bytes.size());
    for (const char byte : bytes) {
        const auto value = static_cast<unsigned char>(byte);
        text.push_back(kDigits[value >> 4]);
        text.push_back(kDigits[value & 0xF]);
    }
    return text;
}

std::uint32_t ParseInt(const char *text, std::int64_t *value)
{
    if (text[0] == '+' && text[1] != '-')
        ++text;
    const char *const end = text + std::strlen(text);
    std::int64_t parsed = 0;
    const auto result = std::from_chars(text, end, parsed);
    if (result.ec == std::errc::invalid_argument || result.ptr != end)
        return ORV_PARAM_BAD_VALUE;
    if (result.ec == std::errc::result_out_of_range) {
        using Limits = std::numeric_limits<std::int64_t>;
        *value = text[0] == '-' ? Limits::min() : Limits::max();
        return ORV_PARAM_CLAMPED;
    }
    *value = parsed;
    return ORV_PARAM_OK;
}

std::uint32_t ParseFloat(const char *text, double *value)
{
    if (text[0] == '\0' || std::strchr(" \t\n\v\f\r", text[0]) != nullptr)
        return ORV_PARAM_BAD_VALUE;
    char *end = nullptr;
    const double parsed = strtod_l(text, &end, CLocale());
    if (*end != '\0' || std::isnan(parsed))
        return ORV_PARAM_BAD_VALUE;
    *value = parsed;
    return ORV_PARAM_OK;
}

std::uint32_t ParseBool(const char *text, bool *value)
{
    const bool isTrue = std::strcmp(text, "1") == 0 || strcasecmp(text, "true") == 0;
    if (!isTrue && std::strcmp(text, "0") != 0 && strcasecmp(text, "false") != 0)
        return ORV_PARAM_BAD_VALUE;
    *value = isTrue;
    return ORV_PARAM_OK;
}

std::uint32_t ParseHex(const char *text, std::string *bytes)
{
    const std::size_t length = std::strlen(text);
    if (length % 2 != 0)
        return ORV_PARAM_BAD_VALUE;
    std::string parsed;
    parsed.reserve(length / 2);
    for (std::size_t at = 0; at < length; at += 2) {
        const int high = HexDigit(text[at]);
        const int low = HexDigit(text[at + 1]);
        if (high < 0 || low < 0)
            return ORV_PARAM_BAD_VALUE;
        parsed.push_back(static_cast<char>(high << 4 | low));
    }
    *bytes = std::move(parsed);
    return ORV_PARAM_OK;
}

} // namespace orv
