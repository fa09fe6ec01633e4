#include "producer/gige/Gvcp.h"

#include "producer/gige/Text.h"

namespace nuvark::gige {

namespace {

constexpr std::uint8_t kKey = 0x42;
constexpr std::uint8_t kAcknowledgeRequired = 0x01;
constexpr std::uint8_t kAllowBroadcastAnswer = 0x10;

Datagram MakeCommand(Command command, std::uint8_t flags, std::uint16_t requestId, orv::ByteSpan payload)
{
    orv::ByteWriter out;
    out.U8(kKey);
    out.U8(flags);
    out.U16(static_cast<std::uint16_t>(command));
    out.U16(static_cast<std::uint16_t>(payload.size));
    out.U16(requestId);
    out.Bytes(payload);
    return out.Take();
}

Datagram MakeCommand(Command command, std::uint16_t requestId, orv::ByteWriter &payload)
{
    const std::vector<std::uint8_t> bytes = payload.Take();
    return MakeCommand(command, kAcknowledgeRequired, requestId, {bytes.data(), bytes.size()});
}

struct StatusRow {
    std::uint16_t wire;
    const char *text;
    GC_ERROR onRead;
    GC_ERROR onWrite;
};

constexpr StatusRow kStatusRows[] = {
    {0x8001, "not implemented", GC_ERR_NOT_IMPLEMENTED, GC_ERR_NOT_IMPLEMENTED},
    {0x8002, "invalid parameter", GC_ERR_INVALID_PARAMETER, GC_ERR_INVALID_VALUE},
    {0x8003, "invalid address", GC_ERR_INVALID_ADDRESS, GC_ERR_INVALID_ADDRESS},
    {0x8004, "write protected", GC_ERR_ACCESS_DENIED, GC_ERR_ACCESS_DENIED},
    {0x8005, "bad alignment", GC_ERR_INVALID_ADDRESS, GC_ERR_INVALID_ADDRESS},
    {kStatusAccessDenied, "access denied", GC_ERR_ACCESS_DENIED, GC_ERR_ACCESS_DENIED},
    {kStatusBusy, "busy", GC_ERR_BUSY, GC_ERR_BUSY},
    {0x800E, "invalid header", GC_ERR_IO, GC_ERR_IO},
};

} // namespace

Datagram MakeDiscovery(std::uint16_t requestId, bool allowBroadcastAnswer)
{
    const std::uint8_t flags = kAcknowledgeRequired | (allowBroadcastAnswer ? kAllowBroadcastAnswer : 0);
    return MakeCommand(Command::Discovery, flags, requestId, {});
}

Datagram MakeForceAddress(std::uint16_t requestId, const std::array<std::uint8_t, 6> &mac, std::uint32_t address,
                          std::uint32_t mask, std::uint32_t gateway)
{
    const std::uint8_t none[12] = {};
    orv::ByteWriter payload;
    payload.U16(0);
    payload.Bytes({mac.data(), mac.size()});
    for (std::uint32_t field : {address, mask, gateway}) { // at 20, 36 and 52
        payload.Bytes({none, sizeof none});
        payload.U32(field);
    }
    const std::vector<std::uint8_t> bytes = payload.Take();
    return MakeCommand(Command::ForceAddress, kAcknowledgeRequired | kAllowBroadcastAnswer, requestId,
                       {bytes.data(), bytes.size()});
}

Datagram MakeReadRegister(std::uint16_t requestId, const std::vector<std::uint32_t> &addresses)
{
    orv::ByteWriter payload;
    for (std::uint32_t address : addresses)
        payload.U32(address);
    return MakeCommand(Command::ReadRegister, requestId, payload);
}

Datagram MakeWriteRegister(std::uint16_t requestId, const std::vector<RegisterWrite> &writes)
{
    orv::ByteWriter payload;
    for (const RegisterWrite &write : writes) {
        payload.U32(write.address);
        payload.U32(write.value);
    }
    return MakeCommand(Command::WriteRegister, requestId, payload);
}

Datagram MakeReadMemory(std::uint16_t requestId, std::uint32_t address, std::uint16_t count)
{
    orv::ByteWriter payload;
    payload.U32(address);
    payload.U16(0);
    payload.U16(count);
    return MakeCommand(Command::ReadMemory, requestId, payload);
}

Datagram MakeWriteMemory(std::uint16_t requestId, std::uint32_t address, orv::ByteSpan data)
{
    orv::ByteWriter payload;
    payload.U32(address);
    payload.Bytes(data);
    return MakeCommand(Command::WriteMemory, requestId, payload);
}

std::optional<Acknowledge> ParseAcknowledge(orv::ByteSpan datagram)
{
    orv::ByteReader in(datagram);
    Acknowledge acknowledge;
    acknowledge.status = in.U16();
    acknowledge.code = in.U16();
    const std::size_t length = in.U16();
    acknowledge.requestId = in.U16();
    acknowledge.payload = in.Rest();
    if (!in.Ok() || acknowledge.payload.size < length)
        return std::nullopt;
    acknowledge.payload.size = length;
    return acknowledge;
}

std::optional<std::vector<std::uint32_t>> ParseReadRegister(orv::ByteSpan payload, std::size_t count)
{
    orv::ByteReader in(payload);
    std::vector<std::uint32_t> values;
    for (std::size_t i = 0; i < count; ++i)
        values.push_back(in.U32());
    if (!in.Ok())
        return std::nullopt;
    return values;
}

std::optional<std::uint16_t> ParseWritten(orv::ByteSpan payload)
{
    orv::ByteReader in(payload);
    in.Skip(2);
    const std::uint16_t written = in.U16();
    if (!in.Ok())
        return std::nullopt;
    return written;
}

std::optional<orv::ByteSpan> ParseReadMemory(orv::ByteSpan payload, std::uint32_t address, std::size_t count)
{
    orv::ByteReader in(payload);
    const std::uint32_t answered = in.U32();
    orv::ByteSpan data = in.Rest();
    if (!in.Ok() || answered != address || data.size < count)
        return std::nullopt;
    data.size = count;
    return data;
}

std::optional<std::uint16_t> ParsePending(orv::ByteSpan payload)
{
    orv::ByteReader in(payload);
    in.Skip(2);
    const std::uint16_t milliseconds = in.U16();
    if (!in.Ok())
        return std::nullopt;
    return milliseconds;
}

std::optional<DiscoveryAnswer> ParseDiscovery(orv::ByteSpan payload)
{
    orv::ByteReader in(payload);
    DiscoveryAnswer answer;
    answer.versionMajor = in.U16();
    answer.versionMinor = in.U16();
    answer.deviceMode = in.U32();
    in.Skip(2);
    for (std::uint8_t &byte : answer.mac)
        byte = in.U8();
    in.Skip(20); // address configuration, possible and in use
    answer.address = in.U32();
    in.Skip(12);
    answer.subnetMask = in.U32();
    in.Skip(12);
    answer.gateway = in.U32();
    answer.manufacturer = in.Text(32);
    answer.model = in.Text(32);
    answer.deviceVersion = in.Text(32);
    answer.manufacturerInfo = in.Text(48);
    answer.serial = in.Text(16);
    answer.userName = in.Text(16);
    if (!in.Ok())
        return std::nullopt;
    return answer;
}

Status StatusFromWire(std::uint16_t wireStatus, bool isWrite, const std::string &context)
{
    if (wireStatus == kStatusSuccess)
        return {};
    for (const StatusRow &row : kStatusRows) {
        if (row.wire == wireStatus)
            return {isWrite ? row.onWrite : row.onRead,
                    context + ": the camera answered " + Hex(wireStatus) + " " + row.text};
    }
    return {GC_ERR_IO, context + ": the camera answered " + Hex(wireStatus)};
}

} // namespace nuvark::gige
