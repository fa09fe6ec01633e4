#include "producer/gige/Way.h"

namespace nuvark::gige {

namespace {

/// Ways that nothing has come back on are forgotten after 30 s by common firewalls.
constexpr std::chrono::seconds kPeriod{25};

} // namespace

void Way::Keep(UdpSocket &socket, TimePoint now)
{
    if (m_far.port == 0 || now < m_due)
        return;
    m_due = now + kPeriod;
    const std::uint8_t nothing[4] = {}; // no command and no acknowledge of any protocol that the camera speaks
    (void)socket.SendTo(m_far, {nothing, sizeof nothing});
}

} // namespace nuvark::gige
