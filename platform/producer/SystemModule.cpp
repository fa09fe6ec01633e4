#include "producer/gige/GigeInterface.h"
#include "producer/ModuleFeatures.h"
#include "producer/Modules.h"

#include "gentl/NuvarkCustom.h"

#include <algorithm>
#include <filesystem>

#include <dlfcn.h>

namespace nuvark {

namespace {

constexpr std::uint32_t kVersionMajor = 1;
constexpr std::uint32_t kVersionMinor = 6;
constexpr const char *kDisplayName = "Nuvark GenTL producer (GigE Vision)";

/// Where this code was loaded from.
std::string OwnPath()
{
    Dl_info info{};
    if (dladdr(reinterpret_cast<const void *>(&OwnPath), &info) == 0 || info.dli_fname == nullptr)
        return "Nuvark.cti";
    // A consumer may have loaded it by a path that is good in its present directory only.
    std::error_code failed;
    const std::filesystem::path path = std::filesystem::absolute(info.dli_fname, failed);
    return failed ? info.dli_fname : path.lexically_normal().string();
}

std::string OwnFileName()
{
    const std::string path = OwnPath();
    return path.substr(path.rfind('/') + 1);
}

std::vector<std::shared_ptr<HostInterface>> ListHostInterfaces()
{
    return gige::ListGigeInterfaces();
}

std::vector<std::string> IdsOf(const std::vector<std::shared_ptr<HostInterface>> &interfaces)
{
    std::vector<std::string> ids;
    for (const auto &interface : interfaces)
        ids.push_back(interface->Record().id);
    return ids;
}

} // namespace

Result<InfoValue> ProducerInfo(TL_INFO_CMD command)
{
    switch (command) {
    case TL_INFO_ID:
        return InfoValue::String(OwnPath() + " " NUVARK_VERSION);
    case TL_INFO_VENDOR:
        return InfoValue::String(NUVARK_VENDOR);
    case TL_INFO_MODEL:
        return InfoValue::String(NUVARK_MODEL);
    case TL_INFO_VERSION:
        return InfoValue::String(NUVARK_VERSION);
    case TL_INFO_TLTYPE:
        return InfoValue::String(TLTypeGEVName);
    case TL_INFO_NAME:
        return InfoValue::String(OwnFileName());
    case TL_INFO_PATHNAME:
        return InfoValue::String(OwnPath());
    case TL_INFO_DISPLAYNAME:
        return InfoValue::String(kDisplayName);
    case TL_INFO_CHAR_ENCODING:
        return InfoValue::Int32(TL_CHAR_ENCODING_UTF8);
    case TL_INFO_GENTL_VER_MAJOR:
        return InfoValue::UInt32(kVersionMajor);
    case TL_INFO_GENTL_VER_MINOR:
        return InfoValue::UInt32(kVersionMinor);
    default:
        return UnknownCommand("producer", command);
    }
}

Result<InfoValue> InterfaceInfo(const InterfaceRecord &record, INTERFACE_INFO_CMD command)
{
    switch (command) {
    case INTERFACE_INFO_ID:
        return InfoValue::String(record.id);
    case INTERFACE_INFO_DISPLAYNAME:
        return InfoValue::String(record.displayName);
    case INTERFACE_INFO_TLTYPE:
        return InfoValue::String(record.tlType);
    default:
        return UnknownCommand("interface", command);
    }
}

SystemModule::SystemModule() : Module(Kind::System), m_registers("system", "TLPort", Features()) {}

PortFacts SystemModule::Facts()
{
    PortFacts facts;
    facts.id = OwnPath() + " " NUVARK_VERSION;
    facts.vendor = NUVARK_VENDOR;
    facts.model = NUVARK_MODEL;
    facts.tlType = TLTypeGEVName;
    facts.module = "TLSystem";
    facts.portName = "TLPort";
    facts.version = NUVARK_VERSION;
    return facts;
}

void SystemModule::Select(std::int64_t index)
{
    const orv::MutexLock lock(m_mutex);
    m_selection.Select(IdsOf(m_interfaces), static_cast<std::size_t>(index));
}

std::int64_t SystemModule::SelectedIndex() const
{
    const orv::MutexLock lock(m_mutex);
    return static_cast<std::int64_t>(m_selection.Index(IdsOf(m_interfaces)));
}

InterfaceRecord SystemModule::Selected() const
{
    const orv::MutexLock lock(m_mutex);
    const std::size_t selected = m_selection.Find(IdsOf(m_interfaces));
    return selected < m_interfaces.size() ? m_interfaces[selected]->Record() : InterfaceRecord();
}

std::vector<ModuleFeature> SystemModule::Features()
{
    const std::string about = "SystemInformation";
    const std::string list = "InterfaceEnumeration";
    const std::string by = "InterfaceSelector";
    const auto last = [this] { return std::max<std::int64_t>(1, std::int64_t(Interfaces().size())) - 1; };
    const auto update = [this] {
        UpdateInterfaces();
        return Status();
    };
    const auto select = [this](std::int64_t index) {
        Select(index);
        return Status();
    };
    return {
        TextFeature("TLID", about, "Identifier of the producer", [] { return OwnPath() + " " NUVARK_VERSION; }),
        TextFeature("TLVendorName", about, "Maker of the producer", [] { return NUVARK_VENDOR; }),
        TextFeature("TLModelName", about, "Name of the producer", [] { return NUVARK_MODEL; }),
        TextFeature("TLVersion", about, "Version of the producer", [] { return NUVARK_VERSION; }),
        TextFeature("TLFileName", about, "File name of the producer", OwnFileName),
        TextFeature("TLPath", about, "File of the producer", OwnPath),
        TextFeature("TLDisplayName", about, "Name of the producer for people", [] { return kDisplayName; }),
        TransportTypeFeature("TLType", about),
        NumberFeature("GenTLVersionMajor", about, "GenTL version", [] { return kVersionMajor; }),
        NumberFeature("GenTLVersionMinor", about, "GenTL version", [] { return kVersionMinor; }),
        NumberFeature("GenTLSFNCVersionMajor", about, "Version of the feature names", [] { return 1; }),
        NumberFeature("GenTLSFNCVersionMinor", about, "Version of the feature names", [] { return 2; }),
        CommandFeature("InterfaceUpdateList", list, "Looks for interfaces anew", update),
        SettingFeature(
            by, list, "Interface that the following features tell about", [this] { return SelectedIndex(); }, select,
            last),
        TextFeature(
            "InterfaceID", list, "Identifier of the interface", [this] { return Selected().id; }, by),
        TextFeature(
            "InterfaceDisplayName", list, "Name of the interface for people", [this] { return Selected().displayName; },
            by),
        NumberFeature(
            "GevInterfaceMACAddress", list, "MAC address of the interface", [this] { return Selected().mac; }, by,
            "MACAddress"),
        NumberFeature(
            "GevInterfaceDefaultIPAddress", list, "First IP address of the interface",
            [this] { return Selected().address; }, by, "IPV4Address"),
        NumberFeature(
            "GevInterfaceDefaultSubnetMask", list, "Subnet mask of that address", [this] { return Selected().mask; },
            by, "IPV4Address"),
        NumberFeature(
            "GevInterfaceDefaultGateway", list, "Gateway of the default route through the interface",
            [this] { return Selected().gateway; }, by, "IPV4Address"),
    };
}

bool SystemModule::UpdateInterfaces()
{
    std::vector<std::shared_ptr<HostInterface>> found = ListHostInterfaces();
    const orv::MutexLock lock(m_mutex);
    const bool changed = IdsOf(found) != IdsOf(m_interfaces);
    m_interfaces = std::move(found);
    return changed;
}

std::vector<InterfaceRecord> SystemModule::Interfaces() const
{
    const orv::MutexLock lock(m_mutex);
    std::vector<InterfaceRecord> records;
    for (const auto &interface : m_interfaces)
        records.push_back(interface->Record());
    return records;
}

std::shared_ptr<HostInterface> SystemModule::Lookup(const std::string &id)
{
    const auto isIt = [&](const std::shared_ptr<HostInterface> &interface) { return interface->Record().id == id; };
    {
        const orv::MutexLock lock(m_mutex);
        const auto found = std::find_if(m_interfaces.begin(), m_interfaces.end(), isIt);
        if (found != m_interfaces.end())
            return *found;
    }
    // An identifier is good without the list, too.
    const auto all = ListHostInterfaces();
    const auto found = std::find_if(all.begin(), all.end(), isIt);
    return found != all.end() ? *found : nullptr;
}

Result<InterfaceRecord> SystemModule::FindInterface(const std::string &id)
{
    const std::shared_ptr<HostInterface> host = Lookup(id);
    if (host == nullptr)
        return Status(GC_ERR_INVALID_ID, "there is no interface \"" + id + "\"");
    return host->Record();
}

Result<std::shared_ptr<InterfaceModule>> SystemModule::OpenInterface(const std::string &id)
{
    const std::shared_ptr<HostInterface> host = Lookup(id);
    if (host == nullptr)
        return Status(GC_ERR_INVALID_ID, "there is no interface \"" + id + "\"");
    auto module = std::make_shared<InterfaceModule>(shared_from_this(), host);
    const orv::MutexLock lock(m_mutex);
    if (m_closed)
        return Status(GC_ERR_INVALID_HANDLE, "the system has been closed");
    if (!m_open.emplace(id, module).second)
        return Status(GC_ERR_RESOURCE_IN_USE, "the interface \"" + id + "\" is open in this process already");
    HandleTable::Instance().Add(module);
    return module;
}

void SystemModule::Forget(const std::string &interfaceId)
{
    const orv::MutexLock lock(m_mutex);
    m_open.erase(interfaceId);
}

void SystemModule::Close()
{
    std::map<std::string, std::shared_ptr<InterfaceModule>> open;
    {
        const orv::MutexLock lock(m_mutex);
        m_closed = true;
        open.swap(m_open);
    }
    EndHandle();
    for (auto &[id, module] : open)
        module->Close();
}

} // namespace nuvark
