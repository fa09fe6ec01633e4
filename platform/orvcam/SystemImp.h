#pragma once

#include "base/Mutex.h"
#include "orvcam/OrvCam.h"
#include "orvcam/Producer.h"

#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

namespace orv::cam {

/// The one system: all producers of this process. Never destroyed, so that whatever still runs while the process ends
/// finds it in place.
/// Threads: any.
class SystemImp final : public OrvCam::System {
public:
    /// The system, whether or not a producer is loaded.
    static SystemImp &Instance();

    int LoadProducer(const char *fileName) override EXCLUDES(m_mutex);
    OrvCam::InterfaceList *GetInterfaceList(unsigned int mask) override EXCLUDES(m_mutex);
    OrvCam::Device *CreateDeviceFromConfiguration(const char *path, int flags) override EXCLUDES(m_mutex);
    int ForceAddress(const OrvCam::DeviceDescription &device, const std::string &address, const std::string &subnetMask,
                     const std::string &gateway) override;
    int LastError(std::string *text) override;

    /// Our own producer and all others that can be found; those that are open already are left alone.
    void LoadAll() EXCLUDES(m_mutex);
    bool HasProducers() EXCLUDES(m_mutex);
    OrvCam::Device *CreateDevice(const OrvCam::DeviceDescription &description, int access);

private:
    SystemImp() = default;
    int Load(const std::string &path, std::string *error) EXCLUDES(m_mutex);
    std::vector<Producer *> Producers() EXCLUDES(m_mutex);
    std::vector<struct InterfaceDevices> Discover(unsigned int mask);
    /// \return null with the failure remembered for this thread.
    std::shared_ptr<Interface> InterfaceOf(const OrvCam::DeviceDescription &device);

    void LoadNow(const std::string &path, const std::string &name) EXCLUDES(m_mutex);
    const Producer *FindProducer(const std::string &name) const REQUIRES(m_mutex);

    Mutex m_mutex; ///< of the lists; not held while a producer is loaded
    ConditionVariable m_loaded;
    std::set<std::string> m_loading GUARDED_BY(m_mutex);                 ///< file names, so that none is loaded twice
    std::map<std::string, std::string> m_loadErrors GUARDED_BY(m_mutex); ///< by file name
    std::vector<std::unique_ptr<Producer>> m_producers GUARDED_BY(m_mutex);
};

} // namespace orv::cam
