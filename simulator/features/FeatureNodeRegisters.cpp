// The registers that a feature's nodes refer to, and the names of nodes.
#include "simulator/features/FeatureNodes.h"

#include "simulator/features/FeatureCheck.h"

#include <algorithm>
#include <cassert>
#include <cctype>
#include <cstdio>

namespace orvsim {

namespace {

const char *const kStreamLock = "TLParamsLocked";

bool IsUpper(char c)
{
    return std::isupper(static_cast<unsigned char>(c)) != 0;
}
bool IsLower(char c)
{
    return std::islower(static_cast<unsigned char>(c)) != 0;
}
bool IsDigit(char c)
{
    return std::isdigit(static_cast<unsigned char>(c)) != 0;
}

/// Whether a word begins at that place: at a capital after anything else, at the last of several capitals when small
/// letters follow, at a digit after a small letter.
bool BeginsWord(const std::string &name, std::size_t i)
{
    if (i == 0 || name[i - 1] == '_')
        return false;
    if (IsDigit(name[i]))
        return IsLower(name[i - 1]);
    if (!IsUpper(name[i]))
        return false;
    return !IsUpper(name[i - 1]) || (i + 1 < name.size() && IsLower(name[i + 1]));
}

std::string PortName(const char *kind, std::uint32_t id)
{
    char text[32];
    std::snprintf(text, sizeof text, "%sPort_%04X", kind, static_cast<unsigned>(id));
    return text;
}

RegisterNode::Kind KindOf(const Feature &feature)
{
    if (feature.type == FeatureType::String)
        return RegisterNode::Kind::String;
    return HoldsInteger(feature) ? RegisterNode::Kind::Integer : RegisterNode::Kind::Float;
}

/// Data that come from elsewhere than the device's registers.
template <class Field> void UseData(RegisterNode &node, const Field &field, const std::string &port)
{
    node.address = field.offset;
    node.length = field.length;
    node.port = port;
    node.access = FeatureAccess::ReadOnly;
    node.isSigned = field.length == 8;
    node.isVolatile = true;
}

} // namespace

std::string DisplayNameOf(const std::string &name)
{
    std::string text;
    for (std::size_t i = 0; i < name.size(); ++i) {
        if (BeginsWord(name, i))
            text += ' ';
        text += name[i] == '_' ? ' ' : name[i];
    }
    return text;
}

std::string NameSpaceOf(const Feature &feature)
{
    return feature.isCustom || feature.name.compare(0, 3, "Sim") == 0 ? "Custom" : "Standard";
}

std::string ChunkPortName(std::uint32_t chunkId)
{
    return PortName("Chunk", chunkId);
}

std::string EventPortName(std::uint32_t eventId)
{
    return PortName("Event", eventId);
}

FeatureNodes::FeatureNodes(const FeatureTable &table, XmlWriter &xml) : m_table(table), m_xml(xml)
{
    for (const Feature &feature : table.Features()) {
        for (const std::string &selected : feature.selects) {
            assert(table.Find(selected) != nullptr);
            m_selectors[selected].push_back(feature.name);
        }
    }
}

std::vector<std::string> FeatureNodes::InvalidatorsOf(const Feature &feature) const
{
    std::vector<std::string> names;
    const auto add = [&](const std::string &name) {
        if (name != feature.name && std::find(names.begin(), names.end(), name) == names.end())
            names.push_back(name);
    };
    if (const auto selectors = m_selectors.find(feature.name); selectors != m_selectors.end())
        std::for_each(selectors->second.begin(), selectors->second.end(), add);
    for (const std::string &name : feature.dependsOn) {
        assert(m_table.Find(name) != nullptr);
        add(name);
    }
    return names;
}

RegisterNode FeatureNodes::ValueRegisterOf(const Feature &feature) const
{
    const FeatureSlots &slots = m_table.SlotsOf(feature.name);
    RegisterNode node;
    node.kind = KindOf(feature);
    node.name = feature.name + "_Reg";
    node.address = slots.value;
    node.length = slots.valueBytes;
    node.isSigned = slots.isSigned;
    node.access = feature.access;
    node.isVolatile = feature.isVolatile || feature.type == FeatureType::Command;
    node.pollingMs = feature.pollingMs;
    node.invalidators = InvalidatorsOf(feature);
    if (const auto *field = std::get_if<RegisterField>(&feature.source)) {
        const bool isWhole = field->lowBit == 0 && field->highBit == static_cast<int>(field->length) * 8 - 1;
        if (node.kind == RegisterNode::Kind::Integer && !isWhole)
            node.lowAndHighBit = {field->lowBit, field->highBit};
    } else if (const auto *chunk = std::get_if<ChunkField>(&feature.source)) {
        UseData(node, *chunk, ChunkPortName(chunk->chunkId));
    } else if (const auto *event = std::get_if<EventField>(&feature.source)) {
        UseData(node, *event, EventPortName(event->eventId));
        if (!m_table.EventForm().empty()) {
            node.addressShift = node.name + "Shift";
            node.invalidators.push_back(m_table.EventForm());
        }
    }
    return node;
}

RegisterNode FeatureNodes::StateRegisterOf(const Feature &feature, const char *suffix, std::uint32_t address,
                                           std::uint32_t length) const
{
    RegisterNode node;
    node.name = feature.name + suffix;
    node.address = address;
    node.length = length;
    node.isVolatile = feature.isVolatile;
    node.invalidators = InvalidatorsOf(feature);
    return node;
}

void FeatureNodes::WriteValueRegister(const Feature &feature)
{
    const RegisterNode node = ValueRegisterOf(feature);
    if (!node.addressShift.empty())
        WriteEventShift(node.addressShift, std::get<EventField>(feature.source));
    WriteRegister(m_xml, node);
}

/// How much farther behind the field lies while events come in the extended form.
void FeatureNodes::WriteEventShift(const std::string &name, const EventField &field)
{
    assert(m_table.Find(m_table.EventForm()) != nullptr && field.extendedOffset >= field.offset);
    m_xml.Open("IntSwissKnife", {{"Name", name}, {"NameSpace", "Custom"}});
    m_xml.Leaf("Visibility", "Invisible");
    m_xml.Leaves("pInvalidator", {m_table.EventForm()});
    m_xml.Leaf("pVariable", m_table.EventForm() + "_Reg", {{"Name", "FORM"}});
    m_xml.Leaf("Formula", "(FORM * " + std::to_string(field.extendedOffset - field.offset) + ")");
    m_xml.Close();
}

void FeatureNodes::WriteLimitRegisters(const Feature &feature)
{
    const FeatureSlots &slots = m_table.SlotsOf(feature.name);
    const std::pair<const char *, std::uint32_t> registers[] = {
        {"_MinReg", slots.minimum}, {"_MaxReg", slots.maximum}, {"_IncReg", slots.increment}};
    for (const auto &[suffix, address] : registers) {
        if (address == 0)
            continue;
        RegisterNode node = StateRegisterOf(feature, suffix, address, slots.valueBytes);
        node.kind = KindOf(feature);
        node.isSigned = slots.isSigned;
        WriteRegister(m_xml, node);
    }
}

void FeatureNodes::WriteStateRegisters(const Feature &feature)
{
    const FeatureSlots &slots = m_table.SlotsOf(feature.name);
    if (slots.isAvailable != 0)
        WriteRegister(m_xml, StateRegisterOf(feature, "_AvailableReg", slots.isAvailable, 4));
    if (slots.isLocked != 0) {
        RegisterNode node = StateRegisterOf(feature, "_LockedReg", slots.isLocked, 4);
        const bool isListed = std::count(node.invalidators.begin(), node.invalidators.end(), kStreamLock) != 0;
        if (!isListed && feature.name != kStreamLock && m_table.Find(kStreamLock) != nullptr)
            node.invalidators.emplace_back(kStreamLock);
        WriteRegister(m_xml, node);
    }
}

} // namespace orvsim
