#include "app/OrvPlayer.h"

#include "app/GuiManager.h"
#include "app/ICamEval.h"
#include "orvcam/OrvCam.h"
#include "resources/Icons.h"
#include "ui_OrvPlayer.h"

#include <QCloseEvent>
#include <QCoreApplication>
#include <QFontMetrics>
#include <QLabel>
#include <QPluginLoader>

#include <algorithm>

ICamEval *OrvPlayer::s_pCamEval = nullptr;

namespace {

constexpr int kStateVersion = 0;
constexpr QSize kFirstSize{1100, 720}; ///< until a size is remembered

QLabel *FixedLabel(QStatusBar *bar, const QString &widest)
{
    auto *label = new QLabel(bar);
    label->setAlignment(Qt::AlignRight | Qt::AlignVCenter);
    const int width = QFontMetrics(label->font()).horizontalAdvance(widest);
    label->setMinimumWidth(width);
    label->setMaximumWidth(width);
    bar->addPermanentWidget(label);
    return label;
}

/// Whether a menu or tool bar has an entry to show.
bool ShowsAnything(const QWidget &bar)
{
    const QList<QAction *> actions = bar.actions();
    return std::any_of(actions.begin(), actions.end(),
                       [](const QAction *action) { return action->isVisible() && !action->isSeparator(); });
}

} // namespace

OrvPlayer::OrvPlayer(QWidget *parent, bool camEval, bool automatic)
    : QMainWindow(parent), ui(std::make_unique<Ui_OrvPlayerClass>()),
      m_settings(std::make_unique<AppSettings>(nullptr)), m_manager(std::make_unique<GuiManager>(this))
{
    m_openDevice = [](const OrvCam::DeviceDescription &description, int access) {
        return OrvCam_CreateDevice(&description, access, 0);
    };
    ui->setupUi(this);
    ApplyIcons(this);
    m_hint = new QLabel(tr("No camera is connected.\nPress Connect (Ctrl+K) to choose one."), ui->centralWidget);
    m_hint->setAlignment(Qt::AlignCenter);
    ui->centralLayout->addWidget(m_hint);
    resize(kFirstSize);
    if (camEval)
        LoadCamEvalPlugin();
    InitGuiManager();
    readSettings();
    if (camEval && automatic)
        m_manager->ConnectAndRunAutoEvaluation();
    adjustStatusBar();
}

OrvPlayer::~OrvPlayer()
{
    m_manager.reset(); // closes the session, which still needs the settings and this window
    m_settings.reset();
}

bool OrvPlayer::InitGuiManager()
{
    ConnectActions();
    HideUnbuiltActions();
    SetShortcuts();
    m_manager->updateGui();
    return true;
}

void OrvPlayer::ConnectActions()
{
    GuiManager *manager = m_manager.get();
    const std::pair<QAction *, void (GuiManager::*)()> commands[] = {
        {ui->actionConnect, &GuiManager::cameraConnect},
        {ui->actionDisconnect, &GuiManager::cameraDisconnect},
        {ui->actionPlay, &GuiManager::startAcquisition},
        {ui->actionStop, &GuiManager::stopAcquisitionAndCapture},
        {ui->actionRecord, &GuiManager::startStopCapture},
        {ui->actionSnap, &GuiManager::snapNextImage},
        {ui->actionLoadConfiguration, &GuiManager::loadConfiguration},
        {ui->actionSaveConfiguration, &GuiManager::saveConfiguration},
        {ui->actionSaveConfigurationAs, &GuiManager::saveConfigurationAs},
        {ui->actionZoomIn, &GuiManager::zoomIn},
        {ui->actionZoomOut, &GuiManager::zoomOut},
        {ui->actionFitToWindow, &GuiManager::zoomFitToWnd},
        {ui->actionActualSize, &GuiManager::zoom100},
        {ui->actionSpreadToWindow, &GuiManager::zoomSpreadToWnd},
        {ui->actionCenterImage, &GuiManager::centerImage},
        {ui->actionCapture, &GuiManager::viewPlayerPanel},
        {ui->actionGenICamTree, &GuiManager::viewPlayerPanel},
        {ui->actionLog, &GuiManager::viewPlayerPanel},
        {ui->actionStatistics, &GuiManager::viewPlayerPanel},
        {ui->actionCaptureOptions, &GuiManager::captureOptionsDlg},
    };
    for (const auto &[action, slot] : commands)
        connect(action, &QAction::triggered, manager, slot);
    connect(ui->actionExit, &QAction::triggered, this, &QWidget::close);
}

void OrvPlayer::HideUnbuiltActions()
{
    // An entry that would do nothing is not shown. Panels and dialogs take their action off this list when they exist.
    QAction *const unbuilt[] = {ui->actionHistogramPanel,
                                ui->actionInspectionView,
                                ui->actionSaveGenICamXML,
                                ui->actionCameraInformation,
                                ui->actionTestBandwidth,
                                ui->actionGenICamTree,
                                ui->actionCamConfig_BasicView,
                                ui->actionCamConfig_ExpertView,
                                ui->actionLog,
                                ui->actionCapture,
                                ui->actionStatistics,
                                ui->actionColorizeHistogram,
                                ui->actionStretchHistogram,
                                ui->actionImageProcessing,
                                ui->actionDefaultPanelsLayout,
                                ui->actionBrowseRecordingFolder,
                                ui->actionOpenLastRecordedFile,
                                ui->actionBuffer,
                                ui->actionTextOverlay,
                                ui->actionDisplayOptions,
                                ui->actionApplicationOptions,
                                ui->actionFullScreen,
                                ui->actionHelp,
                                ui->actionAbout,
                                ui->actionSettings,
                                ui->menuLoadRecent->menuAction()};
    for (QAction *action : unbuilt)
        action->setVisible(false);
    for (QMenu *menu : menuBar()->findChildren<QMenu *>())
        if (!ShowsAnything(*menu))
            menu->menuAction()->setVisible(false);
    for (QToolBar *bar : findChildren<QToolBar *>())
        if (!ShowsAnything(*bar))
            bar->setVisible(false);
}

void OrvPlayer::SetShortcuts()
{
    const std::pair<QAction *, QList<QKeySequence>> shortcuts[] = {
        {ui->actionConnect, {QKeySequence(Qt::CTRL | Qt::Key_K)}},
        {ui->actionDisconnect, {QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_K)}},
        {ui->actionPlay, {QKeySequence(Qt::Key_F5)}},
        {ui->actionStop, {QKeySequence(Qt::SHIFT | Qt::Key_F5)}},
        {ui->actionRecord, {QKeySequence(Qt::CTRL | Qt::Key_R)}},
        {ui->actionSnap, {QKeySequence(Qt::Key_F8)}},
        {ui->actionLoadConfiguration, {QKeySequence::Open}},
        {ui->actionSaveConfiguration, {QKeySequence::Save}},
        {ui->actionExit, {QKeySequence(Qt::CTRL | Qt::Key_Q)}},
        {ui->actionZoomIn, {QKeySequence(Qt::CTRL | Qt::Key_Plus), QKeySequence(Qt::CTRL | Qt::Key_Equal)}},
        {ui->actionZoomOut, {QKeySequence(Qt::CTRL | Qt::Key_Minus)}},
        {ui->actionActualSize, {QKeySequence(Qt::CTRL | Qt::Key_1)}},
        {ui->actionFitToWindow, {QKeySequence(Qt::CTRL | Qt::Key_0)}},
        {ui->actionSpreadToWindow, {QKeySequence(Qt::CTRL | Qt::Key_9)}},
        {ui->actionCenterImage, {QKeySequence(Qt::CTRL | Qt::Key_E)}},
    };
    for (const auto &[action, keys] : shortcuts)
        action->setShortcuts(keys);
}

bool OrvPlayer::AddDisplayWidget(QWidget *widget)
{
    m_hint->hide();
    widget->setParent(ui->centralWidget);
    ui->centralLayout->addWidget(widget, 0, Qt::Alignment());
    widget->show();
    return true;
}

bool OrvPlayer::RemoveDisplayWidget(QWidget *widget)
{
    ui->centralLayout->removeWidget(widget);
    widget->hide();
    m_hint->show();
    return true;
}

QSettings *OrvPlayer::GetSessionSettings(const QString &sessionName)
{
    return m_settings->GetSessionSettings(sessionName);
}

OrvCam::Device *OrvPlayer::OpenDevice(const OrvCam::DeviceDescription &description, int access)
{
    return m_openDevice(description, access);
}

void OrvPlayer::readSettings()
{
    QSettings &settings = m_settings->Application();
    restoreGeometry(settings.value(QStringLiteral("wndGeometry")).toByteArray());
    restoreState(settings.value(QStringLiteral("wndState")).toByteArray(), kStateVersion);
}

void OrvPlayer::writeSettings()
{
    QSettings &settings = m_settings->Application();
    settings.setValue(QStringLiteral("wndGeometry"), saveGeometry());
    settings.setValue(QStringLiteral("wndState"), saveState(kStateVersion));
}

void OrvPlayer::closeEvent(QCloseEvent *event)
{
    writeSettings();
    QMainWindow::closeEvent(event);
}

void OrvPlayer::adjustStatusBar()
{
    m_coordinates = FixedLabel(statusBar(), QStringLiteral("0000x0000"));
    m_value = FixedLabel(statusBar(), QStringLiteral("00000x00000x00000"));
}

void OrvPlayer::setCoordinatesAndValue(int x, int y, int c0, int c1, int c2)
{
    if (!m_coordinates || !m_value) // an automatic run may show pictures before the status bar is ready
        return;
    m_coordinates->setText(QStringLiteral("%1x%2").arg(x).arg(y));
    if (c0 != -1 && c2 != -1)
        m_value->setText(QStringLiteral("%1x%2x%3").arg(c0).arg(c1).arg(c2));
    else
        m_value->setText(QString::number(c1));
}

void OrvPlayer::LoadCamEvalPlugin()
{
    QPluginLoader loader(QCoreApplication::applicationDirPath() + QStringLiteral("/CamEvalA.dll"));
    if (QObject *instance = loader.instance()) {
        s_pCamEval = qobject_cast<ICamEval *>(instance);
        if (s_pCamEval)
            setWindowTitle(QStringLiteral("CamEval Auto"));
    }
}

void OrvPlayer::UnloadCamEval()
{
    s_pCamEval = nullptr; // the library stays loaded
}
