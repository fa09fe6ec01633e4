#include "orvdisplay/ColourMap.h"

#include <charconv>

namespace orv {

namespace {

/// Reads a number from 0 to 1 off the front.
bool TakeLevel(std::string_view &text, std::uint32_t &level)
{
    double value = 0;
    const auto [rest, error] = std::from_chars(text.data(), text.data() + text.size(), value, std::chars_format::fixed);
    if (error != std::errc() || !(value >= 0 && value <= 1))
        return false;
    level = static_cast<std::uint32_t>(value * 255 + 0.5);
    text.remove_prefix(static_cast<std::size_t>(rest - text.data()));
    return true;
}

bool TakeLetter(std::string_view &text, char letter)
{
    if (text.empty() || text.front() != letter)
        return false;
    text.remove_prefix(1);
    return true;
}

} // namespace

bool ParseColourMap(std::string_view text, LevelColours &colours)
{
    LevelColours entries;
    while (!text.empty()) {
        std::uint32_t red = 0;
        std::uint32_t green = 0;
        std::uint32_t blue = 0;
        if (!TakeLevel(text, red) || !TakeLetter(text, ',') || !TakeLevel(text, green) || !TakeLetter(text, ',') ||
            !TakeLevel(text, blue) || entries.size() == kMaxColourMapEntries)
            return false;
        entries.push_back(0xff000000U | red << 16 | green << 8 | blue);
        if (!text.empty() && !TakeLetter(text, ';'))
            return false;
    }
    if (entries.empty())
        return false;
    colours = std::move(entries);
    return true;
}

} // namespace orv
