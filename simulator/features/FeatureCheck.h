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

/// "must be 16 to 1280 in steps of 16", "must be one of On, Off".
std::string AllowedValues(const Feature &feature);

/// Access, availability and lock. `problem` is untouched when the outcome is Ok, else it goes without the name.
Outcome CheckWritable(const Feature &feature, std::string &problem);
// All checks, then the setter. `problem` as above.
Outcome SetInteger(const Feature &feature, std::int64_t value, std::string &problem);
Outcome SetFloat(const Feature &feature, double value, std::string &problem);
Outcome SetString(const Feature &feature, const std::string &value, std::string &problem);

} // namespace orvsim
