#include "producer/ModuleFeatures.h"
#include "producer/Modules.h"
#include "producer/Rollback.h"

#include "gentl/NuvarkCustom.h"

#include <algorithm>
#include <cstdio>

namespace nuvark {

namespace {

using std::chrono::milliseconds;

constexpr milliseconds kShortestWindow{20};
constexpr milliseconds kLongestWindow{2000};
constexpr milliseconds kWindowWithoutLimit{1000};

milliseconds WindowFor(std::uint64_t timeoutMs)
{
    if (timeoutMs == GENTL_INFINITE)
        return kWindowWithoutLimit;
    return std::clamp(milliseconds(std::min<std::uint64_t>(timeoutMs, 1000000)), kShortestWindow, kLongestWindow);
}

bool IsIdentifiedBy(const DeviceRecord &record, const std::string &name)
{
    // Software cameras have no MAC, which is then the same for all.
    return record.id == name || record.addressText == name || (record.mac != 0 && record.macText == name);
}

/// By something that people or makers gave out, maybe twice.
bool IsCalled(const DeviceRecord &record, const std::string &name)
{
    return record.serial == name || (!name.empty() && record.userName == name);
}

} // namespace

Result<InfoValue> DeviceInfo(const DeviceRecord &record, DEVICE_INFO_CMD command)
{
    switch (command) {
    case DEVICE_INFO_ID:
        return InfoValue::String(record.id);
    case DEVICE_INFO_VENDOR:
        return InfoValue::String(record.vendor);
    case DEVICE_INFO_MODEL:
        return InfoValue::String(record.model);
    case DEVICE_INFO_TLTYPE:
        return InfoValue::String(TLTypeGEVName);
    case DEVICE_INFO_DISPLAYNAME:
        return InfoValue::String(record.displayName);
    case DEVICE_INFO_ACCESS_STATUS:
        return InfoValue::Int32(record.accessStatus);
    case DEVICE_INFO_USER_DEFINED_NAME:
        return InfoValue::String(record.userName);
    case DEVICE_INFO_SERIAL_NUMBER:
        return InfoValue::String(record.serial);
    case DEVICE_INFO_VERSION:
        return InfoValue::String(record.version);
    case DEVICE_INFO_TIMESTAMP_FREQUENCY:
        if (!record.tickFrequency)
            return Status(GC_ERR_NOT_AVAILABLE, "the camera did not tell its tick frequency");
        return InfoValue::UInt64(*record.tickFrequency);
    case NUVARK_DEVICE_INFO_IP_ADDRESS:
        return InfoValue::String(record.addressText);
    case NUVARK_DEVICE_INFO_MAC_ADDRESS:
        return InfoValue::String(record.macText);
    case NUVARK_DEVICE_INFO_SUBNET_MASK:
        return InfoValue::String(record.maskText);
    case NUVARK_DEVICE_INFO_HOLDER:
        return InfoValue::String(record.holder);
    default:
        return UnknownCommand("device", command);
    }
}

InterfaceModule::InterfaceModule(std::shared_ptr<SystemModule> parent, std::shared_ptr<HostInterface> host)
    : Module(Kind::Interface), m_parent(std::move(parent)), m_host(std::move(host)),
      m_registers("interface", "InterfacePort", Features())
{
}

PortFacts InterfaceModule::Facts()
{
    PortFacts facts;
    facts.id = Record().id;
    facts.vendor = NUVARK_VENDOR;
    facts.model = NUVARK_MODEL;
    facts.tlType = Record().tlType;
    facts.module = "TLInterface";
    facts.portName = "InterfacePort";
    facts.version = NUVARK_VERSION;
    return facts;
}

DeviceRecord InterfaceModule::Selected() const
{
    const orv::MutexLock lock(m_mutex);
    return m_selector < m_devices.size() ? WithStatus(m_devices[m_selector]) : DeviceRecord();
}

std::vector<ModuleFeature> InterfaceModule::Features()
{
    const std::string about = "InterfaceInformation";
    const std::string list = "DeviceEnumeration";
    const std::string by = "DeviceSelector";
    const auto last = [this] { return std::max<std::int64_t>(1, std::int64_t(Devices().size())) - 1; };
    const auto update = [this] {
        UpdateDevices(GENTL_INFINITE);
        return Status();
    };
    return {
        TextFeature("InterfaceID", about, "Identifier of the interface", [this] { return Record().id; }),
        TextFeature("InterfaceDisplayName", about, "Name of the interface for people",
                    [this] { return Record().displayName; }),
        TransportTypeFeature("InterfaceType", about),
        NumberFeature("InterfaceTLVersionMajor", about, "GigE Vision version", [] { return 2; }),
        NumberFeature("InterfaceTLVersionMinor", about, "GigE Vision version", [] { return 0; }),
        NumberFeature(
            "GevInterfaceMACAddress", about, "MAC address of the interface", [this] { return Record().mac; }, {},
            "MACAddress"),
        SelectorFeature("GevInterfaceSubnetSelector", about,
                        "Subnet of the interface; each has an interface of its own", m_subnetSelector,
                        [] { return 0; }),
        NumberFeature(
            "GevInterfaceSubnetIPAddress", about, "IP address of the interface", [this] { return Record().address; },
            "GevInterfaceSubnetSelector", "IPV4Address"),
        NumberFeature(
            "GevInterfaceSubnetMask", about, "Subnet mask of the interface", [this] { return Record().mask; },
            "GevInterfaceSubnetSelector", "IPV4Address"),
        SelectorFeature("GevInterfaceGatewaySelector", about, "Gateway of the interface", m_gatewaySelector,
                        [] { return 0; }),
        NumberFeature(
            "GevInterfaceGateway", about, "Gateway of the default route through the interface",
            [this] { return Record().gateway; }, "GevInterfaceGatewaySelector", "IPV4Address"),
        CommandFeature("DeviceUpdateList", list, "Looks for cameras anew", update),
        SelectorFeature(by, list, "Camera that the following features tell about", m_selector, last),
        TextFeature(
            "DeviceID", list, "Identifier of the camera", [this] { return Selected().id; }, by),
        TextFeature(
            "DeviceVendorName", list, "Maker of the camera", [this] { return Selected().vendor; }, by),
        TextFeature(
            "DeviceModelName", list, "Model of the camera", [this] { return Selected().model; }, by),
        TextFeature(
            "DeviceSerialNumber", list, "Serial number of the camera", [this] { return Selected().serial; }, by),
        TextFeature(
            "DeviceUserID", list, "Name the user gave the camera", [this] { return Selected().userName; }, by),
        AccessStatusFeature(
            list, [this] { return Selected().accessStatus; }, by),
        NumberFeature(
            "DeviceTLVersionMajor", list, "GigE Vision version of the camera", [] { return 2; }, by),
        NumberFeature(
            "DeviceTLVersionMinor", list, "GigE Vision version of the camera", [] { return 0; }, by),
        NumberFeature(
            "GevDeviceIPAddress", list, "IP address of the camera", [this] { return Selected().address; }, by,
            "IPV4Address"),
        NumberFeature(
            "GevDeviceSubnetMask", list, "Subnet mask of the camera", [this] { return Selected().mask; }, by,
            "IPV4Address"),
        NumberFeature(
            "GevDeviceGateway", list, "Gateway of the camera", [this] { return Selected().gateway; }, by,
            "IPV4Address"),
        NumberFeature(
            "GevDeviceMACAddress", list, "MAC address of the camera", [this] { return Selected().mac; }, by,
            "MACAddress"),
        AddressSetting("GevDeviceForceIPAddress", list, "IP address that GevDeviceForceIP gives the camera",
                       m_forcedAddress, by),
        AddressSetting("GevDeviceForceSubnetMask", list, "Subnet mask that GevDeviceForceIP gives the camera",
                       m_forcedMask, by),
        AddressSetting("GevDeviceForceGateway", list, "Gateway that GevDeviceForceIP gives the camera", m_forcedGateway,
                       by),
        CommandFeature(
            "GevDeviceForceIP", list, "Gives the camera that address until it is switched off",
            [this] { return ForceAddress(); }, by),
    };
}

Status InterfaceModule::ForceAddress()
{
    const DeviceRecord device = Selected();
    if (device.id.empty())
        return {GC_ERR_NOT_AVAILABLE, "there is no camera in the list to give an address"};
    if (device.accessStatus == DEVICE_ACCESS_STATUS_OPEN_READWRITE ||
        device.accessStatus == DEVICE_ACCESS_STATUS_OPEN_READONLY)
        return {GC_ERR_ACCESS_DENIED, "the camera is open here, and keeps its address until it is closed"};
    return m_host->ForceAddress(device, m_forcedAddress, m_forcedMask, m_forcedGateway);
}

bool InterfaceModule::UpdateDevices(std::uint64_t timeoutMs)
{
    const orv::MutexLock update(m_updateMutex);
    std::vector<DeviceRecord> found = m_host->Discover(WindowFor(timeoutMs));
    const auto sameId = [](const DeviceRecord &a, const DeviceRecord &b) { return a.id == b.id; };
    const orv::MutexLock lock(m_mutex);
    const bool changed = !std::equal(found.begin(), found.end(), m_devices.begin(), m_devices.end(), sameId);
    m_devices = std::move(found);
    return changed;
}

DeviceRecord InterfaceModule::WithStatus(DeviceRecord record) const
{
    const auto open = m_open.find(record.id);
    if (open != m_open.end() && open->second != nullptr)
        record.accessStatus = open->second->Record().accessStatus;
    return record;
}

std::vector<DeviceRecord> InterfaceModule::Devices() const
{
    const orv::MutexLock lock(m_mutex);
    std::vector<DeviceRecord> records;
    for (const DeviceRecord &record : m_devices)
        records.push_back(WithStatus(record));
    return records;
}

std::vector<DeviceRecord> InterfaceModule::KnownDevices() const
{
    const orv::MutexLock lock(m_mutex);
    std::vector<DeviceRecord> known;
    for (const DeviceRecord &record : m_devices)
        known.push_back(WithStatus(record));
    for (const auto &[id, device] : m_open) {
        const auto isIt = [&id = id](const DeviceRecord &record) { return record.id == id; };
        if (device != nullptr && std::none_of(known.begin(), known.end(), isIt))
            known.push_back(device->Record());
    }
    return known;
}

Result<DeviceRecord> InterfaceModule::FindDevice(const std::string &name)
{
    const std::vector<DeviceRecord> known = KnownDevices();
    for (const auto fits : {IsIdentifiedBy, IsCalled}) {
        const auto isIt = [&](const DeviceRecord &record) { return fits(record, name); };
        const auto found = std::find_if(known.begin(), known.end(), isIt);
        if (found == known.end())
            continue;
        if (std::any_of(found + 1, known.end(), isIt))
            return Status(GC_ERR_AMBIGUOUS, "several cameras are called \"" + name + "\"");
        return *found;
    }
    return Status(GC_ERR_INVALID_ID, "no camera \"" + name + "\" in the list of " + Record().displayName);
}

Result<std::shared_ptr<DeviceModule>> InterfaceModule::OpenDevice(const std::string &name, CameraAccess access)
{
    Result<DeviceRecord> found = FindDevice(name);
    if (found.status.Code() == GC_ERR_INVALID_ID)
        found = m_host->Find(name); // an identifier is good without the list, too
    if (!found.Ok())
        return found.status;
    const std::string id = found.value.id;
    {
        const orv::MutexLock lock(m_mutex);
        if (m_closed)
            return Status(GC_ERR_INVALID_HANDLE, "the interface has been closed");
        if (!m_open.emplace(id, nullptr).second)
            return Status(GC_ERR_RESOURCE_IN_USE, "the camera \"" + id + "\" is open in this process already");
    }
    Rollback giveUpPlace([&] { Forget(id); });
    auto module = std::make_shared<DeviceModule>(shared_from_this(), std::move(found.value), access);
    giveUpPlace.Dismiss(); // from here on the module does it itself
    Rollback close([&] { module->Close(); });
    const Status connected = module->Connect(*m_host);
    if (!connected.Ok())
        return connected;
    const orv::MutexLock lock(m_mutex); // given back before anything is undone
    if (m_closed)
        return Status(GC_ERR_INVALID_HANDLE, "the interface has been closed meanwhile");
    m_open[id] = module;
    HandleTable::Instance().Add(module);
    close.Dismiss();
    return module;
}

void InterfaceModule::Forget(const std::string &deviceId)
{
    const orv::MutexLock lock(m_mutex);
    m_open.erase(deviceId);
}

void InterfaceModule::Close()
{
    std::map<std::string, std::shared_ptr<DeviceModule>> open;
    {
        const orv::MutexLock lock(m_mutex);
        if (m_closed)
            return; // the name may belong to another opening of the same interface by now
        m_closed = true;
        open.swap(m_open);
    }
    EndHandle();
    for (auto &[id, device] : open) {
        if (device != nullptr)
            device->Close();
    }
    m_parent->Forget(Record().id);
}

} // namespace nuvark
