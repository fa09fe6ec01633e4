#pragma once

#include "simulator/features/Feature.h"

#include <utility>

/// Short ways to write a row of the feature table; the rest of the row is set by name afterwards.
namespace orvsim {

inline Feature Row(std::string name, std::string category, FeatureType type, FeatureAccess access, std::string toolTip)
{
    Feature feature;
    feature.name = std::move(name);
    feature.category = std::move(category);
    feature.type = type;
    feature.access = access;
    feature.toolTip = std::move(toolTip);
    return feature;
}

inline Feature IntegerRow(std::string name, std::string category, std::string toolTip,
                          std::function<std::int64_t()> get, std::function<Outcome(std::int64_t)> set,
                          std::function<IntegerRange()> range)
{
    const FeatureAccess access = set ? FeatureAccess::ReadWrite : FeatureAccess::ReadOnly;
    Feature feature = Row(std::move(name), std::move(category), FeatureType::Integer, access, std::move(toolTip));
    feature.getInteger = std::move(get);
    feature.setInteger = std::move(set);
    feature.integerRange = std::move(range);
    return feature;
}

/// An integer that its range does not depend on anything.
inline Feature FixedIntegerRow(std::string name, std::string category, std::string toolTip,
                               std::function<std::int64_t()> get, std::function<Outcome(std::int64_t)> set,
                               IntegerRange range)
{
    Feature feature = IntegerRow(std::move(name), std::move(category), std::move(toolTip), std::move(get),
                                 std::move(set), [range] { return range; });
    feature.isRangeFixed = true;
    return feature;
}

/// A read-only integer.
inline Feature FactRow(std::string name, std::string category, std::string toolTip, std::function<std::int64_t()> get)
{
    constexpr IntegerRange kAny{0, 0xffffffffLL, 1};
    return FixedIntegerRow(std::move(name), std::move(category), std::move(toolTip), std::move(get), {}, kAny);
}

inline Feature FloatRow(std::string name, std::string category, std::string toolTip, std::function<double()> get,
                        std::function<Outcome(double)> set, std::function<FloatRange()> range)
{
    const FeatureAccess access = set ? FeatureAccess::ReadWrite : FeatureAccess::ReadOnly;
    Feature feature = Row(std::move(name), std::move(category), FeatureType::Float, access, std::move(toolTip));
    feature.getFloat = std::move(get);
    feature.setFloat = std::move(set);
    feature.floatRange = std::move(range);
    return feature;
}

inline Feature FixedFloatRow(std::string name, std::string category, std::string toolTip, std::function<double()> get,
                             std::function<Outcome(double)> set, FloatRange range)
{
    Feature feature = FloatRow(std::move(name), std::move(category), std::move(toolTip), std::move(get), std::move(set),
                               [range] { return range; });
    feature.isRangeFixed = true;
    return feature;
}

inline Feature EnumerationRow(std::string name, std::string category, std::string toolTip,
                              std::vector<EnumerationEntry> entries, std::function<std::int64_t()> get,
                              std::function<Outcome(std::int64_t)> set)
{
    const FeatureAccess access = set ? FeatureAccess::ReadWrite : FeatureAccess::ReadOnly;
    Feature feature = Row(std::move(name), std::move(category), FeatureType::Enumeration, access, std::move(toolTip));
    feature.entries = std::move(entries);
    feature.getInteger = std::move(get);
    feature.setInteger = std::move(set);
    return feature;
}

inline Feature BooleanRow(std::string name, std::string category, std::string toolTip,
                          std::function<std::int64_t()> get, std::function<Outcome(std::int64_t)> set)
{
    const FeatureAccess access = set ? FeatureAccess::ReadWrite : FeatureAccess::ReadOnly;
    Feature feature = Row(std::move(name), std::move(category), FeatureType::Boolean, access, std::move(toolTip));
    feature.getInteger = std::move(get);
    feature.setInteger = std::move(set);
    return feature;
}

inline Feature CommandRow(std::string name, std::string category, std::string toolTip,
                          std::function<Outcome(std::int64_t)> run)
{
    Feature feature =
        Row(std::move(name), std::move(category), FeatureType::Command, FeatureAccess::WriteOnly, std::move(toolTip));
    feature.setInteger = std::move(run);
    return feature;
}

inline Feature TextRow(std::string name, std::string category, std::string toolTip, std::function<std::string()> get,
                       std::function<Outcome(const std::string &)> set = {})
{
    const FeatureAccess access = set ? FeatureAccess::ReadWrite : FeatureAccess::ReadOnly;
    Feature feature = Row(std::move(name), std::move(category), FeatureType::String, access, std::move(toolTip));
    feature.getText = std::move(get);
    feature.setText = std::move(set);
    return feature;
}

/// Getter and setter of a plain setting.
template <class T> std::function<std::int64_t()> GetterOf(const T *value)
{
    return [value] { return static_cast<std::int64_t>(*value); };
}
template <class T> std::function<Outcome(std::int64_t)> SetterOf(T *value)
{
    return [value](std::int64_t given) {
        *value = static_cast<T>(given);
        return Outcome::Ok;
    };
}
inline std::function<double()> FloatGetterOf(const double *value)
{
    return [value] { return *value; };
}
inline std::function<Outcome(double)> FloatSetterOf(double *value)
{
    return [value](double given) {
        *value = given;
        return Outcome::Ok;
    };
}

/// Entries numbered from 0 in the order given.
inline std::vector<EnumerationEntry> EntriesOf(std::initializer_list<std::pair<const char *, const char *>> entries)
{
    std::vector<EnumerationEntry> rows;
    for (const auto &[name, toolTip] : entries)
        rows.push_back({name, static_cast<std::int64_t>(rows.size()), toolTip});
    return rows;
}

} // namespace orvsim
