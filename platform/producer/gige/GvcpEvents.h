#pragma once

#include "producer/gige/Gvcp.h"

#include <cstdint>
#include <optional>
#include <vector>

/// Wire form of what a device tells over its message channel: pure functions over byte spans, no sockets.
namespace nuvark::gige {

/// An EVENT or EVENTDATA command, taken apart.
struct EventMessage {
    std::uint16_t command = 0;
    std::uint16_t requestId = 0;
    bool wantsAcknowledge = false;
    /// Each event of the message as a command of its own, header included, in the order they came.
    std::vector<Datagram> events;
};

/// Nothing when the datagram is no such command or shorter than its header says. Events that do not fit in are left
/// out.
std::optional<EventMessage> ParseEventMessage(orv::ByteSpan datagram);

Datagram MakeEventAcknowledge(const EventMessage &message);

} // namespace nuvark::gige
