#include "simulator/features/RegisterNodes.h"

#include <cstdio>

namespace orvsim {

namespace {

std::string HexOf(std::uint32_t value)
{
    char text[16];
    std::snprintf(text, sizeof text, "0x%X", static_cast<unsigned>(value));
    return text;
}

/// The schema counts the bits of a big-endian register from its most significant one.
void WriteBits(XmlWriter &xml, const RegisterNode &node)
{
    const int last = static_cast<int>(node.length) * 8 - 1;
    const auto [low, high] = *node.lowAndHighBit;
    if (low == high) {
        xml.Leaf("Bit", std::to_string(last - low));
        return;
    }
    xml.Leaf("LSB", std::to_string(last - low));
    xml.Leaf("MSB", std::to_string(last - high));
}

const char *TagOf(const RegisterNode &node)
{
    switch (node.kind) {
    case RegisterNode::Kind::Float:
        return "FloatReg";
    case RegisterNode::Kind::String:
        return "StringReg";
    default:
        return node.lowAndHighBit.has_value() ? "MaskedIntReg" : "IntReg";
    }
}

} // namespace

std::string AccessModeOf(const RegisterNode &node)
{
    if (node.access == FeatureAccess::ReadOnly)
        return "RO";
    return node.access == FeatureAccess::WriteOnly ? "WO" : "RW";
}

void WriteRegisterBlock(XmlWriter &xml, const RegisterNode &node)
{
    xml.Leaf("Address", HexOf(node.address));
    if (!node.addressShift.empty())
        xml.Leaf("pAddress", node.addressShift);
    xml.Leaf("Length", std::to_string(node.length));
    xml.Leaf("AccessMode", AccessModeOf(node));
    xml.Leaf("pPort", node.port);
    if (node.isVolatile)
        xml.Leaf("Cachable", "NoCache");
    if (node.pollingMs > 0)
        xml.Leaf("PollingTime", std::to_string(node.pollingMs));
    xml.Leaves("pInvalidator", node.invalidators);
}

void WriteRegister(XmlWriter &xml, const RegisterNode &node)
{
    xml.Open(TagOf(node), {{"Name", node.name}, {"NameSpace", "Custom"}});
    xml.Leaf("Visibility", "Invisible");
    WriteRegisterBlock(xml, node);
    if (node.lowAndHighBit.has_value())
        WriteBits(xml, node);
    if (node.kind == RegisterNode::Kind::Integer)
        xml.Leaf("Sign", node.isSigned ? "Signed" : "Unsigned");
    if (node.kind != RegisterNode::Kind::String)
        xml.Leaf("Endianess", "BigEndian");
    xml.Close();
}

} // namespace orvsim
