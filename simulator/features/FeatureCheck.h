#pragma once

#include "simulator/features/Feature.h"

#include <cstdint>
#include <string>

/// What a feature takes: checked before its setter is called, whichever way the value came.
namespace orvsim {

/// True when an integer lies in the feature's register, whatever the feature shows of it.
bool HoldsInteger(const Feature &feature);
/// The range in force; that of the register where the feature states none.
IntegerRange RangeOf(const Feature &feature);

/// "must be 16 to 1280 in steps of 16", "must be one of On, Off": for all but String.
std::string AllowedValues(const Feature &feature);

/// Access, availability and lock. `problem` is untouched when the outcome is Ok, else it goes without the name.
Outcome CheckWritable(const Feature &feature, std::string &problem);
/// Range and increment, a known and available entry, 0 or 1.
Outcome CheckInteger(const Feature &feature, std::int64_t value, std::string &problem);
/// Finite and within the range.
Outcome CheckFloat(const Feature &feature, double value, std::string &problem);
/// Not longer than the register.
Outcome CheckText(const Feature &feature, const std::string &value, std::string &problem);

// All checks, then the setter.
Outcome SetInteger(const Feature &feature, std::int64_t value, std::string &problem);
Outcome SetFloat(const Feature &feature, double value, std::string &problem);
Outcome SetString(const Feature &feature, const std::string &value, std::string &problem);

} // namespace orvsim
