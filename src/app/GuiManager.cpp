#include "app/GuiManager.h"

#include "acquisition/DisplayView.h"
#include "app/ICamEval.h"
#include "app/OrvPlayer.h"
#include "core/DiagnosticLog.h"
#include "core/RunBeside.h"
#include "core/Session.h"
#include "orvcam/OrvCam.h"
#include "orvgui/OrvCameraSelectorDialog.h"
#include "panels/PlayerPanel.h"

#include <QAction>
#include <QApplication>
#include <QMenu>
#include <QMenuBar>
#include <QMessageBox>
#include <QPointer>
#include <QTextDocument>
#include <QTimer>

#include <memory>

namespace {

constexpr char kProducerFile[] = "Nuvark.cti";
constexpr unsigned int kAllInterfaces = 255;
constexpr int kSessionBusyRetryMs = 20;

enum DisconnectReason : unsigned char { ByUser = 0, CameraLost = 1, InvalidState = 2 };

std::array<GuiManager::PanelFactory, 6> &PanelFactories()
{
    static std::array<GuiManager::PanelFactory, 6> factories;
    return factories;
}

} // namespace

QMap<QString, GuiManager::GuiState> GuiManager::s_stateMap;

GuiManager::GuiManager(OrvPlayer *mainWindow) : QObject(mainWindow), m_mainWindow(mainWindow) {}

GuiManager::~GuiManager()
{
    if (!m_session)
        return;
    ClosePanels();
    DestroySession();
}

void GuiManager::RegisterPanel(std::size_t slot, PanelFactory factory)
{
    PanelFactories().at(slot) = std::move(factory);
}

void GuiManager::DisplayError(const QString &message, unsigned int code, const QString &details)
{
    QString text = message;
    if (code != 0)
        text += QStringLiteral("\nError code: 0x{%1}").arg(code, 0, 16);
    QMessageBox box(QMessageBox::Critical, QApplication::applicationName(), text, QMessageBox::Ok, m_mainWindow);
    box.setTextFormat(Qt::PlainText); // camera names and paths are not markup
    if (!details.isEmpty())           // no text format reaches the label of these
        box.setInformativeText(Qt::convertFromPlainText(details, Qt::WhiteSpaceNormal));
    box.exec();
}

// Connecting

OrvCam::System *GuiManager::System()
{
    if (!m_system)
        m_system = orv::RunBeside([] { return OrvCam_GetSystem(); });
    if (!m_system)
        DisplayError(QStringLiteral("Cannot create OrvSystem, check if CTI library(OrvCTI.cti) exists"), 0);
    return m_system;
}

OrvCam::Device *GuiManager::OpenDevice(const OrvCam::DeviceDescription &description, QString *whyNot)
{
    return orv::RunBeside([this, &description, whyNot]() -> OrvCam::Device * {
        OrvCam::Device *device = m_mainWindow->OpenDevice(description, OrvCam::ORV_ACCESS_CONTROL);
        std::string text; // of this thread: asked where the call was made
        if (m_system->LastError(&text) != ORV_CAM_OK)
            *whyNot = QString::fromStdString(text);
        return device;
    });
}

void GuiManager::ConnectTo(const OrvCam::DeviceDescription &description)
{
    QString whyNot;
    OrvCam::Device *device = OpenDevice(description, &whyNot);
    if (CreateSession(device, whyNot))
        CreatePanels();
    else if (device)
        orv::RunBeside([device] { device->Release(); });
    updateGui();
}

void GuiManager::cameraConnect()
{
    if (m_connecting)
        return;
    m_connecting = true;
    const std::unique_ptr<bool, void (*)(bool *)> done(&m_connecting, [](bool *flag) { *flag = false; });
    OrvCam::System *system = System();
    if (!system)
        return;
    const int loaded = orv::RunBeside([system] { return system->LoadProducer(kProducerFile); });
    if (loaded != ORV_CAM_OK)
        LogFormatted(LogLevel::Error, LogCode(loaded), "GuiManager::cameraConnect(): LoadProducer(%s) failed",
                     kProducerFile);

    OrvGui::OrvCameraSelectorDialog dialog(system, nullptr);
    if (dialog.exec() != QDialog::Accepted)
        return;
    const OrvCam::DeviceDescription *selected = dialog.selectedCamera();
    if (!selected) {
        DisplayError(tr("Camera was not selected"), 0);
        return;
    }
    ConnectTo(*selected);
}

void GuiManager::cameraDisconnect()
{
    if (m_session)
        emit m_session->signalCameraDisconnected(m_session, ByUser);
}

bool GuiManager::CreateSession(OrvCam::Device *device, const QString &details)
{
    if (!device) {
        DisplayError(tr("Camera cannot be instantinated"), 0, details);
        return false;
    }
    if (!device->GetCameraParameters()) {
        DisplayError(tr("Cannot get camera parameters"), 0, details);
        return false;
    }
    if (MustWait()) {
        // Replacing a session under its own waiting handler would pull it away from under it.
        LogFormatted(LogLevel::Error, 0, "GuiManager::CreateSession(): refused while a camera command is under way");
        return false;
    }
    if (m_session)
        emit m_session->signalCameraDisconnected(m_session, ByUser);
    try {
        auto *session = new Session(this, device, m_mainWindow);
        DestroySession();
        m_session = session;
        // Saving writes to the current file without a question: never one camera's settings over another's.
        if (m_cameraId != device->GetDescription().id)
            m_configurationFile.clear();
        m_cameraId = device->GetDescription().id;
    } catch (const OrvPlayerException &error) {
        DisplayError(QString::fromUtf8(error.what()), error.Code());
        return false;
    } catch (const std::exception &error) {
        DisplayError(QString::fromUtf8(error.what()), 0);
        return false;
    }
    connect(m_session, &Session::signalUpdateGui, this, &GuiManager::updateGui);
    connect(m_session, &Session::signalSessionStateError, this, &GuiManager::sessionStateError);
    connect(m_session, &Session::signalCameraDisconnected, this, &GuiManager::sessionCameraDisconnected);
    return true;
}

bool GuiManager::CreatePanels()
{
    for (std::size_t slot = 0; slot < kPanelSlots; ++slot) {
        PlayerPanel *&panel = m_panels[slot];
        const PanelFactory &factory = PanelFactories()[slot];
        if (!panel && factory)
            panel = factory(m_mainWindow, this);
        if (!panel)
            continue;
        panel->SetCurrentSession(m_session);
        panel->LoadStateFromGlobalSettings(&m_mainWindow->Settings().Application());
        panel->LoadStateFromSessionSettings(m_session->Settings(), m_session->Name());
    }
    AttachPlugIn();
    m_mainWindow->restoreState(m_mainWindow->Settings().Application().value(QStringLiteral("wndState")).toByteArray(),
                               0);
    return true;
}

void GuiManager::AttachPlugIn()
{
    ICamEval *plugIn = OrvPlayer::s_pCamEval;
    if (!plugIn)
        return;
    // It may show dialogs, and the camera may go while one stands open: the plug-in knows by SessionEnd.
    const QPointer<Session> session = m_session;
    const auto isOver = [&] { return !session || session != m_session; };
    if (!plugIn->Attach(m_mainWindow, m_session->Device())) {
        OrvPlayer::UnloadCamEval();
        return;
    }
    if (isOver())
        return;
    plugIn->HandOverComponents(m_session, m_session->View(), m_session->GetImgProcessor());
    if (isOver())
        return;
    plugIn->AddWidgets(m_mainWindow, 0, 0);
}

void GuiManager::ClosePanels()
{
    QSettings &settings = m_mainWindow->Settings().Application();
    settings.setValue(QStringLiteral("wndState"), m_mainWindow->saveState(0));
    for (PlayerPanel *panel : m_panels) {
        if (!panel)
            continue;
        panel->SaveStateToGlobalSettings(&settings);
        if (m_session)
            panel->SaveStateToSessionSettings(m_session->Settings(), m_session->Name());
        panel->SetCurrentSession(nullptr);
    }
    if (OrvPlayer::s_pCamEval)
        OrvPlayer::s_pCamEval->SessionEnd();
}

void GuiManager::DestroySession()
{
    // Cleared first: whatever the event loop delivers while the camera is being closed finds no session.
    Session *session = m_session;
    m_session = nullptr;
    delete session;
}

bool GuiManager::MustWait() const
{
    return orv::BesideCount() > 0 || (m_session && m_session->IsBusy());
}

// What the session reports

void GuiManager::sessionCameraDisconnected(void *session, unsigned char reason)
{
    if (session && session != m_session)
        return;
    if (m_session && MustWait()) {
        // A handler of this very session may be waiting for the camera further up the stack. The session as context:
        // what it asked for is dropped with it.
        QTimer::singleShot(kSessionBusyRetryMs, m_session,
                           [this, session, reason] { sessionCameraDisconnected(session, reason); });
        return;
    }
    if (reason == CameraLost)
        DisplayError(QStringLiteral("Connection to the Camera was lost"), 0);
    else if (reason == InvalidState)
        DisplayError(QStringLiteral("Connection to the Camera was terminated, because of invalid device state"), 0);
    if (session && session != m_session) // another report closed it while the message stood there
        return;
    ClosePanels();
    if (!session || session != m_session)
        return;
    emit m_session->signalCameraStateDisconnected();
    DestroySession();
    updateGui();
}

void GuiManager::sessionStateError(void *session, unsigned char error)
{
    if (!session || session != m_session)
        return;
    // Later: the message box must not keep a state-machine handler of the session on the stack.
    QTimer::singleShot(0, m_session, [this, session, error] { HandleStateError(session, error); });
}

void GuiManager::HandleStateError(void *session, unsigned char error)
{
    QString message = tr("Unknown Error");
    switch (error) {
    case 1:
        message = tr("Can not start the Acquisition");
        emit m_session->signalStopAcquisition();
        break;
    case 2:
        message = tr("Can not stop the Acquisition");
        emit m_session->signalCameraDisconnected(session, InvalidState);
        break;
    case 3: // a capture that cannot start is told like one that cannot stop
    case 4:
        message = tr("Can not stop the Capture");
        emit m_session->signalStopAcquisition();
        break;
    default:
        break;
    }
    DisplayError(message, 0);
}

// Commands

void GuiManager::startAcquisition()
{
    if (m_session)
        emit m_session->signalStartAcquisition();
}

void GuiManager::stopAcquisitionAndCapture()
{
    if (!m_session)
        return;
    if (m_session->State() == Capturing)
        emit m_session->signalStopCapturing();
    else
        emit m_session->signalStopAcquisition();
}

void GuiManager::startStopCapture()
{
    updateGui(); // the click has turned the check mark; only the state does
    QMessageBox::information(m_mainWindow, QApplication::applicationName(), tr("Recording is not built in yet."));
}

void GuiManager::snapNextImage()
{
    QMessageBox::information(m_mainWindow, QApplication::applicationName(), tr("Recording is not built in yet."));
}

void GuiManager::captureOptionsDlg()
{
    DisplayError(tr("Capture Options Dlg"), 0);
}

void GuiManager::viewPlayerPanel()
{
    const QObject *action = sender();
    PlayerPanel *panel = action ? PlayerPanel::GetPanel(action->objectName()) : nullptr;
    if (panel)
        panel->setVisible(panel->isHidden());
}

void GuiManager::zoomIn()
{
    if (m_session)
        m_session->View()->ZoomIn();
}

void GuiManager::zoomOut()
{
    if (m_session)
        m_session->View()->ZoomOut();
}

void GuiManager::zoom100()
{
    if (m_session)
        m_session->View()->Zoom100();
}

void GuiManager::zoomFitToWnd()
{
    if (m_session)
        m_session->View()->ZoomFitToWnd();
}

void GuiManager::zoomSpreadToWnd()
{
    if (m_session)
        m_session->View()->ZoomSpreadToWnd();
}

void GuiManager::centerImage()
{
    if (m_session)
        m_session->View()->CenterImage();
}

// The window's state

void GuiManager::EnableActions(int state)
{
    if (s_stateMap.isEmpty()) {
        for (const GuiState &rule : s_stateMapInit)
            s_stateMap.insert(QString::fromLatin1(rule.actionName), rule);
    }
    for (QMenu *menu : m_mainWindow->menuBar()->findChildren<QMenu *>()) {
        for (QAction *action : menu->actions()) {
            const auto rule = s_stateMap.constFind(action->objectName());
            if (rule == s_stateMap.constEnd())
                continue;
            // A session that has entered no state yet disables everything that has a rule.
            action->setEnabled(state >= 0 && rule->enabled[state] != 0);
            if (action->objectName() == QLatin1String("actionRecord"))
                action->setChecked(state == Capturing);
        }
    }
}

void GuiManager::UpdateTitle(int state)
{
    QString title = OrvPlayer::s_pCamEval ? QStringLiteral("CamEval Auto - ") : QStringLiteral("OrvPlayer - ");
    if (state != Disconnected && m_session) {
        title += m_session->Title();
        if (!m_configurationFile.isEmpty())
            title += QStringLiteral(" { ") + m_configurationFile + QStringLiteral(" }");
    } else {
        title += QStringLiteral("Camera is not connected");
    }
    m_mainWindow->setWindowTitle(title);
}

void GuiManager::updateGui()
{
    const int state = m_session ? m_session->State() : Disconnected;
    EnableActions(state);
    for (PlayerPanel *panel : m_panels)
        if (panel)
            panel->UpdateAll();
    UpdateTitle(state);
}

bool GuiManager::ConnectAndRunAutoEvaluation()
{
    OrvCam::System *system = System();
    if (!system)
        return false;
    OrvCam::DeviceDescription found;
    const bool any = orv::RunBeside([system, &found] {
        system->LoadProducer(kProducerFile);
        OrvCam::InterfaceList *list = system->GetInterfaceList(kAllInterfaces);
        bool seen = false;
        for (OrvCam::DeviceList *devices = list ? list->First() : nullptr; devices && !seen; devices = list->Next()) {
            if (const OrvCam::DeviceDescription *device = devices->First()) {
                found = *device;
                seen = true;
            }
        }
        if (list)
            list->Release();
        return seen;
    });
    QString whyNot;
    OrvCam::Device *device = any ? OpenDevice(found, &whyNot) : nullptr;
    if (!CreateSession(device, whyNot)) {
        if (device)
            orv::RunBeside([device] { device->Release(); });
        return false;
    }
    CreatePanels();
    updateGui();
    return m_session && OrvPlayer::s_pCamEval && OrvPlayer::s_pCamEval->StartAutoEvaluation();
}
