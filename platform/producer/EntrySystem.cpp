#include "producer/Entry.h"
#include "producer/LastError.h"

#include <algorithm>

// Library, system and interface functions.

namespace nuvark {

namespace {

/// Whether the library is initialised, and its one system. Lives until the process ends: the last calls may never come.
struct LibraryState {
    std::atomic<bool> initialised{false}; ///< cleared under the mutex
    orv::Mutex mutex;                     ///< opening and closing
    std::shared_ptr<SystemModule> system GUARDED_BY(mutex);
};

LibraryState &Library()
{
    static auto *const state = new LibraryState;
    return *state;
}

/// \param only  null, or leaves any other system open: it may have been opened since.
void CloseSystem(const SystemModule *only)
{
    std::shared_ptr<SystemModule> system;
    {
        const orv::MutexLock lock(Library().mutex);
        if (only == nullptr || Library().system.get() == only)
            system.swap(Library().system);
    }
    if (system != nullptr)
        system->Close();
}

Result<CameraAccess> AccessFrom(DEVICE_ACCESS_FLAGS flags)
{
    switch (flags) {
    case DEVICE_ACCESS_READONLY:
        return CameraAccess::ReadOnly;
    case DEVICE_ACCESS_CONTROL:
        return CameraAccess::Control;
    case DEVICE_ACCESS_EXCLUSIVE:
        return CameraAccess::Exclusive;
    default:
        return Status(GC_ERR_INVALID_PARAMETER, "there is no access mode " + std::to_string(flags));
    }
}

Status GiveChanged(bool changed, bool8_t *pbChanged)
{
    if (!IsInvalidPointer(pbChanged))
        *pbChanged = changed ? 1 : 0;
    return {};
}

template <class Records> Status GiveIdAt(const Records &records, std::uint32_t index, char *text, size_t *size)
{
    if (index >= records.size())
        return {GC_ERR_INVALID_INDEX, "index " + std::to_string(index) + " of " + std::to_string(records.size())};
    return GiveString(records[index].id, text, size);
}

} // namespace

namespace entry {

bool IsInitialised()
{
    return Library().initialised;
}

Status GCInitLib()
{
    if (Library().initialised.exchange(true))
        return {GC_ERR_RESOURCE_IN_USE, "the library is initialised already"};
    return {};
}

Status GCCloseLib()
{
    for (;;) {
        CloseSystem(nullptr);
        const orv::MutexLock lock(Library().mutex);
        if (Library().system == nullptr) { // not opened again meanwhile
            Library().initialised = false;
            return {};
        }
    }
}

Status GCGetInfo(TL_INFO_CMD iInfoCmd, INFO_DATATYPE *piType, void *pBuffer, size_t *piSize)
{
    return GiveInfo(ProducerInfo(iInfoCmd), piType, pBuffer, piSize);
}

Status GCGetLastError(GC_ERROR *piErrorCode, char *sErrorText, size_t *piSize)
{
    if (IsInvalidPointer(piErrorCode))
        return InvalidPointer("piErrorCode");
    const Status given = GiveString(LastFailure().Text(), sErrorText, piSize);
    if (given.Ok())
        *piErrorCode = LastFailure().Code();
    return given;
}

Status TLOpen(TL_HANDLE *phSystem)
{
    if (IsInvalidPointer(phSystem))
        return InvalidPointer("phSystem");
    const orv::MutexLock lock(Library().mutex);
    if (!Library().initialised)
        return {GC_ERR_NOT_INITIALIZED, "the library has been closed meanwhile"};
    if (Library().system != nullptr)
        return {GC_ERR_RESOURCE_IN_USE, "the system is open in this process already"};
    Library().system = std::make_shared<SystemModule>();
    *phSystem = HandleTable::Instance().Add(Library().system);
    return {};
}

Status TLClose(TL_HANDLE hSystem)
{
    const auto system = GetSystem(hSystem);
    if (system.Ok())
        CloseSystem(system.value.get());
    return system.status;
}

Status TLGetInfo(TL_HANDLE hSystem, TL_INFO_CMD iInfoCmd, INFO_DATATYPE *piType, void *pBuffer, size_t *piSize)
{
    const auto system = GetSystem(hSystem);
    return system.Ok() ? GiveInfo(ProducerInfo(iInfoCmd), piType, pBuffer, piSize) : system.status;
}

Status TLUpdateInterfaceList(TL_HANDLE hSystem, bool8_t *pbChanged, uint64_t)
{
    const auto system = GetSystem(hSystem);
    return system.Ok() ? GiveChanged(system.value->UpdateInterfaces(), pbChanged) : system.status;
}

Status TLGetNumInterfaces(TL_HANDLE hSystem, uint32_t *piNumIfaces)
{
    const auto system = GetSystem(hSystem);
    return system.Ok() ? Give(system.value->Interfaces().size(), piNumIfaces, "piNumIfaces") : system.status;
}

Status TLGetInterfaceID(TL_HANDLE hSystem, uint32_t iIndex, char *sIfaceID, size_t *piSize)
{
    const auto system = GetSystem(hSystem);
    return system.Ok() ? GiveIdAt(system.value->Interfaces(), iIndex, sIfaceID, piSize) : system.status;
}

Status TLGetInterfaceInfo(TL_HANDLE hSystem, const char *sIfaceID, INTERFACE_INFO_CMD iInfoCmd, INFO_DATATYPE *piType,
                          void *pBuffer, size_t *piSize)
{
    const auto system = GetSystem(hSystem);
    if (!system.Ok())
        return system.status;
    if (IsInvalidPointer(sIfaceID))
        return InvalidPointer("sIfaceID");
    const auto record = system.value->FindInterface(sIfaceID);
    return record.Ok() ? GiveInfo(InterfaceInfo(record.value, iInfoCmd), piType, pBuffer, piSize) : record.status;
}

Status TLOpenInterface(TL_HANDLE hSystem, const char *sIfaceID, IF_HANDLE *phIface)
{
    const auto system = GetSystem(hSystem);
    if (!system.Ok())
        return system.status;
    if (IsInvalidPointer(sIfaceID) || IsInvalidPointer(phIface))
        return InvalidPointer("sIfaceID or phIface");
    const auto opened = system.value->OpenInterface(sIfaceID);
    if (opened.Ok())
        *phIface = opened.value->Handle();
    return opened.status;
}

Status IFClose(IF_HANDLE hIface)
{
    const auto interface = GetInterface(hIface);
    if (interface.Ok())
        interface.value->Close();
    return interface.status;
}

Status IFGetInfo(IF_HANDLE hIface, INTERFACE_INFO_CMD iInfoCmd, INFO_DATATYPE *piType, void *pBuffer, size_t *piSize)
{
    const auto interface = GetInterface(hIface);
    if (!interface.Ok())
        return interface.status;
    return GiveInfo(InterfaceInfo(interface.value->Record(), iInfoCmd), piType, pBuffer, piSize);
}

Status IFUpdateDeviceList(IF_HANDLE hIface, bool8_t *pbChanged, uint64_t iTimeout)
{
    const auto interface = GetInterface(hIface);
    if (!interface.Ok())
        return interface.status;
    const Result<bool> changed = interface.value->UpdateDevices(iTimeout);
    return changed.Ok() ? GiveChanged(changed.value, pbChanged) : changed.status;
}

Status IFGetNumDevices(IF_HANDLE hIface, uint32_t *piNumDevices)
{
    const auto interface = GetInterface(hIface);
    return interface.Ok() ? Give(interface.value->Devices().size(), piNumDevices, "piNumDevices") : interface.status;
}

Status IFGetDeviceID(IF_HANDLE hIface, uint32_t iIndex, char *sDeviceID, size_t *piSize)
{
    const auto interface = GetInterface(hIface);
    return interface.Ok() ? GiveIdAt(interface.value->Devices(), iIndex, sDeviceID, piSize) : interface.status;
}

Status IFGetDeviceInfo(IF_HANDLE hIface, const char *sDeviceID, DEVICE_INFO_CMD iInfoCmd, INFO_DATATYPE *piType,
                       void *pBuffer, size_t *piSize)
{
    const auto interface = GetInterface(hIface);
    if (!interface.Ok())
        return interface.status;
    if (IsInvalidPointer(sDeviceID))
        return InvalidPointer("sDeviceID");
    const auto record = interface.value->FindDevice(sDeviceID);
    return record.Ok() ? GiveInfo(DeviceInfo(record.value, iInfoCmd), piType, pBuffer, piSize) : record.status;
}

Status IFOpenDevice(IF_HANDLE hIface, const char *sDeviceID, DEVICE_ACCESS_FLAGS iOpenFlag, DEV_HANDLE *phDevice)
{
    const auto interface = GetInterface(hIface);
    if (!interface.Ok())
        return interface.status;
    if (IsInvalidPointer(sDeviceID) || IsInvalidPointer(phDevice))
        return InvalidPointer("sDeviceID or phDevice");
    const auto access = AccessFrom(iOpenFlag);
    if (!access.Ok())
        return access.status;
    const auto opened = interface.value->OpenDevice(sDeviceID, access.value);
    if (opened.Ok())
        *phDevice = opened.value->Handle();
    return opened.status;
}

Status IFGetParentTL(IF_HANDLE hIface, TL_HANDLE *phSystem)
{
    const auto interface = GetInterface(hIface);
    return interface.Ok() ? Give(interface.value->Parent()->Handle(), phSystem, "phSystem") : interface.status;
}

} // namespace entry
} // namespace nuvark
