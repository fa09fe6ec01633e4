#pragma once

#include "base/Bytes.h"

#include <cstdint>
#include <string>
#include <vector>

/// Bytes written as in a dump: "42 01 00 02".
inline std::vector<std::uint8_t> FromHex(const std::string &dump)
{
    std::vector<std::uint8_t> bytes;
    std::string digits;
    for (char c : dump) {
        if (c == ' ' || c == '\n')
            continue;
        digits += c;
        if (digits.size() == 2) {
            bytes.push_back(static_cast<std::uint8_t>(std::stoi(digits, nullptr, 16)));
            digits.clear();
        }
    }
    return bytes;
}

inline orv::ByteSpan SpanOf(const std::vector<std::uint8_t> &bytes)
{
    return {bytes.data(), bytes.size()};
}
