#include "orvdoctor/TriggerFeatures.h"

#include <algorithm>

namespace orv {
namespace {

bool IsStartTrigger(const std::string &selector)
{
    constexpr const char *kNames[] = {"FrameStart", "AcquisitionStart", "FrameBurstStart", "ExposureStart",
                                      "FrameActive"};
    return std::any_of(std::begin(kNames), std::end(kNames), [&](const char *name) { return selector == name; });
}

/// The trigger that the selector stands at, if it is on.
std::optional<StartTrigger> PresentTrigger(OrvCam::FeatureArray &features, const std::string &selector, int *err)
{
    OrvCam::EnumerationNode *const mode = features.GetEnum("TriggerMode");
    if (!mode || mode->GetValue(err) != "On")
        return std::nullopt;
    OrvCam::EnumerationNode *const source = features.GetEnum("TriggerSource");
    return StartTrigger{selector, source ? source->GetValue() : std::string()};
}

/// What the selector stands at, and what it shows; together, since it may be moved at any time.
int ReadSelected(OrvCam::FeatureArray &features, std::string *selector, std::optional<StartTrigger> *trigger)
{
    return features.RunAlone([&] {
        int status = ORV_CAM_OK;
        OrvCam::EnumerationNode *const node = features.GetEnum("TriggerSelector");
        *selector = node ? node->GetValue(&status) : std::string();
        if (!IsSilence(status) && (selector->empty() || IsStartTrigger(*selector)))
            *trigger = PresentTrigger(features, *selector, &status);
        return status;
    });
}

/// Unless it was moved from `ours` meanwhile, as another program could. A camera that gives no answer is told all the
/// same: it may hear.
/// \param status  how it went at `ours`.
int PutBack(OrvCam::EnumerationNode &node, const std::string &ours, const std::string &before, int status)
{
    int read = ORV_CAM_OK;
    const bool isMoved = !IsSilence(status) && node.GetValue(&read) != ours && read == ORV_CAM_OK;
    if (isMoved || before.empty())
        return status;
    const int restored = node.SetValue(before);
    return status != ORV_CAM_OK ? status : restored;
}

} // namespace

bool IsSilence(int status)
{
    return status == ORV_CAM_ERR_TIMEOUT || status == ORV_CAM_ERR_DEVICE_LOST;
}

std::optional<StartTrigger> AwaitedTrigger(OrvCam::FeatureArray &features, TriggerLook *look, std::string *selector,
                                           const std::function<void(int status)> &onStep)
{
    std::optional<StartTrigger> selected;
    int status = ReadSelected(features, selector, &selected);
    onStep(status);
    if (!look || IsSilence(status))
        return selected;
    if (look->from && *look->from != *selector)
        *look = {};
    if (selected || selector->empty())
        return selected;
    if (!look->from) {
        look->on = SwitchedOnTriggers(features, &status, onStep);
        if (!IsSilence(status))
            look->from = *selector;
    }
    return look->on.empty() ? std::nullopt : std::optional<StartTrigger>(look->on.front());
}

std::vector<StartTrigger> SwitchedOnTriggers(OrvCam::FeatureArray &features, int *err,
                                             const std::function<void(int status)> &onStep)
{
    *err = ORV_CAM_OK;
    if (!features.GetEnum("TriggerMode"))
        return {};
    OrvCam::EnumerationNode *const selector = features.GetEnum("TriggerSelector");
    std::vector<std::string> entries{""};
    if (selector) {
        entries = selector->GetEntries(err);
        entries.erase(std::remove_if(entries.begin(), entries.end(), [](const auto &e) { return !IsStartTrigger(e); }),
                      entries.end());
    }
    std::vector<StartTrigger> found;
    for (const std::string &entry : entries) {
        if (IsSilence(*err))
            break;
        const int step = WithSelector(features, entry, [&] {
            int status = ORV_CAM_OK;
            if (const auto trigger = PresentTrigger(features, entry, &status))
                found.push_back(*trigger);
            return status;
        });
        *err = *err == ORV_CAM_OK || IsSilence(step) ? step : *err;
        onStep(step);
    }
    return found;
}

int WithSelector(OrvCam::FeatureArray &features, const std::string &selector, const std::function<int()> &act)
{
    OrvCam::EnumerationNode *const node = selector.empty() ? nullptr : features.GetEnum("TriggerSelector");
    if (!node)
        return act();
    return features.RunAlone([&] {
        int status = ORV_CAM_OK;
        const std::string before = node->GetValue(&status);
        if (status != ORV_CAM_OK)
            return status;
        if (before == selector)
            return act();
        status = node->SetValue(selector);
        if (status == ORV_CAM_OK)
            status = act();
        return PutBack(*node, selector, before, status);
    });
}

} // namespace orv
