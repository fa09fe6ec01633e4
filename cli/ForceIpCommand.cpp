#include "cli/Cameras.h"
#include "cli/Command.h"
#include "cli/Terminal.h"
#include "orvdoctor/AddressChoice.h"
#include "orvdoctor/Addresses.h"

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

/// Why the camera could not be reached at the address; "" when it could, as far as is known.
std::string ProblemOf(const orv::AddressChoice &choice, const OrvCam::DeviceDescription &camera, const Cameras &cameras)
{
    std::vector<std::uint32_t> taken;
    for (const OrvCam::DeviceDescription &other : cameras) {
        const auto address = orv::ParseIpv4(other.address);
        if (address && other.id != camera.id)
            taken.push_back(*address);
    }
    orv::Facts facts;
    orv::GatherHost(facts);
    const orv::HostInterfaceFacts *const interface = orv::InterfaceOf(camera, facts.interfaces);
    return orv::ProblemOf(choice, interface != nullptr ? *interface : orv::HostInterfaceFacts(), taken);
}

} // namespace

Outcome RunForceIp(const Options &options, Report &report)
{
    WatchForInterrupt();
    Cameras cameras;
    SearchFailures failures;
    OrvCam::DeviceDescription camera;
    Outcome outcome = ListCameras(cameras, &failures);
    if (outcome.IsOk())
        outcome = ChooseCamera(cameras, failures, options.Word(0), camera);
    if (!outcome.IsOk())
        return outcome;
    if (!options.isUnchecked && IsHeld(camera))
        return Fail(NameOf(camera) + " is in use by another program" +
                        (camera.holder.empty() ? "" : " (" + Printable(camera.holder) + ")") +
                        "; a camera that a program controls keeps its address",
                    ExitCode::Busy);
    const std::string address = options.Word(1);
    const std::string gateway = options.words.size() > 3 ? options.words[3] : "0.0.0.0";
    if (!options.isUnchecked) {
        const std::string problem = ProblemOf({address, options.Word(2), gateway}, camera, cameras);
        if (!problem.empty())
            return Fail(address + " " + options.Word(2) + " " + gateway + ": " + problem, ExitCode::Usage);
    }
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
        report.Members().Member("camera", camera.serial).Member("address", address).Member("isSeen", isSeen);
    else if (isSeen)
        PrintLine(NameOf(camera) + " is now at " + address);
    return isSeen ? Outcome() : Fail(NameOf(camera) + " accepted, but was not seen at " + address);
}

} // namespace orvcli
