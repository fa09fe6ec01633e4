#include "simulator/features/FeatureNodes.h"

#include "simulator/features/FeatureCheck.h"
#include "simulator/features/NumberText.h"

#include <cassert>

namespace orvsim {

namespace {

const char *VisibilityText(Visibility visibility)
{
    switch (visibility) {
    case Visibility::Beginner:
        return "Beginner";
    case Visibility::Expert:
        return "Expert";
    case Visibility::Guru:
        return "Guru";
    default:
        return "Invisible";
    }
}

} // namespace

void FeatureNodes::Write(const Feature &feature)
{
    if (const auto *formula = std::get_if<Formula>(&feature.source)) {
        WriteFormula(feature, *formula);
    } else if (const auto *scaled = std::get_if<Scaled>(&feature.source)) {
        WriteScaled(feature, *scaled);
        WriteValueRegister(feature);
    } else {
        switch (feature.type) {
        case FeatureType::Integer:
            WriteInteger(feature);
            break;
        case FeatureType::Float:
            WriteFloat(feature);
            break;
        case FeatureType::Enumeration:
            WriteEnumeration(feature);
            break;
        case FeatureType::Boolean:
            WriteBoolean(feature);
            break;
        case FeatureType::Command:
            WriteCommand(feature);
            break;
        case FeatureType::String:
            WriteString(feature);
            break;
        }
        if (feature.type != FeatureType::String)
            WriteValueRegister(feature);
    }
    WriteLimitRegisters(feature);
    WriteStateRegisters(feature);
}

void FeatureNodes::OpenNode(const std::string &tag, const Feature &feature)
{
    m_xml.Open(tag, {{"Name", feature.name}, {"NameSpace", NameSpaceOf(feature)}});
    WriteHead(feature);
}

void FeatureNodes::WriteHead(const Feature &feature)
{
    m_xml.OptionalLeaf("ToolTip", feature.toolTip);
    m_xml.Leaf("DisplayName", DisplayNameOf(feature.name));
    m_xml.Leaf("Visibility", VisibilityText(feature.visibility));
    if (feature.isAvailable)
        m_xml.Leaf("pIsAvailable", feature.name + "_AvailableReg");
    if (feature.isLocked)
        m_xml.Leaf("pIsLocked", feature.name + "_LockedReg");
}

void FeatureNodes::WriteStreamable(const Feature &feature)
{
    if (feature.isStreamable)
        m_xml.Leaf("Streamable", "Yes");
}

void FeatureNodes::WriteLook(const Feature &feature)
{
    m_xml.OptionalLeaf("Unit", feature.unit);
    m_xml.OptionalLeaf("Representation", feature.representation);
}

void FeatureNodes::WriteLimits(const Feature &feature)
{
    const FeatureSlots &slots = m_table.SlotsOf(feature.name);
    if (slots.minimum != 0) {
        m_xml.Leaf("pMin", feature.name + "_MinReg");
        m_xml.Leaf("pMax", feature.name + "_MaxReg");
        if (slots.increment != 0)
            m_xml.Leaf("pInc", feature.name + "_IncReg");
        return;
    }
    // Limits that never change serve whoever writes; those of a fact would only narrow what it may tell. Behind a
    // conversion they say how far the value reaches: nothing else does.
    if (feature.access == FeatureAccess::ReadOnly && !std::holds_alternative<Scaled>(feature.source))
        return;
    if (HoldsInteger(feature) && feature.integerRange) {
        const IntegerRange range = feature.integerRange();
        m_xml.Leaf("Min", TextOf(range.minimum));
        m_xml.Leaf("Max", TextOf(range.maximum));
        if (range.increment > 1)
            m_xml.Leaf("Inc", TextOf(range.increment));
    } else if (!HoldsInteger(feature) && feature.floatRange) {
        const FloatRange range = feature.floatRange();
        m_xml.Leaf("Min", TextOf(range.minimum));
        m_xml.Leaf("Max", TextOf(range.maximum));
    }
}

void FeatureNodes::WriteInteger(const Feature &feature)
{
    OpenNode("Integer", feature);
    WriteStreamable(feature);
    m_xml.Leaf("pValue", feature.name + "_Reg");
    WriteLimits(feature);
    WriteLook(feature);
    m_xml.Leaves("pSelected", feature.selects);
    m_xml.Close();
}

void FeatureNodes::WriteFloat(const Feature &feature)
{
    OpenNode("Float", feature);
    WriteStreamable(feature);
    m_xml.Leaf("pValue", feature.name + "_Reg");
    WriteLimits(feature);
    WriteLook(feature);
    m_xml.Close();
}

void FeatureNodes::WriteScaled(const Feature &feature, const Scaled &scaled)
{
    OpenNode("Converter", feature);
    WriteStreamable(feature);
    m_xml.Leaf("FormulaTo", scaled.toRegister);
    m_xml.Leaf("FormulaFrom", scaled.fromRegister);
    m_xml.Leaf("pValue", feature.name + "_Raw");
    WriteLook(feature);
    m_xml.Close();
    m_xml.Open("Integer", {{"Name", feature.name + "_Raw"}, {"NameSpace", "Custom"}});
    m_xml.Leaf("Visibility", "Invisible");
    m_xml.Leaf("pValue", feature.name + "_Reg");
    WriteLimits(feature);
    m_xml.Close();
}

void FeatureNodes::WriteEntry(const Feature &feature, const EnumerationEntry &entry)
{
    m_xml.Open("EnumEntry", {{"Name", entry.name}, {"NameSpace", NameSpaceOf(feature)}});
    m_xml.OptionalLeaf("ToolTip", entry.toolTip);
    m_xml.Leaf("Value", TextOf(entry.value));
    m_xml.Close();
}

void FeatureNodes::WriteEnumeration(const Feature &feature)
{
    OpenNode("Enumeration", feature);
    WriteStreamable(feature);
    for (const EnumerationEntry &entry : feature.entries)
        WriteEntry(feature, entry);
    m_xml.Leaf("pValue", feature.name + "_Reg");
    m_xml.Leaves("pSelected", feature.selects);
    m_xml.Close();
}

void FeatureNodes::WriteBoolean(const Feature &feature)
{
    OpenNode("Boolean", feature);
    WriteStreamable(feature);
    m_xml.Leaf("pValue", feature.name + "_Reg");
    m_xml.Leaf("OnValue", "1");
    m_xml.Leaf("OffValue", "0");
    m_xml.Close();
}

void FeatureNodes::WriteCommand(const Feature &feature)
{
    OpenNode("Command", feature);
    m_xml.Leaf("pValue", feature.name + "_Reg");
    m_xml.Leaf("CommandValue", "1");
    m_xml.Close();
}

void FeatureNodes::WriteString(const Feature &feature)
{
    OpenNode("StringReg", feature);
    WriteStreamable(feature);
    WriteRegisterBlock(m_xml, ValueRegisterOf(feature));
    m_xml.Close();
}

void FeatureNodes::WriteFormula(const Feature &feature, const Formula &formula)
{
    assert(feature.type == FeatureType::Integer);
    OpenNode("IntSwissKnife", feature);
    m_xml.Leaves("pInvalidator", InvalidatorsOf(feature));
    for (const auto &[variable, target] : formula.variables) {
        assert(m_table.Find(target) != nullptr);
        m_xml.Leaf("pVariable", target, {{"Name", variable}});
    }
    m_xml.Leaf("Formula", formula.text);
    WriteLook(feature);
    m_xml.Close();
}

} // namespace orvsim
