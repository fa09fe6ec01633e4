#include "producer/Event.h"
#include "ProducerFixture.h"

#include <atomic>

namespace {

/// Threads that wait for one event; how each wait ended is counted by code.
class Waiters {
public:
    Waiters(const orv::gentl::Functions &gc, EVENT_HANDLE event, int count)
    {
        for (int i = 0; i < count; ++i) {
            m_threads.emplace_back([this, &gc, event] {
                char data[2048];
                size_t size = sizeof data;
                ++m_waiting;
                const GC_ERROR code = gc.EventGetData(event, data, &size, GENTL_INFINITE);
                ++(code == GC_ERR_ABORT ? m_aborted : code == GC_ERR_SUCCESS ? m_served : m_other);
            });
        }
        Becomes([&] { return m_waiting == count; });
    }
    ~Waiters()
    {
        for (std::thread &thread : m_threads)
            thread.join();
    }
    int Aborted() const { return m_aborted; }
    int Served() const { return m_served; }
    int Other() const { return m_other; }

private:
    std::atomic<int> m_waiting{0};
    std::atomic<int> m_aborted{0};
    std::atomic<int> m_served{0};
    std::atomic<int> m_other{0};
    std::vector<std::thread> m_threads;
};

} // namespace

TEST(Event, AWaiterWithTooLittleRoomLeavesTheDataToAnother)
{
    for (int round = 0; round < 10; ++round) {
        const auto source = std::make_shared<nuvark::ErrorEvents>();
        nuvark::Event event(EVENT_ERROR, source);
        std::atomic<int> waiting{0};
        const auto wait = [&](std::size_t room, GC_ERROR expected) {
            std::vector<std::uint8_t> bytes(room);
            ++waiting;
            EXPECT_EQ(event.GetData(bytes.data(), &room, 3000).Code(), expected);
        };
        std::thread cramped([&] { wait(1, GC_ERR_BUFFER_TOO_SMALL); });
        EXPECT_TRUE(Becomes([&] { return waiting == 1; }));
        std::thread roomy([&] { wait(2000, GC_ERR_SUCCESS); });
        EXPECT_TRUE(Becomes([&] { return waiting == 2; }));
        source->Push(nuvark::ErrorEvents::Encode(GC_ERR_IO, "first"));
        const Stopwatch watch;
        event.Notify();
        roomy.join();
        const bool inTime = watch.Milliseconds() < 2000;
        source->Push(nuvark::ErrorEvents::Encode(GC_ERR_IO, "second, in case the cramped one came after the first"));
        event.Notify();
        cramped.join();
        ASSERT_TRUE(inTime) << "not just when its wait was over";
    }
}

TEST_F(ProducerTest, AKillEndsExactlyOneWait)
{
    EVENT_HANDLE event = nullptr;
    ASSERT_EQ(Gc().GCRegisterEvent(system, EVENT_ERROR, &event), GC_ERR_SUCCESS);
    {
        Waiters waiters(Gc(), event, 3);
        for (int killed = 1; killed <= 3; ++killed) {
            ASSERT_EQ(Gc().EventKill(event), GC_ERR_SUCCESS);
            EXPECT_TRUE(Becomes([&] { return waiters.Aborted() == killed; }));
        }
    }
    // With nobody waiting the next call gets it, and only that one.
    ASSERT_EQ(Gc().EventKill(event), GC_ERR_SUCCESS);
    char data[2048];
    size_t size = sizeof data;
    EXPECT_EQ(Gc().EventGetData(event, data, &size, GENTL_INFINITE), GC_ERR_ABORT);
    EXPECT_EQ(Gc().EventGetData(event, data, &size, 0), GC_ERR_TIMEOUT);
    const Stopwatch watch;
    EXPECT_EQ(Gc().EventGetData(event, data, &size, 50), GC_ERR_TIMEOUT);
    EXPECT_GE(watch.Milliseconds(), 49);
}

TEST_F(ProducerTest, UnregisteringAndClosingWakeAllWaiters)
{
    EVENT_HANDLE event = nullptr;
    ASSERT_EQ(Gc().GCRegisterEvent(system, EVENT_ERROR, &event), GC_ERR_SUCCESS);
    {
        Waiters waiters(Gc(), event, 3);
        ASSERT_EQ(Gc().GCUnregisterEvent(system, EVENT_ERROR), GC_ERR_SUCCESS);
        EXPECT_TRUE(Becomes([&] { return waiters.Aborted() + waiters.Other() == 3; }));
    }
    ASSERT_EQ(Gc().GCRegisterEvent(system, EVENT_ERROR, &event), GC_ERR_SUCCESS);
    {
        Waiters waiters(Gc(), event, 3);
        ASSERT_EQ(Gc().GCCloseLib(), GC_ERR_SUCCESS);
        EXPECT_TRUE(Becomes([&] { return waiters.Aborted() + waiters.Other() == 3; }));
    }
}

TEST_F(StreamTest, NewBufferEventsServeSeveralWaiters)
{
    AllocateBuffers(3);
    {
        Waiters waiters(Gc(), newBuffer, 3);
        // Delivered with no new data, one event each.
        ASSERT_EQ(Gc().DSFlushQueue(stream, ACQ_QUEUE_INPUT_TO_OUTPUT), GC_ERR_SUCCESS);
        bool all = Becomes([&] { return waiters.Served() == 3; }, std::chrono::milliseconds(500));
        EXPECT_TRUE(all);
        for (int i = 0; !all && i < 3; ++i)
            Gc().EventKill(newBuffer);
    }
    size_t inQueue = 9;
    size_t size = sizeof inQueue;
    EXPECT_EQ(Gc().EventGetInfo(newBuffer, EVENT_NUM_IN_QUEUE, nullptr, &inQueue, &size), GC_ERR_SUCCESS);
    EXPECT_EQ(inQueue, 0U);
    EXPECT_EQ(AskFor<std::uint64_t>([&](auto... out) { return Gc().EventGetInfo(newBuffer, EVENT_NUM_FIRED, out...); }),
              3U);
}

TEST_F(StreamTest, NewBufferDataAreTakenApart)
{
    int mark = 0;
    std::vector<std::uint8_t> memory(kPayload);
    BUFFER_HANDLE buffer = nullptr;
    ASSERT_EQ(Gc().DSAnnounceBuffer(stream, memory.data(), memory.size(), &mark, &buffer), GC_ERR_SUCCESS);
    ASSERT_EQ(Gc().DSQueueBuffer(stream, buffer), GC_ERR_SUCCESS);
    ASSERT_EQ(Gc().DSFlushQueue(stream, ACQ_QUEUE_INPUT_TO_OUTPUT), GC_ERR_SUCCESS);
    EVENT_NEW_BUFFER_DATA data{};
    size_t tooSmall = sizeof data - 1;
    EXPECT_EQ(Gc().EventGetData(newBuffer, &data, &tooSmall, 0), GC_ERR_BUFFER_TOO_SMALL);
    size_t size = sizeof data;
    ASSERT_EQ(Gc().EventGetData(newBuffer, &data, &size, 0), GC_ERR_SUCCESS) << "nothing was taken before";
    EXPECT_EQ(data.BufferHandle, buffer);
    EXPECT_EQ(data.pUserPointer, &mark);
    const auto part = [&](EVENT_DATA_INFO_CMD command) {
        return AskFor<void *>(
            [&](auto... out) { return Gc().EventGetDataInfo(newBuffer, &data, sizeof data, command, out...); });
    };
    EXPECT_EQ(part(EVENT_DATA_ID), buffer);
    EXPECT_EQ(part(EVENT_DATA_VALUE), &mark);

    // A null buffer throws one event away; flushing the event throws all away. Either way the buffer is idle again.
    for (const bool byFlush : {false, true}) {
        ASSERT_EQ(Gc().DSQueueBuffer(stream, buffer), GC_ERR_SUCCESS);
        ASSERT_EQ(Gc().DSFlushQueue(stream, ACQ_QUEUE_INPUT_TO_OUTPUT), GC_ERR_SUCCESS);
        EXPECT_EQ(byFlush ? Gc().EventFlush(newBuffer) : Gc().EventGetData(newBuffer, nullptr, nullptr, 0),
                  GC_ERR_SUCCESS);
        EXPECT_EQ(Fetch(0), nullptr);
    }
    void *base = nullptr;
    void *user = nullptr;
    EXPECT_EQ(Gc().DSRevokeBuffer(stream, buffer, &base, &user), GC_ERR_SUCCESS);
    EXPECT_EQ(base, memory.data());
    EXPECT_EQ(user, &mark);
}

TEST_F(StreamTest, FramesWaitForALateRegistration)
{
    ASSERT_EQ(Gc().GCUnregisterEvent(stream, EVENT_NEW_BUFFER), GC_ERR_SUCCESS);
    AllocateBuffers(3);
    StartCamera();
    EXPECT_TRUE(Becomes([&] { return StreamInfo<size_t>(STREAM_INFO_NUM_AWAIT_DELIVERY) == 3; }));
    ASSERT_EQ(Gc().GCRegisterEvent(stream, EVENT_NEW_BUFFER, &newBuffer), GC_ERR_SUCCESS);
    for (int i = 0; i < 3; ++i)
        EXPECT_NE(Fetch(), nullptr) << i;
    StopCamera();
}

TEST_F(StreamTest, ClosingWithAWaiterAndARunningStreamEndsTheWait)
{
    for (const bool byInterface : {false, true}) {
        if (byInterface) {
            ASSERT_EQ(OpenDevice(), GC_ERR_SUCCESS) << LastError();
            ASSERT_EQ(Gc().DevOpenDataStream(device, (DeviceId() + "/stream0").c_str(), &stream), GC_ERR_SUCCESS);
            ASSERT_EQ(Gc().GCRegisterEvent(stream, EVENT_NEW_BUFFER, &newBuffer), GC_ERR_SUCCESS);
        }
        AllocateBuffers(3);
        StartCamera();
        ASSERT_NE(Fetch(), nullptr);
        ASSERT_EQ(WriteRegister(kAcquisition, 0), GC_ERR_SUCCESS);
        while (Fetch(30) != nullptr) {
        }
        Waiters waiters(Gc(), newBuffer, 2);
        EXPECT_EQ(byInterface ? Gc().IFClose(interface) : Gc().DevClose(device), GC_ERR_SUCCESS);
        EXPECT_TRUE(Becomes([&] { return waiters.Aborted() + waiters.Other() == 2; }));
        EXPECT_EQ(Gc().DSClose(stream), GC_ERR_INVALID_HANDLE) << "closed with its device";
        EXPECT_EQ(Gc().DevClose(device), GC_ERR_INVALID_HANDLE);
    }
}
