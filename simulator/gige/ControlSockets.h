#pragma once

#include "base/Bytes.h"
#include "simulator/gige/BootstrapState.h"
#include "simulator/gige/Endpoint.h"

#include <array>
#include <cstdint>
#include <optional>
#include <string>

namespace orvsim {

/// A file descriptor that is closed with its owner.
class Descriptor {
public:
    explicit Descriptor(int fd = -1) : m_fd(fd) {}
    ~Descriptor();
    Descriptor(Descriptor &&other) noexcept;
    Descriptor &operator=(Descriptor &&other) noexcept;
    int Get() const { return m_fd; }
    bool IsOpen() const { return m_fd >= 0; }

private:
    int m_fd;
};

/// The sockets of one camera besides its stream: control and messages on its own address, and two that hear broadcasts
/// to everybody and to the subnet. Broadcasts that came by an interface without the camera's address are not given out.
/// One thread.
class ControlSockets {
public:
    enum Channel { Control, GlobalBroadcast, SubnetBroadcast, Messages, kChannels };

    /// \return what went wrong, naming the address; empty on success. Without broadcasts (the system does not allow the
    ///         address) it still succeeds: the camera answers when asked directly.
    std::string Open(const NetworkAddress &network);

    /// -1 for a socket that is not there.
    int Fd(Channel channel) const { return m_sockets[channel].Get(); }
    std::uint16_t MessagePort() const { return m_messagePort; }

    struct Arrival {
        Endpoint from;
        Datagram bytes;
    };
    /// \return nothing when no datagram waits.
    std::optional<Arrival> Receive(Channel channel);
    /// From the control or the message socket. What the system does not take is lost, as on the network.
    void Send(Channel channel, const Endpoint &to, const Datagram &bytes);

private:
    std::array<Descriptor, kChannels> m_sockets;
    std::uint16_t m_messagePort = 0;
    int m_interface = 0; ///< index of the one with the address
};

} // namespace orvsim
