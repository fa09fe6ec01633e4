#pragma once

#include "SimulatedFixture.h"

#include <algorithm>
#include <cstring>

/// With everything open that a camera of this process has: its port and its stream.
class ConformanceTest : public SimulatedTest {
protected:
    void SetUp() override
    {
        SimulatedTest::SetUp();
        OpenAll();
    }
    void OpenAll(orvsim::GigeOptions gige = {})
    {
        StartCamera(SmallCamera(), gige);
        ASSERT_EQ(Gc().IFUpdateDeviceList(interface, nullptr, 200), GC_ERR_SUCCESS);
        OpenEverything();
    }
    void OpenEverything()
    {
        ASSERT_NO_FATAL_FAILURE(OpenDevice());
        size_t size = sizeof streamId;
        ASSERT_EQ(Gc().DevGetDataStreamID(device, 0, streamId, &size), GC_ERR_SUCCESS);
        ASSERT_EQ(Gc().DevOpenDataStream(device, streamId, &stream), GC_ERR_SUCCESS);
    }
    void AllocateBuffers(int count)
    {
        for (int i = 0; i < count; ++i) {
            BUFFER_HANDLE buffer = nullptr;
            ASSERT_EQ(Gc().DSAllocAndAnnounceBuffer(stream, kBufferSize, this, &buffer), GC_ERR_SUCCESS);
            ASSERT_EQ(Gc().DSQueueBuffer(stream, buffer), GC_ERR_SUCCESS);
        }
    }
    /// Lets one frame come. Fills `newBuffer`.
    BUFFER_HANDLE TakeOneFrame()
    {
        EXPECT_EQ(Gc().GCRegisterEvent(stream, EVENT_NEW_BUFFER, &newBuffer), GC_ERR_SUCCESS);
        EXPECT_EQ(Gc().DSStartAcquisition(stream, ACQ_START_FLAGS_DEFAULT, 1), GC_ERR_SUCCESS) << LastError();
        Set("AcquisitionStart", "1");
        const auto bytes = Next(newBuffer);
        Set("AcquisitionStop", "1");
        EVENT_NEW_BUFFER_DATA data{};
        EXPECT_EQ(bytes.size(), sizeof data);
        std::memcpy(&data, bytes.data(), std::min(bytes.size(), sizeof data));
        return data.BufferHandle;
    }

    static constexpr std::size_t kBufferSize = 1 << 14;
    char streamId[256] = {};
    DS_HANDLE stream = nullptr;
    EVENT_HANDLE newBuffer = nullptr;
};
