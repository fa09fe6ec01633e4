#pragma once

#include "simulator/features/RegisterSpace.h"
#include "simulator/gige/Bootstrap.h"
#include "simulator/gige/ControlledDevice.h"
#include "simulator/gige/ControlServer.h"

#include <cstdint>
#include <string>
#include <vector>

namespace orvsim {

/// The bootstrap registers and two of its own, without camera, stream and sockets; it notes what it is told.
class FakeDevice : public ControlledDevice {
public:
    static constexpr std::uint32_t kCounter = 0xA000; ///< counts the writes to it
    static constexpr std::uint32_t kSlow = 0xA004;    ///< takes slowMs
    static constexpr std::uint32_t kReadOnly = 0xA008;
    static constexpr std::uint32_t kBlock = 0xB000; ///< 1024 bytes that never change

    static constexpr std::size_t kPayloadBytes = 307200;

    explicit FakeDevice(const GigeOptions &options) : bootstrap(Identity(), options)
    {
        UserName userName;
        userName.get = [this] { return name; };
        userName.set = [this](const std::string &text) {
            name = text;
            return Outcome::Ok;
        };
        bootstrap.AddTo(registers, userName);
        const auto add = [this](std::uint32_t address, std::uint64_t &value, std::uint64_t step) {
            registers.AddNumber(
                address, 4, RegisterAccess::ReadWrite, [&value] { return value; },
                [&value, step](std::uint64_t given) {
                    value = step != 0 ? value + step : given;
                    return Outcome::Ok;
                });
        };
        add(kCounter, writes, 1);
        add(kSlow, slow, 0);
        registers.AddNumber(kReadOnly, 4, RegisterAccess::ReadOnly, [] { return 7; });
        registers.AddBlock(kBlock, std::string(1024, 'b'));
    }

    static CameraOptions Identity()
    {
        CameraOptions options;
        options.vendor = "ExampleCo";
        options.model = "SimCam";
        options.deviceVersion = "1.0.0";
        options.manufacturerInfo = "simulated";
        options.serial = "SN000042";
        return options;
    }

    WriteResult Write(std::uint32_t address, std::uint32_t size, const std::uint8_t *bytes) override
    {
        return {registers.Write(address, size, bytes), address == kSlow ? slowMs : 0};
    }
    Outcome Read(std::uint32_t address, std::uint32_t size, std::uint8_t *bytes) override
    {
        return registers.Read(address, size, bytes);
    }
    std::uint64_t Now() override { return ticks; }
    void ResetClock() override { ticks = 0; }
    Faults CurrentFaults() override { return faults; }
    void StopAcquisition() override { ++stops; }
    void Reset() override { ++resets; }
    bool RunAction() override
    {
        ++actions;
        return waitsForTrigger;
    }
    void SetStreamTarget(const StreamTarget &given) override { target = given; }
    void FireTestPacket() override { ++testPackets; }
    void Resend(const ResendRequest &request, const Endpoint &) override { resends.push_back(request); }
    std::size_t PayloadSize() override { return kPayloadBytes; }
    bool MoveTo(const NetworkAddress &given) override
    {
        if (isMovable)
            network = given;
        return isMovable;
    }

    RegisterSpace registers;
    Bootstrap bootstrap;
    std::string name = "left";
    std::uint64_t writes = 0;
    std::uint64_t slow = 0;
    std::int64_t slowMs = 0;
    std::uint64_t ticks = 0x123456789a;
    Faults faults;
    int stops = 0;
    int resets = 0;
    int actions = 0;
    bool waitsForTrigger = true;
    int testPackets = 0;
    StreamTarget target;
    std::vector<ResendRequest> resends;
    bool isMovable = true;
    NetworkAddress network;
};

} // namespace orvsim
