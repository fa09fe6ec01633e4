#include "producer/Event.h"
#include "ProducerFixture.h"
#include "Waiters.h"

TEST(Event, AWaiterWithTooLittleRoomLeavesTheDataToAnother)
{
    for (int round = 0; round < 10; ++round) {
        const auto source = std::make_shared<nuvark::ErrorEvents>();
        nuvark::Event event(EVENT_ERROR, source);
        std::atomic<int> waiting{0};
        const auto wait = [&](std::size_t room, GC_ERROR expected) {
            std::vector<std::uint8_t> bytes(room);
            ++waiting;
            EXPECT_EQ(event.GetData(bytes.data(), &room, GENTL_INFINITE).Code(), expected);
        };
        std::thread cramped([&] { wait(1, GC_ERR_BUFFER_TOO_SMALL); });
        EXPECT_TRUE(Becomes([&] { return waiting == 1; }));
        std::thread roomy([&] { wait(2000, GC_ERR_SUCCESS); });
        EXPECT_TRUE(Becomes([&] { return waiting == 2; }));
        source->Push(nuvark::ErrorEvents::Encode(GC_ERR_IO, "first"));
        event.Notify();
        roomy.join();
        source->Push(nuvark::ErrorEvents::Encode(GC_ERR_IO, "second, in case the cramped one came after the first"));
        event.Notify();
        cramped.join();
    }
}

TEST_F(ProducerTest, AKillEndsExactlyOneWait)
{
    const EVENT_HANDLE event = Register(system, EVENT_ERROR);
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
    for (const bool isUnregistered : {true, false}) {
        Waiters waiters(Gc(), Register(system, EVENT_ERROR), 3);
        ASSERT_EQ(isUnregistered ? Gc().GCUnregisterEvent(system, EVENT_ERROR) : Gc().GCCloseLib(), GC_ERR_SUCCESS);
        EXPECT_TRUE(Becomes([&] { return waiters.Ended() == 3; }));
    }
}

TEST_F(StreamTest, NewBufferEventsServeSeveralWaiters)
{
    AllocateBuffers(3);
    {
        Waiters waiters(Gc(), newBuffer, 3);
        // Delivered with no new data, one event each.
        ASSERT_EQ(Gc().DSFlushQueue(stream, ACQ_QUEUE_INPUT_TO_OUTPUT), GC_ERR_SUCCESS);
        bool all = Becomes([&] { return waiters.Served() == 3; });
        EXPECT_TRUE(all);
        for (int i = 0; !all && i < 3; ++i)
            Gc().EventKill(newBuffer);
    }
    for (const auto &[command, number] : {std::pair(EVENT_NUM_IN_QUEUE, 0U), {EVENT_NUM_FIRED, 3U}}) {
        EXPECT_EQ(AskFor<std::uint64_t>(
                      [&, what = command](auto... out) { return Gc().EventGetInfo(newBuffer, what, out...); }),
                  number);
    }
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
