#include "orvcam/SystemImp.h"

#include "gentl/Search.h"
#include "orvcam/DeviceImp.h"
#include "orvcam/FeatureFile.h"
#include "orvcam/GenTLInfo.h"
#include "orvcam/InterfaceListImp.h"
#include "orvcam/Log.h"
#include "orvcam/OrvStatus.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <thread>

namespace orv::cam {

namespace {

constexpr char kOwnProducer[] = "Nuvark.cti";
/// Cameras may be set to wait for a random time of up to a second before they answer, so as not to answer all at once;
/// one that is not known yet could be among them, so the search does not end sooner.
constexpr std::uint64_t kDiscoveryWindowMs = 1000;
/// What a producer may take to load and open. One that hangs is left to itself.
constexpr auto kLoadingTime = std::chrono::seconds(5);
/// File names of producers that are not to be loaded, separated by colons.
constexpr char kSkipVariable[] = "ORV_SKIP_PRODUCERS";

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

int Succeed()
{
    ThisThreadsFailure() = {};
    return ORV_CAM_OK;
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

/// Why a device could not be opened, as a sentence for a person; `status` gets the matching code. Right after the call
/// that failed.
std::string OpenFailureText(const OrvCam::DeviceDescription &device, const Interface &interface, GC_ERROR error,
                            int *status)
{
    using OrvCam::DeviceState;
    const std::string camera = "The camera " + NameOf(device);
    const std::string words = GenTLErrorText(interface.Calls(), "IFOpenDevice", error);
    *status = error == GC_ERR_RESOURCE_IN_USE ? static_cast<int>(ORV_CAM_ERR_BUSY) : StatusFromGenTL(error);
    if (error == GC_ERR_RESOURCE_IN_USE)
        return camera + " is already open in this program.";
    if (error == GC_ERR_INVALID_ID)
        return camera + " is not connected any more.";
    const OrvCam::DeviceDescription now = interface.Describe(device.id);
    const DeviceState state = now.state != DeviceState::Unknown ? now.state : device.state;
    if (state == DeviceState::Unreachable) {
        *status = ORV_CAM_ERR_UNREACHABLE;
        return camera + " cannot be reached: its address " + now.address + (now.address.empty() ? "" : " ") +
               "does not fit the interface " + device.interface.text +
               ". Give it one that fits (\"Set address\", or orvcam force-ip).";
    }
    // Our own producer means just that by this error; others may mean a right that is missing.
    const bool isHeld = !now.holder.empty() || state == DeviceState::Busy || state == DeviceState::ReadOnly ||
                        (error == GC_ERR_ACCESS_DENIED && interface.Owner().IsOurs());
    if (isHeld && (error == GC_ERR_ACCESS_DENIED || error == GC_ERR_BUSY)) {
        *status = ORV_CAM_ERR_BUSY;
        return camera + " is in use by another program" + (now.holder.empty() ? "." : " (" + now.holder + ").");
    }
    return camera + " cannot be opened. " + words;
}

/// How much sense it makes to try to open a device for control; less is better.
int RankOf(const OrvCam::DeviceDescription &device)
{
    using OrvCam::DeviceState;
    constexpr DeviceState kBestFirst[] = {DeviceState::Free,     DeviceState::Unknown, DeviceState::ReadOnly,
                                          DeviceState::OpenHere, DeviceState::Busy,    DeviceState::Unreachable};
    return static_cast<int>(std::find(std::begin(kBestFirst), std::end(kBestFirst), device.state) -
                            std::begin(kBestFirst));
}

/// Does all the work at the same time; in turn, where there are no more threads. What one throws is its own failure.
void ForEachAtOnce(std::size_t count, const std::function<void(std::size_t)> &work)
{
    const auto guarded = [&work](std::size_t i) {
        try {
            work(i);
        } catch (const std::exception &error) {
            LogWarning(std::string("A search for cameras failed: ") + error.what());
        }
    };
    std::vector<std::thread> threads;
    threads.reserve(count);
    for (std::size_t i = 0; i < count; ++i) {
        try {
            threads.emplace_back(guarded, i);
        } catch (const std::exception &) { // no thread, or no memory for one
            guarded(i);
        }
    }
    for (std::thread &thread : threads)
        thread.join();
}

bool IsToBeSkipped(const std::string &path)
{
    const char *list = std::getenv(kSkipVariable);
    std::istringstream names(list != nullptr ? list : "");
    const std::string file = std::filesystem::path(path).filename().string();
    for (std::string name; std::getline(names, name, ':');) {
        if (name == file)
            return true;
    }
    return false;
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

/// Loading runs other people's code, which may hang: it does so on a thread of its own, and without the lock. One that
/// hangs as early as in its library's initialisers takes along whoever loads a library afterwards: the loader has a
/// lock of its own.
int SystemImp::Load(const std::string &path, std::string *error)
{
    const std::string name = std::filesystem::path(path).filename().string();
    const auto end = std::chrono::steady_clock::now() + kLoadingTime;
    MutexLock lock(m_mutex);
    if (const Producer *open = FindProducer(name)) {
        if (open->Path() != path) // a second copy would fight the first for sockets and devices
            LogInfo("GenTL producer " + path + " is skipped: " + open->Path() + " is open already");
        return ORV_CAM_OK;
    }
    m_loadErrors.erase(name);
    if (m_loading.insert(name).second) {
        lock.Unlock();
        try {
            std::thread([this, path, name] { LoadNow(path, name); }).detach();
        } catch (const std::exception &) { // no thread, or no memory for one
            LoadNow(path, name);
        }
        lock.Lock();
    }
    while (m_loading.count(name) != 0) {
        if (m_loaded.WaitUntil(m_mutex, end) == std::cv_status::timeout && m_loading.count(name) != 0) {
            *error = "Loading the GenTL producer " + path + " does not come to an end; it is not waited for. " +
                     kSkipVariable + "=" + name + " leaves it out.";
            return ORV_CAM_ERR_TIMEOUT;
        }
    }
    if (FindProducer(name) != nullptr)
        return ORV_CAM_OK;
    *error = m_loadErrors[name];
    return ORV_CAM_ERR_NO_PRODUCER;
}

void SystemImp::LoadNow(const std::string &path, const std::string &name)
{
    std::string error;
    std::unique_ptr<Producer> producer;
    try {
        producer = Producer::Open(path, &error);
    } catch (const std::exception &failure) {
        error = "Cannot load the GenTL producer " + path + ": " + failure.what();
    }
    MutexLock lock(m_mutex);
    if (producer)
        m_producers.push_back(std::move(producer));
    else
        m_loadErrors[name] = error;
    m_loading.erase(name);
    m_loaded.NotifyAll();
}

const Producer *SystemImp::FindProducer(const std::string &name) const
{
    const auto producer = std::find_if(m_producers.begin(), m_producers.end(),
                                       [&name](const auto &one) { return one->FileName() == name; });
    return producer != m_producers.end() ? producer->get() : nullptr;
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
    return status == ORV_CAM_OK ? Succeed() : Fail(status, error);
}

/// Ours first: it can be used while the others take their time.
void SystemImp::LoadAll()
{
    std::vector<std::string> paths = gentl::FindProducers();
    paths.erase(std::remove_if(paths.begin(), paths.end(), IsToBeSkipped), paths.end());
    const auto load = [this](const std::string &path) {
        std::string error;
        if (Load(path, &error) != ORV_CAM_OK)
            LogWarning(error);
    };
    const std::string own = gentl::FindProducer(kOwnProducer);
    if (!own.empty() && !IsToBeSkipped(own))
        load(own);
    paths.erase(std::remove(paths.begin(), paths.end(), own), paths.end());
    ForEachAtOnce(paths.size(), [&](std::size_t i) { load(paths[i]); });
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
    ForEachAtOnce(producers.size(), [&](std::size_t i) { perProducer[i] = producers[i]->UpdateInterfaces(); });
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
    }
    ForEachAtOnce(interfaces.size(), [&](std::size_t i) {
        found[i].devices = interfaces[i]->Discover(kDiscoveryWindowMs, &found[i].interface.searchFailure);
    });
    RemoveDoubles(&found);
    return found;
}

OrvCam::InterfaceList *SystemImp::GetInterfaceList(unsigned int mask)
{
    if (!HasProducers()) {
        Fail(ORV_CAM_ERR_NO_PRODUCER, OrvCam_StatusText(ORV_CAM_ERR_NO_PRODUCER));
        return nullptr;
    }
    Succeed();
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
    if (status != ORV_CAM_OK)
        return Fail(status, error);
    LogInfo("The camera " + NameOf(device) + " was given the address " + address + ", mask " + subnetMask);
    return Succeed();
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
    std::string error;
    OrvCam::Device *device = nullptr;
    try {
        device = DeviceImp::Open(interface, DeviceHandle(interface->Calls(), handle), description, &error);
    } catch (const std::exception &failure) { // no memory, or no more threads
        Fail(ORV_CAM_ERR_OUT_OF_MEMORY,
             "The camera " + NameOf(description) + " cannot be opened: " + failure.what() + ".");
        return nullptr;
    }
    if (device == nullptr)
        Fail(ORV_CAM_ERR_DEVICE_LOST,
             "The connection to the camera " + NameOf(description) + " was lost while it was being opened.");
    else if (device->GetCameraParameters() == nullptr)
        ThisThreadsFailure() = {ORV_CAM_ERR_XML,
                                "The features of the camera " + NameOf(description) + " cannot be used: " + error};
    else
        Succeed();
    return device;
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
            if (file.IsOf(device) && (match == nullptr || RankOf(device) < RankOf(*match)))
                match = &device;
        }
    }
    if (match == nullptr) {
        Fail(ORV_CAM_ERR_NOT_FOUND,
             "The camera " + file.CameraName() + " of the configuration " + path + " is not connected.");
        return nullptr;
    }
    OrvCam::Device *device = CreateDevice(*match, OrvCam::ORV_ACCESS_CONTROL);
    if (device == nullptr || device->GetCameraParameters() == nullptr) {
        if (device != nullptr)
            device->Release(); // nothing can be applied; CreateDevice has told why
        return nullptr;
    }
    const int status = device->LoadFeatures(path);
    if (status == ORV_CAM_ERR_DEVICE_LOST) {
        device->Release();
        Fail(status, "The connection to the camera " + NameOf(*match) + " was lost while it was being configured.");
        return nullptr;
    }
    if (status != ORV_CAM_OK)
        Fail(status, "Not all of the configuration " + std::string(path) + " could be applied to the camera " +
                         NameOf(*match) + ".");
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
