#include "orvimage/Kernels.h"
#include "orvimage/Samples.h"

#include <algorithm>

namespace orv::plain {

namespace {

std::uint32_t Pack(unsigned red, unsigned green, unsigned blue)
{
    return 0xff000000U | red << 16 | green << 8 | blue;
}

bool IsSelected(const std::uint8_t *selection, int column)
{
    return (selection[column / 8] >> (column % 8) & 1) != 0;
}

unsigned Narrow(const std::uint8_t *word, int shift)
{
    return std::min((word[0] | static_cast<unsigned>(word[1]) << 8) >> shift, 255U);
}

/// One pixel; left and right are its neighbours' columns.
std::uint32_t DemosaicPixel(const MosaicLines &lines, int x, int left, int right)
{
    const unsigned own = lines.here[x];
    const unsigned beside = lines.here[left] + lines.here[right];
    const unsigned across = lines.above[x] + lines.below[x];
    unsigned ofLine = own; // red on a red line, blue on a blue line
    unsigned green = own;
    unsigned other = own;
    if (x % 2 == lines.siteX) {
        green = (beside + across + 2) / 4;
        other = (lines.above[left] + lines.above[right] + lines.below[left] + lines.below[right] + 2U) / 4;
    } else {
        ofLine = (beside + 1) / 2;
        other = (across + 1) / 2;
    }
    return lines.isRedLine ? Pack(ofLine, green, other) : Pack(other, green, ofLine);
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

void PickBytes(const std::uint8_t *lineA, const std::uint8_t *lineB, const std::uint8_t *selection, int columns,
               std::uint16_t *sums)
{
    for (int x = 0; x < columns; ++x) {
        if (IsSelected(selection, x))
            *sums++ = static_cast<std::uint16_t>(lineA[x] + lineB[x]);
    }
}

void PickWords(const std::uint8_t *lineA, const std::uint8_t *lineB, int shift, const std::uint8_t *selection,
               int columns, std::uint16_t *sums)
{
    for (std::ptrdiff_t x = 0; x < columns; ++x) {
        if (IsSelected(selection, static_cast<int>(x)))
            *sums++ = static_cast<std::uint16_t>(Narrow(lineA + 2 * x, shift) + Narrow(lineB + 2 * x, shift));
    }
}

void PairsToGrey(const std::uint16_t *sums, int pixels, std::uint32_t *colours)
{
    for (int i = 0; i < pixels; ++i) {
        const unsigned grey = (sums[2 * i] + sums[2 * i + 1] + 2U) / 4;
        colours[i] = Pack(grey, grey, grey);
    }
}

void PickCells(const CellLines &lines, int redX, const std::uint8_t *selection, int cells, const CellSums &sums)
{
    const int pairs = lines.red[1] == nullptr ? 1 : 2;
    int picked = 0;
    for (int cell = 0; cell < cells; ++cell) {
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
        colours[i] = Pack(sums.red[i], (sums.green[i] + 1U) / 2, sums.blue[i]);
}

void CellPairsToRgb(const CellSums &sums, int pixels, std::uint32_t *colours)
{
    for (int i = 0; i < pixels; ++i) {
        const int k = 2 * i;
        colours[i] = Pack((sums.red[k] + sums.red[k + 1] + 2U) / 4, (sums.green[k] + sums.green[k + 1] + 4U) / 8,
                          (sums.blue[k] + sums.blue[k + 1] + 2U) / 4);
    }
}

void BytesToGrey(const std::uint8_t *bytes, int pixels, std::uint32_t *colours)
{
    for (int i = 0; i < pixels; ++i)
        colours[i] = Pack(bytes[i], bytes[i], bytes[i]);
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

} // namespace orv::plain
