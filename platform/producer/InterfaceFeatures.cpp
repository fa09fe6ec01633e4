#include "producer/ModuleFeatures.h"
#include "producer/Modules.h"

#include <algorithm>

/// What an interface shows of itself and of the cameras on it in its own register map.
namespace nuvark {

namespace {

constexpr char kBySelector[] = "DeviceSelector";

} // namespace

std::vector<std::string> InterfaceModule::ListedIds() const
{
    std::vector<std::string> ids;
    for (const DeviceRecord &device : m_devices)
        ids.push_back(device.id);
    return ids;
}

void InterfaceModule::Select(std::int64_t index)
{
    const orv::MutexLock lock(m_mutex);
    m_selection.Select(ListedIds(), static_cast<std::size_t>(index));
}

std::int64_t InterfaceModule::SelectedIndex() const
{
    const orv::MutexLock lock(m_mutex);
    return static_cast<std::int64_t>(m_selection.Index(ListedIds()));
}

DeviceRecord InterfaceModule::Selected() const
{
    const orv::MutexLock lock(m_mutex);
    const std::size_t selected = m_selection.Find(ListedIds());
    return selected < m_devices.size() ? WithStatus(m_devices[selected]) : DeviceRecord();
}

InterfaceModule::ForcedAddress InterfaceModule::Forced() const
{
    const std::string id = Selected().id;
    const orv::MutexLock lock(m_mutex);
    const auto found = m_forced.find(id);
    return found != m_forced.end() ? found->second : ForcedAddress();
}

void InterfaceModule::SetForced(std::uint32_t ForcedAddress::*field, std::int64_t value)
{
    const std::string id = Selected().id;
    const orv::MutexLock lock(m_mutex);
    m_forced[id].*field = static_cast<std::uint32_t>(value);
}

std::vector<ModuleFeature> InterfaceModule::Features()
{
    const std::string about = "InterfaceInformation";
    const std::string list = "DeviceEnumeration";
    const auto update = [this] { return UpdateDevices(GENTL_INFINITE).status; };
    std::vector<ModuleFeature> features = {
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
    };
    for (auto more : {&InterfaceModule::SelectedDeviceFeatures, &InterfaceModule::ForceAddressFeatures}) {
        for (ModuleFeature &feature : (this->*more)(list))
            features.push_back(std::move(feature));
    }
    return features;
}

std::vector<ModuleFeature> InterfaceModule::SelectedDeviceFeatures(const std::string &category)
{
    const auto last = [this] { return std::max<std::int64_t>(1, std::int64_t(Devices().size())) - 1; };
    const auto select = [this](std::int64_t index) {
        Select(index);
        return Status();
    };
    const auto text = [&](const char *name, const char *toolTip, std::string DeviceRecord::*field) {
        return TextFeature(
            name, category, toolTip, [this, field] { return Selected().*field; }, kBySelector);
    };
    const auto number = [&](const char *name, const char *toolTip, auto field, const char *representation = "") {
        return NumberFeature(
            name, category, toolTip, [this, field] { return std::int64_t(Selected().*field); }, kBySelector,
            representation);
    };
    return {
        SettingFeature(
            kBySelector, category, "Camera that the following features tell about", [this] { return SelectedIndex(); },
            select, last),
        text("DeviceID", "Identifier of the camera", &DeviceRecord::id),
        text("DeviceVendorName", "Maker of the camera", &DeviceRecord::vendor),
        text("DeviceModelName", "Model of the camera", &DeviceRecord::model),
        text("DeviceSerialNumber", "Serial number of the camera", &DeviceRecord::serial),
        text("DeviceUserID", "Name the user gave the camera", &DeviceRecord::userName),
        AccessStatusFeature(
            category, [this] { return Selected().accessStatus; }, kBySelector),
        number("DeviceTLVersionMajor", "GigE Vision version of the camera", &DeviceRecord::versionMajor),
        number("DeviceTLVersionMinor", "GigE Vision version of the camera", &DeviceRecord::versionMinor),
        number("GevDeviceIPAddress", "IP address of the camera", &DeviceRecord::address, "IPV4Address"),
        number("GevDeviceSubnetMask", "Subnet mask of the camera", &DeviceRecord::mask, "IPV4Address"),
        number("GevDeviceGateway", "Gateway of the camera", &DeviceRecord::gateway, "IPV4Address"),
        number("GevDeviceMACAddress", "MAC address of the camera", &DeviceRecord::mac, "MACAddress"),
    };
}

std::vector<ModuleFeature> InterfaceModule::ForceAddressFeatures(const std::string &category)
{
    const auto setting = [&](const char *name, const char *toolTip, std::uint32_t ForcedAddress::*field) {
        const auto write = [this, field](std::int64_t value) {
            SetForced(field, value);
            return Status();
        };
        ModuleFeature feature = SettingFeature(
            name, category, toolTip, [this, field] { return std::int64_t{Forced().*field}; }, write,
            [] { return std::int64_t{0xFFFFFFFF}; }, kBySelector);
        feature.representation = "IPV4Address";
        return feature;
    };
    return {
        setting("GevDeviceForceIPAddress", "IP address that GevDeviceForceIP gives the camera",
                &ForcedAddress::address),
        setting("GevDeviceForceSubnetMask", "Subnet mask that GevDeviceForceIP gives the camera", &ForcedAddress::mask),
        setting("GevDeviceForceGateway", "Gateway that GevDeviceForceIP gives the camera", &ForcedAddress::gateway),
        CommandFeature(
            "GevDeviceForceIP", category, "Gives the camera that address until it is switched off",
            [this] { return ForceAddress(); }, kBySelector),
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
    const ForcedAddress forced = Forced();
    const Status done = m_host->ForceAddress(device, forced.address, forced.mask, forced.gateway);
    if (!done.Ok())
        return done;
    // Under its new address, so that it can be opened without another look at all cameras.
    const Result<DeviceRecord> moved = m_host->Find(device.id);
    if (moved.Ok())
        Refresh(moved.value);
    return {};
}

} // namespace nuvark
