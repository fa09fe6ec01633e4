#include "acquisition/DiagnosisBar.h"
#include "acquisition/DisplayView.h"
#include "app/GuiManager.h"
#include "app/OrvPlayer.h"
#include "core/Session.h"
#include "orvcam/OrvCam.h"
#include "simulator/gige/GigeCamera.h"
#include "support/GuiTest.h"
#include "support/PrivateNetwork.h"

#include <gmock/gmock.h>

#include <QElapsedTimer>
#include <QLabel>
#include <QPushButton>

#include <map>
#include <memory>
#include <optional>

namespace {

using testing::HasSubstr;

constexpr std::uint32_t kAddress = 0x7F000015; // 127.0.0.21
constexpr char kSerial[] = "WHY";
/// Within which a person is told; everything takes its time under the sanitizers.
constexpr int kBarMs = kIsSanitized ? 20000 : 2000;

/// The viewer before a software camera of this process that does not do as it should.
class WhyNoPicture : public ::testing::Test {
protected:
    ~WhyNoPicture() override
    {
        window.Manager().cameraDisconnect();
        m_camera.reset();
    }

    void Play(const orvsim::Faults &faults, std::map<std::string, std::string> settings = {})
    {
        if (!InPrivateNetwork())
            GTEST_SKIP() << "needs a network of its own: another camera may be at the address";
        orvsim::CameraOptions camera;
        camera.serial = kSerial;
        camera.sensor.width = 320;
        camera.sensor.height = 240;
        camera.frameRate = 20;
        camera.faults = faults;
        camera.features = std::move(settings);
        orvsim::GigeOptions gige;
        gige.address = kAddress;
        m_camera = std::make_unique<orvsim::GigeCamera>(camera, gige);
        ASSERT_EQ(m_camera->Open(), "");
        Connect();
    }
    void Switch(void (Session::*signal)(), SessionState state)
    {
        emit(Current()->*signal)();
        ASSERT_TRUE(WaitFor([&] { return Current()->State() == state; }));
    }
    Session *Current() { return window.Manager().CurrentSession(); }
    DiagnosisBar *Bar() { return Current()->View()->findChild<DiagnosisBar *>(); }
    std::string Text(const char *name) { return Bar()->findChild<QLabel *>(name)->text().toStdString(); }
    /// A busy machine may hold the bar up once or twice, but not after each of many starts.
    void ExpectTheBar()
    {
        qint64 quickestMs = kBarMs;
        for (int start = 0; start < 10 && quickestMs >= kBarMs; ++start) {
            if (start > 0)
                Switch(&Session::signalStopAcquisition, Idle);
            Switch(&Session::signalStartAcquisition, Acquisition);
            QElapsedTimer sinceStart;
            sinceStart.start();
            ASSERT_TRUE(WaitFor([&] { return Bar()->isVisible(); }));
            quickestMs = std::min(quickestMs, sinceStart.elapsed());
        }
        EXPECT_LT(quickestMs, kBarMs);
    }
    long Pictures()
    {
        long value = 0;
        Current()->GetGrabber()->GetParamInt(const_cast<char *>("FramesAcquired"), &value);
        return value;
    }
    bool PicturesComeWithoutABar()
    {
        return WaitFor([&] { return Pictures() >= 10 && !Bar()->isVisible(); });
    }

    OrvPlayer window{nullptr, false, false};

private:
    void Connect()
    {
        OrvCam::System *system = OrvCam_GetSystem();
        ASSERT_NE(system, nullptr);
        system->LoadProducer("Nuvark.cti");
        std::optional<OrvCam::DeviceDescription> found;
        OrvCam::InterfaceList *list = system->GetInterfaceList(255);
        for (OrvCam::DeviceList *devices = list->First(); devices; devices = list->Next())
            for (const OrvCam::DeviceDescription *device = devices->First(); device; device = devices->Next())
                if (device->serial == kSerial)
                    found = *device;
        list->Release();
        ASSERT_TRUE(found);
        OrvCam::Device *device = OrvCam_CreateDevice(&*found, OrvCam::ORV_ACCESS_CONTROL, 0);
        ASSERT_NE(device, nullptr);
        window.resize(800, 600);
        window.show();
        ASSERT_TRUE(window.Manager().CreateSession(device));
        ASSERT_TRUE(WaitFor([&] { return Current()->State() == Idle; }));
    }

    std::unique_ptr<orvsim::GigeCamera> m_camera;
};

TEST_F(WhyNoPicture, ATriggerIsNamedAndItsButtonBringsPictures)
{
    ASSERT_NO_FATAL_FAILURE(Play({}, {{"TriggerMode", "On"}}));
    if (IsSkipped())
        return;
    ASSERT_NO_FATAL_FAILURE(ExpectTheBar());
    EXPECT_THAT(Text("finding"), HasSubstr("TriggerMode is On"));
    EXPECT_THAT(Text("finding"), HasSubstr("Software"));
    Bar()->findChild<QPushButton *>("cure")->click();
    EXPECT_TRUE(PicturesComeWithoutABar());
}

TEST_F(WhyNoPicture, NotOnePacket)
{
    orvsim::Faults faults;
    faults.dropRate = 1;
    ASSERT_NO_FATAL_FAILURE(Play(faults));
    if (IsSkipped())
        return;
    ASSERT_NO_FATAL_FAILURE(ExpectTheBar());
    EXPECT_THAT(Text("finding"), HasSubstr("not one stream packet"));
    EXPECT_THAT(Text("remedy"), HasSubstr("The camera sends nothing"));
}

} // namespace
