#pragma once

#include <QObject>
#include <QProcess>
#include <QString>

namespace OrvGui {

/// The software camera (orvsim) as a process of this program's: started when somebody asks for it, ended with the
/// application or when that dies. GUI thread.
class SoftwareCamera : public QObject {
    Q_OBJECT
public:
    /// The one of this program; belongs to the application object.
    static SoftwareCamera &Instance();
    ~SoftwareCamera() override;

    /// True when its program was found, beside this one or along PATH.
    bool IsInstalled() const { return !m_program.isEmpty(); }
    /// Another program in its place, for instance of another version.
    void SetProgram(const QString &path) { m_program = path; }

    /// Starts the process on loopback; signalStarted() follows once it says that its camera is there (at once when it
    /// runs already), else signalFailed().
    void Start();
    void Stop();

signals:
    void signalStarted();
    /// \param reason  what the program said, or why it could not be run.
    void signalFailed(const QString &reason);

private:
    /// Ends with its parent, however that ends.
    class Process : public QProcess {
    protected:
        void setupChildProcess() override;
    };

    explicit SoftwareCamera(QObject *parent);
    void OnOutput();
    void OnEnded();

    QString m_program;
    Process m_process;
    bool m_isReady = false;
};

} // namespace OrvGui
