#define GENTL_DECLARE_FUNCTIONS
#include "ScriptedProducer.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

// Built several times: as a producer of today, as one of the first version, and as one that passes for our own.
#ifndef SCRIPTED_VENDOR
#define SCRIPTED_VENDOR "Scripted"
#endif
#ifndef SCRIPTED_MODEL
#define SCRIPTED_MODEL "Scripted"
#endif

namespace {

using Lock = std::unique_lock<std::mutex>;

const char kXml[] =
    "<RegisterDescription ModelName=\"Cam\" VendorName=\"Nuvark\" SchemaMajorVersion=\"1\" SchemaMinorVersion=\"1\" "
    "SchemaSubMinorVersion=\"0\" MajorVersion=\"1\" MinorVersion=\"0\" SubMinorVersion=\"0\">"
    "<Category Name=\"Root\"><pFeature>Width</pFeature><pFeature>Height</pFeature><pFeature>OffsetX</pFeature>"
    "<pFeature>Gain</pFeature><pFeature>UserId</pFeature><pFeature>PayloadSize</pFeature></Category>"
    "<Integer Name=\"Width\"><Streamable>Yes</Streamable><pIsLocked>TLParamsLocked</pIsLocked><pValue>WidthReg</pValue>"
    "<Min>1</Min><pMax>WidthMax</pMax></Integer>"
    "<IntSwissKnife Name=\"WidthMax\"><pVariable Name=\"OFF\">OffsetX</pVariable><Formula>(64 - OFF)</Formula>"
    "</IntSwissKnife>"
    "<Integer Name=\"OffsetX\"><Streamable>Yes</Streamable><pValue>OffsetReg</pValue><Min>0</Min><pMax>OffsetMax</pMax>"
    "</Integer><IntSwissKnife Name=\"OffsetMax\"><pVariable Name=\"W\">Width</pVariable><Formula>(64 - W)</Formula>"
    "</IntSwissKnife>"
    "<Integer Name=\"Height\"><Streamable>Yes</Streamable><pValue>HeightReg</pValue></Integer>"
    "<Integer Name=\"TLParamsLocked\"><Value>0</Value></Integer>"
    "<Float Name=\"Gain\"><Streamable>Yes</Streamable><pValue>GainReg</pValue><Min>-4</Min><Max>4</Max></Float>"
    "<StringReg Name=\"UserId\"><Streamable>Yes</Streamable><Address>0x200</Address><Length>64</Length>"
    "<AccessMode>RW</AccessMode><pPort>Device</pPort></StringReg>"
    "<FloatReg Name=\"GainReg\"><Address>0x120</Address><Length>8</Length><AccessMode>RW</AccessMode>"
    "<pPort>Device</pPort><Endianess>BigEndian</Endianess></FloatReg>"
    "<IntReg Name=\"WidthReg\"><Address>0x100</Address><Length>4</Length><AccessMode>RW</AccessMode>"
    "<pPort>Device</pPort><Sign>Unsigned</Sign><Endianess>BigEndian</Endianess></IntReg>"
    "<IntReg Name=\"HeightReg\"><Address>0x104</Address><Length>4</Length><AccessMode>RW</AccessMode>"
    "<pPort>Device</pPort><Sign>Unsigned</Sign><Endianess>BigEndian</Endianess></IntReg>"
    "<IntReg Name=\"OffsetReg\"><Address>0x108</Address><Length>4</Length><AccessMode>RW</AccessMode>"
    "<pPort>Device</pPort><Sign>Unsigned</Sign><Endianess>BigEndian</Endianess></IntReg>"
    "<Enumeration Name=\"PixelFormat\"><EnumEntry Name=\"Mono8\"><Value>0x01080001</Value></EnumEntry>"
    "<pValue>FormatReg</pValue></Enumeration>"
    "<IntReg Name=\"FormatReg\"><Address>0x110</Address><Length>4</Length><AccessMode>RW</AccessMode>"
    "<pPort>Device</pPort><Sign>Unsigned</Sign><Endianess>BigEndian</Endianess></IntReg>"
    "<IntReg Name=\"PayloadSize\"><Address>0x114</Address><Length>8</Length><AccessMode>RO</AccessMode>"
    "<pPort>Device</pPort><Sign>Unsigned</Sign><Endianess>BigEndian</Endianess></IntReg>"
    "<Port Name=\"Device\"/></RegisterDescription>";
constexpr std::uint64_t kXmlAddress = 0x10000;

/// Of the interface: two devices, the second of which is the camera.
const char kInterfaceXml[] =
    "<RegisterDescription ModelName=\"If\" VendorName=\"Nuvark\" SchemaMajorVersion=\"1\" SchemaMinorVersion=\"1\" "
    "SchemaSubMinorVersion=\"0\" MajorVersion=\"1\" MinorVersion=\"0\" SubMinorVersion=\"0\">"
    "<Category Name=\"Root\"><pFeature>DeviceSelector</pFeature><pFeature>DeviceID</pFeature>"
    "<pFeature>GevDeviceForceIPAddress</pFeature><pFeature>GevDeviceForceSubnetMask</pFeature>"
    "<pFeature>GevDeviceForceGateway</pFeature><pFeature>GevDeviceForceIP</pFeature></Category>"
    "<Integer Name=\"DeviceSelector\"><pValue>SelectorReg</pValue><Min>0</Min><Max>1</Max></Integer>"
    "<StringReg Name=\"DeviceID\"><Address>0x200</Address><Length>16</Length><AccessMode>RO</AccessMode>"
    "<pPort>Device</pPort></StringReg>"
    "<Command Name=\"GevDeviceForceIP\"><pValue>ForceReg</pValue><CommandValue>1</CommandValue></Command>"
    "<IntReg Name=\"SelectorReg\"><Address>0x10</Address><Length>4</Length><AccessMode>RW</AccessMode>"
    "<pPort>Device</pPort><Sign>Unsigned</Sign><Endianess>BigEndian</Endianess></IntReg>"
    "<IntReg Name=\"GevDeviceForceIPAddress\"><Address>0x20</Address><Length>4</Length><AccessMode>RW</AccessMode>"
    "<pPort>Device</pPort><Sign>Unsigned</Sign><Endianess>BigEndian</Endianess></IntReg>"
    "<IntReg Name=\"GevDeviceForceSubnetMask\"><Address>0x24</Address><Length>4</Length><AccessMode>RW</AccessMode>"
    "<pPort>Device</pPort><Sign>Unsigned</Sign><Endianess>BigEndian</Endianess></IntReg>"
    "<IntReg Name=\"GevDeviceForceGateway\"><Address>0x28</Address><Length>4</Length><AccessMode>RW</AccessMode>"
    "<pPort>Device</pPort><Sign>Unsigned</Sign><Endianess>BigEndian</Endianess></IntReg>"
    "<IntReg Name=\"ForceReg\"><Address>0x40</Address><Length>4</Length><AccessMode>WO</AccessMode>"
    "<pPort>Device</pPort><Sign>Unsigned</Sign><Endianess>BigEndian</Endianess></IntReg>"
    "<Port Name=\"Device\"/></RegisterDescription>";

struct Event {
    EVENTSRC_HANDLE module = nullptr;
    EVENT_TYPE type = 0;
    std::deque<std::vector<unsigned char>> queue;
    int kills = 0;
    int waiters = 0;
    bool gone = false;
    std::condition_variable changed;
};

struct AnnouncedBuffer {
    unsigned char *memory;
    std::size_t size;
    void *user;
    bool queued;
    std::uint64_t frame; ///< that it was filled with
};

struct Producer {
    std::mutex mutex;
    bool initialised = false, systemOpen = false, interfaceOpen = false, deviceOpen = false, streamOpen = false;
    bool lost = false;
    std::vector<unsigned char> memory = std::vector<unsigned char>(0x20000);
    std::vector<unsigned char> interfaceMemory = std::vector<unsigned char>(0x20000);
    std::vector<std::shared_ptr<Event>> events;
    std::vector<std::shared_ptr<Event>> oldEvents; ///< so that a late handle is stale, not dangling
    std::map<BUFFER_HANDLE, AnnouncedBuffer> buffers;
    std::deque<BUFFER_HANDLE> input;
    std::uint64_t nextHandle = 0x1000;
    std::uint64_t frames = 0;
    Script script = {};
};

int Deliver();
void Lose();
void Reset();
void Fire(EVENT_TYPE type, const void *data, std::size_t bytes);

Producer &P()
{
    static Producer *producer = [] {
        auto *made = new Producer;
        made->script.deliver = Deliver;
        made->script.lose = Lose;
        made->script.reset = Reset;
        made->script.fire = Fire;
        std::memcpy(&made->memory[kXmlAddress], kXml, sizeof kXml - 1);
        std::memcpy(&made->interfaceMemory[kXmlAddress], kInterfaceXml, sizeof kInterfaceXml - 1);
        return made;
    }();
    return *producer;
}

const auto kTl = reinterpret_cast<void *>(0x10);
const auto kIf = reinterpret_cast<void *>(0x20);
const auto kDev = reinterpret_cast<void *>(0x30);
const auto kPort = reinterpret_cast<void *>(0x40);
const auto kDs = reinterpret_cast<void *>(0x50);

void PutRegister(std::uint64_t address, std::uint64_t value, int bytes)
{
    for (int i = 0; i < bytes; ++i)
        P().memory[address + i] = static_cast<unsigned char>(value >> (8 * (bytes - 1 - i)));
}

void Reset()
{
    Lock lock(P().mutex);
    Script &s = P().script;
    s.initResult = s.openResult = s.portResult = s.startResult = s.eventResult = GC_ERR_SUCCESS;
    s.announceFailsAt = -1;
    s.stacked = 1;
    s.oddTypes = s.fewInfos = s.losesKills = s.trafficFailures = 0;
    s.tellsFigures = s.loseAtAccess = s.loseAtStop = s.forces = 0;
    s.forceResult = GC_ERR_SUCCESS;
    s.payload = s.incomplete = s.xPadding = s.imageOffset = 0;
    s.width = 8;
    s.height = 4;
    s.pixelFormat = 0x01080001;
    s.sizeFilled = s.dataSize = 32;
    P().lost = false;
    PutRegister(kScriptedWidth, 8, 4);
    PutRegister(0x104, 4, 4);
    PutRegister(0x108, 0, 4);
    PutRegister(0x110, 0x01080001, 4);
    PutRegister(kScriptedPayload, 32, 8);
    std::memset(&P().memory[0x120], 0, 8);
    std::memset(&P().memory[0x200], 0, 64);
}

void Push(EVENTSRC_HANDLE module, EVENT_TYPE type, const void *data, std::size_t bytes)
{
    for (const auto &event : P().events) {
        if (event->module != module || event->type != type)
            continue;
        const auto *begin = static_cast<const unsigned char *>(data);
        event->queue.emplace_back(begin, begin + bytes);
        event->changed.notify_all();
    }
}

void Fire(EVENT_TYPE type, const void *data, std::size_t bytes)
{
    Lock lock(P().mutex);
    Push(kDev, type, data, bytes);
}

void LoseLocked()
{
    P().lost = true;
    Push(kDev, 1004, "cable pulled", 13);
}

void Lose()
{
    Lock lock(P().mutex);
    LoseLocked();
}

int Deliver()
{
    Lock lock(P().mutex);
    if (P().input.empty() || P().script.running == 0)
        return 0;
    const BUFFER_HANDLE handle = P().input.front();
    P().input.pop_front();
    AnnouncedBuffer &buffer = P().buffers[handle];
    buffer.queued = false;
    buffer.frame = ++P().frames;
    std::memset(buffer.memory, static_cast<int>(P().frames), std::min<std::size_t>(buffer.size, P().script.sizeFilled));
    const EVENT_NEW_BUFFER_DATA data = {handle, buffer.user};
    Push(kDs, EVENT_NEW_BUFFER, &data, sizeof data);
    return 1;
}

GC_ERROR Text(const std::string &text, INFO_DATATYPE *type, void *buffer, std::size_t *size)
{
    if (type != nullptr)
        *type = INFO_DATATYPE_STRING;
    if (buffer != nullptr && *size < text.size() + 1)
        return GC_ERR_BUFFER_TOO_SMALL;
    if (buffer != nullptr)
        std::memcpy(buffer, text.c_str(), text.size() + 1);
    *size = text.size() + 1;
    return GC_ERR_SUCCESS;
}

template <class T>
GC_ERROR Number(T value, INFO_DATATYPE valueType, INFO_DATATYPE *type, void *buffer, std::size_t *size)
{
    *type = valueType;
    if (buffer != nullptr && *size < sizeof value)
        return GC_ERR_BUFFER_TOO_SMALL;
    if (buffer != nullptr)
        std::memcpy(buffer, &value, sizeof value);
    *size = sizeof value;
    return GC_ERR_SUCCESS;
}

GC_ERROR Size(std::uint64_t value, INFO_DATATYPE *type, void *buffer, std::size_t *size)
{
    if (P().script.oddTypes == 0)
        return Number<std::size_t>(value, INFO_DATATYPE_SIZET, type, buffer, size);
    switch (value % 3) { // some of each
    case 0:
        return Number<std::int32_t>(static_cast<std::int32_t>(value), INFO_DATATYPE_INT32, type, buffer, size);
    case 1:
        return Number<double>(static_cast<double>(value), INFO_DATATYPE_FLOAT64, type, buffer, size);
    default:
        return Number<std::uint16_t>(static_cast<std::uint16_t>(value), INFO_DATATYPE_UNKNOWN, type, buffer, size);
    }
}

GC_ERROR Access(std::uint64_t address, std::size_t size)
{
    Script &s = P().script;
    ++s.portAccesses;
    if (s.loseAtAccess > 0 && --s.loseAtAccess == 0)
        LoseLocked();
    if (P().lost)
        return GC_ERR_IO;
    if (s.portResult != GC_ERR_SUCCESS)
        return s.portResult;
    return address + size > P().memory.size() ? GC_ERR_INVALID_ADDRESS : GC_ERR_SUCCESS;
}

std::uint32_t InterfaceRegister(std::size_t address)
{
    std::uint32_t value = 0;
    for (std::size_t i = 0; i < 4; ++i)
        value = value << 8 | P().interfaceMemory[address + i];
    return value;
}

GC_ERROR ReadInterface(std::uint64_t address, void *buffer, std::size_t size)
{
    auto &memory = P().interfaceMemory;
    std::memcpy(&memory[0x200], InterfaceRegister(0x10) == 1 ? "cam0" : "cam5", 5);
    if (address + size > memory.size())
        return GC_ERR_INVALID_ADDRESS;
    std::memcpy(buffer, &memory[address], size);
    return GC_ERR_SUCCESS;
}

GC_ERROR WriteInterface(std::uint64_t address, const void *buffer, std::size_t size)
{
    std::memcpy(&P().interfaceMemory[address], buffer, size);
    if (address != 0x40)
        return GC_ERR_SUCCESS;
    Script &s = P().script;
    ++s.forces;
    s.forcedDevice = InterfaceRegister(0x10);
    s.forcedAddress = InterfaceRegister(0x20);
    s.forcedMask = InterfaceRegister(0x24);
    s.forcedGateway = InterfaceRegister(0x28);
    return s.forceResult;
}

} // namespace

extern "C" GENTL_EXPORT Script *TheScript()
{
    return &P().script;
}

extern "C" {

GC_ERROR GCInitLib()
{
    Lock lock(P().mutex);
    if (P().script.initResult != GC_ERR_SUCCESS)
        return P().script.initResult;
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
    *code = GC_ERR_SUCCESS;
    return Text("No Error", nullptr, text, size);
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
                  port == kIf ? sizeof kInterfaceXml - 1 : sizeof kXml - 1);
    return Text(text, nullptr, url, size);
}
GC_ERROR GCGetPortInfo(PORT_HANDLE, PORT_INFO_CMD, INFO_DATATYPE *, void *, size_t *)
{
    return GC_ERR_NOT_IMPLEMENTED;
}
GC_ERROR GCRegisterEvent(EVENTSRC_HANDLE module, EVENT_TYPE type, EVENT_HANDLE *event)
{
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
    if (event->type == 1000 && P().script.trafficFailures > 0)
        return P().script.trafficFailures-- % 2 == 0 ? GC_ERR_IO : GC_ERR_TIMEOUT;
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
GC_ERROR EventGetDataInfo(EVENT_HANDLE, const void *, size_t, EVENT_DATA_INFO_CMD, INFO_DATATYPE *, void *, size_t *)
{
    return GC_ERR_NOT_IMPLEMENTED;
}
GC_ERROR EventGetInfo(EVENT_HANDLE, EVENT_INFO_CMD, INFO_DATATYPE *, void *, size_t *)
{
    return GC_ERR_NOT_IMPLEMENTED;
}
GC_ERROR EventFlush(EVENT_HANDLE)
{
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
    *system = kTl;
    Reset();
    return GC_ERR_SUCCESS;
}
GC_ERROR TLClose(TL_HANDLE)
{
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
GC_ERROR TLGetNumInterfaces(TL_HANDLE, uint32_t *count)
{
    *count = 1;
    return GC_ERR_SUCCESS;
}
GC_ERROR TLGetInterfaceID(TL_HANDLE, uint32_t index, char *id, size_t *size)
{
    return index == 0 ? Text("if0", nullptr, id, size) : GC_ERR_INVALID_INDEX;
}
GC_ERROR TLGetInterfaceInfo(TL_HANDLE, const char *, INTERFACE_INFO_CMD, INFO_DATATYPE *, void *, size_t *)
{
    return GC_ERR_NOT_IMPLEMENTED;
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
GC_ERROR TLUpdateInterfaceList(TL_HANDLE, bool8_t *, uint64_t)
{
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
    *count = 1;
    return GC_ERR_SUCCESS;
}
GC_ERROR IFGetDeviceID(IF_HANDLE, uint32_t index, char *id, size_t *size)
{
    return index == 0 ? Text("cam0", nullptr, id, size) : GC_ERR_INVALID_INDEX;
}
GC_ERROR IFUpdateDeviceList(IF_HANDLE, bool8_t *, uint64_t)
{
    ++P().script.updates;
    return GC_ERR_SUCCESS;
}
GC_ERROR IFGetDeviceInfo(IF_HANDLE, const char *, DEVICE_INFO_CMD command, INFO_DATATYPE *type, void *buffer,
                         size_t *size)
{
    static const std::map<DEVICE_INFO_CMD, std::string> kTexts = {
        {DEVICE_INFO_VENDOR, "Nuvark"}, {DEVICE_INFO_MODEL, "Cam"}, {DEVICE_INFO_SERIAL_NUMBER, "4711"},
        {1000, "127.0.0.99"},           {1003, "127.0.0.1:999"},
    };
    if (command == DEVICE_INFO_ACCESS_STATUS)
        return Number<std::int32_t>(P().deviceOpen ? DEVICE_ACCESS_STATUS_OPEN_READWRITE : 1, INFO_DATATYPE_INT32, type,
                                    buffer, size);
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
GC_ERROR DevGetPort(DEV_HANDLE, PORT_HANDLE *port)
{
    *port = kPort;
    return GC_ERR_SUCCESS;
}
GC_ERROR DevGetNumDataStreams(DEV_HANDLE, uint32_t *count)
{
    *count = 1;
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
GC_ERROR DSAllocAndAnnounceBuffer(DS_HANDLE, size_t, void *, BUFFER_HANDLE *)
{
    return GC_ERR_NOT_IMPLEMENTED;
}
GC_ERROR DSFlushQueue(DS_HANDLE, ACQ_QUEUE_TYPE operation)
{
    Lock lock(P().mutex);
    for (const auto &event : P().events) {
        if (event->type == EVENT_NEW_BUFFER)
            event->queue.clear();
    }
    if (operation == ACQ_QUEUE_ALL_DISCARD)
        P().input.clear();
    return GC_ERR_SUCCESS;
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
GC_ERROR DSGetBufferID(DS_HANDLE, uint32_t, BUFFER_HANDLE *)
{
    return GC_ERR_NOT_IMPLEMENTED;
}
GC_ERROR DSClose(DS_HANDLE)
{
    Lock lock(P().mutex);
    P().streamOpen = false;
    --P().script.streamsOpen;
    return GC_ERR_SUCCESS;
}
GC_ERROR DSRevokeBuffer(DS_HANDLE, BUFFER_HANDLE handle, void **, void **)
{
    Lock lock(P().mutex);
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
        return GC_ERR_RESOURCE_IN_USE;
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
    if (s.fewInfos != 0)
        return GC_ERR_NOT_IMPLEMENTED;
    switch (command) {
    case BUFFER_INFO_PAYLOADTYPE:
        return Size(PAYLOAD_TYPE_IMAGE, type, buffer, size);
    case BUFFER_INFO_TIMESTAMP:
        return Number<std::uint64_t>(1000 * described->second.frame, INFO_DATATYPE_UINT64, type, buffer, size);
    case BUFFER_INFO_WIDTH:
        return Size(s.width, type, buffer, size);
    case BUFFER_INFO_HEIGHT:
        return Size(s.height, type, buffer, size);
    case BUFFER_INFO_XPADDING:
        return Size(s.xPadding, type, buffer, size);
    case BUFFER_INFO_IMAGEOFFSET:
        return Size(s.imageOffset, type, buffer, size);
    case BUFFER_INFO_SIZE_FILLED:
        return Size(s.sizeFilled, type, buffer, size);
    case BUFFER_INFO_DATA_SIZE:
        return Size(s.dataSize, type, buffer, size);
    case BUFFER_INFO_IS_INCOMPLETE:
        return Number<bool8_t>(s.incomplete != 0, INFO_DATATYPE_BOOL8, type, buffer, size);
    case BUFFER_INFO_PIXELFORMAT:
        return Number<std::uint64_t>(s.pixelFormat, INFO_DATATYPE_UINT64, type, buffer, size);
    default:
        return GC_ERR_NOT_AVAILABLE;
    }
}

#ifndef SCRIPTED_FIRST_VERSION
GC_ERROR GCGetNumPortURLs(PORT_HANDLE, uint32_t *count)
{
    *count = 1;
    return GC_ERR_SUCCESS;
}
GC_ERROR GCGetPortURLInfo(PORT_HANDLE port, uint32_t, URL_INFO_CMD command, INFO_DATATYPE *type, void *buffer,
                          size_t *size)
{
    *type = INFO_DATATYPE_STRING;
    return command == URL_INFO_URL ? GCGetPortURL(port, static_cast<char *>(buffer), size) : GC_ERR_NOT_IMPLEMENTED;
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
