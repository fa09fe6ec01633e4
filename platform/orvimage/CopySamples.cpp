#include "orvimage/CopySamples.h"

#include "orvimage/Samples.h"

#include <algorithm>
#include <cstring>

namespace orv {

namespace {

/// Less than a byte's bits, from within two bytes at most.
unsigned BitsAt(const std::uint8_t *bytes, std::uint64_t at, unsigned count)
{
    const unsigned room = at % 8;
    unsigned window = bytes[at / 8];
    if (room + count > 8)
        window |= static_cast<unsigned>(bytes[at / 8 + 1]) << 8;
    return window >> room & ((1U << count) - 1);
}

/// Within one byte.
void StoreBits(std::uint8_t *bytes, std::uint64_t at, unsigned count, unsigned value)
{
    std::uint8_t &byte = bytes[at / 8];
    const unsigned mask = ((1U << count) - 1) << at % 8;
    byte = static_cast<std::uint8_t>((byte & ~mask) | value << at % 8);
}

/// Whole bytes of the target, out of bytes that begin `shift` bits into the first one.
void CopyShifted(const std::uint8_t *from, unsigned shift, std::uint8_t *to, std::uint64_t bytes)
{
    if (shift == 0) {
        std::memcpy(to, from, bytes);
        return;
    }
    std::uint64_t i = 0;
    for (; i + 8 <= bytes; i += 8) {
        std::uint64_t eight = 0;
        std::memcpy(&eight, from + i, 8);
        eight = eight >> shift | static_cast<std::uint64_t>(from[i + 8]) << (64 - shift);
        std::memcpy(to + i, &eight, 8);
    }
    for (; i < bytes; ++i)
        to[i] = static_cast<std::uint8_t>(from[i] >> shift | from[i + 1] << (8 - shift));
}

/// Least significant bit first.
void CopyBits(const std::uint8_t *from, std::uint64_t fromBit, std::uint8_t *to, std::uint64_t toBit,
              std::uint64_t count)
{
    const auto head = static_cast<unsigned>(std::min<std::uint64_t>(count, (8 - toBit % 8) % 8));
    if (head > 0)
        StoreBits(to, toBit, head, BitsAt(from, fromBit, head));
    fromBit += head;
    toBit += head;
    count -= head;
    CopyShifted(from + fromBit / 8, fromBit % 8, to + toBit / 8, count / 8);
    const auto tail = static_cast<unsigned>(count % 8);
    if (tail > 0)
        StoreBits(to, toBit + count - tail, tail, BitsAt(from, fromBit + count - tail, tail));
}

/// From an even sample on: two samples make a group. The spare bits of the 10-bit packing stay.
void PackGroups(const std::uint16_t *samples, std::uint64_t groups, int bits, std::uint8_t *to)
{
    const int lowBits = bits - 8;
    const unsigned lowMask = (1U << lowBits) - 1;
    const unsigned spare = ~(lowMask | lowMask << 4);
    for (std::uint64_t i = 0; i < groups; ++i, samples += 2, to += 3) {
        to[0] = static_cast<std::uint8_t>(samples[0] >> lowBits);
        to[1] = static_cast<std::uint8_t>((to[1] & spare) | (samples[0] & lowMask) | (samples[1] & lowMask) << 4);
        to[2] = static_cast<std::uint8_t>(samples[1] >> lowBits);
    }
}

void StoreGroupedSamples(const PixelLayout &layout, const std::uint16_t *samples, std::uint64_t count,
                         const SampleTarget &to)
{
    const std::uint64_t head = std::min(count, to.first % 2);
    const std::uint64_t groups = (count - head) / 2;
    if (head > 0)
        StoreSample(to.origin, layout.packing, layout.bits, to.first, samples[0]);
    PackGroups(samples + head, groups, layout.bits, to.origin + (to.first + head) / 2 * 3);
    if (head + 2 * groups < count)
        StoreSample(to.origin, layout.packing, layout.bits, to.first + count - 1, samples[count - 1]);
}

/// By way of unpacked samples, in pieces: an odd sample's high bits lie elsewhere than an even one's.
void CopyGroups(const PixelLayout &layout, const SampleRun &from, const SampleTarget &to, std::uint64_t count)
{
    constexpr std::uint64_t kPiece = 1024;
    std::uint16_t samples[kPiece];
    for (std::uint64_t done = 0; done < count; done += kPiece) {
        const std::uint64_t piece = std::min(kPiece, count - done);
        UnpackSamples({from.origin, from.end, from.first + done}, layout, 0, static_cast<int>(piece), samples);
        StoreGroupedSamples(layout, samples, piece, {to.origin, to.first + done});
    }
}

} // namespace

void CopyPackedSamples(const PixelLayout &layout, const SampleRun &from, const SampleTarget &to, std::uint64_t count)
{
    const auto bits = static_cast<std::uint64_t>(layout.bits);
    if (layout.packing == SamplePacking::BitString)
        CopyBits(from.origin, from.first * bits, to.origin, to.first * bits, count * bits);
    else
        CopyGroups(layout, from, to, count);
}

} // namespace orv
