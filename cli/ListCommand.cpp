#include "cli/Cameras.h"
#include "cli/Command.h"
#include "cli/Terminal.h"

#include <algorithm>

namespace orvcli {

namespace {

using Rows = std::vector<std::vector<std::string>>;
using Interfaces = std::vector<FoundInterface>;

void AddRow(Rows &rows, std::vector<std::string> row)
{
    for (std::string &cell : row)
        cell = cell.empty() ? "-" : Printable(cell);
    rows.push_back(std::move(row));
}

void PrintCameras(const Interfaces &interfaces)
{
    Rows rows = {{"SERIAL", "MODEL", "VENDOR", "USER NAME", "ADDRESS", "MAC", "STATE", "INTERFACE"}};
    for (const FoundInterface &interface : interfaces) {
        for (const OrvCam::DeviceDescription &camera : interface.cameras) {
            const std::string holder = camera.holder.empty() ? "" : " by " + camera.holder;
            AddRow(rows, {camera.serial, camera.model, camera.vendor, camera.userName, camera.address, camera.mac,
                          StateText(camera.state) + holder, camera.interface.text});
        }
    }
    PrintTable(rows);
}

void PrintInterfaces(const Interfaces &interfaces)
{
    Rows rows = {{"INTERFACE", "PRODUCER", "CAMERAS", "SEARCH"}};
    for (const auto &[interface, cameras] : interfaces)
        AddRow(rows, {interface.text, interface.producer, std::to_string(cameras.size()),
                      interface.searchFailure.empty() ? "done" : "failed: " + interface.searchFailure});
    PrintTable(rows);
}

void WriteCameras(Json &json, const Cameras &cameras)
{
    for (const OrvCam::DeviceDescription &camera : cameras)
        WriteCamera(json, camera);
}

void WriteInterface(Json &json, const FoundInterface &interface)
{
    const OrvCam::InterfaceDescription &description = interface.description;
    json.Open('{').Member("id", description.id).Member("text", description.text);
    json.Member("producer", description.producer).Member("searchFailure", description.searchFailure);
    WriteCameras(json.Key("cameras").Open('['), interface.cameras);
    json.Close(']').Close('}');
}

Json InOneArray(const Interfaces &interfaces, bool byInterface)
{
    Json json;
    json.Open('[');
    for (const FoundInterface &interface : interfaces) {
        if (byInterface)
            WriteInterface(json, interface);
        else
            WriteCameras(json, interface.cameras);
    }
    return json.Close(']');
}

} // namespace

Outcome RunList(const Options &options, Report &report)
{
    Interfaces interfaces;
    const Outcome listed = ListInterfaces(interfaces);
    if (!listed.IsOk())
        return listed;
    for (const std::string &problem : SearchProblems(FailuresOf(interfaces)))
        PrintWarning(problem);
    const bool hasCameras =
        std::any_of(interfaces.begin(), interfaces.end(), [](const auto &one) { return !one.cameras.empty(); });
    const Outcome found = hasCameras ? Outcome() : Fail("no camera was found", ExitCode::NoCamera);
    if (options.isJson)
        report.Print(InOneArray(interfaces, options.byInterface), found.problem); // an array without cameras says it
    else if (options.byInterface)
        PrintInterfaces(interfaces);
    else if (hasCameras)
        PrintCameras(interfaces);
    return found;
}

} // namespace orvcli
