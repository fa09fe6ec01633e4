#pragma once

#include "cli/Json.h"
#include "cli/Outcome.h"
#include "orvcam/OrvCam.h"
#include "orvdoctor/Facts.h"

#include <memory>
#include <string>
#include <vector>

namespace orvcli {

struct DeviceRelease {
    void operator()(OrvCam::Device *device) const { device->Release(); }
};
using DevicePtr = std::unique_ptr<OrvCam::Device, DeviceRelease>;
using Cameras = std::vector<OrvCam::DeviceDescription>;

/// What the search through one interface came to.
struct FoundInterface {
    OrvCam::InterfaceDescription description;
    Cameras cameras;
};
/// Searches all interfaces, for about a second.
Outcome ListInterfaces(std::vector<FoundInterface> &interfaces);

/// Interfaces that the search could not be sent through, and why.
using SearchFailures = std::vector<orv::SearchFailure>;
SearchFailures FailuresOf(const std::vector<FoundInterface> &interfaces);
/// A sentence for each of them that may hide a camera.
std::vector<std::string> SearchProblems(const SearchFailures &failures);

/// ListInterfaces, and the cameras of all of them. \param failures may be null.
Outcome ListCameras(Cameras &cameras, SearchFailures *failures = nullptr);

/// A camera that is seen through several interfaces has one id. Its MAC address says less: software cameras may have
/// none, which reads as zeros.
bool IsSameCamera(const OrvCam::DeviceDescription &a, const OrvCam::DeviceDescription &b);
/// Each camera once, though it may be seen through several interfaces: on the way that reaches it.
Cameras WithoutDetours(const Cameras &cameras);

/// The camera that a name means, see kAboutCamera in Options.cpp; for "" the only one or the first that is free.
Outcome ChooseCamera(const Cameras &cameras, const std::string &name, OrvCam::DeviceDescription &camera);
/// The same, where a camera that is not found may be behind one of the searches that failed: that is told then.
Outcome ChooseCamera(const Cameras &cameras, const SearchFailures &failures, const std::string &name,
                     OrvCam::DeviceDescription &camera);
/// ListCameras and ChooseCamera.
Outcome FindCamera(const std::string &name, OrvCam::DeviceDescription &camera);
Outcome OpenCamera(const OrvCam::DeviceDescription &camera, OrvCam::DeviceAccess access, DevicePtr &device);
/// Why a camera that was opened has no features; Ok when it has. On the thread that opened it, before it opens another.
Outcome CheckDescription(OrvCam::Device &device);
/// FindCamera and OpenCamera.
Outcome FindAndOpen(const std::string &name, OrvCam::DeviceAccess access, OrvCam::DeviceDescription &camera,
                    DevicePtr &device);

/// "OrvSim SIM0001 at 127.0.0.1", for a person.
std::string NameOf(const OrvCam::DeviceDescription &camera);
/// By another program.
bool IsHeld(const OrvCam::DeviceDescription &camera);
const char *StateText(OrvCam::DeviceState state);
void WriteCamera(Json &json, const OrvCam::DeviceDescription &camera);

} // namespace orvcli
