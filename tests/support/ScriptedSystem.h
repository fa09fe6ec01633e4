#pragma once

#include "base/Mutex.h"
#include "orvcam/OrvCam.h"

#include <atomic>
#include <chrono>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace scripted {

/// A camera system that finds what a test tells it to find, when the test tells it to.
///
/// GetInterfaceList from any thread; the rest from the test's thread.
class System final : public OrvCam::System {
public:
    using Cameras = std::vector<OrvCam::DeviceDescription>;
    struct Interface {
        OrvCam::InterfaceDescription description;
        Cameras cameras;
    };

    static OrvCam::DeviceDescription Camera(const std::string &serial, OrvCam::DeviceState state)
    {
        OrvCam::DeviceDescription camera;
        camera.id = "id-" + serial;
        camera.vendor = "Orvetta";
        camera.model = "OV-2300M";
        camera.serial = serial;
        camera.address = "10.0.0.17";
        camera.state = state;
        camera.interface = Ethernet();
        return camera;
    }

    static OrvCam::InterfaceDescription Ethernet()
    {
        return {OrvCam::ORV_INTERFACE_GEV, "gev-eth0", "eth0 (10.0.0.1)", "Nuvark.cti"};
    }

    /// One interface with these cameras.
    void Find(Cameras cameras) { FindOn({{Ethernet(), std::move(cameras)}}); }
    void FindOn(std::vector<Interface> interfaces) EXCLUDES(m_mutex)
    {
        orv::MutexLock lock(m_mutex);
        m_interfaces = std::move(interfaces);
    }
    void FindNothingToSearchWith() EXCLUDES(m_mutex)
    {
        orv::MutexLock lock(m_mutex);
        m_hasProducer = false;
    }

    /// Searches and forced addresses stay under way until LetGo().
    void Hold() EXCLUDES(m_mutex)
    {
        orv::MutexLock lock(m_mutex);
        m_held = true;
    }
    void LetGo() EXCLUDES(m_mutex)
    {
        orv::MutexLock lock(m_mutex);
        m_held = false;
        m_letGo.NotifyAll();
    }

    /// Searches under way, and lists that were not released.
    int InUse() const { return m_inUse; }
    int Searches() const { return m_searches; }

    OrvCam::InterfaceList *GetInterfaceList(unsigned int) override EXCLUDES(m_mutex)
    {
        ++m_inUse;
        orv::MutexLock lock(m_mutex);
        while (m_held)
            m_letGo.Wait(m_mutex);
        ++m_searches;
        if (m_hasProducer)
            return new Snapshot(m_interfaces, &m_inUse);
        --m_inUse;
        return nullptr;
    }

    int LoadProducer(const char *fileName) override
    {
        loadedProducer = fileName;
        return ORV_CAM_OK;
    }
    OrvCam::Device *CreateDeviceFromConfiguration(const char *path, int) override
    {
        configurationPath = path;
        return configurationDevice;
    }
    int ForceAddress(const OrvCam::DeviceDescription &device, const std::string &address, const std::string &subnetMask,
                     const std::string &gateway) override EXCLUDES(m_mutex)
    {
        orv::MutexLock lock(m_mutex);
        while (m_held)
            m_letGo.Wait(m_mutex);
        m_forced.push_back(device.serial + " " + address + " " + subnetMask + " " + gateway);
        return forceStatus;
    }
    /// What ForceAddress() was asked for: "serial address mask gateway".
    std::vector<std::string> Forced() const EXCLUDES(m_mutex)
    {
        orv::MutexLock lock(m_mutex);
        return m_forced;
    }

    int LastError(std::string *text) override
    {
        *text = lastError;
        return lastError.empty() ? ORV_CAM_OK : ORV_CAM_ERR_BUSY;
    }

    // What it answers, and what it was asked.
    std::atomic<int> forceStatus{ORV_CAM_OK};
    OrvCam::Device *configurationDevice = nullptr;
    std::string lastError;
    std::string loadedProducer;
    std::string configurationPath;

private:
    class Devices final : public OrvCam::DeviceList {
    public:
        explicit Devices(const System::Interface &interface) : m_interface(interface) {}
        const OrvCam::DeviceDescription *First() override { return At(m_next = 0); }
        const OrvCam::DeviceDescription *Next() override { return At(++m_next); }
        const OrvCam::InterfaceDescription &Interface() const override { return m_interface.description; }

    private:
        const OrvCam::DeviceDescription *At(std::size_t i) const
        {
            return i < m_interface.cameras.size() ? &m_interface.cameras[i] : nullptr;
        }
        const System::Interface m_interface;
        std::size_t m_next = 0;
    };

    class Snapshot final : public OrvCam::InterfaceList {
    public:
        Snapshot(const std::vector<Interface> &interfaces, std::atomic<int> *inUse)
            : m_lists(interfaces.begin(), interfaces.end()), m_inUse(inUse)
        {
        }
        OrvCam::DeviceList *First() override { return At(m_next = 0); }
        OrvCam::DeviceList *Next() override { return At(++m_next); }
        void Release() override
        {
            std::atomic<int> *inUse = m_inUse;
            delete this;
            --*inUse;
        }

    private:
        OrvCam::DeviceList *At(std::size_t i) { return i < m_lists.size() ? &m_lists[i] : nullptr; }
        std::vector<Devices> m_lists;
        std::size_t m_next = 0;
        std::atomic<int> *const m_inUse;
    };

    mutable orv::Mutex m_mutex;
    std::vector<std::string> m_forced GUARDED_BY(m_mutex);
    orv::ConditionVariable m_letGo;
    std::vector<Interface> m_interfaces GUARDED_BY(m_mutex);
    bool m_hasProducer GUARDED_BY(m_mutex) = true;
    bool m_held GUARDED_BY(m_mutex) = false;
    std::atomic<int> m_inUse{0};
    std::atomic<int> m_searches{0};
};

} // namespace scripted
