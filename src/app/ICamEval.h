#pragma once

#include "orvcam/OrvCam.h"
#include "orvimage/OrvImage.h"

#include <QtPlugin>

class DisplayView;
class OrvComponent;
class QMainWindow;

/// A camera-evaluation plug-in: a Qt plug-in named "CamEvalA.dll" beside the executable.
///
/// The application loads it when it is started with "cameval". One instance lives until the process ends. All calls
/// come on the GUI thread, except WantFrame and ProcessFrame, which come on the writing thread while a capture runs.
/// The order over one camera is: Attach, HandOverComponents, AddWidgets, then any number of PrepareToAcquition ...
/// OnStop rounds, with CaptureStart inside them, and SessionEnd. After a refused Attach nothing more is called.
class ICamEval {
public:
    virtual ~ICamEval() = default;

    /// Adds the plug-in's widgets to the main window. Both further arguments are 0, reserved.
    virtual void AddWidgets(QMainWindow *mainWindow, int reserved1, int reserved2) = 0;
    /// The camera is about to be closed: the device, the components and the view become invalid after the return.
    virtual void SessionEnd() = 0;
    /// Offers an opened camera. On false the application goes on without the plug-in.
    virtual bool Attach(QMainWindow *mainWindow, OrvCam::Device *device) = 0;
    virtual void CaptureStart() = 0;
    /// Streaming has stopped (also called when a session enters its first idle state).
    virtual void OnStop() = 0;
    /// Streaming is about to start: buffers are not allocated yet, features may still be changed.
    virtual void PrepareToAcquition() = 0;
    /// Starts the automatic evaluation. \return false when it cannot run.
    virtual bool StartAutoEvaluation() = 0;
    /// Lends the session component, the live view and the image processor (null while there is none) until SessionEnd.
    virtual void HandOverComponents(OrvComponent *session, DisplayView *display, OrvComponent *imageProcessor) = 0;

    /// Whether another frame is wanted; false ends the evaluation run. `*oldest` starts false: the newest frame.
    virtual bool WantFrame(bool *oldest) = 0;
    /// A complete frame; valid during the call.
    virtual void ProcessFrame(const _OrvImage *image) = 0;
};

Q_DECLARE_INTERFACE(ICamEval, "com.zelkor.sw.icameval")
