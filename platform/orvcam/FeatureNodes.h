#pragma once

#include "orvcam/NodeMap.h"

namespace orv::cam {

/// What the nodes handed out by FeatureArrayImp have in common.
///
/// Every operation takes the map's lock, checks the access first and leaves the camera alone when it is refused.
class FeatureBase {
public:
    FeatureBase(NodeMap &map, const NodeFacts &facts, GenApiNode *node) : m_map(map), m_facts(facts), m_node(node) {}
    virtual ~FeatureBase() = default;
    FeatureBase(const FeatureBase &) = delete;
    FeatureBase &operator=(const FeatureBase &) = delete;

    const NodeFacts &Facts() const { return m_facts; }
    GenApiNode *Node() const { return m_node; }

protected:
    /// What may be done now; the last known answer when the camera cannot be asked.
    OrvCam::Access CurrentAccess() EXCLUDES(m_map.mutex);

    NodeMap &m_map;
    const NodeFacts &m_facts;
    GenApiNode *const m_node;

private:
    OrvCam::Access m_lastAccess GUARDED_BY(m_map.mutex) = OrvCam::Access::NotAvailable;
};

template <class Interface> class NodeImp : public Interface, public FeatureBase {
public:
    using FeatureBase::FeatureBase;
    const std::string &Name() const override { return m_facts.name; }
    OrvCam::Access GetAccess() override { return CurrentAccess(); }
};

class IntegerNodeImp final : public NodeImp<OrvCam::IntegerNode> {
public:
    using NodeImp::NodeImp;
    static bool Covers(NodeKind kind);
    std::int64_t GetValue(int *err) override;
    int SetValue(std::int64_t value) override;
    std::int64_t GetMin(int *err) override { return Range(err).minimum; }
    std::int64_t GetMax(int *err) override { return Range(err).maximum; }
    std::int64_t GetIncrement(int *err) override;

private:
    IntegerRange Range(int *err);
};

class FloatNodeImp final : public NodeImp<OrvCam::FloatNode> {
public:
    using NodeImp::NodeImp;
    static bool Covers(NodeKind kind);
    double GetValue(int *err) override;
    int SetValue(double value) override;
    double GetMin(int *err) override { return Range(err).minimum; }
    double GetMax(int *err) override { return Range(err).maximum; }

private:
    FloatRange Range(int *err);
};

class BooleanNodeImp final : public NodeImp<OrvCam::BooleanNode> {
public:
    using NodeImp::NodeImp;
    static bool Covers(NodeKind kind) { return kind == NodeKind::Boolean; }
    bool GetValue(int *err) override;
    int SetValue(bool value) override;
};

class StringNodeImp final : public NodeImp<OrvCam::StringNode> {
public:
    using NodeImp::NodeImp;
    static bool Covers(NodeKind kind) { return kind == NodeKind::String || kind == NodeKind::StringReg; }
    std::string GetValue(int *err) override;
    int SetValue(const std::string &value) override;
};

class EnumerationNodeImp final : public NodeImp<OrvCam::EnumerationNode> {
public:
    using NodeImp::NodeImp;
    static bool Covers(NodeKind kind) { return kind == NodeKind::Enumeration; }
    std::string GetValue(int *err) override;
    std::int64_t GetIntValue(int *err) override;
    int SetValue(const std::string &entry) override;
    std::vector<std::string> GetEntries(int *err) override;
    /// By the entry's value.
    int SetIntValue(std::int64_t value);
};

/// Not handed out: commands are executed by name.
class CommandNodeImp final : public FeatureBase {
public:
    using FeatureBase::FeatureBase;
    static bool Covers(NodeKind kind) { return kind == NodeKind::Command; }
};

} // namespace orv::cam
