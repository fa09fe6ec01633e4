#include "producer/gige/ForceAddress.h"

#include "producer/gige/Gvcp.h"
#include "producer/gige/Text.h"
#include "producer/gige/UdpSocket.h"

#include <atomic>

namespace nuvark::gige {

namespace {

constexpr std::uint32_t kEverybody = 0xFFFFFFFF;
/// Of a command that nobody acknowledges. Rounds close to each other are one restart of the camera's search.
constexpr int kBlindRounds = 3;
constexpr std::chrono::milliseconds kBlindPause{50};

/// A late acknowledge of an earlier assignment must not count for the next.
std::uint16_t NextId()
{
    static std::atomic<std::uint16_t> last{0};
    const std::uint16_t id = ++last;
    return id != 0 ? id : ++last;
}

void Send(UdpSocket &socket, const NetworkInterface &interface, const Datagram &command)
{
    // Some devices hear only one of the two broadcasts. It is the same command: carried out twice it changes nothing.
    for (std::uint32_t to : {kEverybody, interface.broadcast}) {
        if (to != 0)
            (void)socket.SendVia(interface.index, interface.address, {to, kControlPort},
                                 {command.data(), command.size()});
    }
}

/// The acknowledge's status, nothing when it does not come in time.
std::optional<std::uint16_t> Await(UdpSocket &socket, std::uint16_t id, TimePoint deadline)
{
    std::uint8_t buffer[2048];
    while (socket.WaitReadable(deadline, nullptr) == UdpSocket::Wait::Readable) {
        const auto acknowledge = ParseAcknowledge({buffer, socket.Receive(buffer, sizeof buffer)});
        if (acknowledge && acknowledge->code == AcknowledgeOf(Command::ForceAddress) && acknowledge->requestId == id)
            return acknowledge->status;
        if (Clock::now() >= deadline)
            break;
    }
    return std::nullopt;
}

} // namespace

Status ForceAddress(const NetworkInterface &interface, const AddressAssignment &assignment,
                    const ForceAddressTiming &timing)
{
    // Bound to no address: a socket bound to one would not get an acknowledge that is broadcast.
    Result<UdpSocket> socket = UdpSocket::Open(0);
    if (!socket.Ok())
        return socket.status;
    const Status allowed = socket.value.EnableBroadcast();
    if (!allowed.Ok())
        return allowed;
    const std::uint16_t id = NextId();
    const Datagram command =
        MakeForceAddress(id, assignment.mac, assignment.address, assignment.mask, assignment.gateway);
    const std::string context = "give " + MacText(assignment.mac) + " the address " + AddressText(assignment.address);
    for (int round = 0; assignment.address == 0 && round < kBlindRounds; ++round) {
        Send(socket.value, interface, command);
        // Nothing comes, except perhaps that the camera refuses.
        if (const auto status = Await(socket.value, id, Clock::now() + kBlindPause))
            return StatusFromWire(*status, true, context);
    }
    if (assignment.address == 0)
        return {};
    for (int attempt = 0; attempt < timing.tries; ++attempt) {
        Send(socket.value, interface, command);
        if (const auto status = Await(socket.value, id, Clock::now() + timing.each))
            return StatusFromWire(*status, true, context);
    }
    return {GC_ERR_TIMEOUT, context + ": the camera does not answer; one that a program controls keeps its address"};
}

} // namespace nuvark::gige
