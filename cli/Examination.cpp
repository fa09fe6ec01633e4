#include "cli/Examination.h"

#include "cli/Acquisition.h"
#include "cli/Observation.h"
#include "cli/Terminal.h"
#include "orvdoctor/Addresses.h"

#include <algorithm>

namespace orvcli {

namespace {

using OrvCam::DeviceState;

constexpr unsigned kBuffers = 16;

Outcome TooShort(const orv::Facts &facts)
{
    return Fail(NameOf(facts.camera) + ": " + std::to_string(facts.completeFrames) + " pictures came in " +
                Fixed(facts.streamingSeconds, 1) + " s, which is not long enough to tell what is wrong");
}

bool CameWithoutFrames(const orv::Facts &facts)
{
    return facts.isStreaming && facts.completeFrames + facts.incompleteFrames == 0;
}

/// What the opened camera and a short stream tell.
Outcome WatchStream(OrvCam::Device &device, double seconds, orv::Facts &facts)
{
    facts.descriptionProblem = CheckDescription(device).problem;
    orv::TriggerLook look;
    orv::GatherCamera(device, facts, &look);
    Observation observation(facts);
    Acquisition acquisition(device);
    const Outcome started = acquisition.Start(kBuffers);
    facts.isSilent |= started.code == ExitCode::Lost;
    if (!started.IsOk())
        return started;
    observation.Watch(acquisition.Stream(), seconds);
    observation.Tell(facts);
    return IsInterrupted() ? TooShort(facts) : Outcome();
}

/// Searches once more for a camera that was listed and could not be opened. Somebody may have taken it meanwhile, it
/// may be busy by itself, or gone.
void LookAgain(int status, orv::Facts &facts)
{
    Cameras cameras;
    if (!ListCameras(cameras).IsOk())
        return;
    const auto now = std::find_if(cameras.begin(), cameras.end(), [&](const auto &one) {
        return one.id == facts.camera.id && one.interface.id == facts.camera.interface.id;
    });
    // Drivers of others say this of a camera that is silent and of one that answers with an error.
    if (status == ORV_CAM_ERR_IO)
        facts.isSilent = now == cameras.end();
    if (status != ORV_CAM_ERR_BUSY || now == cameras.end())
        return;
    facts.camera.state = now->state;
    facts.camera.holder = now->holder;
    facts.answersBusy = !IsHeld(*now);
}

Outcome Gather(double seconds, orv::Facts &facts)
{
    if (facts.camera.state == DeviceState::Unreachable || facts.camera.state == DeviceState::Busy)
        return {}; // that is the cause
    DevicePtr device;
    const Outcome opened = OpenCamera(facts.camera, OrvCam::ORV_ACCESS_CONTROL, device);
    if (opened.IsOk())
        return WatchStream(*device, seconds, facts);
    std::string ignored;
    const int status = OrvCam_GetSystem()->LastError(&ignored);
    facts.isSilent = status == ORV_CAM_ERR_TIMEOUT || status == ORV_CAM_ERR_DEVICE_LOST;
    if (!facts.isSilent)
        LookAgain(status, facts);
    return opened;
}

} // namespace

Examination Examine(const OrvCam::DeviceDescription &camera, const Cameras &cameras, double seconds)
{
    Examination examination;
    examination.camera = examination.facts.camera = camera;
    for (const OrvCam::DeviceDescription &other : cameras) {
        const auto address = orv::ParseIpv4(other.address);
        if (address && !IsSameCamera(other, camera))
            examination.facts.takenAddresses.push_back(*address);
    }
    examination.outcome = Gather(seconds, examination.facts);
    orv::GatherHost(examination.facts); // as it is when things have gone wrong
    examination.diagnoses = orv::Diagnose(examination.facts);
    if (examination.outcome.IsOk() && examination.diagnoses.empty() && CameWithoutFrames(examination.facts))
        examination.outcome = TooShort(examination.facts);
    return examination;
}

Examination ExamineAbsence(const SearchFacts &search, const Outcome &missed, bool othersAreFound)
{
    Examination examination;
    examination.facts.isMissing = true;
    examination.facts.othersAreFound = othersAreFound;
    orv::GatherHost(examination.facts);
    examination.facts.host = search.host;
    examination.facts.searchFailures = search.failures;
    examination.diagnoses = orv::Diagnose(examination.facts);
    examination.outcome = missed;
    return examination;
}

} // namespace orvcli
