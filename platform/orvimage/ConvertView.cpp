#include "orvimage/Colour.h"
#include "orvimage/Convert.h"
#include "orvimage/Kernels.h"
#include "orvimage/LineReader.h"
#include "orvimage/PixelFormats.h"
#include "orvimage/ViewPlan.h"

#include <algorithm>
#include <cstring>
#include <memory>

namespace orv {

namespace {

void Fill(std::uint32_t *first, int count, std::uint32_t colour)
{
    std::fill_n(first, std::max(count, 0), colour);
}

/// Bits of the units that an axis takes, counted from its first.
std::vector<std::uint8_t> SelectionOf(const AxisPlan &axis)
{
    const int first = axis.FirstUnit();
    std::vector<std::uint8_t> bits(static_cast<std::size_t>(axis.LastUnit() - first) / 8 + 1 + kKernelSlack);
    for (const int unit : axis.units)
        bits[static_cast<std::size_t>(unit - first) / 8] |= static_cast<std::uint8_t>(1U << (unit - first) % 8);
    return bits;
}

/// For fetching ahead; 0 where the kernels do not read the image's memory itself.
std::ptrdiff_t LineBytesApart(const PixelSource &source, int lines)
{
    const bool isInPlace =
        source.layout.packing == SamplePacking::Bytes || source.layout.packing == SamplePacking::Words;
    if (!isInPlace)
        return 0;
    const std::size_t pitch =
        source.isContinuous ? LineBytes(source.layout, static_cast<std::uint32_t>(source.width)) : source.pitch;
    return lines * static_cast<std::ptrdiff_t>(pitch);
}

/// Writes the part of one window line that shows the image.
class LinePainter {
public:
    virtual ~LinePainter() = default;
    /// \param units  image lines, or lines of cells: as many as the plan's vertical taps.
    /// \param unitsToNext  from these to those of the line painted next.
    virtual void Paint(const int *units, int unitsToNext, std::uint32_t *pixels) = 0;
};

/// Up to 50 %, mono: adds two lines, or a line and itself one pixel on, and takes the wanted columns out of the sum.
class ShrunkMono : public LinePainter {
public:
    ShrunkMono(const PixelSource &source, const ViewPlan &plan)
        : m_source(source), m_inPairs(plan.sampling == Sampling::TwoPairs), m_first(plan.x.FirstUnit()),
          m_columns(plan.x.LastUnit() - m_first + 1), m_pixels(plan.x.Pixels()), m_selection(SelectionOf(plan.x)),
          m_lines(source, m_first, m_first + m_columns + (m_inPairs ? 1 : 0)),
          m_sums(plan.x.units.size() + kKernelSlack)
    {
    }

    void Paint(const int *units, int unitsToNext, std::uint32_t *pixels) override
    {
        const Selection selection{m_selection.data(), m_columns};
        if (m_source.layout.packing == SamplePacking::Words) {
            const std::uint8_t *const words = WordsOf(units[0]);
            const LinePair lines{words, m_inPairs ? words + 2 : WordsOf(units[1]),
                                 LineBytesApart(m_source, unitsToNext)};
            PickWords(lines, m_source.ShiftToEight(), selection, m_sums.data());
        } else {
            const std::uint8_t *const bytes = m_lines.Line(units[0]);
            const LinePair lines{bytes, m_inPairs ? bytes + 1 : m_lines.Line(units[1]),
                                 LineBytesApart(m_source, unitsToNext)};
            PickBytes(lines, selection, m_sums.data());
        }
        PairsToGrey(m_sums.data(), m_pixels, pixels);
    }

private:
    const std::uint8_t *WordsOf(int y) const
    {
        const SampleRun line = m_source.Line(y);
        return line.origin + 2 * (line.first + static_cast<unsigned>(m_first));
    }

    const PixelSource m_source;
    const bool m_inPairs;
    const int m_first;
    const int m_columns;
    const int m_pixels;
    const std::vector<std::uint8_t> m_selection;
    LineReader m_lines;
    std::vector<std::uint16_t> m_sums;
};

/// Below 50 %, Bayer: adds the samples of cells, no demosaicing.
class ShrunkBayer : public LinePainter {
public:
    ShrunkBayer(const PixelSource &source, const AxisPlan &axis)
        : m_source(source), m_taps(axis.taps), m_cells(axis.LastUnit() - axis.FirstUnit() + 1), m_pixels(axis.Pixels()),
          m_selection(SelectionOf(axis)), m_lines(source, 2 * axis.FirstUnit(), 2 * axis.LastUnit() + 2),
          m_stride(axis.units.size() + kKernelSlack), m_sums(3 * m_stride)
    {
    }

    void Paint(const int *units, int unitsToNext, std::uint32_t *pixels) override
    {
        CellLines lines{};
        if (m_source.layout.packing == SamplePacking::Bytes)
            lines.bytesToNext = LineBytesApart(m_source, 2 * unitsToNext);
        for (int tap = 0; tap < m_taps; ++tap) {
            lines.red[tap] = m_lines.Line(2 * units[tap] + m_source.layout.redY);
            lines.blue[tap] = m_lines.Line(2 * units[tap] + 1 - m_source.layout.redY);
        }
        const CellSums sums{m_sums.data(), m_sums.data() + m_stride, m_sums.data() + 2 * m_stride};
        PickCells(lines, m_source.layout.redX, {m_selection.data(), m_cells}, sums);
        if (m_taps == 1)
            CellsToRgb(sums, m_pixels, pixels);
        else
            CellPairsToRgb(sums, m_pixels, pixels);
    }

private:
    const PixelSource m_source;
    const int m_taps;
    const int m_cells;
    const int m_pixels;
    const std::vector<std::uint8_t> m_selection;
    LineReader m_lines;
    const std::size_t m_stride;
    std::vector<std::uint16_t> m_sums; // red, green, blue
};

/// Everything else: picks the wanted pixels of image lines, then takes them as they are or averages them.
class PickedPixels : public LinePainter {
public:
    PickedPixels(const PixelSource &source, const ViewPlan &plan, LevelColours colours)
        : m_sampling(plan.sampling), m_pixels(plan.x.Pixels()), m_columns(plan.x.units), m_neighbours(m_columns),
          m_reader(source, plan.x.FirstUnit(), plan.x.LastUnit() + (m_sampling == Sampling::TwoPairs ? 2 : 1),
                   std::move(colours))
    {
        for (int &column : m_neighbours)
            ++column;
        for (CachedLine &line : m_cache)
            line.pixels.resize(m_columns.size());
    }

    void Paint(const int *units, int /*unitsToNext*/, std::uint32_t *pixels) override
    {
        if (m_sampling == Sampling::Nearest) {
            m_reader.Pick(units[0], m_columns, pixels);
        } else if (m_sampling == Sampling::TwoPairs) {
            m_reader.Pick(units[0], m_columns, m_cache[0].pixels.data());
            m_reader.Pick(units[0], m_neighbours, m_cache[1].pixels.data());
            MeansOfFour(m_cache[0].pixels.data(), m_cache[1].pixels.data(), m_pixels, pixels);
        } else {
            const std::uint32_t *const upper = PixelsOf(units[0]);
            MeansOfFour(upper, PixelsOf(units[1]), m_pixels, pixels);
        }
        m_reader.ToColours(m_pixels, pixels);
    }

private:
    struct CachedLine {
        int y = -1;
        std::vector<std::uint32_t> pixels;
    };

    /// Window lines often share image lines: the last two are kept. Valid until the call after the next.
    const std::uint32_t *PixelsOf(int y)
    {
        if (m_cache[m_newest].y != y)
            m_newest = 1 - m_newest;
        CachedLine &line = m_cache[m_newest];
        if (line.y != y) {
            m_reader.Pick(y, m_columns, line.pixels.data());
            line.y = y;
        }
        return line.pixels.data();
    }

    const Sampling m_sampling;
    const int m_pixels; ///< window pixels
    const std::vector<int> m_columns;
    std::vector<int> m_neighbours; ///< the columns' right neighbours
    PixelPicker m_reader;
    CachedLine m_cache[2];
    int m_newest = 0;
};

std::unique_ptr<LinePainter> PainterFor(const PixelSource &source, const ViewPlan &plan, const ViewTransform &view,
                                        LevelColours colours)
{
    if (plan.ByCells())
        return std::make_unique<ShrunkBayer>(source, plan.x);
    const bool hasTwoColumns = source.width >= 2; // else units repeat, which adding columns cannot do
    if (source.layout.family == PixelFamily::Mono && colours.empty() && view.scale <= 0.5 && hasTwoColumns)
        return std::make_unique<ShrunkMono>(source, plan);
    return std::make_unique<PickedPixels>(source, plan, std::move(colours));
}

/// Paints the window lines begin .. end - 1; neighbours that show the same image line are copied.
void PaintLines(LinePainter &painter, const ViewPlan &plan, const ViewTarget &target)
{
    const AxisPlan &y = plan.y;
    const auto count = static_cast<std::size_t>(plan.x.Pixels());
    const std::uint32_t *previous = nullptr;
    for (int line = y.begin; line < y.end; ++line) {
        std::uint32_t *const pixels = target.pixels + line * target.stride + plan.x.begin;
        const bool isRepeated =
            previous != nullptr && std::equal(y.UnitsOf(line), y.UnitsOf(line) + y.taps, y.UnitsOf(line - 1));
        const int unitsToNext = line + 1 < y.end ? *y.UnitsOf(line + 1) - *y.UnitsOf(line) : 0;
        if (isRepeated)
            std::memcpy(pixels, previous, count * sizeof *pixels);
        else
            painter.Paint(y.UnitsOf(line), unitsToNext, pixels);
        previous = pixels;
    }
}

void PaintBackground(const ViewPlan &plan, const ViewTarget &target)
{
    for (int y = 0; y < target.height; ++y) {
        std::uint32_t *const line = target.pixels + y * target.stride;
        if (plan.IsEmpty() || y < plan.y.begin || y >= plan.y.end) {
            Fill(line, target.width, target.background);
            continue;
        }
        Fill(line, plan.x.begin, target.background);
        Fill(line + plan.x.end, target.width - plan.x.end, target.background);
    }
}

} // namespace

bool IsDisplayable(std::uint32_t pixelType)
{
    return LayoutOf(pixelType).family != PixelFamily::Unknown;
}

int ConvertView(const _OrvImage *image, const ViewTransform &view, const ViewTarget &target,
                const LevelColours *colours)
{
    PixelSource source;
    const int status = OpenPixelSource(image, source);
    if (status != ORV_IMAGE_OK)
        return status;
    if (!IsUsable(view, target))
        return ORV_IMAGE_ERR_INVALID_ARGUMENT;
    const ViewPlan plan = PlanView(source, view, target);
    PaintBackground(plan, target);
    if (!plan.IsEmpty())
        PaintLines(*PainterFor(source, plan, view, ColoursByLevel(source, colours)), plan, target);
    return ORV_IMAGE_OK;
}

} // namespace orv
