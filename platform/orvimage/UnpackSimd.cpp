#include "orvimage/Kernels.h"

// Compiled once for each kind of processor; HWY_EXPORT collects the versions, HWY_DYNAMIC_DISPATCH takes the best one
// that the processor has.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "orvimage/UnpackSimd.cpp"
#include <hwy/foreach_target.h>
#include <hwy/highway.h>

#include "orvimage/Vectors-inl.h"

HWY_BEFORE_NAMESPACE();
namespace orv {
namespace HWY_NAMESPACE {

#if HWY_TARGET == HWY_SCALAR
// No vectors of at least 16 bytes: the plain version serves.
using plain::NarrowEights;
using plain::NarrowWords;
using plain::UnpackEights;
#else

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

#endif // HWY_SCALAR

} // namespace HWY_NAMESPACE
} // namespace orv
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace orv {

HWY_EXPORT(NarrowWords);
HWY_EXPORT(UnpackEights);
HWY_EXPORT(NarrowEights);

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

} // namespace orv
#endif // HWY_ONCE
