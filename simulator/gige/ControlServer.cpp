#include "simulator/gige/ControlServer.h"

#include <algorithm>

namespace orvsim {
namespace {

using std::chrono::milliseconds;

// Packets that may be asked for again: far more than a working link needs, and a bound for everybody else.
constexpr double kResentPerSecond = 200000;
constexpr double kResentAtOnce = 50000;

constexpr std::uint16_t kMaxPendingMs = 0xffff;
constexpr std::uint16_t kWrongIdOffset = 1000; // of the fault "answers with another id"

Datagram Copy(orv::ByteSpan bytes)
{
    return Datagram(bytes.data, bytes.data + bytes.size);
}

bool MayComeByBroadcast(const ParsedCommand &command)
{
    return command.Is(GvcpCommand::Discovery) || command.Is(GvcpCommand::ForceIp) || command.Is(GvcpCommand::Action);
}

} // namespace

ControlServer::ControlServer(Bootstrap &bootstrap, ControlledDevice &device, MessageChannel &messages,
                             std::uint64_t seed)
    : m_bootstrap(bootstrap), m_device(device), m_messages(messages), m_dice(seed),
      m_resendBudget(kResentPerSecond, kResentAtOnce)
{
}

std::vector<Reply> ControlServer::Handle(const Endpoint &from, orv::ByteSpan datagram, TimePoint now)
{
    return Serve(from, datagram, ParseCommand(datagram), now);
}

std::vector<Reply> ControlServer::HandleBroadcast(const Endpoint &from, orv::ByteSpan datagram, TimePoint now)
{
    const ParsedCommand command = ParseCommand(datagram);
    if (command.framing != Framing::Good || !MayComeByBroadcast(command))
        return {};
    return Serve(from, datagram, command, now);
}

std::vector<Reply> ControlServer::Serve(const Endpoint &from, orv::ByteSpan datagram, const ParsedCommand &command,
                                        TimePoint now)
{
    Tick(now);
    if (command.framing == Framing::NotForUs || IsVanished(now))
        return {};
    const Request request{from, command, now};
    if (command.framing == Framing::BadLength)
        return Respond(request, datagram, nullptr, Failure(GvcpStatus::InvalidHeader));
    if (m_bootstrap.State().IsController(from))
        m_heardAt = now;

    const HandlerRow *row = FindHandler(command);
    if (row == nullptr)
        return Respond(request, datagram, nullptr, Failure(GvcpStatus::NotImplemented));
    if (row->isRemembered) {
        if (const AnswerCache::Entry *entry = m_cache.Find(from, datagram, now))
            return Repeat(request, *entry);
        if (m_dice.Falls(m_faults.answerErrorRate))
            return Respond(request, datagram, nullptr, Failure(GvcpStatus::Busy));
    }
    const Answer answer = (this->*row->handle)(request);
    return Respond(request, datagram, row, answer);
}

std::vector<Reply> ControlServer::Repeat(const Request &request, const AnswerCache::Entry &entry)
{
    std::vector<Reply> out;
    if (entry.answer.empty())
        return out;
    if (request.now >= entry.dueAt) {
        Send(request.from, entry.answer, request.now, out);
        return out;
    }
    // Still at it: the answer comes on its own. Say so where the host understands it.
    const auto leftMs = std::chrono::ceil<milliseconds>(entry.dueAt - request.now).count();
    if ((m_bootstrap.State().gvcpConfiguration & kConfigPending) != 0) {
        const auto payload = IndexPayload(static_cast<std::uint16_t>(std::min<std::int64_t>(leftMs, kMaxPendingMs)));
        out.push_back({request.from,
                       MakeAcknowledge(GvcpStatus::Success, static_cast<std::uint16_t>(GvcpCommand::Pending),
                                       request.command.requestId, {payload.data(), payload.size()}),
                       request.now});
    }
    return out;
}

std::vector<Reply> ControlServer::Respond(const Request &request, orv::ByteSpan datagram, const HandlerRow *row,
                                          const Answer &answer)
{
    std::vector<Reply> out;
    const TimePoint dueAt = request.now + milliseconds(answer.delayMs + answer.busyMs);
    const bool isAnswered = request.command.Has(kFlagAcknowledge) && !answer.isSilent;
    Datagram bytes;
    if (isAnswered)
        bytes = MakeAcknowledge(answer.status, request.command.code, request.command.requestId,
                                {answer.payload.data(), answer.payload.size()});
    if (row != nullptr && row->isRemembered) {
        const TimePoint sentAt = dueAt + milliseconds(m_faults.answerDelayMs);
        m_cache.Remember({request.from, Copy(datagram), bytes, request.now, sentAt});
        if (answer.busyMs > 0)
            out = Repeat(request, *m_cache.Find(request.from, datagram, request.now)); // PENDING_ACK, if wanted
    }
    const Endpoint to = answer.isBroadcast ? Endpoint{0xffffffff, request.from.port} : request.from;
    if (isAnswered)
        Send(to, bytes, dueAt, out);
    return out;
}

void ControlServer::Send(const Endpoint &to, const Datagram &bytes, TimePoint at, std::vector<Reply> &out)
{
    if (m_dice.Falls(m_faults.answerNotRate))
        return;
    Reply reply{to, bytes, at + milliseconds(m_faults.answerDelayMs)};
    if (m_dice.Falls(m_faults.answerWrongIdRate)) {
        const int id = (reply.bytes[6] << 8 | reply.bytes[7]) + kWrongIdOffset;
        reply.bytes[6] = static_cast<std::uint8_t>(id >> 8);
        reply.bytes[7] = static_cast<std::uint8_t>(id);
    }
    out.push_back(reply);
    if (m_dice.Falls(m_faults.answerTwiceRate))
        out.push_back(reply);
}

void ControlServer::Tick(TimePoint now)
{
    m_faults = m_device.CurrentFaults();
    ApplyChanges(now);
    if (m_isResetRequested.exchange(false))
        Restart(now);
    const BootstrapState state = m_bootstrap.State();
    if (!state.IsControlled())
        return;
    const bool hasHeartbeat = (state.gvcpConfiguration & kConfigHeartbeatOff) == 0;
    if (hasHeartbeat && now - m_heardAt > milliseconds(state.heartbeatMs))
        DropControl(now);
    else
        CheckFaults(now);
}

void ControlServer::CheckFaults(TimePoint now)
{
    const auto isOver = [&](std::int64_t ms) { return ms > 0 && now - m_controlSince >= milliseconds(ms); };
    if (isOver(m_faults.vanishAfterMs)) {
        m_vanishedUntil = m_faults.vanishForMs > 0 ? now + milliseconds(m_faults.vanishForMs) : TimePoint::max();
        Restart(now); // it comes back as switched on
        m_device.Reset();
    } else if (isOver(m_faults.loseControlAfterMs)) {
        DropControl(now);
    }
}

void ControlServer::DropControl(TimePoint now)
{
    m_cache.Clear(); // a command to take control, sent again, has to be done again
    m_bootstrap.ReleaseControl();
    ApplyChanges(now);
}

/// An address that was forced upon the device does not last.
void ControlServer::Restart(TimePoint now)
{
    DropControl(now);
    m_bootstrap.ResetState();
    ApplyChanges(now);
    const NetworkAddress network = m_bootstrap.ConfiguredNetwork();
    if (m_device.MoveTo(network))
        m_bootstrap.SetNetwork(network);
}

void ControlServer::ApplyChanges(TimePoint now)
{
    const std::uint32_t changes = m_bootstrap.TakeChanges();
    if (changes == 0)
        return;
    const BootstrapState state = m_bootstrap.State();
    if ((changes & kControlTaken) != 0)
        m_heardAt = m_controlSince = now;
    if ((changes & kStreamChanged) != 0)
        m_device.SetStreamTarget(state.Stream());
    if ((changes & kMessagesChanged) != 0)
        m_messages.SetTarget(state.Messages());
    if ((changes & kControlLost) != 0)
        m_device.StopAcquisition();
    if ((changes & kLatchTimestamp) != 0)
        m_bootstrap.SetLatchedTimestamp(m_device.Now());
    if ((changes & kResetTimestamp) != 0)
        m_device.ResetClock();
    if ((changes & kFireTestPacket) != 0)
        m_device.FireTestPacket();
}

} // namespace orvsim
