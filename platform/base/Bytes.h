#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

namespace orv {

/// Bytes that belong to somebody else.
struct ByteSpan {
    const std::uint8_t *data = nullptr;
    std::size_t size = 0;
};

/// Reads big-endian fields one after another. Ok() turns false, and stays so, once a read ran past the end; such a read
/// gives zero. So a decoder reads everything and asks once.
class ByteReader {
public:
    explicit ByteReader(ByteSpan bytes) : m_bytes(bytes) {}

    std::uint8_t U8() { return static_cast<std::uint8_t>(Read(1)); }
    std::uint16_t U16() { return static_cast<std::uint16_t>(Read(2)); }
    std::uint32_t U32() { return static_cast<std::uint32_t>(Read(4)); }
    std::uint64_t U48() { return Read(6); }
    std::uint64_t U64() { return Read(8); }
    void Skip(std::size_t count) { Take(count); }

    /// A zero-padded text field; a full field may have no terminator.
    std::string Text(std::size_t fieldSize)
    {
        const std::uint8_t *field = Take(fieldSize);
        if (field == nullptr)
            return {};
        return std::string(field, std::find(field, field + fieldSize, std::uint8_t{0}));
    }

    ByteSpan Rest() const { return {m_bytes.data + m_position, m_bytes.size - m_position}; }
    bool Ok() const { return m_ok; }

private:
    const std::uint8_t *Take(std::size_t count)
    {
        if (m_bytes.size - m_position < count) {
            m_position = m_bytes.size;
            m_ok = false;
            return nullptr;
        }
        m_position += count;
        return m_bytes.data + m_position - count;
    }

    std::uint64_t Read(std::size_t count)
    {
        const std::uint8_t *field = Take(count);
        std::uint64_t value = 0;
        for (std::size_t i = 0; field != nullptr && i < count; ++i)
            value = value << 8 | field[i];
        return value;
    }

    ByteSpan m_bytes;
    std::size_t m_position = 0;
    bool m_ok = true;
};

/// Appends big-endian fields.
class ByteWriter {
public:
    void U8(std::uint8_t value) { m_bytes.push_back(value); }
    void U16(std::uint16_t value) { Write(value, 2); }
    void U32(std::uint32_t value) { Write(value, 4); }
    void U64(std::uint64_t value) { Write(value, 8); }
    void Bytes(ByteSpan bytes) { m_bytes.insert(m_bytes.end(), bytes.data, bytes.data + bytes.size); }
    std::vector<std::uint8_t> Take() { return std::move(m_bytes); }

private:
    void Write(std::uint64_t value, int count)
    {
        for (int i = count - 1; i >= 0; --i)
            m_bytes.push_back(static_cast<std::uint8_t>(value >> (8 * i)));
    }

    std::vector<std::uint8_t> m_bytes;
};

} // namespace orv
