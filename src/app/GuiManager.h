#pragma once

#include <QMap>
#include <QObject>
#include <QString>

#include <array>
#include <functional>
#include <string>
#include <vector>

class OrvPlayer;
class PlayerPanel;
class Session;
namespace OrvCam {
struct DeviceDescription;
class Device;
class System;
} // namespace OrvCam

/// Ties the main window, the dock panels and the one session together: connects and disconnects the camera, turns menu
/// commands into session signals, shows errors, and keeps the enabled state of every action and the window title in
/// line with the session.
///
/// Life: from the main window's construction to its destruction. At most one session; connecting again replaces it.
/// Panels are created on the first connect and kept. GUI thread; camera calls run beside it.
class GuiManager : public QObject {
    Q_OBJECT
public:
    /// The enabling rule of one action: by session state, 0 to 3.
    struct GuiState {
        char actionName[255];
        unsigned char enabled[4];
    };

    explicit GuiManager(OrvPlayer *mainWindow);
    /// Closes the panels and the session.
    ~GuiManager() override;

    /// Takes over the device when it returns true. Shows what went wrong.
    /// \param details  said under the message when the device is null: why it could not be opened.
    bool CreateSession(OrvCam::Device *device, const QString &details = QString());
    bool CreatePanels();
    void ClosePanels();
    /// Shows a critical message box; a code other than 0 is appended in hexadecimal.
    void DisplayError(const QString &message, unsigned int code, const QString &details = QString());
    /// Opens the first camera that is found and starts the evaluation plug-in's automatic run.
    bool ConnectAndRunAutoEvaluation();

    Session *CurrentSession() const { return m_session; }
    /// The system to use in place of the process's own; for tests. Before the first connect.
    void SetSystem(OrvCam::System *system) { m_system = system; }

    /// Makes a panel on the main window. Registered by the panels' own code before the first connect.
    using PanelFactory = std::function<PlayerPanel *(OrvPlayer *, GuiManager *)>;
    static void RegisterPanel(std::size_t slot, PanelFactory factory);

public slots:
    void cameraConnect();
    void cameraDisconnect();
    void startAcquisition();
    void stopAcquisitionAndCapture();
    void startStopCapture();
    void snapNextImage();
    void loadConfiguration();
    void saveConfiguration();
    void saveConfigurationAs();
    void captureOptionsDlg();
    void viewPlayerPanel();
    void zoomIn();
    void zoomOut();
    void zoom100();
    void zoomFitToWnd();
    void zoomSpreadToWnd();
    void centerImage();
    void updateGui();
    void sessionStateError(void *session, unsigned char error);
    void sessionCameraDisconnected(void *session, unsigned char reason);

private:
    static constexpr std::size_t kPanelSlots = 6;
    static constexpr std::size_t kRuleCount = 42;
    static const std::array<GuiState, kRuleCount> s_stateMapInit;
    static QMap<QString, GuiState> s_stateMap;

    /// The camera system, made on first use; null with a message shown when there is none.
    OrvCam::System *System();
    OrvCam::Device *OpenDevice(const OrvCam::DeviceDescription &description, QString *whyNot);
    void ConnectTo(const OrvCam::DeviceDescription &description);
    void AttachPlugIn();
    void LoadConfigurationFile(const QString &path);
    /// Opens the camera that the file describes.
    void OpenConfigurationFile(const QString &path);
    /// Asks for the current configuration file. False when there is none to save to, or no longer a camera to save.
    bool AskSaveFile(const QString &caption);
    void DestroySession();
    /// A function of the session, or a wait for a camera, is on the stack: the session must not go now.
    bool MustWait() const;
    void HandleStateError(void *session, unsigned char error);
    void EnableActions(int state);
    void UpdateTitle(int state);

    OrvPlayer *m_mainWindow;
    Session *m_session = nullptr;
    OrvCam::System *m_system = nullptr;
    std::array<PlayerPanel *, kPanelSlots> m_panels{};
    QString m_configurationFile; ///< what was last loaded or saved; forgotten when another camera comes
    std::string m_cameraId;      ///< of the last session
    /// A connect is under way: its waits let queued calls through, which must not start a second one.
    bool m_connecting = false;
};
