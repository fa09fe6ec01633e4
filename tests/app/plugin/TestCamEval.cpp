#include "app/ICamEval.h"

#include <QEventLoop>
#include <QMainWindow>
#include <QObject>
#include <QStringList>
#include <QVariant>

/// A camera-evaluation plug-in that writes down what it is asked, in its property "calls". With its property "refuse"
/// set it refuses every camera; a QEventLoop in its property "loop" is run while it attaches, as a dialog would be.
class TestCamEval : public QObject, public ICamEval {
    Q_OBJECT
    Q_PLUGIN_METADATA(IID "com.zelkor.sw.icameval")
    Q_INTERFACES(ICamEval)
public:
    void AddWidgets(QMainWindow *mainWindow, int reserved1, int reserved2) override
    {
        Note(mainWindow && reserved1 == 0 && reserved2 == 0 ? "AddWidgets" : "AddWidgets?");
    }
    void SessionEnd() override { Note("SessionEnd"); }
    bool Attach(QMainWindow *mainWindow, OrvCam::Device *device) override
    {
        Note(mainWindow && device ? "Attach" : "Attach?");
        if (auto *loop = qobject_cast<QEventLoop *>(property("loop").value<QObject *>()))
            loop->exec();
        return !property("refuse").toBool();
    }
    void CaptureStart() override { Note("CaptureStart"); }
    void OnStop() override { Note("OnStop"); }
    void PrepareToAcquition() override { Note("PrepareToAcquition"); }
    bool StartAutoEvaluation() override
    {
        Note("StartAutoEvaluation");
        return true;
    }
    void HandOverComponents(OrvComponent *session, DisplayView *display, OrvComponent *) override
    {
        Note(session && display ? "HandOverComponents" : "HandOverComponents?");
    }
    bool WantFrame(bool *) override { return false; }
    void ProcessFrame(const _OrvImage *) override {}

private:
    void Note(const char *call) { setProperty("calls", property("calls").toStringList() << QString::fromLatin1(call)); }
};

#include "TestCamEval.moc"
