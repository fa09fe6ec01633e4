#pragma once

#include "producer/gige/Gvcp.h"
#include "producer/gige/NetworkInterfaces.h"
#include "producer/gige/UdpSocket.h"
#include "producer/Status.h"

#include <functional>
#include <optional>
#include <vector>

namespace nuvark::gige {

/// A camera that answered on one host interface, and what its registers told within the window.
struct FoundDevice {
    DiscoveryAnswer answer;
    Endpoint endpoint;     ///< where the answer came from
    bool reachable = true; ///< its address fits the interface it was found on

    // Unset when the camera did not tell in time.
    std::optional<std::uint32_t> privilege; ///< control privilege register; all ones when even reading was refused
    std::optional<std::uint32_t> controllerAddress;
    std::optional<std::uint32_t> controllerPort;
    std::optional<std::uint64_t> tickFrequency;

    /// Same camera: by MAC, or by address where the camera has no MAC (software cameras).
    bool IsSameDevice(const FoundDevice &other) const;
};

using DevicePredicate = std::function<bool(const FoundDevice &)>;

/// Asks for cameras through `interface` for the length of `window` and returns those that answered.
///
/// Sends to the global and the subnet broadcast address and to the known cameras, several times, and reads each new
/// camera's privilege, controller and tick frequency registers on the way, without taking control. Blocks for the
/// window. A camera whose address belongs to another of `allInterfaces` is left to that one. \param wanted when given,
/// returns as soon as such a camera has answered and told its registers. \return none is a success; GC_ERR_IO or
/// GC_ERR_RESOURCE_EXHAUSTED when the system let nothing be sent at all.
Result<std::vector<FoundDevice>> Discover(const NetworkInterface &interface,
                                          const std::vector<NetworkInterface> &allInterfaces,
                                          std::chrono::milliseconds window, const DevicePredicate &wanted = {});

/// Asks one address for a camera, also where broadcasts do not get to. Nothing when no camera has answered in time;
/// failures as of Discover().
Result<std::optional<FoundDevice>> DiscoverAt(const NetworkInterface &interface, std::uint32_t address,
                                              std::chrono::milliseconds window);

/// Collects what comes in during a discovery: pure bookkeeping over datagrams, no socket.
class DiscoveryCollector {
public:
    explicit DiscoveryCollector(NetworkInterface interface, std::vector<NetworkInterface> allInterfaces = {})
        : m_interface(std::move(interface)), m_allInterfaces(std::move(allInterfaces))
    {
    }

    static constexpr std::uint16_t kDiscoveryId = 0xFFFF;

    /// Takes one datagram in. Anything that is no answer to our commands is ignored.
    void OnDatagram(orv::ByteSpan datagram, Endpoint sender, TimePoint now);

    struct Outgoing {
        Datagram datagram;
        Endpoint to;
    };
    /// Register reads that are due now: new ones and those unanswered for a while.
    std::vector<Outgoing> DueReads(TimePoint now);

    /// True once a camera that fits has answered all reads.
    bool HasRead(const DevicePredicate &wanted) const;
    std::vector<FoundDevice> Devices() const;

private:
    struct Probe {
        FoundDevice device;
        std::size_t step = 0;        ///< which register is being asked for
        std::uint16_t requestId = 0; ///< 0: not asked yet
        TimePoint due{};             ///< when to ask (again)
        std::uint32_t tickHigh = 0;
    };

    void OnDiscovery(const Acknowledge &acknowledge, Endpoint sender, TimePoint now);
    void OnRegister(const Acknowledge &acknowledge, Endpoint sender, TimePoint now);
    static void StoreRegister(Probe &probe, std::optional<std::uint32_t> value, std::uint16_t status);
    bool BelongsElsewhere(std::uint32_t address) const;

    const NetworkInterface m_interface;
    const std::vector<NetworkInterface> m_allInterfaces;
    std::vector<Probe> m_probes;
    std::uint16_t m_nextId = 1;
};

} // namespace nuvark::gige
