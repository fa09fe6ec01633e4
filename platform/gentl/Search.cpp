#include "gentl/Search.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <sstream>

namespace orv::gentl {

namespace fs = std::filesystem;

namespace {

bool IsProducerFile(const fs::path &path)
{
    std::error_code error;
    return path.extension() == ".cti" && fs::is_regular_file(path, error);
}

/// The producer files that one entry of the search path stands for, sorted.
std::vector<fs::path> FilesOf(const fs::path &entry)
{
    std::error_code error;
    if (IsProducerFile(entry))
        return {entry};
    std::vector<fs::path> files;
    for (fs::directory_iterator it(entry, error), end; !error && it != end; it.increment(error)) {
        if (IsProducerFile(it->path()))
            files.push_back(it->path());
    }
    std::sort(files.begin(), files.end());
    return files;
}

std::vector<std::string> EntriesOf(const SearchPath &path)
{
    std::vector<std::string> entries = {path.executableFolder, path.installedFolder};
    std::istringstream list(path.environmentList);
    for (std::string entry; std::getline(list, entry, ':');)
        entries.push_back(entry);
    return entries;
}

/// Two links to one file are one producer: it can be initialised only once per process.
std::string Canonical(const fs::path &file)
{
    std::error_code error;
    const fs::path canonical = fs::canonical(file, error);
    return error ? file.string() : canonical.string();
}

} // namespace

SearchPath DefaultSearchPath()
{
    SearchPath path;
    std::error_code error;
    const fs::path executable = fs::read_symlink("/proc/self/exe", error);
    if (!error)
        path.executableFolder = executable.parent_path().string();
    path.installedFolder = ORV_GENTL_INSTALL_DIR;
    const char *list = std::getenv(sizeof(void *) == 8 ? "GENICAM_GENTL64_PATH" : "GENICAM_GENTL32_PATH");
    path.environmentList = list != nullptr ? list : "";
    return path;
}

std::vector<std::string> FindProducers(const SearchPath &path)
{
    std::vector<std::string> found;
    for (const std::string &entry : EntriesOf(path)) {
        if (entry.empty())
            continue;
        for (const fs::path &file : FilesOf(entry)) {
            const std::string canonical = Canonical(file);
            if (std::find(found.begin(), found.end(), canonical) == found.end())
                found.push_back(canonical);
        }
    }
    return found;
}

std::string FindProducer(const std::string &fileName, const SearchPath &path)
{
    if (fileName.find('/') != std::string::npos)
        return IsProducerFile(fileName) ? Canonical(fileName) : std::string();
    for (const std::string &entry : EntriesOf(path)) {
        if (entry.empty())
            continue;
        for (const fs::path &file : FilesOf(entry)) {
            if (file.filename() == fileName)
                return Canonical(file);
        }
    }
    return {};
}

} // namespace orv::gentl
