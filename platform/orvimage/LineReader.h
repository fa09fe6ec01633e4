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

/// Chosen pixels of an image's lines. One thread.
class PixelPicker {
public:
    /// \param begin, end  pixels that will be asked for.
    /// \param colours  by stored level, see ColoursByLevel; empty for none.
    PixelPicker(const PixelSource &source, int begin, int end, LevelColours colours);

    /// The pixels at `columns` of line y: colours, or 0xffYYUUVV for YUV.
    void Pick(int y, const std::vector<int> &columns, std::uint32_t *pixels);
    /// Picked pixels, averaged or not, to colours, in place.
    void ToColours(int count, std::uint32_t *pixels) const;

private:
    void PickLevels(int y, const std::vector<int> &columns, std::uint32_t *pixels);
    void PickMosaic(int y, const std::vector<int> &columns, std::uint32_t *pixels);
    void PickYuv422(int y, const std::vector<int> &columns, std::uint32_t *pixels);
    /// Three samples per pixel, from any of their places.
    void PickTriples(int y, const std::vector<int> &columns, std::uint32_t *pixels);
    void Demosaic(int y);

    const PixelSource m_source;
    const int m_begin; // the pixels that are read, which may be some more than those asked for
    const int m_end;
    LineReader m_lines;
    LevelColours m_colours;
    std::vector<std::uint16_t> m_levels;
    std::vector<std::uint32_t> m_demosaiced;
};

} // namespace orv
