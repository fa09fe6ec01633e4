#pragma once

#include "simulator/gige/GigeCamera.h"
#include "tests/simulator/TestHost.h"

#include <chrono>
#include <memory>
#include <string>
#include <thread>

namespace orvsim {

constexpr std::uint32_t kHostAddress = 0x7f000001; ///< of every TestHost

inline CameraOptions SmallCamera(const std::string &serial = "T1")
{
    CameraOptions options;
    options.serial = serial;
    options.sensor.width = 64;
    options.sensor.height = 48;
    options.frameRate = 20;
    options.frameMemory = 1 << 20;
    return options;
}

inline GigeOptions At(int n)
{
    GigeOptions options;
    options.address = TestAddress(n);
    return options;
}

/// A camera and a host that may take control of it.
class OneCamera : public ::testing::Test {
protected:
    void Open(CameraOptions options = SmallCamera(), GigeOptions gige = At(0))
    {
        camera = std::make_unique<GigeCamera>(options, gige);
        ASSERT_EQ(camera->Open(), "");
        address = gige.address;
    }
    void OpenAndControl(const CameraOptions &options = SmallCamera())
    {
        Open(options);
        TakeControl();
    }
    void TakeControl() { ASSERT_EQ(host.Write(address, 0x0A00, 2), 0); }
    void Set(const std::string &name, const std::string &text)
    {
        std::string problem;
        EXPECT_EQ(camera->Core().SetFeature(name, text, problem), Outcome::Ok) << problem;
    }
    std::string Get(const std::string &name) { return camera->Core().GetFeature(name); }
    std::uint32_t RegisterOf(const std::string &feature) { return camera->Core().Features().SlotsOf(feature).value; }
    /// Lets the stream go to a port of the host's.
    void StreamTo(std::uint16_t port)
    {
        EXPECT_EQ(host.Write(camera->Address(), 0x0D18, kHostAddress), 0);
        EXPECT_EQ(host.Write(camera->Address(), 0x0D00, port), 0);
    }
    Datagram ForceTo(std::uint32_t wanted)
    {
        const std::uint64_t mac = std::uint64_t{host.Read(address, 0x0008)} << 32 | host.Read(address, 0x000C);
        return host.commands.Make(GvcpCommand::ForceIp, ForceIpWords(mac, wanted, 0xff000000));
    }
    template <class Condition> static bool ComesTrue(Condition condition)
    {
        const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(5);
        while (!condition()) {
            if (std::chrono::steady_clock::now() > limit)
                return false;
            std::this_thread::yield();
        }
        return true;
    }

    std::unique_ptr<GigeCamera> camera;
    std::uint32_t address = 0;
    TestHost host;
};

} // namespace orvsim
