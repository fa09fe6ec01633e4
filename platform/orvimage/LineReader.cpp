#include "orvimage/LineReader.h"

#include "orvimage/Colour.h"
#include "orvimage/Kernels.h"
#include "orvimage/Samples.h"

#include <algorithm>
#include <numeric>

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

ColourReader::ColourReader(const PixelSource &source, int begin, int end, LevelColours colours)
    : m_source(source), m_begin(FirstToRead(source, begin)), m_end(EndToRead(source, end)), m_shown(begin - m_begin),
      m_shownCount(end - begin), m_lines(source, m_begin, m_end), m_colours(std::move(colours))
{
}

void ColourReader::Pick(int y, const int *columns, int count, std::uint32_t *colours)
{
    if (!m_colours.empty())
        return PickLevels(y, columns, count, colours);
    const PixelLayout &layout = m_source.layout;
    if (layout.family == PixelFamily::Bayer) {
        m_demosaiced.resize(static_cast<std::size_t>(m_end - m_begin));
        Demosaic(y, m_demosaiced.data());
        for (int i = 0; i < count; ++i)
            colours[i] = m_demosaiced[static_cast<std::size_t>(columns[i] - m_begin)];
        return;
    }
    const std::uint8_t *const samples = m_lines.Line(y);
    if (layout.family == PixelFamily::Yuv422)
        return PickYuv422(samples, columns, count, colours);
    const int step = layout.samplesPerPixel;
    const int place[3] = {layout.place[0], layout.place[1], layout.place[2]};
    for (int i = 0; i < count; ++i) {
        const std::uint8_t *const pixel = samples + (columns[i] - m_begin) * step;
        if (layout.family == PixelFamily::Mono)
            colours[i] = Grey(*pixel);
        else if (layout.family == PixelFamily::Rgb)
            colours[i] = PackColour(pixel[place[0]], pixel[place[1]], pixel[place[2]]);
        else
            colours[i] = YuvToColour(pixel[place[0]], pixel[place[1]], pixel[place[2]]);
    }
}

void ColourReader::PickAll(int y, std::uint32_t *colours)
{
    if (m_colours.empty() && m_source.layout.family == PixelFamily::Mono)
        return BytesToGrey(m_lines.Line(y), m_shownCount, colours);
    if (m_source.layout.family == PixelFamily::Bayer && m_shownCount == m_end - m_begin)
        return Demosaic(y, colours);
    std::vector<int> columns(static_cast<std::size_t>(m_shownCount));
    std::iota(columns.begin(), columns.end(), m_begin + m_shown);
    Pick(y, columns.data(), m_shownCount, colours);
}

void ColourReader::PickLevels(int y, const int *columns, int count, std::uint32_t *colours)
{
    m_levels.resize(static_cast<std::size_t>(m_end - m_begin));
    UnpackSamples(m_source.Line(y), m_source.layout, m_begin, m_end - m_begin, m_levels.data());
    const std::size_t top = m_colours.size() - 1;
    for (int i = 0; i < count; ++i)
        colours[i] = m_colours[std::min<std::size_t>(m_levels[static_cast<std::size_t>(columns[i] - m_begin)], top)];
}

void ColourReader::PickYuv422(const std::uint8_t *samples, const int *columns, int count, std::uint32_t *colours) const
{
    const int pixels = m_end - m_begin;
    for (int i = 0; i < count; ++i) {
        const YuvPlaces places = PlacesOfYuv422(m_source.layout, columns[i] - m_begin, pixels);
        const int u = places.u < 2 * pixels ? samples[places.u] : 128;
        const int v = places.v < 2 * pixels ? samples[places.v] : 128;
        colours[i] = YuvToColour(samples[places.luma], u, v);
    }
}

void ColourReader::Demosaic(int y, std::uint32_t *colours)
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
    DemosaicLine(lines, m_end - m_begin, colours);
}

} // namespace orv
