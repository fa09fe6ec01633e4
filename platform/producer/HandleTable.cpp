#include "producer/HandleTable.h"

namespace nuvark {

HandleTable &HandleTable::Instance()
{
    static auto *const table = new HandleTable;
    return *table;
}

void *HandleTable::Add(const std::shared_ptr<Object> &object)
{
    const std::uintptr_t number = ++m_last;
    object->m_handle = reinterpret_cast<void *>(number);
    Shard &shard = ShardOf(number);
    const orv::MutexLock lock(shard.mutex);
    shard.objects.emplace(number, object);
    return object->Handle();
}

void HandleTable::Remove(const Object &object)
{
    const auto number = reinterpret_cast<std::uintptr_t>(object.Handle());
    Shard &shard = ShardOf(number);
    std::shared_ptr<Object> last; // released after the lock
    const orv::MutexLock lock(shard.mutex);
    const auto found = shard.objects.find(number);
    if (found == shard.objects.end())
        return;
    last = std::move(found->second);
    shard.objects.erase(found);
}

std::shared_ptr<Object> HandleTable::FindObject(const void *handle)
{
    const auto number = reinterpret_cast<std::uintptr_t>(handle);
    Shard &shard = ShardOf(number);
    const orv::MutexLock lock(shard.mutex);
    const auto found = shard.objects.find(number);
    return found != shard.objects.end() ? found->second : nullptr;
}

} // namespace nuvark
