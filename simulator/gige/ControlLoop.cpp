#include "simulator/gige/ControlLoop.h"

#include <algorithm>
#include <array>

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

namespace orvsim {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t kMaxWaiting = 1024;
constexpr std::chrono::milliseconds kTickPeriod{20};
constexpr int kDatagramsPerTurn = 64; // of one socket, so that none starves the others

} // namespace

ControlLoop::ControlLoop(ControlServer &server, MessageChannel &messages)
    : m_server(server), m_messages(messages), m_wake(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC))
{
}

ControlLoop::~ControlLoop()
{
    Stop();
}

std::string ControlLoop::Open(const NetworkAddress &network)
{
    auto sockets = std::make_unique<ControlSockets>();
    const std::string problem = sockets->Open(network);
    if (problem.empty())
        m_sockets = std::move(sockets);
    return problem;
}

bool ControlLoop::MoveTo(const NetworkAddress &network)
{
    return Open(network).empty();
}

void ControlLoop::Start()
{
    m_isStopping = false;
    m_thread = std::thread([this] { Run(); });
}

void ControlLoop::Stop()
{
    if (m_thread.joinable()) {
        m_isStopping = true;
        Wake();
        m_thread.join();
    }
    m_waiting.clear();
    m_sockets.reset();
}

void ControlLoop::Wake()
{
    const std::uint64_t one = 1;
    [[maybe_unused]] const ssize_t written = write(m_wake.Get(), &one, sizeof one); // full: it is awake already
}

void ControlLoop::Run()
{
    while (!m_isStopping) {
        const TimePoint now = Clock::now();
        m_server.Tick(now);
        for (const Reply &message : m_messages.Tick(now))
            m_sockets->Send(ControlSockets::Messages, message.to, message.bytes);
        SendDue(now);
        Wait();
        ReceiveAll();
    }
}

void ControlLoop::Wait()
{
    std::array<pollfd, ControlSockets::kChannels + 1> polled = {};
    polled[0] = {m_wake.Get(), POLLIN, 0};
    for (int i = 0; i < ControlSockets::kChannels; ++i)
        polled[static_cast<std::size_t>(i) + 1] = {m_sockets->Fd(static_cast<ControlSockets::Channel>(i)), POLLIN, 0};
    std::chrono::nanoseconds pause = kTickPeriod;
    if (!m_waiting.empty())
        pause = std::clamp<std::chrono::nanoseconds>(m_waiting.begin()->first - Clock::now(), {}, kTickPeriod);
    const timespec limit = {0, static_cast<long>(pause.count())};
    ppoll(polled.data(), polled.size(), &limit, nullptr);
    std::uint64_t count = 0;
    [[maybe_unused]] const ssize_t cleared = read(m_wake.Get(), &count, sizeof count);
}

void ControlLoop::ReceiveAll()
{
    // A FORCEIP among them replaces the sockets; each turn asks the present ones.
    for (int i = 0; i < ControlSockets::kChannels; ++i) {
        const auto channel = static_cast<ControlSockets::Channel>(i);
        for (int n = 0; n < kDatagramsPerTurn; ++n) {
            const auto arrival = m_sockets->Receive(channel);
            if (!arrival)
                break;
            const orv::ByteSpan bytes{arrival->bytes.data(), arrival->bytes.size()};
            const TimePoint now = Clock::now();
            if (channel == ControlSockets::Messages)
                m_messages.Receive(arrival->from, bytes);
            else if (channel == ControlSockets::Control)
                Take(m_server.Handle(arrival->from, bytes, now));
            else
                Take(m_server.HandleBroadcast(arrival->from, bytes, now));
        }
    }
}

void ControlLoop::Take(std::vector<Reply> replies)
{
    for (Reply &reply : replies) {
        if (m_waiting.size() >= kMaxWaiting)
            return;
        const TimePoint at = reply.at;
        m_waiting.emplace(at, std::move(reply));
    }
    SendDue(Clock::now());
}

void ControlLoop::SendDue(TimePoint now)
{
    if (m_server.IsVanished(now))
        m_waiting.clear();
    while (!m_waiting.empty() && m_waiting.begin()->first <= now) {
        const Reply &reply = m_waiting.begin()->second;
        m_sockets->Send(ControlSockets::Control, reply.to, reply.bytes);
        m_waiting.erase(m_waiting.begin());
    }
}

} // namespace orvsim
