#include "orvimage/Kernels.h"

// Compiled once for each kind of processor; HWY_EXPORT collects the versions, HWY_DYNAMIC_DISPATCH takes the best one
// that the processor has.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "orvimage/PickSimd.cpp"
#include <hwy/cache_control.h>
#include <hwy/foreach_target.h>
#include <hwy/highway.h>

#include "orvimage/Vectors-inl.h"

HWY_BEFORE_NAMESPACE();
namespace orv {
namespace HWY_NAMESPACE {

#if HWY_TARGET == HWY_SCALAR
// No vectors of at least 16 bytes: the plain version serves.
using plain::CellPairsToRgb;
using plain::CellsToRgb;
using plain::PairsToGrey;
using plain::PickBytes;
using plain::PickCells;
using plain::PickWords;
#else

void FetchAhead(const std::uint8_t *from, std::ptrdiff_t bytes)
{
    if (bytes != 0)
        hwy::Prefetch(from + bytes);
}

// Picking compacts the selected lanes of a vector. Only the newest processors do that by an instruction; for the others
// a table of shuffles, for eight lanes at a time, is quicker than what the library has.
#if HWY_TARGET == HWY_AVX3_DL
using PickWordsTag = Words;

std::size_t StorePicked(hn::Vec<PickWordsTag> words, const std::uint8_t *bits, std::uint16_t *to)
{
    const auto mask = hn::LoadMaskBits(PickWordsTag(), bits);
    hn::StoreU(hn::Compress(words, mask), PickWordsTag(), to);
    return hn::CountTrue(PickWordsTag(), mask);
}
#else
using PickWordsTag = Eight;

std::size_t StorePicked(EightVector words, const std::uint8_t *bits, std::uint16_t *to)
{
    const auto shuffle = hn::Load(Sixteen(), kCompactTable.shuffles[*bits]);
    hn::StoreU(hn::BitCast(Eight(), hn::TableLookupBytes(hn::BitCast(Sixteen(), words), shuffle)), Eight(), to);
    return kCompactTable.counts[*bits];
}
#endif

using PickVector = hn::Vec<PickWordsTag>;

PickVector LoadForPick(const std::uint8_t *words)
{
    const hn::Repartition<std::uint8_t, PickWordsTag> bytes;
    return hn::BitCast(PickWordsTag(), hn::LoadU(bytes, words));
}

PickVector LoadBytesForPick(const std::uint8_t *bytes)
{
    return hn::PromoteTo(PickWordsTag(), hn::LoadU(hn::Rebind<std::uint8_t, PickWordsTag>(), bytes));
}

PickVector LoadNarrowForPick(const std::uint8_t *words, int shift)
{
    return hn::Min(hn::ShiftRightSame(LoadForPick(words), shift), hn::Set(PickWordsTag(), 255));
}

/// Compacts the selected columns of what `sum` gives for a vector of columns; stops before the last partial vector.
/// \return the columns done.
template <class Sum> int PickLoop(const Selection &selection, std::uint16_t *&sums, Sum sum)
{
    const int lanes = static_cast<int>(hn::Lanes(PickWordsTag()));
    int x = 0;
    for (; x + lanes <= selection.columns; x += lanes)
        sums += StorePicked(sum(x), selection.bits + x / 8, sums);
    return x;
}

Selection After(const Selection &selection, int columns)
{
    return {selection.bits + columns / 8, selection.columns - columns};
}

void PickBytes(const LinePair &lines, const Selection &selection, std::uint16_t *sums)
{
    const int x = PickLoop(selection, sums, [=](int at) {
        FetchAhead(lines.first + at, lines.bytesToNext);
        FetchAhead(lines.second + at, lines.bytesToNext);
        return hn::Add(LoadBytesForPick(lines.first + at), LoadBytesForPick(lines.second + at));
    });
    plain::PickBytes({lines.first + x, lines.second + x, 0}, After(selection, x), sums);
}

void PickWords(const LinePair &lines, int shift, const Selection &selection, std::uint16_t *sums)
{
    const int x = PickLoop(selection, sums, [=](int at) {
        FetchAhead(lines.first + 2 * at, lines.bytesToNext);
        FetchAhead(lines.second + 2 * at, lines.bytesToNext);
        return hn::Add(LoadNarrowForPick(lines.first + 2 * at, shift), LoadNarrowForPick(lines.second + 2 * at, shift));
    });
    plain::PickWords({lines.first + 2 * x, lines.second + 2 * x, 0}, shift, After(selection, x), sums);
}

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
    PickVector left;
    PickVector right;
};

CellColumns SumCells(const std::uint8_t *const (&lines)[2], std::ptrdiff_t bytesToNext, int cell)
{
    const auto leftOnly = hn::Set(PickWordsTag(), 0xff);
    FetchAhead(lines[0] + 2 * cell, bytesToNext);
    const PickVector first = LoadForPick(lines[0] + 2 * cell);
    CellColumns sums{hn::And(first, leftOnly), hn::ShiftRight<8>(first)};
    if (lines[1] != nullptr) {
        FetchAhead(lines[1] + 2 * cell, bytesToNext);
        const PickVector second = LoadForPick(lines[1] + 2 * cell);
        sums.left = hn::Add(sums.left, hn::And(second, leftOnly));
        sums.right = hn::Add(sums.right, hn::ShiftRight<8>(second));
    }
    return sums;
}

void PickCells(const CellLines &lines, int redX, const Selection &selection, const CellSums &sums)
{
    const int lanes = static_cast<int>(hn::Lanes(PickWordsTag()));
    std::size_t picked = 0;
    int cell = 0;
    for (; cell + lanes <= selection.columns; cell += lanes) {
        const CellColumns ofRed = SumCells(lines.red, lines.bytesToNext, cell);
        const CellColumns ofBlue = SumCells(lines.blue, lines.bytesToNext, cell);
        const std::uint8_t *const bits = selection.bits + cell / 8;
        const bool isRedLeft = redX == 0;
        const PickVector green = isRedLeft ? hn::Add(ofRed.right, ofBlue.left) : hn::Add(ofRed.left, ofBlue.right);
        StorePicked(isRedLeft ? ofRed.left : ofRed.right, bits, sums.red + picked);
        StorePicked(isRedLeft ? ofBlue.right : ofBlue.left, bits, sums.blue + picked);
        picked += StorePicked(green, bits, sums.green + picked);
    }
    CellLines rest = lines;
    for (const std::uint8_t **line : {&rest.red[0], &rest.red[1], &rest.blue[0], &rest.blue[1]}) {
        if (*line != nullptr)
            *line += 2 * cell;
    }
    plain::PickCells(rest, redX, After(selection, cell), {sums.red + picked, sums.green + picked, sums.blue + picked});
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

#endif // HWY_SCALAR

} // namespace HWY_NAMESPACE
} // namespace orv
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace orv {

HWY_EXPORT(PickBytes);
HWY_EXPORT(PickWords);
HWY_EXPORT(PairsToGrey);
HWY_EXPORT(PickCells);
HWY_EXPORT(CellsToRgb);
HWY_EXPORT(CellPairsToRgb);

void PickBytes(const LinePair &lines, const Selection &selection, std::uint16_t *sums)
{
    HWY_DYNAMIC_DISPATCH(PickBytes)(lines, selection, sums);
}

void PickWords(const LinePair &lines, int shift, const Selection &selection, std::uint16_t *sums)
{
    HWY_DYNAMIC_DISPATCH(PickWords)(lines, shift, selection, sums);
}

void PairsToGrey(const std::uint16_t *sums, int pixels, std::uint32_t *colours)
{
    HWY_DYNAMIC_DISPATCH(PairsToGrey)(sums, pixels, colours);
}

void PickCells(const CellLines &lines, int redX, const Selection &selection, const CellSums &sums)
{
    HWY_DYNAMIC_DISPATCH(PickCells)(lines, redX, selection, sums);
}

void CellsToRgb(const CellSums &sums, int pixels, std::uint32_t *colours)
{
    HWY_DYNAMIC_DISPATCH(CellsToRgb)(sums, pixels, colours);
}

void CellPairsToRgb(const CellSums &sums, int pixels, std::uint32_t *colours)
{
    HWY_DYNAMIC_DISPATCH(CellPairsToRgb)(sums, pixels, colours);
}

} // namespace orv
#endif // HWY_ONCE
