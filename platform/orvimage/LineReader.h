#pragma once

#include "orvimage/Convert.h"
#include "orvimage/PixelLayout.h"

#include <cstdint>
#include <vector>

namespace orv {

/// Lines of an image as 8-bit samples, over a range of its pixels.
///
/// Lines that are 8-bit in memory are not copied. One thread.
class LineReader {
public:
    /// The range's ends count pixels.
    LineReader(const PixelSource &source, int begin, int end);

    /// The line's samples from the range's first pixel on. Valid until the fourth other line is asked for.
    const std::uint8_t *Line(int y);

private:
    static constexpr int kSlots = 4; // a colour filter cell of two lines, twice; or three lines of a mosaic

    struct Slot {
        int y = -1;
        unsigned lastUse = 0;
        std::vector<std::uint8_t> samples;
    };

    const PixelSource m_source;
    const int m_first; // samples
    const int m_count;
    Slot m_slots[kSlots];
    unsigned m_uses = 0;
};

/// Chosen pixels of an image's lines as colours. One thread.
class ColourReader {
public:
    /// \param begin, end  pixels that will be asked for.
    /// \param colours  by stored level, see ColoursByLevel; empty for none.
    ColourReader(const PixelSource &source, int begin, int end, LevelColours colours);

    /// Colours of the pixels at `columns` of line y.
    void Pick(int y, const int *columns, int count, std::uint32_t *colours);
    /// Colours of all pixels of the range.
    void PickAll(int y, std::uint32_t *colours);

private:
    void PickLevels(int y, const int *columns, int count, std::uint32_t *colours);
    void PickYuv422(const std::uint8_t *samples, const int *columns, int count, std::uint32_t *colours) const;
    void Demosaic(int y, std::uint32_t *colours);

    const PixelSource m_source;
    const int m_begin; // the pixels that are read, which may be some more than those asked for
    const int m_end;
    const int m_shown; // first pixel asked for, counted from m_begin
    const int m_shownCount;
    LineReader m_lines;
    LevelColours m_colours;
    std::vector<std::uint16_t> m_levels;
    std::vector<std::uint32_t> m_demosaiced;
};

} // namespace orv
