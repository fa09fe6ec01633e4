#pragma once

#include "orvimage/PixelLayout.h"

#include <cstddef>
#include <cstdint>

/// The inner loops of unpacking and conversion, each in two versions with the same results: plain::X is the one to read
/// and the reference, X runs on the widest vectors of this processor.
///
/// Colours are 0xffRRGGBB.
///
/// Threads: any; nothing is kept between calls.
namespace orv {

/// Outputs of the picking kernels are written in whole vectors: their buffers have this many spare elements at the end.
constexpr int kKernelSlack = 256;

/// The columns, or colour filter cells, to take out of lines.
struct Selection {
    const std::uint8_t *bits; ///< one per column, least significant first, set where it is taken
    int columns;
};

/// Two lines of samples to be added.
///
/// The lines that a view takes lie far apart in memory, where the processor does not see them coming; the kernels can
/// fetch the next ones while they work on these.
struct LinePair {
    const std::uint8_t *first;
    const std::uint8_t *second;
    std::ptrdiff_t bytesToNext; ///< from these lines to those of the next call, 0 when unknown
};

/// Lines of colour filter cells, by what they hold: red and green, or green and blue. The second pair of lines may be
/// null.
struct CellLines {
    const std::uint8_t *red[2];
    const std::uint8_t *blue[2];
    std::ptrdiff_t bytesToNext; ///< as in LinePair
};

/// Sums of the red, green (both of them) and blue samples of colour filter cells.
struct CellSums {
    std::uint16_t *red;
    std::uint16_t *green;
    std::uint16_t *blue;
};

/// For each set of eight lanes the bytes of those lanes, one behind the other: the shuffle that compacts a vector of
/// eight 16-bit lanes where the processor has no instruction for it.
struct CompactTable {
    alignas(16) std::uint8_t shuffles[256][16];
    std::uint8_t counts[256];
};
extern const CompactTable kCompactTable;

/// Three neighbouring lines of a colour filter mosaic and the phase of the middle one.
struct MosaicLines {
    const std::uint8_t *above;
    const std::uint8_t *here;
    const std::uint8_t *below;
    bool isRedLine; ///< the middle line holds red, else blue
    int siteX;      ///< 0 or 1: first column with that red or blue
};

namespace plain {

/// Little-endian 16-bit samples to 8 bits: shifted right, 255 where that is still too much.
void NarrowWords(const std::uint8_t *words, int count, int shift, std::uint8_t *bytes);

/// Samples of a bit string or of groups that start at a whole byte. `count` is a multiple of 8.
void UnpackEights(const std::uint8_t *packed, const std::uint8_t *end, SamplePacking packing, int bits, int count,
                  std::uint16_t *samples);

/// The same samples brought to their 8 highest bits.
void NarrowEights(const std::uint8_t *packed, const std::uint8_t *end, SamplePacking packing, int bits, int count,
                  std::uint8_t *bytes);

/// Adds the two lines in the selected columns and writes the sums one behind the other.
void PickBytes(const LinePair &lines, const Selection &selection, std::uint16_t *sums);
/// The same for little-endian 16-bit samples brought to 8 bits as NarrowWords does.
void PickWords(const LinePair &lines, int shift, const Selection &selection, std::uint16_t *sums);
/// Each two sums of two samples make a grey pixel, their mean.
void PairsToGrey(const std::uint16_t *sums, int pixels, std::uint32_t *colours);

/// Sums the samples of the selected cells, over both pairs of lines when there are two.
/// \param redX  column of red within a cell, 0 or 1.
void PickCells(const CellLines &lines, int redX, const Selection &selection, const CellSums &sums);
/// A pixel from each cell.
void CellsToRgb(const CellSums &sums, int pixels, std::uint32_t *colours);
/// A pixel from each two sums over two cells.
void CellPairsToRgb(const CellSums &sums, int pixels, std::uint32_t *colours);

/// Means of four pixels, channel by channel, rounded half up: two neighbours of one line and the two below them.
void MeansOfFour(const std::uint32_t *upper, const std::uint32_t *lower, int pixels, std::uint32_t *means);

/// Pixels 0xffYYUUVV to colours, in place. Full range, BT.601 weights, as cameras send it.
void YuvToColours(int pixels, std::uint32_t *colours);

/// Colours to three bytes each, in the order of the letters.
void ColoursToRgb(const std::uint32_t *colours, int pixels, std::uint8_t *bytes);
void ColoursToBgr(const std::uint32_t *colours, int pixels, std::uint8_t *bytes);

/// Bilinear demosaicing of the middle line; beyond its ends the line is mirrored about its first and last pixel.
void DemosaicLine(const MosaicLines &lines, int pixels, std::uint32_t *colours);

} // namespace plain

void NarrowWords(const std::uint8_t *words, int count, int shift, std::uint8_t *bytes);
void UnpackEights(const std::uint8_t *packed, const std::uint8_t *end, SamplePacking packing, int bits, int count,
                  std::uint16_t *samples);
void NarrowEights(const std::uint8_t *packed, const std::uint8_t *end, SamplePacking packing, int bits, int count,
                  std::uint8_t *bytes);
void PickBytes(const LinePair &lines, const Selection &selection, std::uint16_t *sums);
void PickWords(const LinePair &lines, int shift, const Selection &selection, std::uint16_t *sums);
void PairsToGrey(const std::uint16_t *sums, int pixels, std::uint32_t *colours);
void PickCells(const CellLines &lines, int redX, const Selection &selection, const CellSums &sums);
void CellsToRgb(const CellSums &sums, int pixels, std::uint32_t *colours);
void CellPairsToRgb(const CellSums &sums, int pixels, std::uint32_t *colours);
void MeansOfFour(const std::uint32_t *upper, const std::uint32_t *lower, int pixels, std::uint32_t *means);
void YuvToColours(int pixels, std::uint32_t *colours);
void ColoursToRgb(const std::uint32_t *colours, int pixels, std::uint8_t *bytes);
void ColoursToBgr(const std::uint32_t *colours, int pixels, std::uint8_t *bytes);
void DemosaicLine(const MosaicLines &lines, int pixels, std::uint32_t *colours);

} // namespace orv
