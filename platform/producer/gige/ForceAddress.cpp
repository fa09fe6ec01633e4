#include "producer/gige/ForceAddress.h"

#include "producer/gige/Broadcast.h"
#include "producer/gige/Text.h"

#include <atomic>
#include <optional>

namespace nuvark::gige {

namespace {

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

struct Rounds {
    int count;
    std::chrono::milliseconds each;
};

/// Sends the command until it is acknowledged. \return the acknowledge's status, nothing where none has come. A host
/// that does not let the first one out need not be asked again, but for a moment without memory.
Result<std::optional<std::uint16_t>> Ask(UdpSocket &socket, const NetworkInterface &interface, const Datagram &command,
                                         std::uint16_t id, Rounds rounds)
{
    // Some devices hear only one of the broadcasts. It is the same command: carried out twice it changes nothing.
    const std::vector<std::uint32_t> everybody = Everybody(interface);
    Status failure;
    for (int round = 0; round < rounds.count; ++round) {
        const Status sent = SendToAll(socket, interface, everybody, command);
        if (round == 0 || sent.Ok())
            failure = sent;
        if (!failure.Ok() && failure.Code() != GC_ERR_RESOURCE_EXHAUSTED)
            break;
        if (const auto status = Await(socket, id, Clock::now() + rounds.each))
            return status;
    }
    if (!failure.Ok())
        return Status(failure.Code(), "through " + interface.DisplayName() + ": " + failure.Text());
    return std::optional<std::uint16_t>();
}

} // namespace

Status ForceAddress(const NetworkInterface &interface, const AddressAssignment &assignment,
                    const ForceAddressTiming &timing)
{
    Result<UdpSocket> socket = OpenBroadcastSocket();
    if (!socket.Ok())
        return socket.status;
    const std::uint16_t id = NextId();
    const Datagram command =
        MakeForceAddress(id, assignment.mac, assignment.address, assignment.mask, assignment.gateway);
    const std::string context = "give " + MacText(assignment.mac) + " the address " + AddressText(assignment.address);
    // Of a camera that is to find an address by itself nothing comes, except perhaps that it refuses.
    const bool isBlind = assignment.address == 0;
    const Rounds rounds = isBlind ? Rounds{kBlindRounds, kBlindPause} : Rounds{timing.tries, timing.each};
    const auto answer = Ask(socket.value, interface, command, id, rounds);
    if (!answer.Ok())
        return answer.status;
    if (answer.value)
        return StatusFromWire(*answer.value, true, context);
    if (isBlind)
        return {};
    return {GC_ERR_TIMEOUT, context + ": the camera does not answer; one that a program controls keeps its address"};
}

} // namespace nuvark::gige
