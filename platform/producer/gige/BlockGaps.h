#pragma once

#include "producer/gige/Resend.h"
#include "producer/gige/UdpSocket.h"

#include <algorithm>
#include <cstdint>

namespace nuvark::gige {

/// The gaps of one block as they are seen: between packets that came, and behind the last of them when newer blocks
/// have begun or nothing comes any more. They become holes of the block's plan. One thread.
class BlockGaps {
public:
    ResendPlan &Plan() { return m_plan; }
    const ResendPlan &Plan() const { return m_plan; }
    /// Below it packets are there or in a hole of the plan.
    std::uint32_t Next() const { return m_next; }

    /// When packets may be asked for that are seen to be missing from now on.
    void SetDue(TimePoint due) { m_due = due; }
    void Add(std::uint32_t first, std::uint32_t last) { m_plan.AddHole(first, last, m_due); }
    /// A packet has come: those between it and the ones before are missing.
    void Reach(std::uint32_t id)
    {
        if (id > m_next && !m_isTailNoted) // else the tail's hole holds it already
            Add(m_next, id - 1);
        m_next = std::max(m_next, id + 1);
    }
    /// The next packets have come.
    void Pass(std::uint32_t packets) { m_next += packets; }
    /// Everything behind the last packet is missing, too.
    void NoteTail(TimePoint due);
    /// Nothing comes any more: the same, but only the next packet at first, until it has come. For all that is known
    /// the camera has not sent the rest. \param end  from this packet on all at once
    void NoteSilence(std::uint32_t end, TimePoint due);
    /// The packet that was asked for in a silence when no other one has come since; else 0.
    std::uint32_t Probe() const { return m_probe != 0 && m_probe + 1 == m_next ? m_probe : 0; }
    bool IsTailNoted() const { return m_isTailNoted; }

private:
    ResendPlan m_plan;
    std::uint32_t m_next = 0;
    bool m_isTailNoted = false;
    std::uint32_t m_probe = 0;
    TimePoint m_due{};
};

} // namespace nuvark::gige
