#include "producer/gige/GvcpClient.h"

#include "producer/gige/Bootstrap.h"
#include "producer/gige/Text.h"

#include <limits>

namespace nuvark::gige {

namespace {

using std::chrono::milliseconds;

constexpr milliseconds kLongestStated{10000};
constexpr milliseconds kLongestTry{1000};
constexpr milliseconds kTimeoutNotAnswering{100};
constexpr milliseconds kQuickTimeout{60};
constexpr int kLastTries = 2;
constexpr int kBusyRepeats = 5;
/// How long a beat waits for its turn before, and then after, it has sent a question beside the command under way.
constexpr milliseconds kBeatTurn{100};
/// Datagrams of a camera may overtake each other by so much.
constexpr milliseconds kOvertaking{50};

/// Ends a turn that was taken.
class SCOPED_CAPABILITY TurnEnd {
public:
    explicit TurnEnd(Turn &turn) REQUIRES(turn) : m_turn(turn) {}
    ~TurnEnd() RELEASE() { m_turn.GiveBack(); }

private:
    Turn &m_turn;
};

} // namespace

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
        return Status(GC_ERR_RESOURCE_EXHAUSTED, "the process has no file descriptor left for the control channel");
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

Clock::duration GvcpClient::AskedInVain() const
{
    // What lies unread tells that not the camera is late but who reads it.
    return m_socket.HasDatagram() ? Clock::duration(0) : m_silence.InVain(Clock::now());
}

GvcpClient::Plan GvcpClient::PlanFor(const Request &request) const
{
    const milliseconds stated(m_statedMs);
    const milliseconds silence(m_silenceLimitMs);
    const auto shortTries = [&](int tries, milliseconds each) {
        return Plan{tries, each, each, tries * each, silence};
    };
    const auto triesFor = [](milliseconds time, milliseconds each) {
        return static_cast<int>((time + each - milliseconds(1)) / each);
    };
    const milliseconds first = std::clamp(stated, m_timing.firstTry, kLongestTry);
    if (request.effort == Effort::Beat)
        return shortTries(triesFor(first, m_timing.firstTry), m_timing.firstTry);
    if (request.effort == Effort::Quick)
        return shortTries(1, kQuickTimeout);
    if (request.effort == Effort::Last)
        return shortTries(kLastTries, kQuickTimeout);
    if (!m_answering)
        return shortTries(1, kTimeoutNotAnswering);
    Plan plan{1, first, std::clamp(stated, m_timing.furtherTry, kLongestTry), std::max(m_timing.total, stated),
              silence};
    if (IsWrite(request.command) && request.address >= kFirstMakerRegister) {
        plan.isSlow = true;
        plan.tries = std::numeric_limits<int>::max();
        plan.furtherTry = kLongestTry; // each may be carried out again by a camera that does not know repeats
        plan.patience = std::max(silence, stated);
        plan.total = std::max(m_timing.slowTotal, stated);
    } else {
        plan.tries += triesFor(std::max(plan.total - first, milliseconds(0)), plan.furtherTry);
    }
    return plan;
}

std::uint16_t GvcpClient::NextId()
{
    std::uint16_t id = ++m_lastId;
    while (id == 0)
        id = ++m_lastId;
    return id;
}

bool GvcpClient::TakeTurn(Effort effort)
{
    if (effort == Effort::Quick)
        return m_turn.TakeAtOnce();
    if (effort != Effort::Beat) {
        m_turn.Take(effort == Effort::Last ? Turn::Rank::Urgent : Turn::Rank::Ordinary);
        return true;
    }
    if (m_turn.TakeUntil(Clock::now() + kBeatTurn))
        return true;
    // The camera's heartbeat timer goes on while it carries out a long command.
    AskWhetherThere();
    return m_turn.TakeUntil(Clock::now() + kBeatTurn);
}

Status GvcpClient::Transact(const Request &request, const MakeDatagram &make, std::vector<std::uint8_t> &payload)
{
    milliseconds pause = m_timing.busyPause;
    for (int repeat = 0;; ++repeat, pause *= 2) {
        std::uint16_t wireStatus = kStatusSuccess;
        {
            if (!TakeTurn(request.effort))
                return {GC_ERR_BUSY, request.context + ": the control channel is in use"};
            const TurnEnd end(m_turn);
            const std::uint16_t id = NextId();
            Exchange exchange{request, id, make(id)};
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
        if (m_interrupt.WaitUntil(Clock::now() + pause))
            return {GC_ERR_ABORT, request.context + ": the connection is being closed"};
    }
}

TimePoint GvcpClient::GiveUpTime(const Request &request, const Plan &plan, TimePoint start) const
{
    const TimePoint silent = LastAnswer() + plan.patience;
    if (request.effort == Effort::Beat)
        return std::max(start + plan.firstTry, std::min(start + plan.total, silent));
    if (plan.isSlow)
        return std::min(start + plan.total, std::max(start + m_timing.total, silent));
    return std::max(start + plan.total, silent);
}

Status GvcpClient::SendTry(Exchange &exchange, const Plan &plan, int attempt)
{
    if (plan.isSlow && attempt != 0 && !exchange.isOvertaken) {
        AskWhetherThere();
        return {};
    }
    exchange.isOvertaken = false;
    exchange.repeatAfter = Clock::now() + (attempt == 0 ? plan.firstTry : plan.furtherTry);
    Status sent = Send(exchange.datagram);
    exchange.lastIdBefore = m_lastId; // now: a question of the heartbeat with an earlier id may have gone out before
    return sent;
}

Status GvcpClient::TransactOnce(Exchange &exchange)
{
    const std::string &context = exchange.request.context;
    const Plan plan = PlanFor(exchange.request);
    const TimePoint start = Clock::now();
    std::string reason = "the camera does not answer";
    if (plan.isSlow && plan.patience.count() > m_silenceLimitMs)
        m_silence.Excuse(start + plan.patience + kLongestTry);
    for (int attempt = 0; attempt < plan.tries; ++attempt) {
        if (m_interrupted && exchange.request.effort != Effort::Last)
            return {GC_ERR_ABORT, context + ": the connection is being closed"};
        const TimePoint giveUp = GiveUpTime(exchange.request, plan, start);
        if (attempt != 0 && Clock::now() >= giveUp)
            break;
        const Status sent = SendTry(exchange, plan, attempt);
        if (!sent.Ok())
            reason = sent.Text(); // a link may come back
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
    m_silence.OnHeard(Clock::now());
    m_answering = true;
    if (acknowledge->requestId != exchange.id) {
        // A late answer to an earlier command is a sign of life; one to a later question says that this one is lost.
        const auto later = static_cast<std::int16_t>(acknowledge->requestId - exchange.lastIdBefore);
        if (plan.isSlow && !exchange.pendingUntil && !exchange.isOvertaken && later > 0) {
            exchange.isOvertaken = true;
            deadline = std::min(deadline, std::max(Clock::now() + kOvertaking, exchange.repeatAfter));
        }
        return false;
    }
    if (acknowledge->code == kPendingAcknowledge) {
        TakePending(exchange, plan, acknowledge->payload, deadline);
        return false;
    }
    if (acknowledge->code != AcknowledgeOf(exchange.request.command))
        return false;
    exchange.wireStatus = acknowledge->status;
    exchange.payload.assign(acknowledge->payload.data, acknowledge->payload.data + acknowledge->payload.size);
    return true;
}

void GvcpClient::TakePending(Exchange &exchange, const Plan &plan, orv::ByteSpan payload, TimePoint &deadline)
{
    const TimePoint now = Clock::now();
    if (!exchange.pendingUntil)
        exchange.pendingUntil = now + m_timing.pending;
    const milliseconds more(ParsePending(payload).value_or(0));
    deadline = std::min(now + more + plan.furtherTry, *exchange.pendingUntil);
    if (more <= kLongestTry)
        return;
    // It may do nothing else until then. One that answers others meanwhile need not be waited for when it vanishes.
    m_silence.Excuse(deadline + kLongestTry);
    AskWhetherThere();
}

void GvcpClient::AskWhetherThere()
{
    (void)Send(MakeReadRegister(NextId(), {kRegControlPrivilege}));
}

Status GvcpClient::Send(const Datagram &datagram)
{
    m_silence.OnAsked(Clock::now());
    return SendUnanswered({datagram.data(), datagram.size()});
}

Status GvcpClient::SendUnanswered(orv::ByteSpan datagram)
{
    if (m_tap != nullptr)
        m_tap->Push(datagram);
    return m_socket.Send(datagram);
}

} // namespace nuvark::gige
