#include "simulator/gige/ResendAnswers.h"

#include <algorithm>
#include <utility>

namespace orvsim {

namespace {

constexpr std::size_t kMostWaiting = 256;

enum ResendMode : std::int64_t { kSendAgain = 0, kRefuse = 1, kIgnore = 2 };

} // namespace

ResendAnswers::ResendAnswers(SendPort &port, const FrameHistory &history, std::uint64_t seed,
                             std::function<SendOrder(const Endpoint &)> order)
    : m_port(port), m_history(history), m_order(std::move(order)), m_sender(port, seed)
{
}

ResendAnswers::~ResendAnswers()
{
    Stop();
}

void ResendAnswers::Start()
{
    {
        const orv::MutexLock lock(m_mutex);
        m_isStopping = false;
    }
    m_thread = std::thread([this] { Run(); });
}

void ResendAnswers::Stop()
{
    if (!m_thread.joinable())
        return;
    {
        const orv::MutexLock lock(m_mutex);
        m_isStopping = true;
        m_waiting.clear();
    }
    m_changed.NotifyAll();
    m_thread.join();
}

void ResendAnswers::Push(const ResendRequest &request, const Endpoint &requester)
{
    {
        const orv::MutexLock lock(m_mutex);
        if (m_isStopping || m_waiting.size() >= kMostWaiting)
            return;
        m_waiting.push_back({request, requester});
    }
    m_changed.NotifyOne();
}

void ResendAnswers::Run()
{
    orv::MutexLock lock(m_mutex);
    for (;;) {
        while (m_waiting.empty() && !m_isStopping)
            m_changed.Wait(m_mutex);
        if (m_isStopping)
            return;
        const Entry entry = m_waiting.front();
        m_waiting.pop_front();
        lock.Unlock();
        Answer(entry);
        lock.Lock();
    }
}

void ResendAnswers::Answer(const Entry &entry)
{
    const SendOrder order = m_order(entry.requester);
    const ResendRequest &request = entry.request;
    if (order.to.port == 0 || order.faults.resendMode == kIgnore || request.lastPacket < request.firstPacket)
        return;
    const std::shared_ptr<SentBlock> sent = m_history.Find(request.blockId, request.extendedIds);
    if (sent == nullptr || order.faults.resendMode == kRefuse)
        Refuse(request, gvsp::kStatusUnavailable, order);
    else
        AnswerFrom(*sent, request, order);
}

/// In the order of the ids: packets that were sent, packets that will be, packets that the block does not have.
void ResendAnswers::AnswerFrom(SentBlock &sent, const ResendRequest &request, const SendOrder &order)
{
    const std::uint32_t count = sent.block.packetCount;
    const std::uint32_t sentEnd = std::min(sent.packetsSent.load(), count);
    const std::uint32_t first = request.firstPacket;
    const std::uint32_t last = request.lastPacket == kToBlockEnd ? std::max(first, count - 1) : request.lastPacket;
    if (first < sentEnd && sent.isLinkFull)
        m_port.counts.lostOnLink += std::min(last, sentEnd - 1) - first + 1;
    else if (first < sentEnd)
        m_sender.SendAgain(sent, first, std::min(last, sentEnd - 1), order);

    ResendRequest rest = request;
    rest.firstPacket = std::max(first, sentEnd);
    rest.lastPacket = std::min(last, count - 1);
    Refuse(rest, order.extendedStatus ? gvsp::kStatusNotYet : gvsp::kStatusUnavailable, order);
    rest.firstPacket = std::max(first, count);
    rest.lastPacket = last;
    Refuse(rest, gvsp::kStatusUnavailable, order);
}

void ResendAnswers::Refuse(const ResendRequest &request, std::uint16_t status, const SendOrder &order)
{
    if (request.lastPacket < request.firstPacket)
        return;
    // Who asks for the end of a block whose length is unknown gets one answer.
    const bool isOpenEnded = request.lastPacket == kToBlockEnd;
    const std::uint32_t most = isOpenEnded ? 0 : std::min(request.lastPacket - request.firstPacket, kMostRefusals - 1);
    for (std::uint32_t i = 0; i <= most; ++i) {
        ++m_port.counts.refusedPackets;
        m_sender.SendSingle(MakeRefusal(status, request.blockId, request.firstPacket + i, request.extendedIds), order);
    }
}

} // namespace orvsim
