#include "fuzz/GentlArguments.h"

#include "fuzz/Target.h"

#include <cstring>

using orv::fuzz::Bytes;
using orv::fuzz::Require;

namespace {

constexpr std::uint8_t kUntouched = 0xEE;
constexpr std::size_t kMostBytes = 4096;
constexpr std::size_t kMostEntries = 8;
void *const kInvalidPointer = reinterpret_cast<void *>(~std::uintptr_t{0});

const char *const kTexts[] = {"toy:0", "cam:1", "cam:2", "cam:1/stream0", "", "T-1", "same", "192.168.10.17"};

} // namespace

void HandlePool::Add(void *handle)
{
    m_handles.push_back(handle);
}

void *HandlePool::Choose(orv::ByteReader &in) const
{
    const std::uint8_t number = in.U8();
    if (number < m_handles.size())
        return m_handles[number];
    switch (number % 4) {
    case 0:
        return nullptr;
    case 1:
        return kInvalidPointer;
    case 2:
        return const_cast<HandlePool *>(this);
    default:
        return reinterpret_cast<void *>(std::uintptr_t{in.U16()});
    }
}

Room::Room(std::size_t size) : m_bytes(size + 2 * kMargin, kUntouched) {}

bool Room::IsIntact() const
{
    static const Bytes untouched(kMargin, kUntouched);
    return std::memcmp(m_bytes.data(), untouched.data(), kMargin) == 0 &&
           std::memcmp(m_bytes.data() + m_bytes.size() - kMargin, untouched.data(), kMargin) == 0;
}

bool Room::IsUntouched() const
{
    static const Bytes untouched(kMostBytes + 2 * kMargin, kUntouched);
    return std::memcmp(m_bytes.data(), untouched.data(), std::min(m_bytes.size(), untouched.size())) == 0;
}

Arguments::Arguments(const char *parameters, orv::ByteReader &in, HandlePool &handles,
                     std::vector<std::unique_ptr<Room>> &rooms)
    : m_in(in), m_handles(handles), m_rooms(rooms), m_firstRoom(rooms.size()), m_capacity(in.U16() % kMostBytes),
      m_count(in.U8() % kMostEntries)
{
    const std::string text = parameters;
    for (std::size_t end = text.find_first_of(",)"); end != std::string::npos;
         end = text.find_first_of(",)", end + 1)) {
        const std::size_t before = text.find_last_of(" *(", end);
        m_names.push_back(text.substr(before + 1, end - before - 1));
    }
}

Arguments::Goodness Arguments::ChooseGoodness()
{
    const std::uint8_t choice = m_in.U8() % 16;
    return choice == 15 ? Goodness::Invalid : choice == 14 ? Goodness::Null : Goodness::Good;
}

template <class T> T *Arguments::Pointer(Room *room, Goodness goodness)
{
    if (goodness == Goodness::Good)
        return reinterpret_cast<T *>(room->Data());
    return goodness == Goodness::Null ? nullptr : static_cast<T *>(kInvalidPointer);
}

Room &Arguments::NewRoom(std::size_t size)
{
    m_rooms.push_back(std::make_unique<Room>(size));
    return *m_rooms.back();
}

std::size_t Arguments::Stated(const std::string &name) const
{
    return name.find("Num") != std::string::npos ? m_count : m_capacity;
}

void Arguments::Make(void *&value, const std::string &name)
{
    if (name[0] == 'h') {
        value = m_handles.Choose(m_in);
        return;
    }
    Room &room = NewRoom(m_capacity);
    value = Pointer<void>(&room, ChooseGoodness());
    m_output = value == room.Data() ? &room : nullptr;
    m_hasWanted = m_output != nullptr;
}

/// With content from the input, as far as it goes.
void Arguments::Make(const void *&value, const std::string &)
{
    Room &room = NewRoom(m_capacity);
    value = Pointer<void>(&room, ChooseGoodness());
    const std::size_t count = std::min<std::size_t>({m_in.U8(), m_in.Rest().size, m_capacity});
    std::copy_n(m_in.Rest().data, count, room.Data());
    m_in.Skip(count);
}

void Arguments::Make(char *&value, const std::string &name)
{
    void *memory = nullptr;
    Make(memory, name);
    value = static_cast<char *>(memory);
}

void Arguments::Make(const char *&value, const std::string &)
{
    const Goodness goodness = ChooseGoodness();
    const std::uint8_t number = m_in.U8();
    std::string text = kTexts[number % std::size(kTexts)];
    if (number >= 0x80) { // any, with its end
        const std::size_t count = std::min<std::size_t>(number - 0x80U, m_in.Rest().size);
        text.assign(m_in.Rest().data, m_in.Rest().data + count);
        m_in.Skip(count);
    }
    Room &room = NewRoom(text.size() + 1);
    std::memcpy(room.Data(), text.c_str(), text.size() + 1);
    value = Pointer<const char>(&room, goodness);
}

void Arguments::Make(void **&value, const std::string &name)
{
    Room &room = NewRoom((kMostEntries + 1) * sizeof(void *));
    value = Pointer<void *>(&room, ChooseGoodness());
    if (name.compare(0, 2, "ph") == 0 && value == reinterpret_cast<void **>(room.Data()))
        m_given.push_back(value);
}

void Arguments::Make(std::size_t *&value, const std::string &name)
{
    Room &room = NewRoom((kMostEntries + 1) * sizeof(std::size_t));
    value = Pointer<std::size_t>(&room, ChooseGoodness());
    const std::size_t limit = Stated(name);
    std::memcpy(room.Data(), &limit, sizeof limit);
    m_statedSize = reinterpret_cast<std::size_t *>(room.Data());
    m_limit = limit;
}

void Arguments::Make(std::uint32_t *&value, const std::string &)
{
    value = Pointer<std::uint32_t>(&NewRoom(sizeof *value), ChooseGoodness());
}

void Arguments::Make(std::int32_t *&value, const std::string &)
{
    value = Pointer<std::int32_t>(&NewRoom(sizeof *value), ChooseGoodness());
}

void Arguments::Make(bool8_t *&value, const std::string &)
{
    value = Pointer<bool8_t>(&NewRoom(sizeof *value), ChooseGoodness());
}

void Arguments::Make(std::uint64_t &value, const std::string &name)
{
    const std::uint8_t choice = m_in.U8();
    if (name == "iTimeout")
        value = choice % 2; // or a call would wait
    else if (name == "iSize" || name == "iInSize" || name == "iNumInfos" || name == "iNumSegments")
        value = Stated(name);
    else if (name == "iBufferSize")
        value = choice == 255 ? ~std::uint64_t{0} : m_capacity;
    else
        value = choice < 0xF0 ? m_in.U16() : m_in.U64();
}

void Arguments::Make(std::uint32_t &value, const std::string &)
{
    const std::uint8_t choice = m_in.U8();
    value = choice < 0xF0 ? choice : m_in.U32();
}

/// Commands, flags, event types: the standard's small numbers, those from 1000 on, and any.
void Arguments::Make(std::int32_t &value, const std::string &)
{
    const std::uint8_t choice = m_in.U8();
    if (choice < 0x80)
        value = choice;
    else if (choice < 0xC0)
        value = 1000 + (choice - 0x80);
    else
        value = static_cast<std::int32_t>(m_in.U32());
}

void Arguments::Make(PORT_REGISTER_STACK_ENTRY *&value, const std::string &)
{
    Room &room = NewRoom(m_count * sizeof *value);
    value = Pointer<PORT_REGISTER_STACK_ENTRY>(&room, ChooseGoodness());
    for (std::size_t i = 0; i < m_count; ++i) {
        PORT_REGISTER_STACK_ENTRY entry{};
        entry.Address = m_in.U16();
        entry.Size = std::min<std::size_t>(m_in.U8(), m_capacity);
        entry.pBuffer = Pointer<void>(&NewRoom(m_capacity), ChooseGoodness());
        std::memcpy(room.Data() + i * sizeof entry, &entry, sizeof entry);
    }
}

void Arguments::Make(SINGLE_CHUNK_DATA *&value, const std::string &)
{
    Room &room = NewRoom(m_count * sizeof *value);
    value = Pointer<SINGLE_CHUNK_DATA>(&room, ChooseGoodness());
    m_hasWanted = value != nullptr;
}

void Arguments::Make(DS_BUFFER_INFO_STACKED *&value, const std::string &name)
{
    Room &room = NewRoom(m_count * sizeof *value);
    value = Pointer<DS_BUFFER_INFO_STACKED>(&room, ChooseGoodness());
    for (std::size_t i = 0; i < m_count; ++i) {
        DS_BUFFER_INFO_STACKED entry{};
        std::int32_t command = 0;
        Make(command, name);
        entry.iInfoCmd = command;
        entry.iSize = std::min<std::size_t>(m_in.U8(), m_capacity);
        entry.pBuffer = Pointer<void>(&NewRoom(m_capacity), ChooseGoodness());
        std::memcpy(room.Data() + i * sizeof entry, &entry, sizeof entry);
    }
}

void Arguments::Make(DS_BUFFER_PART_INFO_STACKED *&value, const std::string &)
{
    Room &room = NewRoom(m_count * sizeof *value);
    value = Pointer<DS_BUFFER_PART_INFO_STACKED>(&room, ChooseGoodness());
    for (std::size_t i = 0; i < m_count; ++i) {
        DS_BUFFER_PART_INFO_STACKED entry{};
        entry.iPartIndex = m_in.U8();
        entry.iInfoCmd = m_in.U8();
        entry.iSize = m_capacity;
        entry.pBuffer = Pointer<void>(&NewRoom(m_capacity), ChooseGoodness());
        std::memcpy(room.Data() + i * sizeof entry, &entry, sizeof entry);
    }
}

void Arguments::Check(GC_ERROR result)
{
    for (std::size_t i = m_firstRoom; i < m_rooms.size(); ++i) // the others are looked at in the end
        Require(m_rooms[i]->IsIntact(), "nothing is written beside what the caller has");
    Require(result <= 0 && (result == 0 || result <= -1000), "an error code is one of the standard's");
    if (result != GC_ERR_SUCCESS && m_output != nullptr)
        Require(m_output->IsUntouched(), "a call that fails leaves the caller's memory alone");
    if (result == GC_ERR_SUCCESS && m_hasWanted && m_statedSize != nullptr)
        Require(*m_statedSize <= m_limit, "no more is given than the caller has room for");
    for (void **given : m_given) {
        void *untouched = nullptr;
        std::memset(&untouched, kUntouched, sizeof untouched);
        if (result == GC_ERR_SUCCESS && *given != untouched)
            m_handles.Add(*given);
        else
            Require(*given == untouched, "a call that fails gives no handle");
    }
}
