#pragma once

#include <string>
#include <vector>

namespace orv::gentl {

/// Where producers are looked for, in this order. Empty and missing places are skipped.
struct SearchPath {
    std::string executableFolder;
    std::string installedFolder;
    std::string environmentList; ///< ':'-separated; an entry is a folder or a .cti file
};

/// The running program's own folder, the folder this build installs to, and the environment variable
/// GENICAM_GENTL64_PATH (GENICAM_GENTL32_PATH in a 32-bit process).
SearchPath DefaultSearchPath();

/// All producer files: canonical paths without duplicates, folders in search order, names sorted within a folder.
/// Folders are not searched recursively; only names that end in ".cti" count.
std::vector<std::string> FindProducers(const SearchPath &path = DefaultSearchPath());

/// The first producer of that file name; "" when there is none. A name with a slash is taken as a path.
std::string FindProducer(const std::string &fileName, const SearchPath &path = DefaultSearchPath());

} // namespace orv::gentl
