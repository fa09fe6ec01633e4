#include "orvcam/OrvFeatures.h"
#include "orvdoctor/Diagnosis.h"
#include "orvdoctor/TriggerFeatures.h"

#include <optional>

namespace orv {
namespace {

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

void GatherTrigger(OrvCam::FeatureArray &features, TriggerLook *look, Settings &settings, Facts &facts)
{
    const auto trigger =
        AwaitedTrigger(features, look, &facts.triggerSelector, [&](int status) { settings.Note(status); });
    facts.hasTrigger = trigger.has_value();
    if (!trigger)
        return;
    facts.triggerSelector = trigger->selector;
    facts.triggerSource = trigger->source;
}

} // namespace

void GatherCamera(OrvCam::Device &device, Facts &facts, TriggerLook *look, const std::function<void()> &onAnswer)
{
    facts.camera = device.GetDescription();
    facts.isOpen = true;
    OrvCam::FeatureArray *const features = device.GetCameraParameters();
    if (!features)
        return;
    Settings settings(*features, onAnswer);
    GatherTrigger(*features, look, settings, facts);
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
