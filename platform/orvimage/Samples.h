#pragma once

#include "orvimage/PixelLayout.h"

#include <cstddef>
#include <cstdint>

namespace orv {

/// Sample number k of a run's numbering (not counted from run.first), as stored. Plain and slow: the fast unpacking
/// must give the same.
std::uint16_t SampleAt(const SampleRun &run, SamplePacking packing, int bits, std::uint64_t k);

/// Stores a sample and leaves the bits of its neighbours alone.
void StoreSample(std::uint8_t *origin, SamplePacking packing, int bits, std::uint64_t k, std::uint16_t value);

/// Samples first .. first + count - 1 of a line (counted from its start), as stored.
/// \param samples  room for count values.
void UnpackSamples(const SampleRun &line, const PixelLayout &layout, int first, int count, std::uint16_t *samples);

/// The same brought to 8 bits: shifted right, and 255 where a value is beyond the significant bits.
void UnpackToEight(const SampleRun &line, const PixelLayout &layout, int shift, int first, int count,
                   std::uint8_t *samples);

} // namespace orv
