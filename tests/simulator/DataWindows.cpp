#include "tests/simulator/DataWindows.h"

#include "simulator/features/NumberText.h"
#include "tests/simulator/XmlTree.h"

#include <algorithm>

namespace orvsim {

namespace {

constexpr int kWindowBits = 40; ///< of each port's stretch
constexpr std::uint64_t kFirst = std::uint64_t{0x41} << 56;

void ReplaceAll(std::string &text, const std::string &piece, const std::string &replacement)
{
    for (std::size_t at = text.find(piece); at != std::string::npos; at = text.find(piece, at + replacement.size()))
        text.replace(at, piece.size(), replacement);
}

/// Takes the first element of that tag behind `at` out of the text.
void RemoveElement(std::string &text, const std::string &tag, std::size_t at)
{
    const std::string endTag = "</" + tag + ">";
    const std::size_t begin = text.find("<" + tag + ">", at);
    const std::size_t end = text.find(endTag, begin);
    if (begin != std::string::npos && end != std::string::npos)
        text.erase(begin, end + endTag.size() - begin);
}

} // namespace

std::string DataWindows::Open(std::string xml)
{
    XmlElement root;
    std::string error;
    if (!ParseXml(xml, root, error))
        return xml;
    for (const XmlElement &node : root.children) {
        if (node.tag != "Port" || (!node.Has("ChunkID") && !node.Has("EventID")))
            continue;
        const std::size_t place = xml.find("<Port Name=\"" + node.Name() + "\"");
        RemoveElement(xml, node.Has("ChunkID") ? "ChunkID" : "EventID", place);
        const std::uint64_t base = kFirst + (std::uint64_t{m_ports.size()} << kWindowBits);
        const std::string reference = "<pPort>" + node.Name() + "</pPort>";
        ReplaceAll(xml, reference, "<Address>" + TextOf(static_cast<std::int64_t>(base)) + "</Address>" + reference);
        m_ports.push_back(node.Name());
    }
    return xml;
}

Outcome DataWindows::Read(std::uint64_t address, std::uint32_t size, std::uint8_t *target) const
{
    const std::uint64_t place = address - kFirst;
    const std::size_t port = place >> kWindowBits;
    const std::uint64_t offset = place & ((std::uint64_t{1} << kWindowBits) - 1);
    if (port >= m_ports.size())
        return Outcome::NoSuchAddress;
    const auto bytes = m_bytes.find(m_ports[port]);
    if (bytes == m_bytes.end() || offset + size > bytes->second.size())
        return Outcome::NoSuchAddress;
    std::copy_n(bytes->second.begin() + static_cast<std::ptrdiff_t>(offset), size, target);
    return Outcome::Ok;
}

} // namespace orvsim
