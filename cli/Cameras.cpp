#include "cli/Cameras.h"

#include "cli/Terminal.h"
#include "orvdoctor/Diagnosis.h"

#include <algorithm>
#include <strings.h>

namespace orvcli {

namespace {

bool IsCalled(const OrvCam::DeviceDescription &camera, const std::string &name)
{
    const std::string *const kNames[] = {&camera.id, &camera.serial, &camera.userName, &camera.model, &camera.address};
    return std::any_of(std::begin(kNames), std::end(kNames), [&](const auto *own) { return *own == name; }) ||
           strcasecmp(camera.mac.c_str(), name.c_str()) == 0;
}

bool IsReachable(const OrvCam::DeviceDescription &camera)
{
    return camera.state != OrvCam::DeviceState::Unreachable;
}

std::string Lines(const Cameras &cameras)
{
    std::string lines;
    for (const OrvCam::DeviceDescription &camera : cameras) {
        const std::string holder = camera.holder.empty() ? "" : " by " + camera.holder;
        lines += "\n  " + NameOf(camera) + ", id " + Printable(camera.id) + ", " + StateText(camera.state) + holder;
    }
    return lines;
}

Outcome ChooseAny(const Cameras &cameras, OrvCam::DeviceDescription &camera)
{
    using OrvCam::DeviceState;
    if (cameras.size() == 1) {
        camera = cameras.front();
        return {};
    }
    for (const DeviceState usable : {DeviceState::Free, DeviceState::Unknown}) { // the latter shows when it is opened
        const auto found = std::find_if(cameras.begin(), cameras.end(),
                                        [&](const auto &one) { return one.state == usable && one.holder.empty(); });
        if (found != cameras.end()) {
            camera = *found;
            return {};
        }
    }
    if (std::any_of(cameras.begin(), cameras.end(), IsHeld))
        return Fail("none of the cameras is free:" + Lines(cameras), ExitCode::Busy);
    return Fail("none of the cameras can be reached:" + Lines(cameras) +
                "\nGive one an address that fits its interface (orvcam force-ip).");
}

} // namespace

bool IsSameCamera(const OrvCam::DeviceDescription &a, const OrvCam::DeviceDescription &b)
{
    return a.id == b.id && a.serial == b.serial;
}

Outcome FailedWith(int status, const std::string &what)
{
    ExitCode code = ExitCode::Failed;
    if (status == ORV_CAM_ERR_BUSY)
        code = ExitCode::Busy;
    else if (status == ORV_CAM_ERR_DEVICE_LOST)
        code = ExitCode::Lost;
    else if (status == ORV_CAM_ERR_NOT_FOUND)
        code = ExitCode::NoCamera;
    return Fail(what + ": " + OrvCam_StatusText(status), code);
}

Outcome ListInterfaces(std::vector<FoundInterface> &interfaces)
{
    OrvCam::System *system = OrvCam_GetSystem();
    OrvCam::InterfaceList *list = system != nullptr ? system->GetInterfaceList(255) : nullptr;
    if (list == nullptr)
        return Fail("no camera driver could be loaded: Nuvark.cti is neither beside this program nor installed nor "
                    "along GENICAM_GENTL64_PATH; --verbose tells more");
    for (OrvCam::DeviceList *devices = list->First(); devices != nullptr; devices = list->Next()) {
        interfaces.push_back({devices->Interface(), {}});
        for (const auto *device = devices->First(); device != nullptr; device = devices->Next())
            interfaces.back().cameras.push_back(*device);
    }
    list->Release();
    return {};
}

SearchFailures FailuresOf(const std::vector<FoundInterface> &interfaces)
{
    SearchFailures failures;
    for (const FoundInterface &interface : interfaces) {
        if (!interface.description.searchFailure.empty())
            failures.push_back({interface.description.text, interface.description.searchFailure});
    }
    return failures;
}

std::vector<std::string> SearchProblems(const SearchFailures &failures)
{
    std::vector<std::string> problems;
    if (failures.empty())
        return problems;
    orv::Facts host;
    orv::GatherHost(host);
    for (const orv::SearchFailure &failure : failures) {
        if (orv::MayHideCameras(failure, host.interfaces))
            problems.push_back("the search through " + Printable(failure.interface) +
                               " failed: " + Printable(failure.reason));
    }
    return problems;
}

Outcome ListCameras(Cameras &cameras, SearchFailures *failures)
{
    std::vector<FoundInterface> interfaces;
    const Outcome listed = ListInterfaces(interfaces);
    for (const FoundInterface &interface : interfaces)
        cameras.insert(cameras.end(), interface.cameras.begin(), interface.cameras.end());
    if (failures != nullptr)
        *failures = FailuresOf(interfaces);
    return listed;
}

Cameras WithoutDetours(const Cameras &cameras)
{
    Cameras best;
    for (const OrvCam::DeviceDescription &camera : cameras) {
        const auto known =
            std::find_if(best.begin(), best.end(), [&](const auto &other) { return IsSameCamera(camera, other); });
        if (known == best.end())
            best.push_back(camera);
        else if (!IsReachable(*known) && IsReachable(camera))
            *known = camera;
    }
    return best;
}

Outcome ChooseCamera(const Cameras &cameras, const std::string &name, OrvCam::DeviceDescription &camera)
{
    if (cameras.empty())
        return Fail("no camera was found", ExitCode::NoCamera);
    Cameras matches;
    std::copy_if(cameras.begin(), cameras.end(), std::back_inserter(matches),
                 [&](const auto &one) { return name.empty() || IsCalled(one, name); });
    matches = WithoutDetours(matches);
    if (matches.empty())
        return Fail("no camera is called \"" + name + "\"; there are:" + Lines(cameras), ExitCode::NoCamera);
    if (name.empty())
        return ChooseAny(matches, camera);
    if (matches.size() > 1)
        return Fail("several cameras are called \"" + name + "\":" + Lines(matches), ExitCode::Ambiguous);
    camera = matches.front();
    return {};
}

Outcome ChooseCamera(const Cameras &cameras, const SearchFailures &failures, const std::string &name,
                     OrvCam::DeviceDescription &camera)
{
    Outcome outcome = ChooseCamera(cameras, name, camera);
    if (outcome.code != ExitCode::NoCamera)
        return outcome;
    for (const std::string &problem : SearchProblems(failures))
        outcome.problem += "\n  " + problem;
    return outcome;
}

Outcome FindCamera(const std::string &name, OrvCam::DeviceDescription &camera)
{
    Cameras cameras;
    SearchFailures failures;
    const Outcome listed = ListCameras(cameras, &failures);
    return listed.IsOk() ? ChooseCamera(cameras, failures, name, camera) : listed;
}

Outcome OpenCamera(const OrvCam::DeviceDescription &camera, OrvCam::DeviceAccess access, DevicePtr &device)
{
    device.reset(OrvCam_CreateDevice(&camera, access, 0));
    if (device)
        return {};
    std::string text;
    const int status = OrvCam_GetSystem()->LastError(&text);
    return Fail(Printable(text), FailedWith(status, "").code);
}

Outcome CheckDescription(OrvCam::Device &device)
{
    if (device.GetCameraParameters() != nullptr)
        return {};
    std::string text;
    const bool isTold = OrvCam_GetSystem()->LastError(&text) == ORV_CAM_ERR_XML;
    return Fail(isTold ? Printable(text) : OrvCam_StatusText(ORV_CAM_ERR_XML));
}

Outcome FindAndOpen(const std::string &name, OrvCam::DeviceAccess access, OrvCam::DeviceDescription &camera,
                    DevicePtr &device)
{
    const Outcome found = FindCamera(name, camera);
    return found.IsOk() ? OpenCamera(camera, access, device) : found;
}

std::string NameOf(const OrvCam::DeviceDescription &camera)
{
    std::string name = camera.model.empty() ? camera.id : camera.model;
    for (const std::string &part : {camera.serial, camera.userName.empty() ? "" : "\"" + camera.userName + "\"",
                                    camera.address.empty() ? "" : "at " + camera.address})
        name += part.empty() ? "" : " " + part;
    return Printable(name);
}

bool IsHeld(const OrvCam::DeviceDescription &camera)
{
    return camera.state == OrvCam::DeviceState::Busy || camera.state == OrvCam::DeviceState::ReadOnly ||
           !camera.holder.empty();
}

const char *StateText(OrvCam::DeviceState state)
{
    switch (state) {
    case OrvCam::DeviceState::Free:
        return "free";
    case OrvCam::DeviceState::ReadOnly:
        return "read-only";
    case OrvCam::DeviceState::Unreachable:
        return "unreachable";
    case OrvCam::DeviceState::Busy:
        return "busy";
    case OrvCam::DeviceState::OpenHere:
        return "open";
    default:
        return "unknown";
    }
}

void WriteCamera(Json &json, const OrvCam::DeviceDescription &camera)
{
    json.Open('{').Member("id", camera.id).Member("vendor", camera.vendor).Member("model", camera.model);
    json.Member("serial", camera.serial).Member("userName", camera.userName).Member("version", camera.version);
    json.Member("address", camera.address).Member("subnetMask", camera.subnetMask).Member("mac", camera.mac);
    json.Member("state", StateText(camera.state)).Member("holder", camera.holder);
    json.Key("interface").Open('{').Member("id", camera.interface.id).Member("text", camera.interface.text);
    json.Member("producer", camera.interface.producer).Close('}').Close('}');
}

} // namespace orvcli
