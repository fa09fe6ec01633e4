#include "simulator/features/FeatureCheck.h"

#include "simulator/features/NumberText.h"

#include <algorithm>
#include <limits>

namespace orvsim {

namespace {

std::string EntryNames(const Feature &feature)
{
    std::string names;
    for (const EnumerationEntry &entry : feature.entries)
        names += (names.empty() ? "" : ", ") + entry.name;
    return names;
}

bool IsEntry(const Feature &feature, std::int64_t value)
{
    return std::any_of(feature.entries.begin(), feature.entries.end(),
                       [value](const EnumerationEntry &entry) { return entry.value == value; });
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
        return IsEntry(feature, value);
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
    const FloatRange range = feature.floatRange();
    return "must be " + TextOf(range.minimum) + " to " + TextOf(range.maximum);
}

Outcome Finish(Outcome outcome, std::string &problem)
{
    if (outcome != Outcome::Ok)
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
    case FeatureType::String:
        return "must be at most " + std::to_string(feature.textBytes) + " bytes";
    default:
        return IntegerSpan(feature);
    }
}

namespace {

/// All checks, then the setter.
template <class Check, class Setter>
Outcome Set(const Feature &feature, Check isAllowed, Setter set, std::string &problem)
{
    const Outcome writable = CheckWritable(feature, problem);
    if (writable != Outcome::Ok)
        return writable;
    if (isAllowed())
        return Finish(set(), problem);
    problem = AllowedValues(feature);
    return Outcome::InvalidValue;
}

} // namespace

Outcome SetInteger(const Feature &feature, std::int64_t value, std::string &problem)
{
    const auto isAllowed = [&] { return IsAllowed(feature, value); };
    return Set(
        feature, isAllowed, [&] { return feature.setInteger(value); }, problem);
}

Outcome SetFloat(const Feature &feature, double value, std::string &problem)
{
    const auto isAllowed = [&] { return IsWithin(feature.floatRange(), value); };
    return Set(
        feature, isAllowed, [&] { return feature.setFloat(value); }, problem);
}

Outcome SetString(const Feature &feature, const std::string &value, std::string &problem)
{
    const auto isAllowed = [&] { return value.size() <= feature.textBytes; };
    return Set(
        feature, isAllowed, [&] { return feature.setText(value); }, problem);
}

} // namespace orvsim
