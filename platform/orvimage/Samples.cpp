#include "orvimage/Samples.h"

#include "orvimage/Kernels.h"

#include <algorithm>
#include <cstring>

namespace orv {

namespace {

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "16-bit samples are read as they lie in memory");

/// Bits of an unpacked sample that lie in the byte with the high eight bits, and where the others lie in the middle
/// byte of the group.
int GroupedLowShift(std::uint64_t k)
{
    return k % 2 == 0 ? 0 : 4;
}

std::uint16_t BitStringSample(const std::uint8_t *origin, int bits, std::uint64_t k)
{
    const std::uint64_t firstBit = k * static_cast<unsigned>(bits);
    const auto room = static_cast<int>(firstBit % 8);
    const std::uint8_t *const byte = origin + firstBit / 8;
    std::uint32_t window = byte[0];
    for (int have = 8, i = 1; have < room + bits; have += 8, ++i)
        window |= static_cast<std::uint32_t>(byte[i]) << (8 * i);
    return static_cast<std::uint16_t>(window >> room & ((1U << bits) - 1));
}

std::uint16_t GroupedSample(const std::uint8_t *origin, int bits, std::uint64_t k)
{
    const std::uint8_t *const group = origin + k / 2 * 3;
    const int lowBits = bits - 8;
    const unsigned high = group[k % 2 == 0 ? 0 : 2];
    const unsigned low = group[1] >> GroupedLowShift(k) & ((1U << lowBits) - 1);
    return static_cast<std::uint16_t>(high << lowBits | low);
}

void StoreBitString(std::uint8_t *origin, int bits, std::uint64_t k, std::uint16_t value)
{
    for (int bit = 0; bit < bits; ++bit) {
        const std::uint64_t at = k * static_cast<unsigned>(bits) + static_cast<unsigned>(bit);
        const auto mask = static_cast<std::uint8_t>(1U << at % 8);
        std::uint8_t &byte = origin[at / 8];
        byte = static_cast<std::uint8_t>((value >> bit & 1) != 0 ? byte | mask : byte & ~mask);
    }
}

void StoreGrouped(std::uint8_t *origin, int bits, std::uint64_t k, std::uint16_t value)
{
    std::uint8_t *const group = origin + k / 2 * 3;
    const unsigned lowMask = (1U << (bits - 8)) - 1;
    const int lowShift = GroupedLowShift(k);
    group[k % 2 == 0 ? 0 : 2] = static_cast<std::uint8_t>(value >> (bits - 8));
    group[1] = static_cast<std::uint8_t>((group[1] & ~(lowMask << lowShift)) | (value & lowMask) << lowShift);
}

/// The part of a run of packed samples that is whole eights, which fill whole bytes in every packing.
struct Eights {
    int begin; ///< counted from the run's first sample
    int end;
    const std::uint8_t *bytes;
};

Eights EightsWithin(const SampleRun &line, const PixelLayout &layout, std::uint64_t from, int count)
{
    const int begin = std::min(count, static_cast<int>((8 - from % 8) % 8));
    const int end = begin + (count - begin) / 8 * 8;
    const std::uint64_t bytesPerEight =
        layout.packing == SamplePacking::BitString ? static_cast<std::uint64_t>(layout.bits) : 12;
    return {begin, end, line.origin + (from + static_cast<unsigned>(begin)) / 8 * bytesPerEight};
}

} // namespace

std::uint16_t SampleAt(const SampleRun &run, SamplePacking packing, int bits, std::uint64_t k)
{
    switch (packing) {
    case SamplePacking::Bytes:
        return run.origin[k];
    case SamplePacking::Words:
        return static_cast<std::uint16_t>(run.origin[2 * k] | run.origin[2 * k + 1] << 8);
    case SamplePacking::BitString:
        return BitStringSample(run.origin, bits, k);
    case SamplePacking::Grouped10:
    case SamplePacking::Grouped12:
        return GroupedSample(run.origin, bits, k);
    }
    return 0;
}

void StoreSample(std::uint8_t *origin, SamplePacking packing, int bits, std::uint64_t k, std::uint16_t value)
{
    switch (packing) {
    case SamplePacking::Bytes:
        origin[k] = static_cast<std::uint8_t>(value);
        break;
    case SamplePacking::Words:
        origin[2 * k] = static_cast<std::uint8_t>(value);
        origin[2 * k + 1] = static_cast<std::uint8_t>(value >> 8);
        break;
    case SamplePacking::BitString:
        StoreBitString(origin, bits, k, value);
        break;
    case SamplePacking::Grouped10:
    case SamplePacking::Grouped12:
        StoreGrouped(origin, bits, k, value);
        break;
    }
}

void UnpackSamples(const SampleRun &line, const PixelLayout &layout, int first, int count, std::uint16_t *samples)
{
    const std::uint64_t from = line.first + static_cast<unsigned>(first);
    if (layout.packing == SamplePacking::Words) {
        std::memcpy(samples, line.origin + 2 * from, 2 * static_cast<std::size_t>(count));
        return;
    }
    if (layout.packing == SamplePacking::Bytes) {
        std::copy_n(line.origin + from, count, samples);
        return;
    }
    const auto oneByOne = [&](int begin, int end) {
        for (int i = begin; i < end; ++i)
            samples[i] = SampleAt(line, layout.packing, layout.bits, from + static_cast<unsigned>(i));
    };
    const Eights eights = EightsWithin(line, layout, from, count);
    oneByOne(0, eights.begin);
    UnpackEights(eights.bytes, line.end, layout.packing, layout.bits, eights.end - eights.begin,
                 samples + eights.begin);
    oneByOne(eights.end, count);
}

void UnpackToEight(const SampleRun &line, const PixelLayout &layout, int shift, int first, int count,
                   std::uint8_t *samples)
{
    const std::uint64_t from = line.first + static_cast<unsigned>(first);
    if (layout.packing == SamplePacking::Bytes) {
        std::memcpy(samples, line.origin + from, static_cast<std::size_t>(count));
        return;
    }
    if (layout.packing == SamplePacking::Words) {
        NarrowWords(line.origin + 2 * from, count, shift, samples);
        return;
    }
    const auto oneByOne = [&](int begin, int end) {
        for (int i = begin; i < end; ++i) {
            const int sample = SampleAt(line, layout.packing, layout.bits, from + static_cast<unsigned>(i));
            samples[i] = static_cast<std::uint8_t>(std::min(sample >> shift, 255));
        }
    };
    if (shift != layout.bits - 8) // fewer significant bits than the packing has: nobody sends that
        return oneByOne(0, count);
    const Eights eights = EightsWithin(line, layout, from, count);
    oneByOne(0, eights.begin);
    NarrowEights(eights.bytes, line.end, layout.packing, layout.bits, eights.end - eights.begin,
                 samples + eights.begin);
    oneByOne(eights.end, count);
}

} // namespace orv
