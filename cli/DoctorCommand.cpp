#include "cli/Acquisition.h"
#include "cli/Cameras.h"
#include "cli/Command.h"
#include "cli/Terminal.h"
#include "orvdoctor/Diagnosis.h"

#include <chrono>

namespace orvcli {

namespace {

using Clock = std::chrono::steady_clock;

constexpr double kUsualSeconds = 3;
constexpr unsigned kBuffers = 16;

double SecondsSince(Clock::time_point time)
{
    return std::chrono::duration<double>(Clock::now() - time).count();
}

/// Streams for a while and looks at what comes.
void Observe(OrvCam::Stream &stream, double seconds, orv::Facts &facts)
{
    Progress progress;
    const Clock::time_point start = Clock::now();
    Clock::time_point lastFrame = start;
    std::uint64_t frames = 0;
    int status = ORV_CAM_OK;
    while (!IsInterrupted() && SecondsSince(start) < seconds &&
           (status == ORV_CAM_OK || status == ORV_CAM_ERR_TIMEOUT)) {
        if (OrvCam::Buffer *buffer = stream.GetBuffer(100, &status)) {
            lastFrame = Clock::now();
            ++frames;
            if (!buffer->IsIncomplete())
                orv::GatherPicture(*buffer->GetImage(), facts);
            stream.QueueBuffer(buffer);
        }
        progress.Show("watching the stream, " + std::to_string(frames) + " frames");
    }
    facts.isStreaming = true;
    facts.isSilent = status == ORV_CAM_ERR_DEVICE_LOST;
    facts.streamingSeconds = SecondsSince(start);
    facts.secondsSinceFrame = SecondsSince(lastFrame);
    facts.stream = stream.GetStatistics();
}

/// What the opened camera and a short stream tell.
Outcome Examine(OrvCam::Device &device, double seconds, orv::Facts &facts)
{
    facts.isOpen = true;
    orv::GatherCamera(device, facts);
    Acquisition acquisition(device);
    const Outcome started = acquisition.Start(kBuffers);
    if (started.IsOk())
        Observe(acquisition.Stream(), seconds, facts);
    facts.isSilent |= started.code == ExitCode::Lost;
    return started;
}

/// \return what keeps the camera from being looked at more closely.
Outcome GatherAll(double seconds, orv::Facts &facts)
{
    orv::GatherHost(facts);
    if (facts.camera.state == OrvCam::DeviceState::Unreachable || facts.camera.state == OrvCam::DeviceState::Busy)
        return {}; // that is the cause
    DevicePtr device;
    Outcome outcome = OpenCamera(facts.camera, OrvCam::ORV_ACCESS_CONTROL, device);
    if (outcome.IsOk())
        return Examine(*device, seconds, facts);
    if (outcome.code == ExitCode::Busy)
        facts.camera.state = OrvCam::DeviceState::Busy;
    else
        facts.isSilent = true;
    return outcome;
}

void PrintDiagnoses(const orv::Facts &facts, const std::vector<orv::Diagnosis> &diagnoses)
{
    if (diagnoses.empty())
        PrintLine(NameOf(facts.camera) + ": nothing is wrong; " + std::to_string(facts.stream.delivered) +
                  " frames came in " + Fixed(facts.streamingSeconds, 1) + " s.");
    for (const orv::Diagnosis &diagnosis : diagnoses) {
        PrintLine((orv::IsFault(diagnosis.cause) ? "problem: " : "note: ") + Printable(diagnosis.finding));
        PrintLine("  " + Printable(diagnosis.remedy));
        if (!diagnosis.command.empty())
            PrintLine("  $ " + Printable(diagnosis.command));
    }
}

void PrintDiagnosesAsJson(const orv::Facts &facts, const std::vector<orv::Diagnosis> &diagnoses)
{
    Json json;
    json.Open('{').Key("camera");
    WriteCamera(json, facts.camera);
    json.Member("frames", facts.stream.delivered).Member("seconds", facts.streamingSeconds);
    json.Key("causes").Open('[');
    for (const orv::Diagnosis &diagnosis : diagnoses) {
        json.Open('{').Member("cause", orv::NameOf(diagnosis.cause)).Member("isFault", orv::IsFault(diagnosis.cause));
        json.Member("finding", diagnosis.finding).Member("remedy", diagnosis.remedy);
        json.Member("command", diagnosis.command).Close('}');
    }
    PrintLine(json.Close(']').Close('}').Text());
}

} // namespace

Outcome RunDoctor(const Options &options)
{
    WatchForInterrupt();
    orv::Facts facts;
    const Outcome found = FindCamera(options.Word(0), facts.camera);
    if (!found.IsOk())
        return found;
    const Outcome gathered = GatherAll(options.seconds > 0 ? options.seconds : kUsualSeconds, facts);
    const std::vector<orv::Diagnosis> diagnoses = orv::Diagnose(facts);
    if (diagnoses.empty() && !gathered.IsOk())
        return gathered;
    if (options.isJson)
        PrintDiagnosesAsJson(facts, diagnoses);
    else
        PrintDiagnoses(facts, diagnoses);
    return {diagnoses.empty() ? ExitCode::Ok : ExitCode::CausesFound, ""};
}

} // namespace orvcli
