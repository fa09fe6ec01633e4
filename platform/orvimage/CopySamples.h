#pragma once

#include "orvimage/PixelLayout.h"

#include <cstdint>

namespace orv {

/// Where consecutive samples are to be stored; as SampleRun, a run may start inside a byte.
struct SampleTarget {
    std::uint8_t *origin; ///< where sample 0 of the numbering lies
    std::uint64_t first;  ///< number of the run's first sample
};

/// Copies samples of a bit string or of groups. What else lies in the first and the last byte that they touch stays.
///
/// Many samples at a time: sample by sample, a large sensor's picture takes a quarter of a second.
void CopyPackedSamples(const PixelLayout &layout, const SampleRun &from, const SampleTarget &to, std::uint64_t count);

} // namespace orv
