#pragma once

#include "gentl/GenTL.h"

#include <memory>
#include <string>

namespace orv::gentl {

/// The functions of one loaded producer. Those of the 1.0 set are never null; later ones are null where absent.
struct Functions {
#define GENTL_POINTER(since, name, parameters, arguments) GC_ERROR(GC_CALLTYPE *name) parameters = nullptr;
    GENTL_FUNCTIONS(GENTL_POINTER)
#undef GENTL_POINTER
};

/// One producer file, loaded into this process.
///
/// The code stays mapped until the process ends, even after the object is gone: a producer's worker thread may still be
/// leaving, or a thread-local destructor of its code may still have to run. Loading the same file again gives the same
/// code and the same state. Neither GCInitLib nor GCCloseLib is called here.
/// Threads: any; the object does not change once made.
class Library {
public:
    /// Loads a .cti. On failure returns null and stores one sentence that names the file and the reason.
    [[nodiscard]] static std::unique_ptr<Library> Load(const std::string &path, std::string *error);

    const std::string &Path() const { return m_path; }
    const Functions &Calls() const { return m_functions; }
    const Functions *operator->() const { return &m_functions; }

private:
    Library() = default;

    std::string m_path;
    Functions m_functions;
};

} // namespace orv::gentl
