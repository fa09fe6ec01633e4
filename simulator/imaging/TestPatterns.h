#pragma once

#include "simulator/imaging/Canvas.h"
#include "simulator/imaging/FrameSettings.h"
#include "simulator/imaging/Readout.h"

#include "orvimage/PixelLayout.h"

#include <cstdint>

namespace orvsim {

/// Samples of a test pattern, which has no noise and which no exposure, gain, black level, gamma or balance changes.
/// Ramps and bars run over the whole picture, as binned, decimated and mirrored; a region cuts its part out.
///
/// Black: 0. White: the highest value. Ramps: from 0 to the highest value, rounded down. Colour bar: white, yellow,
/// cyan, green, magenta, red, blue, black, an eighth of the width each. Off and FrameCounter: 0.
struct PatternLine {
    TestPattern pattern;
    int bits; ///< of a sample
    Channel even;
    Channel odd; ///< of the frame's odd columns
};
void DrawPattern(const PatternLine &line, const Readout &readout, int y, int begin, int end, std::uint16_t *samples);

/// The frame counter's picture: every sample of the pixel in column x and line y of the frame, whatever its colour, has
/// the value (x + y + frameNumber) modulo 2^bits, so that a receiver can tell every byte of every frame.
void FillFrameCounter(const FrameSettings &settings, const orv::PixelLayout &layout, std::uint64_t frameNumber,
                      std::uint8_t *image);

} // namespace orvsim
