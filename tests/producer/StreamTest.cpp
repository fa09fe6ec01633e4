#include "ProducerFixture.h"

#include <atomic>
#include <filesystem>

namespace {

std::size_t EntriesOf(const char *folder)
{
    namespace fs = std::filesystem;
    return static_cast<std::size_t>(std::distance(fs::directory_iterator(folder), fs::directory_iterator()));
}

} // namespace

TEST_F(StreamTest, DeliversWholeFramesWithChangingContent)
{
    AllocateBuffers(32); // outlast a pause of a busy machine
    StartCamera();
    std::uint64_t lastId = 0;
    std::uint64_t lastTime = 0;
    std::vector<std::uint8_t> lastPixels;
    // More than the software camera, which begins at 65400, has left until its 16-bit numbers wrap.
    for (int i = 0; i < 160; ++i) {
        const BUFFER_HANDLE buffer = Fetch();
        ASSERT_NE(buffer, nullptr) << i << " " << LastError();
        EXPECT_FALSE(BufferInfo<bool8_t>(buffer, BUFFER_INFO_IS_INCOMPLETE)) << i;
        EXPECT_EQ(BufferInfo<size_t>(buffer, BUFFER_INFO_WIDTH), kFrameWidth);
        EXPECT_EQ(BufferInfo<size_t>(buffer, BUFFER_INFO_HEIGHT), kFrameHeight);
        EXPECT_EQ(BufferInfo<std::uint64_t>(buffer, BUFFER_INFO_PIXELFORMAT), 0x01080001U);
        const auto id = BufferInfo<std::uint64_t>(buffer, BUFFER_INFO_FRAMEID);
        const std::uint64_t expectedId = lastId == 65535 ? 1 : lastId + 1;
        EXPECT_TRUE(i == 0 || id == expectedId) << id << " after " << lastId;
        const auto time = BufferInfo<std::uint64_t>(buffer, BUFFER_INFO_TIMESTAMP);
        EXPECT_GT(time, lastTime);
        EXPECT_EQ(BufferInfo<std::uint64_t>(buffer, BUFFER_INFO_TIMESTAMP_NS), time) << "ticks of a nanosecond";
        std::vector<std::uint8_t> pixels = Pixels(buffer);
        ASSERT_EQ(pixels.size(), kPayload);
        EXPECT_NE(pixels, lastPixels) << i;
        lastId = id;
        lastTime = time;
        lastPixels = std::move(pixels);
        ASSERT_EQ(Gc().DSQueueBuffer(stream, buffer), GC_ERR_SUCCESS);
    }
    EXPECT_TRUE(StreamInfo<bool8_t>(STREAM_INFO_IS_GRABBING));
    StopCamera();
    EXPECT_FALSE(StreamInfo<bool8_t>(STREAM_INFO_IS_GRABBING));
    EXPECT_GE(StreamInfo<std::uint64_t>(STREAM_INFO_NUM_DELIVERED), 160U);
    EXPECT_EQ(StreamInfo<std::uint64_t>(STREAM_INFO_NUM_UNDERRUN), 0U);
    EXPECT_EQ(StreamInfo<std::uint64_t>(NUVARK_STREAM_INFO_NUM_INCOMPLETE), 0U);
    EXPECT_GT(StreamInfo<size_t>(NUVARK_STREAM_INFO_RECEIVE_BUFFER), 0U);
}

TEST_F(StreamTest, FramesLandInTheConsumersMemory)
{
    std::vector<std::vector<std::uint8_t>> memory(3, std::vector<std::uint8_t>(kPayload + 1));
    for (auto &block : memory) {
        BUFFER_HANDLE buffer = nullptr;
        // One byte in: consumers do announce unaligned memory.
        ASSERT_EQ(Gc().DSAnnounceBuffer(stream, block.data() + 1, kPayload, &block, &buffer), GC_ERR_SUCCESS);
        EXPECT_EQ(Gc().DSAnnounceBuffer(stream, block.data() + 1, kPayload, &block, &buffer), GC_ERR_RESOURCE_IN_USE);
        ASSERT_EQ(Gc().DSQueueBuffer(stream, buffer), GC_ERR_SUCCESS);
    }
    BUFFER_HANDLE other = nullptr;
    EXPECT_EQ(Gc().DSAllocAndAnnounceBuffer(stream, kPayload, nullptr, &other), GC_ERR_INVALID_PARAMETER);
    StartCamera();
    EVENT_NEW_BUFFER_DATA data{};
    size_t size = sizeof data;
    ASSERT_EQ(Gc().EventGetData(newBuffer, &data, &size, 3000), GC_ERR_SUCCESS);
    StopCamera();
    const auto &block = *static_cast<std::vector<std::uint8_t> *>(data.pUserPointer);
    EXPECT_EQ(BufferInfo<const void *>(data.BufferHandle, BUFFER_INFO_BASE), block.data() + 1);
    EXPECT_EQ(block[0], 0) << "nothing is written in front of it";
    EXPECT_NE(std::vector<std::uint8_t>(block.begin() + 1, block.end()), std::vector<std::uint8_t>(kPayload));
}

TEST_F(StreamTest, StartsAndStopsWithoutLeavingAnything)
{
    AllocateBuffers(3);
    std::size_t threads = 0;
    std::size_t descriptors = 0;
    int quickestMs[] = {10000, 10000};
    for (int round = 0; round < 60; ++round) {
        StartCamera();
        const BUFFER_HANDLE buffer = Fetch();
        ASSERT_NE(buffer, nullptr) << round << " " << LastError();
        ASSERT_EQ(Gc().DSQueueBuffer(stream, buffer), GC_ERR_SUCCESS);
        const Stopwatch watch;
        StopCamera(round % 2 == 0 ? ACQ_STOP_FLAGS_DEFAULT : ACQ_STOP_FLAGS_KILL);
        quickestMs[round % 2] = std::min(quickestMs[round % 2], watch.Milliseconds());
        ASSERT_EQ(Gc().DSFlushQueue(stream, ACQ_QUEUE_ALL_DISCARD), GC_ERR_SUCCESS);
        ASSERT_EQ(Gc().DSFlushQueue(stream, ACQ_QUEUE_UNQUEUED_TO_INPUT), GC_ERR_SUCCESS);
        if (round == 5) {
            threads = EntriesOf("/proc/self/task");
            descriptors = EntriesOf("/proc/self/fd");
        }
    }
    EXPECT_EQ(EntriesOf("/proc/self/task"), threads);
    EXPECT_EQ(EntriesOf("/proc/self/fd"), descriptors);
    // A busy machine may hold up many stops, but not all of them.
    for (const int quickest : quickestMs)
        EXPECT_LT(quickest, 100);
}

TEST_F(StreamTest, RefusesWhatDoesNotFitTheState)
{
    EXPECT_EQ(Gc().DSStartAcquisition(stream, 0, GENTL_INFINITE), GC_ERR_INVALID_BUFFER) << "no buffer announced";
    AllocateBuffers(2);
    EXPECT_EQ(Gc().DSStopAcquisition(stream, 0), GC_ERR_RESOURCE_IN_USE) << "not running";
    EXPECT_EQ(Gc().DSStartAcquisition(stream, 5, 1), GC_ERR_NOT_IMPLEMENTED);
    EXPECT_EQ(Gc().DSStartAcquisition(stream, 0, 0), GC_ERR_INVALID_PARAMETER);
    StartCamera();
    EXPECT_EQ(Gc().DSStartAcquisition(stream, 0, GENTL_INFINITE), GC_ERR_RESOURCE_IN_USE);
    DS_HANDLE second = nullptr;
    EXPECT_EQ(Gc().DevOpenDataStream(device, (DeviceId() + "/stream0").c_str(), &second), GC_ERR_RESOURCE_IN_USE);
    EXPECT_EQ(Gc().DevOpenDataStream(device, "nothing", &second), GC_ERR_INVALID_ID);
    StopCamera();
    EXPECT_EQ(Gc().DSStopAcquisition(stream, 9), GC_ERR_NOT_IMPLEMENTED);
    EXPECT_EQ(Gc().DSFlushQueue(stream, 9), GC_ERR_NOT_IMPLEMENTED);
}

TEST_F(StreamTest, WithoutQueuedBuffersFramesAreCountedAsLost)
{
    AllocateBuffers(1);
    StartCamera();
    EXPECT_TRUE(Becomes([&] { return StreamInfo<std::uint64_t>(STREAM_INFO_NUM_UNDERRUN) >= 3; }));
    const BUFFER_HANDLE buffer = Fetch();
    ASSERT_NE(buffer, nullptr);
    ASSERT_EQ(Gc().DSQueueBuffer(stream, buffer), GC_ERR_SUCCESS);
    EXPECT_NE(Fetch(), nullptr) << "it goes on once there is a buffer";
    StopCamera();
}

TEST_F(StreamTest, SmallBuffersGetWhatFits)
{
    AllocateBuffers(2, kPayload / 2);
    const EVENT_HANDLE error = Register(stream, EVENT_ERROR);
    StartCamera();
    const BUFFER_HANDLE buffer = Fetch();
    ASSERT_NE(buffer, nullptr);
    StopCamera();
    EXPECT_TRUE(BufferInfo<bool8_t>(buffer, BUFFER_INFO_IS_INCOMPLETE));
    EXPECT_TRUE(BufferInfo<bool8_t>(buffer, BUFFER_INFO_DATA_LARGER_THAN_BUFFER));
    EXPECT_EQ(BufferInfo<size_t>(buffer, BUFFER_INFO_SIZE_FILLED), kPayload / 2);
    // Where the system grants a small socket buffer, that is told first.
    GC_ERROR told = GC_ERR_SUCCESS;
    for (int i = 0; i < 2 && told != GC_ERR_BUFFER_TOO_SMALL; ++i) {
        const auto entry = Next(error);
        ASSERT_FALSE(entry.empty());
        told = AskFor<GC_ERROR>([&](auto... out) {
            return Gc().EventGetDataInfo(error, entry.data(), entry.size(), EVENT_DATA_ID, out...);
        });
    }
    EXPECT_EQ(told, GC_ERR_BUFFER_TOO_SMALL);
}

TEST_F(StreamTest, QueuesAreFlushedWhileRunning)
{
    AllocateBuffers(6);
    StartCamera();
    for (int round = 0; round < 20; ++round) {
        ASSERT_EQ(Gc().DSFlushQueue(stream, ACQ_QUEUE_ALL_DISCARD), GC_ERR_SUCCESS);
        EXPECT_EQ(StreamInfo<size_t>(STREAM_INFO_NUM_QUEUED), 0U);
        EXPECT_EQ(StreamInfo<size_t>(STREAM_INFO_NUM_AWAIT_DELIVERY), 0U);
        ASSERT_EQ(Gc().DSFlushQueue(stream, ACQ_QUEUE_UNQUEUED_TO_INPUT), GC_ERR_SUCCESS);
        const BUFFER_HANDLE buffer = Fetch();
        ASSERT_NE(buffer, nullptr) << round;
        EXPECT_EQ(Gc().DSFlushQueue(stream, ACQ_QUEUE_ALL_TO_INPUT), GC_ERR_SUCCESS);
        // A delivered buffer is the consumer's: it can be revoked and announced anew.
        ASSERT_EQ(Gc().DSRevokeBuffer(stream, buffer, nullptr, nullptr), GC_ERR_SUCCESS);
        AllocateBuffers(1);
    }
    StopCamera();
    EXPECT_EQ(StreamInfo<size_t>(STREAM_INFO_NUM_ANNOUNCED), 6U);
}

TEST_F(StreamTest, ACameraKilledWhileStreamingEndsEverything)
{
    AllocateBuffers(3);
    const EVENT_HANDLE lost = Register(NUVARK_EVENT_DEVICE_LOST);
    StartCamera();
    ASSERT_NE(Fetch(), nullptr);
    std::atomic<bool> ended{false};
    std::thread waiter([&] {
        while (Fetch(GENTL_INFINITE) != nullptr) {
        }
        ended = true;
    });
    camera.Kill();
    EXPECT_NE(NextText(lost), "");
    EXPECT_EQ(Gc().DSStopAcquisition(stream, ACQ_STOP_FLAGS_DEFAULT), GC_ERR_SUCCESS);
    EXPECT_EQ(Gc().EventKill(newBuffer), GC_ERR_SUCCESS);
    EXPECT_TRUE(Becomes([&] { return ended.load(); }));
    waiter.join();
    EXPECT_EQ(Gc().DSStartAcquisition(stream, 0, GENTL_INFINITE), GC_ERR_IO);
    EXPECT_EQ(Gc().DevClose(device), GC_ERR_SUCCESS);
}

TEST_F(StreamTest, AChannelThatCouldNotBeClosedIsClosedLater)
{
    constexpr std::uint64_t kStreamPort = 0x0D00;
    AllocateBuffers(3);
    StartCamera();
    ASSERT_NE(Fetch(), nullptr);
    int quickestMs = 10000; // of the stops that no camera answers
    const auto stop = [&](ACQ_STOP_FLAGS flags) {
        camera.Suspend();
        const Stopwatch watch;
        EXPECT_EQ(Gc().DSStopAcquisition(stream, flags), GC_ERR_SUCCESS);
        quickestMs = std::min(quickestMs, watch.Milliseconds());
        camera.Resume();
    };
    stop(ACQ_STOP_FLAGS_KILL);
    EXPECT_TRUE(Becomes([&] { return ReadRegister(kStreamPort) == 0; }));

    // Started anew meanwhile, the late closing must not hit the new channel.
    ASSERT_EQ(WriteRegister(kAcquisition, 0), GC_ERR_SUCCESS) << LastError();
    for (const ACQ_STOP_FLAGS flags : {ACQ_STOP_FLAGS_DEFAULT, ACQ_STOP_FLAGS_DEFAULT, ACQ_STOP_FLAGS_KILL}) {
        ASSERT_EQ(Gc().DSStartAcquisition(stream, 0, GENTL_INFINITE), GC_ERR_SUCCESS) << LastError();
        stop(flags);
    }
    EXPECT_LT(quickestMs, 200) << "of four";
    ASSERT_EQ(Gc().DSFlushQueue(stream, ACQ_QUEUE_ALL_DISCARD), GC_ERR_SUCCESS);
    ASSERT_EQ(Gc().DSFlushQueue(stream, ACQ_QUEUE_UNQUEUED_TO_INPUT), GC_ERR_SUCCESS);
    ASSERT_NO_FATAL_FAILURE(StartCamera());
    for (int i = 0; i < 300; ++i) { // which the camera takes a second and a half for
        const BUFFER_HANDLE buffer = Fetch();
        ASSERT_NE(buffer, nullptr) << i;
        ASSERT_EQ(Gc().DSQueueBuffer(stream, buffer), GC_ERR_SUCCESS);
        ASSERT_NE(ReadRegister(kStreamPort), 0U);
    }
    StopCamera();
}

TEST_F(CameraTest, LostPacketsMakeFramesIncompleteNeverLate)
{
    ASSERT_TRUE(camera.Start(kCameraAddress, kCameraSerial, 20)); // of a thousand packets
    ASSERT_EQ(OpenDevice(), GC_ERR_SUCCESS) << LastError();
    ASSERT_EQ(WriteRegister(kFramePeriodUs, 5000), GC_ERR_SUCCESS);
    ASSERT_NO_FATAL_FAILURE(OpenStream());
    const size_t payload = size_t{ReadRegister(kWidth)} * ReadRegister(kHeight);
    AllocateBuffers(6, payload);
    StartCamera();
    int incomplete = 0;
    std::uint64_t last = 0;
    for (int i = 0; i < 60; ++i) {
        const BUFFER_HANDLE buffer = Fetch();
        ASSERT_NE(buffer, nullptr) << i;
        const auto id = BufferInfo<std::uint64_t>(buffer, BUFFER_INFO_FRAMEID);
        EXPECT_TRUE(id > last || last > 65000) << "in order";
        last = id;
        const bool isIncomplete = BufferInfo<bool8_t>(buffer, BUFFER_INFO_IS_INCOMPLETE) != 0;
        // The other way round does not hold: only the leader or the trailer may be missing.
        EXPECT_TRUE(isIncomplete || BufferInfo<size_t>(buffer, BUFFER_INFO_SIZE_FILLED) == payload);
        incomplete += isIncomplete;
        ASSERT_EQ(Gc().DSQueueBuffer(stream, buffer), GC_ERR_SUCCESS);
    }
    EXPECT_GT(incomplete, 30) << "with some two hundred packets per frame hardly one is whole";
    StopCamera(ACQ_STOP_FLAGS_KILL);
}
