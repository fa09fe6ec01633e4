#include "orvcam/NodeMap.h"

#include "orvcam/Log.h"
#include "orvcam/OrvStatus.h"

namespace orv::cam {

namespace {

using OrvCam::Access;

bool IsFormula(NodeKind kind)
{
    return kind == NodeKind::SwissKnife || kind == NodeKind::IntSwissKnife;
}

int StatusOf(Access access)
{
    switch (access) {
    case Access::NotImplemented:
        return ORV_CAM_ERR_FEATURE_NOT_PRESENT;
    case Access::NotAvailable:
        return ORV_CAM_ERR_NOT_AVAILABLE;
    default:
        return ORV_CAM_OK;
    }
}

/// What is left of a node's access when the node behind it has `mode`.
Access Narrowed(Access access, GenApiAccess mode)
{
    if (mode == GenApiAccess::ReadOnly)
        return access == Access::WriteOnly ? Access::NotAvailable : Access::ReadOnly;
    if (mode == GenApiAccess::WriteOnly)
        return access == Access::ReadOnly ? Access::NotAvailable : Access::WriteOnly;
    return access;
}

} // namespace

NodeMap::NodeMap(Description description, std::unique_ptr<GenApi> genApi)
    : facts(std::move(description)), m_genApi(std::move(genApi))
{
}

std::unique_ptr<NodeMap> NodeMap::Create(const std::string &xml, PortIo &port, std::string *error)
{
    Description description;
    std::string cleaned;
    std::string why;
    if (!ReadDescription(xml, &description, &cleaned, &why)) {
        *error = "the camera's description cannot be used: " + why;
        return nullptr;
    }
    for (const std::string &warning : description.warnings)
        LogWarning("Description of " + description.vendorName + " " + description.modelName + ": " + warning);
    auto genApi = GenApi::Create(cleaned, port, error);
    if (!genApi)
        return nullptr;
    return std::unique_ptr<NodeMap>(new NodeMap(std::move(description), std::move(genApi)));
}

/// Walks from the feature along its value to the register: each node on the way may be missing, unavailable, locked or
/// narrower than the one before. Implemented comes before available: the second may ask registers that do not exist.
int NodeMap::WalkAccess(const NodeFacts &feature, Access *access, bool *locked)
{
    *access = Access::ReadWrite;
    for (const NodeFacts *at = &feature; at != nullptr;) {
        GenApiNode *node = Find(*at);
        if (node == nullptr) {
            *access = Access::NotImplemented;
            return ORV_CAM_OK;
        }
        bool yes = true;
        int status = at->Find(Link::Implemented) != nullptr ? m_genApi->IsImplemented(node, &yes) : ORV_CAM_OK;
        if (status != ORV_CAM_OK || !yes) {
            *access = Access::NotImplemented;
            return status;
        }
        status = at->Find(Link::Available) != nullptr ? m_genApi->IsAvailable(node, &yes) : ORV_CAM_OK;
        if (status != ORV_CAM_OK || !yes) {
            *access = Access::NotAvailable;
            return status;
        }
        if (locked != nullptr && at->Find(Link::Locked) != nullptr) {
            bool nodeLocked = false;
            status = m_genApi->IsLocked(node, &nodeLocked);
            if (status != ORV_CAM_OK)
                return status;
            *locked |= nodeLocked;
        }
        *access = Narrowed(*access, IsFormula(at->kind) ? GenApiAccess::ReadOnly : m_genApi->AccessMode(node));
        const Reference *value = at->Find(Link::Value);
        at = value != nullptr ? &facts.nodes[value->target] : nullptr;
    }
    return ORV_CAM_OK;
}

int NodeMap::GetUnlockedAccess(const NodeFacts &feature, Access *access)
{
    return WalkAccess(feature, access, nullptr);
}

int NodeMap::GetAccess(const NodeFacts &feature, Access *access)
{
    bool locked = false;
    const int status = WalkAccess(feature, access, &locked);
    const bool isFound = *access != Access::NotImplemented && *access != Access::NotAvailable;
    if (status == ORV_CAM_OK && locked && isFound)
        *access = *access == Access::WriteOnly ? Access::NotAvailable : Narrowed(*access, GenApiAccess::ReadOnly);
    return status;
}

int NodeMap::CheckPresent(const NodeFacts &node)
{
    Access access;
    const int status = GetAccess(node, &access);
    return status != ORV_CAM_OK ? status : StatusOf(access);
}

int NodeMap::CheckReadable(const NodeFacts &node)
{
    Access access;
    const int status = GetAccess(node, &access);
    if (status != ORV_CAM_OK)
        return status;
    return access == Access::WriteOnly ? ORV_CAM_ERR_NOT_READABLE : StatusOf(access);
}

int NodeMap::CheckWritable(const NodeFacts &node)
{
    Access access;
    const int status = GetAccess(node, &access);
    if (status != ORV_CAM_OK)
        return status;
    return access == Access::ReadOnly ? ORV_CAM_ERR_NOT_WRITABLE : StatusOf(access);
}

} // namespace orv::cam
