#include "orvsupport/ParamRange.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace orv {
namespace {

template <class T> struct Range {
    T minimum;
    T maximum;
};

template <class T, class Declared> Range<T> RangeOf(const Declared &declared)
{
    if (declared.minimum == 0 && declared.maximum == 0)
        return {std::numeric_limits<T>::lowest(), std::numeric_limits<T>::max()};
    return {declared.minimum, declared.maximum};
}

template <class T> T FirstStep(const Range<T> &range)
{
    return range.minimum == std::numeric_limits<T>::lowest() ? T{0} : range.minimum;
}

/// Largest distance from a step, in increments, that counts as on it: 0.3 and 3 * 0.1 differ in the last digit.
constexpr double kStepNoise = 1e-9;

} // namespace

bool IsSoundRange(const _OrvStParam::IntValue &declared)
{
    const auto range = RangeOf<std::int64_t>(declared);
    return range.minimum <= range.maximum && declared.increment >= 0 && declared.defaultValue >= range.minimum &&
           declared.defaultValue <= range.maximum;
}

bool IsSoundRange(const _OrvStParam::FloatValue &declared)
{
    // Every comparison with a not-a-number is false, so each of the four fields is covered.
    const auto range = RangeOf<double>(declared);
    return range.minimum <= range.maximum && declared.increment >= 0 && declared.defaultValue >= range.minimum &&
           declared.defaultValue <= range.maximum;
}

std::int64_t NearestAllowed(const _OrvStParam::IntValue &declared, std::int64_t value)
{
    const auto range = RangeOf<std::int64_t>(declared);
    const std::int64_t inRange = std::clamp(value, range.minimum, range.maximum);
    if (declared.increment <= 1)
        return inRange;

    // 128 bits: neither the distance from the first step nor half an increment more can overflow.
    using Wide = __int128;
    const Wide first = FirstStep(range);
    const Wide increment = declared.increment;
    const auto stepAtOrBelow = [&](Wide wanted) {
        const Wide distance = wanted - first;
        const Wide steps = distance >= 0 ? distance / increment : -((-distance + increment - 1) / increment);
        return first + steps * increment;
    };
    const Wide step = stepAtOrBelow(Wide{inRange} + increment / 2);
    if (step > range.maximum)
        return static_cast<std::int64_t>(stepAtOrBelow(range.maximum));
    return static_cast<std::int64_t>(step < range.minimum ? step + increment : step);
}

double NearestAllowed(const _OrvStParam::FloatValue &declared, double value)
{
    const auto range = RangeOf<double>(declared);
    const double inRange = std::clamp(value, range.minimum, range.maximum);
    if (declared.increment <= 0)
        return inRange;

    const double first = FirstStep(range);
    const double steps = (inRange - first) / declared.increment;
    const double nearest = std::floor(steps + 0.5);
    if (!std::isfinite(nearest) || std::abs(steps - nearest) <= kStepNoise)
        return inRange;
    const double step = first + nearest * declared.increment;
    return step > range.maximum ? first + std::floor((range.maximum - first) / declared.increment) * declared.increment
                                : step;
}

} // namespace orv
