#include "simulator/gige/MessageChannel.h"

#include "simulator/gige/Gvcp.h"

namespace orvsim {

void MessageChannel::SetTarget(const MessageTarget &target)
{
    orv::MutexLock lock(m_mutex);
    if (target.to != m_target.to) {
        m_queue.clear();
        m_outstanding.reset();
    }
    m_target = target;
}

bool MessageChannel::Push(const DeviceEvent &event, std::uint64_t blockId)
{
    orv::MutexLock lock(m_mutex);
    if (m_target.to.port == 0)
        return false;
    if (m_queue.size() >= m_capacity) {
        ++m_counts.dropped;
        return false;
    }
    m_queue.push_back({event, blockId});
    return true;
}

void MessageChannel::Receive(const Endpoint &from, orv::ByteSpan datagram)
{
    const auto acknowledge = ParseAcknowledge(datagram);
    orv::MutexLock lock(m_mutex);
    if (!acknowledge || !m_outstanding || from != m_target.to)
        return;
    if (acknowledge->requestId == m_outstanding->requestId && acknowledge->commandCode == m_outstanding->commandCode)
        m_outstanding.reset();
}

std::vector<Reply> MessageChannel::Tick(TimePoint now)
{
    std::vector<Reply> out;
    orv::MutexLock lock(m_mutex);
    while (m_target.to.port != 0 && !IsWaiting(now, out) && !m_queue.empty())
        SendNext(now, out);
    return out;
}

MessageCounts MessageChannel::Counts() const
{
    orv::MutexLock lock(m_mutex);
    return m_counts;
}

bool MessageChannel::IsWaiting(TimePoint now, std::vector<Reply> &out)
{
    if (!m_outstanding)
        return false;
    if (now < m_outstanding->deadline)
        return true;
    if (m_outstanding->repeats >= m_target.retries) {
        ++m_counts.unanswered;
        m_outstanding.reset();
        return false;
    }
    ++m_outstanding->repeats;
    ++m_counts.repeated;
    m_outstanding->deadline = now + std::chrono::milliseconds(m_target.timeoutMs);
    out.push_back({m_target.to, m_outstanding->bytes, now});
    return true;
}

void MessageChannel::SendNext(TimePoint now, std::vector<Reply> &out)
{
    const Queued next = std::move(m_queue.front());
    m_queue.pop_front();
    m_lastRequestId = m_lastRequestId == 0xffff ? 1 : static_cast<std::uint16_t>(m_lastRequestId + 1);
    EventMessage message;
    message.eventId = next.event.id;
    message.blockId = next.blockId;
    message.timestamp = next.event.timestampNs;
    message.data = {next.event.data.data(), next.event.data.size()};
    const bool wantsAcknowledge = m_target.timeoutMs > 0 && m_target.retries > 0;
    Datagram bytes = MakeEvent(message, m_lastRequestId, m_target.extendedIds, wantsAcknowledge);
    ++m_counts.sent;
    out.push_back({m_target.to, bytes, now});
    if (!wantsAcknowledge)
        return;
    const GvcpCommand command = next.event.data.empty() ? GvcpCommand::Event : GvcpCommand::EventData;
    m_outstanding = {std::move(bytes), m_lastRequestId, static_cast<std::uint16_t>(command), 0,
                     now + std::chrono::milliseconds(m_target.timeoutMs)};
}

} // namespace orvsim
