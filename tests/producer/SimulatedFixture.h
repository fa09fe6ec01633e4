#pragma once

#include "ProducerFixture.h"
#include "simulator/gige/GigeCamera.h"

#include <map>

/// With a software camera of this process, on the loopback interface.
class SimulatedTest : public ProducerTest {
protected:
    static constexpr std::uint32_t kSimulatedAddress = 0x7F00000E; // 127.0.0.14

    void SetUp() override
    {
        ProducerTest::SetUp();
        ASSERT_EQ(Gc().TLOpenInterface(system, "GEV:lo:127.0.0.1", &interface), GC_ERR_SUCCESS) << LastError();
    }
    void TearDown() override
    {
        ProducerTest::TearDown();
        camera.reset();
    }

    static orvsim::CameraOptions SmallCamera()
    {
        orvsim::CameraOptions options;
        options.serial = "SIM-PRODUCER";
        options.sensor.width = 64;
        options.sensor.height = 48;
        options.frameRate = 20;
        options.frameMemory = 1 << 20;
        return options;
    }
    void StartCamera(orvsim::CameraOptions options = SmallCamera(), orvsim::GigeOptions gige = {})
    {
        gige.address = kSimulatedAddress;
        camera = std::make_unique<orvsim::GigeCamera>(options, gige);
        ASSERT_EQ(camera->Open(), "");
    }
    /// Fills `device` and `port`.
    void OpenDevice(const char *name = "SIM-PRODUCER", DEVICE_ACCESS_FLAGS access = DEVICE_ACCESS_CONTROL)
    {
        ASSERT_EQ(Gc().IFOpenDevice(interface, name, access, &device), GC_ERR_SUCCESS) << LastError();
        ASSERT_EQ(Gc().DevGetPort(device, &port), GC_ERR_SUCCESS);
    }
    void Set(const std::string &feature, const std::string &text)
    {
        std::string problem;
        EXPECT_EQ(camera->Core().SetFeature(feature, text, problem), orvsim::Outcome::Ok) << feature << problem;
    }
    GC_ERROR Read(std::uint64_t address, void *data, size_t size) const
    {
        return Gc().GCReadPort(port, address, data, &size);
    }
    /// Where the register of a module's feature is, by the module's own description.
    std::uint64_t AddressOf(PORT_HANDLE module, const std::string &node) const
    {
        std::uint64_t at = 0;
        std::uint64_t length = 0;
        size_t size = sizeof at;
        Gc().GCGetPortURLInfo(module, 0, URL_INFO_FILE_REGISTER_ADDRESS, nullptr, &at, &size);
        Gc().GCGetPortURLInfo(module, 0, URL_INFO_FILE_SIZE, nullptr, &length, &size);
        std::string xml(length, '\0');
        size = length;
        Gc().GCReadPort(module, at, xml.data(), &size);
        const auto found = xml.find("Name=\"" + node + "\"");
        EXPECT_NE(found, std::string::npos) << node;
        return found == std::string::npos ? 0 : std::stoull(xml.substr(xml.find("<Address>", found) + 9), nullptr, 16);
    }
    GC_ERROR SetNumber(PORT_HANDLE module, const std::string &feature, std::int64_t value) const
    {
        size_t size = sizeof value;
        return Gc().GCWritePort(module, AddressOf(module, feature + "Reg"), &value, &size);
    }
    std::int64_t GetNumber(PORT_HANDLE module, const std::string &feature) const
    {
        std::int64_t value = 0;
        size_t size = sizeof value;
        EXPECT_EQ(Gc().GCReadPort(module, AddressOf(module, feature + "Reg"), &value, &size), GC_ERR_SUCCESS);
        return value;
    }
    EVENT_HANDLE Register(EVENT_TYPE type)
    {
        EVENT_HANDLE event = nullptr;
        EXPECT_EQ(Gc().GCRegisterEvent(device, type, &event), GC_ERR_SUCCESS) << type << " " << LastError();
        return event;
    }
    /// The next entry, empty when none comes.
    std::vector<std::uint8_t> Next(EVENT_HANDLE event, std::uint64_t timeoutMs = 3000)
    {
        std::vector<std::uint8_t> bytes(65536);
        size_t size = bytes.size();
        const GC_ERROR code = Gc().EventGetData(event, bytes.data(), &size, timeoutMs);
        bytes.resize(code == GC_ERR_SUCCESS ? size : 0);
        return bytes;
    }

    std::unique_ptr<orvsim::GigeCamera> camera;
    IF_HANDLE interface = nullptr;
    DEV_HANDLE device = nullptr;
    PORT_HANDLE port = nullptr;
};
