#include "producer/RegisterMap.h"

#include "gentl/NuvarkCustom.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace nuvark {

namespace {

constexpr std::uint64_t kFirstSlot = 0x1000;
constexpr std::uint64_t kSlotSize = 0x400;
constexpr std::size_t kTextSize = 0x400;
constexpr std::size_t kNumberSize = 8;

using Type = ModuleFeature::Type;

std::uint64_t SlotAddress(std::size_t index)
{
    return kFirstSlot + index * kSlotSize;
}

std::string HexText(std::uint64_t value)
{
    char text[24];
    std::snprintf(text, sizeof text, "0x%llx", static_cast<unsigned long long>(value));
    return text;
}

std::string Tag(const char *name, const std::string &value)
{
    return "<" + std::string(name) + ">" + value + "</" + name + ">";
}

std::string Escape(const std::string &text)
{
    std::string escaped;
    for (char c : text) {
        if (c == '&')
            escaped += "&amp;";
        else if (c == '<')
            escaped += "&lt;";
        else
            escaped += c;
    }
    return escaped;
}

/// Writes the description of one module. The order of child elements is the schema's: strict readers insist on it.
class DescriptionWriter {
public:
    DescriptionWriter(const std::string &module, std::string portName, const std::vector<ModuleFeature> &features)
        : m_module(module), m_portName(std::move(portName)), m_features(features)
    {
    }

    std::string Write()
    {
        Head();
        Categories();
        for (std::size_t i = 0; i < m_features.size(); ++i)
            Feature(m_features[i], SlotAddress(i));
        m_out += "<Port Name=\"" + m_portName + "\" NameSpace=\"Standard\"/>\n</RegisterDescription>\n";
        return std::move(m_out);
    }

private:
    void Head()
    {
        // The identifiers only have to differ between modules and stay the same for one version.
        unsigned number = 0;
        for (char c : m_module)
            number = number * 31 + static_cast<unsigned char>(c);
        char guid[40];
        std::snprintf(guid, sizeof guid, "6E757661-726B-4000-8000-%012X", number);
        m_out =
            "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n"
            "<RegisterDescription ModelName=\"" NUVARK_MODEL "\" VendorName=\"" NUVARK_VENDOR "\" ToolTip=\"" +
            m_module +
            " module\" StandardNameSpace=\"None\" SchemaMajorVersion=\"1\" SchemaMinorVersion=\"1\" "
            "SchemaSubMinorVersion=\"0\" MajorVersion=\"1\" MinorVersion=\"0\" SubMinorVersion=\"0\" ProductGuid=\"" +
            guid + "\" VersionGuid=\"" + guid +
            "\" xmlns=\"http://www.genicam.org/GenApi/Version_1_1\" "
            "xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\" "
            "xsi:schemaLocation=\"http://www.genicam.org/GenApi/Version_1_1 "
            "http://www.genicam.org/GenApi/GenApiSchema_Version_1_1.xsd\">\n";
    }

    void Categories()
    {
        std::vector<std::string> categories;
        for (const ModuleFeature &feature : m_features) {
            if (std::find(categories.begin(), categories.end(), feature.category) == categories.end())
                categories.push_back(feature.category);
        }
        Category("Root", categories);
        for (const std::string &category : categories) {
            std::vector<std::string> names;
            for (const ModuleFeature &feature : m_features) {
                if (feature.category == category)
                    names.push_back(feature.name);
            }
            Category(category, names);
        }
    }

    void Category(const std::string &name, const std::vector<std::string> &features)
    {
        m_out += "<Category Name=\"" + name + "\" NameSpace=\"Standard\">";
        for (const std::string &feature : features)
            m_out += Tag("pFeature", feature);
        m_out += "</Category>\n";
    }

    void Open(const char *node, const std::string &name, const ModuleFeature &feature)
    {
        m_out += "<" + std::string(node) + " Name=\"" + name + "\" NameSpace=\"Standard\">";
        m_out += Tag("ToolTip", Escape(feature.toolTip)) + Tag("Visibility", "Expert");
        if (feature.locked != nullptr)
            m_out += Tag("pIsLocked", feature.name + "LockReg");
    }

    void Feature(const ModuleFeature &feature, std::uint64_t address)
    {
        switch (feature.type) {
        case Type::String:
            Open("StringReg", feature.name, feature);
            Register(feature, address, kTextSize);
            m_out += "</StringReg>\n";
            return;
        case Type::Integer:
            Open("Integer", feature.name, feature);
            m_out += Tag("pValue", feature.name + "Reg");
            if (feature.maximum != nullptr)
                m_out += Tag("Min", "0") + Tag("pMax", feature.name + "MaxReg");
            if (!feature.representation.empty())
                m_out += Tag("Representation", feature.representation);
            Selected(feature.name);
            m_out += "</Integer>\n";
            break;
        case Type::Boolean:
            Open("Boolean", feature.name, feature);
            m_out += Tag("pValue", feature.name + "Reg") + Tag("OnValue", "1") + Tag("OffValue", "0") + "</Boolean>\n";
            break;
        case Type::Enumeration:
            Open("Enumeration", feature.name, feature);
            for (const auto &[entry, value] : feature.entries) {
                m_out += "<EnumEntry Name=\"" + entry + "\" NameSpace=\"Standard\">" +
                         Tag("Value", std::to_string(value)) + "</EnumEntry>";
            }
            m_out += Tag("pValue", feature.name + "Reg") + "</Enumeration>\n";
            break;
        case Type::Command:
            Open("Command", feature.name, feature);
            m_out += Tag("pValue", feature.name + "Reg") + Tag("CommandValue", "1") + "</Command>\n";
            break;
        }
        NumberRegister(feature, feature.name + "Reg", address, feature.write != nullptr);
        if (feature.maximum != nullptr)
            NumberRegister(feature, feature.name + "MaxReg", address + kNumberSize, false);
        if (feature.locked != nullptr)
            NumberRegister(feature, feature.name + "LockReg", address + 2 * kNumberSize, false);
    }

    void NumberRegister(const ModuleFeature &feature, const std::string &name, std::uint64_t address, bool writable)
    {
        m_out += "<IntReg Name=\"" + name + "\" NameSpace=\"Custom\">";
        Register(feature, address, kNumberSize, writable);
        m_out += Tag("Sign", "Unsigned") + Tag("Endianess", "LittleEndian") + "</IntReg>\n";
    }

    void Register(const ModuleFeature &feature, std::uint64_t address, std::size_t length, bool writable = false)
    {
        m_out += Tag("Address", HexText(address)) + Tag("Length", std::to_string(length)) +
                 Tag("AccessMode", writable ? "RW" : "RO") + Tag("pPort", m_portName) + Tag("Cachable", "NoCache");
        if (!feature.selector.empty())
            m_out += Tag("pInvalidator", feature.selector);
    }

    void Selected(const std::string &selector)
    {
        for (const ModuleFeature &feature : m_features) {
            if (feature.selector == selector)
                m_out += Tag("pSelected", feature.name);
        }
    }

    const std::string &m_module;
    const std::string m_portName;
    const std::vector<ModuleFeature> &m_features;
    std::string m_out;
};

/// One of the numbers in a feature's slot: value, maximum, lock.
std::int64_t NumberAt(const ModuleFeature &feature, std::size_t place)
{
    if (place == 0)
        return feature.number != nullptr ? feature.number() : 0;
    if (place == 1)
        return feature.maximum != nullptr ? feature.maximum() : 0;
    return feature.locked() ? 1 : 0;
}

/// A feature's slot as bytes. Only those from `begin` on, `size` of them, have to be right: behind a number may be a
/// question to the camera.
std::string SlotBytes(const ModuleFeature &feature, std::uint64_t begin, std::size_t size)
{
    if (feature.type == Type::String) {
        std::string text = feature.text().substr(0, kTextSize - 1);
        text.resize(kTextSize, '\0');
        return text;
    }
    std::int64_t numbers[3] = {};
    const std::size_t count = feature.locked != nullptr ? 3 : feature.maximum != nullptr ? 2 : 1;
    for (std::size_t i = 0; i < count; ++i) {
        if (begin < (i + 1) * kNumberSize && begin + size > i * kNumberSize)
            numbers[i] = NumberAt(feature, i);
    }
    return {reinterpret_cast<const char *>(numbers), count * kNumberSize};
}

Status NoRegister(std::uint64_t address, std::size_t size)
{
    return {GC_ERR_INVALID_ADDRESS,
            "the module has no register for " + std::to_string(size) + " bytes at " + HexText(address)};
}

/// Reads from bytes that begin at `begin`.
Status CopyOut(const std::string &bytes, std::uint64_t begin, std::uint64_t address, void *data, std::size_t size)
{
    if (address - begin > bytes.size() || size > bytes.size() - (address - begin))
        return NoRegister(address, size);
    std::memcpy(data, bytes.data() + (address - begin), size);
    return {};
}

} // namespace

RegisterMap::RegisterMap(const std::string &module, std::string portName, std::vector<ModuleFeature> features)
    : m_portName(std::move(portName)), m_fileName("Nuvark_" + module + "_1_0_0.xml"), m_features(std::move(features)),
      m_description(DescriptionWriter(module, m_portName, m_features).Write())
{
}

Status RegisterMap::Read(std::uint64_t address, void *data, std::size_t size) const
{
    if (address >= kDescriptionAddress)
        return CopyOut(m_description, kDescriptionAddress, address, data, size);
    const std::size_t index = address >= kFirstSlot ? (address - kFirstSlot) / kSlotSize : m_features.size();
    if (index >= m_features.size())
        return NoRegister(address, size);
    const std::uint64_t slot = SlotAddress(index);
    return CopyOut(SlotBytes(m_features[index], address - slot, size), slot, address, data, size);
}

Status RegisterMap::Write(std::uint64_t address, const void *data, std::size_t size) const
{
    const std::size_t index = address >= kFirstSlot ? (address - kFirstSlot) / kSlotSize : m_features.size();
    if (index >= m_features.size() || address != SlotAddress(index) || size > kNumberSize)
        return NoRegister(address, size);
    const ModuleFeature &feature = m_features[index];
    if (feature.write == nullptr)
        return {GC_ERR_ACCESS_DENIED, feature.name + " cannot be written"};
    if (size == 0)
        return {};
    // A shorter write leaves the other bytes as they are.
    std::int64_t value = feature.number != nullptr ? feature.number() : 0;
    std::memcpy(&value, data, size);
    if (feature.type == Type::Command)
        return value == 0 ? Status() : feature.write(value);
    if (feature.type == Type::Boolean && value != 0 && value != 1)
        return {GC_ERR_INVALID_VALUE, feature.name + " is 0 or 1"};
    if (feature.maximum != nullptr && (value < 0 || value > feature.maximum()))
        return {GC_ERR_INVALID_VALUE, feature.name + " cannot be " + std::to_string(value)};
    return feature.write(value);
}

} // namespace nuvark
