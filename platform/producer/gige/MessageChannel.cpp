#include "producer/gige/MessageChannel.h"

#include <algorithm>

namespace nuvark::gige {

namespace {

constexpr std::size_t kReceiveBuffer = 1024 * 1024;
constexpr std::chrono::milliseconds kIdleWait{1000};
/// For longer than the camera repeats; not for longer, since one without a clock may count its messages wrongly, and
/// then two that are alike are two events.
constexpr std::chrono::milliseconds kRemembered{1000};
constexpr std::size_t kMostRemembered = 2048;

} // namespace

Result<std::unique_ptr<MessageChannel>> MessageChannel::Open(const NetworkInterface &interface, std::uint32_t camera,
                                                             const TrafficTap &tap, Handler handler)
{
    Result<UdpSocket> socket = UdpSocket::Open(interface.address);
    if (!socket.Ok())
        return socket.status;
    socket.value.SetReceiveBuffer(kReceiveBuffer);
    std::unique_ptr<MessageChannel> channel(
        new MessageChannel(interface, camera, tap, std::move(handler), std::move(socket.value)));
    if (!channel->m_stop.IsOpen())
        return Status(GC_ERR_RESOURCE_EXHAUSTED, "the process has no file descriptor left for the camera's events");
    channel->m_thread = std::thread([raw = channel.get()] { raw->Run(); });
    return channel;
}

MessageChannel::MessageChannel(const NetworkInterface &interface, std::uint32_t camera, const TrafficTap &tap,
                               Handler handler, UdpSocket socket)
    : m_interface(interface), m_camera(camera), m_tap(tap), m_handler(std::move(handler)), m_socket(std::move(socket))
{
}

MessageChannel::~MessageChannel()
{
    m_stop.Set();
    if (m_thread.joinable())
        m_thread.join();
}

void MessageChannel::SetSource(std::uint16_t port)
{
    m_source = port;
    Way({m_camera, port}).Keep(m_socket, Clock::now()); // the first event may come at once
}

void MessageChannel::Run()
{
    std::uint8_t buffer[2048];
    Way way({});
    for (std::uint16_t source = 0;;) {
        if (source != m_source) {
            source = m_source;
            way = Way({m_camera, source});
        }
        way.Keep(m_socket, Clock::now());
        const UdpSocket::Wait wait = m_socket.WaitReadable(Clock::now() + kIdleWait, &m_stop);
        if (wait == UdpSocket::Wait::Interrupted)
            return;
        if (wait == UdpSocket::Wait::TimedOut)
            continue;
        Endpoint sender;
        const std::size_t size = m_socket.Receive(buffer, sizeof buffer, &sender);
        if (size != 0 && sender.address == m_camera)
            OnDatagram({buffer, size}, sender);
    }
}

void MessageChannel::OnDatagram(orv::ByteSpan datagram, Endpoint sender)
{
    m_tap.Push(datagram);
    std::optional<EventMessage> message = ParseEventMessage(datagram);
    if (!message)
        return;
    if (message->wantsAcknowledge) {
        const Datagram acknowledge = MakeEventAcknowledge(*message);
        const orv::ByteSpan bytes{acknowledge.data(), acknowledge.size()};
        m_tap.Push(bytes);
        // One that does not get out is like one that is lost: the camera repeats its message.
        (void)m_socket.SendVia(m_interface.index, m_interface.address, sender, bytes);
    }
    if (IsRepeat(datagram))
        return;
    for (Datagram &event : message->events)
        m_handler(std::move(event));
}

/// The whole message is compared, not only its request id: those come again after 65535 messages, or in a camera that
/// counts wrongly at once.
bool MessageChannel::IsRepeat(orv::ByteSpan datagram)
{
    const auto isIt = [&](const Earlier &earlier) {
        return earlier.message.size() == datagram.size &&
               std::equal(earlier.message.begin(), earlier.message.end(), datagram.data);
    };
    const TimePoint now = Clock::now();
    while (!m_last.empty() && (now - m_last.front().time > kRemembered || m_last.size() >= kMostRemembered))
        m_last.pop_front();
    if (std::any_of(m_last.begin(), m_last.end(), isIt))
        return true;
    m_last.push_back({now, Datagram(datagram.data, datagram.data + datagram.size)});
    return false;
}

} // namespace nuvark::gige
