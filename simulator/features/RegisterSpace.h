#pragma once

#include "simulator/features/Outcome.h"

#include <cstdint>
#include <functional>
#include <map>
#include <string>

namespace orvsim {

enum class RegisterAccess { ReadOnly, ReadWrite, WriteOnly };

/// A stretch of device memory behind two functions. Bytes are as they go over the wire: numbers big-endian.
struct Register {
    std::uint32_t address = 0;
    std::uint32_t length = 4; ///< bytes, a multiple of 4
    RegisterAccess access = RegisterAccess::ReadOnly;
    /// Fills all `length` bytes. Null for write-only registers.
    std::function<void(std::uint8_t *bytes)> read = {};
    /// Takes all `length` bytes. Null for read-only registers.
    std::function<Outcome(const std::uint8_t *bytes)> write = {};
};

/// A device's address space, made of registers that do not overlap.
///
/// An access may span several registers and parts of them: a partial write reads the register first and writes it
/// whole; what cannot be read counts as zero. Not locked: the camera holds its mutex around every access.
class RegisterSpace {
public:
    /// The register must not overlap another.
    void Add(Register reg);
    /// A number of 4 or 8 bytes.
    void AddNumber(std::uint32_t address, std::uint32_t length, RegisterAccess access,
                   std::function<std::uint64_t()> get, std::function<Outcome(std::uint64_t)> set = {});
    /// Text padded with zeros; a full field has no terminator.
    void AddText(std::uint32_t address, std::uint32_t length, RegisterAccess access, std::function<std::string()> get,
                 std::function<Outcome(const std::string &)> set = {});
    /// Bytes that do not change; the last are padded with zeros to a multiple of 4.
    void AddBlock(std::uint32_t address, std::string bytes);

    /// Address and size are multiples of 4. On failure the bytes are unspecified.
    Outcome Read(std::uint32_t address, std::uint32_t size, std::uint8_t *bytes) const;
    /// Stops at the first register that refuses; those before it keep what they were given.
    Outcome Write(std::uint32_t address, std::uint32_t size, const std::uint8_t *bytes);

private:
    const Register *Find(std::uint32_t address) const;

    std::map<std::uint32_t, Register> m_registers; // by address
};

} // namespace orvsim
