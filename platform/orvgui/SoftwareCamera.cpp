#include "orvgui/SoftwareCamera.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QStandardPaths>

#include <csignal>
#include <sys/prctl.h>

namespace OrvGui {
namespace {

constexpr int kEndMs = 2000;

QString FindProgram()
{
    const QString beside = QCoreApplication::applicationDirPath() + QStringLiteral("/orvsim");
    return QFileInfo(beside).isExecutable() ? beside : QStandardPaths::findExecutable(QStringLiteral("orvsim"));
}

} // namespace

SoftwareCamera &SoftwareCamera::Instance()
{
    auto *camera = qApp->findChild<SoftwareCamera *>(QString(), Qt::FindDirectChildrenOnly);
    return camera != nullptr ? *camera : *new SoftwareCamera(qApp);
}

SoftwareCamera::SoftwareCamera(QObject *parent) : QObject(parent), m_program(FindProgram())
{
    // Not left to the destructor: it runs when the application object is half gone.
    connect(qApp, &QCoreApplication::aboutToQuit, this, &SoftwareCamera::Stop);
    connect(&m_process, &QProcess::readyReadStandardOutput, this, &SoftwareCamera::OnOutput);
    connect(&m_process, &QProcess::errorOccurred, this, [this](QProcess::ProcessError error) {
        if (error == QProcess::FailedToStart)
            emit signalFailed(m_process.errorString());
    });
    connect(&m_process, qOverload<int, QProcess::ExitStatus>(&QProcess::finished), this, [this] { OnEnded(); });
}

SoftwareCamera::~SoftwareCamera()
{
    m_process.disconnect(this);
    Stop();
}

void SoftwareCamera::Start()
{
    if (m_process.state() == QProcess::NotRunning) {
        m_isReady = false;
        m_process.start(m_program, QStringList());
    } else if (m_isReady) {
        emit signalStarted();
    }
}

void SoftwareCamera::Stop()
{
    if (m_process.state() == QProcess::NotRunning)
        return;
    m_process.terminate();
    if (!m_process.waitForFinished(kEndMs)) {
        m_process.kill();
        m_process.waitForFinished(kEndMs);
    }
}

void SoftwareCamera::OnOutput()
{
    const bool wasReady = m_isReady;
    while (m_process.canReadLine()) {
        m_process.readLine();
        m_isReady = true;
    }
    if (m_isReady && !wasReady)
        emit signalStarted();
}

void SoftwareCamera::OnEnded()
{
    if (m_isReady)
        return;
    const QString said = QString::fromLocal8Bit(m_process.readAllStandardError()).trimmed();
    emit signalFailed(said.isEmpty() ? tr("It ended at once.") : said);
}

void SoftwareCamera::Process::setupChildProcess()
{
    prctl(PR_SET_PDEATHSIG, SIGTERM);
}

} // namespace OrvGui
