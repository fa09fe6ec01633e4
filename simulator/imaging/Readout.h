#pragma once

#include "simulator/imaging/FrameSettings.h"

#include <vector>

namespace orvsim {

/// Which sensor pixels make up each pixel of a frame: region, binning, decimation and mirroring.
///
/// The frame is cut from the whole binned, decimated and mirrored picture, so a region's offset counts in the picture
/// as it is seen. With a colour filter, pixels of the same colour are binned: they lie two apart, and 2 x 2 cells are
/// what decimation skips.
class Readout {
public:
    Readout() = default;
    /// \param isMosaic  pixels lie behind a colour filter
    Readout(const SensorTraits &sensor, const FrameSettings &settings, bool isMosaic);

    /// One direction: across or down.
    struct Axis {
        std::vector<int> first;   ///< for each pixel of the frame: the first of its sensor pixels
        std::vector<int> picture; ///< for each pixel of the frame: its place in the whole picture, mirrored
        int pictureSize = 1;      ///< pixels of the whole picture
        int count = 1;            ///< sensor pixels per pixel of the frame
        int step = 1;             ///< from one of them to the next

        /// One past the last sensor pixel that pixel i needs.
        int End(int i) const { return first[static_cast<std::size_t>(i)] + (count - 1) * step + 1; }
        struct Range {
            int begin;
            int end;
        };
        /// Pixels of the frame that see any of the sensor pixels begin .. end - 1.
        Range Seeing(int begin, int end) const;
        /// Sensor pixels that the frame's pixels begin .. end - 1 need.
        Range Needed(int begin, int end) const;
    };

    Axis across;
    Axis down;
};

} // namespace orvsim
