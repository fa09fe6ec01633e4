#pragma once

#include "ScriptedProducer.h"

#include "orvcam/OrvCam.h"
#include "support/Eventually.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <dlfcn.h>
#include <functional>
#include <string>
#include <thread>

inline bool WaitFor(const std::function<bool()> &condition)
{
    return Eventually(condition);
}

/// The system with the scripted producers: Scripted.cti, ScriptedFirst.cti (functions of the first version only) and
/// ScriptedOurs.cti (passes for our own). All offer the same camera. LeftOut.cti lies beside them, and is not to be
/// loaded.
inline OrvCam::System *ScriptedSystem()
{
    static const bool set = setenv("GENICAM_GENTL64_PATH", SCRIPTED_FOLDER, 1) == 0 &&
                            setenv("ORV_SKIP_PRODUCERS", "Other.cti:LeftOut.cti", 1) == 0;
    return set ? OrvCam_GetSystem() : nullptr;
}

inline Script *ScriptOf(const std::string &producer)
{
    ScriptedSystem();
    void *library = dlopen((SCRIPTED_FOLDER "/" + producer).c_str(), RTLD_NOW | RTLD_NOLOAD);
    auto *find = library != nullptr ? reinterpret_cast<Script *(*)()>(dlsym(library, "TheScript")) : nullptr;
    return find != nullptr ? find() : nullptr;
}

inline OrvCam::DeviceDescription ScriptedCamera(const std::string &producer)
{
    OrvCam::DeviceDescription camera;
    camera.id = "cam0";
    camera.vendor = "Nuvark";
    camera.model = "Cam";
    camera.serial = "4711";
    camera.interface.id = "if0";
    camera.interface.text = "memory";
    camera.interface.producer = producer;
    return camera;
}

/// A scripted camera, opened for each test and checked for leftovers after it.
class ScriptedTest : public testing::Test {
protected:
    explicit ScriptedTest(const char *producer = "ScriptedOurs.cti") : m_producer(producer) {}

    void SetUp() override
    {
        script = ScriptOf(m_producer);
        ASSERT_NE(nullptr, script);
        script->reset();
        Open();
    }
    void TearDown() override
    {
        Release();
        EXPECT_EQ(0, script->devicesOpen);
        EXPECT_EQ(0, script->streamsOpen);
        EXPECT_EQ(0, script->announced);
        EXPECT_EQ(0, script->eventsRegistered);
        EXPECT_EQ(0, script->running);
    }
    void Open()
    {
        const OrvCam::DeviceDescription camera = ScriptedCamera(m_producer);
        device = OrvCam_CreateDevice(&camera, OrvCam::ORV_ACCESS_CONTROL, 0);
        ASSERT_NE(nullptr, device);
        stream = device->GetStreamByIndex(0);
        ASSERT_NE(nullptr, stream);
    }
    void Release()
    {
        if (device != nullptr)
            device->Release();
        device = nullptr;
    }
    void Start(unsigned buffers = 3)
    {
        ASSERT_EQ(ORV_CAM_OK, stream->AllocBufferQueue(this, buffers));
        ASSERT_EQ(ORV_CAM_OK, stream->StartAcquisition(OrvCam::kInfinite, 0));
    }
    void Restart()
    {
        EXPECT_EQ(ORV_CAM_OK, stream->StopAcquisition(1));
        EXPECT_EQ(ORV_CAM_OK, stream->StartAcquisition(OrvCam::kInfinite, 0));
    }
    /// \return the status of a fetch that yields nothing.
    int FetchNothing(std::uint64_t timeoutMs)
    {
        int status = 0;
        EXPECT_EQ(nullptr, stream->GetBuffer(timeoutMs, &status));
        return status;
    }
    /// Delivers one frame and fetches it.
    OrvCam::Buffer *Next(int *status = nullptr)
    {
        EXPECT_EQ(1, script->deliver());
        int ignored = 0;
        return stream->GetBuffer(20000, status != nullptr ? status : &ignored);
    }

    const std::string m_producer;
    Script *script = nullptr;
    OrvCam::Device *device = nullptr;
    OrvCam::Stream *stream = nullptr;
};
