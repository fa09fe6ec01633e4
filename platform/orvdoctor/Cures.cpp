#include "orvcam/OrvFeatures.h"
#include "orvdoctor/Diagnosis.h"
#include "orvdoctor/TriggerFeatures.h"

#include <algorithm>
#include <cmath>

namespace orv {
namespace {

int SwitchTriggersOff(OrvCam::FeatureArray &features)
{
    int status = ORV_CAM_OK;
    for (const StartTrigger &trigger : SwitchedOnTriggers(features, &status)) {
        const int set = WithSelector(features, trigger.selector, [&] {
            OrvCam::EnumerationNode *const mode = features.GetEnum("TriggerMode");
            return mode ? mode->SetValue("Off") : static_cast<int>(ORV_CAM_ERR_FEATURE_NOT_PRESENT);
        });
        if (set != ORV_CAM_OK)
            return set;
    }
    return status;
}

int TriggerOnce(OrvCam::FeatureArray &features)
{
    int status = ORV_CAM_OK;
    for (const StartTrigger &trigger : SwitchedOnTriggers(features, &status))
        if (trigger.source == "Software")
            return WithSelector(features, trigger.selector, [&] { return features.ExecuteCommand("TriggerSoftware"); });
    return status != ORV_CAM_OK ? status : features.ExecuteCommand("TriggerSoftware");
}

/// Rounded down to a value that the feature can take.
int SetPacketSize(OrvCam::FeatureArray &features, double bytes)
{
    OrvCam::IntegerNode *const node = features.GetInt("GevSCPSPacketSize");
    if (!node)
        return ORV_CAM_ERR_FEATURE_NOT_PRESENT;
    const std::int64_t least = node->GetMin();
    const std::int64_t step = std::max<std::int64_t>(1, node->GetIncrement());
    const std::int64_t wanted = std::max(least, static_cast<std::int64_t>(bytes));
    return node->SetValue(least + (wanted - least) / step * step);
}

int SetExposure(OrvCam::FeatureArray &features, double exposureUs)
{
    for (const char *name : {"ExposureTime", "ExposureTimeAbs"}) {
        if (OrvCam::FloatNode *node = features.GetFloat(name))
            return node->SetValue(std::max(node->GetMin(), std::min(node->GetMax(), exposureUs)));
        if (OrvCam::IntegerNode *node = features.GetInt(name))
            return node->SetValue(std::max(node->GetMin(), std::min(node->GetMax(), std::int64_t(exposureUs))));
    }
    return ORV_CAM_ERR_FEATURE_NOT_PRESENT;
}

} // namespace

int ApplyCure(OrvCam::Device &device, Cure cure, const Diagnosis &diagnosis)
{
    OrvCam::FeatureArray *const features = device.GetCameraParameters();
    if (!features)
        return ORV_CAM_ERR_XML;
    switch (cure) {
    case Cure::SwitchTriggerOff:
        return SwitchTriggersOff(*features);
    case Cure::TriggerOnce:
        return TriggerOnce(*features);
    case Cure::TakeContinuously: {
        OrvCam::EnumerationNode *const mode = features->GetEnum("AcquisitionMode");
        return mode ? mode->SetValue("Continuous") : static_cast<int>(ORV_CAM_ERR_FEATURE_NOT_PRESENT);
    }
    case Cure::ReducePacketSize:
        return SetPacketSize(*features, diagnosis.value);
    case Cure::ShortenExposure:
    case Cure::LengthenExposure:
        return SetExposure(*features, diagnosis.value);
    case Cure::None:
    case Cure::SetAddress:
        break;
    }
    return ORV_CAM_ERR_INVALID_PARAMETER;
}

bool WantsRestart(Cure cure)
{
    // The receiver counts on the packet size that it was started with; the camera, on the number of frames.
    return cure == Cure::ReducePacketSize || cure == Cure::TakeContinuously;
}

} // namespace orv
