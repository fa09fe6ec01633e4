#include "simulator/gige/Zip.h"

#include <zlib.h>

#include <cstdint>

// Layout: PKWARE APPNOTE, 4.3.7 local file header, 4.3.12 central directory, 4.3.16 end record. Little-endian.
namespace orvsim {
namespace {

constexpr std::uint16_t kVersion = 20; // 2.0: deflate
constexpr std::uint16_t kMethodDeflate = 8;
constexpr std::uint16_t kFirstDay = 0x0021; // 1980-01-01: no clock goes into the bytes

void Append(std::string &out, std::uint32_t value, int bytes)
{
    for (int i = 0; i < bytes; ++i)
        out.push_back(static_cast<char>(value >> (8 * i)));
}

/// Without zlib's own header, as archives want it.
std::string Deflate(const std::string &content)
{
    z_stream stream = {};
    if (deflateInit2(&stream, Z_BEST_COMPRESSION, Z_DEFLATED, -MAX_WBITS, 9, Z_DEFAULT_STRATEGY) != Z_OK)
        return {};
    std::string packed(deflateBound(&stream, content.size()), '\0');
    stream.next_in = reinterpret_cast<Bytef *>(const_cast<char *>(content.data())); // zlib does not write there
    stream.avail_in = static_cast<uInt>(content.size());
    stream.next_out = reinterpret_cast<Bytef *>(&packed[0]);
    stream.avail_out = static_cast<uInt>(packed.size());
    const bool isDone = deflate(&stream, Z_FINISH) == Z_STREAM_END;
    packed.resize(isDone ? stream.total_out : 0);
    deflateEnd(&stream);
    return packed;
}

/// The fields that local header and directory have in common, from "version needed" to "extra length".
std::string EntryFields(const std::string &fileName, const std::string &content, const std::string &packed)
{
    const uLong check =
        crc32(crc32(0, nullptr, 0), reinterpret_cast<const Bytef *>(content.data()), static_cast<uInt>(content.size()));
    std::string fields;
    Append(fields, kVersion, 2);
    Append(fields, 0, 2); // flags
    Append(fields, kMethodDeflate, 2);
    Append(fields, 0, 2); // time
    Append(fields, kFirstDay, 2);
    Append(fields, static_cast<std::uint32_t>(check), 4);
    Append(fields, static_cast<std::uint32_t>(packed.size()), 4);
    Append(fields, static_cast<std::uint32_t>(content.size()), 4);
    Append(fields, static_cast<std::uint32_t>(fileName.size()), 2);
    Append(fields, 0, 2);
    return fields;
}

} // namespace

std::string MakeZip(const std::string &fileName, const std::string &content)
{
    const std::string packed = Deflate(content);
    if (packed.empty())
        return {};
    const std::string fields = EntryFields(fileName, content, packed);

    std::string zip;
    Append(zip, 0x04034b50, 4);
    zip += fields + fileName + packed;

    const std::size_t directoryStart = zip.size();
    Append(zip, 0x02014b50, 4);
    Append(zip, kVersion, 2); // made by
    zip += fields;
    zip.append(14, '\0'); // comment length, disk, attributes, offset of the local header: all 0
    zip += fileName;
    const std::size_t directorySize = zip.size() - directoryStart;

    Append(zip, 0x06054b50, 4);
    Append(zip, 0, 4); // disks
    Append(zip, 1, 2);
    Append(zip, 1, 2);
    Append(zip, static_cast<std::uint32_t>(directorySize), 4);
    Append(zip, static_cast<std::uint32_t>(directoryStart), 4);
    Append(zip, 0, 2);
    return zip;
}

} // namespace orvsim
