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

/// A listed camera that could not be opened: it may have got another address since it was listed.
bool MayHaveMoved(const Status &opened, const DeviceRecord &record)
{
    if (record.mac == 0)
        return false; // it is its address that is its identifier
    const bool wasOutOfReach =
        opened.Code() == GC_ERR_ACCESS_DENIED && record.accessStatus == DEVICE_ACCESS_STATUS_NOACCESS;
    return opened.Code() == GC_ERR_IO || opened.Code() == GC_ERR_TIMEOUT || wasOutOfReach;
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

void InterfaceModule::Refresh(const DeviceRecord &record)
{
    const orv::MutexLock lock(m_mutex);
    for (DeviceRecord &listed : m_devices) {
        if (listed.id == record.id)
            listed = record;
    }
}

std::optional<DeviceRecord> InterfaceModule::Listed(const std::string &deviceId) const
{
    const orv::MutexLock lock(m_mutex);
    for (const DeviceRecord &record : m_devices) {
        if (record.id == deviceId)
            return record;
    }
    return std::nullopt;
}

Result<bool> InterfaceModule::UpdateDevices(std::uint64_t timeoutMs)
{
    const orv::MutexLock update(m_updateMutex);
    Result<std::vector<DeviceRecord>> search = m_host->Discover(WindowFor(timeoutMs));
    std::vector<DeviceRecord> &found = search.value; // none when it failed: then none can be reached
    const auto same = [](const DeviceRecord &a, const DeviceRecord &b) {
        return a.id == b.id && a.address == b.address && a.mask == b.mask && a.userName == b.userName;
    };
    const orv::MutexLock lock(m_mutex);
    const bool changed = !std::equal(found.begin(), found.end(), m_devices.begin(), m_devices.end(), same);
    m_devices = std::move(found);
    if (!search.Ok())
        return search.status;
    return changed;
}

DeviceRecord InterfaceModule::WithStatus(DeviceRecord record) const
{
    const auto open = m_open.find(record.id);
    if (open != m_open.end() && open->second != nullptr)
        return open->second->WithOpening(std::move(record));
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
            known.push_back(device->Opened());
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
    if (name.empty())
        return Status(GC_ERR_INVALID_ID, "no camera is called \"\"");
    Result<DeviceRecord> found = FindDevice(name);
    const bool wasListed = found.Ok();
    if (found.status.Code() == GC_ERR_INVALID_ID)
        found = m_host->Find(name); // an identifier is good without the list, too
    if (!found.Ok())
        return found.status;
    Result<std::shared_ptr<DeviceModule>> opened = OpenFound(found.value, access);
    if (!wasListed || !MayHaveMoved(opened.status, found.value))
        return opened;
    const Result<DeviceRecord> moved = m_host->Find(found.value.id);
    if (!moved.Ok() || moved.value.address == found.value.address)
        return opened;
    Refresh(moved.value);
    return OpenFound(moved.value, access);
}

Result<std::shared_ptr<DeviceModule>> InterfaceModule::OpenFound(DeviceRecord record, CameraAccess access)
{
    const std::string id = record.id;
    {
        const orv::MutexLock lock(m_mutex);
        if (m_closed)
            return Status(GC_ERR_INVALID_HANDLE, "the interface has been closed");
        if (!m_open.emplace(id, nullptr).second)
            return Status(GC_ERR_RESOURCE_IN_USE, "the camera \"" + id + "\" is open in this process already");
        ++m_opening;
    }
    const Rollback done([this] { EndOpening(); });
    Rollback giveUpPlace([&] { Forget(id); });
    auto module = std::make_shared<DeviceModule>(shared_from_this(), std::move(record), access);
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

void InterfaceModule::EndOpening()
{
    const orv::MutexLock lock(m_mutex);
    --m_opening;
    m_openingDone.NotifyAll();
}

void InterfaceModule::Forget(const std::string &deviceId)
{
    const orv::MutexLock lock(m_mutex);
    m_open.erase(deviceId);
}

void InterfaceModule::Close()
{
    const orv::MutexLock closing(m_closeMutex);
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
    {
        const orv::MutexLock lock(m_mutex);
        while (m_opening > 0)
            m_openingDone.Wait(m_mutex);
    }
    m_parent->Forget(Record().id);
}

} // namespace nuvark
