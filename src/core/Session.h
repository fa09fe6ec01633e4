#pragma once

#include "core/SessionState.h"
#include "orvcam/OrvCam.h"
#include "orvdoctor/Diagnosis.h"
#include "orvsupport/OrvComponentImp.h"

#include <QObject>
#include <QStateMachine>
#include <QString>

#include <atomic>
#include <map>
#include <memory>
#include <optional>
#include <stdexcept>

class DiagnosisBar;
class DisplayView;
class GrabbingFifo;
class OrvPlayer;
class PictureWatch;
class QSettings;

/// Why a session could not be set up: a message for the user and a 32-bit code.
class OrvPlayerException : public std::runtime_error {
public:
    OrvPlayerException(const std::string &message, unsigned int code) : std::runtime_error(message), m_code(code) {}
    unsigned int Code() const { return m_code; }

private:
    unsigned int m_code;
};

/// One opened camera and everything that works on it: the grabber, the live view, the per-camera settings and the state
/// machine that starts and stops the camera.
///
/// Life: made by the GUI manager once a device is open; the state machine enters Idle from the event loop. From then on
/// it follows its own signals: Idle, Acquisition, Capturing, and a final state when the camera is gone. Signals that
/// fit no transition are ignored. The destructor stops whatever still runs, saves the workers' settings and closes the
/// device; it is safe in every state.
///
/// Threads: everything on the GUI thread, except CameraDisconnectCallback and LogEvent, which the camera library calls
/// on threads of its own and which only emit a signal or append to the log. Camera commands run beside the GUI thread
/// (core/RunBeside.h), so the event loop may turn while a handler waits: never delete a session while IsBusy().
class Session : public QObject, public OrvComponentImp, private OrvParamListener {
    Q_OBJECT
public:
    /// Channels of the traffic log; the values are the camera library's event types.
    enum LogEnum : int { LogControl = 1000, LogStream = 1001, LogEventChannel = 1002 };

    /// Takes over the device only when it returns normally; an OrvPlayerException leaves the device to the caller.
    Session(QObject *parent, OrvCam::Device *device, OrvPlayer *mainWindow);
    ~Session() override;

    /// Asks for exactly one frame to be captured; works in Acquisition only. Always true.
    bool SnapNextFrame();
    /// Applies a camera configuration file. \return the library's status.
    int LoadConfiguration(const QString &path);
    /// Writes the camera's configuration; a failure is shown in a message box, during which the session may be closed.
    void SaveConfiguration(const QString &path);
    /// Sets the counters and rates of the workers to zero, with notification.
    void ResetVolatileParams();

    SessionState State() const { return m_state; }
    /// One of the session's own functions is on the stack, here or below a turning event loop.
    bool IsBusy() const { return m_busy > 0; }
    /// Settings group of this camera, "Session_<user id>_<model>".
    const QString &Name() const { return m_sessionName; }
    /// " <user id> [<model>, SN:<serial>]"
    const QString &Title() const { return m_cameraTitle; }
    QSettings *Settings() const { return m_settings; }
    OrvCam::Device *Device() const { return m_device; }

    // The workers' parameter interfaces; null for a worker that does not exist.
    OrvComponent *GetGrabber() const;
    OrvComponent *GetDisplay() const;
    OrvComponent *GetImageWriter() const { return nullptr; }
    OrvComponent *GetImgProcessor() const { return nullptr; }
    DisplayView *View() const { return m_display; }
    GrabbingFifo *Grabber() const { return m_grabber; }

    /// Registered with the device for its loss; `context` is the session. Any thread.
    static void CameraDisconnectCallback(const void *data, unsigned long size, void *context);

    /// Switches one channel of the traffic log by registering or removing the device's traffic callback. A refused
    /// registration sets the channel's parameter back to false. Called while the channel is being switched, it returns
    /// at once: the switching goes on to what was wanted last.
    bool EnableLog(LogEnum channel, bool enable);

signals:
    void signalStartAcquisition();
    void signalStopAcquisition();
    void signalStartCapturing();
    void signalStopCapturing();
    void signalSessionClosed();
    void signalCameraStateDisconnected();
    void signalUpdateGui();
    /// \param error 1 start of acquisition, 3 start of capture, 4 stop of capture.
    void signalSessionStateError(void *session, unsigned char error);
    /// \param reason 0 wanted by the user, 1 camera lost, 2 invalid device state.
    void signalCameraDisconnected(void *session, unsigned char reason);

    // What the state machine listens to: the signals above, one turn of the event loop later. The machine would
    // otherwise run its handlers inside the call that emits.
    void machineStartAcquisition();
    void machineStopAcquisition();
    void machineStartCapturing();
    void machineStopCapturing();
    void machineDisconnect();

public slots:
    void stopCapturing();
    void stopCapturingAndAcquisition();
    void enterIdle();
    void exitIdle();
    void enterAcquisition();
    void exitAcquisition();
    void enterCapturing();
    void exitCapturing();
    void enterDisconnected();
    void exitDisconnected();

private:
    class Busy;
    /// One channel of the traffic log; its address is what it is registered with.
    struct LogChannel {
        bool isWanted = false;
        bool isOn = false; ///< registered
        bool isSwitching = false;
    };

    void DeclareParams();
    void InitSession();
    bool InitStateMachine();
    bool CreateGrabber();
    bool CreateDisplayView();
    void CreateDiagnosisBar();
    void BuildNames();
    void LoadWorkerSettings();
    void SaveWorkerSettings();
    void DestroyWorkers();

    void SetState(SessionState state);
    /// Stops camera, display and grabbing in this order and releases the buffers; a step that fails does not stop the
    /// next.
    void StopStreaming();
    /// The steps from Idle to streaming; throws on the first that fails.
    void StartStreaming();
    void RollBackStart();
    /// Does what a button of the diagnosis bar says. What the camera refuses while it streams is done between a stop
    /// and a new start.
    void Cure(orv::Cure cure, const orv::Diagnosis &diagnosis);
    /// Does what has been waiting for the stream to stop, and starts it again.
    void CureWhileIdle();
    int RunCameraCommand(const char *feature);
    int SetTLParamsLocked(std::int64_t value);

    void ParamChanged(_OrvStParam param) override;
    bool ReadFlag(const char *name);
    static void LogEvent(const void *data, unsigned long size, void *context);

    static std::uint8_t s_CompID;

    OrvPlayer *m_mainWindow;
    QStateMachine m_machine;
    SessionState m_state = NoState;
    /// Set in the destructor: handlers that the event loop may still deliver do nothing any more.
    bool m_closing = false;
    int m_busy = 0;
    OrvCam::Device *m_device;
    GrabbingFifo *m_grabber = nullptr;
    DisplayView *m_display = nullptr;
    DiagnosisBar *m_diagnosisBar = nullptr; ///< the display's
    PictureWatch *m_watch = nullptr;
    struct PendingCure {
        orv::Cure cure;
        orv::Diagnosis diagnosis;
    };
    std::optional<PendingCure> m_pendingCure;    ///< for the next time in Idle
    std::map<LogEnum, LogChannel> m_logChannels; // GUI thread
    bool m_enableLog = false;
    bool m_logControl = false;
    bool m_logStream = false;
    bool m_logEvent = false;
    QSettings *m_settings = nullptr;
    QString m_sessionName;
    QString m_cameraTitle;
    QString m_deviceId;
    QString m_interfaceText;
};
