#include "orvsupport/OrvParamStorage.h"

#include "base/Mutex.h"
#include "orvsupport/ParamMember.h"

#include <cstring>
#include <deque>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace {

constexpr std::uint32_t kDone = ORV_PARAM_OK;

enum Access : std::uint32_t { kNone = 0, kReadable = 1, kWritable = 2 };

std::uint32_t CopyBytes(std::string_view bytes, void *buffer, unsigned int *sizeBytes)
{
    if (bytes.size() > *sizeBytes) {
        *sizeBytes = static_cast<unsigned int>(bytes.size());
        return ORV_PARAM_BUFFER_TOO_SMALL;
    }
    std::memcpy(buffer, bytes.data(), bytes.size());
    return ORV_PARAM_OK;
}

/// As CopyBytes, with a terminator.
std::uint32_t CopyText(std::string_view text, char *buffer, unsigned int *length)
{
    if (text.size() >= *length) {
        *length = static_cast<unsigned int>(text.size() + 1);
        return ORV_PARAM_BUFFER_TOO_SMALL;
    }
    std::memcpy(buffer, text.data(), text.size());
    buffer[text.size()] = '\0';
    return ORV_PARAM_OK;
}

} // namespace

struct OrvParamStorage::Impl {
    struct Entry {
        _OrvStParam param;
        std::vector<OrvParamListener *> listeners;
    };

    /// What a notification needs, taken while the lock was held: announcing runs without it.
    struct Change {
        const Entry *entry = nullptr;
        std::size_t listenerCount = 0;
        std::uint32_t reason = 0;
        _OrvStParam param;
    };

    /// The entry of that name, or null with the reason in `status`.
    Entry *Find(const char *name, std::uint32_t access, std::uint32_t *status) REQUIRES(mutex)
    {
        const auto found = byName.find(name);
        if (found == byName.end()) {
            *status = ORV_PARAM_UNKNOWN_NAME;
            return nullptr;
        }
        *status = (found->second->param.access & access) == access ? ORV_PARAM_OK : ORV_PARAM_NOT_ALLOWED;
        return *status == ORV_PARAM_OK ? found->second : nullptr;
    }

    bool NeedsAnnouncing(const Entry &entry) const REQUIRES(mutex)
    {
        const bool hasValue = entry.param.type != ORV_PARAM_COMMAND;
        return hasValue && (entry.param.onChange != nullptr || !entry.listeners.empty());
    }

    OrvParamListener *ListenerAt(const Entry &entry, std::size_t index) EXCLUDES(mutex)
    {
        const orv::MutexLock lock(mutex);
        return entry.listeners[index];
    }

    void Announce(const Change &change) EXCLUDES(mutex)
    {
        if (change.param.onChange != nullptr) {
            _OrvStParam forCallback = change.param;
            forCallback.onChange(change.reason, &forCallback);
        }
        for (std::size_t index = 0; index < change.listenerCount; ++index)
            ListenerAt(*change.entry, index)->ParamChanged(change.param);
    }

    /// Writes the parameter under the lock and then announces the change.
    template <class Write> std::uint32_t Set(const char *name, bool notify, Write write) EXCLUDES(mutex)
    {
        if (name == nullptr)
            return ORV_PARAM_INVALID_ARGUMENT;
        Change change;
        std::uint32_t status = ORV_PARAM_OK;
        {
            const orv::MutexLock lock(mutex);
            Entry *const entry = Find(name, kWritable, &status);
            if (entry == nullptr)
                return status;
            status = write(entry->param);
            if (!orv::TookPlace(status))
                return status;
            ++changeCount;
            if (!notify || !NeedsAnnouncing(*entry))
                return status;
            change.entry = entry;
            change.listenerCount = entry->listeners.size();
            change.reason = changeCount;
            change.param = entry->param;
        }
        Announce(change);
        return status;
    }

    template <class Write>
    std::uint32_t SetTyped(const char *name, OrvParamType type, bool notify, Write write) EXCLUDES(mutex)
    {
        return Set(name, notify, [&](const _OrvStParam &param) {
            return param.type == type ? write(param) : std::uint32_t{ORV_PARAM_WRONG_TYPE};
        });
    }

    template <class Read> std::uint32_t Get(const char *name, Read read) EXCLUDES(mutex)
    {
        if (name == nullptr)
            return ORV_PARAM_INVALID_ARGUMENT;
        std::uint32_t status = ORV_PARAM_OK;
        const orv::MutexLock lock(mutex);
        const Entry *const entry = Find(name, kReadable, &status);
        return entry == nullptr ? status : read(entry->param);
    }

    template <class Read> std::uint32_t GetTyped(const char *name, OrvParamType type, Read read) EXCLUDES(mutex)
    {
        return Get(name, [&](const _OrvStParam &param) {
            return param.type == type ? read(param) : std::uint32_t{ORV_PARAM_WRONG_TYPE};
        });
    }

    orv::Mutex mutex;                            // also guards the bound members
    std::deque<Entry> entries GUARDED_BY(mutex); // in declaration order; never shrinks, so addresses stay good
    std::unordered_map<std::string_view, Entry *> byName GUARDED_BY(mutex); // keys lie in the entries
    std::uint32_t changeCount GUARDED_BY(mutex) = 0;
};

OrvParamStorage::OrvParamStorage(unsigned int /*flags*/) : m_impl(std::make_unique<Impl>()) {}

OrvParamStorage::~OrvParamStorage() = default;

std::uint32_t OrvParamStorage::AddParam(_OrvStParam *param)
{
    if (param == nullptr || !orv::IsSoundDeclaration(*param))
        return ORV_PARAM_INVALID_ARGUMENT;
    const orv::MutexLock lock(m_impl->mutex);
    if (m_impl->byName.count(param->name) != 0)
        return ORV_PARAM_DUPLICATE_NAME;
    Impl::Entry &entry = m_impl->entries.emplace_back(Impl::Entry{*param, {}});
    m_impl->byName.emplace(entry.param.name, &entry);
    return ORV_PARAM_OK;
}

std::uint32_t OrvParamStorage::AddParamChangedListener(char *name, OrvParamListener *listener)
{
    if (name == nullptr || listener == nullptr)
        return ORV_PARAM_INVALID_ARGUMENT;
    std::uint32_t status = ORV_PARAM_OK;
    const orv::MutexLock lock(m_impl->mutex);
    Impl::Entry *const entry = m_impl->Find(name, kNone, &status);
    if (entry != nullptr)
        entry->listeners.push_back(listener);
    return status;
}

std::uint32_t OrvParamStorage::GetParamCount() const
{
    const orv::MutexLock lock(m_impl->mutex);
    return static_cast<std::uint32_t>(m_impl->entries.size());
}

std::uint32_t OrvParamStorage::GetParamByIdx(unsigned int index, _OrvStParam *param) const
{
    if (param == nullptr)
        return ORV_PARAM_INVALID_ARGUMENT;
    const orv::MutexLock lock(m_impl->mutex);
    if (index >= m_impl->entries.size())
        return ORV_PARAM_INVALID_ARGUMENT;
    *param = m_impl->entries[index].param;
    return ORV_PARAM_OK;
}

std::uint32_t OrvParamStorage::SetParamInt(char *name, long value, bool notify)
{
    return m_impl->SetTyped(name, ORV_PARAM_INT, notify, [&](auto &param) { return orv::WriteInt(param, value); });
}

std::uint32_t OrvParamStorage::SetParamFloat(char *name, double value, bool notify)
{
    return m_impl->SetTyped(name, ORV_PARAM_FLOAT, notify, [&](auto &param) { return orv::WriteFloat(param, value); });
}

std::uint32_t OrvParamStorage::SetParamBool(char *name, bool value, bool notify)
{
    return m_impl->SetTyped(name, ORV_PARAM_BOOL, notify, [&](auto &param) {
        *param.asBool.value = value;
        return kDone;
    });
}

std::uint32_t OrvParamStorage::SetParamString(char *name, char *text, bool notify)
{
    if (text == nullptr)
        return ORV_PARAM_INVALID_ARGUMENT;
    return m_impl->SetTyped(name, ORV_PARAM_STRING, notify, [&](auto &param) { return orv::WriteString(param, text); });
}

std::uint32_t OrvParamStorage::SetParamArray(char *name, void *data, unsigned int sizeBytes, bool notify)
{
    if (data == nullptr)
        return ORV_PARAM_INVALID_ARGUMENT;
    return m_impl->SetTyped(name, ORV_PARAM_ARRAY, notify,
                            [&](auto &param) { return orv::WriteArray(param, data, sizeBytes); });
}

std::uint32_t OrvParamStorage::SetParamAsString(char *name, char *text, bool notify)
{
    if (text == nullptr)
        return ORV_PARAM_INVALID_ARGUMENT;
    return m_impl->Set(name, notify, [&](auto &param) { return orv::WriteText(param, text); });
}

std::uint32_t OrvParamStorage::GetParamInt(char *name, long *value) const
{
    if (value == nullptr)
        return ORV_PARAM_INVALID_ARGUMENT;
    return m_impl->GetTyped(name, ORV_PARAM_INT, [&](auto &param) {
        *value = *param.asInt.value;
        return kDone;
    });
}

std::uint32_t OrvParamStorage::GetParamFloat(char *name, double *value) const
{
    if (value == nullptr)
        return ORV_PARAM_INVALID_ARGUMENT;
    return m_impl->GetTyped(name, ORV_PARAM_FLOAT, [&](auto &param) {
        *value = *param.asFloat.value;
        return kDone;
    });
}

std::uint32_t OrvParamStorage::GetParamBool(char *name, bool *value) const
{
    if (value == nullptr)
        return ORV_PARAM_INVALID_ARGUMENT;
    return m_impl->GetTyped(name, ORV_PARAM_BOOL, [&](auto &param) {
        *value = *param.asBool.value;
        return kDone;
    });
}

std::uint32_t OrvParamStorage::GetParamString(char *name, char *buffer, unsigned int *length) const
{
    if (buffer == nullptr || length == nullptr)
        return ORV_PARAM_INVALID_ARGUMENT;
    return m_impl->GetTyped(name, ORV_PARAM_STRING,
                            [&](auto &param) { return CopyText(orv::ReadString(param), buffer, length); });
}

std::uint32_t OrvParamStorage::GetParamArray(char *name, void *buffer, unsigned int *sizeBytes) const
{
    if (buffer == nullptr || sizeBytes == nullptr)
        return ORV_PARAM_INVALID_ARGUMENT;
    return m_impl->GetTyped(name, ORV_PARAM_ARRAY,
                            [&](auto &param) { return CopyBytes(orv::ReadArray(param), buffer, sizeBytes); });
}

std::uint32_t OrvParamStorage::GetParamAsString(char *name, char *buffer, unsigned int *length,
                                                const char *format) const
{
    if (buffer == nullptr || length == nullptr)
        return ORV_PARAM_INVALID_ARGUMENT;
    orv::ParamReading reading;
    const std::uint32_t found = m_impl->Get(name, [&](auto &param) {
        reading = orv::ReadAny(param);
        return kDone;
    });
    if (found != ORV_PARAM_OK)
        return found;
    std::string text;
    const std::uint32_t formatted = orv::FormatReading(reading, format, &text);
    return formatted == ORV_PARAM_OK ? CopyText(text, buffer, length) : formatted;
}

std::uint32_t OrvParamStorage::RunCommand(char *name)
{
    _OrvStParam::CommandValue command{};
    const std::uint32_t status = m_impl->GetTyped(name, ORV_PARAM_COMMAND, [&](auto &param) {
        command = param.asCommand;
        return kDone;
    });
    return status == ORV_PARAM_OK ? static_cast<std::uint32_t>(command.run(command.context)) : status;
}
