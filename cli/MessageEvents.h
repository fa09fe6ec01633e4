#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace orvcli {

/// One event of a camera's message channel.
struct MessageEvent {
    std::uint16_t id = 0;
    std::uint64_t block = 0;     ///< frame that it belongs to, 0 for none
    std::uint64_t timestamp = 0; ///< camera ticks
    std::size_t dataBytes = 0;   ///< that came with it
};

/// The events in one packet of the message channel, as on the wire: EVENT_CMD and EVENTDATA_CMD of GigE Vision 2, in
/// both forms of ids. Nothing for any other packet; of a short one what is whole.
std::vector<MessageEvent> ReadMessageEvents(const void *packet, std::size_t size);

} // namespace orvcli
