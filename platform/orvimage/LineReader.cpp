#include "orvimage/LineReader.h"

#include "orvimage/Colour.h"
#include "orvimage/Kernels.h"
#include "orvimage/Samples.h"

#include <algorithm>

namespace orv {

namespace {

/// The pixels to read so that those asked for can be computed: a neighbour on each side of a mosaic's, whole pairs and
/// the pair before of 4:2:2.
int FirstToRead(const PixelSource &source, int begin)
{
    if (source.layout.family == PixelFamily::Bayer)
        return std::max(0, begin - 1);
    if (source.layout.family == PixelFamily::Yuv422)
        return std::max(0, begin / 2 * 2 - 2);
    return begin;
}

int EndToRead(const PixelSource &source, int end)
{
    const bool needsNext = source.layout.family == PixelFamily::Bayer || source.layout.family == PixelFamily::Yuv422;
    return needsNext ? std::min(source.width, end + 1) : end;
}

} // namespace

LineReader::LineReader(const PixelSource &source, int begin, int end)
    : m_source(source), m_first(begin * source.layout.samplesPerPixel),
      m_count((end - begin) * source.layout.samplesPerPixel)
{
}

const std::uint8_t *LineReader::Line(int y)
{
    const SampleRun run = m_source.Line(y);
    if (m_source.layout.packing == SamplePacking::Bytes)
        return run.origin + run.first + m_first;
    Slot *oldest = &m_slots[0];
    for (Slot &slot : m_slots) {
        if (slot.y == y) {
            slot.lastUse = ++m_uses;
            return slot.samples.data();
        }
        if (slot.lastUse < oldest->lastUse)
            oldest = &slot;
    }
    oldest->y = y;
    oldest->lastUse = ++m_uses;
    oldest->samples.resize(static_cast<std::size_t>(m_count));
    UnpackToEight(run, m_source.layout, m_source.ShiftToEight(), m_first, m_count, oldest->samples.data());
    return oldest->samples.data();
}

PixelPicker::PixelPicker(const PixelSource &source, int begin, int end, LevelColours colours)
    : m_source(source), m_begin(FirstToRead(source, begin)), m_end(EndToRead(source, end)),
      m_lines(source, m_begin, m_end), m_colours(std::move(colours))
{
}

void PixelPicker::Pick(int y, const std::vector<int> &columns, std::uint32_t *pixels)
{
    switch (m_source.layout.family) {
    case PixelFamily::Mono:
        return PickLevels(y, columns, pixels);
    case PixelFamily::Bayer:
        return PickMosaic(y, columns, pixels);
    case PixelFamily::Yuv422:
        return PickYuv422(y, columns, pixels);
    default:
        return PickTriples(y, columns, pixels);
    }
}

void PixelPicker::ToColours(int count, std::uint32_t *pixels) const
{
    const PixelFamily family = m_source.layout.family;
    if (family == PixelFamily::Yuv422 || family == PixelFamily::Yuv444)
        YuvToColours(count, pixels);
}

void PixelPicker::PickLevels(int y, const std::vector<int> &columns, std::uint32_t *pixels)
{
    if (m_colours.empty()) {
        const std::uint8_t *const samples = m_lines.Line(y);
        for (const int column : columns)
            *pixels++ = Grey(samples[column - m_begin]);
        return;
    }
    m_levels.resize(static_cast<std::size_t>(m_end - m_begin));
    UnpackSamples(m_source.Line(y), m_source.layout, m_begin, m_end - m_begin, m_levels.data());
    const std::size_t top = m_colours.size() - 1;
    for (const int column : columns)
        *pixels++ = m_colours[std::min<std::size_t>(m_levels[static_cast<std::size_t>(column - m_begin)], top)];
}

void PixelPicker::PickMosaic(int y, const std::vector<int> &columns, std::uint32_t *pixels)
{
    Demosaic(y);
    const std::uint32_t *const colours = m_demosaiced.data();
    for (const int column : columns)
        *pixels++ = colours[column - m_begin];
}

void PixelPicker::PickTriples(int y, const std::vector<int> &columns, std::uint32_t *pixels)
{
    const int step = m_source.layout.samplesPerPixel;
    const std::uint8_t *const line = m_lines.Line(y);
    const std::uint8_t *const first = line + m_source.layout.place[0];
    const std::uint8_t *const second = line + m_source.layout.place[1];
    const std::uint8_t *const third = line + m_source.layout.place[2];
    for (const int column : columns) {
        const std::ptrdiff_t at = (column - m_begin) * step;
        *pixels++ = PackColour(first[at], second[at], third[at]);
    }
}

void PixelPicker::PickYuv422(int y, const std::vector<int> &columns, std::uint32_t *pixels)
{
    const std::uint8_t *const samples = m_lines.Line(y);
    const int width = m_end - m_begin;
    for (const int column : columns) {
        const YuvPlaces places = PlacesOfYuv422(m_source.layout, column - m_begin, width);
        const int u = places.u < 2 * width ? samples[places.u] : 128;
        const int v = places.v < 2 * width ? samples[places.v] : 128;
        *pixels++ = PackColour(samples[places.luma], u, v);
    }
}

void PixelPicker::Demosaic(int y)
{
    const int last = m_source.height - 1;
    const int aboveY = y > 0 ? y - 1 : std::min(1, last);
    const int belowY = y < last ? y + 1 : std::max(0, last - 1);
    MosaicLines lines{};
    lines.above = m_lines.Line(aboveY);
    lines.here = m_lines.Line(y);
    lines.below = m_lines.Line(belowY);
    lines.isRedLine = y % 2 == m_source.layout.redY;
    const int siteX = lines.isRedLine ? m_source.layout.redX : 1 - m_source.layout.redX;
    lines.siteX = (siteX + m_begin) % 2;
    m_demosaiced.resize(static_cast<std::size_t>(m_end - m_begin));
    DemosaicLine(lines, m_end - m_begin, m_demosaiced.data());
}

} // namespace orv
