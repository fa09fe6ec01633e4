#include "orvcam/Text.h"

#include <charconv>

namespace orv::cam {

namespace {

template <class Number> bool ParseWhole(const std::string &text, Number *value)
{
    const auto result = std::from_chars(text.data(), text.data() + text.size(), *value);
    return result.ec == std::errc() && result.ptr == text.data() + text.size();
}

} // namespace

bool IsUtf8(const std::string &bytes)
{
    std::size_t follow = 0;
    for (const char c : bytes) {
        const auto byte = static_cast<unsigned char>(c);
        if (follow > 0) {
            if ((byte & 0xC0) != 0x80)
                return false;
            --follow;
        } else if (byte >= 0x80) {
            follow = byte >= 0xF5 ? 0 : byte >= 0xF0 ? 3 : byte >= 0xE0 ? 2 : byte >= 0xC2 ? 1 : 0;
            if (follow == 0)
                return false;
        }
    }
    return follow == 0;
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
