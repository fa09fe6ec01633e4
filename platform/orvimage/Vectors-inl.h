// Vector types and loads and stores that the kernels share. Included once for each kind of processor, which is what the
// guard allows: Highway flips its toggle from one to the next.
#if defined(ORV_ORVIMAGE_VECTORS_INL_H) == defined(HWY_TARGET_TOGGLE)
#ifdef ORV_ORVIMAGE_VECTORS_INL_H
#undef ORV_ORVIMAGE_VECTORS_INL_H
#else
#define ORV_ORVIMAGE_VECTORS_INL_H
#endif

#include <cstdint>
#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace orv {
namespace HWY_NAMESPACE {

#if HWY_TARGET != HWY_SCALAR

namespace hn = hwy::HWY_NAMESPACE;

using Words = hn::ScalableTag<std::uint16_t>;
using HalfBytes = hn::Rebind<std::uint8_t, Words>; // as many bytes as Words has words
using WordVector = hn::Vec<Words>;
using Pairs = hn::RepartitionToWide<Words>; // two words, or one pixel, in each lane
using PairVector = hn::Vec<Pairs>;

// Eight words or their bytes, for what is done by shuffles within 16 bytes.
using Eight = hn::FixedTag<std::uint16_t, 8>;
using EightBytes = hn::FixedTag<std::uint8_t, 8>;
using Sixteen = hn::FixedTag<std::uint8_t, 16>;
using EightVector = hn::Vec<Eight>;

HWY_INLINE WordVector LoadWords(const std::uint8_t *from)
{
    const hn::Repartition<std::uint8_t, Words> bytes;
    return hn::BitCast(Words(), hn::LoadU(bytes, from));
}

HWY_INLINE WordVector LoadBytes(const std::uint8_t *from)
{
    return hn::PromoteTo(Words(), hn::LoadU(HalfBytes(), from));
}

HWY_INLINE WordVector Narrowed(WordVector words, int shift)
{
    return hn::Min(hn::ShiftRightSame(words, shift), hn::Set(Words(), 255));
}

/// Stores pixels 0xffRRGGBB; every word of the arguments is at most 255.
HWY_INLINE void StoreColours(WordVector red, WordVector green, WordVector blue, std::uint32_t *colours)
{
    const WordVector low = hn::Or(blue, hn::ShiftLeft<8>(green));
    const WordVector high = hn::Or(red, hn::Set(Words(), 0xff00));
    hn::StoreInterleaved2(low, high, Words(), reinterpret_cast<std::uint16_t *>(colours));
}

/// Stores pixels from one colour level, at most 255, in each lane.
HWY_INLINE void StorePixels(PairVector red, PairVector green, PairVector blue, std::uint32_t *colours)
{
    const auto opaque = hn::Or(hn::Set(Pairs(), 0xff000000U), blue);
    hn::StoreU(hn::Or(opaque, hn::Or(hn::ShiftLeft<16>(red), hn::ShiftLeft<8>(green))), Pairs(), colours);
}

#endif // HWY_SCALAR

} // namespace HWY_NAMESPACE
} // namespace orv
HWY_AFTER_NAMESPACE();

#endif
