#include "app/OrvPlayer.h"

#include "app/GuiManager.h"
#include "app/ICamEval.h"
#include "orvcam/OrvCam.h"
#include "resources/Icons.h"
#include "ui_OrvPlayer.h"

#include <QCloseEvent>
#include <QCoreApplication>
#include <QFontMetrics>
#include <QGuiApplication>
#include <QLabel>
#include <QPluginLoader>
#include <QScreen>

#include <algorithm>

ICamEval *OrvPlayer::s_pCamEval = nullptr;

namespace {

constexpr int kStateVersion = 0;
constexpr QSize kFirstSize{1100, 720}; ///< until a size is remembered, where the screen has room
/// Of the screen, beside frame and title, which are known only once the window is shown.
constexpr double kMostOfScreen = 0.9;

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

/// A separator stays between two entries that are shown; unlike a menu, a tool bar draws the others too.
void HideIdleSeparators(const QToolBar &bar)
{
    QAction *separator = nullptr; // behind an entry, and perhaps before one
    bool isAfterEntry = false;
    for (QAction *action : bar.actions()) {
        if (action->isSeparator()) {
            action->setVisible(false);
            separator = isAfterEntry ? action : separator;
            isAfterEntry = false;
        } else if (action->isVisible()) {
            if (separator != nullptr)
                separator->setVisible(true);
            separator = nullptr;
            isAfterEntry = true;
        }
    }
}

} // namespace

OrvPlayer::OrvPlayer(QWidget *parent, bool camEval, bool automatic)
    : QMainWindow(parent), m_ui(std::make_unique<Ui_OrvPlayerClass>()),
      m_settings(std::make_unique<AppSettings>(nullptr)), m_manager(std::make_unique<GuiManager>(this))
{
    m_openDevice = [](const OrvCam::DeviceDescription &description, int access) {
        return OrvCam_CreateDevice(&description, access, 0);
    };
    m_ui->setupUi(this);
    ApplyIcons(this);
    m_hint = new QLabel(tr("No camera is connected.\nPress Connect (Ctrl+K) to choose one."), m_ui->centralWidget);
    m_hint->setAlignment(Qt::AlignCenter);
    m_ui->centralLayout->addWidget(m_hint);
    resize(kFirstSize.boundedTo(QGuiApplication::primaryScreen()->availableSize() * kMostOfScreen));
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
        {m_ui->actionConnect, &GuiManager::cameraConnect},
        {m_ui->actionDisconnect, &GuiManager::cameraDisconnect},
        {m_ui->actionPlay, &GuiManager::startAcquisition},
        {m_ui->actionStop, &GuiManager::stopAcquisitionAndCapture},
        {m_ui->actionRecord, &GuiManager::startStopCapture},
        {m_ui->actionSnap, &GuiManager::snapNextImage},
        {m_ui->actionLoadConfiguration, &GuiManager::loadConfiguration},
        {m_ui->actionSaveConfiguration, &GuiManager::saveConfiguration},
        {m_ui->actionSaveConfigurationAs, &GuiManager::saveConfigurationAs},
        {m_ui->actionZoomIn, &GuiManager::zoomIn},
        {m_ui->actionZoomOut, &GuiManager::zoomOut},
        {m_ui->actionFitToWindow, &GuiManager::zoomFitToWnd},
        {m_ui->actionActualSize, &GuiManager::zoom100},
        {m_ui->actionSpreadToWindow, &GuiManager::zoomSpreadToWnd},
        {m_ui->actionCenterImage, &GuiManager::centerImage},
        {m_ui->actionCapture, &GuiManager::viewPlayerPanel},
        {m_ui->actionGenICamTree, &GuiManager::viewPlayerPanel},
        {m_ui->actionLog, &GuiManager::viewPlayerPanel},
        {m_ui->actionStatistics, &GuiManager::viewPlayerPanel},
        {m_ui->actionCaptureOptions, &GuiManager::captureOptionsDlg},
    };
    for (const auto &[action, slot] : commands)
        connect(action, &QAction::triggered, manager, slot);
    connect(m_ui->actionExit, &QAction::triggered, this, &QWidget::close);
}

void OrvPlayer::HideUnbuiltActions()
{
    // An entry that would do nothing is not shown. Panels and dialogs take their action off this list when they exist.
    QAction *const unbuilt[] = {m_ui->actionHistogramPanel,
                                m_ui->actionInspectionView,
                                m_ui->actionSaveGenICamXML,
                                m_ui->actionCameraInformation,
                                m_ui->actionTestBandwidth,
                                m_ui->actionGenICamTree,
                                m_ui->actionCamConfig_BasicView,
                                m_ui->actionCamConfig_ExpertView,
                                m_ui->actionLog,
                                m_ui->actionCapture,
                                m_ui->actionStatistics,
                                m_ui->actionColorizeHistogram,
                                m_ui->actionStretchHistogram,
                                m_ui->actionImageProcessing,
                                m_ui->actionDefaultPanelsLayout,
                                m_ui->actionBrowseRecordingFolder,
                                m_ui->actionOpenLastRecordedFile,
                                m_ui->actionBuffer,
                                m_ui->actionTextOverlay,
                                m_ui->actionDisplayOptions,
                                m_ui->actionApplicationOptions,
                                m_ui->actionFullScreen,
                                m_ui->actionHelp,
                                m_ui->actionAbout,
                                m_ui->actionSettings,
                                m_ui->menuLoadRecent->menuAction()};
    for (QAction *action : unbuilt)
        action->setVisible(false);
    for (QMenu *menu : menuBar()->findChildren<QMenu *>())
        if (!ShowsAnything(*menu))
            menu->menuAction()->setVisible(false);
    for (QToolBar *bar : findChildren<QToolBar *>()) {
        if (!ShowsAnything(*bar))
            removeToolBar(bar); // not just hidden: that would be remembered, and offered in the context menu
        else
            HideIdleSeparators(*bar);
    }
}

void OrvPlayer::SetShortcuts()
{
    const std::pair<QAction *, QList<QKeySequence>> shortcuts[] = {
        {m_ui->actionConnect, {QKeySequence(Qt::CTRL | Qt::Key_K)}},
        {m_ui->actionDisconnect, {QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_K)}},
        {m_ui->actionPlay, {QKeySequence(Qt::Key_F5)}},
        {m_ui->actionStop, {QKeySequence(Qt::SHIFT | Qt::Key_F5)}},
        {m_ui->actionRecord, {QKeySequence(Qt::CTRL | Qt::Key_R)}},
        {m_ui->actionSnap, {QKeySequence(Qt::Key_F8)}},
        {m_ui->actionLoadConfiguration, {QKeySequence::Open}},
        {m_ui->actionSaveConfiguration, {QKeySequence::Save}},
        {m_ui->actionExit, {QKeySequence(Qt::CTRL | Qt::Key_Q)}},
        {m_ui->actionZoomIn, {QKeySequence(Qt::CTRL | Qt::Key_Plus), QKeySequence(Qt::CTRL | Qt::Key_Equal)}},
        {m_ui->actionZoomOut, {QKeySequence(Qt::CTRL | Qt::Key_Minus)}},
        {m_ui->actionActualSize, {QKeySequence(Qt::CTRL | Qt::Key_1)}},
        {m_ui->actionFitToWindow, {QKeySequence(Qt::CTRL | Qt::Key_0)}},
        {m_ui->actionSpreadToWindow, {QKeySequence(Qt::CTRL | Qt::Key_9)}},
        {m_ui->actionCenterImage, {QKeySequence(Qt::CTRL | Qt::Key_E)}},
    };
    for (const auto &[action, keys] : shortcuts)
        action->setShortcuts(keys);
}

bool OrvPlayer::AddDisplayWidget(QWidget *widget)
{
    m_hint->hide();
    widget->setParent(m_ui->centralWidget);
    m_ui->centralLayout->addWidget(widget, 0, Qt::Alignment());
    widget->show();
    return true;
}

bool OrvPlayer::RemoveDisplayWidget(QWidget *widget)
{
    m_ui->centralLayout->removeWidget(widget);
    widget->hide();
    disconnect(widget, nullptr, this, nullptr); // of its picture nothing is read out any more
    for (QLabel *label : {m_coordinates, m_value})
        if (label) // an automatic run may come and go before the status bar is ready
            label->clear();
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
