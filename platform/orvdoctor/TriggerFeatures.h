#pragma once

#include "orvcam/OrvFeatures.h"
#include "orvdoctor/Diagnosis.h"

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace orv {

/// A camera that has not answered is not asked anything else: each question takes all retries.
bool IsSilence(int status);

/// The start trigger that no frame comes without, the selected one before others; none while all are off.
/// \param look  see there; null: others than the selected one are not looked at.
/// \param selector  receives what TriggerSelector stands at, "" for a camera without.
/// \param onStep  called with the status of each question.
std::optional<StartTrigger> AwaitedTrigger(OrvCam::FeatureArray &features, TriggerLook *look, std::string *selector,
                                           const std::function<void(int status)> &onStep);

/// The start triggers that are switched on. Looks at each of them by TriggerSelector, see WithSelector.
/// \param err  the status of the first feature that could not be read though it is there.
/// \param onStep  called with the status of each of them.
std::vector<StartTrigger> SwitchedOnTriggers(
    OrvCam::FeatureArray &features, int *err, const std::function<void(int status)> &onStep = [](int) {});

/// Runs `act` with TriggerSelector at the given entry. Where it stands at another, it is moved there and back again:
/// nobody else's call comes in between, neither to see it so nor to set what it selects then.
/// \return what `act` returned, or the status of the selector when it could not be read, moved or put back.
int WithSelector(OrvCam::FeatureArray &features, const std::string &selector, const std::function<int()> &act);

} // namespace orv
