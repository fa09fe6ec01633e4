#include "panels/PlayerPanel.h"

#include "orvsupport/OrvParam.h"

#include <QAction>
#include <QCloseEvent>
#include <QMenu>
#include <QMenuBar>
#include <QSettings>
#include <QThread>
#include <QTimer>

#include <vector>

namespace {

const QString kGeometryKey = QStringLiteral("wndGeometry");

} // namespace

orv::Mutex PlayerPanel::s_panelsMutex;
std::map<PlayerPanel *, PlayerPanel *> PlayerPanel::s_panels;

PlayerPanel::PlayerPanel(QMainWindow *mainWindow, const QString &name, int updatePeriodMs)
    : QDockWidget(mainWindow), m_mainWindow(mainWindow), m_name(name)
{
    if (updatePeriodMs != 0) {
        m_updateTimer = new QTimer(this);
        connect(m_updateTimer, &QTimer::timeout, this, &PlayerPanel::UpdateByTimer);
        m_updateTimer->start(updatePeriodMs);
    }
    connect(this, &PlayerPanel::enableControl, this, &PlayerPanel::enableControlSlot);
    const orv::MutexLock lock(s_panelsMutex);
    s_panels[this] = this; // last: from here on other threads may find the panel
}

PlayerPanel::~PlayerPanel()
{
    const orv::MutexLock lock(s_panelsMutex);
    s_panels[this] = nullptr;
}

PlayerPanel *PlayerPanel::GetPanel(const QString &name)
{
    const orv::MutexLock lock(s_panelsMutex);
    for (const auto &[key, panel] : s_panels)
        if (panel != nullptr && panel->m_name == name)
            return panel;
    return nullptr;
}

bool PlayerPanel::IsLive() const
{
    const orv::MutexLock lock(s_panelsMutex);
    const auto found = s_panels.find(const_cast<PlayerPanel *>(this)); // compares the address only
    return found != s_panels.end() && found->second != nullptr;
}

int PlayerPanel::OnParamChanged(unsigned int /*reason*/, _OrvStParam *param)
{
    const QString name = QString::fromUtf8(param->name);
    std::vector<PlayerPanel *> showNow;
    {
        // The lock keeps every panel alive meanwhile: a destructor waits for it.
        const orv::MutexLock lock(s_panelsMutex);
        for (const auto &[key, panel] : s_panels)
            if (panel != nullptr && panel->NoteChange(name))
                showNow.push_back(panel);
    }
    // Only on the GUI thread is there anything to show, and only that thread destroys panels; but showing one value may
    // do anything, even close another panel.
    for (PlayerPanel *panel : showNow)
        if (panel->IsLive())
            panel->UpdateFromComponent(name);
    return 0;
}

bool PlayerPanel::NoteChange(const QString &param)
{
    const bool isGuiThread = QThread::currentThread() == thread();
    if (m_updateTimer == nullptr && isGuiThread)
        return m_links.HasParam(param);
    const bool isQueued = m_links.RequestIfBound(param);
    if (isQueued && m_updateTimer == nullptr && !m_showPosted.exchange(true))
        QMetaObject::invokeMethod(this, "ShowRequested", Qt::QueuedConnection);
    return false;
}

void PlayerPanel::ShowRequested()
{
    m_showPosted = false; // first: what is requested from here on is posted anew
    for (const QString &param : m_links.TakeRequests())
        UpdateFromComponent(param);
}

void PlayerPanel::UpdateByTimer()
{
    if (UpdateSelfByTimer())
        ShowRequested();
}

void PlayerPanel::UpdateFromComponentAsync(const QString &param)
{
    m_links.Request(param);
}

void PlayerPanel::SetCurrentSession(Session *session)
{
    m_session = session;
    UpdateAll();
}

void PlayerPanel::UpdateAll()
{
    UpdateFromComponent(QString());
}

bool PlayerPanel::SaveStateToGlobalSettings(QSettings *settings)
{
    settings->beginGroup(objectName());
    settings->setValue(kGeometryKey, saveGeometry());
    settings->endGroup();
    return true;
}

bool PlayerPanel::LoadStateFromGlobalSettings(QSettings *settings)
{
    settings->beginGroup(objectName());
    restoreGeometry(settings->value(kGeometryKey).toByteArray());
    settings->endGroup();
    return true;
}

bool PlayerPanel::SaveStateToSessionSettings(QSettings * /*settings*/, const QString & /*group*/)
{
    return false;
}

bool PlayerPanel::LoadStateFromSessionSettings(QSettings * /*settings*/, const QString & /*group*/)
{
    return false;
}

void PlayerPanel::OnCameraParamUpdated(const QString & /*name*/) {}

bool PlayerPanel::UpdateSelfByTimer()
{
    return true;
}

void PlayerPanel::enableControlSlot(QObject *control, bool enabled)
{
    if (auto *const widget = qobject_cast<QWidget *>(control))
        widget->setEnabled(enabled);
}

QMainWindow *PlayerPanel::MainWindow() const
{
    // A window on its way out is still a QObject while it deletes its panels, but no main window any more.
    return qobject_cast<QMainWindow *>(m_mainWindow.data());
}

void PlayerPanel::CheckActionMenu(const QString &actionName, bool checked)
{
    QMainWindow *const mainWindow = MainWindow();
    if (mainWindow == nullptr)
        return;
    const auto menus = mainWindow->menuBar()->findChildren<QMenu *>();
    for (const QMenu *menu : menus)
        for (QAction *action : menu->actions())
            if (action->objectName() == actionName)
                action->setChecked(checked);
}

void PlayerPanel::closeEvent(QCloseEvent *event)
{
    hide();
    event->ignore();
}

void PlayerPanel::showEvent(QShowEvent *event)
{
    event->accept();
    CheckActionMenu(m_name, true);
}

void PlayerPanel::hideEvent(QHideEvent *event)
{
    event->accept();
    CheckActionMenu(m_name, false);
}
