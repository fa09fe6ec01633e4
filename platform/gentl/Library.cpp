#include "gentl/Library.h"

#include <dlfcn.h>

namespace orv::gentl {

namespace {

constexpr int kRequiredSince = 10;

/// Stores the symbol's address, or appends its name to `missing` when a required one is absent.
template <class Function>
void Resolve(void *handle, int since, const char *name, Function &target, std::string &missing)
{
    target = reinterpret_cast<Function>(dlsym(handle, name));
    if (target != nullptr || since > kRequiredSince)
        return;
    if (!missing.empty())
        missing += ", ";
    missing += name;
}

std::string ResolveAll(void *handle, Functions &functions)
{
    std::string missing;
#define GENTL_RESOLVE(since, name, parameters, arguments) Resolve(handle, since, #name, functions.name, missing);
    GENTL_FUNCTIONS(GENTL_RESOLVE)
#undef GENTL_RESOLVE
    return missing;
}

void Report(std::string *error, const std::string &path, const std::string &reason)
{
    if (error != nullptr)
        *error = "Cannot load the GenTL producer " + path + ": " + reason;
}

} // namespace

std::unique_ptr<Library> Library::Load(const std::string &path, std::string *error)
{
    // Not RTLD_DEEPBIND: it breaks a shared C++ runtime, and AddressSanitizer refuses it.
    void *handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (handle == nullptr) {
        const char *reason = dlerror();
        Report(error, path, reason != nullptr ? reason : "unknown reason");
        return nullptr;
    }
    std::unique_ptr<Library> library(new Library);
    const std::string missing = ResolveAll(handle, library->m_functions);
    if (!missing.empty()) {
        dlclose(handle);
        Report(error, path, "it lacks the required functions " + missing);
        return nullptr;
    }
    library->m_path = path;
    return library;
}

} // namespace orv::gentl
