#include "GuiManagerFixture.h"

#include "acquisition/GrabbingFifo.h"
#include "app/ICamEval.h"
#include "panels/PlayerPanel.h"

#include <QLabel>
#include <QMenu>
#include <QMenuBar>
#include <QMetaMethod>
#include <QSignalSpy>
#include <QStatusBar>
#include <QToolBar>

#include <memory>

namespace {

/// Whether anything is connected to an action's trigger; Qt keeps that question to subclasses.
struct TriggerProbe : QAction {
    static bool Connected(const QAction *action)
    {
        return (action->*&TriggerProbe::isSignalConnected)(QMetaMethod::fromSignal(&QAction::triggered));
    }
};

QSet<QString> Names(const char *names)
{
    const QStringList list = QString::fromLatin1(names).split(' ');
    return {list.begin(), list.end()};
}

// Actions that are enabled always, unless a capture runs, and as long as there is a camera.
const QSet<QString> kAlways = Names("actionExit actionConnect actionImageProcessing actionDefaultPanelsLayout "
                                    "actionBrowseRecordingFolder actionHelp");
const QSet<QString> kNotCapturing = Names("actionBuffer actionTextOverlay actionDisplayOptions actionCaptureOptions "
                                          "actionApplicationOptions actionAbout");
const QSet<QString> kConnected = Names(
    "actionSaveConfiguration actionSaveConfigurationAs actionSaveGenICamXML actionDisconnect actionCameraInformation "
    "actionGenICamTree actionCamConfig_BasicView actionCamConfig_ExpertView actionLog actionCapture actionStatistics "
    "actionHexDump actionInspectionView actionHistogramPanel actionColorizeHistogram actionStretchHistogram "
    "actionOpenLastRecordedFile actionZoomIn actionZoomOut actionActualSize actionFitToWindow actionSpreadToWindow "
    "actionFullScreen actionCenterImage");

TEST_F(GuiManagerTest, ActionsFollowTheStateFromConnectingToDisconnecting)
{
    // A hidden action counts as disabled; the rules hold for those that are not built yet, too.
    for (QAction *action : window.findChildren<QAction *>())
        action->setVisible(true);
    const auto check = [&](const QSet<QString> &enabled) {
        int seen = 0;
        for (QMenu *menu : window.menuBar()->findChildren<QMenu *>())
            for (QAction *action : menu->actions()) {
                const QString name = action->objectName();
                if (name.isEmpty() || name == "actionSettings" || action->menu())
                    continue;
                ++seen;
                EXPECT_EQ(action->isEnabled(), enabled.contains(name)) << qPrintable(name);
            }
        EXPECT_GE(seen, 41) << "every action is in some menu";
    };
    const auto isRecordChecked = [&] { return Action("actionRecord")->isChecked(); };
    const auto isDisconnected = [&] {
        check(kAlways + kNotCapturing + Names("actionLoadConfiguration"));
        EXPECT_EQ(window.windowTitle(), "OrvPlayer - Camera is not connected");
    };
    isDisconnected();
    Connect();
    EXPECT_EQ(system.loadedProducer, "Nuvark.cti");
    EXPECT_EQ(openedWith, 2);
    EXPECT_EQ(window.windowTitle(), "OrvPlayer -  [X100, SN:42]");
    check(kAlways + kNotCapturing + kConnected + Names("actionLoadConfiguration actionPlay actionTestBandwidth"));
    Play();
    check(kAlways + kNotCapturing + kConnected + Names("actionStop actionRecord actionSnap"));
    emit Session_()->signalStartCapturing();
    ASSERT_TRUE(Reaches(Capturing));
    check(kAlways + kConnected + Names("actionStop actionRecord"));
    EXPECT_TRUE(isRecordChecked());
    Trigger("actionStop");
    ASSERT_TRUE(Reaches(Acquisition)) << "stopping a capture goes on playing";
    EXPECT_FALSE(isRecordChecked());
    Trigger("actionStop");
    ASSERT_TRUE(Reaches(Idle));
    Trigger("actionDisconnect");
    EXPECT_EQ(Session_(), nullptr);
    EXPECT_TRUE(device.released);
    isDisconnected();
    EXPECT_EQ(answers.texts, QStringList());
}

TEST_F(GuiManagerTest, ConnectingAgainReplacesTheSession)
{
    Connect();
    Play();
    Trigger("actionConnect");
    ASSERT_TRUE(Reaches(Idle));
    EXPECT_TRUE(device.released);
}

TEST_F(GuiManagerTest, FailuresAreShown)
{
    const struct {
        const char *rule;
        bool opens, hasFeatures, hasStream;
        const char *lastError, *text, *details;
    } cases[] = {
        {"a camera that cannot be opened says why", false, true, true, "The camera is in use by another program.",
         "Camera cannot be instantinated", "The camera is in use by another program."},
        {"a camera's own words are not markup", false, true, true, "Camera <img src=\"/dev/zero\"> & <b>Co</b>",
         "Camera cannot be instantinated", "Camera <img src=\"/dev/zero\"> & <b>Co</b>"},
        {"a camera without description", true, false, true, "The features cannot be used: no such register.",
         "Cannot get camera parameters", "The features cannot be used: no such register."},
        {"a camera without stream", true, true, false, "An earlier failure.", "CreateGrabber( ) failed", ""},
    };
    for (const auto &row : cases) {
        SCOPED_TRACE(row.rule);
        refuseToOpen = !row.opens;
        device.hasFeatures = row.hasFeatures;
        device.hasStream = row.hasStream;
        device.released = false;
        system.lastError = row.lastError;
        answers.texts.clear();
        answers.details.clear();
        Trigger("actionConnect");
        EXPECT_EQ(Session_(), nullptr);
        EXPECT_EQ(answers.texts, QStringList(row.text));
        EXPECT_EQ(answers.details, QStringList(row.details));
        EXPECT_EQ(device.released, row.opens);
    }
}

TEST_F(GuiManagerTest, ACancelledSelectionChangesNothing)
{
    answers.acceptSelector = false;
    Trigger("actionConnect");
    EXPECT_EQ(Session_(), nullptr);
    EXPECT_EQ(answers.texts, QStringList());
}

TEST_F(GuiManagerTest, ALostCameraIsReportedWhateverItWasDoing)
{
    const struct {
        const char *rule;
        bool isPlaying;
        const char *command = nullptr; ///< that the camera goes in the middle of, for it is slow
    } cases[] = {
        {"idle", false}, {"playing", true}, {"starting", false, "actionPlay"}, {"stopping", true, "actionStop"}};
    for (const auto &row : cases) {
        SCOPED_TRACE(row.rule);
        device.released = false;
        answers.texts.clear();
        Connect();
        if (row.isPlaying)
            Play();
        if (row.command) {
            device.features.delay.ms = 150;
            QTimer::singleShot(100, [&] { device.Lose(); });
            Trigger(row.command); // the handler waits for the camera in the event loop's turns
        } else {
            device.Lose();
        }
        ASSERT_TRUE(WaitFor([&] { return Session_() == nullptr; }));
        device.features.delay.ms = 0;
        EXPECT_EQ(answers.texts, QStringList("Connection to the Camera was lost"));
        EXPECT_TRUE(device.released);
        EXPECT_FALSE(Action("actionPlay")->isEnabled());
        EXPECT_TRUE(Action("actionConnect")->isEnabled());
        if (row.isPlaying) {
            EXPECT_EQ(device.stream.ReleasedBuffers(), 16u);
        }
    }
}

TEST_F(GuiManagerTest, ALossOfTheReplacedCameraDoesNotCloseTheNext)
{
    for (int round = 0; round < 10; ++round) {
        scripted::Device first;
        ASSERT_TRUE(window.Manager().CreateSession(&first));
        first.Lose(); // told to the event loop, which does not turn before the replacement
        ASSERT_TRUE(window.Manager().CreateSession(&device));
        ASSERT_TRUE(Reaches(Idle));
        QCoreApplication::processEvents();
        ASSERT_NE(Session_(), nullptr);
        EXPECT_EQ(answers.texts, QStringList());
        window.Manager().cameraDisconnect();
    }
}

TEST_F(GuiManagerTest, SessionErrorsHaveTheirMessageAndConsequence)
{
    const struct {
        unsigned char error;
        QStringList texts;
        bool closes;
    } cases[] = {
        {1, {"Can not start the Acquisition"}, false},
        {2,
         {"Connection to the Camera was terminated, because of invalid device state", "Can not stop the Acquisition"},
         true},
        {3, {"Can not stop the Capture"}, false},
        {4, {"Can not stop the Capture"}, false},
        {77, {"Unknown Error"}, false},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(static_cast<int>(c.error));
        Connect();
        Play();
        answers.texts.clear();
        emit Session_()->signalSessionStateError(Session_(), c.error);
        ASSERT_TRUE(WaitFor([&] { return answers.texts.size() == c.texts.size(); }));
        EXPECT_EQ(answers.texts, c.texts);
        if (c.closes)
            EXPECT_EQ(Session_(), nullptr);
        else if (c.error == 77)
            EXPECT_EQ(Session_()->State(), Acquisition);
        else
            EXPECT_TRUE(Reaches(Idle));
    }
}

TEST_F(GuiManagerTest, BeforeTheFirstStateEverythingWithARuleIsDisabled)
{
    ASSERT_TRUE(window.Manager().CreateSession(&device));
    ASSERT_EQ(Session_()->State(), NoState);
    window.Manager().updateGui();
    for (const char *name : {"actionExit", "actionConnect", "actionPlay", "actionZoomIn"})
        EXPECT_FALSE(Action(name)->isEnabled()) << name;
    ASSERT_TRUE(Reaches(Idle));
    EXPECT_TRUE(Action("actionExit")->isEnabled());
}

TEST_F(GuiManagerTest, ClosingWhilePlayingStopsTheCamera)
{
    Connect();
    Play();
    window.move(120, 90);
    window.resize(777, 555);
    EXPECT_TRUE(window.close());
    window.Manager().cameraDisconnect();
    EXPECT_TRUE(device.released);
    OrvPlayer next(nullptr, false, false);
    EXPECT_EQ(next.size(), QSize(777, 555)) << "the size is remembered";
}

TEST_F(GuiManagerTest, ErrorCodesAreAppendedInHexadecimal)
{
    window.Manager().DisplayError("plain", 0);
    window.Manager().DisplayError("numbered", 31);
    window.Manager().DisplayError("status", static_cast<unsigned>(-40200));
    EXPECT_EQ(answers.texts,
              (QStringList{"plain", "numbered\nError code: 0x{1f}", "status\nError code: 0x{ffff62f8}"}));
}

TEST_F(GuiManagerTest, RecordingSaysThatItIsNotThere)
{
    Connect();
    Play();
    Trigger("actionSnap");
    Trigger("actionRecord");
    EXPECT_EQ(answers.texts.size(), 2);
    EXPECT_EQ(Session_()->State(), Acquisition);
    EXPECT_FALSE(Action("actionRecord")->isChecked()) << "by the state, not by the click";
}

TEST_F(GuiManagerTest, NothingThatIsNotBuiltIsShown)
{
    Connect();
    for (QMenu *menu : window.menuBar()->findChildren<QMenu *>())
        for (QAction *action : menu->actions()) {
            if (!action->isVisible() || action->isSeparator() || action->menu())
                continue;
            EXPECT_TRUE(TriggerProbe::Connected(action)) << qPrintable(action->objectName());
        }
    EXPECT_FALSE(Action("actionHistogramPanel")->isVisible());
    EXPECT_FALSE(Action("actionInspectionView")->isVisible());
}

TEST(OrvPlayerWindow, ShowsThePixelUnderTheMouse)
{
    OrvPlayer window(nullptr, false, true); // "auto" alone does nothing
    EXPECT_EQ(window.Manager().CurrentSession(), nullptr);
    QStringList shown;
    const struct {
        int c0, c1, c2;
        const char *shown;
    } cases[] = {{1, 2, 3, "1x2x3"}, {-1, 77, -1, "77"}, {65535, 0, 0, "65535x0x0"}};
    for (const auto &c : cases) {
        window.setCoordinatesAndValue(12, 34, c.c0, c.c1, c.c2);
        shown.clear();
        for (const QLabel *label : window.statusBar()->findChildren<QLabel *>())
            shown << label->text();
        EXPECT_TRUE(shown.contains("12x34"));
        EXPECT_TRUE(shown.contains(c.shown));
    }
    auto *view = new QWidget;
    window.AddDisplayWidget(view);
    window.RemoveDisplayWidget(view);
    for (const QLabel *label : window.statusBar()->findChildren<QLabel *>())
        EXPECT_EQ(label->text(), "") << "there is no picture any more";
}

TEST(OrvPlayerWindow, AnEmptyToolBarIsNeitherShownNorOffered)
{
    OrvPlayer window(nullptr, false, false);
    window.show();
    const std::unique_ptr<QMenu> menu(window.createPopupMenu());
    for (const QAction *action : menu->actions())
        EXPECT_NE(action->text(), "View toolbar");
    EXPECT_FALSE(window.findChild<QToolBar *>("toolBarView")->isVisible());
}

TEST(OrvPlayerWindow, NonsenseInTheSettingsIsHarmless)
{
    {
        OrvPlayer window(nullptr, false, false);
        window.Settings().Application().setValue("wndGeometry", "no geometry");
        window.Settings().Application().setValue("wndState", 42);
    }
    OrvPlayer window(nullptr, false, false);
    window.show();
    EXPECT_TRUE(window.isVisible());
    EXPECT_GE(window.width(), 300);
}

} // namespace
