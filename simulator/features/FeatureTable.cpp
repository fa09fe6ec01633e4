#include "simulator/features/FeatureTable.h"

#include "simulator/features/FeatureCheck.h"
#include "simulator/features/NumberText.h"

#include <cassert>
#include <limits>
#include <optional>
#include <utility>

namespace orvsim {

namespace {

std::string EntryText(const Feature &feature, std::int64_t value)
{
    for (const EnumerationEntry &entry : feature.entries) {
        if (entry.value == value)
            return entry.name;
    }
    return TextOf(value);
}

std::optional<std::int64_t> EntryValue(const Feature &feature, const std::string &name)
{
    for (const EnumerationEntry &entry : feature.entries) {
        if (entry.name == name)
            return entry.value;
    }
    return std::nullopt;
}

/// Nothing when the text stands for no value of the feature.
std::optional<std::int64_t> IntegerOf(const Feature &feature, const std::string &text)
{
    if (feature.type == FeatureType::Enumeration)
        return EntryValue(feature, text);
    if (feature.type == FeatureType::Boolean && (text == "true" || text == "false"))
        return text == "true" ? 1 : 0;
    return IntegerFrom(text);
}

Outcome SetIntegerText(const Feature &feature, const std::string &text, std::string &problem)
{
    const std::optional<std::int64_t> value = IntegerOf(feature, text);
    if (value.has_value())
        return SetInteger(feature, *value, problem);
    const Outcome writable = CheckWritable(feature, problem);
    if (writable != Outcome::Ok)
        return writable;
    problem = AllowedValues(feature);
    return Outcome::InvalidValue;
}

Outcome SetFloatText(const Feature &feature, const std::string &text, std::string &problem)
{
    const std::optional<double> value = FloatFrom(text);
    return SetFloat(feature, value.value_or(std::numeric_limits<double>::quiet_NaN()), problem);
}

Outcome SetAny(const Feature &feature, const std::string &text, std::string &problem)
{
    switch (feature.type) {
    case FeatureType::Command:
        return SetInteger(feature, 1, problem);
    case FeatureType::Float:
        return SetFloatText(feature, text, problem);
    case FeatureType::String:
        return SetString(feature, text, problem);
    default:
        return SetIntegerText(feature, text, problem);
    }
}

} // namespace

void FeatureTable::Add(Feature feature)
{
    assert(!feature.name.empty() && Find(feature.name) == nullptr);
    m_byName.emplace(feature.name, m_features.size());
    m_features.push_back(std::move(feature));
    m_slots.emplace_back();
}

void FeatureTable::AddDependencies(const std::string &name, const std::vector<std::string> &dependsOn)
{
    assert(Find(name) != nullptr);
    std::vector<std::string> &names = m_features[m_byName.at(name)].dependsOn;
    names.insert(names.end(), dependsOn.begin(), dependsOn.end());
}

const Feature *FeatureTable::Find(const std::string &name) const
{
    const auto found = m_byName.find(name);
    return found == m_byName.end() ? nullptr : &m_features[found->second];
}

const FeatureSlots &FeatureTable::SlotsOf(const std::string &name) const
{
    assert(Find(name) != nullptr);
    return m_slots[m_byName.at(name)];
}

std::string FeatureTable::GetText(const std::string &name) const
{
    const Feature *feature = Find(name);
    if (feature == nullptr)
        return {};
    switch (feature->type) {
    case FeatureType::Command:
        return {};
    case FeatureType::Float:
        return feature->getFloat ? TextOf(feature->getFloat()) : std::string();
    case FeatureType::String:
        return feature->getText ? feature->getText() : std::string();
    default:
        break;
    }
    if (!feature->getInteger)
        return {};
    const std::int64_t value = feature->getInteger();
    return feature->type == FeatureType::Enumeration ? EntryText(*feature, value) : TextOf(value);
}

Outcome FeatureTable::SetText(const std::string &name, const std::string &text, std::string &problem)
{
    const Feature *feature = Find(name);
    if (feature == nullptr) {
        problem = name + ": is not a feature of this camera";
        return Outcome::NoSuchAddress;
    }
    std::string what;
    const Outcome outcome = SetAny(*feature, text, what);
    if (outcome != Outcome::Ok)
        problem = (feature->type == FeatureType::Command ? name : name + " " + text) + ": " + what;
    return outcome;
}

} // namespace orvsim
