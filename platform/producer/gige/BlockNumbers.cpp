#include "producer/gige/BlockNumbers.h"

namespace nuvark::gige {

namespace {

/// A block up to this far behind the newest is late; farther behind, the camera has begun to count anew.
constexpr std::int64_t kLateDistance = 100;
/// A packet other than a leader opens a block only this close to the newest one; anything else is junk.
constexpr std::int64_t kBlindDistance = 16;
constexpr std::uint64_t kShortIds = 65535; ///< how many there are

} // namespace

std::int64_t BlockNumbers::Distance(std::uint64_t id) const
{
    if (m_extended)
        return static_cast<std::int64_t>(id - m_newest);
    const auto distance = static_cast<std::int16_t>(id - m_newest);
    // 65535 is followed by 1: across the wrap there is one number less than there seems to be.
    if (distance > 0 && id < m_newest)
        return distance - 1;
    if (distance < 0 && id > m_newest)
        return distance + 1;
    return distance;
}

BlockNumbers::Place BlockNumbers::PlaceOf(const StreamPacket &packet) const
{
    if (!m_started)
        return Place::Next;
    if (packet.extendedIds != m_extended)
        return Place::Strange;
    const std::int64_t distance = Distance(packet.blockId);
    if (distance <= 0 && distance > -kLateDistance)
        return Place::Past;
    return distance == 1 ? Place::Next : Place::Strange;
}

bool BlockNumbers::IsNear(const StreamPacket &packet) const
{
    const std::int64_t distance = packet.extendedIds == m_extended ? Distance(packet.blockId) : 0;
    return distance > 0 && distance <= kBlindDistance;
}

std::uint64_t BlockNumbers::Before(std::uint64_t places) const
{
    if (places < m_newest)
        return m_newest - places;
    return m_extended ? 0 : m_newest + kShortIds - places;
}

BlockNumbers::Step BlockNumbers::Advance(const StreamPacket &packet, TimePoint now)
{
    Step step;
    const std::int64_t distance = Distance(packet.blockId);
    if (m_started && packet.extendedIds == m_extended && IsAhead(distance, now)) {
        step.leftOut = static_cast<std::uint64_t>(distance - 1);
        const auto interval = std::chrono::duration_cast<std::chrono::microseconds>(now - m_lastBegin);
        const std::chrono::microseconds each = interval / distance;
        m_frameTime = m_frameTime ? (3 * *m_frameTime + each) / 4 : each;
    } else {
        step.isAnew = m_started;
    }
    m_started = true;
    m_newest = packet.blockId;
    m_extended = packet.extendedIds;
    m_lastBegin = now;
    return step;
}

/// Far ahead the camera counts anew, unless it may have sent as many frames since.
bool BlockNumbers::IsAhead(std::int64_t distance, TimePoint now) const
{
    if (distance <= kLateDistance)
        return distance > 0;
    return m_frameTime && m_frameTime->count() > 0 && distance / 2 <= (now - m_lastBegin) / *m_frameTime;
}

} // namespace nuvark::gige
