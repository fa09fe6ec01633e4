// Modules that are closed, lost or gone while somebody uses them, through the exported functions.
#include "ConformanceFixture.h"
#include "Waiters.h"

#include <functional>

TEST_F(ConformanceTest, WhatIsBelowAClosedModuleIsGone)
{
    const std::function<GC_ERROR()> kWays[] = {[&] { return Gc().DSClose(stream); },
                                               [&] { return Gc().DevClose(device); },
                                               [&] { return Gc().IFClose(interface); }};
    for (int way = 0; way < 3; ++way) {
        SCOPED_TRACE(way);
        AllocateBuffers(2);
        const BUFFER_HANDLE buffer = TakeOneFrame();
        ASSERT_EQ(Gc().DSStopAcquisition(stream, ACQ_STOP_FLAGS_DEFAULT), GC_ERR_SUCCESS);
        ASSERT_EQ(Gc().DSStartAcquisition(stream, ACQ_START_FLAGS_DEFAULT, GENTL_INFINITE), GC_ERR_SUCCESS);
        Set("AcquisitionStart", "1");
        ASSERT_NE(Fetch(), nullptr) << "the last buffer: nothing more comes";
        const EVENT_HANDLE lost = Register(NUVARK_EVENT_DEVICE_LOST);
        Waiters ofStream(Gc(), newBuffer, 2);
        Waiters ofDevice(Gc(), lost, way == 0 ? 0 : 2);
        ASSERT_EQ(kWays[way](), GC_ERR_SUCCESS) << "while running, with somebody waiting";
        EXPECT_TRUE(Becomes([&] { return ofStream.Ended() + ofDevice.Ended() == (way == 0 ? 2 : 4); }));
        const auto queued = [&](EVENT_HANDLE event) {
            size_t size = 0;
            return Gc().EventGetInfo(event, EVENT_NUM_IN_QUEUE, nullptr, nullptr, &size);
        };
        std::uint8_t bytes[4];
        const GC_ERROR ofDeviceNow = way == 0 ? GC_ERR_SUCCESS : GC_ERR_INVALID_HANDLE;
        EXPECT_EQ(queued(newBuffer), GC_ERR_INVALID_HANDLE);
        EXPECT_EQ(queued(lost), ofDeviceNow);
        EXPECT_EQ(Read(0, bytes, sizeof bytes), ofDeviceNow);
        EXPECT_EQ(Gc().DSQueueBuffer(stream, buffer), GC_ERR_INVALID_HANDLE);
        EXPECT_EQ(Gc().DSClose(stream), GC_ERR_INVALID_HANDLE) << "some consumers close the stream last";
        EXPECT_EQ(Gc().DevClose(device), ofDeviceNow);
        EXPECT_EQ(Gc().IFClose(interface), way == 2 ? GC_ERR_INVALID_HANDLE : GC_ERR_SUCCESS);
        Set("AcquisitionStop", "1");
        ASSERT_NO_FATAL_FAILURE(OpenInterface());
        ASSERT_NO_FATAL_FAILURE(OpenEverything()) << "and all of it again";
    }
}

TEST_F(ConformanceTest, ClosingUnderManyCallersIsAnsweredByCode)
{
    for (int round = 0; round < 8; ++round) {
        AllocateBuffers(3);
        ASSERT_EQ(Gc().DSStartAcquisition(stream, ACQ_START_FLAGS_DEFAULT, GENTL_INFINITE), GC_ERR_SUCCESS);
        BUFFER_HANDLE buffer = nullptr;
        ASSERT_EQ(Gc().DSGetBufferID(stream, 0, &buffer), GC_ERR_SUCCESS);
        Set("AcquisitionStart", "1");
        ASSERT_NE(Fetch(), nullptr) << "frames flow";
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
            ASSERT_NO_FATAL_FAILURE(OpenInterface());
        }
        OpenEverything();
    }
}
