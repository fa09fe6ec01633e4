#include "cli/Cameras.h"
#include "cli/Command.h"
#include "cli/Terminal.h"

#include <algorithm>
#include <chrono>

namespace orvcli {

namespace {

/// Cameras take a moment before they answer at their new address.
bool IsSeenAt(const std::string &id, const std::string &address)
{
    constexpr auto kPatience = std::chrono::seconds(5);
    const auto end = std::chrono::steady_clock::now() + kPatience;
    while (!IsInterrupted() && std::chrono::steady_clock::now() < end) {
        Cameras cameras;
        const bool isListed = ListCameras(cameras).IsOk();
        if (isListed && std::any_of(cameras.begin(), cameras.end(),
                                    [&](const auto &one) { return one.id == id && one.address == address; }))
            return true;
    }
    return false;
}

} // namespace

Outcome RunForceIp(const Options &options)
{
    WatchForInterrupt();
    OrvCam::DeviceDescription camera;
    const Outcome outcome = FindCamera(options.Word(0), camera);
    if (!outcome.IsOk())
        return outcome;
    const std::string address = options.Word(1);
    const std::string gateway = options.words.size() > 3 ? options.words[3] : "0.0.0.0";
    OrvCam::System *system = OrvCam_GetSystem();
    const int status = system->ForceAddress(camera, address, options.Word(2), gateway);
    if (status != ORV_CAM_OK) {
        std::string text;
        system->LastError(&text);
        const ExitCode code = status == ORV_CAM_ERR_INVALID_PARAMETER ? ExitCode::Usage : FailedWith(status, "").code;
        return Fail(Printable(text), code);
    }
    const bool isSeen = IsSeenAt(camera.id, address);
    if (options.isJson)
        PrintLine(Json()
                      .Open('{')
                      .Member("camera", camera.serial)
                      .Member("address", address)
                      .Member("isSeen", isSeen)
                      .Close('}')
                      .Text());
    else
        PrintLine(NameOf(camera) + (isSeen ? " is now at " : " accepted, but was not seen yet at ") + address);
    return {};
}

} // namespace orvcli
