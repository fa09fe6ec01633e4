#include "orvimage/Kernels.h"

#include "orvimage/Colour.h"
#include "orvimage/Samples.h"

#include <algorithm>

namespace orv {

namespace {

constexpr CompactTable MakeCompactTable()
{
    CompactTable table{};
    for (unsigned lanes = 0; lanes < 256; ++lanes) {
        unsigned count = 0;
        for (unsigned lane = 0; lane < 8; ++lane) {
            if ((lanes >> lane & 1) == 0)
                continue;
            table.shuffles[lanes][2 * count] = static_cast<std::uint8_t>(2 * lane);
            table.shuffles[lanes][2 * count + 1] = static_cast<std::uint8_t>(2 * lane + 1);
            ++count;
        }
        table.counts[lanes] = static_cast<std::uint8_t>(count);
    }
    return table;
}

} // namespace

constexpr CompactTable kCompactTable = MakeCompactTable();

namespace plain {

namespace {

bool IsSelected(const Selection &selection, int column)
{
    return (selection.bits[column / 8] >> (column % 8) & 1) != 0;
}

unsigned Narrow(const std::uint8_t *word, int shift)
{
    return std::min((word[0] | static_cast<unsigned>(word[1]) << 8) >> shift, 255U);
}

/// One pixel; left and right are its neighbours' columns.
std::uint32_t DemosaicPixel(const MosaicLines &lines, int x, int left, int right)
{
    const int own = lines.here[x];
    const int beside = lines.here[left] + lines.here[right];
    const int across = lines.above[x] + lines.below[x];
    int ofLine = own; // red on a red line, blue on a blue line
    int green = own;
    int other = own;
    if (x % 2 == lines.siteX) {
        green = (beside + across + 2) / 4;
        other = (lines.above[left] + lines.above[right] + lines.below[left] + lines.below[right] + 2) / 4;
    } else {
        ofLine = (beside + 1) / 2;
        other = (across + 1) / 2;
    }
    return lines.isRedLine ? PackColour(ofLine, green, other) : PackColour(other, green, ofLine);
}

} // namespace

void NarrowWords(const std::uint8_t *words, int count, int shift, std::uint8_t *bytes)
{
    for (int i = 0; i < count; ++i)
        bytes[i] = static_cast<std::uint8_t>(Narrow(words + std::ptrdiff_t{2} * i, shift));
}

void UnpackEights(const std::uint8_t *packed, const std::uint8_t *end, SamplePacking packing, int bits, int count,
                  std::uint16_t *samples)
{
    const SampleRun run{packed, end, 0};
    for (int i = 0; i < count; ++i)
        samples[i] = SampleAt(run, packing, bits, static_cast<std::uint64_t>(i));
}

void NarrowEights(const std::uint8_t *packed, const std::uint8_t *end, SamplePacking packing, int bits, int count,
                  std::uint8_t *bytes)
{
    const SampleRun run{packed, end, 0};
    for (int i = 0; i < count; ++i)
        bytes[i] = static_cast<std::uint8_t>(SampleAt(run, packing, bits, static_cast<std::uint64_t>(i)) >> (bits - 8));
}

void PickBytes(const LinePair &lines, const Selection &selection, std::uint16_t *sums)
{
    for (int x = 0; x < selection.columns; ++x) {
        if (IsSelected(selection, x))
            *sums++ = static_cast<std::uint16_t>(lines.first[x] + lines.second[x]);
    }
}

void PickWords(const LinePair &lines, int shift, const Selection &selection, std::uint16_t *sums)
{
    for (std::ptrdiff_t x = 0; x < selection.columns; ++x) {
        if (IsSelected(selection, static_cast<int>(x)))
            *sums++ =
                static_cast<std::uint16_t>(Narrow(lines.first + 2 * x, shift) + Narrow(lines.second + 2 * x, shift));
    }
}

void PairsToGrey(const std::uint16_t *sums, int pixels, std::uint32_t *colours)
{
    for (int i = 0; i < pixels; ++i) {
        const int sum = sums[2 * i] + sums[2 * i + 1];
        colours[i] = Grey((sum + 2) / 4);
    }
}

void PickCells(const CellLines &lines, int redX, const Selection &selection, const CellSums &sums)
{
    const int pairs = lines.red[1] == nullptr ? 1 : 2;
    int picked = 0;
    for (int cell = 0; cell < selection.columns; ++cell) {
        if (!IsSelected(selection, cell))
            continue;
        unsigned red = 0;
        unsigned green = 0;
        unsigned blue = 0;
        for (int pair = 0; pair < pairs; ++pair) {
            const std::uint8_t *const redCell = lines.red[pair] + std::ptrdiff_t{2} * cell;
            const std::uint8_t *const blueCell = lines.blue[pair] + std::ptrdiff_t{2} * cell;
            red += redCell[redX];
            green += redCell[1 - redX];
            green += blueCell[redX];
            blue += blueCell[1 - redX];
        }
        sums.red[picked] = static_cast<std::uint16_t>(red);
        sums.green[picked] = static_cast<std::uint16_t>(green);
        sums.blue[picked++] = static_cast<std::uint16_t>(blue);
    }
}

void CellsToRgb(const CellSums &sums, int pixels, std::uint32_t *colours)
{
    for (int i = 0; i < pixels; ++i)
        colours[i] = PackColour(sums.red[i], (sums.green[i] + 1) / 2, sums.blue[i]);
}

void CellPairsToRgb(const CellSums &sums, int pixels, std::uint32_t *colours)
{
    for (int i = 0; i < pixels; ++i) {
        const int k = 2 * i;
        colours[i] = PackColour((sums.red[k] + sums.red[k + 1] + 2) / 4, (sums.green[k] + sums.green[k + 1] + 4) / 8,
                                (sums.blue[k] + sums.blue[k + 1] + 2) / 4);
    }
}

void MeansOfFour(const std::uint32_t *upper, const std::uint32_t *lower, int pixels, std::uint32_t *means)
{
    for (int i = 0; i < pixels; ++i)
        means[i] = MeanOfFour(upper[2 * i], upper[2 * i + 1], lower[2 * i], lower[2 * i + 1]);
}

void YuvToColours(int pixels, std::uint32_t *colours)
{
    for (int i = 0; i < pixels; ++i)
        colours[i] = YuvToColour(colours[i]);
}

void ColoursToRgb(const std::uint32_t *colours, int pixels, std::uint8_t *bytes)
{
    for (int i = 0; i < pixels; ++i, bytes += 3) {
        bytes[0] = static_cast<std::uint8_t>(colours[i] >> 16);
        bytes[1] = static_cast<std::uint8_t>(colours[i] >> 8);
        bytes[2] = static_cast<std::uint8_t>(colours[i]);
    }
}

void ColoursToBgr(const std::uint32_t *colours, int pixels, std::uint8_t *bytes)
{
    for (int i = 0; i < pixels; ++i, bytes += 3) {
        bytes[0] = static_cast<std::uint8_t>(colours[i]);
        bytes[1] = static_cast<std::uint8_t>(colours[i] >> 8);
        bytes[2] = static_cast<std::uint8_t>(colours[i] >> 16);
    }
}

void DemosaicLine(const MosaicLines &lines, int pixels, std::uint32_t *colours)
{
    const int last = pixels - 1;
    for (int x = 0; x < pixels; ++x) {
        const int left = x > 0 ? x - 1 : std::min(1, last);
        const int right = x < last ? x + 1 : std::max(0, last - 1);
        colours[x] = DemosaicPixel(lines, x, left, right);
    }
}

} // namespace plain

} // namespace orv
