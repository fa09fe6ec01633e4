#pragma once

#include "orvsupport/OrvParam.h"

/// Range rules of integer and floating-point parameters.
///
/// A record whose minimum and maximum are both 0 declares no range: a parameter that could only be 0 is never meant,
/// while a record cleared and left that way often is. Increments count from the minimum, or from 0 where the minimum
/// is the lowest number of the type.
namespace orv {

/// False for a range turned upside down, a negative increment, a default outside the range, or a not-a-number.
bool IsSoundRange(const _OrvStParam::IntValue &declared);
bool IsSoundRange(const _OrvStParam::FloatValue &declared);

/// The allowed value nearest to `value`, which is not a not-a-number. A value between two steps and equally far from
/// both goes up. A floating-point value that misses a step only by rounding noise is kept as it is.
std::int64_t NearestAllowed(const _OrvStParam::IntValue &declared, std::int64_t value);
double NearestAllowed(const _OrvStParam::FloatValue &declared, double value);

} // namespace orv
