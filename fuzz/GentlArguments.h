#pragma once

#include "base/Bytes.h"
#include "gentl/GenTL.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

/// Handles that calls have given so far, closed ones included, in the order in which they were given.
class HandlePool {
public:
    void Add(void *handle);
    /// By number: one of those given, or null, all bits set, an address, or any number.
    void *Choose(orv::ByteReader &in) const;
    std::size_t Count() const { return m_handles.size(); }

private:
    std::vector<void *> m_handles;
};

/// Memory that a caller states to have, with margins that nobody may touch.
class Room {
public:
    explicit Room(std::size_t size);
    std::uint8_t *Data() { return m_bytes.data() + kMargin; }
    std::size_t Size() const { return m_bytes.size() - 2 * kMargin; }
    bool IsIntact() const;
    /// Nothing has been written to it at all.
    bool IsUntouched() const;

private:
    static constexpr std::size_t kMargin = 32;
    std::vector<std::uint8_t> m_bytes;
};

/// The arguments of one call, made of an input's bytes by type and name of each parameter.
///
/// All pointers are good for what goes with them (sizes, counts), null, or all bits set; all numbers are arbitrary
/// where no memory of ours depends on them. The memory lives in `rooms`, since calls may keep it.
class Arguments {
public:
    /// \param parameters  as declared: "(TL_HANDLE hSystem, bool8_t *pbChanged)"
    Arguments(const char *parameters, orv::ByteReader &in, HandlePool &handles,
              std::vector<std::unique_ptr<Room>> &rooms);

    /// The next parameter's value.
    template <class T> T Next()
    {
        T value{};
        Make(value, m_names[m_next++]);
        return value;
    }
    /// Ends the program if the call did what it must not, and keeps the handles that it gave.
    void Check(GC_ERROR result);

private:
    enum class Goodness { Good, Null, Invalid };
    Goodness ChooseGoodness();
    template <class T> T *Pointer(Room *room, Goodness goodness);
    Room &NewRoom(std::size_t size);
    std::size_t Stated(const std::string &name) const;

    void Make(void *&value, const std::string &name);
    void Make(const void *&value, const std::string &name);
    void Make(char *&value, const std::string &name);
    void Make(const char *&value, const std::string &name);
    void Make(void **&value, const std::string &name);
    void Make(std::size_t *&value, const std::string &name);
    void Make(std::uint32_t *&value, const std::string &name);
    void Make(std::int32_t *&value, const std::string &name);
    void Make(bool8_t *&value, const std::string &name);
    void Make(std::uint64_t &value, const std::string &name); ///< sizes as well
    void Make(std::uint32_t &value, const std::string &name);
    void Make(std::int32_t &value, const std::string &name);
    void Make(PORT_REGISTER_STACK_ENTRY *&value, const std::string &name);
    void Make(SINGLE_CHUNK_DATA *&value, const std::string &name);
    void Make(DS_BUFFER_INFO_STACKED *&value, const std::string &name);
    void Make(DS_BUFFER_PART_INFO_STACKED *&value, const std::string &name);

    orv::ByteReader &m_in;
    HandlePool &m_handles;
    std::vector<std::unique_ptr<Room>> &m_rooms;
    const std::size_t m_firstRoom; ///< of this call
    std::vector<std::string> m_names;
    std::size_t m_next = 0;
    const std::size_t m_capacity; ///< bytes
    const std::size_t m_count;    ///< entries
    Room *m_output = nullptr;     ///< what a failing call leaves alone
    std::size_t *m_statedSize = nullptr;
    std::size_t m_limit = 0; ///< of what it says afterwards
    std::vector<void **> m_given;
    bool m_hasWanted = false; ///< the caller gave memory for the answer
};
