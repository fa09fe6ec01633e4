#pragma once

#include "orvimage/PixelLayout.h"

#include <cstdint>

namespace orvsim {

/// Stores samples first .. first + count - 1 of an image without padding. Neighbouring samples stay as they are; bits
/// that no sample has may or may not be cleared.
///
/// Equal to orv::StoreSample for every one of them, only faster.
/// \param samples  no value beyond the layout's bits
void PackSamples(std::uint8_t *image, const orv::PixelLayout &layout, std::uint64_t first, int count,
                 const std::uint16_t *samples);

/// Red, green and blue samples of pixels to the samples of an Rgb layout, in its order. A fourth sample is the highest
/// value.
struct ColourSamples {
    const std::uint16_t *red;
    const std::uint16_t *green;
    const std::uint16_t *blue;
};
void InterleaveRgb(const orv::PixelLayout &layout, const ColourSamples &colours, int pixels, std::uint16_t *samples);

/// The same for Yuv422 and Yuv444: BT.601 weights, full range, chroma around the middle. Two pixels of Yuv422 share the
/// mean of their chroma; the last pixel of an odd line has only what comes first.
/// Starts at an even pixel.
void EncodeYuv(const orv::PixelLayout &layout, const ColourSamples &colours, int pixels, std::uint16_t *samples);

} // namespace orvsim
