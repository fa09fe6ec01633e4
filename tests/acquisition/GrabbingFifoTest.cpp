#include "acquisition/GrabbingFifo.h"

#include "support/GuiTest.h"
#include "support/ScriptedCamera.h"

#include <gtest/gtest.h>

#include <future>
#include <optional>

namespace {

using scripted::Frame;

constexpr std::uint64_t kTicksPerSecond = 1000;

long Int(GrabbingFifo &fifo, const char *name)
{
    long value = -1;
    EXPECT_EQ(fifo.GetParamInt(const_cast<char *>(name), &value), 0u) << name;
    return value;
}

double Float(GrabbingFifo &fifo, const char *name)
{
    double value = -1.0;
    EXPECT_EQ(fifo.GetParamFloat(const_cast<char *>(name), &value), 0u) << name;
    return value;
}

/// A grabber over a scripted camera, stepped by hand: its thread is not started.
class GrabbingFifoTest : public ::testing::Test {
protected:
    GrabbingFifoTest()
    {
        device.features.AddInteger("GevTimestampTickFrequency", kTicksPerSecond);
        fifo.emplace(nullptr, &device);
    }
    ~GrabbingFifoTest() override { fifo.reset(); }

    void Prepare(SessionState state)
    {
        ASSERT_EQ(fifo->CreateBuffers(), 0);
        fifo->SetState(state);
    }
    void Grab(const Frame &frame)
    {
        ASSERT_TRUE(device.stream.Deliver(frame)) << "no free buffer for frame " << frame.id;
        ASSERT_EQ(fifo->GrabNewBuffer(0), 0);
    }

    scripted::Device device;
    std::optional<GrabbingFifo> fifo;
};

struct FigureCase {
    const char *rule;
    std::vector<Frame> frames;
    long acquired, droppedHW, incomplete, frameId, timestamp;
    double fpsInst, fpsAvg, speed;
};

constexpr std::size_t kMiB = 1048576;

// 1000 ticks a second.
const FigureCase kFigureCases[] = {
    {"the first frame sets no rate and counts no loss", {{7, 5000, false, 0, kMiB}}, 1, 0, 0, 7, 5000, 0, 0, 0},
    {"a gap counts as frame periods and as losses",
     {{1, 1000, false, 0, kMiB}, {2, 1100, false, 0, kMiB}, {5, 1400, false, 0, kMiB}},
     3,
     2,
     0,
     5,
     1400,
     1000.0 * 3 / 300,
     1000.0 * (2 + 3) / 400,
     1.0 * 1000 / 300},
    {"a restarted numbering loses nothing and leaves the rate",
     {{9, 1000, false, 0, kMiB}, {10, 1100, false, 0, kMiB}, {3, 1300, false, 0, kMiB}},
     3,
     0,
     0,
     3,
     1300,
     10.0,
     1000.0 * 3 / 300,
     5.0},
    {"an incomplete frame is counted and nothing else",
     {{1, 1000, false, 0, kMiB}, {2, 1100, true, 0, kMiB}, {3, 1200, false, 0, kMiB}},
     2,
     1,
     1,
     3,
     1200,
     1000.0 * 2 / 200,
     1000.0 * (1 + 2) / 200,
     5.0},
    {"a standing clock sets no rate", {{1, 0, false, 0, 1}, {2, 0, false, 0, 1}}, 2, 0, 0, 2, 0, 0, 0, 0},
    {"a clock that runs backwards gives no data rate",
     {{1, 2000, false, 0, kMiB}, {2, 1500, false, 0, kMiB}},
     2,
     0,
     0,
     2,
     1500,
     0,
     0,
     0},
    {"a data rate below a tenth is shown as none",
     {{1, 1000, false, 0, 10}, {2, 2000, false, 0, 10}},
     2,
     0,
     0,
     2,
     2000,
     1.0,
     2.0,
     0.0},
};

TEST_F(GrabbingFifoTest, FiguresFollowTheFrames)
{
    for (const FigureCase &c : kFigureCases) {
        SCOPED_TRACE(c.rule);
        fifo.emplace(nullptr, &device);
        Prepare(Acquisition);
        for (const Frame &frame : c.frames)
            Grab(frame);
        EXPECT_EQ(Int(*fifo, "FramesAcquired"), c.acquired);
        EXPECT_EQ(Int(*fifo, "FramesDroppedHW"), c.droppedHW);
        EXPECT_EQ(Int(*fifo, "FramesIncomp"), c.incomplete);
        EXPECT_EQ(Int(*fifo, "FrameID"), c.frameId);
        EXPECT_EQ(Int(*fifo, "Timestamp"), c.timestamp);
        EXPECT_NEAR(Float(*fifo, "FpsAvg"), c.fpsAvg, 1e-9);
        EXPECT_NEAR(Float(*fifo, "FpsInst"), c.fpsInst, 1e-9);
        EXPECT_DOUBLE_EQ(Float(*fifo, "Speed"), c.speed);
    }
}

TEST_F(GrabbingFifoTest, RestartResetsCountsButKeepsRates)
{
    Prepare(Acquisition);
    Grab({1, 1000});
    Grab({3, 1100});
    ASSERT_TRUE(fifo->StartGrabbing());
    EXPECT_EQ(Int(*fifo, "FramesAcquired"), 0);
    EXPECT_EQ(Int(*fifo, "FramesDroppedHW"), 0);
    EXPECT_EQ(Int(*fifo, "FrameID"), 3);
    EXPECT_GT(Float(*fifo, "FpsInst"), 0.0);
    ASSERT_TRUE(fifo->StopGrabbing());
    Grab({500, 90000}); // nothing lost towards the frames before the restart, no rate over the pause
    EXPECT_EQ(Int(*fifo, "FramesDroppedHW"), 0);
    EXPECT_DOUBLE_EQ(Float(*fifo, "FpsInst"), 20.0);
}

TEST_F(GrabbingFifoTest, AResetWhilePlayingCountsOnFromZero)
{
    Prepare(Acquisition);
    for (std::uint64_t id = 1; id <= 5; ++id)
        Grab({id, id * 100});
    ASSERT_EQ(fifo->SetParamInt(const_cast<char *>("FramesAcquired"), 0), 0u);
    Grab({6, 600});
    EXPECT_EQ(Int(*fifo, "FramesAcquired"), 1);
}

TEST_F(GrabbingFifoTest, OutsideCaptureOnlyTheNewestIsKept)
{
    Prepare(Acquisition);
    Grab({1, 100});
    Grab({2, 200});
    EXPECT_EQ(Int(*fifo, "QueueFilled"), 1);
    EXPECT_EQ(device.stream.FreeBuffers(), 15u);
    OrvCam::Buffer *buffer = nullptr;
    ASSERT_EQ(fifo->GetNewestBuffer(&buffer, true), 0);
    ASSERT_NE(buffer, nullptr);
    EXPECT_EQ(buffer->GetFrameID(), 2u);
    EXPECT_EQ(Int(*fifo, "QueueFilled"), 1) << "a borrowed buffer stays";
    ASSERT_EQ(fifo->GetNewestBuffer(&buffer, false), 0);
    EXPECT_EQ(Int(*fifo, "QueueFilled"), 0);
    fifo->ReturnBuffer(buffer);
    EXPECT_EQ(device.stream.FreeBuffers(), 16u);
}

struct OverflowCase {
    const char *rule;
    GrabbingFifo::OverflowPolicy policy;
    long queueSize;
    int frames;
    long filled, droppedSW;
    std::uint64_t oldest, newest;
    std::size_t freeBuffers;
};

const OverflowCase kOverflowCases[] = {
    {"13 of 16 are kept", GrabbingFifo::OverflowPolicy::ReturnNewest, 16, 13, 13, 0, 1, 13, 3},
    {"the newest queued makes room", GrabbingFifo::OverflowPolicy::ReturnNewest, 16, 15, 13, 2, 1, 15, 3},
    {"the oldest queued makes room", GrabbingFifo::OverflowPolicy::ReturnOldest, 16, 15, 13, 2, 3, 15, 3},
    {"the received one is forgotten", GrabbingFifo::OverflowPolicy::DiscardReceived, 16, 15, 13, 2, 1, 13, 1},
    {"a queue of three keeps none and loses no buffer", GrabbingFifo::OverflowPolicy::ReturnNewest, 3, 4, 0, 4, 0, 0,
     3},
};

TEST_F(GrabbingFifoTest, CaptureQueuesUpToItsLimit)
{
    for (const OverflowCase &c : kOverflowCases) {
        SCOPED_TRACE(c.rule);
        fifo.emplace(nullptr, &device);
        fifo->SetOverflowPolicy(c.policy);
        ASSERT_EQ(fifo->SetParamInt(const_cast<char *>("QueueSize"), c.queueSize), 0u);
        Prepare(Capturing);
        for (int id = 1; id <= c.frames; ++id)
            Grab({static_cast<std::uint64_t>(id), static_cast<std::uint64_t>(id) * 100});
        EXPECT_EQ(Int(*fifo, "QueueFilled"), c.filled);
        EXPECT_EQ(Int(*fifo, "FramesDroppedSW"), c.droppedSW);
        EXPECT_EQ(device.stream.FreeBuffers(), c.freeBuffers);
        if (c.filled == 0)
            continue;
        OrvCam::Buffer *buffer = nullptr;
        ASSERT_EQ(fifo->PopOldestBuffer(&buffer), 0);
        EXPECT_EQ(buffer->GetFrameID(), c.oldest);
        fifo->ReleaseBuffer(buffer);
        ASSERT_EQ(fifo->GetNewestBuffer(&buffer, false), 0);
        EXPECT_EQ(buffer->GetFrameID(), c.newest);
        fifo->ReturnBuffer(buffer); // for the writer again
        EXPECT_EQ(Int(*fifo, "QueueFilled"), c.filled - 2) << "published at the next grab";
        ASSERT_EQ(fifo->GetNewestBuffer(&buffer, true), 0);
        EXPECT_EQ(buffer->GetFrameID(), c.newest);
    }
}

TEST_F(GrabbingFifoTest, ConsumersAreRefusedWhileIdle)
{
    Prepare(Idle);
    OrvCam::Buffer *buffer = nullptr;
    EXPECT_EQ(fifo->GrabNewBuffer(0), ORV_CAM_ERR_INVALID_STATE);
    EXPECT_EQ(fifo->GetNewestBuffer(&buffer, false), ORV_CAM_ERR_INVALID_STATE);
    EXPECT_EQ(fifo->PopOldestBuffer(&buffer), ORV_CAM_ERR_INVALID_STATE);
    EXPECT_EQ(buffer, nullptr);
}

TEST_F(GrabbingFifoTest, SwitchingBlockingOffFreesAWaitingConsumer)
{
    Prepare(Acquisition);
    auto *const untouched = reinterpret_cast<OrvCam::Buffer *>(0x10);
    auto waiting = std::async(std::launch::async, [&] {
        OrvCam::Buffer *buffer = untouched;
        const int result = fifo->GetNewestBuffer(&buffer, false);
        return std::pair(result, buffer);
    });
    fifo->SetGrabberThtreadBlocking(false);
    EXPECT_EQ(waiting.get(), std::pair(0, untouched));

    Grab({1, 100});
    OrvCam::Buffer *buffer = nullptr;
    EXPECT_EQ(fifo->PopOldestBuffer(&buffer), 0);
    EXPECT_EQ(buffer, nullptr) << "nothing is handed out while blocking is off";
}

TEST_F(GrabbingFifoTest, StartAndStopReportTheStreamsFailures)
{
    EXPECT_FALSE(fifo->Stop()) << "not started";
    device.stream.startStatus = ORV_CAM_ERR_IO;
    EXPECT_FALSE(fifo->StartGrabbing());
    device.stream.startStatus = ORV_CAM_OK;
    ASSERT_TRUE(fifo->StartGrabbing());
    device.stream.stopStatus = ORV_CAM_ERR_IO;
    EXPECT_FALSE(fifo->StopGrabbing());
    ASSERT_EQ(fifo->SetParamInt(const_cast<char *>("QueueSize"), 4294967301), 0u);
    EXPECT_EQ(fifo->CreateBuffers(), ORV_CAM_ERR_INVALID_PARAMETER) << "not cut to five";
    ASSERT_EQ(fifo->SetParamInt(const_cast<char *>("QueueSize"), 16), 0u);
    device.stream.allocStatus = ORV_CAM_ERR_OUT_OF_MEMORY;
    EXPECT_EQ(fifo->CreateBuffers(), ORV_CAM_ERR_OUT_OF_MEMORY);
}

TEST_F(GrabbingFifoTest, RunsStopsAndSurvivesAForgetfulOwner)
{
    Prepare(Acquisition);
    for (int round = 0; round < 50; ++round) {
        ASSERT_TRUE(fifo->StartGrabbing());
        ASSERT_TRUE(device.stream.Deliver({static_cast<std::uint64_t>(round) + 1, 100}));
        ASSERT_TRUE(WaitFor([&] { return Int(*fifo, "FramesAcquired") == 1; }));
        ASSERT_TRUE(fifo->StopGrabbing());
    }
    ASSERT_TRUE(fifo->StartGrabbing());
    fifo.reset(); // waiting in GetBuffer: must not hang or touch what is gone
    SUCCEED();
}

} // namespace
