#include "gentl/Library.h"
#include "gentl/NuvarkCustom.h"
#include "receive/Meter.h"

#include <memory>
#include <string>

namespace receivebench {

namespace {

void Check(GC_ERROR code, const char *what)
{
    if (code != GC_ERR_SUCCESS)
        Fail((std::string(what) + " failed: " + std::to_string(code)).c_str());
}

/// Our producer with a camera and its stream open.
class OurStream {
public:
    explicit OurStream(const Stream &sent)
    {
        std::string error;
        m_library = orv::gentl::Library::Load(ORV_PRODUCER_FILE, &error);
        if (m_library == nullptr)
            Fail(error.c_str());
        TL_HANDLE system = nullptr;
        IF_HANDLE interface = nullptr;
        DEV_HANDLE device = nullptr;
        PORT_HANDLE port = nullptr;
        Check(Gc().GCInitLib(), "GCInitLib");
        Check(Gc().TLOpen(&system), "TLOpen");
        Check(Gc().TLUpdateInterfaceList(system, nullptr, 10), "TLUpdateInterfaceList");
        Check(Gc().TLOpenInterface(system, "GEV:lo:127.0.0.1", &interface), "TLOpenInterface");
        Check(Gc().IFOpenDevice(interface, kCameraText, DEVICE_ACCESS_CONTROL, &device), "IFOpenDevice");
        Check(Gc().DevGetPort(device, &port), "DevGetPort");
        const std::array<std::uint8_t, 4> size{0x40, 0, std::uint8_t(sent.packetSize >> 8),
                                               std::uint8_t(sent.packetSize)};
        std::size_t bytes = size.size();
        Check(Gc().GCWritePort(port, 0x0d04, size.data(), &bytes), "writing the packet size");
        std::array<char, 256> id{};
        std::size_t idSize = id.size();
        Check(Gc().DevGetDataStreamID(device, 0, id.data(), &idSize), "DevGetDataStreamID");
        Check(Gc().DevOpenDataStream(device, id.data(), &m_stream), "DevOpenDataStream");
        Check(Gc().GCRegisterEvent(m_stream, EVENT_NEW_BUFFER, &m_event), "GCRegisterEvent");
        for (int i = 0; i < kBuffers; ++i) {
            BUFFER_HANDLE buffer = nullptr;
            Check(Gc().DSAllocAndAnnounceBuffer(m_stream, sent.Payload(), nullptr, &buffer),
                  "DSAllocAndAnnounceBuffer");
            Check(Gc().DSQueueBuffer(m_stream, buffer), "DSQueueBuffer");
        }
        Check(Gc().DSStartAcquisition(m_stream, ACQ_START_FLAGS_DEFAULT, GENTL_INFINITE), "DSStartAcquisition");
    }
    ~OurStream() { Gc().GCCloseLib(); }
    OurStream(const OurStream &) = delete;
    OurStream &operator=(const OurStream &) = delete;

    /// \return null: none came within a second
    BUFFER_HANDLE Wait()
    {
        EVENT_NEW_BUFFER_DATA data{};
        std::size_t size = sizeof data;
        return Gc().EventGetData(m_event, &data, &size, 1000) == GC_ERR_SUCCESS ? data.BufferHandle : nullptr;
    }
    template <typename Value> Value BufferInfo(BUFFER_HANDLE buffer, BUFFER_INFO_CMD info)
    {
        Value value{};
        std::size_t size = sizeof value;
        INFO_DATATYPE type = INFO_DATATYPE_UNKNOWN;
        Check(Gc().DSGetBufferInfo(m_stream, buffer, info, &type, &value, &size), "DSGetBufferInfo");
        return value;
    }
    std::uint64_t StreamInfo(STREAM_INFO_CMD info)
    {
        std::uint64_t value = 0;
        std::size_t size = sizeof value;
        INFO_DATATYPE type = INFO_DATATYPE_UNKNOWN;
        Check(Gc().DSGetInfo(m_stream, info, &type, &value, &size), "DSGetInfo");
        return value;
    }
    void GiveBack(BUFFER_HANDLE buffer) { Gc().DSQueueBuffer(m_stream, buffer); }

private:
    const orv::gentl::Functions &Gc() const { return m_library->Calls(); }

    std::unique_ptr<orv::gentl::Library> m_library;
    DS_HANDLE m_stream = nullptr;
    EVENT_HANDLE m_event = nullptr;
};

constexpr std::array<STREAM_INFO_CMD, 7> kCauseInfos = {
    NUVARK_STREAM_INFO_KERNEL_DROPS, NUVARK_STREAM_INFO_NUM_REQUESTED, NUVARK_STREAM_INFO_NUM_REFUSED,
    NUVARK_STREAM_INFO_NUM_LATE,     NUVARK_STREAM_INFO_NUM_MISSING,   STREAM_INFO_NUM_UNDERRUN,
    NUVARK_STREAM_INFO_NUM_MISSED};

} // namespace

const std::array<const char *, 7> kCauses = {
    "messages the kernel dropped", "packets asked for again", "refused", "late", "missing",
    "frames without a buffer",     "frames that never came"};

Figures ReceiveWithOurs(const Stream &sent)
{
    OurStream ours(sent);
    Meter meter(sent.Payload());
    std::uint64_t frames = 0;
    std::uint64_t firstId = 0;
    std::uint64_t lastId = 0;
    while (!meter.IsOver()) {
        BUFFER_HANDLE buffer = ours.Wait();
        if (buffer == nullptr)
            continue;
        const bool isComplete = ours.BufferInfo<bool8_t>(buffer, BUFFER_INFO_IS_INCOMPLETE) == 0;
        meter.Frame(isComplete, ours.BufferInfo<std::uint64_t>(buffer, BUFFER_INFO_TIMESTAMP_NS));
        lastId = ours.BufferInfo<std::uint64_t>(buffer, BUFFER_INFO_FRAMEID);
        firstId = frames++ == 0 ? lastId : firstId;
        ours.GiveBack(buffer);
    }
    Figures figures = meter.Result();
    figures.leftOut = frames != 0 ? lastId - firstId + 1 - frames : 0; // too few frames for them to wrap
    figures.refilled = ours.StreamInfo(NUVARK_STREAM_INFO_NUM_RESENT);
    for (std::size_t i = 0; i < kCauseInfos.size(); ++i)
        figures.causes[i] = ours.StreamInfo(kCauseInfos[i]);
    return figures;
}

} // namespace receivebench
