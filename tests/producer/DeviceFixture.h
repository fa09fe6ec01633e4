#pragma once

#include "producer/gige/GigeDevice.h"
#include "producer/gige/Text.h"

#include "ProducerFixture.h"
#include "ScriptedDevice.h"

class Listener final : public nuvark::CameraListener {
public:
    void OnCameraLost(const std::string &reason) override
    {
        text = reason;
        isLost = true;
    }
    std::string text;
    std::atomic<bool> isLost{false};
};

inline nuvark::Result<std::unique_ptr<nuvark::Camera>> OpenOnLoopback(const char *address, nuvark::CameraAccess access,
                                                                      nuvark::CameraListener &listener)
{
    nuvark::gige::NetworkInterface interface;
    interface.name = "lo";
    interface.index = 1;
    interface.address = 0x7F000001;
    interface.mask = 0xFF000000;
    return nuvark::gige::GigeDevice::Open(interface, *nuvark::gige::ParseAddress(address), access, listener);
}

/// Gives one buffer out again and again.
class OneBuffer final : public nuvark::FrameSink {
public:
    explicit OneBuffer(std::size_t size) : m_memory(size) {}

    bool TakeBuffer(nuvark::FrameTarget &target) override
    {
        target = {m_memory.data(), m_memory.size(), this};
        return true;
    }
    void Deliver(const nuvark::FrameTarget &, const nuvark::FrameInfo &info) override
    {
        if (onDeliver)
            onDeliver();
        ++(info.isIncomplete ? incomplete : complete);
    }
    void GiveBack(const nuvark::FrameTarget &) override {}

    std::function<void()> onDeliver;
    std::atomic<int> complete{0};
    std::atomic<int> incomplete{0};

private:
    std::vector<std::uint8_t> m_memory;
};

/// A camera of plain registers, opened without the rest of the producer.
class GigeDeviceTest : public ::testing::Test {
protected:
    void Open(const char *address = kScriptedAddress, nuvark::CameraAccess access = nuvark::CameraAccess::Control)
    {
        auto opened = OpenOnLoopback(address, access, listener);
        ASSERT_TRUE(opened.Ok()) << opened.status.Text();
        device = std::move(opened.value);
        stream = device->MakeStream(0);
    }
    nuvark::Status StartStream() { return stream->Start(sink, kMostBytes); }

    static constexpr std::size_t kMostBytes = 12000; ///< of a frame
    RegisterCamera camera;
    Listener listener;
    OneBuffer sink{kMostBytes};
    std::unique_ptr<nuvark::Camera> device;
    std::unique_ptr<nuvark::StreamChannel> stream;
};
