#include "ZipMaker.h"

#include <cstdint>
#include <zlib.h>

namespace {

void Put(std::string &out, std::uint32_t value, int bytes)
{
    for (int i = 0; i < bytes; ++i)
        out += static_cast<char>(value >> (8 * i));
}

std::string Deflated(const std::string &content)
{
    z_stream stream = {};
    deflateInit2(&stream, 9, Z_DEFLATED, -MAX_WBITS, 8, Z_DEFAULT_STRATEGY);
    std::string packed(deflateBound(&stream, content.size()), '\0');
    stream.next_in = reinterpret_cast<Bytef *>(const_cast<char *>(content.data()));
    stream.avail_in = static_cast<uInt>(content.size());
    stream.next_out = reinterpret_cast<Bytef *>(packed.data());
    stream.avail_out = static_cast<uInt>(packed.size());
    deflate(&stream, Z_FINISH);
    packed.resize(stream.total_out);
    deflateEnd(&stream);
    return packed;
}

} // namespace

std::string MakeZip(const std::vector<ZipFile> &files)
{
    std::string archive;
    std::string directory;
    for (const ZipFile &file : files) {
        const std::string packed = file.deflate ? Deflated(file.content) : file.content;
        const auto crc = static_cast<std::uint32_t>(
            crc32(0, reinterpret_cast<const Bytef *>(file.content.data()), static_cast<uInt>(file.content.size())));
        const auto sizes = [&](std::string &out, bool known) {
            Put(out, known ? crc : 0, 4);
            Put(out, known ? packed.size() : 0, 4);
            Put(out, known ? file.content.size() : 0, 4);
        };
        const auto offset = static_cast<std::uint32_t>(archive.size());
        std::string common;
        Put(common, 20, 2);
        Put(common, file.streamed ? 8 : 0, 2);
        Put(common, file.deflate ? 8 : 0, 2);
        Put(common, 0, 4);
        archive += "PK\3\4" + common;
        sizes(archive, !file.streamed);
        Put(archive, file.name.size(), 2);
        Put(archive, 0, 2);
        archive += file.name + packed;
        if (file.streamed) {
            archive += "PK\7\10";
            sizes(archive, true);
        }
        directory += "PK\1\2";
        Put(directory, 20, 2);
        directory += common;
        sizes(directory, true);
        Put(directory, file.name.size(), 2);
        directory.append(12, '\0'); // extra field, comment, disk, attributes
        Put(directory, offset, 4);
        directory += file.name;
    }
    const auto start = static_cast<std::uint32_t>(archive.size());
    archive += directory + "PK\5\6";
    Put(archive, 0, 4);
    Put(archive, files.size(), 2);
    Put(archive, files.size(), 2);
    Put(archive, directory.size(), 4);
    Put(archive, start, 4);
    Put(archive, 0, 2);
    return archive;
}
