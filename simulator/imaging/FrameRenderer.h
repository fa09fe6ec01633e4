#pragma once

#include "simulator/imaging/FrameSettings.h"

#include <cstdint>
#include <memory>

namespace orvsim {

/// Steps of the scene's movement until it starts anew.
constexpr int kScenePhases = 64;

/// Takes pictures: the moving scene through the sensor model into the wire format.
///
/// The scene: fine text, slanted edges, a zone plate, grey and colour gradients, colour patches, moving parts, and a
/// window with the frame number and the time. The sensor: shot noise, read noise, dark current, gain, black level, full
/// well, bit depth, the colour filter (see SensorModel). The same seed, settings and phase give the same bytes.
///
/// A Bayer format's own pattern starts at the frame's first pixel, whatever offset and mirroring. Sensors without
/// colour give grey in colour formats; Mono formats of colour sensors give the luma.
///
/// One thread at a time. The scene is drawn once, when the renderer is made.
class FrameRenderer {
public:
    FrameRenderer(const SensorTraits &sensor, std::uint64_t seed);
    /// A renderer for another thread that looks at the same scene, which costs neither time nor memory.
    FrameRenderer(const FrameRenderer &other);
    FrameRenderer &operator=(const FrameRenderer &) = delete;
    ~FrameRenderer();

    /// Zeros for a format whose layout is not known and for a region that is wider than the sensor.
    /// \param phase    0 .. kScenePhases - 1
    /// \param payload  room for ImageBytes(settings)
    void Render(const FrameSettings &settings, int phase, std::uint8_t *payload);

    /// Redraws the window with the frame number and the time in a rendered frame; costs little. Frames that do not show
    /// that part of the scene, and test patterns without a counter, stay as they are.
    ///
    /// With TestPattern::FrameCounter the whole frame is written here, since all of it changes with the number: every
    /// sample of the pixel in column x and line y has the value (x + y + frameNumber) modulo 2^bits of the format.
    void Stamp(const FrameSettings &settings, std::uint64_t frameNumber, std::uint64_t timestampNs,
               std::uint8_t *payload);

private:
    struct Parts;
    std::unique_ptr<Parts> m_parts;
};

} // namespace orvsim
