#include "orvgui/CameraState.h"

#include <QCoreApplication>
#include <QStringList>

namespace OrvGui {
namespace {

struct Meaning {
    OrvCam::DeviceState state;
    bool usable;
    const char *text;
    const char *advice;
};

constexpr Meaning kMeanings[] = {
    // A producer that cannot tell: opening the camera shows it.
    {OrvCam::DeviceState::Unknown, true, QT_TRANSLATE_NOOP("CameraState", "State unknown"), ""},
    {OrvCam::DeviceState::Free, true, QT_TRANSLATE_NOOP("CameraState", "Available"), ""},
    {OrvCam::DeviceState::ReadOnly, false, QT_TRANSLATE_NOOP("CameraState", "In use by another program"),
     QT_TRANSLATE_NOOP("CameraState", "Another program controls this camera. Close it there; it becomes available "
                                      "here after a few seconds.")},
    {OrvCam::DeviceState::Unreachable, false,
     QT_TRANSLATE_NOOP("CameraState", "Unreachable: address does not fit the network"),
     QT_TRANSLATE_NOOP("CameraState", "The camera's address does not belong to the network of %1. Give the camera one "
                                      "that fits (Set address), or the interface.")},
    {OrvCam::DeviceState::Busy, false, QT_TRANSLATE_NOOP("CameraState", "In use by another program"),
     QT_TRANSLATE_NOOP("CameraState", "Another program or computer uses this camera. Close it there; it becomes "
                                      "available here after a few seconds.")},
    {OrvCam::DeviceState::OpenHere, false, QT_TRANSLATE_NOOP("CameraState", "Open in this program"),
     QT_TRANSLATE_NOOP("CameraState", "This camera is connected already. To connect it anew, disconnect it first.")},
};

const Meaning &MeaningOf(OrvCam::DeviceState state)
{
    for (const Meaning &meaning : kMeanings) {
        if (meaning.state == state)
            return meaning;
    }
    return kMeanings[0];
}

QString Translated(const char *text)
{
    return QCoreApplication::translate("CameraState", text);
}

} // namespace

bool IsUsable(const OrvCam::DeviceDescription &camera)
{
    return MeaningOf(camera.state).usable;
}

bool NeedsAddress(const OrvCam::DeviceDescription &camera)
{
    return camera.state == OrvCam::DeviceState::Unreachable && !camera.address.empty();
}

QString StateText(const OrvCam::DeviceDescription &camera)
{
    const QString text = Translated(MeaningOf(camera.state).text);
    const bool isHeld = camera.state == OrvCam::DeviceState::Busy || camera.state == OrvCam::DeviceState::ReadOnly;
    if (!isHeld || camera.holder.empty())
        return text;
    return QStringLiteral("%1 (%2)").arg(text, QString::fromStdString(camera.holder));
}

QString StateAdvice(const OrvCam::DeviceDescription &camera)
{
    const QString interface = InterfaceText(camera.interface);
    if (!IsUsable(camera)) {
        const QString advice = Translated(MeaningOf(camera.state).advice);
        return advice.contains(QLatin1String("%1")) ? advice.arg(interface) : advice;
    }
    QStringList names;
    for (const std::string &name : {camera.vendor, camera.model, camera.serial}) {
        if (!name.empty())
            names += QString::fromStdString(name);
    }
    return Translated(QT_TRANSLATE_NOOP("CameraState", "%1 on %2")).arg(names.join(QLatin1Char(' ')), interface);
}

QString InterfaceText(const OrvCam::InterfaceDescription &interface)
{
    return QString::fromStdString(interface.text.empty() ? interface.id : interface.text);
}

QString HeadingText(const OrvCam::InterfaceDescription &interface)
{
    if (interface.searchFailure.empty())
        return InterfaceText(interface);
    return Translated(QT_TRANSLATE_NOOP("CameraState", "%1: the search failed (%2)"))
        .arg(InterfaceText(interface), QString::fromStdString(interface.searchFailure));
}

QString HeadingAdvice(const OrvCam::InterfaceDescription &interface)
{
    if (interface.searchFailure.empty())
        return QString::fromStdString(interface.producer);
    return Translated(QT_TRANSLATE_NOOP("CameraState",
                                        "The search for cameras could not be sent through %1: %2. Cameras there are "
                                        "not found until it can. In a terminal, \"orvcam doctor\" tells what to do."))
        .arg(InterfaceText(interface), QString::fromStdString(interface.searchFailure));
}

} // namespace OrvGui
