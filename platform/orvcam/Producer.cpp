#include "orvcam/Producer.h"

#include "gentl/NuvarkCustom.h"
#include "orvcam/DescriptionSource.h"
#include "orvcam/GenTLInfo.h"
#include "orvcam/Log.h"
#include "orvcam/OrvStatus.h"

#include <algorithm>
#include <filesystem>

namespace orv::cam {

namespace {

constexpr std::uint64_t kInterfaceUpdateMs = 200;
constexpr std::uint64_t kSelectionWindowMs = 1000;
/// More than any producer has; a bound on what a broken one may claim.
constexpr std::uint32_t kMaxListed = 4096;

OrvCam::InterfaceType TypeOf(const std::string &transport)
{
    if (transport == TLTypeGEVName)
        return OrvCam::ORV_INTERFACE_GEV;
    return transport == TLTypeU3VName ? OrvCam::ORV_INTERFACE_U3V : OrvCam::ORV_INTERFACE_OTHER;
}

OrvCam::DeviceState StateOf(std::uint64_t status)
{
    switch (static_cast<DEVICE_ACCESS_STATUS>(status)) {
    case DEVICE_ACCESS_STATUS_READWRITE:
        return OrvCam::DeviceState::Free;
    case DEVICE_ACCESS_STATUS_READONLY:
        return OrvCam::DeviceState::ReadOnly;
    case DEVICE_ACCESS_STATUS_NOACCESS:
        return OrvCam::DeviceState::Unreachable;
    case DEVICE_ACCESS_STATUS_BUSY:
        return OrvCam::DeviceState::Busy;
    case DEVICE_ACCESS_STATUS_OPEN_READWRITE:
    case DEVICE_ACCESS_STATUS_OPEN_READONLY:
        return OrvCam::DeviceState::OpenHere;
    default:
        return OrvCam::DeviceState::Unknown;
    }
}

} // namespace

std::unique_ptr<Producer> Producer::Open(const std::string &path, std::string *error)
{
    std::unique_ptr<Producer> producer(new Producer);
    producer->m_library = gentl::Library::Load(path, error);
    if (!producer->m_library)
        return nullptr;
    producer->m_fileName = std::filesystem::path(path).filename().string();
    const gentl::Functions &calls = producer->Calls();
    const std::string opening = "Cannot open the GenTL producer " + path + ": ";
    GC_ERROR result = calls.GCInitLib();
    if (result != GC_ERR_SUCCESS) {
        *error = opening + GenTLErrorText(calls, "GCInitLib", result);
        return nullptr;
    }
    producer->m_initialised = true;
    result = calls.TLOpen(&producer->m_system);
    if (result != GC_ERR_SUCCESS || producer->m_system == nullptr) {
        producer->m_system = nullptr;
        *error = opening + GenTLErrorText(calls, "TLOpen", result);
        return nullptr;
    }
    const auto info = [&](TL_INFO_CMD command) {
        return TextOrNothing([&](INFO_DATATYPE *type, void *buffer, std::size_t *size) {
            return calls.TLGetInfo(producer->m_system, command, type, buffer, size);
        });
    };
    producer->m_isOurs = info(TL_INFO_VENDOR) == NUVARK_VENDOR && info(TL_INFO_MODEL) == NUVARK_MODEL;
    LogInfo("GenTL producer " + path + " is open: " + info(TL_INFO_DISPLAYNAME) + " " + info(TL_INFO_VERSION));
    return producer;
}

Producer::~Producer()
{
    m_interfaces.clear();
    if (m_system != nullptr)
        Calls().TLClose(m_system);
    if (m_initialised)
        Calls().GCCloseLib();
}

std::vector<std::string> Producer::ListInterfaces()
{
    const gentl::Functions &calls = Calls();
    std::vector<std::string> ids;
    const GC_ERROR result = calls.TLUpdateInterfaceList(m_system, nullptr, kInterfaceUpdateMs);
    if (result != GC_ERR_SUCCESS)
        LogWarning(m_fileName + ": " + GenTLErrorText(calls, "TLUpdateInterfaceList", result));
    std::uint32_t count = 0;
    if (calls.TLGetNumInterfaces(m_system, &count) != GC_ERR_SUCCESS)
        return ids;
    for (std::uint32_t i = 0; i < std::min(count, kMaxListed); ++i) {
        const std::string id = TextOrNothing([&](INFO_DATATYPE *, void *buffer, std::size_t *size) {
            return calls.TLGetInterfaceID(m_system, i, static_cast<char *>(buffer), size);
        });
        if (!id.empty())
            ids.push_back(id);
    }
    return ids;
}

std::vector<std::shared_ptr<Interface>> Producer::UpdateInterfaces()
{
    MutexLock lock(m_mutex);
    const std::vector<std::string> ids = ListInterfaces();
    // One that is gone closes, unless a device is still open on it: it could not be opened again if it came back.
    for (auto entry = m_interfaces.begin(); entry != m_interfaces.end();) {
        const bool listed = std::find(ids.begin(), ids.end(), entry->first) != ids.end();
        entry = listed || entry->second.use_count() > 1 ? std::next(entry) : m_interfaces.erase(entry);
    }
    std::vector<std::shared_ptr<Interface>> interfaces;
    for (const std::string &id : ids) {
        std::string error;
        if (std::shared_ptr<Interface> opened = OpenInterface(id, &error))
            interfaces.push_back(std::move(opened));
        else
            LogWarning(error);
    }
    return interfaces;
}

std::shared_ptr<Interface> Producer::FindInterface(const std::string &id, std::string *error)
{
    MutexLock lock(m_mutex);
    return OpenInterface(id, error);
}

std::shared_ptr<Interface> Producer::OpenInterface(const std::string &id, std::string *error)
{
    const auto open = m_interfaces.find(id);
    if (open != m_interfaces.end())
        return open->second;
    const gentl::Functions &calls = Calls();
    IF_HANDLE handle = nullptr;
    const GC_ERROR result = calls.TLOpenInterface(m_system, id.c_str(), &handle);
    if (result != GC_ERR_SUCCESS || handle == nullptr) {
        *error = m_fileName + ": the interface \"" + id + "\" cannot be opened. " +
                 GenTLErrorText(calls, "TLOpenInterface", result);
        return nullptr;
    }
    const auto info = [&](INTERFACE_INFO_CMD command) {
        return TextOrNothing([&](INFO_DATATYPE *type, void *buffer, std::size_t *size) {
            return calls.IFGetInfo(handle, command, type, buffer, size);
        });
    };
    OrvCam::InterfaceDescription description;
    description.type = TypeOf(info(INTERFACE_INFO_TLTYPE));
    description.id = id;
    description.text = info(INTERFACE_INFO_DISPLAYNAME);
    if (description.text.empty())
        description.text = id;
    description.producer = m_fileName;
    auto opened = std::make_shared<Interface>(*this, handle, std::move(description));
    m_interfaces[id] = opened;
    return opened;
}

Interface::Interface(const Producer &producer, IF_HANDLE handle, OrvCam::InterfaceDescription description)
    : m_producer(producer), m_handle(handle), m_description(std::move(description))
{
}

Interface::~Interface()
{
    Calls().IFClose(m_handle);
}

std::string Interface::UpdateDevices(std::uint64_t windowMs)
{
    const GC_ERROR result = Calls().IFUpdateDeviceList(m_handle, nullptr, windowMs);
    const std::string failure = result == GC_ERR_SUCCESS ? "" : GenTLErrorWords(Calls(), "IFUpdateDeviceList", result);
    // Some links never carry a search, a tunnel without a peer, say: that is told once, not at every search.
    if (!failure.empty() && failure != m_searchFailure)
        LogWarning(m_description.text + ": " + GenTLErrorText(Calls(), "IFUpdateDeviceList", result));
    m_searchFailure = failure;
    return failure;
}

std::vector<OrvCam::DeviceDescription> Interface::Discover(std::uint64_t windowMs, std::string *failure)
{
    MutexLock lock(m_mutex);
    const gentl::Functions &calls = Calls();
    std::vector<OrvCam::DeviceDescription> devices;
    *failure = UpdateDevices(windowMs);
    std::uint32_t count = 0;
    if (calls.IFGetNumDevices(m_handle, &count) != GC_ERR_SUCCESS)
        return devices;
    for (std::uint32_t i = 0; i < std::min(count, kMaxListed); ++i) {
        const std::string id = TextOrNothing([&](INFO_DATATYPE *, void *buffer, std::size_t *size) {
            return calls.IFGetDeviceID(m_handle, i, static_cast<char *>(buffer), size);
        });
        if (!id.empty())
            devices.push_back(Describe(id));
    }
    return devices;
}

std::string Interface::DeviceText(const std::string &deviceId, DEVICE_INFO_CMD command) const
{
    return TextOrNothing([&](INFO_DATATYPE *type, void *buffer, std::size_t *size) {
        return Calls().IFGetDeviceInfo(m_handle, deviceId.c_str(), command, type, buffer, size);
    });
}

OrvCam::DeviceDescription Interface::Describe(const std::string &deviceId) const
{
    OrvCam::DeviceDescription device;
    device.id = deviceId;
    device.vendor = DeviceText(deviceId, DEVICE_INFO_VENDOR);
    device.model = DeviceText(deviceId, DEVICE_INFO_MODEL);
    device.serial = DeviceText(deviceId, DEVICE_INFO_SERIAL_NUMBER);
    device.userName = DeviceText(deviceId, DEVICE_INFO_USER_DEFINED_NAME);
    device.version = DeviceText(deviceId, DEVICE_INFO_VERSION);
    if (m_producer.IsOurs()) {
        device.address = DeviceText(deviceId, NUVARK_DEVICE_INFO_IP_ADDRESS);
        device.subnetMask = DeviceText(deviceId, NUVARK_DEVICE_INFO_SUBNET_MASK);
        device.mac = DeviceText(deviceId, NUVARK_DEVICE_INFO_MAC_ADDRESS);
        device.holder = HolderOf(deviceId);
    }
    std::uint64_t status = DEVICE_ACCESS_STATUS_UNKNOWN;
    QueryNumber(
        [&](INFO_DATATYPE *type, void *buffer, std::size_t *size) {
            return Calls().IFGetDeviceInfo(m_handle, deviceId.c_str(), DEVICE_INFO_ACCESS_STATUS, type, buffer, size);
        },
        &status);
    device.state = StateOf(status);
    device.interface = m_description;
    return device;
}

GC_ERROR Interface::OpenDevice(const std::string &deviceId, DEVICE_ACCESS_FLAGS access, DEV_HANDLE *device) const
{
    *device = nullptr;
    const GC_ERROR result = Calls().IFOpenDevice(m_handle, deviceId.c_str(), access, device);
    return result == GC_ERR_SUCCESS && *device == nullptr ? GC_ERR_ERROR : result;
}

FeatureArrayImp *Interface::Features()
{
    static const LossFlag neverLost;
    MutexLock lock(m_featuresMutex);
    if (m_features || m_hasNoDescription)
        return m_features.get();
    // The module's handle is that of its port as well.
    m_port = std::make_unique<DevicePort>(Calls(), m_handle, neverLost);
    const std::vector<std::string> urls = m_port->DescriptionUrls();
    m_hasNoDescription = urls.empty(); // any other failure may pass
    std::string xml;
    std::string error;
    if (FetchDescription(urls, *m_port, &xml, &error))
        m_features = FeatureArrayImp::Create(xml, *m_port, &error);
    if (!m_features)
        LogInfo("The interface " + m_description.text + " has no usable features: " + error);
    return m_features.get();
}

int Interface::ForceAddress(const OrvCam::DeviceDescription &device, const ForcedAddress &address, std::string *error)
{
    FeatureArrayImp *features = Features();
    if (features == nullptr) {
        *error = ForceAddressFailure(device, ORV_CAM_ERR_NOT_IMPLEMENTED, {});
        return ORV_CAM_ERR_NOT_IMPLEMENTED;
    }
    MutexLock lock(m_mutex);
    int status = ForceAddressThrough(*features, device, address);
    if (status == ORV_CAM_ERR_NOT_FOUND) {
        UpdateDevices(kSelectionWindowMs); // it may have left the list since it was seen
        status = ForceAddressThrough(*features, device, address);
    }
    if (status != ORV_CAM_OK)
        *error = ForceAddressFailure(device, status, LastGenTLWords(Calls(), "GCWritePort", status));
    return status;
}

std::string Interface::HolderOf(const std::string &deviceId) const
{
    return m_producer.IsOurs() ? DeviceText(deviceId, NUVARK_DEVICE_INFO_HOLDER) : std::string();
}

} // namespace orv::cam
