#include "producer/Entry.h"

#include "gentl/NuvarkCustom.h"

// Event functions.

namespace nuvark::entry {

namespace {

/// Modules have events; the camera's port and buffers have not.
Result<std::shared_ptr<Module>> GetEventModule(EVENTSRC_HANDLE handle)
{
    auto module = FromHandle<Module>(handle, "a module with events");
    if (module.Ok() && module.value->GetKind() == Kind::RemotePort)
        return Status(GC_ERR_INVALID_HANDLE, "the camera's port has no events, its device has");
    return module;
}

Result<InfoValue> EventInfo(Event &event, EVENT_INFO_CMD command)
{
    EventSource &source = event.Source();
    switch (command) {
    case EVENT_EVENT_TYPE:
        return InfoValue::Int32(event.Type());
    case EVENT_NUM_IN_QUEUE:
        return InfoValue::Size(source.Count());
    case EVENT_NUM_FIRED:
        return InfoValue::UInt64(source.Fired());
    case EVENT_SIZE_MAX:
        return InfoValue::Size(source.MaxSize());
    case EVENT_INFO_DATA_SIZE_MAX:
        return InfoValue::Size(source.MaxValueSize());
    case NUVARK_EVENT_INFO_NUM_DROPPED:
        return InfoValue::UInt64(source.Dropped());
    default:
        return UnknownCommand("event", command);
    }
}

bool IsKnownType(EVENT_TYPE type)
{
    return (type >= EVENT_ERROR && type <= EVENT_MODULE) || type >= EVENT_CUSTOM_ID;
}

} // namespace

Status GCRegisterEvent(EVENTSRC_HANDLE hModule, EVENT_TYPE iEventID, EVENT_HANDLE *phEvent)
{
    if (HandleTable::Instance().Find<Buffer>(hModule) != nullptr)
        return {GC_ERR_NOT_IMPLEMENTED, "buffers have no events"};
    const auto module = GetEventModule(hModule);
    if (!module.Ok())
        return module.status;
    if (IsInvalidPointer(phEvent))
        return InvalidPointer("phEvent");
    const auto handle = module.value->RegisterEvent(iEventID);
    if (handle.Ok())
        *phEvent = handle.value;
    return handle.status;
}

Status GCUnregisterEvent(EVENTSRC_HANDLE hModule, EVENT_TYPE iEventID)
{
    const auto module = GetEventModule(hModule);
    if (!module.Ok())
        return module.status;
    if (!IsKnownType(iEventID))
        return {GC_ERR_NOT_IMPLEMENTED, "there is no event type " + std::to_string(iEventID)};
    return module.value->UnregisterEvent(iEventID);
}

Status EventGetData(EVENT_HANDLE hEvent, void *pBuffer, size_t *piSize, uint64_t iTimeout)
{
    const auto event = GetEvent(hEvent);
    if (!event.Ok())
        return event.status;
    if (pBuffer != nullptr && (IsInvalidPointer(pBuffer) || IsInvalidPointer(piSize)))
        return InvalidPointer("pBuffer or piSize");
    // A null buffer throws one event away, so its size may not matter to the caller.
    std::size_t ignored = 0;
    return event.value->GetData(pBuffer, IsInvalidPointer(piSize) ? &ignored : piSize, iTimeout);
}

Status EventGetDataInfo(EVENT_HANDLE hEvent, const void *pInBuffer, size_t iInSize, EVENT_DATA_INFO_CMD iInfoCmd,
                        INFO_DATATYPE *piType, void *pOutBuffer, size_t *piOutSize)
{
    const auto event = GetEvent(hEvent);
    if (!event.Ok())
        return event.status;
    if (IsInvalidPointer(pInBuffer))
        return InvalidPointer("pInBuffer");
    const orv::ByteSpan data{static_cast<const std::uint8_t *>(pInBuffer), iInSize};
    return GiveInfo(event.value->Source().Decode(data, iInfoCmd), piType, pOutBuffer, piOutSize);
}

Status EventGetInfo(EVENT_HANDLE hEvent, EVENT_INFO_CMD iInfoCmd, INFO_DATATYPE *piType, void *pBuffer, size_t *piSize)
{
    const auto event = GetEvent(hEvent);
    return event.Ok() ? GiveInfo(EventInfo(*event.value, iInfoCmd), piType, pBuffer, piSize) : event.status;
}

Status EventFlush(EVENT_HANDLE hEvent)
{
    const auto event = GetEvent(hEvent);
    if (event.Ok())
        event.value->Source().Clear();
    return event.status;
}

Status EventKill(EVENT_HANDLE hEvent)
{
    const auto event = GetEvent(hEvent);
    if (event.Ok())
        event.value->Kill();
    return event.status;
}

} // namespace nuvark::entry
