#include "producer/gige/GvcpClient.h"
#include "producer/gige/Text.h"

#include <cstring>

/// The commands that a control channel carries.
namespace nuvark::gige {

Status GvcpClient::ReadRegister(std::uint32_t address, std::uint32_t &value, Effort effort)
{
    std::vector<std::uint8_t> payload;
    const std::string context = "read register " + Hex(address);
    Status status = Transact(
        {Command::ReadRegister, address, effort, context},
        [&](std::uint16_t id) { return MakeReadRegister(id, {address}); }, payload);
    if (!status.Ok())
        return status;
    const auto values = ParseReadRegister({payload.data(), payload.size()}, 1);
    if (!values)
        return {GC_ERR_IO, context + ": the camera's answer is too short"};
    value = values->front();
    return {};
}

Status GvcpClient::WriteRegister(std::uint32_t address, std::uint32_t value, Effort effort)
{
    std::vector<std::uint8_t> payload;
    const auto make = [&](std::uint16_t id) { return MakeWriteRegister(id, {{address, value}}); };
    return Transact({Command::WriteRegister, address, effort, "write register " + Hex(address)}, make, payload);
}

Status GvcpClient::ReadRegisters(const std::vector<std::uint32_t> &addresses, std::vector<std::uint32_t> &values,
                                 Effort effort)
{
    std::vector<std::uint8_t> payload;
    const std::string context = "read " + std::to_string(addresses.size()) + " registers from " + Hex(addresses[0]);
    Status status = Transact(
        {Command::ReadRegister, addresses[0], effort, context},
        [&](std::uint16_t id) { return MakeReadRegister(id, addresses); }, payload);
    if (!status.Ok())
        return status;
    auto read = ParseReadRegister({payload.data(), payload.size()}, addresses.size());
    if (!read)
        return {GC_ERR_IO, context + ": the camera's answer is too short"};
    values = std::move(*read);
    return {};
}

Status GvcpClient::WriteRegisters(const std::vector<RegisterWrite> &writes, std::optional<std::size_t> &done)
{
    std::vector<std::uint8_t> payload;
    std::uint32_t highest = 0; // decides how long the camera may take
    for (const RegisterWrite &write : writes)
        highest = std::max(highest, write.address);
    const std::string context = "write " + std::to_string(writes.size()) + " registers from " + Hex(writes[0].address);
    Status status = Transact(
        {Command::WriteRegister, highest, Effort::Normal, context, false},
        [&](std::uint16_t id) { return MakeWriteRegister(id, writes); }, payload);
    if (status.Ok())
        done = writes.size();
    else if (const auto written = ParseWritten({payload.data(), payload.size()}))
        done = std::min<std::size_t>(*written, writes.size());
    return status;
}

Status GvcpClient::ReadMemory(std::uint32_t address, std::uint8_t *data, std::size_t count)
{
    std::vector<std::uint8_t> payload;
    const std::string context = "read " + std::to_string(count) + " bytes at " + Hex(address);
    const auto make = [&](std::uint16_t id) { return MakeReadMemory(id, address, static_cast<std::uint16_t>(count)); };
    Status status = Transact({Command::ReadMemory, address, Effort::Normal, context}, make, payload);
    if (!status.Ok())
        return status;
    const auto bytes = ParseReadMemory({payload.data(), payload.size()}, address, count);
    if (!bytes)
        return {GC_ERR_IO, context + ": the camera's answer is too short or for another address"};
    std::memcpy(data, bytes->data, count);
    return {};
}

Status GvcpClient::WriteMemory(std::uint32_t address, orv::ByteSpan data)
{
    std::vector<std::uint8_t> payload;
    const std::string context = "write " + std::to_string(data.size) + " bytes at " + Hex(address);
    Status status = Transact(
        {Command::WriteMemory, address, Effort::Normal, context},
        [&](std::uint16_t id) { return MakeWriteMemory(id, address, data); }, payload);
    if (!status.Ok())
        return status;
    // Some cameras say nothing here, others repeat the address.
    const std::uint16_t written = ParseWritten({payload.data(), payload.size()}).value_or(0);
    if (written != 0 && written < data.size && written != (address & 0xFFFF))
        return {GC_ERR_IO, context + ": the camera has written " + std::to_string(written) + " of them"};
    return {};
}

} // namespace nuvark::gige
