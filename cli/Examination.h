#pragma once

#include "cli/Cameras.h"
#include "orvdoctor/Diagnosis.h"

#include <vector>

namespace orvcli {

/// What the doctor found out about one camera, or about the search for one that is not there.
struct Examination {
    OrvCam::DeviceDescription camera; ///< as it was listed
    orv::Facts facts;
    std::vector<orv::Diagnosis> diagnoses;
    Outcome outcome; ///< why there is nothing to tell; Ok beside no diagnosis means that all is well
};

/// Opens the camera where that can be, and watches its stream for a while.
/// \param cameras  all that were found.
Examination Examine(const OrvCam::DeviceDescription &camera, const Cameras &cameras, double seconds);
/// What is known of a search that a camera was missing in.
struct SearchFacts {
    orv::HostCounts host; ///< what the kernel counted meanwhile
    SearchFailures failures;
};
/// \param missed  how the search ended.
/// \param othersAreFound  it has found cameras, and the one that is meant was not among them.
Examination ExamineAbsence(const SearchFacts &search, const Outcome &missed, bool othersAreFound);

} // namespace orvcli
