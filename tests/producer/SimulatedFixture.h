#pragma once

#include "ProducerFixture.h"
#include "simulator/gige/GigeCamera.h"

#include <map>

/// With a software camera of this process, on the loopback interface.
class SimulatedTest : public ProducerTest {
protected:
    static constexpr std::uint32_t kSimulatedAddress = 0x7F00000E; // 127.0.0.14

    void SetUp() override
    {
        ProducerTest::SetUp();
        OpenInterface();
    }
    void TearDown() override
    {
        ProducerTest::TearDown();
        camera.reset();
    }

    static orvsim::CameraOptions SmallCamera()
    {
        orvsim::CameraOptions options;
        options.serial = "SIM-PRODUCER";
        options.sensor.width = 64;
        options.sensor.height = 48;
        options.frameRate = 20;
        options.frameMemory = 1 << 20;
        return options;
    }
    void StartCamera(orvsim::GigeOptions gige = {})
    {
        gige.address = kSimulatedAddress;
        camera = std::make_unique<orvsim::GigeCamera>(SmallCamera(), gige);
        ASSERT_EQ(camera->Open(), "");
    }
    void OpenDevice(const char *name = "SIM-PRODUCER", DEVICE_ACCESS_FLAGS access = DEVICE_ACCESS_CONTROL)
    {
        ASSERT_EQ(ProducerTest::OpenDevice(name, access), GC_ERR_SUCCESS) << LastError();
    }
    void Set(const std::string &feature, const std::string &text)
    {
        std::string problem;
        EXPECT_EQ(camera->Core().SetFeature(feature, text, problem), orvsim::Outcome::Ok) << feature << problem;
    }
    /// Lets one frame come.
    BUFFER_HANDLE TakeOneFrame()
    {
        EXPECT_EQ(Gc().DSStartAcquisition(stream, ACQ_START_FLAGS_DEFAULT, 1), GC_ERR_SUCCESS) << LastError();
        Set("AcquisitionStart", "1");
        const BUFFER_HANDLE buffer = Fetch();
        Set("AcquisitionStop", "1");
        return buffer;
    }

    std::unique_ptr<orvsim::GigeCamera> camera;
};
