#include "ScriptedCamera.h"

#include <algorithm>

namespace scripted {

namespace {

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

void PutRegister(std::uint64_t address, std::uint64_t value, int bytes)
{
    for (int i = 0; i < bytes; ++i)
        P().memory[address + i] = static_cast<unsigned char>(value >> (8 * (bytes - 1 - i)));
}

} // namespace

Producer &P()
{
    static Producer *producer = [] {
        auto *made = new Producer;
        made->script.deliver = Deliver;
        made->script.lose = Lose;
        made->script.reset = Reset;
        made->script.fire = Fire;
        made->script.scribble = Scribble;
        made->script.closeStream = CloseStream;
        std::memcpy(&made->memory[kXmlAddress], kXml, sizeof kXml - 1);
        std::memcpy(&made->interfaceMemory[kXmlAddress], kInterfaceXml, sizeof kInterfaceXml - 1);
        return made;
    }();
    return *producer;
}

std::size_t XmlBytes(bool ofInterface)
{
    return ofInterface ? sizeof kInterfaceXml - 1 : sizeof kXml - 1;
}

void Reset()
{
    Lock lock(P().mutex);
    Script &s = P().script;
    s.initResult = s.openResult = s.portResult = s.startResult = s.eventResult = GC_ERR_SUCCESS;
    s.stopResult = s.revokeResult = s.closeResult = GC_ERR_SUCCESS;
    s.twiceResult = GC_ERR_RESOURCE_IN_USE;
    s.parts = 0;
    s.queueFailures = s.waitsAtOnce = s.polls = s.holdRegistration = s.registering = 0;
    s.accessStatus = DEVICE_ACCESS_STATUS_READWRITE;
    s.lostEventResult = GC_ERR_SUCCESS;
    s.isHeld = s.twin = 0;
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

void CloseStreamLocked()
{
    P().streamOpen = false;
    P().script.announced = 0;
    P().script.running = 0;
    P().buffers.clear();
    P().input.clear();
    --P().script.streamsOpen;
}

void CloseStream()
{
    Lock lock(P().mutex);
    CloseStreamLocked();
}

void Scribble()
{
    Lock lock(P().mutex);
    for (auto &buffer : P().buffers)
        std::memset(buffer.second.memory, 0x5A, buffer.second.size);
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

static std::uint32_t InterfaceRegister(std::size_t address)
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

} // namespace scripted
