#include "cli/Json.h"

#include "orvcam/Text.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>

namespace orvcli {

std::string NumberText(double number)
{
    char text[64];
    const auto result = std::to_chars(text, text + sizeof text, number);
    return std::string(text, result.ptr);
}

void Json::Separate()
{
    if (!m_isFirst)
        m_text += ", ";
    m_isFirst = false;
}

Json &Json::Open(char bracket)
{
    Separate();
    m_text += bracket;
    m_isFirst = true;
    return *this;
}

Json &Json::Close(char bracket)
{
    m_text += bracket;
    m_isFirst = false;
    return *this;
}

Json &Json::Key(const std::string &key)
{
    Value(key);
    m_text += ": ";
    m_isFirst = true;
    return *this;
}

Json &Json::Value(const std::string &text)
{
    Separate();
    m_text += '"';
    for (std::size_t at = 0; at < text.size();) {
        const char c = text[at];
        const auto byte = static_cast<unsigned char>(c);
        const std::size_t length = orv::cam::CharacterBytes(text, at);
        if (c == '"' || c == '\\') {
            m_text += '\\';
            m_text += c;
        } else if (byte < 0x20 || byte == 0x7f) {
            char escaped[8];
            std::snprintf(escaped, sizeof escaped, "\\u%04x", byte);
            m_text += escaped;
        } else if (length == 0) {
            m_text += "\xef\xbf\xbd"; // U+FFFD
        } else {
            m_text.append(text, at, length);
        }
        at += std::max<std::size_t>(length, 1);
    }
    m_text += '"';
    return *this;
}

Json &Json::Value(bool value)
{
    return Raw(value ? "true" : "false");
}

Json &Json::Value(double number)
{
    return Raw(std::isfinite(number) ? NumberText(number) : "null");
}

Json &Json::Raw(const std::string &json)
{
    Separate();
    m_text += json;
    return *this;
}

} // namespace orvcli
