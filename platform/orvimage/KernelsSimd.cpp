#include "orvimage/Kernels.h"

#include "orvimage/Colour.h"

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
using plain::ColoursToBgr;
using plain::ColoursToRgb;
using plain::DemosaicLine;
using plain::MeansOfFour;
using plain::NarrowEights;
using plain::NarrowWords;
using plain::PairsToGrey;
using plain::PickBytes;
using plain::PickCells;
using plain::PickWords;
using plain::UnpackEights;
using plain::YuvToColours;
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

// Packed samples, eight at a time in one 16-byte vector: each sample is in two neighbouring bytes, which a shuffle
// brings into its word.
using Eight = hn::FixedTag<std::uint16_t, 8>;
using EightBytes = hn::FixedTag<std::uint8_t, 8>;
using Sixteen = hn::FixedTag<std::uint8_t, 16>;
using EightVector = hn::Vec<Eight>;

struct EightShuffle {
    alignas(16) std::uint8_t bytes[16];
};

/// Gives each eight of samples' words to `store`, up to the last 16 readable bytes.
/// \return the samples done.
template <class Store>
int EightsLoop(const std::uint8_t *packed, const std::uint8_t *end, const EightShuffle &shuffle, int bytesPerEight,
               int count, Store store)
{
    const auto indices = hn::Load(Sixteen(), shuffle.bytes);
    int i = 0;
    for (; i < count && end - packed >= 16; i += 8, packed += bytesPerEight)
        store(i, hn::BitCast(Eight(), hn::TableLookupBytes(hn::LoadU(Sixteen(), packed), indices)));
    return i;
}

/// How to bring the samples of a bit string to the top of their words: by multiplication, which drops the bits above.
struct BitStringSteps {
    EightShuffle shuffle;
    alignas(16) std::uint16_t factors[8];

    explicit BitStringSteps(int bits)
    {
        for (int k = 0; k < 8; ++k) {
            const int first = k * bits;
            shuffle.bytes[2 * k] = static_cast<std::uint8_t>(first / 8);
            shuffle.bytes[2 * k + 1] = static_cast<std::uint8_t>(first / 8 + 1);
            factors[k] = static_cast<std::uint16_t>(1U << (16 - bits - first % 8));
        }
    }
};

// Groups: words of the byte with the high bits (above) and the middle byte (below) of each sample.
constexpr EightShuffle kGroupShuffle = {{1, 0, 1, 2, 4, 3, 4, 5, 7, 6, 7, 8, 10, 9, 10, 11}};

int UnpackBitString(const std::uint8_t *packed, const std::uint8_t *end, int bits, int count, std::uint16_t *samples)
{
    const BitStringSteps steps(bits);
    const auto factors = hn::Load(Eight(), steps.factors);
    return EightsLoop(packed, end, steps.shuffle, bits, count, [=](int i, EightVector words) {
        hn::StoreU(hn::ShiftRightSame(hn::Mul(words, factors), 16 - bits), Eight(), samples + i);
    });
}

int UnpackGroups(const std::uint8_t *packed, const std::uint8_t *end, int bits, int count, std::uint16_t *samples)
{
    const auto isOdd = hn::MaskFromVec(hn::BitCast(Eight(), hn::Set(hn::FixedTag<std::uint32_t, 4>(), 0xffff0000U)));
    const int lowBits = bits - 8;
    const auto lowMask = hn::Set(Eight(), static_cast<std::uint16_t>((1U << lowBits) - 1));
    return EightsLoop(packed, end, kGroupShuffle, 12, count, [=](int i, EightVector words) {
        const auto high = hn::ShiftLeftSame(hn::ShiftRight<8>(words), lowBits);
        const auto low = hn::IfThenElse(isOdd, hn::ShiftRight<4>(words), words);
        hn::StoreU(hn::Or(high, hn::And(low, lowMask)), Eight(), samples + i);
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

void StoreHighBytes(EightVector words, std::uint8_t *bytes)
{
    const auto high = hn::BitCast(hn::RebindToSigned<Eight>(), hn::ShiftRight<8>(words));
    hn::StoreU(hn::DemoteTo(EightBytes(), high), EightBytes(), bytes);
}

void NarrowEights(const std::uint8_t *packed, const std::uint8_t *end, SamplePacking packing, int bits, int count,
                  std::uint8_t *bytes)
{
    const bool isGrouped = packing != SamplePacking::BitString;
    const int bytesPerEight = isGrouped ? 12 : bits;
    int done = 0;
    if (isGrouped) {
        done = EightsLoop(packed, end, kGroupShuffle, bytesPerEight, count,
                          [=](int i, EightVector words) { StoreHighBytes(words, bytes + i); });
    } else {
        const BitStringSteps steps(bits);
        const auto factors = hn::Load(Eight(), steps.factors);
        done = EightsLoop(packed, end, steps.shuffle, bytesPerEight, count,
                          [=](int i, EightVector words) { StoreHighBytes(hn::Mul(words, factors), bytes + i); });
    }
    plain::NarrowEights(packed + done / 8 * bytesPerEight, end, packing, bits, count - done, bytes + done);
}

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

/// The bytes of pixels, the even ones and the odd ones each in 16-bit lanes, summed over two lines.
struct ByteSums {
    PairVector even;
    PairVector odd;
};

ByteSums SumLines(const std::uint32_t *upper, const std::uint32_t *lower)
{
    const auto evenBytes = hn::Set(Pairs(), 0x00ff00ffU);
    const auto above = hn::LoadU(Pairs(), upper);
    const auto below = hn::LoadU(Pairs(), lower);
    return {hn::Add(hn::And(above, evenBytes), hn::And(below, evenBytes)),
            hn::Add(hn::And(hn::ShiftRight<8>(above), evenBytes), hn::And(hn::ShiftRight<8>(below), evenBytes))};
}

/// Of the neighbouring pixels in two vectors: sums, rounded quarters.
PairVector QuarterOfNeighbours(PairVector first, PairVector second)
{
    const auto sum = hn::Add(hn::ConcatEven(Pairs(), second, first), hn::ConcatOdd(Pairs(), second, first));
    const auto rounded = hn::Add(sum, hn::Set(Pairs(), 0x00020002U));
    return hn::And(hn::ShiftRight<2>(rounded), hn::Set(Pairs(), 0x00ff00ffU));
}

void MeansOfFour(const std::uint32_t *upper, const std::uint32_t *lower, int pixels, std::uint32_t *means)
{
    const int lanes = static_cast<int>(hn::Lanes(Pairs()));
    int i = 0;
    for (; i + lanes <= pixels; i += lanes) {
        const ByteSums first = SumLines(upper + 2 * i, lower + 2 * i);
        const ByteSums second = SumLines(upper + 2 * i + lanes, lower + 2 * i + lanes);
        const auto even = QuarterOfNeighbours(first.even, second.even);
        const auto odd = QuarterOfNeighbours(first.odd, second.odd);
        hn::StoreU(hn::Or(even, hn::ShiftLeft<8>(odd)), Pairs(), means + i);
    }
    plain::MeansOfFour(upper + 2 * i, lower + 2 * i, pixels - i, means + i);
}

using Ints = hn::RebindToSigned<Pairs>;
using IntVector = hn::Vec<Ints>;

PairVector ColourLevel(IntVector scaled)
{
    const auto level = hn::Max(hn::ShiftRight<16>(scaled), hn::Zero(Ints()));
    return hn::BitCast(Pairs(), hn::Min(level, hn::Set(Ints(), 255)));
}

void YuvToColours(int pixels, std::uint32_t *colours)
{
    const Ints ints;
    const int lanes = static_cast<int>(hn::Lanes(ints));
    const auto byteMask = hn::Set(ints, 0xff);
    const auto middle = hn::Set(ints, 128);
    int i = 0;
    for (; i + lanes <= pixels; i += lanes) {
        const auto pixel = hn::BitCast(ints, hn::LoadU(Pairs(), colours + i));
        const auto luma = hn::And(hn::ShiftRight<16>(pixel), byteMask);
        const auto base = hn::Add(hn::ShiftLeft<16>(luma), hn::Set(ints, 1 << 15));
        const auto u = hn::Sub(hn::And(hn::ShiftRight<8>(pixel), byteMask), middle);
        const auto v = hn::Sub(hn::And(pixel, byteMask), middle);
        const auto red = hn::Add(base, hn::Mul(v, hn::Set(ints, kRedOfV)));
        const auto green =
            hn::Sub(hn::Sub(base, hn::Mul(u, hn::Set(ints, kGreenOfU))), hn::Mul(v, hn::Set(ints, kGreenOfV)));
        const auto blue = hn::Add(base, hn::Mul(u, hn::Set(ints, kBlueOfU)));
        StorePixels(ColourLevel(red), ColourLevel(green), ColourLevel(blue), colours + i);
    }
    plain::YuvToColours(pixels - i, colours + i);
}

/// Gives the planes of each vector of colours to `store`.
/// \return the pixels done.
template <class Store> int PlanesLoop(const std::uint32_t *colours, int pixels, Store store)
{
    using Bytes = hn::ScalableTag<std::uint8_t>;
    const int lanes = static_cast<int>(hn::Lanes(Bytes()));
    int i = 0;
    for (; i + lanes <= pixels; i += lanes) {
        hn::Vec<Bytes> red;
        hn::Vec<Bytes> green;
        hn::Vec<Bytes> blue;
        hn::Vec<Bytes> alpha;
        hn::LoadInterleaved4(Bytes(), reinterpret_cast<const std::uint8_t *>(colours + i), blue, green, red, alpha);
        store(i, red, green, blue);
    }
    return i;
}

void ColoursToRgb(const std::uint32_t *colours, int pixels, std::uint8_t *bytes)
{
    using Bytes = hn::ScalableTag<std::uint8_t>;
    const int done = PlanesLoop(colours, pixels, [=](int i, auto red, auto green, auto blue) {
        hn::StoreInterleaved3(red, green, blue, Bytes(), bytes + 3 * i);
    });
    plain::ColoursToRgb(colours + done, pixels - done, bytes + 3 * done);
}

void ColoursToBgr(const std::uint32_t *colours, int pixels, std::uint8_t *bytes)
{
    using Bytes = hn::ScalableTag<std::uint8_t>;
    const int done = PlanesLoop(colours, pixels, [=](int i, auto red, auto green, auto blue) {
        hn::StoreInterleaved3(blue, green, red, Bytes(), bytes + 3 * i);
    });
    plain::ColoursToBgr(colours + done, pixels - done, bytes + 3 * done);
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
HWY_EXPORT(NarrowEights);
HWY_EXPORT(PickBytes);
HWY_EXPORT(PickWords);
HWY_EXPORT(PairsToGrey);
HWY_EXPORT(PickCells);
HWY_EXPORT(CellsToRgb);
HWY_EXPORT(CellPairsToRgb);
HWY_EXPORT(BytesToGrey);
HWY_EXPORT(MeansOfFour);
HWY_EXPORT(YuvToColours);
HWY_EXPORT(ColoursToRgb);
HWY_EXPORT(ColoursToBgr);
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

void NarrowEights(const std::uint8_t *packed, const std::uint8_t *end, SamplePacking packing, int bits, int count,
                  std::uint8_t *bytes)
{
    HWY_DYNAMIC_DISPATCH(NarrowEights)(packed, end, packing, bits, count, bytes);
}

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

void BytesToGrey(const std::uint8_t *bytes, int pixels, std::uint32_t *colours)
{
    HWY_DYNAMIC_DISPATCH(BytesToGrey)(bytes, pixels, colours);
}

void MeansOfFour(const std::uint32_t *upper, const std::uint32_t *lower, int pixels, std::uint32_t *means)
{
    HWY_DYNAMIC_DISPATCH(MeansOfFour)(upper, lower, pixels, means);
}

void YuvToColours(int pixels, std::uint32_t *colours)
{
    HWY_DYNAMIC_DISPATCH(YuvToColours)(pixels, colours);
}

void ColoursToRgb(const std::uint32_t *colours, int pixels, std::uint8_t *bytes)
{
    HWY_DYNAMIC_DISPATCH(ColoursToRgb)(colours, pixels, bytes);
}

void ColoursToBgr(const std::uint32_t *colours, int pixels, std::uint8_t *bytes)
{
    HWY_DYNAMIC_DISPATCH(ColoursToBgr)(colours, pixels, bytes);
}

void DemosaicLine(const MosaicLines &lines, int pixels, std::uint32_t *colours)
{
    HWY_DYNAMIC_DISPATCH(DemosaicLine)(lines, pixels, colours);
}

} // namespace orv
#endif // HWY_ONCE
