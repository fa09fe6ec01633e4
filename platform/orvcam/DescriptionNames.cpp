#include "orvcam/DescriptionNames.h"

namespace orv::cam {

namespace {

struct KindName {
    const char *tag;
    NodeKind kind;
};

constexpr KindName kKinds[] = {
    {"Category", NodeKind::Category},
    {"Port", NodeKind::Port},
    {"Integer", NodeKind::Integer},
    {"IntReg", NodeKind::IntReg},
    {"MaskedIntReg", NodeKind::MaskedIntReg},
    {"IntConverter", NodeKind::IntConverter},
    {"IntSwissKnife", NodeKind::IntSwissKnife},
    {"StructEntry", NodeKind::StructEntry},
    {"Float", NodeKind::Float},
    {"FloatReg", NodeKind::FloatReg},
    {"Converter", NodeKind::Converter},
    {"SwissKnife", NodeKind::SwissKnife},
    {"Boolean", NodeKind::Boolean},
    {"Enumeration", NodeKind::Enumeration},
    {"EnumEntry", NodeKind::EnumEntry},
    {"Command", NodeKind::Command},
    {"String", NodeKind::String},
    {"StringReg", NodeKind::StringReg},
    {"Register", NodeKind::Register},
    {"StructReg", NodeKind::StructReg},
};

struct LinkName {
    const char *tag;
    Link link;
};

constexpr LinkName kLinks[] = {
    {"pValue", Link::Value},
    {"pValueIndexed", Link::ValueIndexed},
    {"pValueDefault", Link::ValueDefault},
    {"pVariable", Link::Variable},
    {"pIndex", Link::Index},
    {"pOffset", Link::Offset},
    {"pAddress", Link::Address},
    {"pLength", Link::Length},
    {"pPort", Link::Port},
    {"pMin", Link::Minimum},
    {"pMax", Link::Maximum},
    {"pInc", Link::Increment},
    {"pIsImplemented", Link::Implemented},
    {"pIsAvailable", Link::Available},
    {"pIsLocked", Link::Locked},
    {"pCommandValue", Link::CommandValue},
    {"pChunkID", Link::ChunkId},
    {"pSelected", Link::Selected},
    {"pInvalidator", Link::Invalidator},
    {"pFeature", Link::Feature},
    {"pError", Link::Error},
    {"pAlias", Link::Alias},
    {"pCastAlias", Link::CastAlias},
    {"pBlockPolling", Link::BlockPolling},
    {"pValueCopy", Link::ValueCopy},
};

} // namespace

NodeKind KindOf(const std::string &tag)
{
    for (const KindName &row : kKinds) {
        if (tag == row.tag)
            return row.kind;
    }
    return NodeKind::Other;
}

const Link *FindLink(const std::string &tag)
{
    for (const LinkName &row : kLinks) {
        if (tag == row.tag)
            return &row.link;
    }
    return nullptr;
}

OrvCam::Visibility VisibilityOf(const std::string &text)
{
    using OrvCam::Visibility;
    if (text == "Expert")
        return Visibility::Expert;
    return text == "Guru" ? Visibility::Guru : text == "Invisible" ? Visibility::Invisible : Visibility::Beginner;
}

OrvCam::Representation RepresentationOf(const std::string &text)
{
    using OrvCam::Representation;
    if (text == "HexNumber")
        return Representation::Hexadecimal;
    if (text == "IPV4Address")
        return Representation::IpAddress;
    return text == "MACAddress" ? Representation::MacAddress : Representation::Plain;
}

bool IsRegister(NodeKind kind)
{
    return kind == NodeKind::IntReg || kind == NodeKind::MaskedIntReg || kind == NodeKind::FloatReg ||
           kind == NodeKind::StringReg || kind == NodeKind::Register || kind == NodeKind::StructReg;
}

LinkClass ClassOf(Link link)
{
    switch (link) {
    case Link::Value:
    case Link::ValueIndexed:
    case Link::ValueDefault:
    case Link::Variable:
    case Link::Index:
    case Link::Offset:
    case Link::Address:
    case Link::Length:
    case Link::Structure:
        return LinkClass::Evaluated;
    case Link::Port:
    case Link::Minimum:
    case Link::Maximum:
    case Link::Increment:
    case Link::Implemented:
    case Link::Available:
    case Link::Locked:
    case Link::CommandValue:
    case Link::ChunkId:
        return LinkClass::Required;
    default:
        return LinkClass::Loose;
    }
}

} // namespace orv::cam
