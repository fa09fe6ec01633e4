#pragma once

#include "base/Mutex.h"

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <unordered_map>

namespace nuvark {

/// What a handle stands for.
enum class Kind { System, Interface, Device, RemotePort, Stream, Buffer, Event };

/// Anything that has a handle. `T::IsKind(kind)` says whether such an object is a T.
class Object {
public:
    explicit Object(Kind kind) : m_kind(kind) {}
    virtual ~Object() = default;
    Object(const Object &) = delete;
    Object &operator=(const Object &) = delete;

    Kind GetKind() const { return m_kind; }
    void *Handle() const { return m_handle; }

private:
    friend class HandleTable;
    const Kind m_kind;
    std::atomic<void *> m_handle{nullptr};
};

/// All handles that are valid now.
///
/// A handle is a number that is never given out twice, so a stale, foreign or invented one is noticed without touching
/// any memory. Whoever finds an object holds it for the length of the call, even when it is closed meanwhile.
/// Threads: any. Lock order: the shards' mutexes are taken last, and never two of them.
class HandleTable {
public:
    /// Lives until the process ends: worker threads may outlast the static objects.
    static HandleTable &Instance();

    void *Add(const std::shared_ptr<Object> &object);
    void Remove(const Object &object);

    /// The object, or null when the handle is no such thing.
    template <class T> std::shared_ptr<T> Find(const void *handle)
    {
        std::shared_ptr<Object> object = FindObject(handle);
        if (object == nullptr || !T::IsKind(object->GetKind()))
            return nullptr;
        return std::static_pointer_cast<T>(std::move(object));
    }

private:
    /// Handles are spread over several maps, so that streams do not wait for each other.
    struct Shard {
        orv::Mutex mutex;
        std::unordered_map<std::uintptr_t, std::shared_ptr<Object>> objects GUARDED_BY(mutex);
    };
    static constexpr std::size_t kShards = 16;

    std::shared_ptr<Object> FindObject(const void *handle);
    Shard &ShardOf(std::uintptr_t number) { return m_shards[number % kShards]; }

    std::atomic<std::uintptr_t> m_last{0x1000};
    std::array<Shard, kShards> m_shards;
};

} // namespace nuvark
