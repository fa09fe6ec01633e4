#pragma once

#include "producer/gige/UdpSocket.h"

namespace nuvark::gige {

/// Keeps firewalls and address translators between a camera and one of our sockets open: they let in what answers
/// something that went out, to where it came from, for some minutes. One thread.
class Way {
public:
    /// \param far where the camera sends from; port 0 when it does not say, then nothing is done.
    explicit Way(Endpoint far) : m_far(far) {}

    /// Sends something small when it is due again.
    void Keep(UdpSocket &socket, TimePoint now);

private:
    Endpoint m_far;
    TimePoint m_due{};
};

} // namespace nuvark::gige
