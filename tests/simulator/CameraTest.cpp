// The camera without a transport, in real time: what only shows while its clock runs.
#include "simulator/core/Camera.h"

#include "simulator/core/CameraState.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <mutex>
#include <vector>

namespace orvsim {
namespace {

constexpr std::int64_t kLongMs = 10'000;

class CameraTest : public testing::Test {
protected:
    void Open(CameraOptions options = Small())
    {
        camera = std::make_unique<Camera>(options);
        ASSERT_EQ(camera->Finish(), "");
        camera->SetEventSink([this](const DeviceEvent &event) {
            const std::lock_guard lock(mutex);
            events.push_back({event, camera->Now()});
        });
    }
    static CameraOptions Small()
    {
        CameraOptions options;
        options.sensor.width = 64;
        options.sensor.height = 64;
        return options;
    }
    void Set(const std::string &name, const std::string &text)
    {
        std::string problem;
        EXPECT_EQ(camera->SetFeature(name, text, problem), Outcome::Ok) << problem;
    }
    void Notify(const std::vector<std::string> &names)
    {
        for (const std::string &name : names) {
            Set("EventSelector", name);
            Set("EventNotification", "On");
        }
    }
    std::uint64_t NextNumber()
    {
        const std::optional<FrameJob> job = camera->WaitForFrame(kLongMs);
        EXPECT_TRUE(job.has_value());
        return job.has_value() ? job->number : UINT64_MAX;
    }

    struct Told {
        DeviceEvent event;
        std::uint64_t atNs; ///< device clock
    };
    std::vector<Told> Of(EventKind kind)
    {
        const std::lock_guard lock(mutex);
        std::vector<Told> found;
        std::copy_if(events.begin(), events.end(), std::back_inserter(found),
                     [kind](const Told &told) { return told.event.id == EventIdOf(kind); });
        return found;
    }

    std::unique_ptr<Camera> camera;
    std::mutex mutex;
    std::vector<Told> events;
};

// The longer a camera is up the longer it would stay silent, so the clock has to have run for a while.
TEST_F(CameraTest, FramesGoOnWhenTheClockStartsAnew)
{
    Open();
    Set("ExposureTime", "1000");
    Set("AcquisitionFrameRateEnable", "1");
    Set("AcquisitionFrameRate", "10");
    for (const bool isByFeature : {true, false}) {
        Set("AcquisitionStart", "1");
        for (int i = 0; i < 5; ++i)
            NextNumber(); // half a second
        if (isByFeature)
            Set("TimestampReset", "1");
        else
            camera->ResetClock();
        EXPECT_LT(camera->Now(), 100'000'000U);
        const std::optional<FrameJob> next = camera->WaitForFrame(300);
        ASSERT_TRUE(next.has_value()) << (isByFeature ? "by feature" : "by the transport");
        EXPECT_EQ(next->number, 5U) << "an acquisition that goes on";
        EXPECT_LT(next->timestampNs, 200'000'000U) << "on the new clock";
        Set("AcquisitionStop", "1");
    }
}

TEST_F(CameraTest, ATriggerThatWaitsOutlivesTheClocksReset)
{
    Open();
    Set("TriggerMode", "On");
    Set("TriggerDelay", "200000");
    Set("AcquisitionStart", "1");
    while (camera->Now() < 300'000'000)
        camera->WaitForFrame(20);
    Set("TriggerSoftware", "1");
    const auto before = std::chrono::steady_clock::now();
    camera->ResetClock();
    EXPECT_EQ(NextNumber(), 0U);
    EXPECT_LT(std::chrono::steady_clock::now() - before, std::chrono::milliseconds(400));
    Set("TriggerSoftware", "1");
    EXPECT_EQ(NextNumber(), 1U);
}

TEST_F(CameraTest, ExposuresAreToldWhenTheyBegin)
{
    Open();
    Notify({"ExposureStart", "ExposureEnd", "FrameTrigger"});
    Set("ExposureTime", "300000");
    Set("TriggerMode", "On");
    Set("TriggerSource", "Timer0End");
    Set("TimerDuration", "400000");
    Set("AcquisitionStart", "1");
    EXPECT_EQ(NextNumber(), 0U);
    EXPECT_EQ(NextNumber(), 1U);
    for (const EventKind kind : {EventKind::FrameTrigger, EventKind::ExposureStart, EventKind::ExposureEnd}) {
        const std::vector<Told> told = Of(kind);
        ASSERT_EQ(told.size(), 2U) << static_cast<int>(kind);
        for (std::uint64_t i = 0; i < 2; ++i) {
            EXPECT_EQ(told[i].event.frameNumber, i);
            EXPECT_LT(told[i].atNs - told[i].event.timestampNs, 150'000'000U) << static_cast<int>(kind);
        }
    }
}

TEST_F(CameraTest, SoftwareTriggersNameTheFrameTheyMake)
{
    Open();
    Notify({"FrameTrigger", "FrameTriggerMissed", "ExposureStart", "ExposureEnd", "AcquisitionStart", "Test"});
    Set("ExposureTime", "1000");
    Set("TriggerMode", "On");
    Set("AcquisitionStart", "1");
    for (std::uint64_t i = 0; i < 3; ++i) {
        // The sensor may still be busy with the frame before.
        for (std::size_t taken = Of(EventKind::FrameTrigger).size(); Of(EventKind::FrameTrigger).size() == taken;)
            Set("TriggerSoftware", "1");
        EXPECT_EQ(NextNumber(), i);
    }
    Set("TestEventGenerate", "1");
    for (const EventKind kind : {EventKind::FrameTrigger, EventKind::ExposureStart, EventKind::ExposureEnd}) {
        const std::vector<Told> told = Of(kind);
        ASSERT_EQ(told.size(), 3U);
        for (std::uint64_t i = 0; i < 3; ++i)
            EXPECT_TRUE(told[i].event.frameNumber == i && told[i].event.isTied) << static_cast<int>(kind);
    }
    for (const EventKind kind : {EventKind::AcquisitionStart, EventKind::Test}) {
        ASSERT_EQ(Of(kind).size(), 1U);
        EXPECT_FALSE(Of(kind).front().event.isTied) << static_cast<int>(kind);
    }
}

// The sensor's fastest pace says nothing about a frame that was asked for after a pause.
TEST_F(CameraTest, RareTriggersDoNotOverloadTheLink)
{
    CameraOptions options = Small();
    options.linkMbps = 1; // 4096 bytes take 33 ms
    Open(options);
    Set("ExposureTime", "10");
    Set("Frame_PixelClock", "400");
    Set("AcquisitionStart", "1");
    NextNumber();
    EXPECT_GT(camera->WaitForFrame(kLongMs)->lossShare, 0.5);
    Set("AcquisitionStop", "1");
    Set("TriggerMode", "On");
    Set("AcquisitionStart", "1");
    for (int i = 0; i < 3; ++i) {
        camera->WaitForFrame(60); // a pause: there is no trigger
        Set("TriggerSoftware", "1");
        const std::optional<FrameJob> job = camera->WaitForFrame(kLongMs);
        ASSERT_TRUE(job.has_value());
        EXPECT_EQ(job->lossShare, 0) << i;
    }
}

} // namespace
} // namespace orvsim
