#include "ScriptedFixture.h"

#include "orvcam/OrvStatus.h"

#include <condition_variable>
#include <filesystem>
#include <mutex>

namespace {

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

class Device : public ScriptedTest {
protected:
    using ScriptedTest::ScriptedTest;

    int Register(int type, Listener &listener) { return device->RegisterEvent(type, Listener::Call, &listener); }
    int Unregister(int type, Listener &listener) { return device->UnregisterEvent(type, Listener::Call, &listener); }
    static bool IsTold(Listener &listener, int calls = 1)
    {
        return WaitFor([&] { return listener.Calls() == calls; });
    }
    void ReleaseAll()
    {
        Release();
        EXPECT_EQ(0, script->announced + script->streamsOpen + script->devicesOpen + script->eventsRegistered);
    }
};

class ForeignDevice : public Device {
protected:
    ForeignDevice() : Device("Scripted.cti") {}
};

TEST_F(Device, LossIsToldOnceAndTheCameraIsNotAskedAnyMore)
{
    Listener listener;
    ASSERT_EQ(ORV_CAM_OK, Register(OrvCam::kEventDeviceLost, listener));
    EXPECT_EQ(ORV_CAM_ERR_INVALID_STATE, Register(OrvCam::kEventDeviceLost, listener));
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
    EXPECT_TRUE(IsTold(listener));
    EXPECT_STREQ("cable pulled", listener.data.c_str());

    const int accesses = script->portAccesses;
    int status = 0;
    OrvCam::FeatureArray *features = device->GetCameraParameters();
    features->GetInt("Width")->GetValue(&status);
    EXPECT_EQ(ORV_CAM_ERR_DEVICE_LOST, status);
    EXPECT_EQ(ORV_CAM_ERR_DEVICE_LOST, features->SetIntegerValue("Width", 4));
    EXPECT_EQ(accesses, script->portAccesses) << "the camera is not asked any more";
    EXPECT_EQ(ORV_CAM_ERR_DEVICE_LOST, FetchNothing(OrvCam::kInfinite));
    stream->QueueBuffer(lent);
    EXPECT_EQ(ORV_CAM_OK, stream->StopAcquisition(1));
    EXPECT_EQ(ORV_CAM_ERR_DEVICE_LOST, stream->StartAcquisition(OrvCam::kInfinite, 0));
    EXPECT_EQ(ORV_CAM_ERR_DEVICE_LOST, stream->AllocBufferQueue(nullptr, 3));
    EXPECT_EQ(ORV_CAM_ERR_DEVICE_LOST, device->SaveFeatures("unused"));
    script->lose();
    EXPECT_EQ(ORV_CAM_OK, Unregister(OrvCam::kEventDeviceLost, listener));
    EXPECT_EQ(1, listener.Calls());
    ReleaseAll();
}

/// Whatever goes on when the camera goes: the call comes back with the loss, and nothing stays behind.
TEST_F(Device, LossAtAnyTime)
{
    const std::string path = testing::TempDir() + "orv_loss" + std::to_string(getpid()) + ".zccf";
    ASSERT_EQ(ORV_CAM_OK, device->SaveFeatures(path.c_str()));
    const auto sizeBefore = std::filesystem::file_size(path);
    const std::function<int()> kLose = [&] { return script->lose(), ORV_CAM_OK; };
    const std::function<int()> kAnnounce = [&] { return stream->AllocBufferQueue(this, 3); };
    const std::function<int()> kLoad = [&] { return device->LoadFeatures(path.c_str()); };
    const std::function<int()> kSave = [&] { return device->SaveFeatures(path.c_str()); };
    const struct {
        const char *state;
        std::function<int()> call;
        int status = ORV_CAM_OK;
        int atAccess = 0; ///< with which the camera goes; 0: the call sees to it
    } kCalls[] = {
        {"opened", kLose},
        {"buffers announced", [&] { return kAnnounce(), kLose(); }},
        {"running", [&] { return Start(), kLose(); }},
        {"frame waiting", [&] { return Start(), script->deliver(), kLose(); }},
        {"stopped", [&] { return Start(), stream->StopAcquisition(0), kLose(); }},
        {"saving, at the first feature", kSave, ORV_CAM_ERR_DEVICE_LOST, 1},
        {"saving, half way", kSave, ORV_CAM_ERR_DEVICE_LOST, 5},
        {"loading, at the first feature", kLoad, ORV_CAM_ERR_DEVICE_LOST, 1},
        {"loading, half way", kLoad, ORV_CAM_ERR_DEVICE_LOST, 5},
        {"preparing a stream", kAnnounce, ORV_CAM_ERR_DEVICE_LOST, 1},
        {"stopping", [&] { return Start(), script->loseAtStop = 1, stream->StopAcquisition(0); }},
    };
    for (const auto &row : kCalls) {
        SCOPED_TRACE(row.state);
        Listener listener;
        Register(OrvCam::kEventDeviceLost, listener);
        script->loseAtAccess = row.atAccess;
        EXPECT_EQ(row.status, row.call());
        EXPECT_TRUE(IsTold(listener));
        EXPECT_EQ(ORV_CAM_ERR_DEVICE_LOST, device->GetCameraParameters()->SetIntegerValue("Width", 4));
        ReleaseAll();
        EXPECT_EQ(sizeBefore, std::filesystem::file_size(path)) << "the old file stays whole";
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
    ASSERT_EQ(ORV_CAM_OK, Register(OrvCam::kEventDeviceLost, listener));
    EXPECT_TRUE(IsTold(listener));
    EXPECT_NE(std::this_thread::get_id(), listener.thread);
    EXPECT_EQ(ORV_CAM_OK, Unregister(OrvCam::kEventDeviceLost, listener));
    Listener next;
    ASSERT_EQ(ORV_CAM_OK, Register(OrvCam::kEventDeviceLost, next));
    EXPECT_TRUE(IsTold(next)) << "each registration is told";
    EXPECT_EQ(1u, device->GetEventFigures(OrvCam::kEventDeviceLost).fired);
}

struct UntoldLoss {
    const char *rule;
    const char *producer;
    void (*go)(Script &);
    friend void PrintTo(const UntoldLoss &row, std::ostream *out) { *out << row.rule; }
};

/// Where nobody tells of the loss, the camera is asked.
class LossWatch : public Device, public testing::WithParamInterface<UntoldLoss> {
protected:
    LossWatch() : Device(GetParam().producer) {}
};

INSTANTIATE_TEST_SUITE_P(
    UntoldLosses, LossWatch,
    testing::Values(UntoldLoss{"another maker's", "Scripted.cti", [](Script &script) { script.lose(); }},
                    UntoldLoss{"of the first version", "ScriptedFirst.cti", [](Script &script) { script.lose(); }},
                    UntoldLoss{"its handle is not valid any more", "Scripted.cti",
                               [](Script &script) { script.portResult = script.eventResult = GC_ERR_INVALID_HANDLE; }},
                    UntoldLoss{"ours, whose event has failed", "ScriptedOurs.cti", [](Script &script) {
                                   script.lostEventResult = GC_ERR_IO, script.fire(1004, "", 1), script.lose();
                               }}));

TEST_P(LossWatch, FindsOutByAsking)
{
    Listener listener;
    ASSERT_EQ(ORV_CAM_OK, Register(OrvCam::kEventDeviceLost, listener));
    Start();
    GetParam().go(*script);
    EXPECT_EQ(ORV_CAM_ERR_DEVICE_LOST, FetchNothing(OrvCam::kInfinite));
    EXPECT_TRUE(IsTold(listener));
}

/// A camera that is deaf for a while, and lets us wait for one answer for longer still, is not lost.
TEST_F(ForeignDevice, ABusyOneIsNotLost)
{
    OrvCam::IntegerNode *width = device->GetCameraParameters()->GetInt("Width");
    ASSERT_NE(nullptr, width);
    int status = ORV_CAM_OK;
    script->portResult = GC_ERR_TIMEOUT;
    script->portAccesses = 0;
    EXPECT_TRUE(WaitFor([&] { return script->portAccesses >= 2; })) << "two questions without an answer";
    width->GetValue(&status);
    EXPECT_EQ(ORV_CAM_ERR_TIMEOUT, status);
    script->portResult = GC_ERR_SUCCESS;
    EXPECT_EQ(8, width->GetValue(&status));
    EXPECT_EQ(ORV_CAM_OK, status);
}

TEST_F(ForeignDevice, CustomEventsAreLeftAlone)
{
    Listener listener;
    EXPECT_EQ(ORV_CAM_ERR_NOT_IMPLEMENTED, Register(1000, listener));
    EXPECT_EQ(nullptr, device->GetStreamByIndex(1));
    EXPECT_EQ(nullptr, device->GetCameraParameters(1));
    EXPECT_EQ(1u, device->GetStreamCount());
}

TEST_F(Device, TrafficEventsReachTheirCallback)
{
    Listener listener;
    ASSERT_EQ(ORV_CAM_OK, Register(1000, listener));
    EXPECT_EQ(ORV_CAM_ERR_INVALID_STATE, Register(1000, listener));
    EXPECT_EQ(ORV_CAM_ERR_NOT_IMPLEMENTED, Register(1001, listener));
    EXPECT_EQ(ORV_CAM_ERR_INVALID_PARAMETER, device->RegisterEvent(1000, nullptr, nullptr));
    const std::string large(100000, 'x'); // more than the thread's first buffer
    script->fire(1000, "abc", 3);
    script->fire(1000, large.data(), large.size());
    EXPECT_TRUE(IsTold(listener, 2));
    EXPECT_EQ(large, listener.data);
    script->tellsFigures = 1;
    EXPECT_EQ(2u, device->GetEventFigures(1000).fired);
    EXPECT_EQ(5u, device->GetEventFigures(1000).dropped);
    EXPECT_EQ(0u, device->GetEventFigures(1001).dropped);
    EXPECT_EQ(ORV_CAM_ERR_INVALID_PARAMETER, device->UnregisterEvent(1000, Listener::Call, nullptr));
    EXPECT_EQ(ORV_CAM_OK, Unregister(1000, listener));
    script->fire(1000, "abc", 3);
    ASSERT_EQ(ORV_CAM_OK, Register(1000, listener)) << "again";
    script->fire(1000, "de", 2);
    EXPECT_TRUE(IsTold(listener, 3));
    EXPECT_EQ("de", listener.data);
}

TEST_F(Device, FailuresNowAndThenDoNotEndAnEvent)
{
    Listener listener;
    ASSERT_EQ(ORV_CAM_OK, Register(1000, listener));
    script->trafficFailures = 6;
    EXPECT_TRUE(WaitFor([&] { return script->trafficFailures == 0; }));
    script->fire(1000, "abc", 3);
    EXPECT_TRUE(IsTold(listener));
}

/// The end of a registration waits for the running call, and the call may use the device meanwhile.
TEST_F(Device, UnregisteringWaitsForTheRunningCallback)
{
    for (const int type : {1000, OrvCam::kEventDeviceLost}) {
        SCOPED_TRACE(type);
        Listener listener;
        listener.hold = true;
        ASSERT_EQ(ORV_CAM_OK, Register(type, listener));
        if (type == 1000)
            script->fire(1000, "abc", 3);
        else
            script->lose();
        EXPECT_TRUE(IsTold(listener));
        std::atomic<bool> done{false};
        std::thread ender([&] {
            Unregister(type, listener);
            done = true;
        });
        Listener other;
        EXPECT_EQ(ORV_CAM_ERR_NOT_IMPLEMENTED, Register(1001, other));
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
    listener.during = [&] { EXPECT_EQ(ORV_CAM_OK, Unregister(1000, listener)); };
    ASSERT_EQ(ORV_CAM_OK, Register(1000, listener));
    script->fire(1000, "a", 1);
    script->fire(1000, "b", 1);
    EXPECT_TRUE(IsTold(listener));
    // Who registers before that call has ended waits for it.
    Listener next;
    std::atomic<int> status{1};
    std::atomic<bool> isRegistering{false};
    std::thread registering([&] {
        isRegistering = true;
        status = Register(1000, next);
        std::lock_guard<std::mutex> lock(listener.mutex);
        EXPECT_FALSE(listener.inside);
    });
    EXPECT_TRUE(WaitFor([&] { return isRegistering.load(); }));
    listener.LetGo();
    registering.join();
    EXPECT_EQ(ORV_CAM_OK, status);
    script->fire(1000, "c", 1);
    EXPECT_TRUE(IsTold(next));
    next.during = [&] { Unregister(1000, next); };
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
    std::thread slow([&] { status = Register(1000, listener); });
    EXPECT_TRUE(WaitFor([&] {
        return Register(EVENT_NEW_BUFFER, listener) == ORV_CAM_ERR_NOT_IMPLEMENTED && script->registering == 1;
    }));
    EXPECT_EQ(ORV_CAM_ERR_INVALID_STATE, Register(1000, listener)) << "taken already";
    script->holdRegistration = 0;
    EXPECT_EQ(ORV_CAM_OK, Unregister(1000, listener)) << "once it is there";
    slow.join();
    EXPECT_EQ(ORV_CAM_OK, status);
}

} // namespace
