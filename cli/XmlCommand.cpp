#include "cli/Cameras.h"
#include "cli/Command.h"
#include "orvcam/Text.h"

#include <cstdio>

namespace orvcli {

Outcome RunXml(const Options &options, Report &report)
{
    OrvCam::DeviceDescription camera;
    DevicePtr device;
    const Outcome outcome = FindAndOpen(options.Word(0), OrvCam::ORV_ACCESS_READ_ONLY, camera, device);
    if (!outcome.IsOk())
        return outcome;
    std::string xml;
    const int status = device->FetchDescriptionXml(&xml);
    if (status != ORV_CAM_OK)
        return FailedWith(status, NameOf(camera));
    if (options.isJson)
        report.Members().Member("camera", camera.serial).Member("xml", orv::cam::ToUtf8(xml));
    else
        std::fwrite(xml.data(), 1, xml.size(), stdout);
    return {};
}

} // namespace orvcli
