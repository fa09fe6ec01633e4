#include "orvimage/Kernels.h"

#include "orvimage/Colour.h"

#include <cstring>

// Compiled once for each kind of processor; HWY_EXPORT collects the versions, HWY_DYNAMIC_DISPATCH takes the best one
// that the processor has.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "orvimage/ColourSimd.cpp"
#include <hwy/foreach_target.h>
#include <hwy/highway.h>

#include "orvimage/Vectors-inl.h"

HWY_BEFORE_NAMESPACE();
namespace orv {
namespace HWY_NAMESPACE {

#if HWY_TARGET == HWY_SCALAR
// No vectors of at least 16 bytes: the plain version serves.
using plain::ColoursToBgr;
using plain::ColoursToRgb;
using plain::DemosaicLine;
using plain::MeansOfFour;
using plain::YuvToColours;
#else

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

HWY_EXPORT(MeansOfFour);
HWY_EXPORT(YuvToColours);
HWY_EXPORT(ColoursToRgb);
HWY_EXPORT(ColoursToBgr);
HWY_EXPORT(DemosaicLine);

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
