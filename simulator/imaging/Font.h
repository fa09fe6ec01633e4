#pragma once

#include <cstdint>
#include <string_view>

namespace orvsim {

/// A dot-matrix font: capitals, digits and punctuation. Small letters show as capitals, what the font lacks as a frame.
constexpr int kGlyphWidth = 5; ///< dots
constexpr int kGlyphHeight = 7;
constexpr int kGlyphPitch = 6; ///< from one character to the next

/// True where the character has a dot; positions outside the glyph have none.
bool HasDot(char character, int column, int row);

/// Dots from the first to the last column of a text.
constexpr int TextWidth(std::string_view text)
{
    return text.empty() ? 0 : static_cast<int>(text.size()) * kGlyphPitch - (kGlyphPitch - kGlyphWidth);
}

} // namespace orvsim
