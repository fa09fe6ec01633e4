// Places as cameras write them, and what lies there: plain text, archives of all kinds, one that lies and one that
// unpacks to a great deal.
#include "fuzz/Target.h"
#include "tests/orvcam/ZipMaker.h"

#include <cstdio>
#include <string>

namespace orv::fuzz {

namespace {

constexpr std::uint32_t kBegin = 0x10000;

std::string Xml(std::size_t padding = 0)
{
    return "<?xml version=\"1.0\"?>\n<RegisterDescription SchemaMajorVersion=\"1\" SchemaMinorVersion=\"1\">" +
           std::string(padding, ' ') + "</RegisterDescription>\n";
}

/// \param place  printf text with the memory's size.
Bytes Camera(const char *place, const std::string &memory, const std::vector<std::string> &before = {})
{
    char text[128];
    std::snprintf(text, sizeof text, place, memory.size());
    std::vector<std::string> places = before;
    places.emplace_back(text);
    ByteWriter out;
    out.U8(static_cast<std::uint8_t>(places.size()));
    for (const std::string &one : places)
        PutPiece(out, {reinterpret_cast<const std::uint8_t *>(one.data()), one.size()});
    out.U32(kBegin);
    out.Bytes({reinterpret_cast<const std::uint8_t *>(memory.data()), memory.size()});
    return out.Take();
}

/// The archive with another unpacked size in its directory.
std::string Lying(std::string archive, std::uint32_t size)
{
    const std::size_t entry = archive.rfind("PK\1\2");
    for (int i = 0; i < 4; ++i)
        archive[entry + 24 + static_cast<std::size_t>(i)] = static_cast<char>(size >> (8 * i));
    return archive;
}

} // namespace

std::vector<Bytes> Seeds()
{
    const std::string plain = MakeZip({{"camera.xml", Xml()}});
    return {
        Camera("Local:camera.xml;10000;%zx", Xml()),
        Camera("local:///camera.zip;0x10000;0x%zX?SchemaVersion=1.1.0", plain),
        Camera(" Local: camera.xml ; 10000 ; %zx", Xml(), {"http://example.org/camera.xml", "Local:a.xml;5;40"}),
        Camera("Local:camera.zip;10000;%zx", MakeZip({{"read.me", "none"}, {"CAMERA.XML", Xml(), false}})),
        Camera("Local:camera.zip;10000;%zx", MakeZip({{"__MACOSX/camera.xml", "none"}, {"c.xml", Xml(), true, true}})),
        Camera("Local:camera.zip;10000;%zx", MakeZip({{"camera.xml", Xml(100000)}})),
        Camera("Local:camera.zip;10000;%zx", Lying(plain, 0x3FFFFFF)),
        Camera("Local:camera.zip;10000;%zx", Lying(plain, 0xFFFFFFFF)),
        Camera("Local:camera.zip;10000;%zx", "some bytes before" + plain + std::string(20, '\0')),
        Camera("Local:camera.xml;10000;3FFFFFF", Xml()),
        Camera("File:///opt/camera.xml", Xml()),
    };
}

} // namespace orv::fuzz
