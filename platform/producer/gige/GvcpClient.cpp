#include "producer/gige/GvcpClient.h"

#include "producer/gige/Bootstrap.h"
#include "producer/gige/Text.h"

#include <thread>

namespace nuvark::gige {

namespace {

using std::chrono::milliseconds;

constexpr milliseconds kLongestStated{10000};
constexpr milliseconds kLongestTry{1000};
constexpr milliseconds kTimeoutNotAnswering{100};
constexpr milliseconds kQuickTimeout{60};
constexpr int kLastTries = 2;
constexpr int kBusyRepeats = 3;

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

Result<std::unique_ptr<GvcpClient>> GvcpClient::Open(std::uint32_t local, std::uint32_t remote, const Timing &timing)
{
    Result<UdpSocket> socket = UdpSocket::Open(local);
    if (!socket.Ok())
        return socket.status;
    const Status connected = socket.value.Connect({remote, kControlPort});
    if (!connected.Ok())
        return connected;
    std::unique_ptr<GvcpClient> client(new GvcpClient(std::move(socket.value), timing));
    if (!client->m_interrupt.IsOpen())
        return Status(GC_ERR_IO, "the process has no file descriptor left for the control channel");
    return client;
}

void GvcpClient::SetPendingTimeout(milliseconds time)
{
    m_statedMs = static_cast<int>(std::min(time, kLongestStated).count());
}

void GvcpClient::Interrupt()
{
    m_interrupted = true;
    m_interrupt.Set();
}

bool GvcpClient::IsWrite(Command command)
{
    return command == Command::WriteRegister || command == Command::WriteMemory;
}

GvcpClient::Plan GvcpClient::PlanFor(const Request &request) const
{
    const milliseconds stated(m_statedMs);
    const milliseconds silence(m_silenceLimitMs);
    Plan plan{1, std::clamp(stated, m_timing.firstTry, kLongestTry),
              std::clamp(stated, m_timing.furtherTry, kLongestTry), silence};
    if (request.effort == Effort::Once)
        return plan;
    if (request.effort == Effort::Quick)
        return {1, kQuickTimeout, kQuickTimeout, silence};
    if (request.effort == Effort::Last)
        return {kLastTries, kQuickTimeout, kQuickTimeout, silence};
    if (!m_answering)
        return {1, kTimeoutNotAnswering, kTimeoutNotAnswering, silence};
    milliseconds total = std::max(m_timing.total, stated);
    if (IsWrite(request.command) && request.address >= kFirstMakerRegister) {
        plan.isSlow = true;
        plan.furtherTry = kLongestTry; // each may be carried out again by a camera that does not know repeats
        plan.patience = std::max(silence, stated);
        total = std::max(m_timing.slowTotal, stated);
    }
    const milliseconds rest = std::max(total - plan.firstTry, milliseconds(0));
    plan.tries += static_cast<int>((rest + plan.furtherTry - milliseconds(1)) / plan.furtherTry);
    return plan;
}

std::uint16_t GvcpClient::NextId()
{
    m_lastId = m_lastId == 0xFFFF ? 1 : m_lastId + 1;
    return m_lastId;
}

template <class MakeDatagram>
Status GvcpClient::Transact(const Request &request, MakeDatagram make, std::vector<std::uint8_t> &payload)
{
    for (int repeat = 0;; ++repeat) {
        std::uint16_t wireStatus = kStatusSuccess;
        {
            if (request.effort != Effort::Quick)
                m_mutex.lock();
            else if (!m_mutex.try_lock())
                return {GC_ERR_BUSY, request.context + ": the control channel is in use"};
            const AdoptedLock lock(m_mutex);
            const std::uint16_t id = NextId();
            Exchange exchange{request, id, make(id), {}, {}, kStatusSuccess};
            Status status = TransactOnce(exchange);
            if (!status.Ok())
                return status;
            payload = std::move(exchange.payload);
            wireStatus = exchange.wireStatus;
        }
        // A camera that is busy may be asked again, under a new id: the old one would only repeat its answer.
        const bool isRepeated = request.mayBeRepeated && request.effort == Effort::Normal && repeat < kBusyRepeats;
        if (wireStatus != kStatusBusy || !isRepeated)
            return StatusFromWire(wireStatus, IsWrite(request.command), request.context);
        std::this_thread::sleep_for(m_timing.busyPause);
    }
}

Status GvcpClient::TransactOnce(Exchange &exchange)
{
    const std::string &context = exchange.request.context;
    const Plan plan = PlanFor(exchange.request);
    const TimePoint start = Clock::now();
    std::string reason = "the camera does not answer";
    for (int attempt = 0; attempt < plan.tries; ++attempt) {
        if (m_interrupted && exchange.request.effort != Effort::Last)
            return {GC_ERR_ABORT, context + ": the connection is being closed"};
        const TimePoint giveUp = std::max(start + m_timing.total, LastAnswer() + plan.patience);
        if (attempt != 0 && Clock::now() >= giveUp)
            break;
        const Status sent = Send(exchange.datagram);
        if (!sent.Ok())
            reason = sent.Text(); // a link may come back
        if (attempt != 0 && plan.isSlow)
            AskWhetherThere();
        const milliseconds wait = attempt == 0 ? plan.firstTry : plan.furtherTry;
        const Outcome outcome = Await(exchange, plan, std::min(Clock::now() + wait, giveUp));
        if (outcome == Outcome::Answered)
            return {};
        if (outcome == Outcome::Interrupted)
            return {GC_ERR_ABORT, context + ": the connection is being closed"};
        if (exchange.pendingUntil && Clock::now() >= *exchange.pendingUntil)
            return {GC_ERR_TIMEOUT, context + ": the camera goes on putting the answer off"};
    }
    if (exchange.request.effort == Effort::Normal && LastAnswer() < start)
        m_answering = false;
    return {GC_ERR_TIMEOUT, context + ": " + reason};
}

GvcpClient::Outcome GvcpClient::Await(Exchange &exchange, const Plan &plan, TimePoint deadline)
{
    const bool isLast = exchange.request.effort == Effort::Last;
    do {
        // The flag decides, the event only wakes.
        const UdpSocket::Wait wait = m_socket.WaitReadable(deadline, isLast ? nullptr : &m_interrupt);
        if (m_interrupted && !isLast)
            return Outcome::Interrupted;
        if (wait == UdpSocket::Wait::TimedOut)
            return Outcome::NoAnswer;
        if (TakeAcknowledge(exchange, plan, deadline))
            return Outcome::Answered;
    } while (Clock::now() < deadline); // however many other datagrams there are
    return Outcome::NoAnswer;
}

bool GvcpClient::TakeAcknowledge(Exchange &exchange, const Plan &plan, TimePoint &deadline)
{
    std::uint8_t buffer[2048];
    const std::size_t size = m_socket.Receive(buffer, sizeof buffer);
    if (m_tap != nullptr && size != 0)
        m_tap->Push({buffer, size});
    const std::optional<Acknowledge> acknowledge = ParseAcknowledge({buffer, size});
    if (!acknowledge)
        return false;
    Touch();
    m_answering = true;
    if (acknowledge->requestId != exchange.id)
        return false; // a late answer to an earlier command, but a sign of life
    if (acknowledge->code == kPendingAcknowledge) {
        const TimePoint now = Clock::now();
        if (!exchange.pendingUntil)
            exchange.pendingUntil = now + m_timing.pending;
        const milliseconds more(ParsePending(acknowledge->payload).value_or(0));
        deadline = std::min(now + more + plan.furtherTry, *exchange.pendingUntil);
        return false;
    }
    if (acknowledge->code != AcknowledgeOf(exchange.request.command))
        return false;
    exchange.wireStatus = acknowledge->status;
    exchange.payload.assign(acknowledge->payload.data, acknowledge->payload.data + acknowledge->payload.size);
    return true;
}

/// Nobody waits for the answer: that one comes is enough.
void GvcpClient::AskWhetherThere()
{
    (void)Send(MakeReadRegister(NextId(), {kRegControlPrivilege}));
}

Status GvcpClient::SendUnanswered(orv::ByteSpan datagram)
{
    if (m_tap != nullptr)
        m_tap->Push(datagram);
    return m_socket.Send(datagram);
}

Status GvcpClient::ReadRegister(std::uint32_t address, std::uint32_t &value, Effort effort)
{
    std::vector<std::uint8_t> payload;
    const std::string context = "read register " + Hex(address);
    Status status = Transact(
        {Command::ReadRegister, address, effort, context},
        [&](std::uint16_t id) { return MakeReadRegister(id, {address}); }, payload);
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
    const auto make = [&](std::uint16_t id) { return MakeWriteRegister(id, {{address, value}}); };
    return Transact({Command::WriteRegister, address, effort, "write register " + Hex(address)}, make, payload);
}

Status GvcpClient::ReadRegisters(const std::vector<std::uint32_t> &addresses, std::vector<std::uint32_t> &values)
{
    std::vector<std::uint8_t> payload;
    const std::string context = "read " + std::to_string(addresses.size()) + " registers from " + Hex(addresses[0]);
    Status status = Transact(
        {Command::ReadRegister, addresses[0], Effort::Normal, context},
        [&](std::uint16_t id) { return MakeReadRegister(id, addresses); }, payload);
    if (!status.Ok())
        return status;
    auto read = ParseReadRegister({payload.data(), payload.size()}, addresses.size());
    if (!read)
        return {GC_ERR_IO, context + ": the camera's answer is too short"};
    values = std::move(*read);
    return {};
}

Status GvcpClient::WriteRegisters(const std::vector<RegisterWrite> &writes, std::optional<std::size_t> &done)
{
    std::vector<std::uint8_t> payload;
    std::uint32_t highest = 0; // decides how long the camera may take
    for (const RegisterWrite &write : writes)
        highest = std::max(highest, write.address);
    const std::string context = "write " + std::to_string(writes.size()) + " registers from " + Hex(writes[0].address);
    Status status = Transact(
        {Command::WriteRegister, highest, Effort::Normal, context, false},
        [&](std::uint16_t id) { return MakeWriteRegister(id, writes); }, payload);
    if (status.Ok())
        done = writes.size();
    else if (const auto written = ParseWritten({payload.data(), payload.size()}))
        done = std::min<std::size_t>(*written, writes.size());
    return status;
}

Status GvcpClient::ReadMemory(std::uint32_t address, std::uint8_t *data, std::size_t count)
{
    std::vector<std::uint8_t> payload;
    const std::string context = "read " + std::to_string(count) + " bytes at " + Hex(address);
    const auto make = [&](std::uint16_t id) { return MakeReadMemory(id, address, static_cast<std::uint16_t>(count)); };
    Status status = Transact({Command::ReadMemory, address, Effort::Normal, context}, make, payload);
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
    const std::string context = "write " + std::to_string(data.size) + " bytes at " + Hex(address);
    return Transact(
        {Command::WriteMemory, address, Effort::Normal, context},
        [&](std::uint16_t id) { return MakeWriteMemory(id, address, data); }, payload);
}

} // namespace nuvark::gige
