#pragma once

#include "app/AppSettings.h"

#include <QMainWindow>

#include <functional>
#include <memory>

class GuiManager;
class ICamEval;
class QLabel;
class Ui_OrvPlayerClass;
namespace OrvCam {
struct DeviceDescription;
class Device;
class System;
} // namespace OrvCam

/// The main window: menus, tool bars, the live view in its middle, the pixel under the mouse in its status bar.
///
/// It owns the settings and the GUI manager, remembers its geometry and dock layout, and loads the camera-evaluation
/// plug-in when it is asked to. GUI thread.
class OrvPlayer : public QMainWindow {
    Q_OBJECT
public:
    /// How a camera is opened: the camera library's OrvCam_CreateDevice unless a test says otherwise. Any thread.
    using DeviceOpener = std::function<OrvCam::Device *(const OrvCam::DeviceDescription &, int access)>;

    /// \param camEval  load the evaluation plug-in.
    /// \param automatic  with camEval: connect the first camera and run the evaluation at once.
    OrvPlayer(QWidget *parent, bool camEval, bool automatic);
    ~OrvPlayer() override;

    bool InitGuiManager();
    bool AddDisplayWidget(QWidget *widget);
    bool RemoveDisplayWidget(QWidget *widget);
    QSettings *GetSessionSettings(const QString &sessionName);
    AppSettings &Settings() { return *m_settings; }
    GuiManager &Manager() { return *m_manager; }

    void readSettings();
    void writeSettings();
    void adjustStatusBar();
    void LoadCamEvalPlugin();
    static void UnloadCamEval();

    OrvCam::Device *OpenDevice(const OrvCam::DeviceDescription &description, int access);
    void SetDeviceOpener(DeviceOpener opener) { m_openDevice = std::move(opener); }

    /// The evaluation plug-in; null when none is loaded.
    static ICamEval *s_pCamEval;

public slots:
    /// Shows an image position and its pixel: c0, c1, c2 of a colour one; c1 alone when c0 or c2 is -1.
    void setCoordinatesAndValue(int x, int y, int c0, int c1, int c2);

protected:
    void closeEvent(QCloseEvent *event) override;

private:
    void ConnectActions();
    void HideUnbuiltActions();
    void SetShortcuts();

    std::unique_ptr<Ui_OrvPlayerClass> m_ui;
    std::unique_ptr<AppSettings> m_settings;
    std::unique_ptr<GuiManager> m_manager;
    DeviceOpener m_openDevice;
    QLabel *m_hint = nullptr; ///< in the middle while there is no live view
    QLabel *m_coordinates = nullptr;
    QLabel *m_value = nullptr;
};
