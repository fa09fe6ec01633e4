#pragma once

#include "producer/Info.h"
#include "producer/Modules.h"
#include "producer/Status.h"

/// The work behind the exported functions, one function per export with the same parameters. Exports.cpp wraps each: it
/// checks that the library is initialised, keeps exceptions in and remembers failures. Any thread.
namespace nuvark::entry {

#define NUVARK_DECLARE(since, name, parameters, arguments) Status name parameters;
GENTL_FUNCTIONS(NUVARK_DECLARE)
#undef NUVARK_DECLARE

/// Whether GCInitLib has been called.
bool IsInitialised();

/// The object behind a handle, or the status for a handle that is none.
template <class T> Result<std::shared_ptr<T>> FromHandle(const void *handle, const char *what)
{
    std::shared_ptr<T> object = HandleTable::Instance().Find<T>(handle);
    if (object == nullptr)
        return Status(GC_ERR_INVALID_HANDLE, std::string("this is no handle of ") + what);
    return object;
}

inline auto GetSystem(TL_HANDLE handle)
{
    return FromHandle<SystemModule>(handle, "an open system");
}
inline auto GetInterface(IF_HANDLE handle)
{
    return FromHandle<InterfaceModule>(handle, "an open interface");
}
inline auto GetDevice(DEV_HANDLE handle)
{
    return FromHandle<DeviceModule>(handle, "an open device");
}
inline auto GetStream(DS_HANDLE handle)
{
    return FromHandle<StreamModule>(handle, "an open data stream");
}
inline auto GetEvent(EVENT_HANDLE handle)
{
    return FromHandle<Event>(handle, "a registered event");
}

inline Status InvalidPointer(const char *name)
{
    return {GC_ERR_INVALID_PARAMETER, std::string(name) + " is an invalid pointer"};
}

/// Stores a value where the caller wants it.
template <class T, class V> Status Give(V value, T *target, const char *name)
{
    if (IsInvalidPointer(target))
        return InvalidPointer(name);
    *target = static_cast<T>(value);
    return {};
}

} // namespace nuvark::entry
