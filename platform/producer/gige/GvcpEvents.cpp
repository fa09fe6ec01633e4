#include "producer/gige/GvcpEvents.h"

namespace nuvark::gige {

namespace {

constexpr std::uint16_t kEvent = 0x00C0;
constexpr std::uint16_t kEventData = 0x00C2;
constexpr std::uint8_t kKey = 0x42;
constexpr std::uint8_t kAcknowledgeRequired = 0x01;
constexpr std::uint8_t kExtendedIds = 0x10;
/// Bytes of an event in front of its data: with block ids of 16 and of 64 bits.
constexpr std::size_t kEventHead = 16;
constexpr std::size_t kExtendedEventHead = 24;

/// Bytes of the event at the beginning of `rest`; 0 when there is none.
std::size_t EventSize(orv::ByteSpan rest, std::uint16_t command, bool extended)
{
    const std::size_t head = extended ? kExtendedEventHead : kEventHead;
    if (rest.size < head)
        return 0;
    if (command == kEventData && !extended)
        return rest.size; // always alone
    // The first field is reserved in older devices; where it says something it is the size.
    const std::size_t stated = orv::ByteReader(rest).U16();
    if (stated == 0)
        return command == kEventData ? rest.size : head;
    if (stated >= head)
        return stated <= rest.size ? stated : 0;
    return command == kEventData ? 0 : head;
}

Datagram MakeSingle(std::uint8_t flags, const EventMessage &message, orv::ByteSpan event)
{
    orv::ByteWriter out;
    out.U8(kKey);
    out.U8(flags);
    out.U16(message.command);
    out.U16(static_cast<std::uint16_t>(event.size));
    out.U16(message.requestId);
    out.Bytes(event);
    return out.Take();
}

} // namespace

std::optional<EventMessage> ParseEventMessage(orv::ByteSpan datagram)
{
    orv::ByteReader in(datagram);
    const std::uint8_t key = in.U8();
    const std::uint8_t flags = in.U8();
    EventMessage message;
    message.command = in.U16();
    const std::size_t length = in.U16();
    message.requestId = in.U16();
    orv::ByteSpan rest = in.Rest();
    if (!in.Ok() || key != kKey || (message.command != kEvent && message.command != kEventData) || rest.size < length)
        return std::nullopt;
    rest.size = length;
    message.wantsAcknowledge = (flags & kAcknowledgeRequired) != 0;
    const bool extended = (flags & kExtendedIds) != 0;
    while (const std::size_t size = EventSize(rest, message.command, extended)) {
        message.events.push_back(MakeSingle(flags, message, {rest.data, size}));
        rest = {rest.data + size, rest.size - size};
    }
    return message;
}

Datagram MakeEventAcknowledge(const EventMessage &message)
{
    orv::ByteWriter out;
    out.U16(kStatusSuccess);
    out.U16(static_cast<std::uint16_t>(message.command + 1));
    out.U16(0);
    out.U16(message.requestId);
    return out.Take();
}

} // namespace nuvark::gige
