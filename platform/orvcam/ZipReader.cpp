#include "orvcam/ZipReader.h"

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <zlib.h>

namespace orv::cam {

namespace {

constexpr std::size_t kEndRecordBytes = 22;
constexpr std::size_t kCentralHeaderBytes = 46;
constexpr std::size_t kLocalHeaderBytes = 30;
constexpr std::uint32_t kEndSignature = 0x06054B50;
constexpr std::uint32_t kCentralSignature = 0x02014B50;
constexpr std::uint32_t kLocalSignature = 0x04034B50;

/// Little-endian numbers at checked places; a read past the end gives 0 and clears Ok().
class ZipBytes {
public:
    explicit ZipBytes(const std::string &bytes) : m_bytes(bytes) {}

    std::uint32_t U16(std::size_t at) { return Read(at, 2); }
    std::uint32_t U32(std::size_t at) { return Read(at, 4); }
    bool Has(std::size_t at, std::size_t count) const { return at <= m_bytes.size() && count <= m_bytes.size() - at; }
    bool Ok() const { return m_ok; }

private:
    std::uint32_t Read(std::size_t at, std::size_t count)
    {
        if (!Has(at, count)) {
            m_ok = false;
            return 0;
        }
        std::uint32_t value = 0;
        for (std::size_t i = count; i-- > 0;)
            value = value << 8 | static_cast<unsigned char>(m_bytes[at + i]);
        return value;
    }

    const std::string &m_bytes;
    bool m_ok = true;
};

struct ZipEntry {
    std::uint32_t method = 0;
    std::uint32_t crc = 0;
    std::size_t packedBytes = 0;
    std::size_t bytes = 0;
    std::size_t dataAt = 0;
};

bool EndsInXml(const std::string &name)
{
    if (name.size() < 4)
        return false;
    std::string tail = name.substr(name.size() - 4);
    std::transform(tail.begin(), tail.end(), tail.begin(), [](unsigned char c) { return std::tolower(c); });
    return tail == ".xml";
}

/// Where the end record starts, npos when there is none. It stands last, but a comment or padding may follow.
std::size_t FindEndRecord(const std::string &archive)
{
    static const char kSignature[] = {'P', 'K', 5, 6};
    if (archive.size() < kEndRecordBytes)
        return std::string::npos;
    return archive.rfind(std::string(kSignature, 4), archive.size() - kEndRecordBytes);
}

/// Finds the description's entry. The archive may stand behind other bytes: all offsets count from its own start, which
/// follows from where the directory really ends.
bool FindEntry(const std::string &archive, ZipEntry *entry)
{
    ZipBytes in(archive);
    const std::size_t end = FindEndRecord(archive);
    if (end == std::string::npos || in.U32(end) != kEndSignature)
        return false;
    const std::size_t count = in.U16(end + 10);
    const std::size_t directoryBytes = in.U32(end + 12);
    const std::size_t directoryOffset = in.U32(end + 16);
    if (directoryBytes > end || directoryOffset > end - directoryBytes)
        return false;
    const std::size_t start = end - directoryBytes - directoryOffset;
    std::size_t at = end - directoryBytes;
    for (std::size_t i = 0; i < count && in.U32(at) == kCentralSignature; ++i) {
        const std::size_t nameBytes = in.U16(at + 28);
        if (!in.Ok() || !in.Has(at + kCentralHeaderBytes, nameBytes))
            return false;
        const std::string name = archive.substr(at + kCentralHeaderBytes, nameBytes);
        if (EndsInXml(name) && name.compare(0, 9, "__MACOSX/") != 0) {
            const std::size_t local = start + in.U32(at + 42);
            entry->method = in.U16(at + 10);
            entry->crc = in.U32(at + 16);
            entry->packedBytes = in.U32(at + 20);
            entry->bytes = in.U32(at + 24);
            entry->dataAt = local + kLocalHeaderBytes + in.U16(local + 26) + in.U16(local + 28);
            return in.U32(local) == kLocalSignature && in.Ok() && in.Has(entry->dataAt, entry->packedBytes);
        }
        at += kCentralHeaderBytes + nameBytes + in.U16(at + 30) + in.U16(at + 32);
    }
    return false;
}

/// Inflates exactly entry.bytes bytes.
bool Inflate(const std::string &archive, const ZipEntry &entry, std::string *out)
{
    z_stream stream = {};
    if (inflateInit2(&stream, -MAX_WBITS) != Z_OK)
        return false;
    out->resize(entry.bytes);
    stream.next_in = reinterpret_cast<Bytef *>(const_cast<char *>(archive.data() + entry.dataAt));
    stream.avail_in = static_cast<uInt>(entry.packedBytes);
    stream.next_out = reinterpret_cast<Bytef *>(out->data());
    stream.avail_out = static_cast<uInt>(entry.bytes);
    const int result = inflate(&stream, Z_FINISH);
    const bool complete = result == Z_STREAM_END && stream.total_out == entry.bytes;
    inflateEnd(&stream);
    return complete;
}

} // namespace

bool LooksLikeZip(const std::string &bytes)
{
    return bytes.compare(0, 4, "PK\3\4", 4) == 0;
}

bool UnzipDescription(const std::string &archive, std::size_t maxBytes, std::string *xml, std::string *error)
{
    ZipEntry entry;
    if (!FindEntry(archive, &entry)) {
        *error = "the zip archive is damaged or holds no .xml file";
        return false;
    }
    if (entry.bytes > maxBytes) {
        *error = "the zip archive unpacks to " + std::to_string(entry.bytes) + " bytes, more than the " +
                 std::to_string(maxBytes) + " allowed";
        return false;
    }
    bool done = false;
    if (entry.method == 0 && entry.packedBytes == entry.bytes) {
        *xml = archive.substr(entry.dataAt, entry.bytes);
        done = true;
    } else if (entry.method == Z_DEFLATED) {
        done = Inflate(archive, entry, xml);
    }
    if (!done || crc32(0, reinterpret_cast<const Bytef *>(xml->data()), static_cast<uInt>(xml->size())) != entry.crc) {
        *error = "the zip archive's .xml file is damaged";
        return false;
    }
    return true;
}

} // namespace orv::cam
