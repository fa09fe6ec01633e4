#include "orvcam/Text.h"

#include <charconv>
#include <cstdint>

namespace orv::cam {

namespace {

template <class Number> bool ParseWhole(const std::string &text, Number *value)
{
    const auto result = std::from_chars(text.data(), text.data() + text.size(), *value);
    return result.ec == std::errc() && result.ptr == text.data() + text.size();
}

} // namespace

std::size_t CharacterBytes(const std::string &text, std::size_t at)
{
    const auto first = static_cast<unsigned char>(text[at]);
    if (first < 0x80)
        return 1;
    const std::size_t length = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
    if (first < 0xC2 || first > 0xF4 || at + length > text.size())
        return 0;
    std::uint32_t code = first & (0x7Fu >> length);
    for (std::size_t i = 1; i < length; ++i) {
        const auto byte = static_cast<unsigned char>(text[at + i]);
        if ((byte & 0xC0) != 0x80)
            return 0;
        code = code << 6 | (byte & 0x3F);
    }
    const bool isOverlong = (length == 3 && code < 0x800) || (length == 4 && code < 0x10000);
    const bool isSurrogate = code >= 0xD800 && code <= 0xDFFF;
    return isOverlong || isSurrogate || code > 0x10FFFF || code == 0xFFFE || code == 0xFFFF ? 0 : length;
}

bool IsUtf8(const std::string &bytes)
{
    for (std::size_t at = 0; at < bytes.size();) {
        const std::size_t length = CharacterBytes(bytes, at);
        if (length == 0)
            return false;
        at += length;
    }
    return true;
}

std::string ToUtf8(const std::string &bytes)
{
    if (IsUtf8(bytes))
        return bytes;
    std::string text;
    for (const char c : bytes) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte >= 0x80) {
            text += static_cast<char>(0xC0 | byte >> 6);
            text += static_cast<char>(0x80 | (byte & 0x3F));
        } else {
            text += c;
        }
    }
    return text;
}

std::string Trimmed(const std::string &text)
{
    static const char kBlanks[] = " \t\r\n";
    const std::size_t first = text.find_first_not_of(kBlanks);
    if (first == std::string::npos)
        return std::string();
    return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

std::string XmlEscaped(const std::string &text)
{
    std::string out;
    out.reserve(text.size());
    for (const char c : text) {
        switch (c) {
        case '&':
            out += "&amp;";
            break;
        case '<':
            out += "&lt;";
            break;
        case '>':
            out += "&gt;";
            break;
        case '"':
            out += "&quot;";
            break;
        default:
            out += c;
        }
    }
    return out;
}

std::string FormatDouble(double value)
{
    char text[64];
    const auto result = std::to_chars(text, text + sizeof text, value);
    return std::string(text, result.ptr);
}

bool ParseDouble(const std::string &text, double *value)
{
    return ParseWhole(text, value);
}

bool ParseInteger(const std::string &text, long long *value)
{
    return ParseWhole(text, value);
}

} // namespace orv::cam
