#include "cli/Cameras.h"
#include "cli/Command.h"
#include "cli/Features.h"
#include "cli/Terminal.h"

#include <algorithm>
#include <map>

namespace orvcli {

namespace {

using OrvCam::FeatureArray;
using OrvCam::FeatureInfo;
using OrvCam::FeatureKind;

/// "[16 .. 1280 step 16]", "{Off, On}"; an end that is open is left out.
std::string LimitsText(const FeatureState &state)
{
    std::string text;
    for (const std::string &entry : state.entries)
        text += (text.empty() ? "" : ", ") + entry;
    if (!state.entries.empty())
        return "{" + text + "}";
    if (state.minimum.empty() && state.maximum.empty())
        return text;
    return "[" + state.minimum + " .. " + state.maximum + (state.increment.empty() ? "" : " step " + state.increment) +
           "]";
}

std::string ValueText(const FeatureInfo &info, const FeatureState &state)
{
    if (info.kind == FeatureKind::Command)
        return "(command)";
    if (state.status != ORV_CAM_OK)
        return "-";
    const std::string value = info.kind == FeatureKind::String ? "\"" + state.value + "\"" : state.value;
    return value + (info.unit.empty() ? "" : " " + info.unit);
}

std::vector<FeatureInfo> ShownTree(FeatureArray &features, OrvCam::Visibility visibility)
{
    std::vector<FeatureInfo> shown = features.FeatureTree();
    shown.erase(
        std::remove_if(shown.begin(), shown.end(), [&](const auto &info) { return info.visibility > visibility; }),
        shown.end());
    return shown;
}

void PrintTree(FeatureArray &features, OrvCam::Visibility visibility)
{
    std::vector<std::vector<std::string>> rows;
    for (const FeatureInfo &info : ShownTree(features, visibility)) {
        const std::string name = std::string(2 * static_cast<std::size_t>(info.level), ' ') + info.name;
        if (info.kind == FeatureKind::Category) {
            rows.push_back({name});
            continue;
        }
        const FeatureState state = ReadState(features, info);
        if (state.access == OrvCam::Access::NotImplemented)
            continue;
        rows.push_back(
            {name, AccessText(state.access), Printable(ValueText(info, state)), Printable(LimitsText(state))});
    }
    PrintTable(rows);
}

void WriteLimits(Json &json, const FeatureState &state)
{
    const auto limit = [&](const char *key, const std::string &number) {
        if (!number.empty())
            json.Key(key).Raw(number);
    };
    limit("minimum", state.minimum);
    limit("maximum", state.maximum);
    limit("increment", state.increment);
    if (state.entries.empty())
        return;
    json.Key("entries").Open('[');
    for (const std::string &entry : state.entries)
        json.Value(entry);
    json.Close(']');
}

Json TreeAsJson(FeatureArray &features, OrvCam::Visibility visibility)
{
    const char *const kVisibilities[] = {"beginner", "expert", "guru", "invisible"};
    Json json;
    json.Open('[');
    std::vector<std::string> path; // of categories
    for (const FeatureInfo &info : ShownTree(features, visibility)) {
        path.resize(std::min(path.size(), static_cast<std::size_t>(info.level)));
        if (info.kind == FeatureKind::Category) {
            path.push_back(info.name);
            continue;
        }
        const FeatureState state = ReadState(features, info);
        if (state.access == OrvCam::Access::NotImplemented)
            continue;
        json.Open('{').Member("name", info.name).Member("category", path.empty() ? "" : path.back());
        json.Member("kind", KindText(info.kind)).Member("access", AccessText(state.access)).Key("value");
        WriteJsonValue(json, info, state);
        WriteLimits(json, state);
        json.Member("unit", info.unit).Member("visibility", kVisibilities[static_cast<int>(info.visibility)]);
        json.Member("toolTip", info.toolTip).Close('}');
    }
    return json.Close(']');
}

using Values = std::map<std::string, std::string>; ///< the last one read of each feature, as JSON

/// Prints the value, or adds it to what will be printed as JSON.
Outcome Get(FeatureArray &features, const FeatureInfo &info, Values *values)
{
    const FeatureState state = ReadValue(features, info);
    if (state.status != ORV_CAM_OK)
        return FailedWith(state.status, info.name);
    if (values == nullptr) {
        PrintLine(Printable(state.value));
        return {};
    }
    Json json;
    WriteJsonValue(json, info, state);
    (*values)[info.name] = json.Text();
    return {};
}

Outcome Do(FeatureArray &features, const FeatureAction &action, Values *values)
{
    FeatureInfo info;
    if (!FindFeature(features, action.name, info))
        return Fail(action.name + ": there is no such feature");
    switch (action.kind) {
    case FeatureAction::Kind::Get:
        return Get(features, info, values);
    case FeatureAction::Kind::Set:
        return WriteValue(features, info, action.value);
    default:
        break;
    }
    const int status = features.ExecuteCommand(action.name.c_str());
    return status == ORV_CAM_OK ? Outcome() : FailedWith(status, action.name);
}

Outcome DoAll(FeatureArray &features, const Options &options, Report &report)
{
    Values values;
    Outcome outcome;
    for (const FeatureAction &action : options.actions) {
        outcome = Do(features, action, options.isJson ? &values : nullptr);
        if (!outcome.IsOk())
            break;
    }
    if (!options.isJson)
        return outcome;
    Json &json = report.Members();
    for (const auto &[name, value] : values)
        json.Key(name).Raw(value);
    return outcome;
}

struct Owner {
    std::string name; ///< to be shown
    FeatureArray *features = nullptr;
};

/// The stream is opened for that, not started.
Owner OwnerOf(const Options &options, OrvCam::Device &device)
{
    const OrvCam::DeviceDescription &camera = device.GetDescription();
    if (options.ofInterface)
        return {Printable(camera.interface.text), device.GetInterfaceParameters()};
    if (!options.ofStream)
        return {NameOf(camera), device.GetCameraParameters()};
    OrvCam::Stream *const stream = device.GetStreamByIndex(0);
    return {"the stream of " + NameOf(camera), stream != nullptr ? stream->GetParameters() : nullptr};
}

/// What a feature's failure is told with.
Outcome Of(const std::string &owner, Outcome outcome)
{
    if (!outcome.IsOk())
        outcome.problem = owner + ": " + outcome.problem;
    return outcome;
}

} // namespace

Outcome WriteAll(FeatureArray &features, const Options &options)
{
    for (const FeatureAction &action : options.actions) {
        const Outcome outcome = Do(features, action, nullptr);
        if (!outcome.IsOk())
            return outcome;
    }
    return {};
}

Outcome RunFeatures(const Options &options, Report &report)
{
    if (options.ofInterface && options.ofStream)
        return Fail("--interface and --stream exclude each other", ExitCode::Usage);
    const bool changes = std::any_of(options.actions.begin(), options.actions.end(),
                                     [](const auto &action) { return action.kind != FeatureAction::Kind::Get; });
    OrvCam::DeviceDescription camera;
    DevicePtr device;
    const Outcome outcome = FindAndOpen(
        options.Word(0), changes ? OrvCam::ORV_ACCESS_CONTROL : OrvCam::ORV_ACCESS_READ_ONLY, camera, device);
    if (!outcome.IsOk())
        return outcome;
    const Owner owner = OwnerOf(options, *device);
    const Outcome described = options.ofInterface || options.ofStream ? Outcome() : CheckDescription(*device);
    if (!described.IsOk())
        return described;
    if (owner.features == nullptr)
        return FailedWith(ORV_CAM_ERR_XML, owner.name);
    if (!options.actions.empty())
        return Of(owner.name, DoAll(*owner.features, options, report));
    if (options.isJson)
        report.Print(TreeAsJson(*owner.features, options.visibility));
    else
        PrintTree(*owner.features, options.visibility);
    return {};
}

} // namespace orvcli
