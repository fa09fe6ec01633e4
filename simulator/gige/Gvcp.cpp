#include "simulator/gige/Gvcp.h"

#include <algorithm>

namespace orvsim {
namespace {

constexpr std::uint8_t kKey = 0x42;
constexpr std::uint32_t kToTheEnd16 = 0x00ffffff; // of packet ids with 24 bits
constexpr std::size_t kMaxEventData = 512;

} // namespace

GvcpStatus StatusOf(Outcome outcome)
{
    switch (outcome) {
    case Outcome::Ok:
        return GvcpStatus::Success;
    case Outcome::NoSuchAddress:
        return GvcpStatus::InvalidAddress;
    case Outcome::BadAlignment:
        return GvcpStatus::BadAlignment;
    case Outcome::ReadOnly:
        return GvcpStatus::WriteProtect;
    case Outcome::WriteOnly:
        return GvcpStatus::AccessDenied;
    case Outcome::InvalidValue:
        return GvcpStatus::InvalidParameter;
    }
    return GvcpStatus::Error;
}

ParsedCommand ParseCommand(orv::ByteSpan datagram)
{
    orv::ByteReader in(datagram);
    ParsedCommand command;
    const std::uint8_t key = in.U8();
    command.flags = in.U8();
    command.code = in.U16();
    const std::uint16_t length = in.U16();
    command.requestId = in.U16();
    if (!in.Ok() || key != kKey || command.requestId == 0)
        return command;
    command.framing = length <= in.Rest().size ? Framing::Good : Framing::BadLength;
    if (command.framing == Framing::Good)
        command.payload = {in.Rest().data, length};
    return command;
}

std::optional<ForceIpCommand> ParseForceIp(orv::ByteSpan payload)
{
    orv::ByteReader in(payload);
    ForceIpCommand command;
    in.Skip(2);
    command.mac = in.U48();
    in.Skip(12);
    command.address = in.U32();
    in.Skip(12);
    command.subnetMask = in.U32();
    in.Skip(12);
    command.gateway = in.U32();
    if (!in.Ok())
        return std::nullopt;
    return command;
}

std::optional<ActionCommand> ParseAction(orv::ByteSpan payload, bool scheduled)
{
    orv::ByteReader in(payload);
    ActionCommand command;
    command.deviceKey = in.U32();
    command.groupKey = in.U32();
    command.groupMask = in.U32();
    if (scheduled)
        in.Skip(8);
    if (!in.Ok())
        return std::nullopt;
    return command;
}

std::optional<ResendCommand> ParseResend(orv::ByteSpan payload, bool extendedIds)
{
    orv::ByteReader in(payload);
    ResendCommand command;
    ResendRequest &request = command.request;
    request.extendedIds = extendedIds;
    command.channel = in.U16();
    const std::uint16_t shortBlockId = in.U16();
    request.firstPacket = in.U32();
    request.lastPacket = in.U32();
    request.blockId = extendedIds ? in.U64() : shortBlockId;
    if (!extendedIds) {
        request.firstPacket &= kToTheEnd16;
        request.lastPacket &= kToTheEnd16;
        if (request.lastPacket == kToTheEnd16)
            request.lastPacket = kToBlockEnd;
    }
    if (!in.Ok())
        return std::nullopt;
    return command;
}

Datagram MakeAcknowledge(GvcpStatus status, std::uint16_t commandCode, std::uint16_t requestId, orv::ByteSpan payload)
{
    orv::ByteWriter out;
    out.U16(static_cast<std::uint16_t>(status));
    out.U16(static_cast<std::uint16_t>(commandCode + 1));
    out.U16(static_cast<std::uint16_t>(payload.size));
    out.U16(requestId);
    out.Bytes(payload);
    return out.Take();
}

std::vector<std::uint8_t> IndexPayload(std::uint16_t index)
{
    orv::ByteWriter out;
    out.U16(0);
    out.U16(index);
    return out.Take();
}

Datagram MakeEvent(const EventMessage &event, std::uint16_t requestId, bool extendedIds, bool wantsAcknowledge)
{
    const bool hasData = event.data.size > 0;
    const std::size_t dataSize = std::min(event.data.size, kMaxEventData);
    const std::size_t size = (extendedIds ? 24 : 16) + dataSize;
    orv::ByteWriter out;
    out.U8(kKey);
    out.U8(static_cast<std::uint8_t>((wantsAcknowledge ? kFlagAcknowledge : 0) | (extendedIds ? kFlagExtendedIds : 0)));
    out.U16(static_cast<std::uint16_t>(hasData ? GvcpCommand::EventData : GvcpCommand::Event));
    out.U16(static_cast<std::uint16_t>(size));
    out.U16(requestId);
    out.U16(extendedIds ? static_cast<std::uint16_t>(size) : 0); // the standard form knows no size
    out.U16(event.eventId);
    out.U16(event.channel);
    out.U16(extendedIds ? 0 : static_cast<std::uint16_t>(event.blockId));
    if (extendedIds)
        out.U64(event.blockId);
    out.U64(event.timestamp);
    out.Bytes({event.data.data, dataSize});
    return out.Take();
}

std::optional<ParsedAcknowledge> ParseAcknowledge(orv::ByteSpan datagram)
{
    orv::ByteReader in(datagram);
    const std::uint16_t status = in.U16();
    ParsedAcknowledge acknowledge;
    acknowledge.commandCode = static_cast<std::uint16_t>(in.U16() - 1);
    in.Skip(2);
    acknowledge.requestId = in.U16();
    if (!in.Ok() || status != 0)
        return std::nullopt;
    return acknowledge;
}

} // namespace orvsim
