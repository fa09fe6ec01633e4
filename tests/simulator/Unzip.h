#pragma once

#include <zlib.h>

#include <cstdint>
#include <string>

namespace orvsim {

struct UnzippedFile {
    std::string problem; ///< empty: all is well
    std::string name;
    std::string content;
};

/// The first file of an archive, found by its end record and central directory, checked against the local header and
/// the check sum.
inline UnzippedFile UnzipFirst(const std::string &zip)
{
    const auto number = [&zip](std::size_t at, int bytes) {
        std::uint32_t value = 0;
        for (int i = bytes - 1; i >= 0; --i)
            value = value << 8 | static_cast<std::uint8_t>(zip.at(at + static_cast<std::size_t>(i)));
        return value;
    };
    UnzippedFile file;
    if (zip.size() < 22 || number(zip.size() - 22, 4) != 0x06054b50)
        return {"no end record", {}, {}};
    const std::size_t end = zip.size() - 22;
    const std::size_t entry = number(end + 16, 4);
    if (number(end + 10, 2) != 1 || number(end + 12, 4) != end - entry || number(entry, 4) != 0x02014b50)
        return {"the end record does not fit the directory", {}, {}};
    const std::size_t local = number(entry + 42, 4);
    const std::size_t nameSize = number(entry + 28, 2);
    file.name = zip.substr(entry + 46, nameSize);
    if (number(local, 4) != 0x04034b50 || zip.compare(local + 4, 26, zip, entry + 6, 26) != 0 ||
        zip.compare(local + 30, nameSize, file.name) != 0)
        return {"local header and directory differ", {}, {}};

    const std::size_t packedSize = number(entry + 20, 4);
    std::string packed = zip.substr(local + 30 + nameSize, packedSize);
    file.content.resize(number(entry + 24, 4));
    z_stream stream = {};
    inflateInit2(&stream, -MAX_WBITS);
    stream.next_in = reinterpret_cast<Bytef *>(&packed[0]);
    stream.avail_in = static_cast<uInt>(packed.size());
    stream.next_out = reinterpret_cast<Bytef *>(&file.content[0]);
    stream.avail_out = static_cast<uInt>(file.content.size());
    const int result = inflate(&stream, Z_FINISH);
    inflateEnd(&stream);
    const auto *bytes = reinterpret_cast<const Bytef *>(file.content.data());
    if (result != Z_STREAM_END || stream.avail_out != 0)
        file.problem = "the packed data is damaged";
    else if (crc32(crc32(0, nullptr, 0), bytes, static_cast<uInt>(file.content.size())) != number(entry + 16, 4))
        file.problem = "wrong check sum";
    return file;
}

} // namespace orvsim
