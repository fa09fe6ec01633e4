#include "cli/Cameras.h"
#include "cli/Command.h"
#include "cli/Terminal.h"

namespace orvcli {

Outcome RunList(const Options &options, Report &report)
{
    Cameras cameras;
    const Outcome listed = ListCameras(cameras);
    if (!listed.IsOk())
        return listed;
    const Outcome found = cameras.empty() ? Fail("no camera was found", ExitCode::NoCamera) : Outcome();
    if (options.isJson) {
        Json json;
        json.Open('[');
        for (const OrvCam::DeviceDescription &camera : cameras)
            WriteCamera(json, camera);
        report.Print(json.Close(']'), found.problem); // an empty list says it
    }
    if (options.isJson || !found.IsOk())
        return found;
    std::vector<std::vector<std::string>> rows = {
        {"SERIAL", "MODEL", "VENDOR", "USER NAME", "ADDRESS", "MAC", "STATE", "INTERFACE"}};
    for (const OrvCam::DeviceDescription &camera : cameras) {
        const std::string holder = camera.holder.empty() ? "" : " by " + camera.holder;
        rows.push_back({camera.serial, camera.model, camera.vendor, camera.userName, camera.address, camera.mac,
                        StateText(camera.state) + holder, camera.interface.text});
        for (std::string &cell : rows.back())
            cell = cell.empty() ? "-" : Printable(cell);
    }
    PrintTable(rows);
    return {};
}

} // namespace orvcli
