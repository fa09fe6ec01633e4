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

} // namespace OrvGui
