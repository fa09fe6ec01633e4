#include "orvcam/SystemImp.h"

#include "gentl/Search.h"
#include "orvcam/DeviceImp.h"
#include "orvcam/FeatureFile.h"
#include "orvcam/GenTLInfo.h"
#include "orvcam/InterfaceListImp.h"
#include "orvcam/Log.h"
#include "orvcam/OrvStatus.h"

#include <filesystem>
#include <thread>

namespace orv::cam {

namespace {

constexpr char kOwnProducer[] = "Nuvark.cti";
constexpr std::uint64_t kDiscoveryWindowMs = 500;

struct LastFailure {
    int status = ORV_CAM_OK;
    std::string text;
};

LastFailure &ThisThreadsFailure()
{
    thread_local LastFailure failure;
    return failure;
}

int Fail(int status, const std::string &text)
{
    ThisThreadsFailure() = {status, text};
    LogWarning(text);
    return status;
}

/// "Nuvark Cam2 (SN 42)", as far as it is known.
std::string NameOf(const OrvCam::DeviceDescription &device)
{
    std::string name = device.vendor;
    if (!device.model.empty())
        name += (name.empty() ? "" : " ") + device.model;
    if (name.empty())
        name = device.id;
    if (!device.serial.empty())
        name += " (SN " + device.serial + ")";
    return name;
}

/// Why a device could not be opened, as a sentence for a person; `status` gets the matching code.
std::string OpenFailureText(const OrvCam::DeviceDescription &device, const Interface &interface, GC_ERROR error,
                            int *status)
{
    const std::string camera = "The camera " + NameOf(device);
    switch (error) {
    case GC_ERR_RESOURCE_IN_USE:
        *status = ORV_CAM_ERR_BUSY;
        return camera + " is already open in this program.";
    case GC_ERR_ACCESS_DENIED:
    case GC_ERR_BUSY: {
        *status = ORV_CAM_ERR_BUSY;
        const std::string holder = interface.HolderOf(device.id);
        return camera + " is in use by another program" + (holder.empty() ? "." : " (" + holder + ").");
    }
    case GC_ERR_INVALID_ID:
        *status = ORV_CAM_ERR_NOT_FOUND;
        return camera + " is not connected any more.";
    default:
        break;
    }
    *status = StatusFromGenTL(error);
    if (device.state == OrvCam::DeviceState::Unreachable)
        return camera + " cannot be reached: its address does not fit the interface " + device.interface.text + ".";
    return camera + " cannot be opened. " + GenTLErrorText(interface.Calls(), "IFOpenDevice", error);
}

bool AccessFlag(int access, DEVICE_ACCESS_FLAGS *flag)
{
    switch (access) {
    case OrvCam::ORV_ACCESS_READ_ONLY:
        *flag = DEVICE_ACCESS_READONLY;
        return true;
    case OrvCam::ORV_ACCESS_CONTROL:
        *flag = DEVICE_ACCESS_CONTROL;
        return true;
    case OrvCam::ORV_ACCESS_EXCLUSIVE:
        *flag = DEVICE_ACCESS_EXCLUSIVE;
        return true;
    default:
        return false;
    }
}

} // namespace

SystemImp &SystemImp::Instance()
{
    static SystemImp *system = new SystemImp;
    return *system;
}

int SystemImp::Load(const std::string &path, std::string *error)
{
    const std::string name = std::filesystem::path(path).filename().string();
    MutexLock lock(m_mutex);
    for (const auto &producer : m_producers) {
        if (producer->Path() == path)
            return ORV_CAM_OK;
        if (producer->FileName() == name) {
            // A second copy would fight the first for sockets and devices.
            LogInfo("GenTL producer " + path + " is skipped: " + producer->Path() + " is open already");
            return ORV_CAM_OK;
        }
    }
    auto producer = Producer::Open(path, error);
    if (!producer)
        return ORV_CAM_ERR_NO_PRODUCER;
    m_producers.push_back(std::move(producer));
    return ORV_CAM_OK;
}

int SystemImp::LoadProducer(const char *fileName)
{
    if (fileName == nullptr)
        return ORV_CAM_ERR_INVALID_PARAMETER;
    const std::string path = gentl::FindProducer(fileName);
    if (path.empty())
        return Fail(ORV_CAM_ERR_NO_PRODUCER, "The GenTL producer " + std::string(fileName) + " was not found.");
    std::string error;
    const int status = Load(path, &error);
    return status == ORV_CAM_OK ? status : Fail(status, error);
}

void SystemImp::LoadAll()
{
    std::vector<std::string> paths = gentl::FindProducers();
    const std::string own = gentl::FindProducer(kOwnProducer);
    if (!own.empty())
        paths.insert(paths.begin(), own);
    for (const std::string &path : paths) {
        std::string error;
        if (Load(path, &error) != ORV_CAM_OK)
            LogWarning(error);
    }
}

std::vector<Producer *> SystemImp::Producers()
{
    MutexLock lock(m_mutex);
    std::vector<Producer *> producers;
    for (const auto &producer : m_producers)
        producers.push_back(producer.get());
    return producers;
}

bool SystemImp::HasProducers()
{
    return !Producers().empty();
}

/// Producers list their interfaces at the same time, and then all interfaces search at the same time: each of the two
/// takes as long as the slowest.
std::vector<InterfaceDevices> SystemImp::Discover(unsigned int mask)
{
    const std::vector<Producer *> producers = Producers();
    std::vector<std::vector<std::shared_ptr<Interface>>> perProducer(producers.size());
    std::vector<std::thread> threads;
    for (std::size_t i = 0; i < producers.size(); ++i)
        threads.emplace_back([&, i] { perProducer[i] = producers[i]->UpdateInterfaces(); });
    for (std::thread &thread : threads)
        thread.join();
    threads.clear();

    std::vector<std::shared_ptr<Interface>> interfaces;
    for (const auto &list : perProducer) {
        for (const std::shared_ptr<Interface> &interface : list) {
            if ((mask >> interface->Description().type & 1u) != 0)
                interfaces.push_back(interface);
        }
    }
    std::vector<InterfaceDevices> found(interfaces.size());
    for (std::size_t i = 0; i < interfaces.size(); ++i) {
        found[i].interface = interfaces[i]->Description();
        found[i].isOurs = interfaces[i]->Owner().IsOurs();
        threads.emplace_back([&, i] { found[i].devices = interfaces[i]->Discover(kDiscoveryWindowMs); });
    }
    for (std::thread &thread : threads)
        thread.join();
    RemoveDoubles(&found);
    return found;
}

OrvCam::InterfaceList *SystemImp::GetInterfaceList(unsigned int mask)
{
    if (!HasProducers())
        return nullptr;
    return new InterfaceListImp(Discover(mask));
}

std::shared_ptr<Interface> SystemImp::InterfaceOf(const OrvCam::DeviceDescription &device)
{
    Producer *owner = nullptr;
    for (Producer *producer : Producers()) {
        if (producer->FileName() == device.interface.producer)
            owner = producer;
    }
    if (owner == nullptr) {
        Fail(ORV_CAM_ERR_NO_PRODUCER, "The GenTL producer " + device.interface.producer + " is not open.");
        return nullptr;
    }
    std::string error;
    std::shared_ptr<Interface> interface = owner->FindInterface(device.interface.id, &error);
    if (!interface)
        Fail(ORV_CAM_ERR_NOT_FOUND, error);
    return interface;
}

int SystemImp::ForceAddress(const OrvCam::DeviceDescription &device, const std::string &address,
                            const std::string &subnetMask, const std::string &gateway)
{
    ForcedAddress forced;
    std::string error;
    if (!ParseForcedAddress(address, subnetMask, gateway, &forced, &error))
        return Fail(ORV_CAM_ERR_INVALID_PARAMETER, error);
    const std::shared_ptr<Interface> interface = InterfaceOf(device);
    if (!interface)
        return ThisThreadsFailure().status;
    const int status = interface->ForceAddress(device, forced, &error);
    if (status == ORV_CAM_OK)
        LogInfo("The camera " + NameOf(device) + " was given the address " + address + ", mask " + subnetMask);
    return status == ORV_CAM_OK ? status : Fail(status, error);
}

int SystemImp::LastError(std::string *text)
{
    const LastFailure &failure = ThisThreadsFailure();
    if (text != nullptr)
        *text = failure.text;
    return failure.status;
}

OrvCam::Device *SystemImp::CreateDevice(const OrvCam::DeviceDescription &description, int access)
{
    DEVICE_ACCESS_FLAGS flag = DEVICE_ACCESS_UNKNOWN;
    if (!AccessFlag(access, &flag)) {
        Fail(ORV_CAM_ERR_INVALID_PARAMETER, "There is no way " + std::to_string(access) + " of opening a camera.");
        return nullptr;
    }
    const std::shared_ptr<Interface> interface = InterfaceOf(description);
    if (!interface)
        return nullptr;
    DEV_HANDLE handle = nullptr;
    GC_ERROR result = interface->OpenDevice(description.id, flag, &handle);
    if (result == GC_ERR_NOT_IMPLEMENTED && flag == DEVICE_ACCESS_CONTROL)
        result = interface->OpenDevice(description.id, DEVICE_ACCESS_EXCLUSIVE, &handle);
    if (result != GC_ERR_SUCCESS) {
        int status = ORV_CAM_OK;
        const std::string text = OpenFailureText(description, *interface, result, &status);
        Fail(status, text);
        return nullptr;
    }
    return new DeviceImp(interface, handle, description);
}

OrvCam::Device *SystemImp::CreateDeviceFromConfiguration(const char *path, int)
{
    FeatureFile file;
    std::string error;
    if (path == nullptr || !file.Read(path, &error)) {
        Fail(ORV_CAM_ERR_FILE, path == nullptr ? "There is no file name." : error);
        return nullptr;
    }
    const OrvCam::DeviceDescription *match = nullptr;
    const std::vector<InterfaceDevices> found = Discover(~0u);
    for (const InterfaceDevices &list : found) {
        for (const OrvCam::DeviceDescription &device : list.devices) {
            if (match == nullptr && file.IsOf(device))
                match = &device;
        }
    }
    if (match == nullptr) {
        Fail(ORV_CAM_ERR_NOT_FOUND,
             "The camera " + file.CameraName() + " of the configuration " + path + " is not connected.");
        return nullptr;
    }
    OrvCam::Device *device = CreateDevice(*match, OrvCam::ORV_ACCESS_CONTROL);
    if (device == nullptr)
        return nullptr;
    if (device->LoadFeatures(path) != ORV_CAM_OK)
        LogWarning("Not all of the configuration " + std::string(path) + " could be applied.");
    return device;
}

} // namespace orv::cam

OrvCam::System *OrvCam_GetSystem()
{
    auto &system = orv::cam::SystemImp::Instance();
    if (!system.HasProducers())
        system.LoadAll();
    return system.HasProducers() ? &system : nullptr;
}

OrvCam::Device *OrvCam_CreateDevice(const OrvCam::DeviceDescription *description, int access, int)
{
    if (description == nullptr) {
        orv::cam::Fail(ORV_CAM_ERR_INVALID_PARAMETER, "No camera was selected.");
        return nullptr;
    }
    return orv::cam::SystemImp::Instance().CreateDevice(*description, access);
}
