#pragma once

#include "SimulatedFixture.h"

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
        StartCamera(gige);
        ASSERT_EQ(Gc().IFUpdateDeviceList(interface, nullptr, 200), GC_ERR_SUCCESS);
        OpenEverything();
    }
    void OpenEverything()
    {
        ASSERT_NO_FATAL_FAILURE(OpenDevice());
        ASSERT_NO_FATAL_FAILURE(OpenStream());
    }
    void AllocateBuffers(int count) { ProducerTest::AllocateBuffers(count, 1 << 14, this); }
};
