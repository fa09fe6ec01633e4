// Modules that are closed, lost or gone while somebody uses them, through the exported functions.
#include "ConformanceFixture.h"

TEST_F(ConformanceTest, WhatIsBelowAClosedModuleIsGone)
{
    const EVENT_HANDLE events[] = {Register(EVENT_ERROR), Register(NUVARK_EVENT_DEVICE_LOST)};
    std::thread waiter([&] {
        std::uint8_t bytes[64];
        size_t size = sizeof bytes;
        const GC_ERROR code = Gc().EventGetData(events[0], bytes, &size, GENTL_INFINITE);
        EXPECT_TRUE(code == GC_ERR_ABORT || code == GC_ERR_INVALID_HANDLE) << code << ", the latter when it came late";
    });
    const auto inQueue = [&](EVENT_HANDLE event) {
        size_t size = 0;
        return Gc().EventGetInfo(event, EVENT_NUM_IN_QUEUE, nullptr, nullptr, &size);
    };
    AllocateBuffers(2);
    const BUFFER_HANDLE buffer = TakeOneFrame();
    ASSERT_EQ(Gc().DSStopAcquisition(stream, ACQ_STOP_FLAGS_DEFAULT), GC_ERR_SUCCESS);
    ASSERT_EQ(Gc().DSStartAcquisition(stream, ACQ_START_FLAGS_DEFAULT, GENTL_INFINITE), GC_ERR_SUCCESS);
    Set("AcquisitionStart", "1");
    ASSERT_FALSE(Next(newBuffer).empty());
    ASSERT_EQ(Gc().IFClose(interface), GC_ERR_SUCCESS) << "while running, with somebody waiting";
    waiter.join();
    std::uint8_t bytes[4];
    size_t size = sizeof bytes;
    EXPECT_EQ(inQueue(events[0]), GC_ERR_INVALID_HANDLE);
    EXPECT_EQ(inQueue(events[1]), GC_ERR_INVALID_HANDLE);
    EXPECT_EQ(Gc().GCReadPort(port, 0, bytes, &size), GC_ERR_INVALID_HANDLE);
    EXPECT_EQ(Gc().DSQueueBuffer(stream, buffer), GC_ERR_INVALID_HANDLE);
    EXPECT_EQ(Gc().DSClose(stream), GC_ERR_INVALID_HANDLE) << "some consumers close the stream last";
    EXPECT_EQ(Gc().DevClose(device), GC_ERR_INVALID_HANDLE);
    EXPECT_EQ(Gc().IFClose(interface), GC_ERR_INVALID_HANDLE);
    ASSERT_EQ(Gc().TLOpenInterface(system, "GEV:lo:127.0.0.1", &interface), GC_ERR_SUCCESS) << "and opened again";
    OpenEverything();
}

TEST_F(ConformanceTest, ClosingUnderManyCallersIsAnsweredByCode)
{
    for (int round = 0; round < 8; ++round) {
        AllocateBuffers(3);
        ASSERT_EQ(Gc().GCRegisterEvent(stream, EVENT_NEW_BUFFER, &newBuffer), GC_ERR_SUCCESS);
        ASSERT_EQ(Gc().DSStartAcquisition(stream, ACQ_START_FLAGS_DEFAULT, GENTL_INFINITE), GC_ERR_SUCCESS);
        BUFFER_HANDLE buffer = nullptr;
        ASSERT_EQ(Gc().DSGetBufferID(stream, 0, &buffer), GC_ERR_SUCCESS);
        Set("AcquisitionStart", "1");
        ASSERT_FALSE(Next(newBuffer).empty()) << "frames flow";
        std::atomic<bool> closed{false};
        std::atomic<int> calls{0};
        std::vector<std::thread> callers;
        const auto call = [&](auto function) {
            callers.emplace_back([&closed, &calls, function] {
                for (bool after = false; !after; ++calls) {
                    after = closed; // this call begins after the closing
                    const GC_ERROR code = function();
                    EXPECT_NE(code, GC_ERR_ERROR) << "that is what an exception becomes";
                    if (after) {
                        EXPECT_EQ(code, GC_ERR_INVALID_HANDLE);
                    }
                }
            });
        };
        std::uint8_t bytes[8][64];
        size_t sizes[8] = {4, 0, 0, 64, 0, 64};
        call([&] { return Gc().GCReadPort(port, 0x0938, bytes[0], &sizes[0]); });
        call([&] { return Gc().GCGetPortURLInfo(port, 0, URL_INFO_URL, nullptr, nullptr, &sizes[1]); });
        call([&] {
            EVENT_HANDLE event = nullptr;
            const GC_ERROR code = Gc().GCRegisterEvent(device, EVENT_REMOTE_DEVICE, &event);
            (void)Gc().GCUnregisterEvent(device, EVENT_REMOTE_DEVICE);
            return code;
        });
        call([&] {
            EVENT_HANDLE event = nullptr;
            const GC_ERROR code = Gc().GCRegisterEvent(device, NUVARK_EVENT_CONTROL_TRAFFIC, &event);
            (void)Gc().EventGetData(event, nullptr, &sizes[2], 1);
            (void)Gc().GCUnregisterEvent(device, NUVARK_EVENT_CONTROL_TRAFFIC);
            return code;
        });
        call([&] {
            sizes[3] = sizeof bytes[3];
            return Gc().EventGetData(newBuffer, bytes[3], &sizes[3], 20);
        });
        call([&] { return Gc().DSGetInfo(stream, STREAM_INFO_NUM_DELIVERED, nullptr, nullptr, &sizes[4]); });
        call([&] {
            sizes[5] = sizeof bytes[5];
            (void)Gc().DSGetBufferInfo(stream, buffer, BUFFER_INFO_WIDTH, nullptr, bytes[5], &sizes[5]);
            return Gc().DSQueueBuffer(stream, buffer);
        });
        call([&] { return Gc().DSFlushQueue(stream, ACQ_QUEUE_UNQUEUED_TO_INPUT); });
        call([&] { return Gc().DSFlushQueue(stream, ACQ_QUEUE_ALL_DISCARD); });
        call([&] { return Gc().DSStopAcquisition(stream, ACQ_STOP_FLAGS_KILL); });
        call([&] { return Gc().DSStartAcquisition(stream, ACQ_START_FLAGS_DEFAULT, GENTL_INFINITE); });
        EXPECT_TRUE(Becomes([&] { return calls > 200; }));
        EXPECT_EQ(round % 2 == 0 ? Gc().DevClose(device) : Gc().IFClose(interface), GC_ERR_SUCCESS);
        closed = true;
        for (std::thread &caller : callers)
            caller.join();
        Set("AcquisitionStop", "1");
        if (round % 2 != 0) {
            ASSERT_EQ(Gc().TLOpenInterface(system, "GEV:lo:127.0.0.1", &interface), GC_ERR_SUCCESS);
        }
        OpenEverything();
    }
}

TEST_F(ConformanceTest, ACameraThatReturnsIsFoundAgain)
{
    const auto listed = [&] {
        std::uint32_t count = 0;
        EXPECT_EQ(Gc().IFUpdateDeviceList(interface, nullptr, 150), GC_ERR_SUCCESS);
        EXPECT_EQ(Gc().IFGetNumDevices(interface, &count), GC_ERR_SUCCESS);
        return count;
    };
    EVENT_HANDLE lost = Register(NUVARK_EVENT_DEVICE_LOST);
    camera->Close();
    const Stopwatch watch;
    EXPECT_FALSE(Next(lost, 10000).empty());
    EXPECT_LT(watch.Milliseconds(), 4500) << "three seconds of silence, and some";
    EXPECT_EQ(listed(), 0U);
    ASSERT_EQ(camera->Open(), "");
    EXPECT_EQ(listed(), 1U);
    EXPECT_EQ(Gc().DevClose(device), GC_ERR_SUCCESS);
    OpenEverything();
    std::uint8_t bytes[4];
    EXPECT_EQ(Read(0x0938, bytes, 4), GC_ERR_SUCCESS) << LastError();
}
