#pragma once

#include "base/Bytes.h"
#include "producer/Status.h"

#include <chrono>
#include <cstdint>

namespace nuvark::gige {

using Clock = std::chrono::steady_clock;
using TimePoint = Clock::time_point;

/// A file descriptor that closes itself.
class Descriptor {
public:
    Descriptor() = default;
    explicit Descriptor(int fd) : m_fd(fd) {}
    ~Descriptor() { Close(); }
    Descriptor(Descriptor &&other) noexcept : m_fd(other.m_fd) { other.m_fd = -1; }
    Descriptor &operator=(Descriptor &&other) noexcept;

    int Get() const { return m_fd; }
    bool IsOpen() const { return m_fd >= 0; }
    void Close();

private:
    int m_fd = -1;
};

/// Wakes a poll() from another thread: set once, stays set until cleared. Any thread.
class WakeUp {
public:
    WakeUp();
    void Set();
    /// False when the process had no descriptor left: then it wakes nobody.
    bool IsOpen() const { return m_event.IsOpen(); }
    int Fd() const { return m_event.Get(); }
    /// \return whether it was set before the deadline.
    bool WaitUntil(TimePoint deadline) const;

private:
    Descriptor m_event;
};

struct Endpoint {
    std::uint32_t address = 0; ///< host byte order
    std::uint16_t port = 0;
};

/// An IPv4 UDP socket, non-blocking and closed on exec.
class UdpSocket {
public:
    UdpSocket() = default; ///< not open

    /// \param address local address in host byte order, 0 for any. The port is chosen by the system.
    [[nodiscard]] static Result<UdpSocket> Open(std::uint32_t address);
    /// Gets what is sent to a multicast group through one host interface, and nothing else; other programs may listen
    /// as well.
    [[nodiscard]] static Result<UdpSocket> OpenGroup(std::uint32_t group, std::uint16_t port, int interfaceIndex);

    Status EnableBroadcast();
    /// From here on only datagrams of that peer are received.
    Status Connect(Endpoint peer);
    Status Send(orv::ByteSpan datagram);
    Status SendTo(Endpoint peer, orv::ByteSpan datagram);
    /// Sends through one host interface with that source address, whatever the routes say.
    Status SendVia(int interfaceIndex, std::uint32_t source, Endpoint peer, orv::ByteSpan datagram);

    enum class Wait { Readable, TimedOut, Interrupted };
    /// Waits until a datagram may be read, the deadline, or `wakeUp` (may be null).
    Wait WaitReadable(TimePoint deadline, const WakeUp *wakeUp) const;
    /// \return bytes stored, 0 when there was nothing or the peer's port is closed. A longer datagram is cut.
    std::size_t Receive(std::uint8_t *buffer, std::size_t capacity, Endpoint *sender = nullptr);

    /// Whether a datagram waits to be read. Any thread.
    bool HasDatagram() const;

    std::uint16_t LocalPort() const;
    int Fd() const { return m_fd.Get(); }

    /// Asks for a receive buffer, beyond the system's limit where the process may; \return the bytes that the kernel
    /// granted.
    std::size_t SetReceiveBuffer(std::size_t bytes);
    /// The kernel's count of messages that it had no room for, since the socket was opened; 0 before Linux 4.12.
    std::uint32_t Drops() const;

private:
    static UdpSocket Make();
    Status Bind(Endpoint local);

    Descriptor m_fd;
};

} // namespace nuvark::gige
