#pragma once

#include "orvcam/OrvCam.h"

#include <atomic>
#include <chrono>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace scripted {

/// A camera system whose search finds what a test put into it.
class System final : public OrvCam::System {
public:
    int LoadProducer(const char *fileName) override
    {
        loadedProducer = fileName;
        return ORV_CAM_OK;
    }
    OrvCam::InterfaceList *GetInterfaceList(unsigned int) override
    {
        if (const int delay = searchMs)
            std::this_thread::sleep_for(std::chrono::milliseconds(delay)); // the network's own slowness
        return new List(devices);
    }
    OrvCam::Device *CreateDeviceFromConfiguration(const char *path, int) override
    {
        configurationPath = path;
        return configurationDevice;
    }
    int LastError(std::string *text) override
    {
        *text = lastError;
        return lastError.empty() ? ORV_CAM_OK : ORV_CAM_ERR_BUSY;
    }

    /// Set before a search. One interface holds them all.
    std::vector<OrvCam::DeviceDescription> devices;
    std::atomic<int> searchMs{0};
    OrvCam::Device *configurationDevice = nullptr;
    std::string lastError;
    std::string loadedProducer;
    std::string configurationPath;

private:
    class Devices final : public OrvCam::DeviceList {
    public:
        explicit Devices(std::vector<OrvCam::DeviceDescription> devices) : m_devices(std::move(devices))
        {
            m_interface.type = OrvCam::ORV_INTERFACE_GEV;
            m_interface.id = "scripted";
            m_interface.text = "lo (127.0.0.1)";
        }
        const OrvCam::DeviceDescription *First() override
        {
            m_next = 0;
            return Next();
        }
        const OrvCam::DeviceDescription *Next() override
        {
            return m_next < m_devices.size() ? &m_devices[m_next++] : nullptr;
        }
        const OrvCam::InterfaceDescription &Interface() const override { return m_interface; }

    private:
        std::vector<OrvCam::DeviceDescription> m_devices;
        OrvCam::InterfaceDescription m_interface;
        std::size_t m_next = 0;
    };
    class List final : public OrvCam::InterfaceList {
    public:
        explicit List(std::vector<OrvCam::DeviceDescription> devices) : m_devices(std::move(devices)) {}
        OrvCam::DeviceList *First() override { return &m_devices; }
        OrvCam::DeviceList *Next() override { return nullptr; }
        void Release() override { delete this; }

    private:
        Devices m_devices;
    };
};

} // namespace scripted
