#include "orvimage/ViewPlan.h"

#include <algorithm>
#include <cmath>

namespace orv {

namespace {

Sampling SamplingFor(const PixelSource &source, double scale)
{
    if (scale >= 1)
        return Sampling::Nearest;
    // Narrow images lack the columns for two cells or two pairs of their own.
    const bool hasCells = source.layout.family == PixelFamily::Bayer && source.width >= 2 && source.height >= 2;
    if (hasCells && scale < 0.5)
        return scale > 0.25 || source.width < 4 ? Sampling::OneCell : Sampling::FourCells;
    return hasCells || scale > 0.25 || source.width < 3 ? Sampling::FourPixels : Sampling::TwoPairs;
}

struct Axis {
    double scale;
    int offset;
    int windowSize;
    int unitSize; ///< image pixels
    int units;    ///< whole units in the image
    double lead;  ///< units from a unit's first pixel to the point that it stands for
};

constexpr double kCentre[] = {0.5};
constexpr double kQuarters[] = {0.25, 0.75};

const double *PointsOf(int taps)
{
    return taps == 1 ? kCentre : kQuarters;
}

/// For an image so flat that no window pixel has all its points inside: the pixel over its middle shows it, with the
/// units nearest to the points. They differ when there are as many.
AxisPlan PlanFlatAxis(const Axis &axis, int taps)
{
    AxisPlan plan;
    plan.taps = taps;
    const double pixelsPerUnit = axis.scale * axis.unitSize;
    const double pixel = std::floor(axis.offset + (axis.lead + axis.units / 2.0) * pixelsPerUnit);
    if (axis.units < 1 || pixel < 0 || pixel >= axis.windowSize)
        return plan;
    plan.begin = static_cast<int>(pixel);
    plan.end = plan.begin + 1;
    int least = 0;
    for (int tap = 0; tap < taps; ++tap) {
        const int most = std::max(least, axis.units - taps + tap);
        const double position = std::floor((pixel + PointsOf(taps)[tap] - axis.offset) / pixelsPerUnit - axis.lead);
        plan.units.push_back(static_cast<int>(std::clamp<double>(position, least, most)));
        least = std::min(plan.units.back() + 1, axis.units - 1);
    }
    return plan;
}

AxisPlan PlanAxis(const Axis &axis, int taps)
{
    const double *const points = PointsOf(taps);
    const double pixelsPerUnit = axis.scale * axis.unitSize;
    // Where taps are further apart than a unit, rounding must not bring two of them to the same one.
    const bool mustAdvance = pixelsPerUnit * taps <= 1;

    AxisPlan plan;
    plan.taps = taps;
    int previous = -1;
    for (int i = 0; i < axis.windowSize; ++i) {
        int units[2] = {0, 0};
        bool isInside = true;
        for (int tap = 0; tap < taps && isInside; ++tap) {
            const double position = std::floor((i + points[tap] - axis.offset) / pixelsPerUnit - axis.lead);
            isInside = position >= 0 && position < axis.units;
            if (!isInside)
                break;
            units[tap] = static_cast<int>(position);
            if (mustAdvance)
                units[tap] = std::max(units[tap], previous + 1);
            isInside = units[tap] < axis.units;
            previous = units[tap];
        }
        if (isInside) {
            plan.begin = plan.units.empty() ? i : plan.begin;
            plan.end = i + 1;
            plan.units.insert(plan.units.end(), units, units + taps);
        } else if (!plan.units.empty()) {
            break; // beyond the image's end
        }
    }
    return plan.units.empty() ? PlanFlatAxis(axis, taps) : plan;
}

} // namespace

ViewPlan PlanView(const PixelSource &source, const ViewTransform &view, const ViewTarget &target)
{
    ViewPlan plan;
    plan.sampling = SamplingFor(source, view.scale);
    const int unitSize = plan.ByCells() ? 2 : 1;
    const bool inPairs = plan.sampling == Sampling::TwoPairs;
    const int columns = inPairs ? source.width - 1 : source.width / unitSize;
    const int tapsX = plan.sampling == Sampling::Nearest || plan.sampling == Sampling::OneCell ? 1 : 2;
    const int tapsY = inPairs ? 1 : tapsX;
    plan.x = PlanAxis({view.scale, view.offsetX, target.width, unitSize, columns, inPairs ? 0.5 : 0}, tapsX);
    plan.y = PlanAxis({view.scale, view.offsetY, target.height, unitSize, source.height / unitSize, 0}, tapsY);
    return plan;
}

bool IsUsable(const ViewTransform &view, const ViewTarget &target)
{
    return std::isfinite(view.scale) && view.scale > 0 && target.pixels != nullptr && target.width > 0 &&
           target.height > 0 && target.stride >= target.width;
}

LevelColours ColoursByLevel(const PixelSource &source, const LevelColours *colours)
{
    if (colours == nullptr || colours->empty() || source.layout.family != PixelFamily::Mono)
        return {};
    const std::size_t levels = std::size_t{1} << source.significantBits;
    LevelColours byLevel(levels);
    for (std::size_t level = 0; level < levels; ++level)
        byLevel[level] = (*colours)[level * colours->size() / levels] | 0xff000000U;
    return byLevel;
}

} // namespace orv
