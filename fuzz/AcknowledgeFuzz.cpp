// Everything that a camera may send back over the control channel, and what it tells over the message channel.
//
// Input: steps, see AcknowledgeFuzz.h.
#include "fuzz/AcknowledgeFuzz.h"

#include "fuzz/Target.h"
#include "producer/gige/GvcpClient.h"
#include "producer/gige/GvcpEvents.h"

#include <cstring>
#include <memory>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

using namespace nuvark;
using namespace nuvark::gige;
using namespace orv::fuzz;
using namespace acknowledgeinput;

constexpr std::uint32_t kHost = 0x7F000001;
constexpr std::uint8_t kUntouched = 0xEE;
constexpr std::uint32_t kUntouchedValue = 0xEEEEEEEE;

/// The camera's end of the control channel, on a loopback address of this process's own. It never waits: what it is to
/// answer lies in the host's socket before the host asks.
class Camera {
public:
    Camera()
    {
        constexpr std::uint32_t kFirst = 0x7F400000;
        constexpr std::uint32_t kCount = 0x003FFFFF;
        constexpr int kTries = 64;
        m_socket = socket(AF_INET, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
        for (int i = 0; i < kTries; ++i) {
            m_address =
                kFirst + (static_cast<std::uint32_t>(getpid()) + 7919U * static_cast<std::uint32_t>(i)) % kCount;
            const sockaddr_in name = Name(m_address, kControlPort);
            if (bind(m_socket, reinterpret_cast<const sockaddr *>(&name), sizeof name) == 0)
                return;
        }
        Require(false, "the loopback interface has an address for the camera");
    }

    std::uint32_t Address() const { return m_address; }
    /// Id of the command that the host sends next.
    std::uint16_t NextId() const { return static_cast<std::uint16_t>(m_lastId + 1); }

    void BeginSession(std::uint16_t hostPort)
    {
        Receive();
        m_lastId = 0;
        m_hostPort = hostPort;
    }
    void Send(const Bytes &datagram)
    {
        const sockaddr_in to = Name(kHost, m_hostPort);
        (void)sendto(m_socket, datagram.data(), datagram.size(), 0, reinterpret_cast<const sockaddr *>(&to), sizeof to);
    }
    /// Checks the commands that have come.
    void Receive()
    {
        std::uint8_t bytes[2048];
        for (ssize_t size = 0; (size = recv(m_socket, bytes, sizeof bytes, 0)) >= 0;) {
            orv::ByteReader in({bytes, static_cast<std::size_t>(size)});
            Require(in.U8() == 0x42, "a command begins with its key");
            in.Skip(3);
            const std::size_t length = in.U16();
            m_lastId = in.U16();
            Require(m_lastId != 0, "no command has the id 0");
            Require(in.Ok() && in.Rest().size == length, "a command is as long as it says");
        }
    }

private:
    static sockaddr_in Name(std::uint32_t address, std::uint16_t port)
    {
        sockaddr_in name{};
        name.sin_family = AF_INET;
        name.sin_addr.s_addr = htonl(address);
        name.sin_port = htons(port);
        return name;
    }

    int m_socket = -1;
    std::uint32_t m_address = 0;
    std::uint16_t m_hostPort = 0;
    std::uint16_t m_lastId = 0;
};

std::unique_ptr<GvcpClient> Connect(std::uint32_t camera)
{
    using std::chrono::milliseconds;
    GvcpClient::Timing timing;
    timing.firstTry = timing.furtherTry = timing.total = timing.slowTotal = milliseconds(1);
    timing.pending = milliseconds(2);
    timing.busyPause = milliseconds(0);
    auto client = GvcpClient::Open(kHost, camera, timing);
    Require(client.Ok(), "a control channel opens on the loopback interface");
    client.value->SetSilenceLimit(milliseconds(1));
    return std::move(client.value);
}

void CheckReadRegister(GvcpClient &client, std::uint32_t address)
{
    std::uint32_t value = kUntouchedValue;
    const Status status = client.ReadRegister(address, value);
    Require(status.Ok() || value == kUntouchedValue, "a register that is not read gives no value");
}

void CheckReadRegisters(GvcpClient &client, std::uint32_t address, std::size_t count)
{
    std::vector<std::uint32_t> addresses;
    for (std::size_t i = 0; i < 1 + count % kMaxReads; ++i)
        addresses.push_back(address + static_cast<std::uint32_t>(4 * i));
    std::vector<std::uint32_t> values;
    const Status status = client.ReadRegisters(addresses, values);
    Require(values.size() == (status.Ok() ? addresses.size() : 0), "the values of all the registers or none");
}

void CheckWriteRegisters(GvcpClient &client, std::uint32_t address, std::size_t count)
{
    std::vector<RegisterWrite> writes;
    for (std::size_t i = 0; i < 1 + count % kMaxWrites; ++i)
        writes.push_back({address + static_cast<std::uint32_t>(4 * i), 1});
    std::optional<std::size_t> done;
    const Status status = client.WriteRegisters(writes, done);
    Require(!status.Ok() || done == writes.size(), "success means that all are written");
    Require(done.value_or(0) <= writes.size(), "no more registers are written than were asked for");
}

void CheckReadMemory(GvcpClient &client, std::uint32_t address, std::size_t count)
{
    count = 4 + count % kMemoryChunk / 4 * 4;
    count = std::min(count, kMemoryChunk);
    Bytes memory(count + 16, kUntouched);
    const Status status = client.ReadMemory(address, memory.data(), count);
    const auto end = memory.begin() + static_cast<std::ptrdiff_t>(status.Ok() ? count : 0);
    Require(std::all_of(end, memory.end(), [](std::uint8_t byte) { return byte == kUntouched; }),
            "memory is written where it was read, all or nothing");
}

void CheckWriteMemory(GvcpClient &client, std::uint32_t address, std::size_t count)
{
    const Bytes memory(std::min(4 + count % kMemoryChunk / 4 * 4, kMemoryChunk), 7);
    (void)client.WriteMemory(address, SpanOf(memory));
}

/// A command of the host, and what comes back.
void RunCommand(std::uint8_t step, GvcpClient &client, Camera &camera, orv::ByteReader &in)
{
    const std::uint32_t address = in.U32();
    const std::size_t count = in.U16();
    for (std::uint8_t left = in.U8() % 8; left > 0; --left) {
        const std::uint8_t way = in.U8();
        Bytes answer = TakePiece(in);
        if ((way & kRightId) != 0 && answer.size() >= kHeaderSize) {
            answer[6] = static_cast<std::uint8_t>(camera.NextId() >> 8);
            answer[7] = static_cast<std::uint8_t>(camera.NextId());
        }
        camera.Send(answer);
    }
    if (step == kReadRegister)
        CheckReadRegister(client, address);
    else if (step == kWriteRegister)
        (void)client.WriteRegister(address, 1);
    else if (step == kReadRegisters)
        CheckReadRegisters(client, address, count);
    else if (step == kWriteRegisters)
        CheckWriteRegisters(client, address, count);
    else if (step == kReadMemory)
        CheckReadMemory(client, address, count);
    else
        CheckWriteMemory(client, address, count);
    camera.Receive();
}

void CheckMessage(const Bytes &datagram)
{
    const std::optional<EventMessage> message = ParseEventMessage(SpanOf(datagram));
    if (!message)
        return;
    std::size_t sum = kHeaderSize;
    for (const Datagram &event : message->events) {
        Require(event.size() > kHeaderSize, "an event has a header and more");
        const std::size_t length = event[4] << 8 | event[5];
        Require(length + kHeaderSize == event.size(), "an event is as long as it says");
        sum += length;
        const auto again = ParseEventMessage(SpanOf(event));
        Require(again && again->events.size() == 1 && again->events[0] == event, "an event alone is itself again");
    }
    Require(sum <= datagram.size(), "the events of a message lie in it");
    const Datagram bytes = MakeEventAcknowledge(*message);
    const std::optional<Acknowledge> acknowledge = ParseAcknowledge(SpanOf(bytes));
    Require(acknowledge && acknowledge->requestId == message->requestId, "the acknowledge has the message's id");
}

void CheckBare(const Bytes &datagram, std::size_t count)
{
    const std::optional<Acknowledge> acknowledge = ParseAcknowledge(SpanOf(datagram));
    if (!acknowledge)
        return;
    const orv::ByteSpan payload = acknowledge->payload;
    Require(payload.size + kHeaderSize <= datagram.size(), "the payload lies in the datagram");
    const auto values = ParseReadRegister(payload, count);
    Require(!values || (values->size() == count && 4 * count <= payload.size), "as many values as asked for");
    const auto memory = ParseReadMemory(payload, 0, count);
    Require(!memory || (memory->size == count && count + 4 <= payload.size), "as many bytes as asked for");
    (void)ParseWritten(payload);
    (void)ParsePending(payload);
    (void)ParseDiscovery(payload);
    Require(StatusFromWire(acknowledge->status, false, "read").Ok() == (acknowledge->status == 0), "0 is success");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    static Camera camera; // its address is the process's
    orv::ByteReader in({data, size});
    std::unique_ptr<GvcpClient> client;
    while (in.Rest().size != 0) {
        const std::uint8_t step = in.U8() % kSteps;
        if (step == kMessage) {
            CheckMessage(TakePiece(in));
        } else if (step == kBare) {
            const Bytes datagram = TakePiece(in);
            CheckBare(datagram, datagram.empty() ? 0 : datagram.back());
        } else {
            if (client == nullptr) {
                client = Connect(camera.Address());
                camera.BeginSession(client->LocalPort());
            }
            RunCommand(step, *client, camera, in);
            if (!client->IsAnswering())
                break; // from here on every command would only wait
        }
    }
    return 0;
}
