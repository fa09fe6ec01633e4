#include "ScriptedFixture.h"

#include "orvcam/InterfaceListImp.h"
#include "orvcam/OrvStatus.h"

#include <gmock/gmock.h>

#include <set>

namespace {

using testing::HasSubstr;

TEST(System, LoadsWhatWorksAndSkipsTheRest)
{
    OrvCam::System *system = ScriptedSystem();
    ASSERT_NE(nullptr, system) << "one broken producer must not keep the others away";
    EXPECT_EQ(system, OrvCam_GetSystem());
    EXPECT_EQ(ORV_CAM_OK, system->LoadProducer("Scripted.cti"));
    EXPECT_EQ(ORV_CAM_OK, system->LoadProducer("Scripted.cti")) << "open already";
    std::string text;
    EXPECT_EQ(ORV_CAM_ERR_NO_PRODUCER, system->LoadProducer("Broken.cti"));
    EXPECT_EQ(ORV_CAM_ERR_NO_PRODUCER, system->LastError(&text));
    EXPECT_THAT(text, HasSubstr("TLOpen"));
    EXPECT_EQ(ORV_CAM_ERR_NO_PRODUCER, system->LoadProducer("Junk.cti"));
    EXPECT_EQ(ORV_CAM_ERR_NO_PRODUCER, system->LoadProducer("NoSuch.cti"));
    system->LastError(&text);
    EXPECT_THAT(text, HasSubstr("NoSuch.cti"));
    EXPECT_EQ(ORV_CAM_ERR_INVALID_PARAMETER, system->LoadProducer(nullptr));
    EXPECT_EQ(nullptr, dlopen(SCRIPTED_FOLDER "/LeftOut.cti", RTLD_NOW | RTLD_NOLOAD)) << "was to be skipped";
}

TEST(System, ListsEachCameraOnceAndPrefersOurs)
{
    OrvCam::System *system = ScriptedSystem();
    OrvCam::InterfaceList *list = system->GetInterfaceList(255);
    ASSERT_NE(nullptr, list);
    std::set<std::string> producers;
    int cameras = 0;
    OrvCam::DeviceDescription camera;
    for (OrvCam::DeviceList *devices = list->First(); devices != nullptr; devices = list->Next()) {
        producers.insert(devices->Interface().producer);
        for (const auto *device = devices->First(); device != nullptr; device = devices->Next()) {
            if (device->serial == "4711") {
                camera = *device;
                ++cameras;
            }
        }
    }
    list->Release();
    EXPECT_TRUE(producers.count("Scripted.cti") == 1 && producers.count("ScriptedFirst.cti") == 1);
    EXPECT_EQ(1, cameras);
    EXPECT_EQ("ScriptedOurs.cti", camera.interface.producer);
    EXPECT_EQ("memory", camera.interface.text);
    EXPECT_EQ(OrvCam::ORV_INTERFACE_GEV, camera.interface.type);
    EXPECT_EQ("127.0.0.99", camera.address);
    EXPECT_EQ(OrvCam::DeviceState::Free, camera.state);

    list = system->GetInterfaceList(1u << OrvCam::ORV_INTERFACE_U3V);
    ASSERT_NE(nullptr, list);
    EXPECT_EQ(nullptr, list->First()) << "the mask leaves out the other kinds";
    list->Release();
}

TEST(System, DoublesGoOnlyBetweenProducers)
{
    using orv::cam::InterfaceDevices;
    const auto device = [](const char *serial) {
        OrvCam::DeviceDescription made;
        made.vendor = "V";
        made.model = "M";
        made.serial = serial;
        return made;
    };
    std::vector<InterfaceDevices> found(4);
    found[0].interface.producer = "a.cti";
    found[0].devices = {device("1"), device("2"), device("")};
    found[1].interface.producer = "b.cti";
    found[1].isOurs = true;
    found[1].devices = {device("1"), device("")};
    found[2].interface.producer = "b.cti";
    found[2].isOurs = true;
    found[2].devices = {device("1")};
    found[3].interface.producer = "c.cti";
    found[3].devices = {device("2")};
    orv::cam::RemoveDoubles(&found);
    EXPECT_EQ(2u, found[0].devices.size()) << "1 is ours; 2 was seen here first; no serial number, no double";
    EXPECT_EQ(2u, found[1].devices.size());
    EXPECT_EQ(1u, found[2].devices.size()) << "one producer sees it on two interfaces: both stay";
    EXPECT_EQ(0u, found[3].devices.size());
}

/// Cameras of the producer that passes for ours.
class Opening : public testing::Test {
protected:
    Opening() : gone(good), unloaded(good)
    {
        gone.id = "cam9";
        unloaded.interface.producer = "Other.cti";
        script->reset();
    }
    ~Opening() override
    {
        script->reset();
        EXPECT_EQ(0, script->devicesOpen + script->eventsRegistered);
    }

    OrvCam::System *system = ScriptedSystem();
    Script *script = ScriptOf("ScriptedOurs.cti");
    OrvCam::DeviceDescription good = ScriptedCamera("ScriptedOurs.cti"), gone, unloaded;
};

TEST_F(Opening, FailuresToOpenReadLikeSentences)
{
    OrvCam::DeviceDescription far = good;
    far.state = OrvCam::DeviceState::Unreachable;
    const struct {
        const OrvCam::DeviceDescription &camera;
        int access;
        GC_ERROR result;
        int status;
        const char *text;
        DEVICE_ACCESS_STATUS state = DEVICE_ACCESS_STATUS_READWRITE;
        int isHeld = 0;
    } kCases[] = {
        {good, 2, GC_ERR_ACCESS_DENIED, ORV_CAM_ERR_BUSY,
         "The camera Nuvark Cam (SN 4711) is in use by another program (127.0.0.1:999).",
         DEVICE_ACCESS_STATUS_READWRITE, 1},
        {good, 2, GC_ERR_ACCESS_DENIED, ORV_CAM_ERR_BUSY, "in use by another program.", DEVICE_ACCESS_STATUS_READONLY},
        {good, 2, GC_ERR_BUSY, ORV_CAM_ERR_BUSY, "in use by another program.", DEVICE_ACCESS_STATUS_BUSY},
        {good, 2, GC_ERR_BUSY, ORV_CAM_ERR_BUSY, "cannot be opened. IFOpenDevice"}, // nobody holds it
        {good, 2, GC_ERR_ACCESS_DENIED, ORV_CAM_ERR_BUSY, "in use by another program."},
        {good, 2, GC_ERR_RESOURCE_IN_USE, ORV_CAM_ERR_BUSY, "is already open in this program."},
        {good, 2, GC_ERR_IO, ORV_CAM_ERR_IO, "cannot be opened. IFOpenDevice: not today (-1010)"},
        {good, 2, GC_ERR_ACCESS_DENIED, ORV_CAM_ERR_UNREACHABLE,
         "its address 127.0.0.99 does not fit the interface memory", DEVICE_ACCESS_STATUS_NOACCESS},
        {far, 2, GC_ERR_IO, ORV_CAM_ERR_UNREACHABLE, "does not fit the interface", DEVICE_ACCESS_STATUS_UNKNOWN},
        {good, 1, GC_ERR_NOT_IMPLEMENTED, ORV_CAM_ERR_NOT_IMPLEMENTED, "cannot be opened"},
        {good, 7, GC_ERR_SUCCESS, ORV_CAM_ERR_INVALID_PARAMETER, "7"},
        {gone, 2, GC_ERR_SUCCESS, ORV_CAM_ERR_NOT_FOUND, "not connected any more"},
        {unloaded, 2, GC_ERR_SUCCESS, ORV_CAM_ERR_NO_PRODUCER, "Other.cti"},
    };
    for (const auto &row : kCases) {
        SCOPED_TRACE(row.text);
        script->reset();
        script->openResult = row.result;
        script->accessStatus = row.state;
        script->isHeld = row.isHeld;
        EXPECT_EQ(nullptr, OrvCam_CreateDevice(&row.camera, row.access, 0));
        std::string text;
        EXPECT_EQ(row.status, system->LastError(&text));
        EXPECT_THAT(text, HasSubstr(row.text));
        std::thread([&] { EXPECT_EQ(ORV_CAM_OK, system->LastError(nullptr)) << "of another thread"; }).join();
    }
    EXPECT_EQ(nullptr, OrvCam_CreateDevice(nullptr, 2, 0));
    EXPECT_EQ(ORV_CAM_ERR_INVALID_PARAMETER, system->LastError(nullptr));
}

TEST_F(Opening, SecondOpeningSaysWhy)
{
    OrvCam::Device *first = OrvCam_CreateDevice(&good, OrvCam::ORV_ACCESS_CONTROL, 0);
    ASSERT_NE(nullptr, first);
    EXPECT_EQ(OrvCam::DeviceState::OpenHere, first->GetDescription().state);
    EXPECT_EQ(nullptr, OrvCam_CreateDevice(&good, OrvCam::ORV_ACCESS_CONTROL, 0));
    EXPECT_EQ(ORV_CAM_ERR_BUSY, system->LastError(nullptr));
    first->Release();
    OrvCam::Device *second = OrvCam_CreateDevice(&good, OrvCam::ORV_ACCESS_EXCLUSIVE, 0);
    ASSERT_NE(nullptr, second);
    second->Release();
}

TEST_F(Opening, ForcesAddressesThroughTheInterface)
{
    const struct {
        const char *rule;
        const OrvCam::DeviceDescription &camera;
        const char *address, *mask, *gateway;
        GC_ERROR result;
        int status;
        int forces;
    } kCases[] = {
        {"taken", good, "192.168.10.20", "255.255.255.0", "192.168.10.1", GC_ERR_SUCCESS, ORV_CAM_OK, 1},
        {"no gateway", good, "10.0.0.2", "255.0.0.0", "0.0.0.0", GC_ERR_SUCCESS, ORV_CAM_OK, 1},
        {"no answer", good, "10.0.0.2", "255.0.0.0", "0.0.0.0", GC_ERR_TIMEOUT, ORV_CAM_ERR_TIMEOUT, 1},
        {"refused", good, "10.0.0.2", "255.0.0.0", "0.0.0.0", GC_ERR_ACCESS_DENIED, ORV_CAM_ERR_ACCESS_DENIED, 1},
        {"not listed", gone, "10.0.0.2", "255.0.0.0", "0.0.0.0", GC_ERR_SUCCESS, ORV_CAM_ERR_NOT_FOUND, 0},
        {"no producer", unloaded, "10.0.0.2", "255.0.0.0", "", GC_ERR_SUCCESS, ORV_CAM_ERR_NO_PRODUCER, 0},
        {"no address", good, "10.0.0", "255.0.0.0", "", GC_ERR_SUCCESS, ORV_CAM_ERR_INVALID_PARAMETER, 0},
        {"the subnet itself", good, "10.0.0.0", "255.0.0.0", "", GC_ERR_SUCCESS, ORV_CAM_ERR_INVALID_PARAMETER, 0},
        {"broadcast", good, "10.0.0.255", "255.255.255.0", "", GC_ERR_SUCCESS, ORV_CAM_ERR_INVALID_PARAMETER, 0},
        {"a group", good, "239.0.0.1", "255.255.255.0", "", GC_ERR_SUCCESS, ORV_CAM_ERR_INVALID_PARAMETER, 0},
        {"mask with holes", good, "10.0.0.2", "255.0.255.0", "", GC_ERR_SUCCESS, ORV_CAM_ERR_INVALID_PARAMETER, 0},
        {"empty mask", good, "10.0.0.2", "0.0.0.0", "", GC_ERR_SUCCESS, ORV_CAM_ERR_INVALID_PARAMETER, 0},
        {"gateway outside", good, "10.0.0.2", "255.255.255.0", "10.0.1.1", GC_ERR_SUCCESS,
         ORV_CAM_ERR_INVALID_PARAMETER, 0},
    };
    for (const auto &row : kCases) {
        SCOPED_TRACE(row.rule);
        script->reset();
        script->forceResult = row.result;
        EXPECT_EQ(row.status, system->ForceAddress(row.camera, row.address, row.mask, row.gateway));
        EXPECT_EQ(row.forces, script->forces);
        std::string text;
        if (row.status != ORV_CAM_OK) {
            EXPECT_EQ(row.status, system->LastError(&text));
            EXPECT_NE("", text);
        }
    }
    script->reset();
    ASSERT_EQ(ORV_CAM_OK, system->ForceAddress(good, "192.168.10.20", "255.255.255.0", "192.168.10.1"));
    EXPECT_EQ(1u, script->forcedDevice) << "the camera is the second on the list";
    EXPECT_EQ(0xc0a80a14u, script->forcedAddress);
    EXPECT_EQ(0xffffff00u, script->forcedMask);
    EXPECT_EQ(0xc0a80a01u, script->forcedGateway);
    const int updates = script->updates;
    system->ForceAddress(gone, "10.0.0.2", "255.0.0.0", "");
    EXPECT_EQ(updates + 1, script->updates) << "looked for anew before giving up";
    EXPECT_EQ(ORV_CAM_ERR_NOT_IMPLEMENTED,
              system->ForceAddress(ScriptedCamera("ScriptedFirst.cti"), "10.0.0.2", "255.0.0.0", ""));
}

TEST_F(Opening, CameraWithoutAUsableDescriptionStillOpens)
{
    script->portResult = GC_ERR_TIMEOUT;
    OrvCam::Device *device = OrvCam_CreateDevice(&good, OrvCam::ORV_ACCESS_CONTROL, 0);
    ASSERT_NE(nullptr, device);
    EXPECT_EQ(nullptr, device->GetCameraParameters());
    std::string why;
    EXPECT_EQ(ORV_CAM_ERR_XML, system->LastError(&why));
    EXPECT_THAT(why, HasSubstr("GCReadPort"));
    EXPECT_EQ(ORV_CAM_ERR_XML, device->SaveFeatures("unused"));
    ASSERT_NE(nullptr, device->GetStreamByIndex(0));
    EXPECT_EQ(ORV_CAM_ERR_NO_PAYLOAD_SIZE, device->GetStreamByIndex(0)->AllocBufferQueue(nullptr, 3));
    device->Release();
}

TEST_F(Opening, LossWhileOpeningIsNoDevice)
{
    script->loseAtAccess = 1;
    EXPECT_EQ(nullptr, OrvCam_CreateDevice(&good, OrvCam::ORV_ACCESS_CONTROL, 0));
    std::string why;
    EXPECT_EQ(ORV_CAM_ERR_DEVICE_LOST, system->LastError(&why));
    EXPECT_THAT(why, HasSubstr("while it was being opened"));
}

/// A producer that never comes back from its opening: the others work on, and who asked for it is told.
TEST_F(Opening, AHangingProducerHoldsUpNobody)
{
    std::atomic<bool> isDone{false};
    std::thread loading([&] {
        std::string why;
        EXPECT_EQ(ORV_CAM_ERR_TIMEOUT, system->LoadProducer(HANGING_PRODUCER));
        system->LastError(&why);
        EXPECT_THAT(why, HasSubstr("ORV_SKIP_PRODUCERS=Hanging.cti"));
        isDone = true;
    });
    OrvCam::Device *device = OrvCam_CreateDevice(&good, OrvCam::ORV_ACCESS_CONTROL, 0);
    ASSERT_NE(nullptr, device);
    device->Release();
    EXPECT_FALSE(isDone);
    loading.join();
}

} // namespace
