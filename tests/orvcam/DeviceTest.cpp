#include "ScriptedFixture.h"

#include "base/Mutex.h"
#include "orvcam/OrvStatus.h"

#include <gmock/gmock.h>

#include <condition_variable>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <sys/resource.h>

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;
using testing::HasSubstr;
using testing::Not;

/// Counts calls and keeps the data; may hold its caller up.
struct Listener {
    std::mutex mutex;
    std::condition_variable changed;
    int calls = 0;
    bool inside = false;
    bool hold = false;
    std::string data;
    std::thread::id thread;
    std::function<void()> during;

    static void Call(const void *data, unsigned long size, void *context)
    {
        auto *self = static_cast<Listener *>(context);
        std::unique_lock<std::mutex> lock(self->mutex);
        ++self->calls;
        self->data.assign(static_cast<const char *>(data), size);
        self->thread = std::this_thread::get_id();
        self->inside = true;
        self->changed.notify_all();
        if (self->during)
            self->during();
        while (self->hold)
            self->changed.wait(lock);
        self->inside = false;
    }
    int Calls()
    {
        std::lock_guard<std::mutex> lock(mutex);
        return calls;
    }
    void LetGo()
    {
        std::lock_guard<std::mutex> lock(mutex);
        hold = false;
        changed.notify_all();
    }
};

class Device : public ScriptedTest {};

TEST_F(Device, LossIsToldOnceAndEverythingFailsFast)
{
    Listener listener;
    ASSERT_EQ(ORV_CAM_OK, device->RegisterEvent(OrvCam::kEventDeviceLost, Listener::Call, &listener));
    EXPECT_EQ(ORV_CAM_ERR_INVALID_STATE, device->RegisterEvent(OrvCam::kEventDeviceLost, Listener::Call, &listener));
    Start();
    OrvCam::Buffer *lent = Next();
    std::atomic<int> result{1};
    std::thread waiter([&] {
        int status = 0;
        stream->GetBuffer(OrvCam::kInfinite, &status);
        result = status;
    });
    script->lose();
    waiter.join();
    EXPECT_EQ(ORV_CAM_ERR_DEVICE_LOST, result);
    EXPECT_TRUE(WaitFor([&] { return listener.Calls() == 1; }));
    EXPECT_STREQ("cable pulled", listener.data.c_str());

    const int accesses = script->portAccesses;
    int status = 0;
    OrvCam::FeatureArray *features = device->GetCameraParameters();
    features->GetInt("Width")->GetValue(&status);
    EXPECT_EQ(ORV_CAM_ERR_DEVICE_LOST, status);
    EXPECT_EQ(ORV_CAM_ERR_DEVICE_LOST, features->SetIntegerValue("Width", 4));
    EXPECT_EQ(accesses, script->portAccesses) << "the camera is not asked any more";
    EXPECT_EQ(nullptr, stream->GetBuffer(OrvCam::kInfinite, &status));
    EXPECT_EQ(ORV_CAM_ERR_DEVICE_LOST, status);
    stream->QueueBuffer(lent);
    EXPECT_EQ(ORV_CAM_OK, stream->StopAcquisition(1));
    EXPECT_EQ(ORV_CAM_ERR_DEVICE_LOST, stream->StartAcquisition(OrvCam::kInfinite, 0));
    EXPECT_EQ(ORV_CAM_ERR_DEVICE_LOST, stream->AllocBufferQueue(nullptr, 3));
    EXPECT_EQ(ORV_CAM_ERR_DEVICE_LOST, device->SaveFeatures("unused"));
    script->lose();
    EXPECT_EQ(ORV_CAM_OK, device->UnregisterEvent(OrvCam::kEventDeviceLost, Listener::Call, &listener));
    EXPECT_EQ(1, listener.Calls());
    const auto start = steady_clock::now();
    Release();
    EXPECT_LT(steady_clock::now() - start, milliseconds(500));
}

TEST_F(Device, LossInEachStateLeavesNothingBehind)
{
    const struct {
        const char *state;
        std::function<void()> enter;
    } kStates[] = {
        {"opened", [] {}},
        {"buffers announced", [this] { EXPECT_EQ(ORV_CAM_OK, stream->AllocBufferQueue(this, 3)); }},
        {"running", [this] { Start(); }},
        {"frame waiting", [this] { Start(), script->deliver(); }},
        {"stopped", [this] { Start(), stream->StopAcquisition(0); }},
    };
    for (const auto &row : kStates) {
        SCOPED_TRACE(row.state);
        script->reset();
        row.enter();
        std::atomic<int> lost{0};
        device->RegisterEvent(
            OrvCam::kEventDeviceLost,
            [](const void *, unsigned long, void *to) { ++*static_cast<std::atomic<int> *>(to); }, &lost);
        script->lose();
        EXPECT_TRUE(WaitFor([&] { return lost == 1; }));
        const auto start = steady_clock::now();
        Release();
        EXPECT_LT(steady_clock::now() - start, milliseconds(500));
        EXPECT_EQ(0, script->announced + script->streamsOpen + script->devicesOpen + script->eventsRegistered);
        script->reset();
        Open();
    }
}

/// The camera goes in the middle of a call: it comes back with the loss, and soon.
TEST_F(Device, LossInTheMiddleOfACall)
{
    const std::string path = testing::TempDir() + "orv_loss" + std::to_string(getpid()) + ".zccf";
    ASSERT_EQ(ORV_CAM_OK, device->SaveFeatures(path.c_str()));
    const auto sizeBefore = std::filesystem::file_size(path);
    const std::function<int()> kLoad = [&] { return device->LoadFeatures(path.c_str()); };
    const std::function<int()> kSave = [&] { return device->SaveFeatures(path.c_str()); };
    const struct {
        const char *state;
        int atAccess; ///< 0: while stopping
        std::function<int()> call;
        int status;
    } kCalls[] = {
        {"saving, at the first feature", 1, kSave, ORV_CAM_ERR_DEVICE_LOST},
        {"saving, half way", 5, kSave, ORV_CAM_ERR_DEVICE_LOST},
        {"loading, at the first feature", 1, kLoad, ORV_CAM_ERR_DEVICE_LOST},
        {"loading, half way", 5, kLoad, ORV_CAM_ERR_DEVICE_LOST},
        {"preparing a stream", 1, [&] { return stream->AllocBufferQueue(this, 3); }, ORV_CAM_ERR_DEVICE_LOST},
        {"stopping", 0, [&] { return Start(), script->loseAtStop = 1, stream->StopAcquisition(0); }, ORV_CAM_OK},
    };
    for (const auto &row : kCalls) {
        SCOPED_TRACE(row.state);
        script->reset();
        std::atomic<int> lost{0};
        device->RegisterEvent(
            OrvCam::kEventDeviceLost,
            [](const void *, unsigned long, void *to) { ++*static_cast<std::atomic<int> *>(to); }, &lost);
        script->loseAtAccess = row.atAccess;
        const auto start = steady_clock::now();
        EXPECT_EQ(row.status, row.call());
        EXPECT_TRUE(WaitFor([&] { return lost == 1; }));
        EXPECT_EQ(ORV_CAM_ERR_DEVICE_LOST, stream->StartAcquisition(OrvCam::kInfinite, 0));
        Release();
        EXPECT_LT(steady_clock::now() - start, milliseconds(2000));
        EXPECT_EQ(0, script->announced + script->streamsOpen + script->devicesOpen + script->eventsRegistered);
        EXPECT_EQ(sizeBefore, std::filesystem::file_size(path)) << "the old file stays whole";
        script->running = 0;
        script->reset();
        Open();
    }
    std::filesystem::remove(path);
}

TEST_F(Device, LossBeforeRegistrationIsToldAtOnceOnAnotherThread)
{
    script->lose();
    OrvCam::IntegerNode *width = device->GetCameraParameters()->GetInt("Width");
    EXPECT_TRUE(WaitFor([&] {
        int status = 0;
        width->GetValue(&status);
        return status == ORV_CAM_ERR_DEVICE_LOST;
    }));
    Listener listener;
    ASSERT_EQ(ORV_CAM_OK, device->RegisterEvent(OrvCam::kEventDeviceLost, Listener::Call, &listener));
    EXPECT_TRUE(WaitFor([&] { return listener.Calls() == 1; }));
    EXPECT_NE(std::this_thread::get_id(), listener.thread);
    EXPECT_EQ(ORV_CAM_OK, device->UnregisterEvent(OrvCam::kEventDeviceLost, Listener::Call, &listener));
    Listener next;
    ASSERT_EQ(ORV_CAM_OK, device->RegisterEvent(OrvCam::kEventDeviceLost, Listener::Call, &next));
    EXPECT_TRUE(WaitFor([&] { return next.Calls() == 1; })) << "each registration is told";
    EXPECT_EQ(1u, device->GetEventFigures(OrvCam::kEventDeviceLost).fired);
}

/// Where nobody tells of the loss, the camera is asked.
TEST(LossWatch, FindsOutByAsking)
{
    const struct {
        const char *rule;
        const char *producer;
        std::function<void(Script &)> go;
    } kRows[] = {
        {"another maker's", "Scripted.cti", [](Script &script) { script.lose(); }},
        {"of the first version", "ScriptedFirst.cti", [](Script &script) { script.lose(); }},
        {"its handle is not valid any more", "Scripted.cti",
         [](Script &script) { script.portResult = script.eventResult = GC_ERR_INVALID_HANDLE; }},
        {"ours, whose event has failed", "ScriptedOurs.cti",
         [](Script &script) { script.lostEventResult = GC_ERR_IO, script.fire(1004, "", 1), script.lose(); }},
    };
    for (const auto &row : kRows) {
        SCOPED_TRACE(row.rule);
        Script &script = *ScriptOf(row.producer);
        script.reset();
        const OrvCam::DeviceDescription camera = ScriptedCamera(row.producer);
        OrvCam::Device *device = OrvCam_CreateDevice(&camera, OrvCam::ORV_ACCESS_CONTROL, 0);
        ASSERT_NE(nullptr, device);
        Listener listener;
        ASSERT_EQ(ORV_CAM_OK, device->RegisterEvent(OrvCam::kEventDeviceLost, Listener::Call, &listener));
        OrvCam::Stream *stream = device->GetStreamByIndex(0);
        EXPECT_EQ(ORV_CAM_OK, stream->AllocBufferQueue(nullptr, 3));
        EXPECT_EQ(ORV_CAM_OK, stream->StartAcquisition(OrvCam::kInfinite, 0));
        row.go(script);
        int status = ORV_CAM_OK;
        EXPECT_EQ(nullptr, stream->GetBuffer(OrvCam::kInfinite, &status));
        EXPECT_EQ(ORV_CAM_ERR_DEVICE_LOST, status);
        EXPECT_TRUE(WaitFor([&] { return listener.Calls() == 1; }));
        device->Release();
        EXPECT_EQ(0, script.announced + script.streamsOpen + script.devicesOpen + script.eventsRegistered);
        script.running = 0;
        script.reset();
    }
}

/// A camera that is deaf for a while, and lets us wait for one answer for longer still, is not lost.
TEST(LossWatch, ABusyCameraIsNotLost)
{
    Script &script = *ScriptOf("Scripted.cti");
    script.reset();
    const OrvCam::DeviceDescription camera = ScriptedCamera("Scripted.cti");
    OrvCam::Device *device = OrvCam_CreateDevice(&camera, OrvCam::ORV_ACCESS_CONTROL, 0);
    ASSERT_NE(nullptr, device);
    OrvCam::IntegerNode *width = device->GetCameraParameters()->GetInt("Width");
    ASSERT_NE(nullptr, width);
    int status = ORV_CAM_OK;
    script.portResult = GC_ERR_TIMEOUT;
    script.portAccesses = 0;
    EXPECT_TRUE(WaitFor([&] { return script.portAccesses >= 2; })) << "two questions without an answer";
    width->GetValue(&status);
    EXPECT_EQ(ORV_CAM_ERR_TIMEOUT, status);
    script.portResult = GC_ERR_SUCCESS;
    EXPECT_EQ(8, width->GetValue(&status));
    EXPECT_EQ(ORV_CAM_OK, status);
    device->Release();
}

TEST_F(Device, TrafficEventsReachTheirCallback)
{
    Listener listener;
    ASSERT_EQ(ORV_CAM_OK, device->RegisterEvent(1000, Listener::Call, &listener));
    EXPECT_EQ(ORV_CAM_ERR_INVALID_STATE, device->RegisterEvent(1000, Listener::Call, &listener));
    EXPECT_EQ(ORV_CAM_ERR_NOT_IMPLEMENTED, device->RegisterEvent(1001, Listener::Call, &listener));
    EXPECT_EQ(ORV_CAM_ERR_INVALID_PARAMETER, device->RegisterEvent(1000, nullptr, nullptr));
    const std::string large(100000, 'x'); // more than the thread's first buffer
    script->fire(1000, "abc", 3);
    script->fire(1000, large.data(), large.size());
    EXPECT_TRUE(WaitFor([&] { return listener.Calls() == 2; }));
    EXPECT_EQ(large, listener.data);
    script->tellsFigures = 1;
    EXPECT_EQ(2u, device->GetEventFigures(1000).fired);
    EXPECT_EQ(5u, device->GetEventFigures(1000).dropped);
    EXPECT_EQ(0u, device->GetEventFigures(1001).dropped);
    EXPECT_EQ(ORV_CAM_ERR_INVALID_PARAMETER, device->UnregisterEvent(1000, Listener::Call, nullptr));
    EXPECT_EQ(ORV_CAM_OK, device->UnregisterEvent(1000, Listener::Call, &listener));
    script->fire(1000, "abc", 3);
    ASSERT_EQ(ORV_CAM_OK, device->RegisterEvent(1000, Listener::Call, &listener)) << "again";
    script->fire(1000, "de", 2);
    EXPECT_TRUE(WaitFor([&] { return listener.Calls() == 3; }));
    EXPECT_EQ("de", listener.data);
}

TEST_F(Device, FailuresNowAndThenDoNotEndAnEvent)
{
    Listener listener;
    ASSERT_EQ(ORV_CAM_OK, device->RegisterEvent(1000, Listener::Call, &listener));
    script->trafficFailures = 6;
    EXPECT_TRUE(WaitFor([&] { return script->trafficFailures == 0; }));
    script->fire(1000, "abc", 3);
    EXPECT_TRUE(WaitFor([&] { return listener.Calls() == 1; }));
}

/// The end of a registration waits for the running call, and the call may use the device meanwhile.
TEST_F(Device, UnregisteringWaitsForTheRunningCallback)
{
    for (const int type : {1000, OrvCam::kEventDeviceLost}) {
        SCOPED_TRACE(type);
        Listener listener;
        listener.hold = true;
        ASSERT_EQ(ORV_CAM_OK, device->RegisterEvent(type, Listener::Call, &listener));
        if (type == 1000)
            script->fire(1000, "abc", 3);
        else
            script->lose();
        EXPECT_TRUE(WaitFor([&] { return listener.Calls() == 1; }));
        std::atomic<bool> done{false};
        std::thread ender([&] {
            device->UnregisterEvent(type, Listener::Call, &listener);
            done = true;
        });
        Listener other;
        EXPECT_EQ(ORV_CAM_ERR_NOT_IMPLEMENTED, device->RegisterEvent(1001, Listener::Call, &other));
        EXPECT_EQ(4711, std::stoi(device->GetDescription().serial));
        EXPECT_FALSE(done);
        listener.LetGo();
        ender.join();
        EXPECT_FALSE(listener.inside);
    }
}

TEST_F(Device, CallbackMayEndItsOwnRegistration)
{
    Listener listener;
    listener.hold = true;
    listener.during = [&] { EXPECT_EQ(ORV_CAM_OK, device->UnregisterEvent(1000, Listener::Call, &listener)); };
    ASSERT_EQ(ORV_CAM_OK, device->RegisterEvent(1000, Listener::Call, &listener));
    script->fire(1000, "a", 1);
    script->fire(1000, "b", 1);
    EXPECT_TRUE(WaitFor([&] { return listener.Calls() == 1; }));
    // Who registers before that call has ended waits for it.
    Listener next;
    std::atomic<int> status{1};
    std::atomic<bool> isRegistering{false};
    std::thread registering([&] {
        isRegistering = true;
        status = device->RegisterEvent(1000, Listener::Call, &next);
    });
    EXPECT_TRUE(WaitFor([&] { return isRegistering.load(); }));
    EXPECT_FALSE(WaitFor([&] { return status != 1; }, std::chrono::milliseconds(30)));
    listener.LetGo();
    registering.join();
    EXPECT_EQ(ORV_CAM_OK, status);
    script->fire(1000, "c", 1);
    EXPECT_TRUE(WaitFor([&] { return next.Calls() == 1; }));
    next.during = [&] { device->UnregisterEvent(1000, Listener::Call, &next); };
    script->fire(1000, "d", 1);
    EXPECT_TRUE(WaitFor([&] { return script->eventsRegistered == 2; }))
        << "without its listener it is captured no more";
    Release();
    EXPECT_EQ(1, listener.Calls());
}

/// A camera that takes its time to switch an event on holds up nobody else.
TEST_F(Device, RegistrationsDoNotWaitForEachOther)
{
    Listener listener;
    script->holdRegistration = 1;
    int status = 1;
    std::thread slow([&] { status = device->RegisterEvent(1000, Listener::Call, &listener); });
    EXPECT_TRUE(WaitFor([&] {
        return device->RegisterEvent(EVENT_NEW_BUFFER, Listener::Call, &listener) == ORV_CAM_ERR_NOT_IMPLEMENTED &&
               script->registering == 1;
    }));
    EXPECT_EQ(ORV_CAM_ERR_INVALID_STATE, device->RegisterEvent(1000, Listener::Call, &listener)) << "taken already";
    script->holdRegistration = 0;
    EXPECT_EQ(ORV_CAM_OK, device->UnregisterEvent(1000, Listener::Call, &listener)) << "once it is there";
    slow.join();
    EXPECT_EQ(ORV_CAM_OK, status);
}

TEST(ForeignDevice, CustomEventsAreLeftAlone)
{
    ScriptOf("Scripted.cti")->reset();
    const OrvCam::DeviceDescription camera = ScriptedCamera("Scripted.cti");
    OrvCam::Device *device = OrvCam_CreateDevice(&camera, OrvCam::ORV_ACCESS_CONTROL, 0);
    ASSERT_NE(nullptr, device);
    Listener listener;
    EXPECT_EQ(ORV_CAM_ERR_NOT_IMPLEMENTED, device->RegisterEvent(1000, Listener::Call, &listener));
    EXPECT_EQ(nullptr, device->GetStreamByIndex(1));
    EXPECT_EQ(nullptr, device->GetCameraParameters(1));
    EXPECT_EQ(1u, device->GetStreamCount());
    device->Release();
}

/// Configuration files.
class Configuration : public ScriptedTest {
protected:
    void SetUp() override
    {
        ScriptedTest::SetUp();
        m_folder = testing::TempDir() + "orv_configuration";
        std::filesystem::create_directories(m_folder);
        m_path = m_folder + "/gr\xC3\xBC\xC3\x9F & <so>.zccf";
        m_features = device->GetCameraParameters();
    }
    void TearDown() override
    {
        std::filesystem::remove_all(m_folder);
        ScriptedTest::TearDown();
    }
    std::string Content() const
    {
        std::ifstream file(m_path);
        return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
    }
    void Write(const std::string &text) const { std::ofstream(m_path) << text; }

    std::string m_folder;
    std::string m_path;
    OrvCam::FeatureArray *m_features = nullptr;
};

TEST_F(Configuration, WhatWasSavedComesBack)
{
    // Offset and width fill the sensor together, so the way back needs a second round in either direction.
    m_features->SetIntegerValue("Width", 10);
    m_features->SetIntegerValue("OffsetX", 54);
    m_features->GetFloat("Gain")->SetValue(0.1);
    m_features->GetString("UserId")->SetValue("a<b>&\"c\" \xC3\xA4 ");
    ASSERT_EQ(ORV_CAM_OK, device->SaveFeatures(m_path.c_str()));
    EXPECT_THAT(Content(), HasSubstr("value=\"0.1\""));
    EXPECT_THAT(Content(), HasSubstr("serial=\"4711\""));
    EXPECT_THAT(Content(), Not(HasSubstr("PayloadSize"))) << "neither streamable nor writable";

    m_features->SetIntegerValue("OffsetX", 0);
    m_features->SetIntegerValue("Width", 60);
    m_features->GetFloat("Gain")->SetValue(2);
    m_features->GetString("UserId")->SetValue("other");
    ASSERT_EQ(ORV_CAM_OK, device->LoadFeatures(m_path.c_str()));
    EXPECT_EQ(10, m_features->GetInt("Width")->GetValue());
    EXPECT_EQ(54, m_features->GetInt("OffsetX")->GetValue());
    EXPECT_EQ(0.1, m_features->GetFloat("Gain")->GetValue());
    EXPECT_EQ("a<b>&\"c\" \xC3\xA4 ", m_features->GetString("UserId")->GetValue());

    Write("<?xml version=\"1.0\"?><CameraConfiguration formatVersion=\"1\"><Feature name=\"Width\" value=\"20\"/>"
          "<Feature name=\"OffsetX\" value=\"30\"/></CameraConfiguration>");
    EXPECT_EQ(ORV_CAM_OK, device->LoadFeatures(m_path.c_str())) << "width fits only after the offset is smaller";
    EXPECT_EQ(20, m_features->GetInt("Width")->GetValue());
    EXPECT_EQ(30, m_features->GetInt("OffsetX")->GetValue());
}

TEST_F(Configuration, WhatIsSavedWhileStreamingIsWhole)
{
    m_features->SetIntegerValue("Width", 10);
    Start();
    m_features->SetIntegerValue("TLParamsLocked", 1);
    EXPECT_EQ(ORV_CAM_ERR_NOT_WRITABLE, m_features->SetIntegerValue("Width", 60));
    ASSERT_EQ(ORV_CAM_OK, device->SaveFeatures(m_path.c_str()));
    m_features->SetIntegerValue("TLParamsLocked", 0);
    stream->StopAcquisition(0);
    m_features->SetIntegerValue("Width", 60);
    ASSERT_EQ(ORV_CAM_OK, device->LoadFeatures(m_path.c_str()));
    EXPECT_EQ(10, m_features->GetInt("Width")->GetValue());
}

TEST_F(Configuration, FilesThatAreNone)
{
    const std::string head = "<CameraConfiguration formatVersion=\"1\">";
    const struct {
        const char *rule;
        std::string text;
        int status;
    } kCases[] = {
        {"empty", "", ORV_CAM_ERR_FILE},
        {"text", "Width=5", ORV_CAM_ERR_FILE},
        {"other XML", "<svg/>", ORV_CAM_ERR_FILE},
        {"cut off", head + "<Feature name=\"Width\" value=\"5\"/>", ORV_CAM_ERR_FILE},
        {"entities", "<!DOCTYPE a [<!ENTITY b \"5\">]>" + head + "</CameraConfiguration>", ORV_CAM_ERR_FILE},
        {"a later format", "<CameraConfiguration formatVersion=\"2\"></CameraConfiguration>", ORV_CAM_ERR_FILE},
        {"unknown feature", head + "<Feature name=\"Fantasy\" value=\"5\"/></CameraConfiguration>",
         ORV_CAM_ERR_GENICAM},
        {"out of range", head + "<Feature name=\"Gain\" value=\"99\"/></CameraConfiguration>", ORV_CAM_ERR_GENICAM},
        {"decimal comma", head + "<Feature name=\"Gain\" value=\"1,5\"/></CameraConfiguration>", ORV_CAM_ERR_GENICAM},
        {"no number", head + "<Feature name=\"Width\" value=\"5x\"/></CameraConfiguration>", ORV_CAM_ERR_GENICAM},
        {"nothing to set", head + "</CameraConfiguration>", ORV_CAM_OK},
    };
    for (const auto &row : kCases) {
        SCOPED_TRACE(row.rule);
        Write(row.text);
        EXPECT_EQ(row.status, device->LoadFeatures(m_path.c_str()));
        EXPECT_EQ(8, m_features->GetInt("Width")->GetValue());
    }
    EXPECT_EQ(ORV_CAM_ERR_FILE, device->LoadFeatures((m_folder + "/missing").c_str()));
    EXPECT_EQ(ORV_CAM_ERR_FILE, device->LoadFeatures(m_folder.c_str()));
    EXPECT_EQ(ORV_CAM_ERR_INVALID_PARAMETER, device->LoadFeatures(nullptr));
    Start();
    EXPECT_EQ(ORV_CAM_ERR_INVALID_STATE, device->LoadFeatures(m_path.c_str())) << "while streaming";
}

TEST_F(Configuration, AFailedSaveKeepsTheOldFile)
{
    Write("old");
    script->portResult = GC_ERR_IO;
    EXPECT_EQ(ORV_CAM_ERR_GENICAM, device->SaveFeatures(m_path.c_str()));
    script->portResult = GC_ERR_SUCCESS;
    EXPECT_EQ("old", Content());
    EXPECT_EQ(ORV_CAM_ERR_FILE, device->SaveFeatures((m_folder + "/no/such/folder.zccf").c_str()));
    EXPECT_EQ(ORV_CAM_ERR_FILE, device->SaveFeatures(m_folder.c_str()));

    // No byte more fits: as with a full disk.
    rlimit before = {};
    getrlimit(RLIMIT_FSIZE, &before);
    const rlimit none = {16, before.rlim_max};
    const auto handler = std::signal(SIGXFSZ, SIG_IGN);
    setrlimit(RLIMIT_FSIZE, &none);
    const int status = device->SaveFeatures(m_path.c_str());
    setrlimit(RLIMIT_FSIZE, &before);
    std::signal(SIGXFSZ, handler);
    EXPECT_EQ(ORV_CAM_ERR_FILE, status);
    EXPECT_EQ("old", Content());
    EXPECT_EQ(1, std::distance(std::filesystem::directory_iterator(m_folder), {})) << "no pieces left";
}

TEST_F(Configuration, OpensTheCameraItWasSavedFrom)
{
    m_features->SetIntegerValue("Width", 12);
    ASSERT_EQ(ORV_CAM_OK, device->SaveFeatures(m_path.c_str()));
    m_features->SetIntegerValue("Width", 8);
    Release();
    OrvCam::System *system = OrvCam_GetSystem();
    device = system->CreateDeviceFromConfiguration(m_path.c_str(), 0);
    ASSERT_NE(nullptr, device);
    EXPECT_EQ("4711", device->GetDescription().serial);
    EXPECT_EQ(12, device->GetCameraParameters()->GetInt("Width")->GetValue());
    Release();

    std::string text = Content();
    script->twin = 1;
    device = system->CreateDeviceFromConfiguration(m_path.c_str(), 0);
    ASSERT_NE(nullptr, device) << "the one that can be reached, though the other is listed first";
    EXPECT_EQ(ORV_CAM_OK, system->LastError(nullptr));
    Release();
    Write(std::string(text).replace(text.find("\"Width\""), 7, "\"Wodth\""));
    device = system->CreateDeviceFromConfiguration(m_path.c_str(), 0);
    ASSERT_NE(nullptr, device);
    std::string why;
    EXPECT_EQ(ORV_CAM_ERR_GENICAM, system->LastError(&why));
    EXPECT_THAT(why, HasSubstr("Not all"));
    Release();
    script->portResult = GC_ERR_TIMEOUT;
    EXPECT_EQ(nullptr, system->CreateDeviceFromConfiguration(m_path.c_str(), 0)) << "nothing can be applied";
    EXPECT_EQ(ORV_CAM_ERR_XML, system->LastError(nullptr));
    script->reset();

    Write(text.replace(text.find("4711"), 4, "4712"));
    EXPECT_EQ(nullptr, system->CreateDeviceFromConfiguration(m_path.c_str(), 0));
    EXPECT_EQ(ORV_CAM_ERR_NOT_FOUND, system->LastError(&text));
    EXPECT_THAT(text, HasSubstr("(SN 4712)"));
    Write("nonsense");
    EXPECT_EQ(nullptr, system->CreateDeviceFromConfiguration(m_path.c_str(), 0));
    EXPECT_EQ(ORV_CAM_ERR_FILE, system->LastError(&text));
    EXPECT_EQ(nullptr, system->CreateDeviceFromConfiguration(nullptr, 0));
}

} // namespace
