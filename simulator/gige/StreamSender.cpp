#include "simulator/gige/StreamSender.h"

#include "simulator/gige/BlockIds.h"
#include "simulator/gige/BlockSender.h"
#include "simulator/gige/CaptureWatch.h"
#include "simulator/gige/FrameHistory.h"
#include "simulator/gige/ResendAnswers.h"

#include <algorithm>
#include <atomic>
#include <optional>
#include <thread>
#include <utility>

#include <sys/prctl.h>

namespace orvsim {

namespace {

/// How long the stream's thread may take to notice that it is to end.
constexpr std::int64_t kFrameWaitMs = 50;
constexpr double kLongestPeriodNs = 1e12;
/// Answers do not hurry: live packets come first.
constexpr std::uint64_t kResendPeriodNs = 1'000'000'000;
/// Chances of resent packets are drawn apart, so that a host's requests do not change what befalls the stream.
constexpr std::uint64_t kResendSeed = 0x9e3779b97f4a7c15;

/// The stream registers' present content. Any thread.
class TargetRegister {
public:
    StreamTarget Get() const EXCLUDES(m_mutex)
    {
        const orv::MutexLock lock(m_mutex);
        return m_target;
    }
    void Set(const StreamTarget &target) EXCLUDES(m_mutex)
    {
        const orv::MutexLock lock(m_mutex);
        m_target = target;
    }

private:
    mutable orv::Mutex m_mutex;
    StreamTarget m_target GUARDED_BY(m_mutex);
};

/// Which frames are wanted, and which one is under way. Any thread.
class WantedFrames {
public:
    explicit WantedFrames(SendGate &gate) : m_gate(gate) {}

    /// \return nothing when frames of that acquisition are not wanted.
    std::optional<SendGate::Pass> Begin(std::uint64_t acquisition) EXCLUDES(m_mutex)
    {
        const orv::MutexLock lock(m_mutex);
        if (acquisition < m_first)
            return std::nullopt;
        m_underWay = acquisition;
        return m_gate.TakePass();
    }
    void End() EXCLUDES(m_mutex)
    {
        const orv::MutexLock lock(m_mutex);
        m_underWay.reset();
    }
    void DropBefore(std::uint64_t first) EXCLUDES(m_mutex)
    {
        const orv::MutexLock lock(m_mutex);
        m_first = std::max(m_first, first); // handlers may overtake each other
        if (m_underWay.has_value() && *m_underWay < m_first)
            m_gate.Shut();
    }

private:
    SendGate &m_gate;
    orv::Mutex m_mutex;
    std::uint64_t m_first GUARDED_BY(m_mutex) = 0; // acquisition
    std::optional<std::uint64_t> m_underWay GUARDED_BY(m_mutex);
};

} // namespace

struct StreamSender::Parts {
    Parts(std::shared_ptr<FrameSource> frames, std::uint64_t faultSeed, int historyFrames)
        : source(std::move(frames)), seed(faultSeed), history(static_cast<std::size_t>(std::max(historyFrames, 0)))
    {
    }

    void Run();
    void SendFrame(const FrameJob &job, SendGate::Pass pass);
    std::shared_ptr<SentBlock> NextBlock(const FrameJob &job, const StreamTarget &target, const Faults &faults);
    SendOrder ResendOrder(const Endpoint &requester) const;

    const std::shared_ptr<FrameSource> source;
    const std::uint64_t seed;
    /// Shared with the source's question for wire bytes, which may come after the end.
    const std::shared_ptr<TargetRegister> target = std::make_shared<TargetRegister>();
    SendPort port;
    WantedFrames wanted{port.gate};
    BlockIds ids;
    FrameHistory history;
    std::atomic<bool> isStopping{false};
    CaptureWatch captures;               // the stream's thread only
    std::unique_ptr<BlockSender> sender; // made by Open(), then the stream's thread only
    std::unique_ptr<ResendAnswers> answers;
    std::thread thread;
};

StreamSender::StreamSender(std::shared_ptr<FrameSource> source, std::uint64_t seed, int historyFrames)
    : m_parts(std::make_unique<Parts>(std::move(source), seed, historyFrames))
{
    m_parts->source->SetWireBytes([target = m_parts->target](std::size_t payloadBytes) {
        const StreamTarget now = target->Get();
        return now.isMultiPart ? MultiPartEthernetBytes(payloadBytes, now.packetSize)
                               : WireBytes(payloadBytes, now.packetSize, now.extendedIds);
    });
}

StreamSender::~StreamSender()
{
    Stop();
}

std::string StreamSender::Open(std::uint32_t address)
{
    for (StreamSocket *socket : {&m_parts->port.socket, &m_parts->port.foreignSocket}) {
        const std::string problem = socket->Open(address);
        if (!problem.empty())
            return problem;
    }
    Parts &parts = *m_parts;
    parts.port.socket.SetDontFragment(parts.target->Get().dontFragment);
    parts.sender = std::make_unique<BlockSender>(parts.port, parts.seed);
    parts.answers =
        std::make_unique<ResendAnswers>(parts.port, parts.history, parts.seed ^ kResendSeed,
                                        [&parts](const Endpoint &requester) { return parts.ResendOrder(requester); });
    return {};
}

std::uint16_t StreamSender::SourcePort() const
{
    return m_parts->port.socket.Port();
}

void StreamSender::Start()
{
    if (m_parts->sender == nullptr || m_parts->thread.joinable())
        return;
    m_parts->isStopping = false;
    m_parts->answers->Start();
    m_parts->thread = std::thread([parts = m_parts.get()] { parts->Run(); });
}

void StreamSender::Stop()
{
    if (!m_parts->thread.joinable())
        return;
    m_parts->isStopping = true;
    m_parts->port.gate.Shut();
    m_parts->thread.join();
    m_parts->answers->Stop();
}

void StreamSender::SetTarget(const StreamTarget &target)
{
    m_parts->target->Set(target);
    if (target.to.port == 0)
        m_parts->port.gate.Shut();
    if (m_parts->port.socket.Fd() >= 0)
        m_parts->port.socket.SetDontFragment(target.dontFragment);
}

void StreamSender::DropBefore(std::uint64_t first)
{
    m_parts->wanted.DropBefore(first);
}

void StreamSender::FireTestPacket()
{
    const StreamTarget target = m_parts->target->Get();
    const std::vector<std::uint8_t> datagram = MakeTestPacket(target);
    const std::uint32_t mtu = m_parts->port.pathMtu;
    if (target.to.port == 0 || (mtu > 0 && datagram.size() + gvsp::kIpAndUdpBytes > mtu))
        return;
    if (!m_parts->port.socket.Send({datagram.data(), datagram.size()}, target.to))
        ++m_parts->port.counts.sendErrors;
}

void StreamSender::SetPathMtu(std::uint32_t bytes)
{
    m_parts->port.pathMtu = bytes;
}

void StreamSender::Resend(const ResendRequest &request, const Endpoint &requester)
{
    if (m_parts->answers != nullptr)
        m_parts->answers->Push(request, requester);
}

std::uint64_t StreamSender::BlockIdOf(std::uint64_t frameNumber) const
{
    const std::int64_t first = m_parts->source->CurrentFaults().firstBlockId;
    return BlockIdOnWire(m_parts->ids.CountOf(frameNumber, first), m_parts->target->Get().extendedIds);
}

StreamCounts StreamSender::Counts() const
{
    return m_parts->port.counts.Read();
}

std::uint64_t StreamSender::WireBytes(std::size_t payloadBytes, std::uint32_t packetSize, bool extendedIds)
{
    return EthernetBytes(payloadBytes, packetSize, extendedIds);
}

void StreamSender::Parts::Run()
{
    // The kernel may else let every pause between packets last 50 us longer.
    prctl(PR_SET_TIMERSLACK, 1UL, 0UL, 0UL, 0UL);
    while (!isStopping) {
        const std::optional<FrameJob> job = source->WaitForFrame(kFrameWaitMs);
        if (!job.has_value() || isStopping)
            continue;
        // The pass first: whatever closes the channel from here on is noticed.
        if (const auto pass = wanted.Begin(job->acquisition))
            SendFrame(*job, *pass);
        wanted.End();
    }
}

void StreamSender::Parts::SendFrame(const FrameJob &job, SendGate::Pass pass)
{
    SendOrder order;
    order.pass = pass;
    const StreamTarget now = target->Get();
    if (now.to.port == 0 || isStopping)
        return;
    order.to = now.to;
    order.faults = source->CurrentFaults();
    port.mayBeSegmented = !captures.SomebodyReads(job.number == 0);
    order.packetDelayNs = now.packetDelayNs;
    order.periodNs = static_cast<std::uint64_t>(std::clamp(job.periodNs, 0.0, kLongestPeriodNs));
    const std::shared_ptr<SentBlock> block = NextBlock(job, now, order.faults);
    if (block == nullptr)
        return;

    BlockSender::FrameTroubles troubles;
    troubles.lossShare = job.lossShare;
    const auto every = static_cast<std::uint64_t>(std::max<std::int64_t>(order.faults.stallEvery, 0));
    if (every > 0 && (job.number + 1) % every == 0)
        troubles.stallMs = order.faults.stallMs;
    if (!sender->Send(*block, order, troubles)) {
        history.Remove(*block); // its rest is not to be had either
        return;
    }
    ++port.counts.frames;
    source->FrameSent(job);
}

std::shared_ptr<SentBlock> StreamSender::Parts::NextBlock(const FrameJob &job, const StreamTarget &now,
                                                          const Faults &faults)
{
    std::shared_ptr<Frame> frame = source->TakeFrame(job);
    if (frame == nullptr)
        return nullptr;
    if (ids.BeginsAnew(job.number)) {
        sender->Restart();
        history.Clear();
    }
    const std::uint64_t id = BlockIdOnWire(ids.Next(job.number, faults, sender->Dice()), now.extendedIds);
    auto sent = std::make_shared<SentBlock>();
    sent->block = MakeBlock(std::move(frame), now, id);
    sent->block.countsFromPart = faults.partOffsets != 0;
    sent->isLinkFull = job.lossShare > 0;
    history.Add(sent);
    return sent;
}

SendOrder StreamSender::Parts::ResendOrder(const Endpoint &requester) const
{
    SendOrder order;
    order.pass = port.gate.TakePass();
    const StreamTarget now = target->Get();
    if (now.to.port != 0)
        order.to = now.resendToRequester ? requester : now.to;
    order.faults = source->CurrentFaults();
    order.packetDelayNs = now.packetDelayNs;
    order.periodNs = kResendPeriodNs;
    order.extendedStatus = now.extendedStatus;
    return order;
}

} // namespace orvsim
