#include "simulator/features/Description.h"

#include "simulator/features/FeatureNodes.h"
#include "simulator/features/XmlWriter.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <set>
#include <utility>

namespace orvsim {

namespace {

/// Consumers make identifiers of the vendor's and model's names.
std::string IdentifierOf(std::string name)
{
    for (char &c : name) {
        if (std::isalnum(static_cast<unsigned char>(c)) == 0)
            c = '_';
    }
    return name;
}

/// FNV-1a, 64 bits.
std::uint64_t HashOf(const std::string &text, std::uint64_t hash)
{
    for (const unsigned char c : text)
        hash = (hash ^ c) * 0x100000001b3ULL;
    return hash;
}

/// The same for the same text, so that consumers recognise a description that they have kept.
std::string GuidOf(const std::string &text)
{
    const std::uint64_t high = HashOf(text, 0xcbf29ce484222325ULL);
    const std::uint64_t low = HashOf(text, high);
    char guid[40];
    std::snprintf(guid, sizeof guid, "%08X-%04X-%04X-%04X-%012llX", static_cast<unsigned>(high >> 32),
                  static_cast<unsigned>(high >> 16 & 0xffff), static_cast<unsigned>(high & 0xffff),
                  static_cast<unsigned>(low >> 48), static_cast<unsigned long long>(low & 0xffffffffffffULL));
    return guid;
}

void OpenRoot(XmlWriter &xml, const DescriptionHead &head, const std::string &content)
{
    const std::string product = head.vendor + "/" + head.model;
    xml.Open("RegisterDescription", {{"ModelName", IdentifierOf(head.model)},
                                     {"VendorName", IdentifierOf(head.vendor)},
                                     {"ToolTip", head.toolTip},
                                     {"StandardNameSpace", "GEV"},
                                     {"SchemaMajorVersion", "1"},
                                     {"SchemaMinorVersion", "1"},
                                     {"SchemaSubMinorVersion", "0"},
                                     {"MajorVersion", "1"},
                                     {"MinorVersion", "0"},
                                     {"SubMinorVersion", "0"},
                                     {"ProductGuid", GuidOf(product)},
                                     {"VersionGuid", GuidOf(product + content)},
                                     {"xmlns", "http://www.genicam.org/GenApi/Version_1_1"}});
}

std::vector<std::string> CategoriesOf(const FeatureTable &table)
{
    std::vector<std::string> names;
    for (const Feature &feature : table.Features()) {
        if (!feature.isHidden && std::find(names.begin(), names.end(), feature.category) == names.end())
            names.push_back(feature.category);
    }
    return names;
}

void WriteCategories(XmlWriter &xml, const FeatureTable &table)
{
    const std::vector<std::string> categories = CategoriesOf(table);
    xml.Open("Category", {{"Name", "Root"}, {"NameSpace", "Standard"}});
    xml.Leaves("pFeature", categories);
    xml.Close();
    for (const std::string &category : categories) {
        const bool isCustom = category.compare(0, 3, "Sim") == 0;
        xml.Open("Category", {{"Name", category}, {"NameSpace", isCustom ? "Custom" : "Standard"}});
        xml.Leaf("DisplayName", DisplayNameOf(category));
        for (const Feature &feature : table.Features()) {
            if (!feature.isHidden && feature.category == category)
                xml.Leaf("pFeature", feature.name);
        }
        xml.Close();
    }
}

void WriteDataPort(XmlWriter &xml, const std::string &name, const char *tag, std::uint32_t id)
{
    char hex[16];
    std::snprintf(hex, sizeof hex, "%X", static_cast<unsigned>(id));
    xml.Open("Port", {{"Name", name}, {"NameSpace", "Custom"}});
    xml.Leaf("Visibility", "Invisible");
    xml.Leaf(tag, hex);
    xml.Close();
}

void WritePorts(XmlWriter &xml, const FeatureTable &table)
{
    std::set<std::uint32_t> chunks;
    std::set<std::uint32_t> events;
    for (const Feature &feature : table.Features()) {
        if (const auto *chunk = std::get_if<ChunkField>(&feature.source))
            chunks.insert(chunk->chunkId);
        else if (const auto *event = std::get_if<EventField>(&feature.source))
            events.insert(event->eventId);
    }
    for (const std::uint32_t id : chunks)
        WriteDataPort(xml, ChunkPortName(id), "ChunkID", id);
    for (const std::uint32_t id : events)
        WriteDataPort(xml, EventPortName(id), "EventID", id);
    xml.Open("Port", {{"Name", "Device"}, {"NameSpace", "Standard"}});
    xml.Leaf("ToolTip", "The camera's registers.");
    xml.Leaf("Visibility", "Invisible");
    xml.Close();
}

void WriteContent(XmlWriter &xml, const FeatureTable &table)
{
    WriteCategories(xml, table);
    FeatureNodes nodes(table, xml);
    for (const Feature &feature : table.Features())
        nodes.Write(feature);
    WritePorts(xml, table);
}

} // namespace

std::string MakeDescription(const FeatureTable &table, const DescriptionHead &head)
{
    // The content goes into the root's version identifier, so it is written twice.
    XmlWriter content;
    WriteContent(content, table);
    XmlWriter xml;
    OpenRoot(xml, head, content.Take());
    WriteContent(xml, table);
    xml.Close();
    return xml.Take();
}

} // namespace orvsim
