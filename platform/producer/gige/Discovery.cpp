#include "producer/gige/Discovery.h"

#include "producer/gige/Bootstrap.h"
#include "producer/gige/Broadcast.h"

#include <algorithm>

namespace nuvark::gige {

namespace {

/// Registers asked of each camera, in this order. Only one command may be under way per camera.
constexpr std::uint32_t kProbeRegisters[] = {kRegControlPrivilege, kRegTickFrequencyHigh, kRegTickFrequencyLow,
                                             kRegControllerAddress, kRegControllerPort};
constexpr std::size_t kProbeCount = std::size(kProbeRegisters);
constexpr auto kProbeRepeat = std::chrono::milliseconds(60);
constexpr std::size_t kReceiveBuffer = 256 * 1024;
/// Cameras on one interface; a flood of forged answers must not eat the memory.
constexpr std::size_t kMaxDevices = 1024;

void SendReads(UdpSocket &socket, const NetworkInterface &interface, DiscoveryCollector &collector)
{
    for (const DiscoveryCollector::Outgoing &out : collector.DueReads(Clock::now())) {
        // A camera that cannot be reached just stays without these facts.
        (void)socket.SendVia(interface.index, interface.address, out.to, {out.datagram.data(), out.datagram.size()});
    }
}

/// Receives until `until`, answering new cameras with register reads. Ends early when `wanted` has been read.
void Collect(UdpSocket &socket, const NetworkInterface &interface, DiscoveryCollector &collector, TimePoint until,
             const DevicePredicate &wanted)
{
    std::uint8_t buffer[2048];
    while (Clock::now() < until) {
        SendReads(socket, interface, collector);
        if (collector.HasRead(wanted))
            return;
        const TimePoint wake = std::min(until, Clock::now() + kProbeRepeat);
        if (socket.WaitReadable(wake, nullptr) != UdpSocket::Wait::Readable)
            continue;
        Endpoint sender;
        const std::size_t size = socket.Receive(buffer, sizeof buffer, &sender);
        collector.OnDatagram({buffer, size}, sender, Clock::now());
    }
}

/// Three rounds: at once, after a quarter and after half of the window, so late answers still fit in. \return why not
/// one of them could be sent.
Status Run(const NetworkInterface &interface, const std::vector<std::uint32_t> &destinations,
           DiscoveryCollector &collector, std::chrono::milliseconds window, const DevicePredicate &wanted)
{
    Result<UdpSocket> socket = OpenBroadcastSocket();
    if (!socket.Ok())
        return socket.status;
    socket.value.SetReceiveBuffer(kReceiveBuffer);
    const Datagram command = MakeDiscovery(DiscoveryCollector::kDiscoveryId, true);
    const TimePoint start = Clock::now();
    Status failure;
    bool isSent = false;
    for (const auto roundEnd : {window / 4, window / 2, window}) {
        failure = SendToAll(socket.value, interface, destinations, command);
        isSent |= failure.Ok();
        Collect(socket.value, interface, collector, start + roundEnd, wanted);
        if (collector.HasRead(wanted))
            break;
    }
    return isSent ? Status() : failure;
}

} // namespace

bool FoundDevice::IsSameDevice(const FoundDevice &other) const
{
    const std::array<std::uint8_t, 6> none{};
    if (answer.mac != other.answer.mac)
        return false;
    return answer.mac != none || answer.address == other.answer.address;
}

Result<std::vector<FoundDevice>> Discover(const NetworkInterface &interface,
                                          const std::vector<NetworkInterface> &allInterfaces,
                                          std::chrono::milliseconds window, const DevicePredicate &wanted)
{
    DiscoveryCollector collector(interface, allInterfaces);
    std::vector<std::uint32_t> destinations = Everybody(interface);
    destinations.insert(destinations.end(), interface.knownCameras.begin(), interface.knownCameras.end());
    const Status run = Run(interface, destinations, collector, window, wanted);
    if (!run.Ok())
        return run;
    return collector.Devices();
}

Result<std::optional<FoundDevice>> DiscoverAt(const NetworkInterface &interface, std::uint32_t address,
                                              std::chrono::milliseconds window)
{
    DiscoveryCollector collector(interface);
    const auto wanted = [address](const FoundDevice &device) { return device.answer.address == address; };
    const Status run = Run(interface, {address}, collector, window, wanted);
    if (!run.Ok())
        return run;
    for (FoundDevice &device : collector.Devices()) {
        if (wanted(device))
            return std::optional<FoundDevice>(std::move(device));
    }
    return std::optional<FoundDevice>();
}

void DiscoveryCollector::OnDatagram(orv::ByteSpan datagram, Endpoint sender, TimePoint now)
{
    const std::optional<Acknowledge> acknowledge = ParseAcknowledge(datagram);
    if (!acknowledge)
        return;
    if (acknowledge->code == AcknowledgeOf(Command::Discovery) && acknowledge->requestId == kDiscoveryId)
        OnDiscovery(*acknowledge, sender, now);
    else if (acknowledge->code == AcknowledgeOf(Command::ReadRegister))
        OnRegister(*acknowledge, sender, now);
}

void DiscoveryCollector::OnDiscovery(const Acknowledge &acknowledge, Endpoint sender, TimePoint now)
{
    const std::optional<DiscoveryAnswer> answer = ParseDiscovery(acknowledge.payload);
    if (acknowledge.status != kStatusSuccess || !answer || m_probes.size() >= kMaxDevices)
        return;
    FoundDevice device;
    device.answer = *answer;
    // Registers are asked at the address the camera claims: an answer that was broadcast may come from elsewhere.
    device.endpoint = {answer->address, kControlPort};
    device.reachable = m_interface.Reaches(answer->address);
    if (answer->address == 0)
        device.endpoint = sender;
    if (!device.reachable && BelongsElsewhere(answer->address))
        return;
    const bool known = std::any_of(m_probes.begin(), m_probes.end(),
                                   [&](const Probe &probe) { return probe.device.IsSameDevice(device); });
    if (known)
        return;
    Probe probe;
    probe.device = std::move(device);
    probe.due = now;
    probe.step = probe.device.reachable ? 0 : kProbeCount;
    m_probes.push_back(std::move(probe));
}

bool DiscoveryCollector::BelongsElsewhere(std::uint32_t address) const
{
    return std::any_of(m_allInterfaces.begin(), m_allInterfaces.end(),
                       [&](const NetworkInterface &other) { return !other.pointToPoint && other.Contains(address); });
}

void DiscoveryCollector::OnRegister(const Acknowledge &acknowledge, Endpoint sender, TimePoint now)
{
    for (Probe &probe : m_probes) {
        if (probe.requestId == 0 || probe.requestId != acknowledge.requestId)
            continue;
        if (sender.address != probe.device.endpoint.address)
            return;
        const auto values = ParseReadRegister(acknowledge.payload, 1);
        const bool good = acknowledge.status == kStatusSuccess && values;
        StoreRegister(probe, good ? std::optional<std::uint32_t>(values->front()) : std::nullopt, acknowledge.status);
        ++probe.step;
        probe.requestId = 0;
        probe.due = now;
        return;
    }
}

void DiscoveryCollector::StoreRegister(Probe &probe, std::optional<std::uint32_t> value, std::uint16_t status)
{
    FoundDevice &device = probe.device;
    switch (kProbeRegisters[probe.step]) {
    case kRegControlPrivilege:
        if (status == kStatusAccessDenied)
            device.privilege = 0xFFFFFFFF;
        else
            device.privilege = value;
        break;
    case kRegTickFrequencyHigh:
        probe.tickHigh = value.value_or(0);
        break;
    case kRegTickFrequencyLow:
        if (value)
            device.tickFrequency = std::uint64_t{probe.tickHigh} << 32 | *value;
        break;
    case kRegControllerAddress:
        device.controllerAddress = value;
        break;
    default:
        device.controllerPort = value;
        break;
    }
}

std::vector<DiscoveryCollector::Outgoing> DiscoveryCollector::DueReads(TimePoint now)
{
    std::vector<Outgoing> reads;
    for (Probe &probe : m_probes) {
        if (probe.step >= kProbeCount || now < probe.due)
            continue;
        if (probe.requestId == 0) {
            probe.requestId = m_nextId;
            m_nextId = m_nextId == kDiscoveryId - 1 ? 1 : m_nextId + 1;
        }
        probe.due = now + kProbeRepeat;
        reads.push_back({MakeReadRegister(probe.requestId, {kProbeRegisters[probe.step]}), probe.device.endpoint});
    }
    return reads;
}

bool DiscoveryCollector::HasRead(const DevicePredicate &wanted) const
{
    return wanted && std::any_of(m_probes.begin(), m_probes.end(),
                                 [&](const Probe &probe) { return probe.step >= kProbeCount && wanted(probe.device); });
}

std::vector<FoundDevice> DiscoveryCollector::Devices() const
{
    std::vector<FoundDevice> devices;
    for (const Probe &probe : m_probes)
        devices.push_back(probe.device);
    return devices;
}

} // namespace nuvark::gige
