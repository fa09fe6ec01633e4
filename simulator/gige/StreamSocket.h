#pragma once

#include "base/Bytes.h"
#include "simulator/gige/Endpoint.h"

#include <cstdint>
#include <string>

namespace orvsim {

/// A UDP socket that frames are sent from: a large send buffer, never blocking. Closes itself.
///
/// Threads: Open() first; then every function from any thread.
class StreamSocket {
public:
    StreamSocket() = default;
    ~StreamSocket();
    StreamSocket(const StreamSocket &) = delete;
    StreamSocket &operator=(const StreamSocket &) = delete;

    /// Binds to an address of this machine (host byte order) with a free port.
    /// \return what went wrong; empty on success.
    std::string Open(std::uint32_t address);
    int Fd() const { return m_fd; }
    std::uint16_t Port() const { return m_port; }
    /// True: packets larger than the path's MTU are refused, false: they go in fragments.
    void SetDontFragment(bool dontFragment);
    /// \return false when the system did not take it.
    bool Send(orv::ByteSpan datagram, const Endpoint &to);

private:
    int m_fd = -1;
    std::uint16_t m_port = 0;
};

} // namespace orvsim
