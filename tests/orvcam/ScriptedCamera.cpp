#include "ScriptedCamera.h"

#include "MadeDescription.h"

#include <algorithm>

namespace scripted {

namespace {

std::string Streamable(const std::string &kind, const std::string &name, const std::string &inside)
{
    return Node(kind, name, "<Streamable>Yes</Streamable>" + inside);
}

/// 64 minus the value of another node.
std::string RestOf64(const std::string &name, const std::string &other)
{
    return Node("IntSwissKnife", name, "<pVariable Name=\"V\">" + other + "</pVariable><Formula>(64 - V)</Formula>");
}

const std::string kXml = DescriptionOf(
    {"Width", "Height", "OffsetX", "Gain", "UserId", "PayloadSize"},
    Streamable("Integer", "Width",
               "<pIsLocked>TLParamsLocked</pIsLocked><pValue>WidthReg</pValue><Min>1</Min><pMax>WidthMax</pMax>") +
        RestOf64("WidthMax", "OffsetX") + IntReg("WidthReg", "0x100") +
        Streamable("Integer", "OffsetX", "<pValue>OffsetReg</pValue><Min>0</Min><pMax>OffsetMax</pMax>") +
        RestOf64("OffsetMax", "Width") + IntReg("OffsetReg", "0x108") +
        Streamable("Integer", "Height", "<pValue>HeightReg</pValue>") + IntReg("HeightReg", "0x104") +
        Node("Integer", "TLParamsLocked", "<Value>0</Value>") +
        Streamable("Float", "Gain", "<pValue>GainReg</pValue><Min>-4</Min><Max>4</Max>") +
        Register("FloatReg", "GainReg", "0x120", "8", "<Endianess>BigEndian</Endianess>") +
        Register("StringReg", "UserId", "0x200", "64", "<Streamable>Yes</Streamable>") +
        Node("Enumeration", "PixelFormat",
             "<EnumEntry Name=\"Mono8\"><Value>0x01080001</Value></EnumEntry><pValue>FormatReg</pValue>") +
        IntReg("FormatReg", "0x110") + IntReg("PayloadSize", "0x114", "8", "RO"));

/// Of the interface: two devices, the second of which is the camera.
const std::string kInterfaceXml =
    DescriptionOf({"DeviceSelector", "DeviceID", "GevDeviceForceIPAddress", "GevDeviceForceSubnetMask",
                   "GevDeviceForceGateway", "GevDeviceForceIP"},
                  Node("Integer", "DeviceSelector", "<pValue>SelectorReg</pValue><Min>0</Min><Max>1</Max>") +
                      IntReg("SelectorReg", "0x10") + Register("StringReg", "DeviceID", "0x200", "16", "", "RO") +
                      IntReg("GevDeviceForceIPAddress", "0x20") + IntReg("GevDeviceForceSubnetMask", "0x24") +
                      IntReg("GevDeviceForceGateway", "0x28") +
                      Node("Command", "GevDeviceForceIP", "<pValue>ForceReg</pValue><CommandValue>1</CommandValue>") +
                      IntReg("ForceReg", "0x40", "4", "WO"));

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
        kXml.copy(reinterpret_cast<char *>(&made->memory[kXmlAddress]), kXml.size());
        kInterfaceXml.copy(reinterpret_cast<char *>(&made->interfaceMemory[kXmlAddress]), kInterfaceXml.size());
        return made;
    }();
    return *producer;
}

std::size_t XmlBytes(bool ofInterface)
{
    return (ofInterface ? kInterfaceXml : kXml).size();
}

void Reset()
{
    Lock lock(P().mutex);
    Script &s = P().script;
    s.openResult = s.portResult = s.startResult = s.eventResult = GC_ERR_SUCCESS;
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
    s.payload = s.incomplete = 0;
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
