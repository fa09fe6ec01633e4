#include "simulator/features/FeatureCheck.h"

#include "simulator/features/NumberText.h"

#include <cmath>
#include <limits>

namespace orvsim {

namespace {

std::string EntryNames(const Feature &feature)
{
    std::string names;
    for (const EnumerationEntry &entry : feature.entries) {
        if (!entry.isAvailable || entry.isAvailable())
            names += (names.empty() ? "" : ", ") + entry.name;
    }
    return names;
}

bool IsOpenEntry(const Feature &feature, std::int64_t value)
{
    for (const EnumerationEntry &entry : feature.entries) {
        if (entry.value == value)
            return !entry.isAvailable || entry.isAvailable();
    }
    return false;
}

bool IsWithin(const IntegerRange &range, std::int64_t value)
{
    if (value < range.minimum || value > range.maximum)
        return false;
    const std::uint64_t distance = static_cast<std::uint64_t>(value) - static_cast<std::uint64_t>(range.minimum);
    return range.increment <= 1 || distance % static_cast<std::uint64_t>(range.increment) == 0;
}

bool IsWithin(const FloatRange &range, double value)
{
    return value >= range.minimum && value <= range.maximum;
}

/// For what an integer register takes.
bool IsAllowed(const Feature &feature, std::int64_t value)
{
    switch (feature.type) {
    case FeatureType::Enumeration:
        return IsOpenEntry(feature, value);
    case FeatureType::Boolean:
        return value == 0 || value == 1;
    case FeatureType::Command:
        return value == 1;
    default:
        return IsWithin(RangeOf(feature), value);
    }
}

std::string IntegerSpan(const Feature &feature)
{
    const IntegerRange range = RangeOf(feature);
    const std::string span = "must be " + TextOf(range.minimum) + " to " + TextOf(range.maximum);
    return range.increment > 1 ? span + " in steps of " + TextOf(range.increment) : span;
}

std::string FloatSpan(const Feature &feature)
{
    if (!feature.floatRange)
        return "must be a finite number";
    const FloatRange range = feature.floatRange();
    return "must be " + TextOf(range.minimum) + " to " + TextOf(range.maximum);
}

Outcome Finish(Outcome outcome, std::string &problem)
{
    if (outcome == Outcome::Busy)
        problem = "cannot be set just now";
    else if (outcome != Outcome::Ok)
        problem = "was refused by the camera";
    return outcome;
}

} // namespace

bool HoldsInteger(const Feature &feature)
{
    if (feature.type == FeatureType::Float)
        return std::holds_alternative<Scaled>(feature.source);
    return feature.type != FeatureType::String;
}

IntegerRange RangeOf(const Feature &feature)
{
    if (feature.integerRange)
        return feature.integerRange();
    if (feature.integerBytes == 8)
        return {std::numeric_limits<std::int64_t>::min(), std::numeric_limits<std::int64_t>::max(), 1};
    return {0, std::numeric_limits<std::uint32_t>::max(), 1};
}

Outcome CheckWritable(const Feature &feature, std::string &problem)
{
    if (feature.access == FeatureAccess::ReadOnly)
        problem = "is read-only";
    else if (feature.isAvailable && !feature.isAvailable())
        problem = "is not available now";
    else if (feature.isLocked && feature.isLocked())
        problem = "is locked now";
    else
        return Outcome::Ok;
    return Outcome::ReadOnly;
}

std::string AllowedValues(const Feature &feature)
{
    switch (feature.type) {
    case FeatureType::Enumeration:
        return "must be one of " + EntryNames(feature);
    case FeatureType::Boolean:
        return "must be 0 or 1";
    case FeatureType::Command:
        return "must be 1 to run";
    case FeatureType::Float:
        return FloatSpan(feature);
    default:
        return IntegerSpan(feature);
    }
}

Outcome CheckInteger(const Feature &feature, std::int64_t value, std::string &problem)
{
    if (IsAllowed(feature, value))
        return Outcome::Ok;
    problem = feature.type == FeatureType::Float ? IntegerSpan(feature) : AllowedValues(feature);
    return Outcome::InvalidValue;
}

Outcome CheckFloat(const Feature &feature, double value, std::string &problem)
{
    const bool isInRange = !feature.floatRange || IsWithin(feature.floatRange(), value);
    if (std::isfinite(value) && isInRange)
        return Outcome::Ok;
    problem = AllowedValues(feature);
    return Outcome::InvalidValue;
}

Outcome CheckText(const Feature &feature, const std::string &value, std::string &problem)
{
    if (value.size() <= feature.textBytes)
        return Outcome::Ok;
    problem = "must be at most " + std::to_string(feature.textBytes) + " bytes";
    return Outcome::InvalidValue;
}

Outcome SetInteger(const Feature &feature, std::int64_t value, std::string &problem)
{
    Outcome outcome = CheckWritable(feature, problem);
    if (outcome == Outcome::Ok)
        outcome = CheckInteger(feature, value, problem);
    return outcome == Outcome::Ok ? Finish(feature.setInteger(value), problem) : outcome;
}

Outcome SetFloat(const Feature &feature, double value, std::string &problem)
{
    Outcome outcome = CheckWritable(feature, problem);
    if (outcome == Outcome::Ok)
        outcome = CheckFloat(feature, value, problem);
    return outcome == Outcome::Ok ? Finish(feature.setFloat(value), problem) : outcome;
}

Outcome SetString(const Feature &feature, const std::string &value, std::string &problem)
{
    Outcome outcome = CheckWritable(feature, problem);
    if (outcome == Outcome::Ok)
        outcome = CheckText(feature, value, problem);
    return outcome == Outcome::Ok ? Finish(feature.setText(value), problem) : outcome;
}

} // namespace orvsim
