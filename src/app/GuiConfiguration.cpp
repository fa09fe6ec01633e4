#include "app/GuiManager.h"

#include "core/RunBeside.h"
#include "core/Session.h"
#include "orvcam/OrvCam.h"

#include <QApplication>
#include <QFileDialog>
#include <QPointer>

// Loading and saving camera configuration files.

namespace {

QString ConfigurationFilter()
{
    return GuiManager::tr("Zelkor camera configuration files (*.zccf)");
}

/// Shows the wait cursor for a scope.
class WaitCursor {
public:
    WaitCursor() { QApplication::setOverrideCursor(Qt::WaitCursor); }
    ~WaitCursor() { QApplication::restoreOverrideCursor(); }
    WaitCursor(const WaitCursor &) = delete;
    WaitCursor &operator=(const WaitCursor &) = delete;
};

} // namespace

void GuiManager::loadConfiguration()
{
    const QString path =
        QFileDialog::getOpenFileName(nullptr, tr("Open camera configuration"), QString(), ConfigurationFilter());
    if (path.isEmpty())
        return;
    bool isApplied = false;
    QString whyNot;
    {
        const WaitCursor cursor;
        if (m_session) {
            const int status = m_session->LoadConfiguration(path);
            isApplied = status != ORV_CAM_ERR_FILE && status != ORV_CAM_ERR_INVALID_STATE; // else nothing of it
            whyNot = status == ORV_CAM_OK ? QString() : QString(OrvCam_StatusText(status));
        } else if (OrvCam::System *system = System()) {
            const QByteArray utf8 = path.toUtf8();
            OrvCam::Device *device = orv::RunBeside([&] {
                OrvCam::Device *opened = system->CreateDeviceFromConfiguration(utf8.constData(), 0);
                std::string text;
                if (system->LastError(&text) != ORV_CAM_OK)
                    whyNot = QString::fromStdString(text);
                return opened;
            });
            if (CreateSession(device, whyNot)) {
                CreatePanels();
                isApplied = true; // as far as it could be
            } else if (device) {
                orv::RunBeside([device] { device->Release(); });
            }
        }
    }
    if (m_session && !whyNot.isEmpty())
        DisplayError(tr("Not all of the camera configuration could be applied"), 0, whyNot);
    if (isApplied)
        m_configurationFile = path;
    updateGui();
}

bool GuiManager::AskSaveFile(const QString &caption)
{
    const QPointer<Session> session = m_session;
    QFileDialog dialog(nullptr, caption, QString(), ConfigurationFilter());
    dialog.setAcceptMode(QFileDialog::AcceptSave);
    dialog.setDefaultSuffix(QStringLiteral("zccf"));
    if (dialog.exec() != QDialog::Accepted || dialog.selectedFiles().isEmpty())
        return false;
    if (!session || session != m_session) // lost while the dialog stood open, and told
        return false;
    m_configurationFile = dialog.selectedFiles().constFirst();
    return true;
}

void GuiManager::saveConfiguration()
{
    if (!m_session)
        return;
    if (m_configurationFile.isEmpty() && !AskSaveFile(tr("Save camera configuration")))
        return;
    {
        const WaitCursor cursor;
        m_session->SaveConfiguration(m_configurationFile);
    }
    updateGui();
}

void GuiManager::saveConfigurationAs()
{
    if (!m_session || !AskSaveFile(tr("Save camera configuration as...")))
        return;
    saveConfiguration();
    updateGui();
}
