#pragma once

#include "orvimage/Convert.h"
#include "orvimage/PixelLayout.h"

#include <cstddef>
#include <vector>

namespace orv {

/// What of the image makes one window pixel.
enum class Sampling {
    Nearest,    ///< the image pixel at its centre
    FourPixels, ///< the mean of image pixels at the quarter points
    TwoPairs,   ///< the mean of two pairs of neighbours on the line through its centre, at the quarter points
    OneCell,    ///< the 2 x 2 colour filter cell at its centre
    FourCells   ///< the mean of the cells at the quarter points
};

/// One direction of a view. The units are image pixels, the left ones of pairs, or cells.
struct AxisPlan {
    int begin = 0;          ///< first window pixel that shows the image
    int end = 0;            ///< one past the last; begin when there is none
    int taps = 1;           ///< units per window pixel
    std::vector<int> units; ///< taps for each of the window pixels begin .. end - 1, ascending

    int Pixels() const { return end - begin; }
    int FirstUnit() const { return units.front(); }
    int LastUnit() const { return units.back(); }
    const int *UnitsOf(int windowPixel) const { return units.data() + std::ptrdiff_t{windowPixel - begin} * taps; }
};

struct ViewPlan {
    Sampling sampling = Sampling::Nearest;
    AxisPlan x;
    AxisPlan y;

    bool ByCells() const { return sampling == Sampling::OneCell || sampling == Sampling::FourCells; }
    bool IsEmpty() const { return x.units.empty() || y.units.empty(); }
};

/// Up to 50 % (cells: always) no unit appears twice in a direction, unless the direction has fewer units than taps.
/// Across, that is an image of one column only.
///
/// An image of which less than a window pixel is seen in a direction takes one there: it is not lost.
ViewPlan PlanView(const PixelSource &source, const ViewTransform &view, const ViewTarget &target);

/// True when a transform and a target can be worked with.
bool IsUsable(const ViewTransform &view, const ViewTarget &target);

/// The colours per stored level, for one look-up per sample. Empty when there are none.
LevelColours ColoursByLevel(const PixelSource &source, const LevelColours *colours);

} // namespace orv
