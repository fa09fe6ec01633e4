#pragma once

#include "gentl/Library.h"
#include "gentl/NuvarkCustom.h"
#include "support/ForeignCamera.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <vector>

constexpr char kCameraAddress[] = "127.0.0.11";
constexpr char kCameraSerial[] = "PRODUCER-11";
constexpr std::uint64_t kLongMs = 20000; ///< what has not come until then will not come

/// Runs until the condition holds; false when it does not for so long that it never will.
template <class Condition> bool Becomes(Condition condition, std::chrono::milliseconds limit = std::chrono::seconds(20))
{
    const auto end = std::chrono::steady_clock::now() + limit;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
}

class Stopwatch {
public:
    int Milliseconds() const
    {
        const auto passed = std::chrono::steady_clock::now() - m_start;
        return static_cast<int>(std::chrono::duration_cast<std::chrono::milliseconds>(passed).count());
    }

private:
    const std::chrono::steady_clock::time_point m_start = std::chrono::steady_clock::now();
};

/// The producer as a consumer sees it: the .cti itself, through its exported functions.
class ProducerTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        std::string error;
        m_library = orv::gentl::Library::Load(ORV_PRODUCER_FILE, &error);
        ASSERT_NE(m_library, nullptr) << error;
        ASSERT_EQ(Gc().GCInitLib(), GC_ERR_SUCCESS);
        ASSERT_EQ(Gc().TLOpen(&system), GC_ERR_SUCCESS);
    }
    void TearDown() override
    {
        if (m_library != nullptr)
            Gc().GCCloseLib();
    }

    const orv::gentl::Functions &Gc() const { return m_library->Calls(); }

    std::string LastError() const
    {
        GC_ERROR code = 0;
        char text[2048] = {};
        size_t size = sizeof text;
        Gc().GCGetLastError(&code, text, &size);
        return text;
    }

    /// The bytes that a query in the size-query idiom gives; `query` gets type, buffer and size.
    template <class Query> std::string Ask(Query query) const
    {
        INFO_DATATYPE type = INFO_DATATYPE_UNKNOWN;
        size_t size = 0;
        if (query(&type, nullptr, &size) != GC_ERR_SUCCESS)
            return "<" + LastError() + ">";
        std::string bytes(size, '\0');
        EXPECT_EQ(query(&type, bytes.data(), &size), GC_ERR_SUCCESS);
        if (type == INFO_DATATYPE_STRING && !bytes.empty())
            bytes.resize(bytes.size() - 1);
        return bytes;
    }
    template <class Value, class Query> Value AskFor(Query query) const
    {
        INFO_DATATYPE type = INFO_DATATYPE_UNKNOWN;
        Value value{};
        size_t size = sizeof value;
        EXPECT_EQ(query(&type, &value, &size), GC_ERR_SUCCESS) << LastError();
        EXPECT_EQ(size, sizeof value);
        return value;
    }
    template <class Value> Value BufferInfo(BUFFER_HANDLE buffer, BUFFER_INFO_CMD command) const
    {
        return AskFor<Value>([&](auto... out) { return Gc().DSGetBufferInfo(stream, buffer, command, out...); });
    }
    template <class Value> Value StreamInfo(STREAM_INFO_CMD command) const
    {
        return AskFor<Value>([&](auto... out) { return Gc().DSGetInfo(stream, command, out...); });
    }

    void OpenInterface()
    {
        ASSERT_EQ(Gc().TLOpenInterface(system, "GEV:lo:127.0.0.1", &interface), GC_ERR_SUCCESS) << LastError();
    }
    /// Fills `device` and `port`.
    GC_ERROR OpenDevice(const std::string &name, DEVICE_ACCESS_FLAGS access)
    {
        const GC_ERROR opened = Gc().IFOpenDevice(interface, name.c_str(), access, &device);
        if (opened == GC_ERR_SUCCESS) {
            EXPECT_EQ(Gc().DevGetPort(device, &port), GC_ERR_SUCCESS);
        }
        return opened;
    }
    /// Fills `stream` and `newBuffer`.
    void OpenStream()
    {
        const std::string id = Ask([&](INFO_DATATYPE *, void *out, size_t *size) {
            return Gc().DevGetDataStreamID(device, 0, static_cast<char *>(out), size);
        });
        ASSERT_EQ(Gc().DevOpenDataStream(device, id.c_str(), &stream), GC_ERR_SUCCESS) << LastError();
        newBuffer = Register(stream, EVENT_NEW_BUFFER);
    }
    /// \param user pointer that every one of them carries.
    void AllocateBuffers(int count, std::size_t size, void *user = nullptr)
    {
        for (int i = 0; i < count; ++i) {
            BUFFER_HANDLE buffer = nullptr;
            ASSERT_EQ(Gc().DSAllocAndAnnounceBuffer(stream, size, user, &buffer), GC_ERR_SUCCESS) << LastError();
            ASSERT_EQ(Gc().DSQueueBuffer(stream, buffer), GC_ERR_SUCCESS);
        }
    }
    /// The next filled buffer, null when none comes.
    BUFFER_HANDLE Fetch(std::uint64_t timeoutMs = kLongMs) const
    {
        EVENT_NEW_BUFFER_DATA data{};
        size_t size = sizeof data;
        return Gc().EventGetData(newBuffer, &data, &size, timeoutMs) == GC_ERR_SUCCESS ? data.BufferHandle : nullptr;
    }
    std::vector<std::uint8_t> Pixels(BUFFER_HANDLE buffer)
    {
        const auto *base = BufferInfo<const std::uint8_t *>(buffer, BUFFER_INFO_BASE);
        return {base, base + BufferInfo<size_t>(buffer, BUFFER_INFO_SIZE_FILLED)};
    }

    EVENT_HANDLE Register(void *module, EVENT_TYPE type) const
    {
        EVENT_HANDLE event = nullptr;
        EXPECT_EQ(Gc().GCRegisterEvent(module, type, &event), GC_ERR_SUCCESS) << type << " " << LastError();
        return event;
    }
    EVENT_HANDLE Register(EVENT_TYPE type) const { return Register(device, type); }
    /// The event's next entry, empty when none comes.
    std::vector<std::uint8_t> Next(EVENT_HANDLE event, std::uint64_t timeoutMs = kLongMs) const
    {
        std::vector<std::uint8_t> bytes(65536);
        size_t size = bytes.size();
        const GC_ERROR code = Gc().EventGetData(event, bytes.data(), &size, timeoutMs);
        bytes.resize(code == GC_ERR_SUCCESS ? size : 0);
        return bytes;
    }
    std::string NextText(EVENT_HANDLE event, std::uint64_t timeoutMs = kLongMs) const
    {
        const std::vector<std::uint8_t> bytes = Next(event, timeoutMs);
        return {bytes.begin(), bytes.end()};
    }

    GC_ERROR Read(std::uint64_t address, void *data, size_t size) const
    {
        return Gc().GCReadPort(port, address, data, &size);
    }
    GC_ERROR Write(std::uint64_t address, const void *data, size_t size) const
    {
        return Gc().GCWritePort(port, address, data, &size);
    }
    /// A module's own description of itself.
    std::string DescriptionOf(PORT_HANDLE module) const
    {
        const auto number = [&](URL_INFO_CMD command) {
            return AskFor<std::uint64_t>(
                [&](auto... out) { return Gc().GCGetPortURLInfo(module, 0, command, out...); });
        };
        std::string xml(number(URL_INFO_FILE_SIZE), '\0');
        size_t size = xml.size();
        EXPECT_EQ(Gc().GCReadPort(module, number(URL_INFO_FILE_REGISTER_ADDRESS), xml.data(), &size), GC_ERR_SUCCESS);
        return xml;
    }
    /// Where the register of a module's feature is, by its description.
    std::uint64_t AddressOf(PORT_HANDLE module, const std::string &node) const
    {
        const std::string xml = DescriptionOf(module);
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

    TL_HANDLE system = nullptr;
    IF_HANDLE interface = nullptr;
    DEV_HANDLE device = nullptr;
    PORT_HANDLE port = nullptr;
    DS_HANDLE stream = nullptr;
    EVENT_HANDLE newBuffer = nullptr;

private:
    std::unique_ptr<orv::gentl::Library> m_library;
};

/// With somebody else's software camera on the loopback interface.
class CameraTest : public ProducerTest {
protected:
    void SetUp() override
    {
        if (!ForeignCamera::Installed())
            GTEST_SKIP() << "the software camera is not installed";
        ProducerTest::SetUp();
        ASSERT_TRUE(camera.Start(kCameraAddress, kCameraSerial));
        ASSERT_EQ(Gc().TLUpdateInterfaceList(system, nullptr, 10), GC_ERR_SUCCESS);
        ASSERT_NO_FATAL_FAILURE(OpenInterface());
    }

    std::string DeviceId() const { return "GEV:ip:" + camera.Address(); }
    GC_ERROR OpenDevice(DEVICE_ACCESS_FLAGS access = DEVICE_ACCESS_CONTROL)
    {
        return ProducerTest::OpenDevice(DeviceId(), access);
    }
    int AccessStatus() const
    {
        return AskFor<std::int32_t>([&](auto... out) {
            return Gc().IFGetDeviceInfo(interface, DeviceId().c_str(), DEVICE_INFO_ACCESS_STATUS, out...);
        });
    }
    /// The camera's registers are big-endian.
    GC_ERROR WriteRegister(std::uint64_t address, std::uint32_t value) const
    {
        const std::uint8_t bytes[4] = {std::uint8_t(value >> 24), std::uint8_t(value >> 16), std::uint8_t(value >> 8),
                                       std::uint8_t(value)};
        return Write(address, bytes, sizeof bytes);
    }
    std::uint32_t ReadRegister(std::uint64_t address) const
    {
        std::uint8_t bytes[4] = {};
        EXPECT_EQ(Read(address, bytes, sizeof bytes), GC_ERR_SUCCESS) << LastError();
        return std::uint32_t{bytes[0]} << 24 | bytes[1] << 16 | bytes[2] << 8 | bytes[3];
    }
    void StartCamera()
    {
        ASSERT_EQ(Gc().DSStartAcquisition(stream, ACQ_START_FLAGS_DEFAULT, GENTL_INFINITE), GC_ERR_SUCCESS)
            << LastError();
        ASSERT_EQ(WriteRegister(kAcquisition, 1), GC_ERR_SUCCESS) << LastError();
    }
    void StopCamera(ACQ_STOP_FLAGS flags = ACQ_STOP_FLAGS_DEFAULT)
    {
        EXPECT_EQ(WriteRegister(kAcquisition, 0), GC_ERR_SUCCESS) << LastError();
        EXPECT_EQ(Gc().DSStopAcquisition(stream, flags), GC_ERR_SUCCESS) << LastError();
    }

    // Registers of the software camera.
    static constexpr std::uint64_t kWidth = 0x100;
    static constexpr std::uint64_t kHeight = 0x104;
    static constexpr std::uint64_t kAcquisition = 0x124; ///< 1 starts, 0 stops
    static constexpr std::uint64_t kFramePeriodUs = 0x138;

    ForeignCamera camera;
};

/// With an open stream of small, fast frames and the new-buffer event registered.
class StreamTest : public CameraTest {
protected:
    static constexpr std::uint32_t kFrameWidth = 128;
    static constexpr std::uint32_t kFrameHeight = 96;
    static constexpr std::size_t kPayload = kFrameWidth * kFrameHeight;
    static constexpr std::uint32_t kPeriodUs = 5000;

    void SetUp() override
    {
        CameraTest::SetUp();
        if (HasFatalFailure() || IsSkipped())
            return;
        ASSERT_EQ(OpenDevice(), GC_ERR_SUCCESS) << LastError();
        ASSERT_EQ(WriteRegister(kWidth, kFrameWidth), GC_ERR_SUCCESS);
        ASSERT_EQ(WriteRegister(kHeight, kFrameHeight), GC_ERR_SUCCESS);
        ASSERT_EQ(WriteRegister(kFramePeriodUs, kPeriodUs), GC_ERR_SUCCESS);
        ASSERT_NO_FATAL_FAILURE(OpenStream());
    }

    void AllocateBuffers(int count, std::size_t size = kPayload) { ProducerTest::AllocateBuffers(count, size); }
};
