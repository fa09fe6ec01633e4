#include "cli/MessageEvents.h"

#include "base/Bytes.h"

#include <algorithm>

namespace orvcli {

namespace {

constexpr std::uint8_t kCommandKey = 0x42;
constexpr std::uint8_t kExtendedIds = 0x10;
constexpr std::uint16_t kEventCommand = 0x00c0;
constexpr std::uint16_t kEventDataCommand = 0x00c2;
constexpr std::size_t kHeaderBytes = 8;

/// \param eventSize  what the event says of its own size; 0 in the older form
MessageEvent ReadEvent(orv::ByteReader &in, bool isExtended, std::uint16_t &eventSize)
{
    MessageEvent event;
    eventSize = in.U16();
    event.id = in.U16();
    in.Skip(2); // stream channel
    event.block = in.U16();
    if (isExtended)
        event.block = in.U64();
    event.timestamp = in.U64();
    return event;
}

} // namespace

std::vector<MessageEvent> ReadMessageEvents(const void *packet, std::size_t size)
{
    std::vector<MessageEvent> events;
    orv::ByteReader header({static_cast<const std::uint8_t *>(packet), size});
    const std::uint8_t key = header.U8();
    const bool isExtended = (header.U8() & kExtendedIds) != 0;
    const std::uint16_t command = header.U16();
    const std::size_t length = header.U16();
    header.Skip(2); // request id
    if (!header.Ok() || key != kCommandKey || (command != kEventCommand && command != kEventDataCommand))
        return events;
    orv::ByteReader in({header.Rest().data, std::min(length, size - kHeaderBytes)});
    const std::size_t fixedBytes = isExtended ? 24 : 16;
    while (in.Rest().size >= fixedBytes) {
        std::uint16_t eventSize = 0;
        MessageEvent event = ReadEvent(in, isExtended, eventSize);
        // Only the extended form tells the size of an event with data; else the one event fills the packet.
        if (command == kEventDataCommand) {
            const bool tellsSize = isExtended && eventSize >= fixedBytes;
            event.dataBytes = tellsSize ? std::min(eventSize - fixedBytes, in.Rest().size) : in.Rest().size;
            in.Skip(event.dataBytes);
        }
        events.push_back(event);
    }
    return events;
}

} // namespace orvcli
