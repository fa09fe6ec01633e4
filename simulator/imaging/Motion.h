#pragma once

#include "simulator/imaging/Canvas.h"

#include <memory>
#include <string>
#include <vector>

namespace orvsim {

/// A line of the scene on its way to the sensor: the codes of the channels that are wanted, in sensor pixels.
struct SceneLine {
    std::vector<std::uint8_t> planes[kChannels]; ///< the others are empty

    const std::uint8_t *Plane(Channel channel) const { return planes[static_cast<std::size_t>(channel)].data(); }

    /// Lays an ink over a pixel.
    /// \param cover  0 to 255
    void Lay(int x, const Ink &ink, int cover)
    {
        for (std::size_t channel = 0; channel < kChannels; ++channel) {
            if (planes[channel].empty())
                continue;
            std::uint8_t &code = planes[channel][static_cast<std::size_t>(x)];
            code = static_cast<std::uint8_t>(code + (ink.codes[channel] - code) * cover / 255);
        }
    }
};

/// A part of the scene that moves, once around in kScenePhases phases. Constant once made: any thread.
class MovingPart {
public:
    virtual ~MovingPart() = default;
    /// Lines outside this area stay as they are.
    virtual PixelArea Area(int phase) const = 0;
    virtual void Draw(int y, int phase, SceneLine &line) const = 0;
};

/// All moving parts of the chart, in the order in which they cover each other.
std::vector<std::unique_ptr<MovingPart>> MakeMovingParts(const Canvas &canvas);

} // namespace orvsim
