#include "orvimage/Kernels.h"

#include <cstring>

// This file is compiled once for each kind of processor; HWY_EXPORT collects the versions, HWY_DYNAMIC_DISPATCH takes
// the best one that the processor has.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "orvimage/KernelsSimd.cpp"
#include <hwy/cache_control.h>
#include <hwy/foreach_target.h>
#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace orv {
namespace HWY_NAMESPACE {

#if HWY_TARGET == HWY_SCALAR
// No vectors of at least 16 bytes: the plain version serves.
using plain::BytesToGrey;
using plain::CellPairsToRgb;
using plain::CellsToRgb;
using plain::DemosaicLine;
using plain::NarrowWords;
using plain::PairsToGrey;
using plain::PickBytes;
using plain::PickCells;
using plain::PickWords;
using plain::UnpackEights;
#else

namespace hn = hwy::HWY_NAMESPACE;

using Words = hn::ScalableTag<std::uint16_t>;
using HalfBytes = hn::Rebind<std::uint8_t, Words>; // as many bytes as Words has words
using WordVector = hn::Vec<Words>;

WordVector LoadWords(const std::uint8_t *from)
{
    const hn::Repartition<std::uint8_t, Words> bytes;
    return hn::BitCast(Words(), hn::LoadU(bytes, from));
}

WordVector LoadBytes(const std::uint8_t *from)
{
    return hn::PromoteTo(Words(), hn::LoadU(HalfBytes(), from));
}

WordVector Narrowed(WordVector words, int shift)
{
    return hn::Min(hn::ShiftRightSame(words, shift), hn::Set(Words(), 255));
}

/// Stores pixels 0xffRRGGBB; every word of the arguments is at most 255.
void StoreColours(WordVector red, WordVector green, WordVector blue, std::uint32_t *colours)
{
    const WordVector low = hn::Or(blue, hn::ShiftLeft<8>(green));
    const WordVector high = hn::Or(red, hn::Set(Words(), 0xff00));
    hn::StoreInterleaved2(low, high, Words(), reinterpret_cast<std::uint16_t *>(colours));
}

void NarrowWords(const std::uint8_t *words, int count, int shift, std::uint8_t *bytes)
{
    const int lanes = static_cast<int>(hn::Lanes(Words()));
    int i = 0;
    for (; i + lanes <= count; i += lanes) {
        const auto narrow = hn::DemoteTo(
            HalfBytes(), hn::BitCast(hn::RebindToSigned<Words>(), Narrowed(LoadWords(words + 2 * i), shift)));
        hn::StoreU(narrow, HalfBytes(), bytes + i);
    }
    plain::NarrowWords(words + 2 * i, count - i, shift, bytes + i);
}

// Eight samples at a time in one 16-byte vector: each sample is in two neighbouring bytes, which a shuffle brings into
// its word.
using Eight = hn::FixedTag<std::uint16_t, 8>;
using Sixteen = hn::FixedTag<std::uint8_t, 16>;
using EightVector = hn::Vec<Eight>;

struct EightShuffle {
    alignas(16) std::uint8_t bytes[16];
};

template <class Combine>
int UnpackLoop(const std::uint8_t *packed, const std::uint8_t *end, const EightShuffle &shuffle, int bytesPerEight,
               int count, std::uint16_t *samples, Combine combine)
{
    const auto indices = hn::Load(Sixteen(), shuffle.bytes);
    int i = 0;
    for (; i < count && end - packed >= 16; i += 8, packed += bytesPerEight) {
        const auto words = hn::BitCast(Eight(), hn::TableLookupBytes(hn::LoadU(Sixteen(), packed), indices));
        hn::StoreU(combine(words), Eight(), samples + i);
    }
    return i;
}

/// A shift to the left by multiplication drops the bits above the sample, one to the right those below.
int UnpackBitString(const std::uint8_t *packed, const std::uint8_t *end, int bits, int count, std::uint16_t *samples)
{
    EightShuffle shuffle;
    alignas(16) std::uint16_t factors[8];
    for (int k = 0; k < 8; ++k) {
        const int first = k * bits;
        shuffle.bytes[2 * k] = static_cast<std::uint8_t>(first / 8);
        shuffle.bytes[2 * k + 1] = static_cast<std::uint8_t>(first / 8 + 1);
        factors[k] = static_cast<std::uint16_t>(1U << (16 - bits - first % 8));
    }
    const auto factor = hn::Load(Eight(), factors);
    const int down = 16 - bits;
    return UnpackLoop(packed, end, shuffle, bits, count, samples,
                      [=](EightVector words) { return hn::ShiftRightSame(hn::Mul(words, factor), down); });
}

/// Even samples have their high bits in the upper byte of the word, odd ones too; the low bits differ.
int UnpackGroups(const std::uint8_t *packed, const std::uint8_t *end, int bits, int count, std::uint16_t *samples)
{
    constexpr EightShuffle kShuffle = {{1, 0, 1, 2, 4, 3, 4, 5, 7, 6, 7, 8, 10, 9, 10, 11}};
    const auto isOdd = hn::MaskFromVec(hn::BitCast(Eight(), hn::Set(hn::FixedTag<std::uint32_t, 4>(), 0xffff0000U)));
    const int lowBits = bits - 8;
    const auto lowMask = hn::Set(Eight(), static_cast<std::uint16_t>((1U << lowBits) - 1));
    return UnpackLoop(packed, end, kShuffle, 12, count, samples, [=](EightVector words) {
        const auto high = hn::ShiftLeftSame(hn::ShiftRight<8>(words), lowBits);
        const auto low = hn::IfThenElse(isOdd, hn::ShiftRight<4>(words), words);
        return hn::Or(high, hn::And(low, lowMask));
    });
}

void UnpackEights(const std::uint8_t *packed, const std::uint8_t *end, SamplePacking packing, int bits, int count,
                  std::uint16_t *samples)
{
    const bool isGrouped = packing != SamplePacking::BitString;
    const int done = isGrouped ? UnpackGroups(packed, end, bits, count, samples)
                               : UnpackBitString(packed, end, bits, count, samples);
    const int bytesPerEight = isGrouped ? 12 : bits;
    plain::UnpackEights(packed + done / 8 * bytesPerEight, end, packing, bits, count - done, samples + done);
}

/// The lines that a view takes lie far apart, where the processor does not see them coming: asks for the bytes some
/// time ahead of their use. Past a line's end that fetches a little that nobody needs.
void FetchAhead(const std::uint8_t *from)
{
    constexpr int kAheadBytes = 1024;
    hwy::Prefetch(from + kAheadBytes);
}

/// Compacts the selected columns of what `sum` gives for a vector of columns; stops before the last partial vector.
/// \return the columns done.
template <class Sum> int PickLoop(const std::uint8_t *selection, int columns, std::uint16_t *&sums, Sum sum)
{
    const int lanes = static_cast<int>(hn::Lanes(Words()));
    int x = 0;
    for (; x + lanes <= columns; x += lanes) {
        const auto mask = hn::LoadMaskBits(Words(), selection + x / 8);
        hn::StoreU(hn::Compress(sum(x), mask), Words(), sums);
        sums += hn::CountTrue(Words(), mask);
    }
    return x;
}

void PickBytes(const std::uint8_t *lineA, const std::uint8_t *lineB, const std::uint8_t *selection, int columns,
               std::uint16_t *sums)
{
    const int x = PickLoop(selection, columns, sums, [=](int at) {
        FetchAhead(lineA + at);
        FetchAhead(lineB + at);
        return hn::Add(LoadBytes(lineA + at), LoadBytes(lineB + at));
    });
    plain::PickBytes(lineA + x, lineB + x, selection + x / 8, columns - x, sums);
}

void PickWords(const std::uint8_t *lineA, const std::uint8_t *lineB, int shift, const std::uint8_t *selection,
               int columns, std::uint16_t *sums)
{
    const int x = PickLoop(selection, columns, sums, [=](int at) {
        FetchAhead(lineA + 2 * at);
        FetchAhead(lineB + 2 * at);
        return hn::Add(Narrowed(LoadWords(lineA + 2 * at), shift), Narrowed(LoadWords(lineB + 2 * at), shift));
    });
    plain::PickWords(lineA + 2 * x, lineB + 2 * x, shift, selection + x / 8, columns - x, sums);
}

using Pairs = hn::RepartitionToWide<Words>; // two sums in each lane
using PairVector = hn::Vec<Pairs>;

PairVector LoadPairSums(const std::uint16_t *sums)
{
    const auto pairs = hn::BitCast(Pairs(), hn::LoadU(Words(), sums));
    return hn::Add(hn::And(pairs, hn::Set(Pairs(), 0xffff)), hn::ShiftRight<16>(pairs));
}

/// Mean with rounding over 2^kShift samples.
template <int kShift> PairVector PairMeans(const std::uint16_t *sums)
{
    return hn::ShiftRight<kShift>(hn::Add(LoadPairSums(sums), hn::Set(Pairs(), 1U << (kShift - 1))));
}

void StorePixels(PairVector red, PairVector green, PairVector blue, std::uint32_t *colours)
{
    const auto opaque = hn::Or(hn::Set(Pairs(), 0xff000000U), blue);
    hn::StoreU(hn::Or(opaque, hn::Or(hn::ShiftLeft<16>(red), hn::ShiftLeft<8>(green))), Pairs(), colours);
}

void PairsToGrey(const std::uint16_t *sums, int pixels, std::uint32_t *colours)
{
    const int lanes = static_cast<int>(hn::Lanes(Pairs()));
    int i = 0;
    for (; i + lanes <= pixels; i += lanes) {
        const PairVector grey = PairMeans<2>(sums + 2 * i);
        StorePixels(grey, grey, grey, colours + i);
    }
    plain::PairsToGrey(sums + 2 * i, pixels - i, colours + i);
}

/// The left and right samples of cells, summed over the lines of one kind.
struct CellColumns {
    WordVector left;
    WordVector right;
};

CellColumns SumCells(const std::uint8_t *const (&lines)[2], int cell)
{
    const auto leftOnly = hn::Set(Words(), 0xff);
    const WordVector first = LoadWords(lines[0] + 2 * cell);
    CellColumns sums{hn::And(first, leftOnly), hn::ShiftRight<8>(first)};
    if (lines[1] != nullptr) {
        const WordVector second = LoadWords(lines[1] + 2 * cell);
        sums.left = hn::Add(sums.left, hn::And(second, leftOnly));
        sums.right = hn::Add(sums.right, hn::ShiftRight<8>(second));
    }
    return sums;
}

void PickCells(const CellLines &lines, int redX, const std::uint8_t *selection, int cells, const CellSums &sums)
{
    const int lanes = static_cast<int>(hn::Lanes(Words()));
    std::size_t picked = 0;
    int cell = 0;
    for (; cell + lanes <= cells; cell += lanes) {
        const auto mask = hn::LoadMaskBits(Words(), selection + cell / 8);
        const CellColumns redLine = SumCells(lines.red, cell);
        const CellColumns blueLine = SumCells(lines.blue, cell);
        const bool isRedLeft = redX == 0;
        const WordVector green =
            isRedLeft ? hn::Add(redLine.right, blueLine.left) : hn::Add(redLine.left, blueLine.right);
        hn::StoreU(hn::Compress(isRedLeft ? redLine.left : redLine.right, mask), Words(), sums.red + picked);
        hn::StoreU(hn::Compress(green, mask), Words(), sums.green + picked);
        hn::StoreU(hn::Compress(isRedLeft ? blueLine.right : blueLine.left, mask), Words(), sums.blue + picked);
        picked += hn::CountTrue(Words(), mask);
    }
    CellLines rest = lines;
    for (const std::uint8_t **line : {&rest.red[0], &rest.red[1], &rest.blue[0], &rest.blue[1]}) {
        if (*line != nullptr)
            *line += 2 * cell;
    }
    plain::PickCells(rest, redX, selection + cell / 8, cells - cell,
                     {sums.red + picked, sums.green + picked, sums.blue + picked});
}

void CellsToRgb(const CellSums &sums, int pixels, std::uint32_t *colours)
{
    const int lanes = static_cast<int>(hn::Lanes(Words()));
    int i = 0;
    for (; i + lanes <= pixels; i += lanes) {
        const auto green = hn::LoadU(Words(), sums.green + i);
        StoreColours(hn::LoadU(Words(), sums.red + i), hn::ShiftRight<1>(hn::Add(green, hn::Set(Words(), 1))),
                     hn::LoadU(Words(), sums.blue + i), colours + i);
    }
    plain::CellsToRgb({sums.red + i, sums.green + i, sums.blue + i}, pixels - i, colours + i);
}

void CellPairsToRgb(const CellSums &sums, int pixels, std::uint32_t *colours)
{
    const int lanes = static_cast<int>(hn::Lanes(Pairs()));
    int i = 0;
    for (; i + lanes <= pixels; i += lanes) {
        StorePixels(PairMeans<2>(sums.red + 2 * i), PairMeans<3>(sums.green + 2 * i), PairMeans<2>(sums.blue + 2 * i),
                    colours + i);
    }
    plain::CellPairsToRgb({sums.red + 2 * i, sums.green + 2 * i, sums.blue + 2 * i}, pixels - i, colours + i);
}

void BytesToGrey(const std::uint8_t *bytes, int pixels, std::uint32_t *colours)
{
    const int lanes = static_cast<int>(hn::Lanes(Words()));
    int i = 0;
    for (; i + lanes <= pixels; i += lanes) {
        const WordVector grey = LoadBytes(bytes + i);
        StoreColours(grey, grey, grey, colours + i);
    }
    plain::BytesToGrey(bytes + i, pixels - i, colours + i);
}

WordVector Half(WordVector sum)
{
    return hn::ShiftRight<1>(hn::Add(sum, hn::Set(Words(), 1)));
}

WordVector Quarter(WordVector sum)
{
    return hn::ShiftRight<2>(hn::Add(sum, hn::Set(Words(), 2)));
}

/// The pixels of one vector from column x on, which has neighbours on both sides.
void DemosaicVector(const MosaicLines &lines, hn::Mask<Words> isSite, int x, std::uint32_t *colours)
{
    const WordVector own = LoadBytes(lines.here + x);
    const WordVector beside = hn::Add(LoadBytes(lines.here + x - 1), LoadBytes(lines.here + x + 1));
    const WordVector across = hn::Add(LoadBytes(lines.above + x), LoadBytes(lines.below + x));
    const WordVector corners = hn::Add(hn::Add(LoadBytes(lines.above + x - 1), LoadBytes(lines.above + x + 1)),
                                       hn::Add(LoadBytes(lines.below + x - 1), LoadBytes(lines.below + x + 1)));
    const WordVector ofLine = hn::IfThenElse(isSite, own, Half(beside));
    const WordVector green = hn::IfThenElse(isSite, Quarter(hn::Add(beside, across)), own);
    const WordVector other = hn::IfThenElse(isSite, Quarter(corners), Half(across));
    if (lines.isRedLine)
        StoreColours(ofLine, green, other, colours + x);
    else
        StoreColours(other, green, ofLine, colours + x);
}

/// The pixels from first on up to the line's end, by the plain version, which needs whole cells before them.
void DemosaicEnd(const MosaicLines &lines, int first, int pixels, std::uint32_t *colours)
{
    std::uint32_t end[2 * HWY_MAX_BYTES];
    const int start = (first - 1) & ~1;
    const MosaicLines rest{lines.above + start, lines.here + start, lines.below + start, lines.isRedLine, lines.siteX};
    plain::DemosaicLine(rest, pixels - start, end);
    std::memcpy(colours + first, end + (first - start), static_cast<std::size_t>(pixels - first) * sizeof *colours);
}

void DemosaicLine(const MosaicLines &lines, int pixels, std::uint32_t *colours)
{
    const int lanes = static_cast<int>(hn::Lanes(Words()));
    if (pixels < lanes + 2)
        return plain::DemosaicLine(lines, pixels, colours);
    // Vectors start at odd columns: their even lanes are the sites when the sites lie at odd columns.
    const auto evenLanes = hn::MaskFromVec(hn::BitCast(Words(), hn::Set(Pairs(), 0x0000ffffU)));
    const auto isSite = lines.siteX == 1 ? evenLanes : hn::Not(evenLanes);
    plain::DemosaicLine(lines, 2, colours); // only the first pixel stays: the second has a neighbour more
    int x = 1;
    for (; x + lanes + 1 <= pixels; x += lanes)
        DemosaicVector(lines, isSite, x, colours);
    DemosaicEnd(lines, x, pixels, colours);
}

#endif // HWY_SCALAR

} // namespace HWY_NAMESPACE
} // namespace orv
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace orv {

HWY_EXPORT(NarrowWords);
HWY_EXPORT(UnpackEights);
HWY_EXPORT(PickBytes);
HWY_EXPORT(PickWords);
HWY_EXPORT(PairsToGrey);
HWY_EXPORT(PickCells);
HWY_EXPORT(CellsToRgb);
HWY_EXPORT(CellPairsToRgb);
HWY_EXPORT(BytesToGrey);
HWY_EXPORT(DemosaicLine);

void NarrowWords(const std::uint8_t *words, int count, int shift, std::uint8_t *bytes)
{
    HWY_DYNAMIC_DISPATCH(NarrowWords)(words, count, shift, bytes);
}

void UnpackEights(const std::uint8_t *packed, const std::uint8_t *end, SamplePacking packing, int bits, int count,
                  std::uint16_t *samples)
{
    HWY_DYNAMIC_DISPATCH(UnpackEights)(packed, end, packing, bits, count, samples);
}

void PickBytes(const std::uint8_t *lineA, const std::uint8_t *lineB, const std::uint8_t *selection, int columns,
               std::uint16_t *sums)
{
    HWY_DYNAMIC_DISPATCH(PickBytes)(lineA, lineB, selection, columns, sums);
}

void PickWords(const std::uint8_t *lineA, const std::uint8_t *lineB, int shift, const std::uint8_t *selection,
               int columns, std::uint16_t *sums)
{
    HWY_DYNAMIC_DISPATCH(PickWords)(lineA, lineB, shift, selection, columns, sums);
}

void PairsToGrey(const std::uint16_t *sums, int pixels, std::uint32_t *colours)
{
    HWY_DYNAMIC_DISPATCH(PairsToGrey)(sums, pixels, colours);
}

void PickCells(const CellLines &lines, int redX, const std::uint8_t *selection, int cells, const CellSums &sums)
{
    HWY_DYNAMIC_DISPATCH(PickCells)(lines, redX, selection, cells, sums);
}

void CellsToRgb(const CellSums &sums, int pixels, std::uint32_t *colours)
{
    HWY_DYNAMIC_DISPATCH(CellsToRgb)(sums, pixels, colours);
}

void CellPairsToRgb(const CellSums &sums, int pixels, std::uint32_t *colours)
{
    HWY_DYNAMIC_DISPATCH(CellPairsToRgb)(sums, pixels, colours);
}

void BytesToGrey(const std::uint8_t *bytes, int pixels, std::uint32_t *colours)
{
    HWY_DYNAMIC_DISPATCH(BytesToGrey)(bytes, pixels, colours);
}

void DemosaicLine(const MosaicLines &lines, int pixels, std::uint32_t *colours)
{
    HWY_DYNAMIC_DISPATCH(DemosaicLine)(lines, pixels, colours);
}

} // namespace orv
#endif // HWY_ONCE
