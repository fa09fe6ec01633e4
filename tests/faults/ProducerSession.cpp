#include "faults/ProducerSession.h"

#include <array>
#include <stdexcept>

ProducerSession::ProducerSession(const std::string &producer, const std::string &interfaceId)
{
    std::string error;
    m_library = orv::gentl::Library::Load(producer.c_str(), &error);
    if (m_library == nullptr)
        throw std::runtime_error(error);
    Check(Gc().GCInitLib(), "GCInitLib");
    Check(Gc().TLOpen(&m_system), "TLOpen");
    Check(Gc().TLUpdateInterfaceList(m_system, nullptr, 10), "TLUpdateInterfaceList");
    Check(Gc().TLOpenInterface(m_system, interfaceId.c_str(), &m_interface), "TLOpenInterface");
}

ProducerSession::~ProducerSession()
{
    Gc().GCCloseLib();
}

void ProducerSession::Check(GC_ERROR error, const char *what) const
{
    if (error == GC_ERR_SUCCESS)
        return;
    GC_ERROR code = 0;
    std::array<char, 1024> text{};
    size_t size = text.size();
    Gc().GCGetLastError(&code, text.data(), &size);
    throw std::runtime_error(std::string(what) + ": " + text.data());
}

void ProducerSession::OpenDevice(const std::string &address)
{
    Check(Gc().IFOpenDevice(m_interface, address.c_str(), DEVICE_ACCESS_CONTROL, &m_device), "IFOpenDevice");
}

void ProducerSession::CloseDevice()
{
    Check(Gc().DevClose(m_device), "DevClose");
    m_device = m_stream = nullptr;
}

void ProducerSession::OpenStream(std::size_t buffers, std::size_t bytes)
{
    std::array<char, 256> id{};
    size_t size = id.size();
    Check(Gc().DevGetDataStreamID(m_device, 0, id.data(), &size), "DevGetDataStreamID");
    Check(Gc().DevOpenDataStream(m_device, id.data(), &m_stream), "DevOpenDataStream");
    Check(Gc().GCRegisterEvent(m_stream, EVENT_NEW_BUFFER, &m_newBuffer), "GCRegisterEvent");
    for (std::size_t i = 0; i < buffers; ++i) {
        BUFFER_HANDLE buffer = nullptr;
        Check(Gc().DSAllocAndAnnounceBuffer(m_stream, bytes, nullptr, &buffer), "DSAllocAndAnnounceBuffer");
        Check(Gc().DSQueueBuffer(m_stream, buffer), "DSQueueBuffer");
    }
    constexpr std::uint64_t kDescription = 0x1000000;
    m_description.clear();
    for (char c = 0;; m_description += c) {
        size = 1;
        if (Gc().GCReadPort(m_stream, kDescription + m_description.size(), &c, &size) != GC_ERR_SUCCESS)
            return;
    }
}

std::uint64_t ProducerSession::RegisterOf(const std::string &feature)
{
    const std::size_t node = m_description.find("<IntReg Name=\"" + feature + "Reg\"");
    const std::string tag = "<Address>";
    const std::size_t address = m_description.find(tag, node);
    if (node == std::string::npos || address == std::string::npos)
        throw std::runtime_error("the stream has no " + feature);
    return std::stoull(m_description.substr(address + tag.size(), 18), nullptr, 16);
}

void ProducerSession::SetStreamFeature(const std::string &name, std::int64_t value)
{
    size_t size = sizeof value;
    Check(Gc().GCWritePort(m_stream, RegisterOf(name), &value, &size), "GCWritePort");
}

std::int64_t ProducerSession::StreamFeature(const std::string &name)
{
    std::int64_t value = 0;
    size_t size = sizeof value;
    Check(Gc().GCReadPort(m_stream, RegisterOf(name), &value, &size), "GCReadPort");
    return value;
}

void ProducerSession::Start()
{
    Check(Gc().DSStartAcquisition(m_stream, ACQ_START_FLAGS_DEFAULT, GENTL_INFINITE), "DSStartAcquisition");
}

void ProducerSession::Stop()
{
    Check(Gc().DSStopAcquisition(m_stream, ACQ_STOP_FLAGS_DEFAULT), "DSStopAcquisition");
}

template <class Value> Value ProducerSession::BufferInfo(BUFFER_HANDLE buffer, BUFFER_INFO_CMD command) const
{
    Value value{};
    size_t size = sizeof value;
    INFO_DATATYPE type = INFO_DATATYPE_UNKNOWN;
    Check(Gc().DSGetBufferInfo(m_stream, buffer, command, &type, &value, &size), "DSGetBufferInfo");
    return value;
}

ProducerSession::Frame ProducerSession::Fetch(std::uint64_t limitMs)
{
    EVENT_NEW_BUFFER_DATA data{};
    size_t size = sizeof data;
    Frame frame;
    if (Gc().EventGetData(m_newBuffer, &data, &size, limitMs) != GC_ERR_SUCCESS)
        return frame;
    frame.handle = data.BufferHandle;
    frame.data = BufferInfo<const std::uint8_t *>(frame.handle, BUFFER_INFO_BASE);
    frame.bytes = BufferInfo<std::size_t>(frame.handle, BUFFER_INFO_SIZE_FILLED);
    frame.dataSize = BufferInfo<std::size_t>(frame.handle, BUFFER_INFO_DATA_SIZE);
    frame.id = BufferInfo<std::uint64_t>(frame.handle, BUFFER_INFO_FRAMEID);
    frame.isIncomplete = BufferInfo<bool8_t>(frame.handle, BUFFER_INFO_IS_INCOMPLETE) != 0;
    frame.hasImage = BufferInfo<bool8_t>(frame.handle, BUFFER_INFO_IMAGEPRESENT) != 0;
    return frame;
}

void ProducerSession::GiveBack(const Frame &frame)
{
    Check(Gc().DSQueueBuffer(m_stream, frame.handle), "DSQueueBuffer");
}
