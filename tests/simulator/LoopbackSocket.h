#pragma once

#include "simulator/gige/Endpoint.h"

#include <cstdint>
#include <optional>
#include <vector>

namespace orvsim {

/// A plain UDP socket on 127.0.0.1, with room for a stream. Nothing waits longer than 10 s.
class LoopbackSocket {
public:
    LoopbackSocket();
    ~LoopbackSocket();
    LoopbackSocket(const LoopbackSocket &) = delete;

    Endpoint Where() const;
    std::uint16_t Port() const { return Where().port; }
    void Send(const Endpoint &to, const Datagram &bytes);

    struct Arrival {
        Endpoint from;
        Datagram bytes;
    };
    std::optional<Arrival> Receive(int limitMs = 10'000);
    /// The next datagram; empty when none comes.
    Datagram Next();
    /// So many datagrams; fewer when they do not come.
    std::vector<Datagram> Take(std::size_t count);

private:
    int m_fd;
};

} // namespace orvsim
