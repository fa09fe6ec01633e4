// Answers to a search for cameras, from several senders and at any time.
//
// Input: datagrams, see DiscoveryFuzz.h.
#include "fuzz/DiscoveryFuzz.h"

#include "fuzz/Target.h"
#include "producer/gige/Discovery.h"
#include "producer/gige/GigeInterface.h"

#include <set>

namespace {

using namespace nuvark::gige;
using namespace orv::fuzz;
using namespace discoveryinput;

constexpr std::size_t kMostDevices = 1024;

NetworkInterface Interface(std::uint32_t address)
{
    NetworkInterface interface;
    interface.name = "eth0";
    interface.address = address;
    interface.mask = 0xFFFFFF00;
    interface.broadcast = address | 0xFF;
    return interface;
}

void CheckReads(const std::vector<DiscoveryCollector::Outgoing> &reads, const NetworkInterface &interface)
{
    std::set<std::uint16_t> ids;
    for (const DiscoveryCollector::Outgoing &read : reads) {
        Require(read.to.port == kControlPort || read.to.address == 0 || !interface.Reaches(read.to.address),
                "registers are asked for at the control port");
        Require(interface.Reaches(read.to.address), "nobody beyond the subnet is asked");
        Require(read.datagram.size() == kHeaderSize + 4, "one register at a time");
        const std::uint16_t id = static_cast<std::uint16_t>(read.datagram[6] << 8 | read.datagram[7]);
        Require(id != 0 && id != DiscoveryCollector::kDiscoveryId, "an id that no search has");
        Require(ids.insert(id).second, "an id of its own for each command under way");
    }
}

void CheckDevices(const std::vector<FoundDevice> &devices)
{
    Require(devices.size() <= kMostDevices, "the number of cameras is limited");
    for (std::size_t i = 0; i < devices.size(); ++i) {
        for (std::size_t k = 0; k < i && devices.size() < 64; ++k)
            Require(!devices[i].IsSameDevice(devices[k]), "each camera is found once");
        const nuvark::DeviceRecord record = MakeRecord(devices[i]);
        Require(record.id.compare(0, 4, "GEV:") == 0, "every camera has an identifier");
        Require(record.vendor.size() <= 32 && record.model.size() <= 32 && record.userName.size() <= 16,
                "texts end with their fields");
        for (const std::string *text : {&record.id, &record.vendor, &record.model, &record.serial, &record.userName})
            Require(text->find('\0') == std::string::npos, "texts end at their first zero");
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const NetworkInterface interface = Interface(0xC0A80A01);
    DiscoveryCollector collector(interface, {interface, Interface(0x0A000001)});
    TimePoint now = TimePoint{} + std::chrono::hours(1);
    orv::ByteReader in({data, size});
    while (in.Rest().size != 0) {
        const std::uint8_t way = in.U8();
        const Bytes datagram = TakePiece(in);
        if ((way & kTimePasses) != 0)
            now += std::chrono::milliseconds(100);
        collector.OnDatagram(SpanOf(datagram), {kSenders[way & kSenderMask], kControlPort}, now);
        CheckReads(collector.DueReads(now), interface);
    }
    const std::vector<FoundDevice> devices = collector.Devices();
    CheckDevices(devices);
    (void)collector.HasRead([](const FoundDevice &device) { return device.reachable; });
    return 0;
}
