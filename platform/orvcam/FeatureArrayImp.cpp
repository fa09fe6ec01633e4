#include "orvcam/FeatureArrayImp.h"

#include "orvcam/FeatureNodes.h"
#include "orvcam/OrvStatus.h"

#include <algorithm>
#include <chrono>
#include <thread>

namespace orv::cam {

namespace {

OrvCam::FeatureKind FeatureKindOf(NodeKind kind)
{
    using OrvCam::FeatureKind;
    if (kind == NodeKind::Category)
        return FeatureKind::Category;
    if (IntegerNodeImp::Covers(kind))
        return FeatureKind::Integer;
    if (FloatNodeImp::Covers(kind))
        return FeatureKind::Float;
    if (BooleanNodeImp::Covers(kind))
        return FeatureKind::Boolean;
    if (EnumerationNodeImp::Covers(kind))
        return FeatureKind::Enumeration;
    if (StringNodeImp::Covers(kind))
        return FeatureKind::String;
    return CommandNodeImp::Covers(kind) ? FeatureKind::Command : FeatureKind::Register;
}

} // namespace

FeatureArrayImp::FeatureArrayImp(std::unique_ptr<NodeMap> map) : m_map(std::move(map)) {}

FeatureArrayImp::~FeatureArrayImp() = default;

std::unique_ptr<FeatureArrayImp> FeatureArrayImp::Create(const std::string &xml, PortIo &port, std::string *error)
{
    auto map = NodeMap::Create(xml, port, error);
    if (!map)
        return nullptr;
    return std::unique_ptr<FeatureArrayImp>(new FeatureArrayImp(std::move(map)));
}

template <class Imp> Imp *FeatureArrayImp::Find(const char *name, int *err)
{
    const auto fail = [err](int status) -> Imp * {
        if (err != nullptr)
            *err = status;
        return nullptr;
    };
    if (name == nullptr)
        return fail(ORV_CAM_ERR_INVALID_PARAMETER);
    const NodeFacts *facts = m_map->facts.Find(name);
    if (facts == nullptr)
        return fail(ORV_CAM_ERR_FEATURE_NOT_PRESENT);
    if (!Imp::Covers(facts->kind))
        return fail(ORV_CAM_ERR_WRONG_TYPE);
    const NodeLock lock(m_map->mutex);
    GenApiNode *node = m_map->Find(*facts);
    if (node == nullptr)
        return fail(ORV_CAM_ERR_FEATURE_NOT_PRESENT);
    // Asked anew each time: what is implemented may hang on a setting. When the camera does not answer, the node's own
    // calls will tell why.
    if (facts->Find(Link::Implemented) != nullptr) {
        bool implemented = true;
        if (m_map->Api().IsImplemented(node, &implemented) == ORV_CAM_OK && !implemented)
            return fail(ORV_CAM_ERR_FEATURE_NOT_PRESENT);
    }
    auto &slot = m_features[facts->name];
    if (!slot)
        slot = std::make_unique<Imp>(*m_map, *facts, node);
    if (err != nullptr)
        *err = ORV_CAM_OK;
    return static_cast<Imp *>(slot.get());
}

OrvCam::IntegerNode *FeatureArrayImp::GetInt(const char *name, int *err)
{
    return Find<IntegerNodeImp>(name, err);
}

OrvCam::FloatNode *FeatureArrayImp::GetFloat(const char *name, int *err)
{
    return Find<FloatNodeImp>(name, err);
}

OrvCam::BooleanNode *FeatureArrayImp::GetBool(const char *name, int *err)
{
    return Find<BooleanNodeImp>(name, err);
}

OrvCam::StringNode *FeatureArrayImp::GetString(const char *name, int *err)
{
    return Find<StringNodeImp>(name, err);
}

OrvCam::EnumerationNode *FeatureArrayImp::GetEnum(const char *name, int *err)
{
    return Find<EnumerationNodeImp>(name, err);
}

/// Only a register of the command's own tells when it is done: one that several commands share holds a state, and
/// AcquisitionStart may well stay set for as long as the camera streams.
const NodeFacts *FeatureArrayImp::FindDoneRegister(const NodeFacts &command)
{
    const Reference *value = command.Find(Link::Value);
    if (value == nullptr || command.name == "AcquisitionStart")
        return nullptr;
    int users = 0;
    for (const NodeFacts &node : m_map->facts.nodes) {
        const Reference *other = node.Find(Link::Value);
        users += other != nullptr && other->target == value->target ? 1 : 0;
    }
    const NodeFacts &reg = m_map->facts.nodes[value->target];
    return users == 1 && m_map->CheckReadable(reg) == ORV_CAM_OK ? &reg : nullptr;
}

int FeatureArrayImp::ReadsAs(const NodeFacts &reg, std::int64_t value, bool *yes)
{
    std::int64_t now = 0;
    const int status = m_map->Api().GetInteger(m_map->Find(reg), &now);
    *yes = status == ORV_CAM_OK && now == value;
    return status;
}

int FeatureArrayImp::ExecuteCommand(const char *name)
{
    int status = ORV_CAM_OK;
    const auto *command = Find<CommandNodeImp>(name, &status);
    if (command == nullptr)
        return status;

    const NodeLock lock(m_map->mutex);
    status = m_map->CheckWritable(command->Facts());
    if (status != ORV_CAM_OK)
        return status;
    std::int64_t value = command->Facts().commandValue;
    if (const Reference *behind = command->Facts().Find(Link::CommandValue))
        m_map->Api().GetInteger(m_map->Find(m_map->facts.nodes[behind->target]), &value);
    const NodeFacts *reg = FindDoneRegister(command->Facts());
    bool isSet = false;
    // One that is set before the start does not clear itself, and one that cannot be read tells nothing.
    if (reg != nullptr && (ReadsAs(*reg, value, &isSet) != ORV_CAM_OK || isSet))
        reg = nullptr;
    status = m_map->Api().Execute(command->Node());
    if (status != ORV_CAM_OK || reg == nullptr)
        return status;
    return WaitUntilDone(*reg, value);
}

/// \return the status of a poll that failed, too: a camera that is lost meanwhile has not done it.
int FeatureArrayImp::WaitUntilDone(const NodeFacts &reg, std::int64_t commandValue)
{
    using Clock = std::chrono::steady_clock;
    constexpr auto kLongest = std::chrono::seconds(5);
    constexpr auto kSlowestPoll = std::chrono::milliseconds(50);
    const Clock::time_point end = Clock::now() + kLongest;
    for (auto pause = std::chrono::milliseconds(1);; pause = std::min(pause * 2, kSlowestPoll)) {
        bool isSet = false;
        const int status = ReadsAs(reg, commandValue, &isSet);
        if (status != ORV_CAM_OK || !isSet)
            return status;
        if (Clock::now() >= end)
            return ORV_CAM_ERR_TIMEOUT;
        m_map->mutex.unlock();
        std::this_thread::sleep_for(pause);
        m_map->mutex.lock();
    }
}

int FeatureArrayImp::SetIntegerValue(const char *name, std::int64_t value)
{
    int status = ORV_CAM_OK;
    if (OrvCam::IntegerNode *node = GetInt(name, &status))
        return node->SetValue(value);
    if (status != ORV_CAM_ERR_WRONG_TYPE)
        return status;
    if (OrvCam::BooleanNode *node = GetBool(name, &status))
        return value == 0 || value == 1 ? node->SetValue(value == 1) : ORV_CAM_ERR_OUT_OF_RANGE;
    if (status != ORV_CAM_ERR_WRONG_TYPE)
        return status;
    EnumerationNodeImp *node = Find<EnumerationNodeImp>(name, &status);
    return node != nullptr ? node->SetIntValue(value) : status;
}

int FeatureArrayImp::GetUnlockedAccess(const NodeFacts &feature, OrvCam::Access *access)
{
    const NodeLock lock(m_map->mutex);
    return m_map->GetUnlockedAccess(feature, access);
}

int FeatureArrayImp::RunAlone(const std::function<int()> &act)
{
    const NodeLock lock(m_map->mutex);
    return act();
}

std::vector<std::string> FeatureArrayImp::FeatureNames()
{
    return m_map->facts.FeatureNames();
}

std::vector<OrvCam::FeatureInfo> FeatureArrayImp::FeatureTree()
{
    std::vector<OrvCam::FeatureInfo> tree;
    for (const Description::Listed &listed : m_map->facts.Tree()) {
        const NodeFacts &node = *listed.node;
        tree.push_back({node.name, FeatureKindOf(node.kind), listed.level, node.unit, node.toolTip, node.visibility,
                        node.representation});
    }
    return tree;
}

OrvCam::Access FeatureArrayImp::GetAccess(const char *name)
{
    const NodeFacts *facts = name != nullptr ? m_map->facts.Find(name) : nullptr;
    if (facts == nullptr)
        return OrvCam::Access::NotImplemented;
    const NodeLock lock(m_map->mutex);
    OrvCam::Access access = OrvCam::Access::NotAvailable;
    return m_map->GetAccess(*facts, &access) == ORV_CAM_OK ? access : OrvCam::Access::NotAvailable;
}

} // namespace orv::cam
