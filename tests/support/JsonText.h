#pragma once

#include <cstdlib>
#include <string>

/// The raw text of a member in JSON that is known to be flat where it is looked for; "" when there is none.
inline std::string Member(const std::string &json, const std::string &key)
{
    const std::string mark = "\"" + key + "\": ";
    const std::size_t begin = json.find(mark);
    if (begin == std::string::npos)
        return {};
    const std::size_t value = begin + mark.size();
    const bool isText = json[value] == '"';
    const std::size_t end = isText ? json.find('"', value + 1) + 1 : json.find_first_of(",}]", value);
    return json.substr(value, end - value);
}

/// The same without its quotation marks.
inline std::string MemberText(const std::string &json, const std::string &key)
{
    const std::string text = Member(json, key);
    return text.size() < 2 ? text : text.substr(1, text.size() - 2);
}

inline double Figure(const std::string &json, const std::string &key)
{
    const std::string text = Member(json, key);
    return text.empty() ? -1 : std::strtod(text.c_str(), nullptr);
}
