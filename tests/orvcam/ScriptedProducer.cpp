#define GENTL_DECLARE_FUNCTIONS
#include "ScriptedCamera.h"

#include <algorithm>
#include <chrono>
#include <thread>

// The producer's functions over the scripted camera. Built several times: as a producer of today, as one of the first
// version, and as one that passes for our own.
#ifndef SCRIPTED_VENDOR
#define SCRIPTED_VENDOR "Scripted"
#endif
#ifndef SCRIPTED_MODEL
#define SCRIPTED_MODEL "Scripted"
#endif

using namespace scripted;

extern "C" GENTL_EXPORT Script *TheScript()
{
    return &P().script;
}

extern "C" {

#define RETURNS(code, function, ...)                                                                                   \
    GC_ERROR function(__VA_ARGS__)                                                                                     \
    {                                                                                                                  \
        return code;                                                                                                   \
    }
#define GIVES(value, function, Type)                                                                                   \
    GC_ERROR function(void *, Type *out)                                                                               \
    {                                                                                                                  \
        *out = value;                                                                                                  \
        return GC_ERR_SUCCESS;                                                                                         \
    }
RETURNS(GC_ERR_SUCCESS, TLClose, TL_HANDLE)
RETURNS(GC_ERR_SUCCESS, TLUpdateInterfaceList, TL_HANDLE, bool8_t *, uint64_t)
GIVES(1, TLGetNumInterfaces, uint32_t)
GIVES(1, DevGetNumDataStreams, uint32_t)
GIVES(kPort, DevGetPort, PORT_HANDLE)
// What no test needs.
RETURNS(GC_ERR_NOT_IMPLEMENTED, GCGetPortInfo, PORT_HANDLE, PORT_INFO_CMD, INFO_DATATYPE *, void *, size_t *)
RETURNS(GC_ERR_NOT_IMPLEMENTED, EventGetDataInfo, EVENT_HANDLE, const void *, size_t, EVENT_DATA_INFO_CMD,
        INFO_DATATYPE *, void *, size_t *)
RETURNS(GC_ERR_NOT_IMPLEMENTED, TLGetInterfaceInfo, TL_HANDLE, const char *, INTERFACE_INFO_CMD, INFO_DATATYPE *,
        void *, size_t *)
RETURNS(GC_ERR_NOT_IMPLEMENTED, DSAllocAndAnnounceBuffer, DS_HANDLE, size_t, void *, BUFFER_HANDLE *)
RETURNS(GC_ERR_NOT_IMPLEMENTED, DSGetBufferID, DS_HANDLE, uint32_t, BUFFER_HANDLE *)

GC_ERROR GCInitLib()
{
    Lock lock(P().mutex);
    if (P().initialised)
        return GC_ERR_RESOURCE_IN_USE;
    P().initialised = true;
    return GC_ERR_SUCCESS;
}
GC_ERROR GCCloseLib()
{
    P().initialised = false;
    return GC_ERR_SUCCESS;
}
GC_ERROR GCGetInfo(TL_INFO_CMD command, INFO_DATATYPE *type, void *buffer, size_t *size)
{
    return TLGetInfo(kTl, command, type, buffer, size);
}
GC_ERROR GCGetLastError(GC_ERROR *code, char *text, size_t *size)
{
    Lock lock(P().mutex);
    *code = P().script.openResult; // the one failure that it has words for
    return Text(*code == GC_ERR_SUCCESS ? "No Error" : "IFOpenDevice: not today", nullptr, text, size);
}
GC_ERROR GCReadPort(PORT_HANDLE port, uint64_t address, void *buffer, size_t *size)
{
    Lock lock(P().mutex);
    if (port == kIf)
        return ReadInterface(address, buffer, *size);
    const GC_ERROR result = Access(address, *size);
    if (result == GC_ERR_SUCCESS)
        std::memcpy(buffer, &P().memory[address], *size);
    return result;
}
GC_ERROR GCWritePort(PORT_HANDLE port, uint64_t address, const void *buffer, size_t *size)
{
    Lock lock(P().mutex);
    if (port == kIf)
        return WriteInterface(address, buffer, *size);
    const GC_ERROR result = Access(address, *size);
    if (result == GC_ERR_SUCCESS)
        std::memcpy(&P().memory[address], buffer, *size);
    return result;
}
GC_ERROR GCGetPortURL(PORT_HANDLE port, char *url, size_t *size)
{
#ifdef SCRIPTED_FIRST_VERSION
    if (port == kIf)
        return GC_ERR_NOT_IMPLEMENTED;
#endif
    char text[64];
    std::snprintf(text, sizeof text, "Local:cam.xml;%llX;%zX", static_cast<unsigned long long>(kXmlAddress),
                  XmlBytes(port == kIf));
    return Text(text, nullptr, url, size);
}
GC_ERROR GCRegisterEvent(EVENTSRC_HANDLE module, EVENT_TYPE type, EVENT_HANDLE *event)
{
    P().script.registering = type == 1000 ? 1 : P().script.registering.load();
    while (type == 1000 && P().script.holdRegistration != 0)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    Lock lock(P().mutex);
    const bool known =
        (module == kDs && type == EVENT_NEW_BUFFER) || (module == kDev && (type == 1004 || type == 1000));
    if (!known)
        return GC_ERR_NOT_IMPLEMENTED;
    for (const auto &other : P().events) {
        if (other->module == module && other->type == type)
            return GC_ERR_RESOURCE_IN_USE;
    }
    auto made = std::make_shared<Event>();
    made->module = module;
    made->type = type;
    *event = made.get();
    P().events.push_back(made);
    ++P().script.eventsRegistered;
    return GC_ERR_SUCCESS;
}
GC_ERROR GCUnregisterEvent(EVENTSRC_HANDLE module, EVENT_TYPE type)
{
    Lock lock(P().mutex);
    auto &events = P().events;
    for (auto event = events.begin(); event != events.end(); ++event) {
        if ((*event)->module != module || (*event)->type != type)
            continue;
        (*event)->gone = true;
        (*event)->changed.notify_all();
        P().oldEvents.push_back(*event);
        events.erase(event);
        --P().script.eventsRegistered;
        return GC_ERR_SUCCESS;
    }
    return GC_ERR_NOT_INITIALIZED;
}
GC_ERROR EventGetData(EVENT_HANDLE handle, void *buffer, size_t *size, uint64_t timeout)
{
    Lock lock(P().mutex);
    auto *event = static_cast<Event *>(handle);
    if (event->gone)
        return GC_ERR_INVALID_HANDLE;
    if (event->type == EVENT_NEW_BUFFER && P().script.eventResult != GC_ERR_SUCCESS)
        return P().script.eventResult;
    if (event->type == 1004 && P().script.lostEventResult != GC_ERR_SUCCESS)
        return P().script.lostEventResult;
    if (event->type == 1000 && P().script.trafficFailures > 0)
        return P().script.trafficFailures-- % 2 == 0 ? GC_ERR_IO : GC_ERR_TIMEOUT;
    ++P().script.polls;
    if (P().script.waitsAtOnce != 0)
        timeout = 0;
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(std::min<uint64_t>(timeout, 3600000));
    ++event->waiters;
    while (event->kills == 0 && event->queue.empty() && !event->gone) {
        if (event->changed.wait_until(lock, end) == std::cv_status::timeout)
            break;
    }
    --event->waiters;
    if (event->kills > 0) {
        --event->kills;
        return GC_ERR_ABORT;
    }
    if (event->gone)
        return GC_ERR_ABORT;
    if (event->queue.empty())
        return GC_ERR_TIMEOUT;
    const std::vector<unsigned char> &data = event->queue.front();
    if (*size < data.size())
        return GC_ERR_BUFFER_TOO_SMALL;
    std::memcpy(buffer, data.data(), data.size());
    *size = data.size();
    event->queue.pop_front();
    return GC_ERR_SUCCESS;
}
GC_ERROR EventGetInfo(EVENT_HANDLE, EVENT_INFO_CMD command, INFO_DATATYPE *type, void *buffer, size_t *size)
{
    if (command == 1000 && P().script.tellsFigures != 0)
        return Number<std::uint64_t>(5, INFO_DATATYPE_UINT64, type, buffer, size);
    return GC_ERR_NOT_IMPLEMENTED;
}
GC_ERROR EventFlush(EVENT_HANDLE handle)
{
    Lock lock(P().mutex);
    static_cast<Event *>(handle)->queue.clear();
    return GC_ERR_SUCCESS;
}
GC_ERROR EventKill(EVENT_HANDLE handle)
{
    Lock lock(P().mutex);
    auto *event = static_cast<Event *>(handle);
    if (P().script.losesKills == 0) {
        ++event->kills;
        event->changed.notify_all();
    }
    return GC_ERR_SUCCESS;
}
GC_ERROR TLOpen(TL_HANDLE *system)
{
#ifdef SCRIPTED_HANGS
    for (;;)
        std::this_thread::sleep_for(std::chrono::hours(1));
#endif
    *system = kTl;
    Reset();
    return GC_ERR_SUCCESS;
}
GC_ERROR TLGetInfo(TL_HANDLE, TL_INFO_CMD command, INFO_DATATYPE *type, void *buffer, size_t *size)
{
    if (command == TL_INFO_VENDOR)
        return Text(SCRIPTED_VENDOR, type, buffer, size);
    if (command == TL_INFO_MODEL)
        return Text(SCRIPTED_MODEL, type, buffer, size);
    return GC_ERR_NOT_IMPLEMENTED;
}
GC_ERROR TLGetInterfaceID(TL_HANDLE, uint32_t index, char *id, size_t *size)
{
    return index == 0 ? Text("if0", nullptr, id, size) : GC_ERR_INVALID_INDEX;
}
GC_ERROR TLOpenInterface(TL_HANDLE, const char *, IF_HANDLE *interface)
{
    Lock lock(P().mutex);
    if (P().interfaceOpen)
        return GC_ERR_RESOURCE_IN_USE;
    P().interfaceOpen = true;
    *interface = kIf;
    return GC_ERR_SUCCESS;
}
GC_ERROR IFClose(IF_HANDLE)
{
    P().interfaceOpen = false;
    return GC_ERR_SUCCESS;
}
GC_ERROR IFGetInfo(IF_HANDLE, INTERFACE_INFO_CMD command, INFO_DATATYPE *type, void *buffer, size_t *size)
{
    if (command == INTERFACE_INFO_TLTYPE)
        return Text("GEV", type, buffer, size);
    return command == INTERFACE_INFO_DISPLAYNAME ? Text("memory", type, buffer, size) : GC_ERR_NOT_IMPLEMENTED;
}
GC_ERROR IFGetNumDevices(IF_HANDLE, uint32_t *count)
{
    *count = P().script.twin != 0 ? 2 : 1;
    return GC_ERR_SUCCESS;
}
GC_ERROR IFGetDeviceID(IF_HANDLE, uint32_t index, char *id, size_t *size)
{
    const bool isTwin = P().script.twin != 0 && index == 0;
    return index < 2 ? Text(isTwin ? "cam1" : "cam0", nullptr, id, size) : GC_ERR_INVALID_INDEX;
}
GC_ERROR IFUpdateDeviceList(IF_HANDLE, bool8_t *, uint64_t)
{
    ++P().script.updates;
    return GC_ERR_SUCCESS;
}
GC_ERROR IFGetDeviceInfo(IF_HANDLE, const char *id, DEVICE_INFO_CMD command, INFO_DATATYPE *type, void *buffer,
                         size_t *size)
{
    static const std::map<DEVICE_INFO_CMD, std::string> kTexts = {
        {DEVICE_INFO_VENDOR, "Nuvark"},
        {DEVICE_INFO_MODEL, "Cam"},
        {DEVICE_INFO_SERIAL_NUMBER, "4711"},
        {1000, "127.0.0.99"},
    };
    if (command == 1003)
        return Text(P().script.isHeld != 0 ? "127.0.0.1:999" : "", type, buffer, size);
    if (command == DEVICE_INFO_ACCESS_STATUS) {
        std::int32_t status = P().deviceOpen ? DEVICE_ACCESS_STATUS_OPEN_READWRITE : P().script.accessStatus.load();
        if (std::strcmp(id, "cam1") == 0)
            status = DEVICE_ACCESS_STATUS_NOACCESS;
        return Number<std::int32_t>(status, INFO_DATATYPE_INT32, type, buffer, size);
    }
    const auto text = kTexts.find(command);
    return text != kTexts.end() ? Text(text->second, type, buffer, size) : GC_ERR_NOT_AVAILABLE;
}
GC_ERROR IFOpenDevice(IF_HANDLE, const char *id, DEVICE_ACCESS_FLAGS, DEV_HANDLE *device)
{
    Lock lock(P().mutex);
    if (std::strcmp(id, "cam0") != 0)
        return GC_ERR_INVALID_ID;
    if (P().script.openResult != GC_ERR_SUCCESS)
        return P().script.openResult;
    if (P().deviceOpen)
        return GC_ERR_RESOURCE_IN_USE;
    P().deviceOpen = true;
    ++P().script.devicesOpen;
    *device = kDev;
    return GC_ERR_SUCCESS;
}
GC_ERROR DevGetDataStreamID(DEV_HANDLE, uint32_t, char *id, size_t *size)
{
    return Text("stream0", nullptr, id, size);
}
GC_ERROR DevOpenDataStream(DEV_HANDLE, const char *, DS_HANDLE *stream)
{
    Lock lock(P().mutex);
    if (P().streamOpen)
        return GC_ERR_RESOURCE_IN_USE;
    P().streamOpen = true;
    ++P().script.streamsOpen;
    *stream = kDs;
    return GC_ERR_SUCCESS;
}
GC_ERROR DevGetInfo(DEV_HANDLE, DEVICE_INFO_CMD command, INFO_DATATYPE *type, void *buffer, size_t *size)
{
    return IFGetDeviceInfo(kIf, "cam0", command, type, buffer, size);
}
GC_ERROR DevClose(DEV_HANDLE)
{
    Lock lock(P().mutex);
    P().deviceOpen = false;
    --P().script.devicesOpen;
    return GC_ERR_SUCCESS;
}
GC_ERROR DSAnnounceBuffer(DS_HANDLE, void *memory, size_t size, void *user, BUFFER_HANDLE *handle)
{
    Lock lock(P().mutex);
    if (static_cast<int>(P().buffers.size()) == P().script.announceFailsAt)
        return GC_ERR_RESOURCE_EXHAUSTED;
    *handle = reinterpret_cast<void *>(P().nextHandle++);
    P().buffers[*handle] = {static_cast<unsigned char *>(memory), size, user, false, 0};
    ++P().script.announced;
    return GC_ERR_SUCCESS;
}
GC_ERROR DSFlushQueue(DS_HANDLE, ACQ_QUEUE_TYPE operation)
{
    Lock lock(P().mutex);
    if (operation != ACQ_QUEUE_ALL_DISCARD && operation != ACQ_QUEUE_OUTPUT_DISCARD)
        return GC_ERR_NOT_IMPLEMENTED;
    if (operation == ACQ_QUEUE_ALL_DISCARD) {
        P().input.clear();
        for (auto &buffer : P().buffers)
            buffer.second.queued = false;
    }
    return GC_ERR_SUCCESS; // the events of filled buffers stay, as they may
}
GC_ERROR DSStartAcquisition(DS_HANDLE, ACQ_START_FLAGS, uint64_t)
{
    Lock lock(P().mutex);
    if (P().script.startResult != GC_ERR_SUCCESS)
        return P().script.startResult;
    if (P().script.running != 0)
        return GC_ERR_RESOURCE_IN_USE;
    P().script.running = 1;
    return GC_ERR_SUCCESS;
}
GC_ERROR DSStopAcquisition(DS_HANDLE, ACQ_STOP_FLAGS)
{
    if (P().script.loseAtStop != 0) {
        Lose();
        return GC_ERR_IO;
    }
    if (P().script.stopResult != GC_ERR_SUCCESS)
        return P().script.stopResult;
    return P().script.running.exchange(0) != 0 ? GC_ERR_SUCCESS : GC_ERR_RESOURCE_IN_USE;
}
GC_ERROR DSGetInfo(DS_HANDLE, STREAM_INFO_CMD command, INFO_DATATYPE *type, void *buffer, size_t *size)
{
    if (command == STREAM_INFO_DEFINES_PAYLOADSIZE)
        return Number<bool8_t>(P().script.payload != 0, INFO_DATATYPE_BOOL8, type, buffer, size);
    if (command == STREAM_INFO_PAYLOAD_SIZE && P().script.payload != 0)
        return Size(P().script.payload, type, buffer, size);
    if (P().script.tellsFigures != 0)
        return Size(kScriptedFigure + static_cast<std::uint64_t>(command), type, buffer, size);
    return GC_ERR_NOT_IMPLEMENTED;
}
GC_ERROR DSClose(DS_HANDLE)
{
    Lock lock(P().mutex);
    if (P().script.closeResult != GC_ERR_SUCCESS)
        return P().script.closeResult;
    CloseStreamLocked();
    return GC_ERR_SUCCESS;
}
GC_ERROR DSRevokeBuffer(DS_HANDLE, BUFFER_HANDLE handle, void **, void **)
{
    Lock lock(P().mutex);
    if (P().script.revokeResult != GC_ERR_SUCCESS)
        return P().script.revokeResult;
    if (P().buffers.erase(handle) == 0)
        return GC_ERR_INVALID_HANDLE;
    --P().script.announced;
    return GC_ERR_SUCCESS;
}
GC_ERROR DSQueueBuffer(DS_HANDLE, BUFFER_HANDLE handle)
{
    Lock lock(P().mutex);
    const auto buffer = P().buffers.find(handle);
    if (buffer == P().buffers.end())
        return GC_ERR_INVALID_HANDLE;
    if (buffer->second.queued)
        return P().script.twiceResult;
    if (P().script.queueFailures > 0 && P().script.queueFailures-- > 0)
        return GC_ERR_BUSY;
    buffer->second.queued = true;
    P().input.push_back(handle);
    return GC_ERR_SUCCESS;
}
GC_ERROR DSGetBufferInfo(DS_HANDLE, BUFFER_HANDLE handle, BUFFER_INFO_CMD command, INFO_DATATYPE *type, void *buffer,
                         size_t *size)
{
    Lock lock(P().mutex);
    Script &s = P().script;
    const auto described = P().buffers.find(handle);
    if (described == P().buffers.end())
        return GC_ERR_INVALID_HANDLE;
    if (command == BUFFER_INFO_FRAMEID)
        return Number<std::uint64_t>(described->second.frame, INFO_DATATYPE_UINT64, type, buffer, size);
    if (command == BUFFER_INFO_IS_QUEUED && s.twiceResult != GC_ERR_RESOURCE_IN_USE)
        return Number<bool8_t>(described->second.queued, INFO_DATATYPE_BOOL8, type, buffer, size);
    if (s.fewInfos != 0)
        return GC_ERR_NOT_IMPLEMENTED;
    if (command == BUFFER_INFO_PAYLOADTYPE)
        return Size(s.parts != 0 ? PAYLOAD_TYPE_MULTI_PART : PAYLOAD_TYPE_IMAGE, type, buffer, size);
    if (command == BUFFER_INFO_TIMESTAMP)
        return Number<std::uint64_t>(1000 * described->second.frame, INFO_DATATYPE_UINT64, type, buffer, size);
    if (command == BUFFER_INFO_IS_INCOMPLETE)
        return Number<bool8_t>(s.incomplete != 0, INFO_DATATYPE_BOOL8, type, buffer, size);
    if (command == BUFFER_INFO_PIXELFORMAT)
        return Number<std::uint64_t>(s.pixelFormat, INFO_DATATYPE_UINT64, type, buffer, size);
    static const std::map<BUFFER_INFO_CMD, std::atomic<std::uint64_t> Script::*> kSizes = {
        {BUFFER_INFO_WIDTH, &Script::width},
        {BUFFER_INFO_HEIGHT, &Script::height},
        {BUFFER_INFO_SIZE_FILLED, &Script::sizeFilled},
        {BUFFER_INFO_DATA_SIZE, &Script::dataSize},
    };
    const auto told = kSizes.find(command);
    return told != kSizes.end() ? Size(s.*told->second, type, buffer, size) : GC_ERR_NOT_AVAILABLE;
}

#ifndef SCRIPTED_FIRST_VERSION
GIVES(1, GCGetNumPortURLs, uint32_t)
GC_ERROR GCGetPortURLInfo(PORT_HANDLE port, uint32_t, URL_INFO_CMD command, INFO_DATATYPE *type, void *buffer,
                          size_t *size)
{
    *type = INFO_DATATYPE_STRING;
    return command == URL_INFO_URL ? GCGetPortURL(port, static_cast<char *>(buffer), size) : GC_ERR_NOT_IMPLEMENTED;
}
GC_ERROR DSGetNumBufferParts(DS_HANDLE, BUFFER_HANDLE, uint32_t *count)
{
    *count = P().script.parts;
    return GC_ERR_SUCCESS;
}
GC_ERROR DSGetBufferPartInfo(DS_HANDLE, BUFFER_HANDLE handle, uint32_t part, BUFFER_PART_INFO_CMD command,
                             INFO_DATATYPE *type, void *buffer, size_t *size)
{
    Lock lock(P().mutex);
    const auto described = P().buffers.find(handle);
    if (described == P().buffers.end() || part >= P().script.parts)
        return GC_ERR_INVALID_PARAMETER;
    switch (command) {
    case BUFFER_PART_INFO_DATA_TYPE:
        return Size(P().script.partTypes[part], type, buffer, size);
    case BUFFER_PART_INFO_BASE:
        return Number<void *>(described->second.memory + 4 * part, INFO_DATATYPE_PTR, type, buffer, size);
    case BUFFER_PART_INFO_WIDTH:
        return Size(4, type, buffer, size);
    case BUFFER_PART_INFO_HEIGHT:
        return Size(part + 1, type, buffer, size);
    case BUFFER_PART_INFO_DATA_FORMAT:
        return Number<std::uint64_t>(P().script.pixelFormat, INFO_DATATYPE_UINT64, type, buffer, size);
    default:
        return GC_ERR_NOT_AVAILABLE;
    }
}
GC_ERROR DSGetBufferInfoStacked(DS_HANDLE stream, BUFFER_HANDLE buffer, DS_BUFFER_INFO_STACKED *entries, size_t count)
{
    if (P().script.stacked == 0)
        return GC_ERR_NOT_IMPLEMENTED;
    for (size_t i = 0; i < count; ++i) {
        INFO_DATATYPE type = INFO_DATATYPE_UNKNOWN;
        size_t size = entries[i].iSize;
        entries[i].iResult = DSGetBufferInfo(stream, buffer, entries[i].iInfoCmd, &type, entries[i].pBuffer, &size);
        entries[i].iType = type;
        entries[i].iSize = size;
    }
    return GC_ERR_SUCCESS;
}
#endif
}
