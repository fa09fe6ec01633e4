#pragma once

#include "simulator/features/Feature.h"
#include "simulator/features/RegisterSpace.h"

#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace orvsim {

/// The registers of one feature. Zero where it has no such register. The value's is the table's own, or the one that a
/// RegisterField names.
struct FeatureSlots {
    std::uint32_t value = 0;
    std::uint32_t valueBytes = 0;
    bool isSigned = false;     ///< an integer in two's complement
    std::uint32_t minimum = 0; ///< each as long as the value
    std::uint32_t maximum = 0;
    std::uint32_t increment = 0;
    std::uint32_t isAvailable = 0; ///< 4 bytes, 0 or 1
    std::uint32_t isLocked = 0;    ///< 4 bytes, 0 or 1
};

/// All features of a camera in the order of the description, with access by name and by register.
///
/// Add() and AddDependencies() first, then PlaceRegisters() once; after that the table does not change, and the
/// registers refer to it: it must live as long as they. Not locked: see Camera.
class FeatureTable {
public:
    FeatureTable() = default;
    FeatureTable(const FeatureTable &) = delete; // the registers' functions refer to it

    void Add(Feature feature);
    /// A feature that somebody else added follows from these, too (Feature::dependsOn).
    void AddDependencies(const std::string &name, const std::vector<std::string> &dependsOn);
    /// Name of the transport's feature that is 1 while events come in the extended form, and else 0. Without it they
    /// only come in the standard form.
    void SetEventForm(std::string feature) { m_eventForm = std::move(feature); }
    const std::string &EventForm() const { return m_eventForm; }
    /// Gives each feature its registers from `firstAddress` on. Features that are fields of others' registers are read
    /// and set through `space` from now on.
    void PlaceRegisters(RegisterSpace &space, std::uint32_t firstAddress);

    const std::vector<Feature> &Features() const { return m_features; }
    const Feature *Find(const std::string &name) const;
    const FeatureSlots &SlotsOf(const std::string &name) const;

    /// The value as text: integers decimal, floats with a decimal point, entries by name, booleans 0 or 1. Empty for
    /// commands and for sources that the core does not hold: chunks, events and formulas.
    std::string GetText(const std::string &name) const;
    /// Sets by text, with the same checks as through the registers. A command is run whatever the text.
    /// \param problem  what was wrong, in words, when the outcome is not Ok.
    Outcome SetText(const std::string &name, const std::string &text, std::string &problem);

private:
    std::vector<Feature> m_features;
    std::map<std::string, std::size_t> m_byName;
    std::vector<FeatureSlots> m_slots;
    std::string m_eventForm;
};

} // namespace orvsim
