#pragma once

#include "simulator/features/FeatureTable.h"
#include "simulator/features/RegisterNodes.h"
#include "simulator/features/XmlWriter.h"

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace orvsim {

/// "Exposure Time" of "ExposureTime".
std::string DisplayNameOf(const std::string &name);
/// "Standard" or "Custom".
std::string NameSpaceOf(const Feature &feature);
/// The ports of chunks and events: each identifier has one of its own.
std::string ChunkPortName(std::uint32_t chunkId);
std::string EventPortName(std::uint32_t eventId);

/// Writes each feature's node, the registers behind it and the small nodes between them.
class FeatureNodes {
public:
    FeatureNodes(const FeatureTable &table, XmlWriter &xml);

    void Write(const Feature &feature);

private:
    void WriteInteger(const Feature &feature);
    void WriteFloat(const Feature &feature);
    void WriteScaled(const Feature &feature, const Scaled &scaled);
    void WriteEnumeration(const Feature &feature);
    void WriteBoolean(const Feature &feature);
    void WriteCommand(const Feature &feature);
    void WriteString(const Feature &feature);
    void WriteFormula(const Feature &feature, const Formula &formula);

    void OpenNode(const std::string &tag, const Feature &feature);
    void WriteHead(const Feature &feature);
    void WriteStreamable(const Feature &feature);
    void WriteLimits(const Feature &feature);
    void WriteLook(const Feature &feature);
    void WriteEntry(const Feature &feature, const EnumerationEntry &entry);
    void WriteValueRegister(const Feature &feature);
    void WriteEventShift(const std::string &name, const EventField &field);
    void WriteStateRegisters(const Feature &feature);
    void WriteLimitRegisters(const Feature &feature);

    RegisterNode ValueRegisterOf(const Feature &feature) const;
    RegisterNode StateRegisterOf(const Feature &feature, const char *suffix, std::uint32_t address,
                                 std::uint32_t length) const;
    /// The feature's selectors and what it depends on, each once.
    std::vector<std::string> InvalidatorsOf(const Feature &feature) const;

    const FeatureTable &m_table;
    XmlWriter &m_xml;
    std::map<std::string, std::vector<std::string>> m_selectors; ///< by the selected feature's name
};

} // namespace orvsim
