#include "producer/gige/GvcpClient.h"

#include "producer/gige/Text.h"

#include <thread>

namespace nuvark::gige {

namespace {

using std::chrono::milliseconds;

constexpr int kTries = 4;
constexpr milliseconds kMaxTimeout{1000};
constexpr milliseconds kTimeoutNotAnswering{100};
constexpr milliseconds kQuickTimeout{60};
/// A camera that says "pending" for longer than this counts as not answering.
constexpr milliseconds kMaxPending{30000};
constexpr int kBusyRepeats = 3;
constexpr milliseconds kBusyPause{20};

/// Releases a mutex that is held already.
class SCOPED_CAPABILITY AdoptedLock {
public:
    explicit AdoptedLock(orv::Mutex &mutex) REQUIRES(mutex) : m_mutex(mutex) {}
    ~AdoptedLock() RELEASE() { m_mutex.unlock(); }

private:
    orv::Mutex &m_mutex;
};

} // namespace

Status Outward(Status status)
{
    if (status.Code() == GC_ERR_TIMEOUT)
        return {GC_ERR_IO, status.Text()};
    return status;
}

Result<std::unique_ptr<GvcpClient>> GvcpClient::Open(std::uint32_t local, std::uint32_t remote)
{
    Result<UdpSocket> socket = UdpSocket::Open(local);
    if (!socket.Ok())
        return socket.status;
    const Status connected = socket.value.Connect({remote, kControlPort});
    if (!connected.Ok())
        return connected;
    return std::unique_ptr<GvcpClient>(new GvcpClient(std::move(socket.value)));
}

void GvcpClient::SetPendingTimeout(milliseconds time)
{
    m_timeoutMs = static_cast<int>(std::clamp(time, milliseconds(kBaseTimeoutMs), kMaxTimeout).count());
}

void GvcpClient::Interrupt()
{
    m_interrupted = true;
    m_interrupt.Set();
}

void GvcpClient::Resume()
{
    const orv::MutexLock lock(m_mutex);
    m_interrupt.Clear();
    m_interrupted = false;
}

GvcpClient::Plan GvcpClient::PlanFor(Effort effort) const
{
    if (effort == Effort::Quick)
        return {1, kQuickTimeout};
    if (effort == Effort::Once)
        return {1, milliseconds(m_timeoutMs)};
    return m_answering ? Plan{kTries, milliseconds(m_timeoutMs)} : Plan{1, kTimeoutNotAnswering};
}

std::uint16_t GvcpClient::NextId()
{
    m_lastId = m_lastId == 0xFFFF ? 1 : m_lastId + 1;
    return m_lastId;
}

template <class MakeDatagram>
Status GvcpClient::Transact(Command command, Effort effort, const std::string &context, MakeDatagram make,
                            std::vector<std::uint8_t> &payload)
{
    const bool isWrite = command == Command::WriteRegister || command == Command::WriteMemory;
    for (int repeat = 0;; ++repeat) {
        std::uint16_t wireStatus = kStatusSuccess;
        {
            if (effort != Effort::Quick)
                m_mutex.lock();
            else if (!m_mutex.try_lock())
                return {GC_ERR_BUSY, context + ": the control channel is in use"};
            const AdoptedLock lock(m_mutex);
            const std::uint16_t requestId = NextId();
            Status status =
                TransactOnce(command, PlanFor(effort), context, make(requestId), requestId, payload, wireStatus);
            if (!status.Ok())
                return status;
        }
        // A camera that is busy may be asked again, under a new id: the old one would only repeat its answer.
        if (wireStatus != kStatusBusy || repeat >= kBusyRepeats || effort != Effort::Normal)
            return StatusFromWire(wireStatus, isWrite, context);
        std::this_thread::sleep_for(kBusyPause);
    }
}

Status GvcpClient::TransactOnce(Command command, const Plan &plan, const std::string &context, const Datagram &datagram,
                                std::uint16_t requestId, std::vector<std::uint8_t> &payload, std::uint16_t &wireStatus)
{
    std::uint8_t buffer[2048];
    for (int attempt = 0; attempt < plan.tries; ++attempt) {
        const Status sent = m_socket.Send({datagram.data(), datagram.size()});
        if (!sent.Ok())
            return {sent.Code(), context + ": " + sent.Text()};
        TimePoint deadline = Clock::now() + plan.timeout;
        for (;;) {
            // The flag decides, the event only wakes: a Resume() may have cleared it in between.
            const UdpSocket::Wait wait = m_socket.WaitReadable(deadline, &m_interrupt);
            if (m_interrupted)
                return {GC_ERR_ABORT, context + ": the connection is being closed"};
            if (wait == UdpSocket::Wait::TimedOut)
                break;
            const std::size_t size = m_socket.Receive(buffer, sizeof buffer);
            const std::optional<Acknowledge> acknowledge = ParseAcknowledge({buffer, size});
            // Anything else is a late answer to an earlier command.
            if (!acknowledge || acknowledge->requestId != requestId)
                continue;
            Touch();
            m_answering = true;
            if (acknowledge->code == kPendingAcknowledge) {
                const milliseconds more(ParsePending(acknowledge->payload).value_or(0));
                deadline = Clock::now() + std::min(more + plan.timeout, kMaxPending);
                continue;
            }
            if (acknowledge->code != AcknowledgeOf(command))
                continue;
            wireStatus = acknowledge->status;
            payload.assign(acknowledge->payload.data, acknowledge->payload.data + acknowledge->payload.size);
            return {};
        }
    }
    m_answering = false;
    return {GC_ERR_TIMEOUT, context + ": the camera does not answer"};
}

Status GvcpClient::ReadRegister(std::uint32_t address, std::uint32_t &value, Effort effort)
{
    std::vector<std::uint8_t> payload;
    const std::string context = "read register " + Hex(address);
    Status status = Transact(
        Command::ReadRegister, effort, context, [&](std::uint16_t id) { return MakeReadRegister(id, {address}); },
        payload);
    if (!status.Ok())
        return status;
    const auto values = ParseReadRegister({payload.data(), payload.size()}, 1);
    if (!values)
        return {GC_ERR_IO, context + ": the camera's answer is too short"};
    value = values->front();
    return {};
}

Status GvcpClient::WriteRegister(std::uint32_t address, std::uint32_t value, Effort effort)
{
    std::vector<std::uint8_t> payload;
    return Transact(
        Command::WriteRegister, effort, "write register " + Hex(address),
        [&](std::uint16_t id) {
            return MakeWriteRegister(id, {{address, value}});
        },
        payload);
}

Status GvcpClient::ReadMemory(std::uint32_t address, std::uint8_t *data, std::size_t count)
{
    std::vector<std::uint8_t> payload;
    const std::string context = "read " + std::to_string(count) + " bytes at " + Hex(address);
    Status status = Transact(
        Command::ReadMemory, Effort::Normal, context,
        [&](std::uint16_t id) { return MakeReadMemory(id, address, static_cast<std::uint16_t>(count)); }, payload);
    if (!status.Ok())
        return status;
    const auto bytes = ParseReadMemory({payload.data(), payload.size()}, address, count);
    if (!bytes)
        return {GC_ERR_IO, context + ": the camera's answer is too short or for another address"};
    std::memcpy(data, bytes->data, count);
    return {};
}

Status GvcpClient::WriteMemory(std::uint32_t address, orv::ByteSpan data)
{
    std::vector<std::uint8_t> payload;
    return Transact(
        Command::WriteMemory, Effort::Normal, "write " + std::to_string(data.size) + " bytes at " + Hex(address),
        [&](std::uint16_t id) { return MakeWriteMemory(id, address, data); }, payload);
}

} // namespace nuvark::gige
