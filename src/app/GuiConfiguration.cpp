#include "app/GuiManager.h"

#include "core/RunBeside.h"
#include "core/Session.h"
#include "core/WaitCursor.h"
#include "orvcam/OrvCam.h"

#include <QFileDialog>
#include <QPointer>

// Loading and saving camera configuration files.

namespace {

QString ConfigurationFilter()
{
    return GuiManager::tr("Zelkor camera configuration files (*.zccf)");
}

} // namespace

void GuiManager::loadConfiguration()
{
    const QString path =
        QFileDialog::getOpenFileName(nullptr, tr("Open camera configuration"), QString(), ConfigurationFilter());
    if (path.isEmpty())
        return;
    if (m_session)
        LoadConfigurationFile(path);
    else
        OpenConfigurationFile(path);
    updateGui();
}

void GuiManager::LoadConfigurationFile(const QString &path)
{
    const int status = m_session->LoadConfiguration(path);
    const bool isApplied = status != ORV_CAM_ERR_FILE && status != ORV_CAM_ERR_INVALID_STATE; // else nothing of it
    // A file that was not applied does not become current: the next saving would overwrite it without a question.
    if (isApplied)
        m_configurationFile = path;
    // Told, for the camera now has other settings than the file says.
    if (status != ORV_CAM_OK)
        DisplayError(isApplied ? tr("Not all of the camera configuration could be applied")
                               : tr("The camera configuration could not be applied"),
                     0, path + QStringLiteral("\n") + QString(OrvCam_StatusText(status)));
}

void GuiManager::OpenConfigurationFile(const QString &path)
{
    OrvCam::System *system = System();
    if (!system)
        return;
    QString whyNot;
    OrvCam::Device *device = nullptr;
    {
        const orv::WaitCursor cursor;
        const QByteArray utf8 = path.toUtf8();
        device = orv::RunBeside([&] {
            OrvCam::Device *opened = system->CreateDeviceFromConfiguration(utf8.constData(), 0);
            std::string text;
            if (system->LastError(&text) != ORV_CAM_OK)
                whyNot = QString::fromStdString(text);
            return opened;
        });
    }
    if (!CreateSession(device, whyNot)) {
        if (device)
            orv::RunBeside([device] { device->Release(); });
        return;
    }
    m_configurationFile = path; // applied as far as it could be
    CreatePanels();
    if (m_session && !whyNot.isEmpty())
        DisplayError(tr("Not all of the camera configuration could be applied"), 0, whyNot);
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
    m_session->SaveConfiguration(m_configurationFile);
    updateGui();
}

void GuiManager::saveConfigurationAs()
{
    if (!m_session || !AskSaveFile(tr("Save camera configuration as...")))
        return;
    saveConfiguration();
    updateGui();
}
