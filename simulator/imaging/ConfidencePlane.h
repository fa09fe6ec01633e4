#pragma once

#include "simulator/imaging/FrameSettings.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace orvsim {

/// A second picture that goes with a frame: how far each of its pixels can be trusted, one byte each, 255 the most.
///
/// Trust falls from the middle to 63 in the corners, as light does behind a lens. With the test pattern FrameCounter
/// the byte is 255 - (column + line + frame number), modulo 256, so that each can be checked.
///
/// One thread. The plane of the last region is kept, so that a frame costs a copy.
class ConfidencePlane {
public:
    /// Bytes of the plane: one per pixel.
    static std::size_t Bytes(const FrameSettings &settings);

    void AppendTo(std::vector<std::uint8_t> &payload, const FrameSettings &settings, std::uint64_t frameNumber);

private:
    void Draw(int width, int height);

    int m_width = 0;
    int m_height = 0;
    std::vector<std::uint8_t> m_plane;
};

} // namespace orvsim
