#include "acquisition/DiagnosisBar.h"

#include "acquisition/DisplayView.h"
#include "app/GuiManager.h"
#include "app/OrvPlayer.h"
#include "core/Session.h"
#include "LoopWatch.h"
#include "support/GuiTest.h"

#include <gmock/gmock.h>

#include <QApplication>
#include <QClipboard>
#include <QLabel>
#include <QPushButton>
#include <QTest>
#include <QTimer>
#include <QToolButton>

namespace {

using testing::HasSubstr;
using testing::Not;

constexpr int kNeverMs = 3600000;
constexpr std::uint8_t kGrey = 100;

/// The viewer with a scripted camera that streams.
class DiagnosisBarTest : public ::testing::Test {
protected:
    DiagnosisBarTest()
    {
        device.description.address = "10.11.12.13";
        device.features.AddFloat("ExposureTime", 10000, 1e7);
        QObject::connect(&m_camera, &QTimer::timeout, [this] {
            m_frame.id = m_frame.timestamp = ++m_nextId;
            device.stream.Deliver(m_frame);
        });
        window.resize(900, 600);
        window.show();
    }
    ~DiagnosisBarTest() override
    {
        m_camera.stop();
        window.Manager().cameraDisconnect();
    }

    void Play()
    {
        ASSERT_TRUE(window.Manager().CreateSession(&device));
        ASSERT_TRUE(Reaches(Idle));
        emit Current()->signalStartAcquisition();
        ASSERT_TRUE(Reaches(Acquisition));
    }
    /// From now on the camera delivers such frames.
    void Send(scripted::Frame frame, int everyMs = 30)
    {
        m_frame = frame;
        m_camera.start(everyMs);
    }
    static scripted::Frame Picture(std::uint8_t fill)
    {
        scripted::Frame frame;
        frame.fill = fill;
        return frame;
    }
    static scripted::Frame Hole()
    {
        scripted::Frame frame = Picture(kGrey);
        frame.incomplete = true;
        return frame;
    }

    scripted::EnumerationNode &AddTrigger()
    {
        auto &mode = device.features.AddEnumeration("TriggerMode", {"Off", "On"});
        mode.Set("", "On");
        return mode;
    }

    Session *Current() { return window.Manager().CurrentSession(); }
    bool Reaches(SessionState state)
    {
        return WaitFor([&] { return Current() && Current()->State() == state; });
    }
    DiagnosisBar *Bar() { return Current()->View()->findChild<DiagnosisBar *>(); }
    bool Appears()
    {
        return WaitFor([&] { return Bar()->isVisible(); });
    }
    bool Goes()
    {
        return WaitFor([&] { return !Bar()->isVisible(); });
    }
    template <class Widget> Widget *Find(const char *name) { return Bar()->findChild<Widget *>(name); }
    std::string Text(const char *name) { return Find<QLabel>(name)->text().toStdString(); }
    QPushButton *Button(const char *name) { return Find<QPushButton>(name); }

    scripted::Device device;
    OrvPlayer window{nullptr, false, false};

private:
    QTimer m_camera;
    scripted::Frame m_frame;
    std::uint64_t m_nextId = 0;
};

TEST_F(DiagnosisBarTest, NoPacketsAreToldAndPicturesTakeTheBarAway)
{
    OrvCam::StreamStatistics counts;
    counts.delivered = counts.packets = 1000000; // of better times: they must not hide the trouble
    device.stream.SetStatistics(counts);
    Play();
    const QRect before = Current()->View()->geometry();
    for (int outage = 1; outage <= 2; ++outage) {
        SCOPED_TRACE(outage);
        ASSERT_TRUE(Appears());
        EXPECT_THAT(Text("finding"), HasSubstr("not one stream packet"));
        EXPECT_THAT(Text("remedy"), HasSubstr("Start the stream again"));
        EXPECT_FALSE(Button("cure")->isVisible()) << "nothing that the program could do";
        EXPECT_EQ(Current()->View()->geometry(), before) << "the picture stays where it is";
        EXPECT_EQ(Bar()->width(), Current()->View()->width());
        Send(Picture(kGrey));
        EXPECT_TRUE(Goes());
        Send(Picture(kGrey), kNeverMs);
    }
}

TEST_F(DiagnosisBarTest, IncompleteFramesAreCounted)
{
    Play();
    Send(Hole());
    // Later counts are compared with those of the start.
    ASSERT_TRUE(WaitFor([&] { return device.stream.StatisticsWereAsked(); }));
    OrvCam::StreamStatistics counts;
    counts.delivered = counts.incomplete = 40;
    counts.packets = 4000;
    counts.missing = 321;
    device.stream.SetStatistics(counts);
    ASSERT_TRUE(Appears());
    EXPECT_THAT(Text("finding"), HasSubstr("40 of 40")) << "of no earlier counts";
    EXPECT_THAT(Text("finding"), HasSubstr("321"));
    Send(Picture(kGrey));
    EXPECT_TRUE(Goes());
}

TEST_F(DiagnosisBarTest, ATriggerIsSwitchedOffByItsButton)
{
    auto &mode = AddTrigger();
    auto &source = device.features.AddEnumeration("TriggerSource", {"<b>Line1</b>", "Software"});
    Play();
    ASSERT_TRUE(Appears());
    EXPECT_THAT(Text("finding"), HasSubstr("<b>Line1</b>"));
    EXPECT_EQ(Find<QLabel>("finding")->textFormat(), Qt::PlainText);
    EXPECT_FALSE(Button("copy")->isVisible()) << "no command";
    EXPECT_FALSE(Button("otherCure")->isVisible());

    source.Set("", "Software"); // told with the next figures
    ASSERT_TRUE(WaitFor([&] { return Button("otherCure")->isVisible(); }));
    device.TakeLog();
    Button("otherCure")->click();
    EXPECT_THAT(device.TakeLog(), testing::Contains("TriggerSoftware"));
    EXPECT_EQ(mode.Current(), "On");

    ASSERT_TRUE(Appears());
    Button("cure")->click();
    EXPECT_TRUE(WaitFor([&] { return mode.Current() == "Off"; }));
    EXPECT_EQ(Current()->State(), Acquisition);
    Send(Picture(kGrey));
    EXPECT_TRUE(Goes());
}

TEST_F(DiagnosisBarTest, WhatIsLockedWhileStreamingIsDoneInBetween)
{
    auto &mode = AddTrigger();
    mode.setStatus = ORV_CAM_ERR_NOT_WRITABLE;
    device.stream.onStopAcquisition = [&] { mode.setStatus = ORV_CAM_OK; };
    Play();
    ASSERT_TRUE(Appears());
    device.TakeLog();
    Button("cure")->click();
    EXPECT_TRUE(WaitFor([&] { return mode.Current() == "Off" && Current()->State() == Acquisition; }));
    EXPECT_THAT(device.TakeLog(), testing::IsSupersetOf({"AcquisitionStop", "AcquisitionStart"}));
}

TEST_F(DiagnosisBarTest, ARefusedCureIsTold)
{
    auto &mode = AddTrigger();
    mode.setStatus = ORV_CAM_ERR_ACCESS_DENIED;
    Play();
    ASSERT_TRUE(Appears());
    Button("cure")->click();
    ASSERT_TRUE(Reaches(Idle));
    EXPECT_THAT(Text("remedy"), HasSubstr(OrvCam_StatusText(ORV_CAM_ERR_ACCESS_DENIED)));
    EXPECT_TRUE(Bar()->isVisible());
}

TEST_F(DiagnosisBarTest, BlackPicturesThroughoutAreHinted)
{
    Play();
    Send(Picture(0));
    ASSERT_TRUE(Appears());
    EXPECT_THAT(Text("finding"), HasSubstr("black"));
    EXPECT_THAT(Button("cure")->text().toStdString(), HasSubstr("40 ms"));
    Button("cure")->click();
    EXPECT_EQ(device.features.floats["ExposureTime"]->GetValue(nullptr), 40000);
    Send(Picture(255));
    ASSERT_TRUE(WaitFor([&] { return Bar()->isVisible() && Text("finding").find("bright") != std::string::npos; }));
    Send(Picture(kGrey));
    EXPECT_TRUE(Goes());
}

TEST_F(DiagnosisBarTest, AClosedBarStaysClosedUntilTheNextStartAndNoneOutlivesItsStream)
{
    Play();
    ASSERT_TRUE(Appears());
    Find<QToolButton>("close")->click();
    for (int look = 0; look < 2; ++look) {
        device.stream.SetStatistics({});
        ASSERT_TRUE(WaitFor([&] { return device.stream.StatisticsWereAsked(); }));
        QCoreApplication::processEvents();
        EXPECT_FALSE(Bar()->isVisible());
    }
    emit Current()->signalStopAcquisition();
    ASSERT_TRUE(Reaches(Idle));
    emit Current()->signalStartAcquisition();
    ASSERT_TRUE(Appears());
    emit Current()->signalStopAcquisition();
    ASSERT_TRUE(Reaches(Idle));
    EXPECT_FALSE(Bar()->isVisible()) << "a camera at rest owes no pictures";
}

TEST_F(DiagnosisBarTest, ASilentCameraIsToldWhileTheWindowLives)
{
    Play();
    device.features.delay.ms = 6000;
    const LoopWatch watch(device.features.delay);
    ASSERT_TRUE(Appears());
    EXPECT_THAT(Text("finding"), HasSubstr("does not answer"));
    EXPECT_THAT(Text("command"), HasSubstr("10.11.12.13"));
    Button("copy")->click();
    EXPECT_EQ(QApplication::clipboard()->text().toStdString(), Text("command"));
    EXPECT_FALSE(device.features.delay.HasStuck());
    device.features.delay.ms = 0;
}

} // namespace
