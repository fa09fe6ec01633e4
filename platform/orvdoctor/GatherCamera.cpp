#include "orvcam/OrvFeatures.h"
#include "orvdoctor/Diagnosis.h"
#include "orvdoctor/TriggerFeatures.h"

#include <algorithm>
#include <optional>

namespace orv {
namespace {

bool IsStartTrigger(const std::string &selector)
{
    constexpr const char *kNames[] = {"FrameStart", "AcquisitionStart", "FrameBurstStart", "ExposureStart",
                                      "FrameActive"};
    return std::any_of(std::begin(kNames), std::end(kNames), [&](const char *name) { return selector == name; });
}

/// A camera that has not answered is not asked anything else: each question takes all retries.
bool IsSilence(int status)
{
    return status == ORV_CAM_ERR_TIMEOUT || status == ORV_CAM_ERR_DEVICE_LOST;
}

/// Reads features by name and remembers that the camera fell silent.
class Settings {
public:
    Settings(OrvCam::FeatureArray &features, const std::function<void()> &onAnswer)
        : m_features(features), m_onAnswer(onAnswer)
    {
    }

    bool IsSilent() const { return m_isSilent; }
    void Note(int status)
    {
        m_isSilent = m_isSilent || IsSilence(status);
        if (!m_isSilent)
            m_onAnswer();
    }

    /// The first feature of these that can be read, integer or float.
    std::optional<double> Number(std::initializer_list<const char *> names)
    {
        for (const char *name : names) {
            if (const auto value = Value(m_isSilent ? nullptr : m_features.GetFloat(name)))
                return value;
            if (const auto value = Value(m_isSilent ? nullptr : m_features.GetInt(name)))
                return value;
        }
        return std::nullopt;
    }
    std::string Entry(const char *name)
    {
        const auto value = Value(m_isSilent ? nullptr : m_features.GetEnum(name));
        return value.value_or("");
    }
    /// A feature that is missing counts as on.
    bool IsSwitchedOff(const char *name)
    {
        const auto value = Value(m_isSilent ? nullptr : m_features.GetBool(name));
        return value.has_value() && !*value;
    }

private:
    template <class Node> auto Value(Node *node) -> std::optional<decltype(node->GetValue())>
    {
        if (!node)
            return std::nullopt;
        int err = ORV_CAM_OK;
        const auto value = node->GetValue(&err);
        Note(err);
        if (err != ORV_CAM_OK)
            return std::nullopt;
        return value;
    }

    OrvCam::FeatureArray &m_features;
    const std::function<void()> &m_onAnswer;
    bool m_isSilent = false;
};

double FrameRate(Settings &settings)
{
    const auto resulting =
        settings.Number({"ResultingFrameRate", "AcquisitionResultingFrameRate", "ResultingFrameRateAbs"});
    if (resulting)
        return *resulting;
    if (settings.IsSwitchedOff("AcquisitionFrameRateEnable"))
        return 0;
    return settings.Number({"AcquisitionFrameRate", "AcquisitionFrameRateAbs"}).value_or(0);
}

template <class Unsigned> Unsigned ToCount(std::optional<double> value)
{
    return value && *value > 0 && *value < 1e15 ? static_cast<Unsigned>(*value) : Unsigned{0};
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

/// The first start trigger that is on, the present one before others.
void GatherTrigger(OrvCam::FeatureArray &features, TriggerSearch search, Settings &settings, Facts &facts)
{
    int status = ORV_CAM_OK;
    std::optional<StartTrigger> trigger;
    facts.triggerSelector = settings.Entry("TriggerSelector");
    if (!settings.IsSilent() && (facts.triggerSelector.empty() || IsStartTrigger(facts.triggerSelector))) {
        trigger = PresentTrigger(features, facts.triggerSelector, &status);
        settings.Note(status);
    }
    if (!trigger && !facts.triggerSelector.empty() && search == TriggerSearch::All && !settings.IsSilent()) {
        const auto all = SwitchedOnTriggers(features, &status, [&](int each) { settings.Note(each); });
        if (!all.empty())
            trigger = all.front();
    }
    facts.hasTrigger = trigger.has_value();
    if (!trigger)
        return;
    facts.triggerSelector = trigger->selector;
    facts.triggerSource = trigger->source;
}

} // namespace

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

void GatherCamera(OrvCam::Device &device, Facts &facts, TriggerSearch search, const std::function<void()> &onAnswer)
{
    facts.camera = device.GetDescription();
    facts.isOpen = true;
    OrvCam::FeatureArray *const features = device.GetCameraParameters();
    if (!features)
        return;
    Settings settings(*features, onAnswer);
    GatherTrigger(*features, search, settings, facts);
    facts.acquisitionMode = settings.Entry("AcquisitionMode");
    if (facts.acquisitionMode == "MultiFrame")
        facts.acquisitionFrameCount = ToCount<std::uint64_t>(settings.Number({"AcquisitionFrameCount"}));

    facts.exposureUs = settings.Number({"ExposureTime", "ExposureTimeAbs"}).value_or(0);
    const std::string automatic = settings.Entry("ExposureAuto");
    facts.exposureIsAuto = !automatic.empty() && automatic != "Off";
    const auto gain = settings.Number({"Gain", "GainRaw"});
    facts.hasGain = gain.has_value();
    facts.gain = gain.value_or(0);
    facts.frameRateHz = FrameRate(settings);
    facts.payloadSize = ToCount<std::uint64_t>(settings.Number({"PayloadSize"}));
    facts.packetSize = ToCount<std::uint64_t>(settings.Number({"GevSCPSPacketSize"}));
    facts.isSilent = settings.IsSilent();
}

} // namespace orv
