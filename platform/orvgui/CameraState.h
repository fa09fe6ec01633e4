#pragma once

#include "orvcam/OrvCam.h"

#include <QString>

namespace OrvGui {

/// Whether it makes sense to try to open the camera for control.
bool IsUsable(const OrvCam::DeviceDescription &camera);

/// Whether giving it another address (force IP) is what it needs.
bool NeedsAddress(const OrvCam::DeviceDescription &camera);

/// A few words for a list: "Available"; of one that is in use, with who holds it where the camera tells: "In use by
/// another program (192.168.10.1:50123)".
QString StateText(const OrvCam::DeviceDescription &camera);

/// What a person can do about a camera that is not usable; for a usable one, which camera it is. One or two sentences.
QString StateAdvice(const OrvCam::DeviceDescription &camera);

/// "eth0 (10.0.0.1)", or the producer's identifier when it gives no text.
QString InterfaceText(const OrvCam::InterfaceDescription &interface);

/// The same, with why the search through it failed where it did: "eth0 (10.0.0.1): the search failed (cannot send:
/// Operation not permitted)".
QString HeadingText(const OrvCam::InterfaceDescription &interface);
/// What a failed search means for a person; otherwise which producer the interface belongs to.
QString HeadingAdvice(const OrvCam::InterfaceDescription &interface);

} // namespace OrvGui
