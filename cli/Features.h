#pragma once

#include "cli/Json.h"
#include "cli/Options.h"
#include "cli/Outcome.h"
#include "orvcam/OrvFeatures.h"

#include <string>
#include <vector>

/// Features as text.
namespace orvcli {

/// What can be said of a feature now. Texts that were not asked for, or that the camera does not tell, are "".
struct FeatureState {
    OrvCam::Access access = OrvCam::Access::NotImplemented;
    int status = 0; ///< of reading the value
    std::string value;
    std::string minimum, maximum, increment; ///< of numbers; an increment of 1 is left out
    std::vector<std::string> entries;        ///< of an enumeration
};

/// Any feature of the description, also one that no category lists. \return false when there is none.
bool FindFeature(OrvCam::FeatureArray &features, const std::string &name, OrvCam::FeatureInfo &info);

FeatureState ReadValue(OrvCam::FeatureArray &features, const OrvCam::FeatureInfo &info);
/// The same with limits and entries.
FeatureState ReadState(OrvCam::FeatureArray &features, const OrvCam::FeatureInfo &info);

/// Writes a value that is given as ReadValue gives it; numbers also as 0x..., booleans as 0 and 1, enumerations by
/// number.
Outcome WriteValue(OrvCam::FeatureArray &features, const OrvCam::FeatureInfo &info, const std::string &text);

/// Does what the options tell to do with features, and prints nothing.
Outcome WriteAll(OrvCam::FeatureArray &features, const Options &options);

/// A value of its kind: numbers as numbers, what could not be read as null.
void WriteJsonValue(Json &json, const OrvCam::FeatureInfo &info, const FeatureState &state);

const char *KindText(OrvCam::FeatureKind kind);
const char *AccessText(OrvCam::Access access);

} // namespace orvcli
