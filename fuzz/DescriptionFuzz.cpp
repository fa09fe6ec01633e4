// What a camera says of where its description is, and the memory it is read from: places, plain text, zip archives.
//
// Input: the number of places (a byte), each a piece of text; the address where the memory begins (four bytes); what is
// left is the memory.
#include "fuzz/Target.h"
#include "orvcam/Description.h"
#include "orvcam/DescriptionSource.h"
#include "orvcam/OrvStatus.h"
#include "orvcam/ZipReader.h"
#include "producer/gige/XmlUrl.h"

#include <cstring>
#include <string>

namespace {

using namespace orv::fuzz;

constexpr std::size_t kMostUnpacked = 1 << 20;
/// Places that a camera names, at most.
constexpr std::size_t kMostPlaces = 3;

/// The camera's memory.
class MemoryPort final : public orv::cam::PortIo {
public:
    MemoryPort(std::uint64_t begin, orv::ByteSpan bytes) : m_begin(begin), m_bytes(bytes) {}

    int Read(std::uint64_t address, void *data, std::size_t bytes, std::string *why) override
    {
        if (address < m_begin || address - m_begin > m_bytes.size || bytes > m_bytes.size - (address - m_begin)) {
            *why = "there is nothing";
            return ORV_CAM_ERR_IO;
        }
        std::memcpy(data, m_bytes.data + (address - m_begin), bytes);
        return ORV_CAM_OK;
    }
    int Write(std::uint64_t, const void *, std::size_t, std::string *why) override
    {
        *why = "nothing is written while a description is read";
        Require(false, why->c_str());
        return ORV_CAM_ERR_IO;
    }

private:
    const std::uint64_t m_begin;
    const orv::ByteSpan m_bytes;
};

/// What the producer makes of a place must mean the same to the library behind it. \return whether it lies in the
/// camera: files of this host are none of the fuzzer's business.
bool CheckPlace(const std::string &text)
{
    const auto url = nuvark::gige::ParseDescriptionUrl(text);
    orv::cam::DescriptionUrl place;
    if (url && url->scheme == URL_SCHEME_LOCAL) {
        Require(orv::cam::ParseDescriptionUrl(url->url, &place), "the library understands the producer's places");
        Require(place.scheme == orv::cam::DescriptionUrl::Scheme::Local, "in the camera's memory");
        Require(place.address == url->address && place.bytes == url->size, "at the same address, of the same size");
    }
    if (!orv::cam::ParseDescriptionUrl(text, &place))
        return false;
    const bool isLocal = place.scheme == orv::cam::DescriptionUrl::Scheme::Local;
    Require(!isLocal || (place.bytes > 0 && place.bytes <= orv::cam::kMaxDescriptionBytes), "of a size that can be");
    return isLocal;
}

void CheckUnzip(orv::ByteSpan memory)
{
    const std::string archive(memory.data, memory.data + memory.size);
    std::string xml;
    std::string error;
    if (orv::cam::UnzipDescription(archive, kMostUnpacked, &xml, &error))
        Require(xml.size() <= kMostUnpacked, "no more is unpacked than allowed");
    else
        Require(!error.empty(), "a reason for what is not unpacked");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    orv::ByteReader in({data, size});
    const std::size_t count = in.U8() % (kMostPlaces + 1);
    std::vector<std::string> places;
    for (std::size_t i = 0; i < count; ++i) {
        const Bytes text = TakePiece(in);
        const std::string place(text.begin(), text.end());
        if (CheckPlace(place))
            places.push_back(place);
    }
    const std::uint64_t begin = in.U32();
    const Bytes memory(in.Rest().data, in.Rest().data + in.Rest().size);
    (void)nuvark::gige::FindSchemaVersion(SpanOf(memory));
    CheckUnzip(SpanOf(memory));
    MemoryPort port(begin, SpanOf(memory));
    std::string xml;
    std::string error;
    if (orv::cam::FetchDescription(places, port, &xml, &error))
        Require(xml.size() <= orv::cam::kMaxDescriptionBytes, "a description has a largest size");
    else
        Require(!error.empty(), "a reason for what is not fetched");
    return 0;
}
