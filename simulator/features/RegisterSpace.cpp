#include "simulator/features/RegisterSpace.h"

#include <algorithm>
#include <cassert>
#include <cstring>
#include <utility>
#include <vector>

namespace orvsim {

namespace {

constexpr std::uint64_t kEndOfSpace = std::uint64_t{1} << 32;

std::uint32_t PaddedLength(std::size_t bytes)
{
    return static_cast<std::uint32_t>((bytes + 3) / 4 * 4);
}

Outcome CheckSpan(std::uint32_t address, std::uint32_t size)
{
    if (address % 4 != 0 || size % 4 != 0)
        return Outcome::BadAlignment;
    return std::uint64_t{address} + size > kEndOfSpace ? Outcome::NoSuchAddress : Outcome::Ok;
}

void PutNumber(std::uint64_t value, std::uint32_t length, std::uint8_t *bytes)
{
    for (std::uint32_t i = 0; i < length; ++i)
        bytes[i] = static_cast<std::uint8_t>(value >> (8 * (length - 1 - i)));
}

std::uint64_t NumberOf(const std::uint8_t *bytes, std::uint32_t length)
{
    std::uint64_t value = 0;
    for (std::uint32_t i = 0; i < length; ++i)
        value = value << 8 | bytes[i];
    return value;
}

/// The part of a register that an access reaches.
struct Part {
    std::uint32_t offset;
    std::uint32_t length;
};
Part PartOf(const Register &reg, std::uint64_t position, std::uint64_t end)
{
    const auto offset = static_cast<std::uint32_t>(position - reg.address);
    const auto rest = static_cast<std::uint32_t>(std::min<std::uint64_t>(end - position, reg.length - offset));
    return {offset, rest};
}

Outcome ReadPart(const Register &reg, Part part, std::uint8_t *bytes)
{
    if (reg.access == RegisterAccess::WriteOnly)
        return Outcome::WriteOnly;
    if (part.length == reg.length) {
        reg.read(bytes);
        return Outcome::Ok;
    }
    std::vector<std::uint8_t> whole(reg.length);
    reg.read(whole.data());
    std::memcpy(bytes, whole.data() + part.offset, part.length);
    return Outcome::Ok;
}

Outcome WritePart(const Register &reg, Part part, const std::uint8_t *bytes)
{
    if (reg.access == RegisterAccess::ReadOnly)
        return Outcome::ReadOnly;
    if (part.length == reg.length)
        return reg.write(bytes);
    std::vector<std::uint8_t> whole(reg.length);
    if (reg.read)
        reg.read(whole.data());
    std::memcpy(whole.data() + part.offset, bytes, part.length);
    return reg.write(whole.data());
}

} // namespace

void RegisterSpace::Add(Register reg)
{
    assert(reg.address % 4 == 0 && reg.length % 4 == 0 && reg.length > 0);
    assert(std::uint64_t{reg.address} + reg.length <= kEndOfSpace);
    assert(reg.access == RegisterAccess::WriteOnly || reg.read);
    assert(reg.access == RegisterAccess::ReadOnly || reg.write);
    const auto next = m_registers.lower_bound(reg.address);
    assert(next == m_registers.end() || next->first - reg.address >= reg.length);
    assert(Find(reg.address) == nullptr);
    m_registers.emplace_hint(next, reg.address, std::move(reg));
}

void RegisterSpace::AddNumber(std::uint32_t address, std::uint32_t length, RegisterAccess access,
                              std::function<std::uint64_t()> get, std::function<Outcome(std::uint64_t)> set)
{
    assert(length == 4 || length == 8);
    Register reg{address, length, access};
    if (get)
        reg.read = [get = std::move(get), length](std::uint8_t *bytes) { PutNumber(get(), length, bytes); };
    if (set)
        reg.write = [set = std::move(set), length](const std::uint8_t *bytes) { return set(NumberOf(bytes, length)); };
    Add(std::move(reg));
}

void RegisterSpace::AddText(std::uint32_t address, std::uint32_t length, RegisterAccess access,
                            std::function<std::string()> get, std::function<Outcome(const std::string &)> set)
{
    Register reg{address, length, access};
    if (get) {
        reg.read = [get = std::move(get), length](std::uint8_t *bytes) {
            const std::string text = get();
            const std::size_t used = std::min<std::size_t>(text.size(), length);
            std::memcpy(bytes, text.data(), used);
            std::memset(bytes + used, 0, length - used);
        };
    }
    if (set) {
        reg.write = [set = std::move(set), length](const std::uint8_t *bytes) {
            return set(std::string(bytes, std::find(bytes, bytes + length, std::uint8_t{0})));
        };
    }
    Add(std::move(reg));
}

void RegisterSpace::AddBlock(std::uint32_t address, std::string bytes)
{
    bytes.resize(PaddedLength(bytes.size()));
    if (bytes.empty())
        return;
    Register reg{address, static_cast<std::uint32_t>(bytes.size()), RegisterAccess::ReadOnly};
    reg.read = [bytes = std::move(bytes)](std::uint8_t *target) { std::memcpy(target, bytes.data(), bytes.size()); };
    Add(std::move(reg));
}

const Register *RegisterSpace::Find(std::uint32_t address) const
{
    auto found = m_registers.upper_bound(address);
    if (found == m_registers.begin())
        return nullptr;
    --found;
    return address - found->first < found->second.length ? &found->second : nullptr;
}

Outcome RegisterSpace::Read(std::uint32_t address, std::uint32_t size, std::uint8_t *bytes) const
{
    Outcome outcome = CheckSpan(address, size);
    const std::uint64_t end = std::uint64_t{address} + size;
    for (std::uint64_t position = address; outcome == Outcome::Ok && position < end;) {
        const Register *reg = Find(static_cast<std::uint32_t>(position));
        if (reg == nullptr)
            return Outcome::NoSuchAddress;
        const Part part = PartOf(*reg, position, end);
        outcome = ReadPart(*reg, part, bytes);
        bytes += part.length;
        position += part.length;
    }
    return outcome;
}

Outcome RegisterSpace::Write(std::uint32_t address, std::uint32_t size, const std::uint8_t *bytes)
{
    Outcome outcome = CheckSpan(address, size);
    const std::uint64_t end = std::uint64_t{address} + size;
    for (std::uint64_t position = address; outcome == Outcome::Ok && position < end;) {
        const Register *reg = Find(static_cast<std::uint32_t>(position));
        if (reg == nullptr)
            return Outcome::NoSuchAddress;
        const Part part = PartOf(*reg, position, end);
        outcome = WritePart(*reg, part, bytes);
        bytes += part.length;
        position += part.length;
    }
    return outcome;
}

} // namespace orvsim
