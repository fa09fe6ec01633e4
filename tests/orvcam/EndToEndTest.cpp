#include "ScriptedFixture.h"
#include "support/ForeignCamera.h"

#include "orvcam/OrvStatus.h"
#include "orvimage/PixelFormats.h"

#include <cstdio>
#include <set>

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

/// Our own producer and a software camera that others wrote.
class EndToEnd : public testing::Test {
protected:
    void SetUp() override
    {
        if (!ForeignCamera::Installed())
            GTEST_SKIP() << "the software camera is not installed";
        system = ScriptedSystem();
        ASSERT_NE(nullptr, system);
        ASSERT_EQ(ORV_CAM_OK, system->LoadProducer(ORV_PRODUCER_FILE));
        ASSERT_TRUE(camera.Start("127.0.0.12", "ORV12"));
        Open();
    }
    void TearDown() override
    {
        if (device != nullptr)
            device->Release();
    }
    /// What discovery tells of the camera; an empty serial number when it is not seen.
    OrvCam::DeviceDescription Find() const
    {
        OrvCam::DeviceDescription found;
        OrvCam::InterfaceList *list = system->GetInterfaceList(255);
        for (OrvCam::DeviceList *devices = list->First(); devices != nullptr; devices = list->Next()) {
            for (const auto *entry = devices->First(); entry != nullptr; entry = devices->Next()) {
                if (entry->serial == camera.Serial() && devices->Interface().producer == "Nuvark.cti")
                    found = *entry;
            }
        }
        list->Release();
        return found;
    }
    void Open()
    {
        description = Find();
        ASSERT_EQ(camera.Serial(), description.serial);
        device = OrvCam_CreateDevice(&description, OrvCam::ORV_ACCESS_CONTROL, 0);
        std::string text;
        system->LastError(&text);
        ASSERT_NE(nullptr, device) << text;
        features = device->GetCameraParameters();
        ASSERT_NE(nullptr, features);
    }
    void Stream()
    {
        stream = device->GetStreamByIndex(0);
        ASSERT_NE(nullptr, stream);
        ASSERT_EQ(ORV_CAM_OK, stream->AllocBufferQueue(this, 8));
        const int locked = features->SetIntegerValue("TLParamsLocked", 1);
        ASSERT_TRUE(locked == ORV_CAM_OK || locked == ORV_CAM_ERR_FEATURE_NOT_PRESENT) << locked;
        ASSERT_EQ(ORV_CAM_OK, stream->StartAcquisition(OrvCam::kInfinite, 0));
        ASSERT_EQ(ORV_CAM_OK, features->ExecuteCommand("AcquisitionStart"));
    }

    ForeignCamera camera;
    OrvCam::DeviceDescription description;
    OrvCam::System *system = nullptr;
    OrvCam::Device *device = nullptr;
    OrvCam::FeatureArray *features = nullptr;
    OrvCam::Stream *stream = nullptr;
};

TEST_F(EndToEnd, FromTheListToThirtyFrames)
{
    EXPECT_EQ("Aravis", description.vendor);
    EXPECT_EQ(camera.Address(), description.address);
    EXPECT_EQ(OrvCam::DeviceState::Free, description.state);
    OrvCam::IntegerNode *width = features->GetInt("Width");
    ASSERT_NE(nullptr, width);
    EXPECT_EQ(ORV_CAM_OK, width->SetValue(320));
    EXPECT_EQ(ORV_CAM_ERR_OUT_OF_RANGE, width->SetValue(width->GetMax() + 1));
    EXPECT_EQ(ORV_CAM_OK, features->GetEnum("PixelFormat")->SetValue("Mono8"));
    EXPECT_EQ(ORV_CAM_OK, features->GetFloat("AcquisitionFrameRate")->SetValue(100));

    Stream();
    if (HasFatalFailure())
        return;
    const auto height = static_cast<std::uint32_t>(features->GetInt("Height")->GetValue());
    std::set<std::uint64_t> sums;
    std::uint64_t last = 0;
    int complete = 0;
    for (int tries = 0; complete < 30 && tries < 60; ++tries) {
        int status = 0;
        OrvCam::Buffer *buffer = stream->GetBuffer(5000, &status);
        ASSERT_NE(nullptr, buffer) << status;
        const _OrvImage *image = buffer->GetImage();
        EXPECT_GT(buffer->GetFrameID(), last);
        last = buffer->GetFrameID();
        if (!buffer->IsIncomplete()) {
            ++complete;
            EXPECT_EQ(320u, image->width);
            EXPECT_EQ(height, image->height);
            EXPECT_EQ(orv::kMono8, image->pixelType);
            ASSERT_EQ(320u * height, image->dataSize);
            std::uint64_t sum = 0;
            for (std::size_t i = 0; i < image->dataSize; ++i)
                sum = sum * 31 + static_cast<const unsigned char *>(image->data)[i];
            sums.insert(sum);
        }
        ASSERT_EQ(ORV_CAM_OK, stream->QueueBuffer(buffer));
    }
    EXPECT_EQ(30, complete);
    EXPECT_GT(sums.size(), 10u) << "the pictures change";
    EXPECT_EQ(ORV_CAM_OK, features->ExecuteCommand("AcquisitionStop"));
    EXPECT_EQ(ORV_CAM_OK, stream->StopAcquisition(1));
    EXPECT_EQ(ORV_CAM_OK, stream->ReleaseBufferQueue());
}

TEST_F(EndToEnd, ConfigurationOfACameraThatMarksNothing)
{
    const std::string path = testing::TempDir() + "orv_end_to_end.zccf";
    features->SetIntegerValue("Width", 200);
    features->GetEnum("PixelFormat")->SetValue("Mono16");
    ASSERT_EQ(ORV_CAM_OK, device->SaveFeatures(path.c_str()));
    features->SetIntegerValue("Width", 100);
    features->GetEnum("PixelFormat")->SetValue("Mono8");
    EXPECT_EQ(ORV_CAM_OK, device->LoadFeatures(path.c_str()));
    EXPECT_EQ(200, features->GetInt("Width")->GetValue());
    EXPECT_EQ("Mono16", features->GetEnum("PixelFormat")->GetValue());
    std::remove(path.c_str());
}

TEST_F(EndToEnd, PowerCutWhileStreaming)
{
    std::atomic<int> lost{0};
    const auto onLost = [](const void *, unsigned long, void *context) { ++*static_cast<std::atomic<int> *>(context); };
    ASSERT_EQ(ORV_CAM_OK, device->RegisterEvent(OrvCam::kEventDeviceLost, onLost, &lost));
    Stream();
    if (HasFatalFailure())
        return;
    ASSERT_NE(nullptr, stream->GetBuffer(5000, nullptr));
    std::atomic<int> status{0};
    std::thread grabber([&] {
        int result = 0;
        while (OrvCam::Buffer *buffer = stream->GetBuffer(OrvCam::kInfinite, &result))
            stream->QueueBuffer(buffer);
        status = result;
    });
    camera.Kill();
    EXPECT_TRUE(WaitFor([&] { return lost == 1; }, milliseconds(4000)));
    grabber.join();
    EXPECT_EQ(ORV_CAM_ERR_DEVICE_LOST, status);
    const auto start = steady_clock::now();
    EXPECT_EQ(ORV_CAM_ERR_DEVICE_LOST, features->ExecuteCommand("AcquisitionStop"));
    EXPECT_EQ(ORV_CAM_OK, stream->StopAcquisition(1));
    device->Release();
    device = nullptr;
    EXPECT_LT(steady_clock::now() - start, milliseconds(1500));
    EXPECT_EQ(1, lost);
}

} // namespace
