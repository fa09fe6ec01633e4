#include "producer/gige/GigeInterface.h"

#include "producer/gige/Bootstrap.h"
#include "producer/gige/ForceAddress.h"
#include "producer/gige/GigeDevice.h"
#include "producer/gige/Text.h"

#include <algorithm>

namespace nuvark::gige {

namespace {

using std::chrono::milliseconds;

/// Ends as soon as the camera has answered. Cameras may wait for a random time before they do, so as not to answer all
/// at once.
constexpr milliseconds kFindWindow{1000};

std::uint64_t MacNumber(const std::array<std::uint8_t, 6> &mac)
{
    std::uint64_t number = 0;
    for (std::uint8_t byte : mac)
        number = number << 8 | byte;
    return number;
}

std::array<std::uint8_t, 6> MacBytes(std::uint64_t mac)
{
    std::array<std::uint8_t, 6> bytes;
    for (std::size_t i = 0; i < bytes.size(); ++i)
        bytes[i] = static_cast<std::uint8_t>(mac >> (40 - 8 * i));
    return bytes;
}

/// Ones from the top on, then zeros.
bool IsSubnetMask(std::uint32_t mask)
{
    return mask != 0 && (~mask & (~mask + 1)) == 0;
}

/// Multicast groups and what is beyond them, "this network", and the inside of hosts are nobody's address.
bool CanBeADevices(std::uint32_t address, const NetworkInterface &interface)
{
    const std::uint32_t first = address >> 24;
    const bool isInside = first == 127;
    return first != 0 && first < 224 && (!isInside || interface.address >> 24 == first);
}

std::string DeviceId(const DiscoveryAnswer &answer)
{
    if (MacNumber(answer.mac) == 0)
        return "GEV:ip:" + AddressText(answer.address); // a software camera without a MAC
    std::string digits = MacText(answer.mac);
    digits.erase(std::remove(digits.begin(), digits.end(), ':'), digits.end());
    return "GEV:" + digits;
}

DEVICE_ACCESS_STATUS AccessStatus(const FoundDevice &device)
{
    if (!device.reachable)
        return DEVICE_ACCESS_STATUS_NOACCESS;
    if (!device.privilege)
        return DEVICE_ACCESS_STATUS_UNKNOWN;
    return (*device.privilege & kPrivilegeMask) != 0 ? DEVICE_ACCESS_STATUS_BUSY : DEVICE_ACCESS_STATUS_READWRITE;
}

std::string HolderText(const FoundDevice &device)
{
    if (device.privilege.value_or(0) == 0 || device.controllerAddress.value_or(0) == 0)
        return {};
    return AddressText(*device.controllerAddress) + ":" + std::to_string(device.controllerPort.value_or(0) & 0xFFFF);
}

/// An address that a camera is looked for at: given as such, or in an identifier without a MAC.
std::optional<std::uint32_t> AddressInName(const std::string &name)
{
    const std::string prefix = "GEV:ip:";
    return ParseAddress(name.compare(0, prefix.size(), prefix) == 0 ? name.substr(prefix.size()) : name);
}

Result<DeviceRecord> FindAt(const NetworkInterface &interface, std::uint32_t address)
{
    Result<std::optional<FoundDevice>> device{std::optional<FoundDevice>()};
    if (interface.Reaches(address))
        device = DiscoverAt(interface, address, kFindWindow);
    if (!device.Ok())
        return device.status;
    if (device.value)
        return MakeRecord(*device.value);
    return Status(GC_ERR_INVALID_ID, "no camera answers at " + AddressText(address));
}

bool IsIdentifiedBy(const DeviceRecord &record, const std::string &name)
{
    return record.id == name || (record.mac != 0 && record.macText == name);
}

} // namespace

DeviceRecord MakeRecord(const FoundDevice &device)
{
    const DiscoveryAnswer &answer = device.answer;
    DeviceRecord record;
    record.id = DeviceId(answer);
    record.vendor = answer.manufacturer;
    record.model = answer.model;
    record.version = answer.deviceVersion;
    record.manufacturerInfo = answer.manufacturerInfo;
    record.macText = MacText(answer.mac);
    record.serial = answer.serial.empty() ? record.macText : answer.serial;
    record.userName = answer.userName;
    record.displayName = answer.manufacturer + " " + answer.model + " (" + record.id + ")";
    record.accessStatus = AccessStatus(device);
    if (device.tickFrequency.value_or(0) != 0)
        record.tickFrequency = device.tickFrequency;
    record.addressText = AddressText(answer.address);
    record.maskText = AddressText(answer.subnetMask);
    record.holder = HolderText(device);
    record.versionMajor = answer.versionMajor;
    record.versionMinor = answer.versionMinor;
    record.mac = MacNumber(answer.mac);
    record.address = answer.address;
    record.mask = answer.subnetMask;
    record.gateway = answer.gateway;
    return record;
}

GigeInterface::GigeInterface(NetworkInterface interface) : m_interface(std::move(interface)) {}

NetworkInterface GigeInterface::Known() const
{
    const orv::MutexLock lock(m_mutex);
    return m_interface;
}

NetworkInterface GigeInterface::Present(const std::vector<NetworkInterface> &all)
{
    const orv::MutexLock lock(m_mutex);
    for (const NetworkInterface &one : all) {
        if (one.IsSame(m_interface)) {
            m_interface = one;
            break;
        }
    }
    return m_interface;
}

InterfaceRecord GigeInterface::Record() const
{
    const NetworkInterface interface = Known();
    InterfaceRecord record;
    record.id = "GEV:" + interface.name + ":" + AddressText(interface.address);
    record.displayName = interface.DisplayName();
    record.tlType = TLTypeGEVName;
    record.mac = MacNumber(interface.mac);
    record.address = interface.address;
    record.mask = interface.mask;
    record.gateway = interface.gateway;
    return record;
}

Result<std::vector<DeviceRecord>> GigeInterface::Discover(milliseconds window)
{
    const std::vector<NetworkInterface> all = ListNetworkInterfaces();
    const Result<std::vector<FoundDevice>> found = gige::Discover(Present(all), all, window);
    if (!found.Ok())
        return found.status;
    std::vector<DeviceRecord> records;
    for (const FoundDevice &device : found.value)
        records.push_back(MakeRecord(device));
    // By identifier, so that a camera keeps its place however fast it answers.
    std::sort(records.begin(), records.end(), [](const DeviceRecord &a, const DeviceRecord &b) { return a.id < b.id; });
    return records;
}

Result<DeviceRecord> GigeInterface::Find(const std::string &name)
{
    const std::vector<NetworkInterface> all = ListNetworkInterfaces();
    const NetworkInterface interface = Present(all);
    if (const auto address = AddressInName(name))
        return FindAt(interface, *address);
    const auto wanted = [&](const FoundDevice &device) { return IsIdentifiedBy(MakeRecord(device), name); };
    const Result<std::vector<FoundDevice>> found = gige::Discover(interface, all, kFindWindow, wanted);
    if (!found.Ok())
        return found.status;
    std::vector<DeviceRecord> matches;
    for (const FoundDevice &device : found.value) {
        DeviceRecord record = MakeRecord(device);
        if (IsIdentifiedBy(record, name))
            return record;
        if (record.serial == name || record.userName == name)
            matches.push_back(std::move(record));
    }
    if (matches.empty())
        return Status(GC_ERR_INVALID_ID, "no camera \"" + name + "\" on " + Record().displayName);
    if (matches.size() > 1)
        return Status(GC_ERR_AMBIGUOUS, "several cameras are called \"" + name + "\"");
    return matches.front();
}

Status GigeInterface::ForceAddress(const DeviceRecord &device, std::uint32_t address, std::uint32_t mask,
                                   std::uint32_t gateway)
{
    const NetworkInterface interface = Present();
    if (address != 0 && !IsSubnetMask(mask))
        return {GC_ERR_INVALID_VALUE, AddressText(mask) + " is no subnet mask"};
    if (address != 0 && ((address & ~mask) == 0 || (address | mask) == 0xFFFFFFFF) && mask < 0xFFFFFFFE)
        return {GC_ERR_INVALID_VALUE, AddressText(address) + " is the address of a whole subnet"};
    if (address != 0 && !CanBeADevices(address, interface))
        return {GC_ERR_INVALID_VALUE, AddressText(address) + " can be no device's address"};
    return gige::ForceAddress(interface, {MacBytes(device.mac), address, mask, gateway});
}

Result<std::unique_ptr<Camera>> GigeInterface::Open(const DeviceRecord &device, CameraAccess access,
                                                    CameraListener &listener)
{
    const NetworkInterface interface = Present();
    if (!interface.Reaches(device.address)) {
        return Status(GC_ERR_ACCESS_DENIED, "the camera's address " + device.addressText +
                                                " does not fit the network of " + Record().displayName);
    }
    return GigeDevice::Open(interface, device.address, access, listener);
}

std::vector<std::shared_ptr<HostInterface>> ListGigeInterfaces()
{
    std::vector<std::shared_ptr<HostInterface>> interfaces;
    for (const NetworkInterface &interface : ListNetworkInterfaces())
        interfaces.push_back(std::make_shared<GigeInterface>(interface));
    return interfaces;
}

} // namespace nuvark::gige
