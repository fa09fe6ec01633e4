#include "core/Session.h"

#include "LoopWatch.h"

#include "acquisition/DisplayView.h"
#include "acquisition/GrabbingFifo.h"
#include "app/GuiManager.h"
#include "app/OrvPlayer.h"
#include "support/GuiTest.h"

#include <gtest/gtest.h>

#include <QSignalSpy>

#include <optional>

namespace {

using Log = std::vector<std::string>;

const Log kStartLog = {"AllocBufferQueue", "TLParamsLocked=1", "StartAcquisition", "AcquisitionStart"};
const Log kStopLog = {"AcquisitionStop", "StopAcquisition", "TLParamsLocked=0", "ReleaseBufferQueue"};

class SessionTest : public ::testing::Test {
protected:
    void Open()
    {
        session = std::make_unique<Session>(nullptr, &device, &window);
        errors.emplace(session.get(), &Session::signalSessionStateError);
        ASSERT_TRUE(Reaches(Idle));
        device.TakeLog();
    }
    bool Reaches(SessionState state)
    {
        return WaitFor([&] { return session->State() == state; });
    }
    void Play()
    {
        emit session->signalStartAcquisition();
        ASSERT_TRUE(Reaches(Acquisition));
    }
    void Halt()
    {
        emit session->signalStopAcquisition();
        ASSERT_TRUE(Reaches(Idle));
    }

    void Tick(const char *name, bool value) { Parameters().SetParamBool(const_cast<char *>(name), value); }
    bool IsTicked(const char *name)
    {
        bool value = false;
        Parameters().GetParamBool(const_cast<char *>(name), &value);
        return value;
    }
    OrvComponent &Parameters() { return *session; }

    OrvPlayer window{nullptr, false, false};
    scripted::Device device;
    std::unique_ptr<Session> session;
    std::optional<QSignalSpy> errors;
};

TEST_F(SessionTest, CommandsTheCameraInOrder)
{
    Open();
    EXPECT_EQ(session->Grabber()->State(), Idle);
    for (int round = 0; round < 3; ++round) {
        Play();
        EXPECT_EQ(device.TakeLog(), kStartLog);
        EXPECT_EQ(session->Grabber()->State(), Acquisition);
        Halt();
        EXPECT_EQ(device.TakeLog(), kStopLog);
        EXPECT_EQ(session->Grabber()->State(), Idle);
    }
    EXPECT_EQ(errors->count(), 0);
}

TEST_F(SessionTest, CapturingIsOnlyReachedFromAcquisition)
{
    Open();
    emit session->signalStartCapturing();
    QCoreApplication::processEvents();
    EXPECT_EQ(session->State(), Idle);
    Play();
    device.TakeLog();
    session->SnapNextFrame();
    ASSERT_TRUE(Reaches(Capturing));
    EXPECT_EQ(session->Grabber()->State(), Capturing);
    session->stopCapturing();
    ASSERT_TRUE(Reaches(Acquisition));
    EXPECT_EQ(device.TakeLog(), Log{}) << "the camera is not touched";
    session->SnapNextFrame();
    ASSERT_TRUE(Reaches(Capturing));
    session->stopCapturingAndAcquisition();
    ASSERT_TRUE(Reaches(Idle));
    EXPECT_EQ(device.TakeLog(), kStopLog);
}

const Log kRollBack = {"AcquisitionAbort", "StopAcquisition", "TLParamsLocked=0", "ReleaseBufferQueue"};
const Log kRollBackBeforeGrabbing = {"AcquisitionAbort", "TLParamsLocked=0", "ReleaseBufferQueue"};

Log operator+(Log a, const Log &b)
{
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

TEST_F(SessionTest, AFailingStartIsRolledBackAndReported)
{
    const struct {
        const char *step;
        Log log; ///< what the camera sees until the machine is back in Idle
    } cases[] = {
        {"AllocBufferQueue", Log{"AllocBufferQueue"} + kRollBackBeforeGrabbing},
        {"TLParamsLocked=1", Log{"AllocBufferQueue", "TLParamsLocked=1"} + kRollBackBeforeGrabbing},
        {"StartAcquisition", Log{"AllocBufferQueue", "TLParamsLocked=1", "StartAcquisition"} + kRollBackBeforeGrabbing},
        {"AcquisitionStart", kStartLog + kRollBack},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.step);
        Open();
        const std::string step = c.step;
        if (step == "AllocBufferQueue")
            device.stream.allocStatus = ORV_CAM_ERR_OUT_OF_MEMORY;
        else if (step == "StartAcquisition")
            device.stream.startStatus = ORV_CAM_ERR_IO;
        else
            device.features.status = {{step, ORV_CAM_ERR_GENICAM}};

        emit session->signalStartAcquisition();
        ASSERT_TRUE(WaitFor([&] { return errors->count() == 1; }));
        EXPECT_EQ(errors->front().at(0).value<void *>(), session.get());
        EXPECT_EQ(errors->front().at(1).value<unsigned char>(), 1);
        EXPECT_EQ(session->State(), Idle);
        EXPECT_EQ(device.TakeLog(), c.log);

        device.stream.allocStatus = ORV_CAM_OK;
        device.stream.startStatus = ORV_CAM_OK;
        device.features.status.clear();
        emit session->signalStopAcquisition(); // what the GUI manager does about it
        Play();
        EXPECT_EQ(device.TakeLog(), kStartLog) << "works once the cause is gone";
        session.reset();
        EXPECT_EQ(device.TakeLog(), kStopLog);
    }
}

TEST_F(SessionTest, CamerasWithoutTheFeaturesStartAndStop)
{
    Open();
    device.features.status = {{"TLParamsLocked=1", ORV_CAM_ERR_FEATURE_NOT_PRESENT},
                              {"AcquisitionStart", ORV_CAM_ERR_FEATURE_NOT_PRESENT},
                              {"TLParamsLocked=0", ORV_CAM_ERR_FEATURE_NOT_PRESENT},
                              {"AcquisitionStop", ORV_CAM_ERR_IO}};
    Play();
    device.TakeLog();
    Halt();
    EXPECT_EQ(device.TakeLog(), (Log{"AcquisitionStop", "AcquisitionAbort", "StopAcquisition", "TLParamsLocked=0",
                                     "ReleaseBufferQueue"}));
    EXPECT_EQ(errors->count(), 0);
}

TEST_F(SessionTest, ALostCameraEndsInDisconnected)
{
    Open();
    Play();
    QSignalSpy lost(session.get(), &Session::signalCameraDisconnected);
    device.Lose();
    ASSERT_TRUE(WaitFor([&] { return lost.count() == 1; }));
    EXPECT_EQ(lost.front().at(1).value<unsigned char>(), 1);
    emit session->signalCameraStateDisconnected();
    ASSERT_TRUE(Reaches(Disconnected));
    EXPECT_EQ(session->Grabber()->State(), Disconnected);
}

TEST_F(SessionTest, DestructionWhileStreamingCleansUp)
{
    Open();
    Play();
    ASSERT_TRUE(device.stream.Deliver({1, 100}));
    device.TakeLog();
    session.reset();
    EXPECT_EQ(device.TakeLog(), kStopLog);
    EXPECT_EQ(device.stream.ReleasedBuffers(), 16u);
    EXPECT_TRUE(device.released);
    device.Lose(); // no callback is registered any more
}

TEST_F(SessionTest, NameAndTitleComeFromTheCamera)
{
    const struct {
        const char *rule, *user, *model, *serial; ///< null: the camera lacks the feature
        const char *name, *title;
        bool hasFeatures = true;
    } cases[] = {
        {"all three", "cam1", "X100", "42", "Session_cam1_X100", " cam1 [X100, SN:42]"},
        {"no model: the bracket closes all the same", "cam1", nullptr, "42", "Session_cam1", " cam1, SN:42]"},
        {"nothing known", nullptr, nullptr, nullptr, "Session", "]"},
        {"text with a place marker stays text", "%1", "%2", nullptr, "Session_%1_%2", " %1 [%2]"},
        {"no features at all", "cam1", nullptr, nullptr, "Session", "", false},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.rule);
        scripted::Device camera;
        camera.hasFeatures = c.hasFeatures;
        for (const auto &[feature, value] :
             {std::pair{"DeviceUserID", c.user}, {"DeviceModelName", c.model}, {"DeviceSerialNumber", c.serial}})
            if (value)
                camera.features.AddString(feature, value);
        const Session named(nullptr, &camera, &window);
        EXPECT_EQ(named.Name(), QString(c.name));
        EXPECT_EQ(named.Title(), QString(c.title));
    }
}

TEST_F(SessionTest, ACameraWithoutStreamIsRefusedAndLeftToTheCaller)
{
    device.hasStream = false;
    EXPECT_THROW(Session(nullptr, &device, &window), OrvPlayerException);
    EXPECT_FALSE(device.released);
}

TEST_F(SessionTest, SettingsOfTheWorkersSurviveTheSession)
{
    device.features.AddString("DeviceUserID", "keeper");
    Open();
    ASSERT_EQ(session->GetGrabber()->SetParamInt(const_cast<char *>("QueueSize"), 24), 0u);
    ASSERT_EQ(session->GetGrabber()->SetParamInt(const_cast<char *>("FramesAcquired"), 99), 0u);
    session.reset();
    Open();
    long value = 0;
    session->GetGrabber()->GetParamInt(const_cast<char *>("QueueSize"), &value);
    EXPECT_EQ(value, 24);
    session->GetGrabber()->GetParamInt(const_cast<char *>("FramesAcquired"), &value);
    EXPECT_EQ(value, 0) << "figures start anew";
}

TEST_F(SessionTest, TheEventLoopTurnsHoweverSlowTheCameraIs)
{
    for (const int delayMs : {35, 400}) { // many short waits must not add up, and a long one must not block
        SCOPED_TRACE(delayMs);
        Open();
        device.features.delay.ms = delayMs;
        const LoopWatch watch(device.features.delay);
        Play();
        Halt();
        EXPECT_FALSE(device.features.delay.HasStuck());
        device.features.delay.ms = 0;
    }
}

TEST_F(SessionTest, ASlowCameraCanBeOpened)
{
    device.features.AddInteger("GevTimestampTickFrequency", 1000);
    device.features.AddString("DeviceModelName", "X100");
    device.features.delay.ms = 250; // the event loop turns while the session is being made
    const LoopWatch watch(device.features.delay);
    Open();
    EXPECT_FALSE(device.features.delay.HasStuck());
    device.features.delay.ms = 70;
    EXPECT_EQ(session->Title(), " [X100]");
    Play();
}

TEST_F(SessionTest, TheDisplayStopsBeforeTheGrabber)
{
    Open();
    bool displaying = true;
    device.stream.onStopAcquisition = [&] { displaying = session->View()->IsDisplaying(); };
    Play();
    Halt();
    EXPECT_FALSE(displaying) << "it takes frames from the grabber";
}

TEST_F(SessionTest, AnUnavailableTrafficLogUnticksItself)
{
    Open();
    Tick("LogControl", true);
    EXPECT_TRUE(IsTicked("LogControl")) << "nothing is registered while the master switch is off";
    Tick("EnableLog", true);
    EXPECT_FALSE(IsTicked("LogControl"));
}

/// A camera may take its time to switch a channel, and its user may think better of it meanwhile.
TEST_F(SessionTest, ATrafficLogSwitchedOffWhileItIsSwitchedOnIsOff)
{
    Open();
    device.hasTraffic = true;
    Tick("LogControl", true);
    Tick("LogStream", true);
    device.duringRegistration = [&] {
        QMetaObject::invokeMethod(
            session.get(), [&] { Tick("EnableLog", false); }, Qt::BlockingQueuedConnection);
    };
    Tick("EnableLog", true);
    EXPECT_FALSE(device.HasTrafficListeners());
    device.duringRegistration = nullptr;
    Tick("EnableLog", true);
    EXPECT_TRUE(device.HasTrafficListeners());
}

} // namespace
