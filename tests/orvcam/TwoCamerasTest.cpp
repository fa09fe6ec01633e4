#include "ScriptedFixture.h"
#include "simulator/gige/GigeCamera.h"
#include "support/PrivateNetwork.h"

#include "orvcam/OrvStatus.h"

#include <algorithm>
#include <memory>
#include <mutex>
#include <vector>

namespace {

using Bytes = std::vector<unsigned char>;

/// Keeps what came; any thread.
struct Packets {
    std::mutex mutex;
    std::vector<Bytes> all;

    static void Add(const void *data, unsigned long size, void *packets)
    {
        auto *self = static_cast<Packets *>(packets);
        const auto *bytes = static_cast<const unsigned char *>(data);
        std::lock_guard<std::mutex> lock(self->mutex);
        self->all.emplace_back(bytes, bytes + size);
    }
    std::size_t Count(bool (*condition)(const Bytes &) = [](const Bytes &) { return true; })
    {
        std::lock_guard<std::mutex> lock(mutex);
        return static_cast<std::size_t>(std::count_if(all.begin(), all.end(), condition));
    }
};

/// Our producer with software cameras in this process.
class TwoCameras : public testing::Test {
protected:
    void SetUp() override
    {
        (void)InPrivateNetwork();
        system = ScriptedSystem();
        ASSERT_EQ(ORV_CAM_OK, system->LoadProducer(ORV_PRODUCER_FILE));
        for (std::uint32_t i = 0; i < 2; ++i) {
            orvsim::CameraOptions options;
            options.serial = "PAIR" + std::to_string(i);
            options.sensor.width = 64u << i;
            options.sensor.height = 48;
            options.frameRate = 100;
            options.frameMemory = 1 << 20;
            orvsim::GigeOptions gige;
            gige.address = 0x7f000015 + i;
            cameras[i] = std::make_unique<orvsim::GigeCamera>(options, gige);
            ASSERT_EQ("", cameras[i]->Open());
        }
        OrvCam::InterfaceList *list = system->GetInterfaceList(255);
        for (OrvCam::DeviceList *found = list->First(); found != nullptr; found = list->Next()) {
            for (const auto *one = found->First(); one != nullptr; one = found->Next()) {
                if (one->serial.rfind("PAIR", 0) == 0)
                    devices[one->serial.back() - '0'] = OrvCam_CreateDevice(one, OrvCam::ORV_ACCESS_CONTROL, 0);
            }
        }
        list->Release();
        ASSERT_TRUE(devices[0] != nullptr && devices[1] != nullptr);
    }
    void TearDown() override
    {
        for (OrvCam::Device *device : devices) {
            if (device != nullptr)
                device->Release();
        }
    }
    static void Start(OrvCam::Device &device)
    {
        OrvCam::Stream *stream = device.GetStreamByIndex(0);
        ASSERT_EQ(ORV_CAM_OK, stream->AllocBufferQueue(nullptr, 8));
        ASSERT_EQ(ORV_CAM_OK, stream->StartAcquisition(OrvCam::kInfinite, 0));
        ASSERT_EQ(ORV_CAM_OK, device.GetCameraParameters()->ExecuteCommand("AcquisitionStart"));
    }
    static void Stop(OrvCam::Device &device)
    {
        EXPECT_EQ(ORV_CAM_OK, device.GetCameraParameters()->ExecuteCommand("AcquisitionStop"));
        EXPECT_EQ(ORV_CAM_OK, device.GetStreamByIndex(0)->StopAcquisition(1));
    }
    /// Frames of the right size, in rising order.
    static void Take(OrvCam::Device &device, int frames, std::uint32_t width)
    {
        std::uint64_t last = 0;
        for (int i = 0; i < frames; ++i) {
            int status = 0;
            OrvCam::Buffer *buffer = device.GetStreamByIndex(0)->GetBuffer(5000, &status);
            ASSERT_NE(nullptr, buffer) << status;
            EXPECT_EQ(width, buffer->GetImage()->width);
            EXPECT_GT(buffer->GetFrameID(), last);
            last = buffer->GetFrameID();
            device.GetStreamByIndex(0)->QueueBuffer(buffer);
        }
    }

    OrvCam::System *system = nullptr;
    std::unique_ptr<orvsim::GigeCamera> cameras[2];
    OrvCam::Device *devices[2] = {};
};

TEST_F(TwoCameras, StreamBesideEachOtherAndOneMayGo)
{
    for (OrvCam::Device *device : devices)
        Start(*device);
    std::thread other([&] { Take(*devices[1], 50, 128); });
    Take(*devices[0], 50, 64);
    other.join();
    for (OrvCam::Device *device : devices) {
        const OrvCam::StreamStatistics figures = device->GetStreamByIndex(0)->GetStatistics();
        EXPECT_GE(figures.delivered, 50u);
        EXPECT_GE(figures.packets, 50u * 4);
        EXPECT_GT(figures.receiveBuffer, 0u);
        EXPECT_GE(figures.packetSize, 576u);
    }
    cameras[0].reset();
    int status = ORV_CAM_OK;
    while (status == ORV_CAM_OK) {
        if (OrvCam::Buffer *buffer = devices[0]->GetStreamByIndex(0)->GetBuffer(10000, &status))
            devices[0]->GetStreamByIndex(0)->QueueBuffer(buffer);
    }
    EXPECT_EQ(ORV_CAM_ERR_DEVICE_LOST, status);
    Take(*devices[1], 20, 128);
    Stop(*devices[1]);
}

TEST_F(TwoCameras, TrafficIsTheDevicesOwnAndOnlyWhileRegistered)
{
    Packets control;
    Packets stream;
    Packets messages;
    ASSERT_EQ(ORV_CAM_OK, devices[0]->RegisterEvent(OrvCam::kEventControlTraffic, Packets::Add, &control));
    ASSERT_EQ(ORV_CAM_OK, devices[0]->RegisterEvent(OrvCam::kEventStreamTraffic, Packets::Add, &stream));
    ASSERT_EQ(ORV_CAM_OK, devices[0]->RegisterEvent(OrvCam::kEventEventTraffic, Packets::Add, &messages));
    devices[0]->GetCameraParameters()->GetInt("Width")->GetValue();
    const auto isCommand = [](const Bytes &packet) { return packet.size() >= 8 && packet[0] == 0x42; };
    const auto isAnswer = [](const Bytes &packet) { return packet.size() >= 8 && packet[0] == 0; };
    EXPECT_TRUE(WaitFor([&] { return control.Count(isCommand) > 0 && control.Count(isAnswer) > 0; }));
    for (OrvCam::Device *device : devices)
        Start(*device);
    Take(*devices[0], 10, 64);
    Take(*devices[1], 10, 128);
    EXPECT_TRUE(WaitFor([&] { return stream.Count() >= 50; }));
    // The leader of an image tells its width, at a place that depends on the form of the ids.
    const auto isForeign = [](const Bytes &packet) {
        const std::size_t header = packet.size() > 4 && (packet[4] & 0x80) != 0 ? 20 : 8;
        const bool isLeader = packet.size() >= header + 28 && (packet[4] & 0x0f) == 1;
        return isLeader && packet[header + 19] != 64;
    };
    EXPECT_EQ(0u, stream.Count(isForeign));
    EXPECT_EQ(ORV_CAM_OK, devices[0]->UnregisterEvent(OrvCam::kEventStreamTraffic, Packets::Add, &stream));
    const std::size_t before = stream.Count();
    Take(*devices[0], 10, 64);
    EXPECT_EQ(before, stream.Count());
    for (OrvCam::Device *device : devices)
        Stop(*device);
    devices[0]->Release(); // with two events registered
    devices[0] = nullptr;
}

} // namespace
