#pragma once

#include "orvcam/OrvFeatures.h"

#include <functional>
#include <string>
#include <vector>

namespace orv {

/// A trigger that keeps frames from being taken until it comes.
struct StartTrigger {
    std::string selector; ///< of TriggerSelector, "" for a camera without
    std::string source;
};

/// The start triggers that are switched on. Looks at each of them by TriggerSelector and puts that back afterwards.
/// \param err  the status of the first feature that could not be read though it is there.
/// \param onStep  called with the status of each of them.
std::vector<StartTrigger> SwitchedOnTriggers(
    OrvCam::FeatureArray &features, int *err, const std::function<void(int status)> &onStep = [](int) {});

/// Runs `act` with TriggerSelector at the given entry and puts the selector back afterwards.
/// \return what `act` returned, or the status of the selector when it could not be set.
template <class Act> int WithSelector(OrvCam::FeatureArray &features, const std::string &selector, Act act)
{
    OrvCam::EnumerationNode *const node = selector.empty() ? nullptr : features.GetEnum("TriggerSelector");
    const std::string before = node ? node->GetValue() : std::string();
    if (!node || before == selector)
        return act();
    const int set = node->SetValue(selector);
    if (set != ORV_CAM_OK)
        return set;
    const int result = act();
    if (!before.empty())
        node->SetValue(before);
    return result;
}

} // namespace orv
