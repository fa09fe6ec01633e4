#include "cli/Command.h"
#include "cli/Examination.h"
#include "cli/Terminal.h"

#include <algorithm>

namespace orvcli {

namespace {

constexpr double kUsualSeconds = 3;
constexpr double kLeastSeconds = orv::kPatienceSeconds;

std::string FramesText(const orv::Facts &facts)
{
    const std::uint64_t frames = facts.completeFrames + facts.incompleteFrames;
    return std::to_string(frames) + " frames came in " + Fixed(facts.streamingSeconds, 1) + " s";
}

void PrintDiagnosis(const orv::Diagnosis &diagnosis)
{
    PrintLine((diagnosis.isFault ? "problem: " : "note: ") + Printable(diagnosis.finding));
    PrintLine("  " + Printable(diagnosis.remedy));
    if (!diagnosis.command.empty())
        PrintLine("  $ " + Printable(diagnosis.command));
    if (!diagnosis.lasting.empty()) {
        PrintLine("  That lasts until a restart; for good:");
        PrintLine("  $ " + Printable(diagnosis.lasting));
    }
}

void Print(const Examination &examination, bool isOneOfSeveral)
{
    if (examination.diagnoses.empty() && examination.outcome.IsOk())
        return PrintLine(NameOf(examination.camera) + ": nothing is wrong; " + FramesText(examination.facts) + ".");
    if (isOneOfSeveral)
        PrintLine(NameOf(examination.camera) + ":");
    for (const orv::Diagnosis &diagnosis : examination.diagnoses)
        PrintDiagnosis(diagnosis);
    if (isOneOfSeveral && examination.diagnoses.empty())
        PrintLine("  " + Printable(examination.outcome.problem));
}

void PrintAsJson(const Examination &examination, Report &report)
{
    const orv::Facts &facts = examination.facts;
    Json json;
    json.Open('{').Key("camera");
    if (facts.isMissing)
        json.Null();
    else
        WriteCamera(json, examination.camera);
    json.Member("problem", examination.outcome.problem);
    json.Member("frames", facts.completeFrames + facts.incompleteFrames).Member("seconds", facts.streamingSeconds);
    json.Key("causes").Open('[');
    for (const orv::Diagnosis &diagnosis : examination.diagnoses) {
        json.Open('{').Member("cause", orv::NameOf(diagnosis.cause)).Member("isFault", diagnosis.isFault);
        json.Member("finding", diagnosis.finding).Member("remedy", diagnosis.remedy);
        json.Member("command", diagnosis.command).Member("lasting", diagnosis.lasting).Close('}');
    }
    report.Print(json.Close(']').Close('}'), examination.outcome.problem);
}

/// The cameras that are meant: without a name all that were found.
Outcome Choose(const Cameras &cameras, const std::string &name, Cameras &chosen)
{
    if (name.empty() && !cameras.empty()) {
        chosen = WithoutDetours(cameras);
        return {};
    }
    OrvCam::DeviceDescription camera;
    Outcome outcome = ChooseCamera(cameras, name, camera);
    if (outcome.IsOk())
        chosen.push_back(camera);
    return outcome;
}

/// Of a camera that is not there, notes are no more than hints where to look.
bool HasCause(const Examination &examination)
{
    const auto &all = examination.diagnoses;
    return std::any_of(all.begin(), all.end(), [&](const orv::Diagnosis &diagnosis) {
        return !examination.facts.isMissing || diagnosis.isFault;
    });
}

/// Causes of any count above what could not be done. What was told of one of several is not said again.
Outcome Summary(const std::vector<Examination> &examinations)
{
    Outcome summary;
    for (const Examination &examination : examinations) {
        if (HasCause(examination))
            return {ExitCode::CausesFound, examination.facts.isMissing ? examination.outcome.problem : ""};
        if (summary.IsOk())
            summary = examination.outcome;
    }
    if (examinations.size() > 1)
        summary.problem.clear();
    return summary;
}

} // namespace

Outcome RunDoctor(const Options &options, Report &report)
{
    if (options.seconds > 0 && options.seconds < kLeastSeconds)
        return Fail("less than " + NumberText(kLeastSeconds) + " s is not enough to tell", ExitCode::Usage);
    WatchForInterrupt();
    const double seconds = options.seconds > 0 ? options.seconds : kUsualSeconds;
    const orv::HostCounts before = orv::ReadHostCounts();
    Cameras cameras;
    SearchFacts search;
    const Outcome listed = ListCameras(cameras, &search.failures);
    search.host = orv::Since(before, orv::ReadHostCounts());
    if (!listed.IsOk())
        return listed;
    Cameras chosen;
    const Outcome found = Choose(cameras, options.Word(0), chosen);
    if (!found.IsOk() && found.code != ExitCode::NoCamera)
        return found;
    std::vector<Examination> examinations;
    const auto add = [&](Examination examination) {
        if (options.isJson)
            PrintAsJson(examination, report);
        else
            Print(examination, chosen.size() > 1);
        examinations.push_back(std::move(examination));
    };
    if (!found.IsOk())
        add(ExamineAbsence(search, found, !cameras.empty()));
    for (const OrvCam::DeviceDescription &camera : chosen) {
        if (IsInterrupted())
            return Fail("interrupted after " + std::to_string(examinations.size()) + " of " +
                        std::to_string(chosen.size()) + " cameras");
        add(Examine(camera, cameras, seconds));
    }
    return Summary(examinations);
}

} // namespace orvcli
