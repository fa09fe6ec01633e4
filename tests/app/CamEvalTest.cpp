#include "app/ICamEval.h"
#include "GuiManagerFixture.h"

#include <QEventLoop>

namespace {

/// A window with the test plug-in, which lies beside the test program under the name the application looks for.
class CamEvalTest : public ::testing::Test {
protected:
    CamEvalTest()
    {
        window.Manager().SetSystem(&system);
        window.SetDeviceOpener([this](const OrvCam::DeviceDescription &, int) { return &device; });
    }
    ~CamEvalTest() override
    {
        if (plugIn) {
            plugIn->setProperty("refuse", false);
            plugIn->setProperty("loop", QVariant());
        }
        OrvPlayer::UnloadCamEval();
    }
    void SetUp() override
    {
        ASSERT_NE(OrvPlayer::s_pCamEval, nullptr);
        plugIn = dynamic_cast<QObject *>(OrvPlayer::s_pCamEval);
        ASSERT_NE(plugIn, nullptr);
        TakeCalls();
    }
    QStringList TakeCalls()
    {
        const QStringList calls = plugIn->property("calls").toStringList();
        plugIn->setProperty("calls", QStringList());
        return calls;
    }
    bool Reaches(SessionState state)
    {
        return WaitFor([&] { return window.Manager().CurrentSession()->State() == state; });
    }
    void Connect()
    {
        ASSERT_TRUE(window.Manager().CreateSession(&device));
        ASSERT_TRUE(window.Manager().CreatePanels());
        ASSERT_TRUE(Reaches(Idle));
    }

    scripted::Device device;
    scripted::System system;
    OrvPlayer window{nullptr, true, false};
    QObject *plugIn = nullptr;
};

TEST_F(CamEvalTest, IsCalledInOrderOverACamerasLife)
{
    EXPECT_EQ(window.windowTitle(), "CamEval Auto - Camera is not connected");
    Connect();
    EXPECT_EQ(TakeCalls(), (QStringList{"Attach", "HandOverComponents", "AddWidgets", "OnStop"}));
    Session *session = window.Manager().CurrentSession();
    emit session->signalStartAcquisition();
    ASSERT_TRUE(Reaches(Acquisition));
    emit session->signalStartCapturing();
    ASSERT_TRUE(Reaches(Capturing));
    session->stopCapturingAndAcquisition();
    ASSERT_TRUE(Reaches(Idle));
    EXPECT_EQ(TakeCalls(), (QStringList{"PrepareToAcquition", "CaptureStart", "OnStop"}));
    window.Manager().cameraDisconnect();
    EXPECT_EQ(TakeCalls(), QStringList("SessionEnd"));
}

TEST_F(CamEvalTest, ARefusedCameraGoesOnWithoutIt)
{
    plugIn->setProperty("refuse", true);
    Connect();
    EXPECT_EQ(TakeCalls(), QStringList("Attach"));
    EXPECT_EQ(OrvPlayer::s_pCamEval, nullptr);
    emit window.Manager().CurrentSession()->signalStartAcquisition();
    ASSERT_TRUE(Reaches(Acquisition));
    window.Manager().cameraDisconnect();
    EXPECT_EQ(TakeCalls(), QStringList());
}

TEST_F(CamEvalTest, ACameraLostWhileItAttachesIsNotHandedOver)
{
    ModalAnswerer answers;
    QEventLoop dialog;
    QTimer look;
    QObject::connect(&look, &QTimer::timeout, [&] {
        if (!window.Manager().CurrentSession())
            dialog.quit();
    });
    plugIn->setProperty("loop", QVariant::fromValue<QObject *>(&dialog));
    device.lostFromTheStart = true;
    ASSERT_TRUE(window.Manager().CreateSession(&device));
    look.start(5);
    window.Manager().CreatePanels();
    EXPECT_EQ(window.Manager().CurrentSession(), nullptr);
    EXPECT_EQ(TakeCalls(), (QStringList{"Attach", "OnStop", "SessionEnd"}));
}

TEST_F(CamEvalTest, TheAutomaticRunTakesTheFirstCamera)
{
    OrvCam::DeviceDescription found;
    found.id = "scripted";
    system.Find({found});
    EXPECT_TRUE(window.Manager().ConnectAndRunAutoEvaluation());
    EXPECT_EQ(TakeCalls(), (QStringList{"Attach", "HandOverComponents", "AddWidgets", "StartAutoEvaluation"}));
}

} // namespace
