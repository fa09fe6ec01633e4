#include "acquisition/DisplayView.h"
#include "acquisition/GrabbingFifo.h"
#include "app/GuiManager.h"
#include "app/OrvPlayer.h"
#include "core/Session.h"
#include "orvgui/OrvCameraSelectorDialog.h"
#include "support/ForeignCamera.h"
#include "support/GuiTest.h"

#include <gtest/gtest.h>

#include <QAction>
#include <QDir>
#include <QLabel>
#include <QMessageBox>
#include <QPushButton>
#include <QStatusBar>
#include <QTest>
#include <QTimer>
#include <QTreeView>

#include <malloc.h>

namespace {

constexpr char kAddress[] = "127.0.0.14";
constexpr char kSerial[] = "ORV-E2E";

/// Does in modal windows what a person would: picks the test's own camera in the selector, reads and closes messages.
class Person : public QObject {
public:
    Person()
    {
        connect(&m_timer, &QTimer::timeout, this, [this] { Look(); });
        m_timer.start(20);
    }
    QStringList messages;
    QString cameraAddress;

private:
    void Look()
    {
        QWidget *modal = QApplication::activeModalWidget();
        if (auto *box = qobject_cast<QMessageBox *>(modal)) {
            messages << box->text() + (box->informativeText().isEmpty() ? "" : ": " + box->informativeText());
            box->accept();
        } else if (auto *selector = qobject_cast<OrvGui::OrvCameraSelectorDialog *>(modal)) {
            Pick(selector);
        }
    }
    void Pick(QDialog *selector)
    {
        auto *list = selector->findChild<QTreeView *>();
        if (!list)
            return;
        for (int column = 0; column < list->model()->columnCount(); ++column) {
            const QModelIndexList found =
                list->model()->match(list->model()->index(0, column), Qt::DisplayRole, cameraAddress, 1,
                                     Qt::MatchContains | Qt::MatchRecursive);
            if (found.isEmpty())
                continue;
            list->setCurrentIndex(found.front());
            for (QPushButton *button : selector->findChildren<QPushButton *>())
                if (button->isDefault() && button->isEnabled())
                    return button->click();
        }
    }
    QTimer m_timer;
};

class LiveViewTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        if (!ForeignCamera::Installed()) {
            // Passing with nothing tested would look like success.
            if (qEnvironmentVariableIsSet("ORV_TEST_WITHOUT_FOREIGN_CAMERA"))
                GTEST_SKIP() << "arv-fake-gv-camera-0.8 is not installed";
            FAIL() << "arv-fake-gv-camera-0.8 is not installed; ORV_TEST_WITHOUT_FOREIGN_CAMERA=1 skips these tests";
        }
        ASSERT_TRUE(camera.Start(kAddress, kSerial)) << "the software camera did not answer";
        person.cameraAddress = QString::fromStdString(camera.Address());
        window.resize(800, 600);
        window.show();
    }
    QAction *Action(const char *name) { return window.findChild<QAction *>(QString::fromLatin1(name)); }
    Session *Current() { return window.Manager().CurrentSession(); }
    bool Reaches(SessionState state)
    {
        return WaitFor([&] { return Current() && Current()->State() == state; });
    }
    bool Connect()
    {
        Action("actionConnect")->trigger();
        return Reaches(Idle);
    }
    bool Play()
    {
        Action("actionPlay")->trigger();
        return Reaches(Acquisition);
    }
    bool Stop()
    {
        Action("actionStop")->trigger();
        return Reaches(Idle);
    }
    std::string Messages() { return person.messages.join("; ").toStdString(); }
    QImage Picture() { return Current()->View()->viewport()->grab().toImage(); }
    /// Waits until what the widget shows has changed `times` times.
    bool PictureChanges(int times)
    {
        QImage last = Picture();
        return WaitFor([&] {
            QImage now = Picture();
            if (now != last && --times == 0)
                return true;
            last = now;
            return false;
        });
    }
    long Count(const char *name)
    {
        long value = -1;
        Current()->GetGrabber()->GetParamInt(const_cast<char *>(name), &value);
        return value;
    }

    ForeignCamera camera;
    Person person;
    OrvPlayer window{nullptr, false, false};
};

TEST_F(LiveViewTest, APersonSeesTheCameraLive)
{
    ASSERT_TRUE(Connect()) << Messages();
    EXPECT_TRUE(window.windowTitle().contains("[Fake")) << qPrintable(window.windowTitle());
    ASSERT_TRUE(Play()) << Messages();
    ASSERT_TRUE(PictureChanges(5));
    EXPECT_GE(Count("FramesAcquired"), 5);
    EXPECT_EQ(Count("FramesIncomp"), 0);

    // The pixel under the mouse.
    QTest::mouseMove(Current()->View()->viewport(), Current()->View()->viewport()->rect().center());
    const auto statusText = [&] {
        QString all;
        for (const QLabel *label : window.statusBar()->findChildren<QLabel *>())
            all += label->text() + " ";
        return all;
    };
    EXPECT_TRUE(WaitFor([&] { return statusText().contains("256x256") || statusText().contains("255x25"); }))
        << qPrintable(statusText());

    Current()->View()->Zoom100();
    EXPECT_TRUE(PictureChanges(2));
    ASSERT_TRUE(Stop()) << Messages();
    ASSERT_TRUE(Play()) << Messages();
    EXPECT_TRUE(PictureChanges(3)) << "plays again";
    Action("actionDisconnect")->trigger();
    EXPECT_EQ(Current(), nullptr);
    EXPECT_EQ(person.messages, QStringList());
}

TEST_F(LiveViewTest, UnpluggingIsToldAndTheCameraCanComeBack)
{
    ASSERT_TRUE(Connect()) << Messages();
    ASSERT_TRUE(Play()) << Messages();
    ASSERT_TRUE(PictureChanges(3));
    camera.Kill(); // as by a power cut
    ASSERT_TRUE(WaitFor([&] { return !Current(); })) << "noticed within the heartbeat time";
    EXPECT_EQ(person.messages, QStringList("Connection to the Camera was lost"));
    EXPECT_FALSE(Action("actionPlay")->isEnabled());

    ASSERT_TRUE(camera.Start(kAddress, kSerial));
    ASSERT_TRUE(Connect()) << Messages();
    ASSERT_TRUE(Play()) << Messages();
    EXPECT_TRUE(PictureChanges(3));
}

TEST_F(LiveViewTest, AFrozenCameraDoesNotFreezeTheWindow)
{
    ASSERT_TRUE(Connect()) << Messages();
    ASSERT_TRUE(Play()) << Messages();
    ASSERT_TRUE(PictureChanges(2));
    camera.Suspend();
    int turns = 0; // of the event loop
    QTimer ticker;
    QObject::connect(&ticker, &QTimer::timeout, [&] { ++turns; });
    ticker.start(5);
    Action("actionStop")->trigger(); // no command is answered any more
    EXPECT_TRUE(WaitFor([&] { return !Current() || Current()->State() == Idle; }));
    EXPECT_GT(turns, 20) << "while the answer was waited for";
    EXPECT_TRUE(WaitFor([&] { return !Current(); })) << "the loss is noticed in the end";
    camera.Resume();
}

TEST_F(LiveViewTest, ManyRoundsLeaveNoThreadsAndNoOpenFiles)
{
    const auto entries = [](const char *folder) {
        return QDir(folder).entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::System).size();
    };
    ASSERT_TRUE(Connect()) << Messages();
    for (int i = 0; i < 3; ++i) {
        ASSERT_TRUE(Play()) << Messages();
        ASSERT_TRUE(Stop()) << Messages();
    }
    const int threads = entries("/proc/self/task");
    const int files = entries("/proc/self/fd");
    std::size_t heapBytes = 0;
    for (int i = 0; i < 200; ++i) {
        if (i == 20)
            heapBytes = mallinfo2().uordblks;
        ASSERT_TRUE(Play()) << Messages();
        ASSERT_TRUE(Stop()) << Messages();
    }
    EXPECT_LE(entries("/proc/self/task"), threads + 1);
    EXPECT_LE(entries("/proc/self/fd"), files + 1);
    EXPECT_LE(mallinfo2().uordblks, heapBytes + 256 * 1024) << "grown over 180 rounds (0 under a sanitizer)";
    Action("actionDisconnect")->trigger();
    ASSERT_TRUE(Connect()) << Messages();
    const int connectedThreads = entries("/proc/self/task");
    const int connectedFiles = entries("/proc/self/fd");
    for (int i = 0; i < 50; ++i) {
        Action("actionDisconnect")->trigger();
        ASSERT_TRUE(Connect()) << Messages();
    }
    EXPECT_LE(entries("/proc/self/task"), connectedThreads + 1);
    EXPECT_LE(entries("/proc/self/fd"), connectedFiles + 1);
    EXPECT_EQ(person.messages, QStringList());
}

} // namespace
