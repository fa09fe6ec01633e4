#include "core/Session.h"

#include "acquisition/DiagnosisBar.h"
#include "acquisition/DisplayView.h"
#include "acquisition/GrabbingFifo.h"
#include "acquisition/PictureWatch.h"
#include "app/AppSettings.h"
#include "app/ICamEval.h"
#include "app/OrvPlayer.h"
#include "core/DiagnosticLog.h"
#include "core/RunBeside.h"
#include "core/WaitCursor.h"
#include "panels/PlayerPanel.h"

#include <QFinalState>
#include <QMessageBox>
#include <QState>

#include <cstdio>
#include <cstring>
#include <utility>

namespace {

struct LogSwitch {
    const char *name;
    Session::LogEnum channel;
};
constexpr LogSwitch kLogSwitches[] = {
    {"LogControl", Session::LogControl}, {"LogStream", Session::LogStream}, {"LogEvent", Session::LogEventChannel}};

/// Cameras and transport layers without the feature count as done.
bool Accepted(int status)
{
    return status == ORV_CAM_OK || status == ORV_CAM_ERR_FEATURE_NOT_PRESENT;
}

void ZeroParams(OrvComponent *component, std::initializer_list<const char *> integers,
                std::initializer_list<const char *> floats)
{
    for (const char *name : integers)
        component->SetParamInt(const_cast<char *>(name), 0);
    for (const char *name : floats)
        component->SetParamFloat(const_cast<char *>(name), 0.0);
}

} // namespace

std::uint8_t Session::s_CompID = 0;

class Session::Busy {
public:
    explicit Busy(Session &session) : m_session(session) { ++m_session.m_busy; }
    ~Busy() { --m_session.m_busy; }
    Busy(const Busy &) = delete;
    Busy &operator=(const Busy &) = delete;

private:
    Session &m_session;
};

Session::Session(QObject *parent, OrvCam::Device *device, OrvPlayer *mainWindow)
    : QObject(parent), OrvComponentImp(++s_CompID), m_mainWindow(mainWindow), m_device(device)
{
    const OrvCam::DeviceDescription &description = m_device->GetDescription();
    m_deviceId = QString::fromStdString(description.id);
    m_interfaceText = QString::fromStdString(description.interface.text);
    DeclareParams();
    try {
        InitSession();
    } catch (...) {
        m_closing = true;
        DestroyWorkers();
        throw;
    }
    // Last: reading from a slow camera lets the event loop turn, and a handler must not run before its workers exist.
    m_machine.start();
}

Session::~Session()
{
    m_closing = true;
    m_machine.stop();
    orv::RunBeside(
        [this] { return m_device->UnregisterEvent(OrvCam::kEventDeviceLost, CameraDisconnectCallback, this); });
    for (const LogSwitch &logSwitch : kLogSwitches)
        EnableLog(logSwitch.channel, false);
    try {
        if (m_state == Acquisition || m_state == Capturing)
            StopStreaming();
    } catch (const std::exception &error) {
        LogFormatted(LogLevel::Error, 0, "Session::~Session(): %s", error.what());
    }
    if (m_display)
        m_mainWindow->RemoveDisplayWidget(m_display);
    SaveWorkerSettings();
    DestroyWorkers();
    orv::RunBeside([this] { m_device->Release(); });
}

void Session::DestroyWorkers()
{
    delete m_watch; // it asks the others
    m_watch = nullptr;
    if (m_display) {
        m_mainWindow->RemoveDisplayWidget(m_display);
        if (m_display->IsDisplaying())
            m_display->StopDisplaying(); // it takes frames from the grabber until it has stopped
    }
    delete m_grabber;
    m_grabber = nullptr;
    delete m_display;
    m_display = nullptr;
}

void Session::DeclareParams()
{
    const std::pair<const char *, bool *> flags[] = {{"EnableLog", &m_enableLog},
                                                     {"LogControl", &m_logControl},
                                                     {"LogStream", &m_logStream},
                                                     {"LogEvent", &m_logEvent}};
    for (const auto &[name, member] : flags) {
        _OrvStParam param = {};
        param.type = ORV_PARAM_BOOL;
        param.access = ORV_PARAM_ACCESS_RW;
        std::strncpy(param.name, name, sizeof param.name - 1);
        param.onChange = PlayerPanel::OnParamChanged;
        param.asBool.value = member;
        m_params.AddParam(&param);
        m_params.AddParamChangedListener(const_cast<char *>(name), this);
    }
}

void Session::InitSession()
{
    if (!InitStateMachine())
        throw OrvPlayerException("InitStateMachine( ) failed", 0);
    if (!CreateGrabber())
        throw OrvPlayerException("CreateGrabber( ) failed", 0);
    if (!CreateDisplayView())
        throw OrvPlayerException("CreateDisplayView( ) failed", 0);
    BuildNames();
    LoadWorkerSettings();
    ResetVolatileParams();
    const int status = m_device->RegisterEvent(OrvCam::kEventDeviceLost, CameraDisconnectCallback, this);
    if (status != ORV_CAM_OK)
        LogFormatted(LogLevel::Warning, LogCode(status),
                     "Session::InitSession(): the loss of this camera will not be noticed");
}

bool Session::InitStateMachine()
{
    auto *top = new QState;
    auto *idle = new QState(top);
    auto *acquisition = new QState(top);
    auto *capturing = new QState(top);
    auto *disconnected = new QFinalState;
    top->setInitialState(idle);

    const auto later = [this](auto signal, auto machineSignal) {
        connect(this, signal, this, machineSignal, Qt::QueuedConnection);
        return machineSignal;
    };
    top->addTransition(this, later(&Session::signalCameraStateDisconnected, &Session::machineDisconnect), disconnected);
    idle->addTransition(this, later(&Session::signalStartAcquisition, &Session::machineStartAcquisition), acquisition);
    acquisition->addTransition(this, later(&Session::signalStopAcquisition, &Session::machineStopAcquisition), idle);
    acquisition->addTransition(this, later(&Session::signalStartCapturing, &Session::machineStartCapturing), capturing);
    capturing->addTransition(this, later(&Session::signalStopCapturing, &Session::machineStopCapturing), acquisition);

    connect(idle, &QState::entered, this, &Session::enterIdle);
    connect(idle, &QState::exited, this, &Session::exitIdle);
    connect(acquisition, &QState::entered, this, &Session::enterAcquisition);
    connect(acquisition, &QState::exited, this, &Session::exitAcquisition);
    connect(capturing, &QState::entered, this, &Session::enterCapturing);
    connect(capturing, &QState::exited, this, &Session::exitCapturing);
    connect(&m_machine, &QStateMachine::finished, this, &Session::enterDisconnected);

    m_machine.addState(top);
    m_machine.addState(disconnected);
    m_machine.setInitialState(top);
    return true;
}

bool Session::CreateGrabber()
{
    delete m_grabber;
    m_grabber = new GrabbingFifo(this, m_device);
    return m_grabber->HasStream();
}

bool Session::CreateDisplayView()
{
    if (m_display) {
        delete m_watch;
        m_watch = nullptr;
        m_mainWindow->RemoveDisplayWidget(m_display);
        delete m_display;
        m_display = nullptr;
    }
    if (!m_grabber)
        return false;
    m_display = new DisplayView(m_mainWindow, m_grabber);
    connect(m_display, &DisplayView::mouseMoved, m_mainWindow, &OrvPlayer::setCoordinatesAndValue);
    m_mainWindow->AddDisplayWidget(m_display);
    CreateDiagnosisBar();
    return true;
}

void Session::CreateDiagnosisBar()
{
    m_diagnosisBar = new DiagnosisBar(m_display);
    m_watch = new PictureWatch(this, m_device, m_grabber, m_display);
    connect(m_watch, &PictureWatch::signalDiagnosis, m_diagnosisBar, &DiagnosisBar::Show);
    connect(m_watch, &PictureWatch::signalAllWell, m_diagnosisBar, &DiagnosisBar::Clear);
    connect(m_diagnosisBar, &DiagnosisBar::signalClosed, m_watch, &PictureWatch::Dismiss);
    connect(m_diagnosisBar, &DiagnosisBar::signalCure, this, &Session::Cure);
}

void Session::BuildNames()
{
    m_sessionName = QStringLiteral("Session");
    m_cameraTitle.clear();
    struct Identity {
        bool hasUserId = false, hasModel = false, hasSerial = false;
        QString userId, model, serial;
    };
    OrvCam::FeatureArray *features = m_device->GetCameraParameters();
    if (!features)
        return;
    const Identity identity = orv::RunBeside([features] {
        const auto read = [features](const char *name, QString *text) {
            OrvCam::StringNode *node = features->GetString(name);
            if (node)
                *text = QString::fromStdString(node->GetValue());
            return node != nullptr;
        };
        Identity found;
        found.hasUserId = read("DeviceUserID", &found.userId);
        found.hasModel = read("DeviceModelName", &found.model);
        found.hasSerial = read("DeviceSerialNumber", &found.serial);
        return found;
    });
    // Texts from the camera may hold "%1": append, never substitute twice.
    if (identity.hasUserId) {
        m_sessionName += QStringLiteral("_") + identity.userId;
        m_cameraTitle += QStringLiteral(" ") + identity.userId;
    }
    if (identity.hasModel) {
        m_sessionName += QStringLiteral("_") + identity.model;
        m_cameraTitle += QStringLiteral(" [") + identity.model;
    }
    if (identity.hasSerial)
        m_cameraTitle += QStringLiteral(", SN:") + identity.serial;
    m_cameraTitle += QStringLiteral("]");
}

void Session::LoadWorkerSettings()
{
    m_settings = m_mainWindow->GetSessionSettings(m_sessionName);
    AppSettings &store = m_mainWindow->Settings();
    store.LoadOrvComponentSettings(m_settings, QStringLiteral("Grabber"), m_grabber);
    store.LoadOrvComponentSettings(m_settings, QStringLiteral("Display"), m_display);
}

void Session::SaveWorkerSettings()
{
    if (!m_settings)
        return;
    AppSettings &store = m_mainWindow->Settings();
    if (m_grabber)
        store.SaveOrvComponentSettings(m_settings, QStringLiteral("Grabber"), m_grabber);
    if (m_display)
        store.SaveOrvComponentSettings(m_settings, QStringLiteral("Display"), m_display);
}

OrvComponent *Session::GetGrabber() const
{
    return m_grabber;
}

OrvComponent *Session::GetDisplay() const
{
    return m_display;
}

void Session::ResetVolatileParams()
{
    ZeroParams(m_grabber,
               {"FramesAcquired", "FramesDroppedHW", "FramesDroppedSW", "FramesIncomp", "Timestamp", "FrameID"},
               {"FpsAvg", "FpsInst", "Speed"});
}

// Camera commands

int Session::RunCameraCommand(const char *feature)
{
    return orv::RunBeside([this, feature] {
        OrvCam::FeatureArray *features = m_device->GetCameraParameters();
        return features ? features->ExecuteCommand(feature) : static_cast<int>(ORV_CAM_ERR_FEATURE_NOT_PRESENT);
    });
}

int Session::SetTLParamsLocked(std::int64_t value)
{
    return orv::RunBeside([this, value] {
        OrvCam::FeatureArray *features = m_device->GetCameraParameters();
        return features ? features->SetIntegerValue("TLParamsLocked", value)
                        : static_cast<int>(ORV_CAM_ERR_FEATURE_NOT_PRESENT);
    });
}

void Session::StartStreaming()
{
    if (ICamEval *plugIn = OrvPlayer::s_pCamEval) {
        std::puts("GetCamEval()->PrepareToAcquition()");
        plugIn->PrepareToAcquition();
    }
    if (orv::RunBeside([this] { return m_grabber->CreateBuffers(); }) != 0)
        throw std::runtime_error("CreateBuffers failed");
    if (!Accepted(SetTLParamsLocked(1)))
        throw std::runtime_error("TLParamsLocked set failed");
    if (!orv::RunBeside([this] { return m_grabber->StartGrabbing(); }))
        throw std::runtime_error("StartGrabbing failed");
    if (!Accepted(RunCameraCommand("AcquisitionStart")))
        throw std::runtime_error("AcquisitionStart execution failed");
    if (!m_display->StartDisplaying())
        throw std::runtime_error("StartDisplaying failed");
    m_watch->ForgetDismissals();
    m_watch->Start();
}

void Session::RollBackStart()
{
    RunCameraCommand("AcquisitionAbort");
    orv::RunBeside([this] { return m_grabber->StopGrabbing(); });
    SetTLParamsLocked(0);
    orv::RunBeside([this] { return m_grabber->ReleaseBuffers(); });
}

void Session::StopStreaming()
{
    m_watch->Stop();
    if (RunCameraCommand("AcquisitionStop") != ORV_CAM_OK)
        RunCameraCommand("AcquisitionAbort");
    m_display->StopDisplaying();
    orv::RunBeside([this] { return m_grabber->StopGrabbing(); });
    SetTLParamsLocked(0);
    orv::RunBeside([this] { return m_grabber->ReleaseBuffers(); });
}

void Session::Cure(orv::Cure cure, const orv::Diagnosis &diagnosis)
{
    if (m_closing || IsBusy() || (m_state != Acquisition && m_state != Capturing))
        return;
    const Busy busy(*this);
    m_watch->Stop(); // it looks at the same settings
    const int status = orv::RunBeside([&] { return orv::ApplyCure(*m_device, cure, diagnosis); });
    const bool wantsRestart = status != ORV_CAM_OK || orv::WantsRestart(cure);
    if (wantsRestart && m_state == Acquisition) {
        m_pendingCure = PendingCure{cure, diagnosis};
        emit signalStopAcquisition();
        return;
    }
    m_watch->Start();
    if (wantsRestart)
        m_diagnosisBar->ShowProblem(tr("That cannot be done while recording. Stop the recording first."));
}

void Session::CureWhileIdle()
{
    if (!m_pendingCure)
        return;
    const PendingCure pending = *std::exchange(m_pendingCure, std::nullopt);
    const int status = orv::RunBeside([&] { return orv::ApplyCure(*m_device, pending.cure, pending.diagnosis); });
    if (status == ORV_CAM_OK) {
        emit signalStartAcquisition();
        return;
    }
    LogFormatted(LogLevel::Error, LogCode(status), "Session::CureWhileIdle(): the camera refused");
    m_diagnosisBar->ShowProblem(tr("The camera did not take the setting: %1").arg(OrvCam_StatusText(status)));
}

void Session::SetState(SessionState state)
{
    m_grabber->SetState(state);
    m_state = state;
    emit signalUpdateGui();
}

// Handlers of the state machine

void Session::enterIdle()
{
    if (m_closing)
        return;
    const Busy busy(*this);
    try {
        if (m_state == Acquisition || m_state == Capturing)
            StopStreaming();
        if (ICamEval *plugIn = OrvPlayer::s_pCamEval) {
            std::puts("GetCamEval()->OnStop()");
            plugIn->OnStop();
        }
    } catch (...) { // stopping never fails towards the user
        LogFormatted(LogLevel::Error, 0, "Session::enterIdle(): a step of stopping failed");
    }
    SetState(Idle);
    CureWhileIdle();
}

void Session::exitIdle() {}

void Session::enterAcquisition()
{
    if (m_closing)
        return;
    const Busy busy(*this);
    if (m_state != Idle) { // back from Capturing: the camera streams on
        SetState(Acquisition);
        return;
    }
    try {
        StartStreaming();
        SetState(Acquisition);
        return;
    } catch (const std::exception &error) {
        LogFormatted(LogLevel::Error, 0, "Session::enterAcquisition(): %s", error.what());
    } catch (...) { // of the plug-in
        LogFormatted(LogLevel::Error, 0, "Session::enterAcquisition(): an exception of an unknown kind");
    }
    RollBackStart();
    // The state stays Idle while the machine is in Acquisition; whoever handles the error stops acquisition.
    emit signalSessionStateError(this, 1);
}

void Session::exitAcquisition() {}

void Session::enterCapturing()
{
    if (m_closing)
        return;
    const Busy busy(*this);
    try {
        if (ICamEval *plugIn = OrvPlayer::s_pCamEval)
            plugIn->CaptureStart();
        m_grabber->SetState(Capturing);
    } catch (...) {
        emit signalStopCapturing(); // the machine is in Capturing, where stopping acquisition would be ignored
        emit signalSessionStateError(this, 3);
        return;
    }
    SetState(Capturing);
}

void Session::exitCapturing() {}

void Session::enterDisconnected()
{
    if (m_closing)
        return;
    const Busy busy(*this);
    enterIdle();
    SetState(Disconnected);
}

void Session::exitDisconnected() {}

void Session::stopCapturing()
{
    emit signalStopCapturing();
}

void Session::stopCapturingAndAcquisition()
{
    emit signalStopCapturing();
    emit signalStopAcquisition();
}

bool Session::SnapNextFrame()
{
    emit signalStartCapturing();
    return true;
}

// Configuration files

int Session::LoadConfiguration(const QString &path)
{
    const Busy busy(*this);
    const orv::WaitCursor cursor;
    const QByteArray utf8 = path.toUtf8();
    return orv::RunBeside([this, &utf8] { return m_device->LoadFeatures(utf8.constData()); });
}

void Session::SaveConfiguration(const QString &path)
{
    int status = ORV_CAM_OK;
    {
        const Busy busy(*this);
        const orv::WaitCursor cursor;
        const QByteArray utf8 = path.toUtf8();
        status = orv::RunBeside([this, &utf8] { return m_device->SaveFeatures(utf8.constData()); });
    }
    if (status == ORV_CAM_OK)
        return;
    QString text = tr("Can not save configuration file: ") + path;
    if (status == ORV_CAM_ERR_GENICAM)
        text += QStringLiteral("\nGen<i>Cam error");
    else if (status == ORV_CAM_ERR_UNKNOWN)
        text += QStringLiteral("\nUnknown error");
    // Plain text: "Gen<i>Cam" is a name, not markup.
    QMessageBox box(QMessageBox::Critical, tr("Error"), text, QMessageBox::Ok, m_mainWindow);
    box.setTextFormat(Qt::PlainText);
    box.exec(); // last: the camera may go meanwhile, and this session with it
}

void Session::CameraDisconnectCallback(const void *, unsigned long, void *context)
{
    auto *session = static_cast<Session *>(context);
    // Through the session's own event queue: so it is told only once somebody listens, and never for a session that is
    // gone.
    QMetaObject::invokeMethod(
        session, [session] { emit session->signalCameraDisconnected(session, 1); }, Qt::QueuedConnection);
}

// Traffic log

bool Session::ReadFlag(const char *name)
{
    bool value = false;
    m_params.GetParamBool(const_cast<char *>(name), &value);
    return value;
}

void Session::ParamChanged(_OrvStParam param)
{
    bool ours = std::strcmp(param.name, "EnableLog") == 0;
    for (const LogSwitch &logSwitch : kLogSwitches)
        ours = ours || std::strcmp(param.name, logSwitch.name) == 0;
    if (!ours)
        return;
    // Each as it is now: the one before may have taken a while, with the event loop turning.
    for (const LogSwitch &logSwitch : kLogSwitches)
        EnableLog(logSwitch.channel, ReadFlag("EnableLog") && ReadFlag(logSwitch.name));
}

bool Session::EnableLog(LogEnum channel, bool enable)
{
    LogChannel &log = m_logChannels[channel];
    log.isWanted = enable;
    if (log.isSwitching)
        return true;
    // The camera may take its time for either, while the event loop delivers what wants the opposite: one switches, and
    // looks again.
    const Busy busy(*this);
    log.isSwitching = true;
    bool isRefused = false;
    while (log.isOn != log.isWanted && !isRefused) {
        const bool on = log.isWanted;
        const int status = orv::RunBeside([&] {
            return on ? m_device->RegisterEvent(channel, LogEvent, &log)
                      : m_device->UnregisterEvent(channel, LogEvent, &log);
        });
        isRefused = on && status != ORV_CAM_OK && log.isWanted;
        log.isOn = on && status == ORV_CAM_OK;
    }
    log.isSwitching = false;
    if (!isRefused)
        return true;
    log.isWanted = false;
    for (const LogSwitch &logSwitch : kLogSwitches)
        if (logSwitch.channel == channel)
            m_params.SetParamBool(const_cast<char *>(logSwitch.name), false, true);
    return false;
}

void Session::LogEvent(const void *, unsigned long, void *)
{
    // No decoder turns packets into text yet, and a packet without text is not logged.
}
