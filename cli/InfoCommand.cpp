#include "cli/Cameras.h"
#include "cli/Command.h"
#include "cli/Features.h"
#include "cli/Terminal.h"

namespace orvcli {

namespace {

/// What tells most of a camera, by the standard's names.
const char *const kTelling[] = {"DeviceFirmwareVersion",
                                "DeviceTemperature",
                                "SensorWidth",
                                "SensorHeight",
                                "Width",
                                "Height",
                                "PixelFormat",
                                "PayloadSize",
                                "AcquisitionFrameRate",
                                "ExposureTime",
                                "TriggerMode",
                                "DeviceLinkSpeed",
                                "GevSCPSPacketSize",
                                "GevTimestampTickFrequency"};

void TakeFeatures(OrvCam::FeatureArray &features, Json &json, std::vector<std::vector<std::string>> &rows)
{
    for (const char *name : kTelling) {
        OrvCam::FeatureInfo info;
        if (!FindFeature(features, name, info))
            continue;
        const FeatureState state = ReadValue(features, info);
        if (state.status != ORV_CAM_OK)
            continue;
        rows.push_back({info.name, Printable(state.value) + (info.unit.empty() ? "" : " " + Printable(info.unit))});
        json.Key(info.name);
        WriteJsonValue(json, info, state);
    }
}

std::vector<std::vector<std::string>> RowsOf(const OrvCam::DeviceDescription &camera)
{
    const std::string holder = camera.holder.empty() ? "" : " by " + camera.holder;
    std::vector<std::vector<std::string>> rows = {{"Vendor", camera.vendor},
                                                  {"Model", camera.model},
                                                  {"Serial number", camera.serial},
                                                  {"User name", camera.userName},
                                                  {"Version", camera.version},
                                                  {"Address", camera.address},
                                                  {"Subnet mask", camera.subnetMask},
                                                  {"MAC address", camera.mac},
                                                  {"Id", camera.id},
                                                  {"State", StateText(camera.state) + holder},
                                                  {"Interface", camera.interface.text},
                                                  {"Producer", camera.interface.producer}};
    for (auto &row : rows)
        row[1] = row[1].empty() ? "-" : Printable(row[1]);
    return rows;
}

} // namespace

Outcome RunInfo(const Options &options, Report &report)
{
    OrvCam::DeviceDescription camera;
    Outcome outcome = FindCamera(options.Word(0), camera);
    if (!outcome.IsOk())
        return outcome;
    DevicePtr device;
    outcome = OpenCamera(camera, OrvCam::ORV_ACCESS_READ_ONLY, device);
    OrvCam::FeatureArray *features = outcome.IsOk() ? device->GetCameraParameters() : nullptr;
    if (outcome.IsOk())
        outcome = CheckDescription(*device);
    std::vector<std::vector<std::string>> rows = RowsOf(camera);
    Json &json = report.Members().Key("camera");
    WriteCamera(json, camera);
    json.Key("features").Open('{');
    if (features != nullptr)
        TakeFeatures(*features, json, rows);
    json.Close('}');
    if (!options.isJson)
        PrintTable(rows);
    return outcome; // why the features are not among it
}

} // namespace orvcli
