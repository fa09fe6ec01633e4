#include "orvimage/Colour.h"
#include "orvimage/Convert.h"
#include "orvimage/Samples.h"
#include "orvimage/ViewPlan.h"

#include <algorithm>

namespace orv::plain {

namespace {

/// Reads single pixels of an image.
class PixelReader {
public:
    PixelReader(const PixelSource &source, LevelColours colours) : m_source(source), m_colours(std::move(colours)) {}

    /// Luma and chroma of YUV are averaged as they are, so that they become a colour once per window pixel.
    std::uint32_t ToColour(std::uint32_t pixel) const
    {
        const PixelFamily family = m_source.layout.family;
        return family == PixelFamily::Yuv422 || family == PixelFamily::Yuv444 ? YuvToColour(pixel) : pixel;
    }

    /// A colour, or 0xffYYUUVV.
    std::uint32_t PixelAt(int x, int y) const
    {
        switch (m_source.layout.family) {
        case PixelFamily::Mono:
            return m_colours.empty() ? Grey(Eight(x, y)) : LevelColourAt(x, y);
        case PixelFamily::Bayer:
            return Demosaiced(x, y);
        case PixelFamily::Rgb:
            return RgbAt(x, y);
        case PixelFamily::Yuv422:
            return Yuv422At(x, y);
        case PixelFamily::Yuv444:
            return Yuv444At(x, y);
        case PixelFamily::Unknown:
            break;
        }
        return 0;
    }

    /// Adds a cell's samples: red, both greens, blue.
    void AddCell(int cellX, int cellY, int (&sums)[3]) const
    {
        for (int y = 2 * cellY; y < 2 * cellY + 2; ++y) {
            for (int x = 2 * cellX; x < 2 * cellX + 2; ++x)
                sums[ColourIndex(x, y)] += Eight(x, y);
        }
    }

private:
    std::uint16_t Raw(int k, int y) const
    {
        const SampleRun line = m_source.Line(y);
        return SampleAt(line, m_source.layout.packing, m_source.layout.bits, line.first + static_cast<unsigned>(k));
    }

    int Eight(int k, int y) const { return std::min(Raw(k, y) >> m_source.ShiftToEight(), 255); }

    std::uint32_t LevelColourAt(int x, int y) const
    {
        return m_colours[std::min<std::size_t>(Raw(x, y), m_colours.size() - 1)];
    }

    std::uint32_t RgbAt(int x, int y) const
    {
        const int first = x * m_source.layout.samplesPerPixel;
        const int *const place = m_source.layout.place;
        return PackColour(Eight(first + place[0], y), Eight(first + place[1], y), Eight(first + place[2], y));
    }

    std::uint32_t Yuv444At(int x, int y) const
    {
        const int *const place = m_source.layout.place;
        return PackColour(Eight(3 * x + place[0], y), Eight(3 * x + place[1], y), Eight(3 * x + place[2], y));
    }

    std::uint32_t Yuv422At(int x, int y) const
    {
        const YuvPlaces places = PlacesOfYuv422(m_source.layout, x, m_source.width);
        const int samples = m_source.SamplesPerLine();
        // Only a line of one pixel has no pair at all.
        const int u = places.u < samples ? Eight(places.u, y) : 128;
        const int v = places.v < samples ? Eight(places.v, y) : 128;
        return PackColour(Eight(places.luma, y), u, v);
    }

    /// 0 red, 1 green, 2 blue.
    int ColourIndex(int x, int y) const
    {
        const bool isRedLine = y % 2 == m_source.layout.redY;
        const bool isRedColumn = x % 2 == m_source.layout.redX;
        return isRedLine != isRedColumn ? 1 : isRedLine ? 0 : 2;
    }

    /// Mean, rounded half up, of those of the nine pixels around that have the wanted colour; the pixel itself when it
    /// has it. Beyond the edges the image is mirrored.
    int Interpolated(int x, int y, int wanted) const
    {
        if (ColourIndex(x, y) == wanted)
            return Eight(x, y);
        int sum = 0;
        int count = 0;
        for (int dy = -1; dy <= 1; ++dy) {
            for (int dx = -1; dx <= 1; ++dx) {
                if (ColourIndex(x + dx + 2, y + dy + 2) == wanted) {
                    sum += Eight(Mirrored(x + dx, m_source.width), Mirrored(y + dy, m_source.height));
                    ++count;
                }
            }
        }
        return (sum + count / 2) / count;
    }

    static int Mirrored(int position, int size)
    {
        if (position < 0)
            return std::min(1, size - 1);
        return position < size ? position : std::max(0, size - 2);
    }

    std::uint32_t Demosaiced(int x, int y) const
    {
        return PackColour(Interpolated(x, y, 0), Interpolated(x, y, 1), Interpolated(x, y, 2));
    }

    const PixelSource m_source;
    const LevelColours m_colours;
};

std::uint32_t CellsColour(const PixelReader &reader, const ViewPlan &plan, int windowX, int windowY)
{
    int sums[3] = {0, 0, 0};
    for (int j = 0; j < plan.y.taps; ++j) {
        for (int i = 0; i < plan.x.taps; ++i)
            reader.AddCell(plan.x.UnitsOf(windowX)[i], plan.y.UnitsOf(windowY)[j], sums);
    }
    const int cells = plan.x.taps * plan.y.taps;
    return PackColour((sums[0] + cells / 2) / cells, (sums[1] + cells) / (2 * cells), (sums[2] + cells / 2) / cells);
}

std::uint32_t WindowColour(const PixelReader &reader, const ViewPlan &plan, int windowX, int windowY)
{
    if (plan.ByCells())
        return CellsColour(reader, plan, windowX, windowY);
    const int *const x = plan.x.UnitsOf(windowX);
    const int *const y = plan.y.UnitsOf(windowY);
    if (plan.sampling == Sampling::Nearest)
        return reader.ToColour(reader.PixelAt(x[0], y[0]));
    const bool inPairs = plan.sampling == Sampling::TwoPairs;
    const int besideX = inPairs ? 1 : 0;
    const int secondY = inPairs ? y[0] : y[1];
    return reader.ToColour(MeanOfFour(reader.PixelAt(x[0], y[0]), reader.PixelAt(x[1], y[0]),
                                      reader.PixelAt(x[0] + besideX, secondY),
                                      reader.PixelAt(x[1] + besideX, secondY)));
}

} // namespace

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
    const PixelReader reader(source, ColoursByLevel(source, colours));
    for (int y = 0; y < target.height; ++y) {
        for (int x = 0; x < target.width; ++x) {
            const bool isInside = x >= plan.x.begin && x < plan.x.end && y >= plan.y.begin && y < plan.y.end;
            target.pixels[y * target.stride + x] = isInside ? WindowColour(reader, plan, x, y) : target.background;
        }
    }
    return ORV_IMAGE_OK;
}

} // namespace orv::plain
