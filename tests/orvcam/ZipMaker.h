#pragma once

#include <string>
#include <vector>

/// One file of an archive to be made.
struct ZipFile {
    std::string name;
    std::string content;
    bool deflate = true;
    bool streamed = false; ///< sizes and checksum only behind the data, as written to a pipe
};

std::string MakeZip(const std::vector<ZipFile> &files);
