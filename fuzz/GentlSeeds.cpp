// Sessions as consumers have them: lists, ports, events, buffers; each with good arguments and with some that are not.
#include "fuzz/GentlFuzz.h"
#include "fuzz/Target.h"
#include "gentl/GenTL.h"

#include <cstring>

namespace orv::fuzz {

namespace {

using namespace gentlinput;

#define FUZZ_NAME(since, name, parameters, arguments) #name,
constexpr const char *kNames[] = {GENTL_FUNCTIONS(FUZZ_NAME)};

// Arguments, as GentlArguments.cpp reads them.
constexpr std::uint8_t kGood = 0;
constexpr std::uint8_t kNull = 14;
constexpr std::uint8_t kBad = 15;
constexpr std::uint8_t kNoHandle = 0xF0;
constexpr std::uint8_t kToyInterface = 0; ///< texts
constexpr std::uint8_t kFirstCamera = 1;
constexpr std::uint8_t kFirstStream = 3;

class Session {
public:
    explicit Session(Level level) { m_out.U8(level); }

    /// \param room  bytes that the caller has for the answer.
    Session &Call(const char *name, std::uint16_t room, const Bytes &arguments)
    {
        std::uint8_t number = 0;
        while (std::strcmp(kNames[number], name) != 0)
            ++number;
        m_out.U8(number);
        m_out.U16(room);
        m_out.U8(2); // entries, where there are some
        for (const std::uint8_t argument : arguments)
            m_out.U8(argument);
        return *this;
    }
    Session &Frame(std::uint8_t flags, const Bytes &content)
    {
        m_out.U8(kFrame);
        m_out.U8(0);
        m_out.U8(flags);
        m_out.U8(PAYLOAD_TYPE_IMAGE);
        for (int i = 0; i < 3; ++i)
            m_out.U16(static_cast<std::uint16_t>(content.size()));
        m_out.U8(0);
        m_out.U32(0x01080001);
        m_out.U32(4);
        m_out.U32(4);
        m_out.U8(static_cast<std::uint8_t>(content.size()));
        m_out.Bytes(SpanOf(content));
        return *this;
    }
    Session &Event(const Bytes &packet)
    {
        m_out.U8(kEvent);
        PutPiece(m_out, SpanOf(packet));
        return *this;
    }
    Session &Camera(CameraStep step)
    {
        m_out.U8(step);
        return *this;
    }
    Bytes Done() { return m_out.Take(); }

private:
    ByteWriter m_out;
};

Bytes Lists()
{
    return Session(kSystem)
        .Call("TLUpdateInterfaceList", 0, {kSystemHandle, kGood, 0})
        .Call("TLGetNumInterfaces", 0, {kSystemHandle, kGood})
        .Call("TLGetInterfaceID", 100, {kSystemHandle, 0, kGood, kGood})
        .Call("TLGetInterfaceInfo", 100, {kSystemHandle, kGood, kToyInterface, 1, kGood, kGood, kGood})
        .Call("TLOpenInterface", 0, {kSystemHandle, kGood, kToyInterface, kGood})
        .Call("IFUpdateDeviceList", 0, {1, kGood, 0})
        .Call("IFGetNumDevices", 0, {1, kGood})
        .Call("IFGetDeviceID", 100, {1, 1, kGood, kGood})
        .Call("IFGetDeviceInfo", 100, {1, kGood, kFirstCamera, 3, kGood, kNull, kGood})
        .Call("IFOpenDevice", 0, {1, kGood, kFirstCamera, DEVICE_ACCESS_CONTROL, kGood})
        .Call("DevGetParentIF", 0, {2, kGood})
        .Call("DevGetDataStreamID", 100, {2, 0, kGood, kGood})
        .Call("DevOpenDataStream", 0, {2, kGood, kFirstStream, kGood})
        .Call("IFClose", 0, {1})
        .Call("DevGetPort", 0, {2, kGood})
        .Done();
}

Bytes Ports()
{
    return Session(kDevice)
        .Call("GCGetNumPortURLs", 0, {kPortHandle, kGood})
        .Call("GCGetPortURL", 100, {kPortHandle, kGood, kGood})
        .Call("GCGetPortURLInfo", 100, {kDeviceHandle, 0, URL_INFO_FILE_SIZE, kGood, kGood, kGood})
        .Call("GCGetPortInfo", 100, {kPortHandle, PORT_INFO_PORTNAME, kGood, kGood, kGood})
        .Call("GCReadPort", 8, {kPortHandle, 0, 1, 0, kGood, kGood})
        .Call("GCWritePort", 4, {kPortHandle, 0, 1, 0, kGood, 4, 1, 2, 3, 4, kGood})
        .Call("GCReadPort", 64, {kSystemHandle, 0, 0, 0, kGood, kGood})
        .Call("GCWritePort", 4, {kInterfaceHandle, 0, 0, 8, kGood, 1, 1, kGood})
        .Call("GCReadPortStacked", 16, {kPortHandle, kGood, 0, 0, 4, kGood, 0, 4, 4, kGood, kGood})
        .Call("GCWritePortStacked", 16, {kPortHandle, kGood, 0, 0, 4, kGood, 0xff, 4, 4, kGood, kGood})
        .Camera(kFails)
        .Call("GCReadPort", 8, {kPortHandle, 0, 1, 0, kGood, kGood})
        .Call("GCGetLastError", 200, {kGood, kGood, kGood})
        .Call("GCReadPort", 8, {kNoHandle, 0, 1, 0, kBad, kNull})
        .Done();
}

Bytes Events()
{
    const Bytes packet = {0x42, 0, 0, 0xC0, 0, 16, 0, 1, 0, 0, 0x90, 1, 0, 1, 0, 7, 0, 0, 0, 0, 0, 0, 4, 0xD2};
    return Session(kDevice)
        .Event(packet)
        .Call("EventGetInfo", 8, {kCameraEventHandle, EVENT_NUM_IN_QUEUE, kGood, kGood, kGood})
        .Call("EventGetData", 100, {kCameraEventHandle, kGood, kGood, 0})
        .Call("EventGetDataInfo", 24, {kCameraEventHandle,
                                       kGood,
                                       24,
                                       0x42,
                                       0,
                                       0,
                                       0xC0,
                                       0,
                                       16,
                                       0,
                                       1,
                                       0,
                                       0,
                                       0x90,
                                       1,
                                       0,
                                       1,
                                       0,
                                       7,
                                       0,
                                       0,
                                       0,
                                       0,
                                       0,
                                       0,
                                       4,
                                       0xD2,
                                       EVENT_DATA_ID,
                                       kGood,
                                       kGood,
                                       kGood})
        .Call("GCRegisterEvent", 0, {kDeviceHandle, 0x80, kGood})
        .Call("GCRegisterEvent", 0, {kDeviceHandle, 0x84, kGood})
        .Event(packet)
        .Camera(kLoss)
        .Call("EventGetData", 100, {6, kGood, kGood, 0})
        .Call("EventGetData", 1, {7, kGood, kGood, 0})
        .Call("EventKill", 0, {kErrorEventHandle})
        .Call("EventGetData", 100, {kErrorEventHandle, kGood, kGood, 1})
        .Call("EventFlush", 0, {kCameraEventHandle})
        .Call("GCUnregisterEvent", 0, {kDeviceHandle, EVENT_REMOTE_DEVICE})
        .Call("EventGetData", 100, {kCameraEventHandle, kNull, kNull, 0})
        .Camera(kInvalidFeature)
        .Done();
}

Bytes Frames()
{
    const Bytes chunks = {1, 2, 3, 4, 0, 0, 0, 1, 0, 0, 0, 4, 9, 9, 0, 0, 0, 2, 0, 0, 0, 2};
    return Session(kRunning)
        .Frame(4, Bytes(16, 1))
        .Call("EventGetData", 16, {kNewBufferHandle, kGood, kGood, 0})
        .Call("DSGetBufferInfo", 16, {kStreamHandle, kBufferHandle, BUFFER_INFO_SIZE_FILLED, kGood, kGood, kGood})
        .Call("DSQueueBuffer", 0, {kStreamHandle, kBufferHandle})
        .Frame(12, chunks)
        .Call("DSGetBufferChunkData", 0, {kStreamHandle, kOtherBufferHandle, kGood, kGood})
        .Call("DSGetBufferChunkData", 0, {kStreamHandle, kBufferHandle, kNull, kGood})
        .Call("DSGetBufferInfoStacked", 16,
              {kStreamHandle, kBufferHandle, kGood, BUFFER_INFO_WIDTH, 8, kGood, BUFFER_INFO_HEIGHT, 2, kGood, 0})
        .Call("DSGetInfo", 8, {kStreamHandle, STREAM_INFO_NUM_DELIVERED, kGood, kGood, kGood})
        .Call("DSStopAcquisition", 0, {kStreamHandle, ACQ_STOP_FLAGS_KILL})
        .Call("DSFlushQueue", 0, {kStreamHandle, ACQ_QUEUE_ALL_TO_INPUT})
        .Call("DSFlushQueue", 0, {kStreamHandle, ACQ_QUEUE_ALL_DISCARD})
        .Call("DSRevokeBuffer", 0, {kStreamHandle, kBufferHandle, kGood, kGood})
        .Call("DSGetBufferID", 0, {kStreamHandle, 0, kGood})
        .Call("DSClose", 0, {kStreamHandle})
        .Done();
}

Bytes Buffers()
{
    return Session(kStream)
        .Call("DSAnnounceBuffer", 500, {kStreamHandle, kGood, 0, kGood, kGood})
        .Call("DSAllocAndAnnounceBuffer", 500, {kStreamHandle, 0xFF, kGood, kGood})
        .Call("DSAnnounceCompositeBuffer", 500, {kStreamHandle, 0, kGood, kGood, kGood, kGood})
        .Call("DSQueueBuffer", 0, {kStreamHandle, kFirstFreeHandle})
        .Call("DSQueueBuffer", 0, {kStreamHandle, kDeviceHandle})
        .Call("DSStartAcquisition", 0, {kStreamHandle, 0, 0, 0, 3})
        .Frame(4, Bytes(40, 3))
        .Frame(5, Bytes(40, 4))
        .Frame(7, Bytes(40, 5))
        .Call("DSGetNumBufferSegments", 0, {kStreamHandle, kFirstFreeHandle, kGood})
        .Call("DSGetBufferSegmentInfo", 8, {kStreamHandle, kFirstFreeHandle, 0, 1, kGood, kGood, kGood})
        .Call("DSGetNumBufferParts", 0, {kStreamHandle, kFirstFreeHandle, kGood})
        .Call("DSGetParentDev", 0, {kStreamHandle, kGood})
        .Call("DSGetNumFlows", 0, {kStreamHandle, kBad})
        .Call("DevClose", 0, {kDeviceHandle})
        .Call("DSGetInfo", 8, {kStreamHandle, 0, kGood, kGood, kGood})
        .Done();
}

Bytes Library()
{
    return Session(kNothing)
        .Call("TLOpen", 0, {kGood})
        .Call("GCInitLib", 0, {})
        .Call("GCInitLib", 0, {})
        .Call("GCGetInfo", 100, {TL_INFO_DISPLAYNAME, kGood, kGood, kGood})
        .Call("TLOpen", 0, {kGood})
        .Call("TLOpen", 0, {kGood})
        .Call("TLGetInfo", 3, {0, TL_INFO_ID, kGood, kGood, kGood})
        .Call("TLClose", 0, {0})
        .Call("TLClose", 0, {0})
        .Call("GCCloseLib", 0, {})
        .Done();
}

/// Every info command of a function: the answer, its size alone, and too little room for it.
Bytes Infos(Level level, const char *name, const Bytes &before, std::uint8_t last)
{
    Session session(level);
    for (std::uint8_t command = 0; command <= last; ++command) {
        for (const std::uint16_t room : {300, 0, 2}) {
            Bytes arguments = before;
            arguments.insert(arguments.end(), {command, kGood, room != 0 ? kGood : kNull, kGood});
            session.Call(name, room, arguments);
        }
    }
    return session.Done();
}

} // namespace

std::vector<Bytes> Seeds()
{
    return {Library(),
            Lists(),
            Ports(),
            Events(),
            Frames(),
            Buffers(),
            Infos(kSystem, "TLGetInfo", {kSystemHandle}, TL_INFO_GENTL_VER_MINOR),
            Infos(kDevice, "DevGetInfo", {kDeviceHandle}, DEVICE_INFO_TIMESTAMP_FREQUENCY),
            Infos(kDevice, "GCGetPortInfo", {kPortHandle}, PORT_INFO_PORTNAME),
            Infos(kStream, "DSGetInfo", {kStreamHandle}, STREAM_INFO_GENDC_PREFETCH_DESCRIPTOR),
            Infos(kRunning, "DSGetBufferInfo", {kStreamHandle, kBufferHandle}, 40)};
}

} // namespace orv::fuzz
