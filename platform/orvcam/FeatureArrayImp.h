#pragma once

#include "orvcam/NodeMap.h"
#include "orvcam/OrvFeatures.h"

#include <memory>
#include <unordered_map>

namespace orv::cam {

class FeatureBase;

/// The features of one port.
///
/// Threads: any. The map's lock is held through each call down to the port, and released between the polls of a
/// command, unless that is part of RunAlone().
class FeatureArrayImp final : public OrvCam::FeatureArray {
public:
    /// \param port  borrowed, must outlive the array.
    /// \return null with a sentence in `*error`.
    static std::unique_ptr<FeatureArrayImp> Create(const std::string &xml, PortIo &port, std::string *error);
    ~FeatureArrayImp();

    OrvCam::IntegerNode *GetInt(const char *name, int *err = nullptr) override;
    OrvCam::FloatNode *GetFloat(const char *name, int *err = nullptr) override;
    OrvCam::BooleanNode *GetBool(const char *name, int *err = nullptr) override;
    OrvCam::StringNode *GetString(const char *name, int *err = nullptr) override;
    OrvCam::EnumerationNode *GetEnum(const char *name, int *err = nullptr) override;
    int ExecuteCommand(const char *name) override;
    int SetIntegerValue(const char *name, std::int64_t value) override;
    std::vector<std::string> FeatureNames() override;
    std::vector<OrvCam::FeatureInfo> FeatureTree() override;
    OrvCam::Access GetAccess(const char *name) override;
    int RunAlone(const std::function<int()> &act) override;

    /// What may be done with a feature whenever it is not locked.
    int GetUnlockedAccess(const NodeFacts &feature, OrvCam::Access *access) EXCLUDES(m_map->mutex);
    /// What the description says; does not change.
    const Description &Facts() const { return m_map->facts; }

private:
    explicit FeatureArrayImp(std::unique_ptr<NodeMap> map);

    /// The node of that name if it is of one of the kinds that `Imp` stands for, and implemented.
    template <class Imp> Imp *Find(const char *name, int *err) EXCLUDES(m_map->mutex);
    /// The register that tells whether a command is done; null when there is none.
    const NodeFacts *FindDoneRegister(const NodeFacts &command) REQUIRES(m_map->mutex);
    int ReadsAs(const NodeFacts &reg, std::int64_t value, bool *yes) REQUIRES(m_map->mutex);
    /// Releases the lock between the polls, where it is held once only.
    int WaitUntilDone(const NodeFacts &reg, std::int64_t commandValue) REQUIRES(m_map->mutex);

    const std::unique_ptr<NodeMap> m_map;
    std::unordered_map<std::string, std::unique_ptr<FeatureBase>> m_features GUARDED_BY(m_map->mutex);
};

} // namespace orv::cam
