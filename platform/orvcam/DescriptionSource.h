#pragma once

#include "orvcam/PortIo.h"

#include <string>
#include <vector>

namespace orv::cam {

/// Where a camera says its description is.
struct DescriptionUrl {
    enum class Scheme { Local, File, Unsupported };
    Scheme scheme = Scheme::Unsupported;
    std::string path; ///< of the file, or the name of a local one
    std::uint64_t address = 0;
    std::uint64_t bytes = 0;
};

/// Understands "local:name.xml;ADDRESS;LENGTH" (both hexadecimal) and "file:///path", with the liberties cameras take:
/// any case, up to three slashes, blanks, "0x", "?SchemaVersion=..." behind, bytes behind a NUL.
/// \return false for anything else, and for lengths of 0 or beyond 64 MiB.
bool ParseDescriptionUrl(const std::string &text, DescriptionUrl *url);

/// Fetches the description from the first of the places that works, unpacked.
/// \return false with a sentence in `*error` that names each place and what was wrong.
bool FetchDescription(const std::vector<std::string> &urls, PortIo &port, std::string *xml, std::string *error);

} // namespace orv::cam
