#pragma once

#include "base/Mutex.h"
#include "gentl/Library.h"
#include "orvcam/DevicePort.h"
#include "orvcam/FeatureArrayImp.h"
#include "orvcam/ForceAddress.h"
#include "orvcam/OrvCam.h"

#include <map>
#include <memory>
#include <string>
#include <vector>

namespace orv::cam {

class Interface;

/// One GenTL producer, loaded and opened for this process.
///
/// Threads: any. The system module and its interfaces stay open, since a producer opens each of them only once and all
/// users share them. Once open it lives as long as the process.
class Producer {
public:
    /// \return null with a sentence in `*error`.
    static std::unique_ptr<Producer> Open(const std::string &path, std::string *error);
    ~Producer();
    Producer(const Producer &) = delete;
    Producer &operator=(const Producer &) = delete;

    const gentl::Functions &Calls() const { return m_library->Calls(); }
    const std::string &Path() const { return m_library->Path(); }
    const std::string &FileName() const { return m_fileName; }
    /// Whether it is our own, so that its custom infos and events mean what gentl/NuvarkCustom.h says.
    bool IsOurs() const { return m_isOurs; }
    TL_HANDLE Handle() const { return m_system; }

    /// Looks anew which interfaces the host has, and opens those that are new. What cannot be opened is logged.
    std::vector<std::shared_ptr<Interface>> UpdateInterfaces() EXCLUDES(m_mutex);
    /// Opens one interface, or gives the open one. \return null with a sentence in `*error`.
    std::shared_ptr<Interface> FindInterface(const std::string &id, std::string *error) EXCLUDES(m_mutex);

private:
    Producer() = default;
    std::vector<std::string> ListInterfaces() REQUIRES(m_mutex);
    std::shared_ptr<Interface> OpenInterface(const std::string &id, std::string *error) REQUIRES(m_mutex);

    std::unique_ptr<gentl::Library> m_library;
    std::string m_fileName;
    bool m_isOurs = false;
    bool m_initialised = false;
    TL_HANDLE m_system = nullptr;
    Mutex m_mutex; ///< one update or listing of interfaces at a time
    std::map<std::string, std::shared_ptr<Interface>> m_interfaces GUARDED_BY(m_mutex);
};

/// One opened interface of the host. Shared by its producer and the devices open on it; closes with the last of them.
/// Threads: any.
class Interface {
public:
    Interface(const Producer &producer, IF_HANDLE handle, OrvCam::InterfaceDescription description);
    ~Interface();
    Interface(const Interface &) = delete;
    Interface &operator=(const Interface &) = delete;

    const gentl::Functions &Calls() const { return m_producer.Calls(); }
    const Producer &Owner() const { return m_producer; }
    const OrvCam::InterfaceDescription &Description() const { return m_description; }

    /// Searches for devices for `windowMs` milliseconds. \param failure gets the producer's words when the search
    /// fails, else "".
    std::vector<OrvCam::DeviceDescription> Discover(std::uint64_t windowMs, std::string *failure) EXCLUDES(m_mutex);
    /// One device's infos as the producer has them now.
    OrvCam::DeviceDescription Describe(const std::string &deviceId) const;
    GC_ERROR OpenDevice(const std::string &deviceId, DEVICE_ACCESS_FLAGS access, DEV_HANDLE *device) const;
    /// The interface's own features; null when it describes none. They live as long as the interface.
    FeatureArrayImp *Features() EXCLUDES(m_featuresMutex);
    /// See OrvCam::System. \return a status, with a sentence in `*error` on failure.
    int ForceAddress(const OrvCam::DeviceDescription &device, const ForcedAddress &address, std::string *error)
        EXCLUDES(m_mutex);
    /// Who holds the device, "192.168.10.1:50123"; "" when that is not known.
    std::string HolderOf(const std::string &deviceId) const;

private:
    /// \return why it failed, "" when it did not.
    std::string UpdateDevices(std::uint64_t windowMs) REQUIRES(m_mutex);
    std::string DeviceText(const std::string &deviceId, DEVICE_INFO_CMD command) const;

    const Producer &m_producer;
    const IF_HANDLE m_handle;
    const OrvCam::InterfaceDescription m_description;
    Mutex m_mutex; ///< one update or listing of devices at a time, and none while one is selected by number
    std::string m_searchFailure GUARDED_BY(m_mutex); ///< of the last search, logged once
    Mutex m_featuresMutex;
    bool m_hasNoDescription GUARDED_BY(m_featuresMutex) = false;
    std::unique_ptr<DevicePort> m_port GUARDED_BY(m_featuresMutex);
    std::unique_ptr<FeatureArrayImp> m_features GUARDED_BY(m_featuresMutex);
};

} // namespace orv::cam
