#define GENTL_DECLARE_FUNCTIONS
#include "producer/Entry.h"
#include "producer/LastError.h"

#include <new>
#include <string_view>

// The exported functions: one shim each around the function of the same name in nuvark::entry. No code of ours calls an
// exported name, since several producers with the same names may live in one process.

namespace {

using nuvark::Status;

constexpr bool WorksUninitialised(std::string_view name)
{
    return name == "GCInitLib";
}

/// Asking for the last error must not replace it.
constexpr bool IsRemembered(std::string_view name)
{
    return name != "GCGetLastError";
}

GC_ERROR Report(const char *name, const Status &status) noexcept
{
    if (status.Ok() || !IsRemembered(name))
        return status.Code();
    try {
        nuvark::RememberFailure(name, status);
    } catch (...) {
        // Out of memory: the code alone must do.
    }
    return status.Code();
}

GC_ERROR Report(const char *name, GC_ERROR code, const char *text) noexcept
{
    try {
        return Report(name, Status(code, text));
    } catch (...) {
        return code;
    }
}

template <class Function> GC_ERROR Guard(const char *name, Function function) noexcept
{
    try {
        if (!WorksUninitialised(name) && !nuvark::entry::IsInitialised())
            return Report(name, Status(GC_ERR_NOT_INITIALIZED, "GCInitLib has not been called"));
        return Report(name, function());
    } catch (const std::bad_alloc &) {
        return Report(name, GC_ERR_OUT_OF_MEMORY, "");
    } catch (const std::exception &failure) {
        return Report(name, GC_ERR_ERROR, failure.what());
    } catch (...) {
        return Report(name, GC_ERR_ERROR, "");
    }
}

} // namespace

#define NUVARK_EXPORT(since, name, parameters, arguments)                                                              \
    GC_ERROR GC_CALLTYPE name parameters                                                                               \
    {                                                                                                                  \
        return Guard(#name, [&] { return nuvark::entry::name arguments; });                                            \
    }
GENTL_FUNCTIONS(NUVARK_EXPORT)
