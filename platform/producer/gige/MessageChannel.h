#pragma once

#include "producer/gige/GvcpEvents.h"
#include "producer/gige/NetworkInterfaces.h"
#include "producer/gige/UdpSocket.h"
#include "producer/gige/Way.h"
#include "producer/TrafficTap.h"

#include <atomic>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <thread>

namespace nuvark::gige {

/// The host's end of a camera's message channel: acknowledges what the camera tells and hands the events on.
///
/// Each message is acknowledged before anything is done with it. A repeat, which a camera sends when the acknowledge
/// was lost, is acknowledged again and told to nobody. Datagrams of other senders are dropped.
/// Life: listens from Open() to its end, on a thread of its own. The handler gets one event at a time on that thread,
/// as a command with its header; it must not block for long and must not end the channel.
class MessageChannel {
public:
    using Handler = std::function<void(Datagram event)>;

    /// The camera still has to be told where to send to.
    [[nodiscard]] static Result<std::unique_ptr<MessageChannel>>
    Open(const NetworkInterface &interface, std::uint32_t camera, const TrafficTap &tap, Handler handler);
    ~MessageChannel();

    std::uint16_t Port() const { return m_socket.LocalPort(); }
    /// The port that the camera sends from, when it says so: from now on the way from there is kept open. Any thread.
    void SetSource(std::uint16_t port);

private:
    MessageChannel(const NetworkInterface &interface, std::uint32_t camera, const TrafficTap &tap, Handler handler,
                   UdpSocket socket);

    void Run(); // body of m_thread
    void OnDatagram(orv::ByteSpan datagram, Endpoint sender);
    /// Remembers it when it is none.
    bool IsRepeat(orv::ByteSpan datagram);

    const NetworkInterface m_interface;
    const std::uint32_t m_camera;
    const TrafficTap &m_tap;
    const Handler m_handler;
    UdpSocket m_socket;
    WakeUp m_stop;
    std::atomic<std::uint16_t> m_source{0};
    struct Earlier {
        TimePoint time;
        Datagram message;
    };
    std::deque<Earlier> m_last; ///< of the last second, own thread only
    std::thread m_thread;
};

} // namespace nuvark::gige
