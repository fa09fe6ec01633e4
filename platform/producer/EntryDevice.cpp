#include "producer/Entry.h"

// Device functions.

namespace nuvark::entry {

Status DevClose(DEV_HANDLE hDevice)
{
    const auto device = GetDevice(hDevice);
    if (device.Ok())
        device.value->Close();
    return device.status;
}

Status DevGetInfo(DEV_HANDLE hDevice, DEVICE_INFO_CMD iInfoCmd, INFO_DATATYPE *piType, void *pBuffer, size_t *piSize)
{
    const auto device = GetDevice(hDevice);
    if (!device.Ok())
        return device.status;
    return GiveInfo(DeviceInfo(device.value->Record(), iInfoCmd), piType, pBuffer, piSize);
}

Status DevGetPort(DEV_HANDLE hDevice, PORT_HANDLE *phRemoteDev)
{
    const auto device = GetDevice(hDevice);
    if (!device.Ok())
        return device.status;
    const std::shared_ptr<RemotePort> port = device.value->GetRemotePort();
    if (port == nullptr)
        return {GC_ERR_INVALID_HANDLE, "the device has been closed"};
    return Give(port->Handle(), phRemoteDev, "phRemoteDev");
}

Status DevGetNumDataStreams(DEV_HANDLE hDevice, uint32_t *piNumDataStreams)
{
    const auto device = GetDevice(hDevice);
    if (!device.Ok())
        return device.status;
    return Give(device.value->GetCamera().StreamCount(), piNumDataStreams, "piNumDataStreams");
}

Status DevGetDataStreamID(DEV_HANDLE hDevice, uint32_t iIndex, char *sDataStreamID, size_t *piSize)
{
    const auto device = GetDevice(hDevice);
    if (!device.Ok())
        return device.status;
    const std::uint32_t count = device.value->GetCamera().StreamCount();
    if (count == 0)
        return {GC_ERR_NOT_IMPLEMENTED, "the camera has no stream"};
    if (iIndex >= count)
        return {GC_ERR_INVALID_INDEX, "stream " + std::to_string(iIndex) + " of " + std::to_string(count)};
    return GiveString(device.value->StreamId(iIndex), sDataStreamID, piSize);
}

Status DevOpenDataStream(DEV_HANDLE hDevice, const char *sDataStreamID, DS_HANDLE *phDataStream)
{
    const auto device = GetDevice(hDevice);
    if (!device.Ok())
        return device.status;
    if (IsInvalidPointer(sDataStreamID) || IsInvalidPointer(phDataStream))
        return InvalidPointer("sDataStreamID or phDataStream");
    const auto opened = device.value->OpenStream(sDataStreamID);
    if (opened.Ok())
        *phDataStream = opened.value->Handle();
    return opened.status;
}

Status DevGetParentIF(DEV_HANDLE hDevice, IF_HANDLE *phIface)
{
    const auto device = GetDevice(hDevice);
    return device.Ok() ? Give(device.value->Parent()->Handle(), phIface, "phIface") : device.status;
}

} // namespace nuvark::entry
