#pragma once

#include "orvimage/Convert.h"

#include <string_view>

namespace orv {

/// Most entries of a colour map: the levels of 16-bit samples.
constexpr int kMaxColourMapEntries = 65536;

/// Reads a colour map: entries "r,g,b" of numbers from 0 to 1, separated by ";", the last ";" optional. The decimal
/// point is a point under every locale; nothing else may stand between. \param colours  0xffRRGGBB; untouched when the
/// text is refused. \return false when the text is not such a map or has too many entries.
bool ParseColourMap(std::string_view text, LevelColours &colours);

} // namespace orv
