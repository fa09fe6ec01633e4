#include "simulator/gige/AnswerCache.h"

#include <algorithm>

namespace orvsim {
namespace {

constexpr std::size_t kSenders = 16;
constexpr std::chrono::seconds kLifetime{5};

} // namespace

const AnswerCache::Entry *AnswerCache::Find(const Endpoint &from, orv::ByteSpan command, TimePoint now) const
{
    for (const Entry &entry : m_entries) {
        if (entry.from != from || now - std::max(entry.at, entry.dueAt) > kLifetime)
            continue;
        if (std::equal(entry.command.begin(), entry.command.end(), command.data, command.data + command.size))
            return &entry;
    }
    return nullptr;
}

void AnswerCache::Remember(Entry entry)
{
    const auto isSame = [&entry](const Entry &other) { return other.from == entry.from; };
    m_entries.erase(std::remove_if(m_entries.begin(), m_entries.end(), isSame), m_entries.end());
    if (m_entries.size() >= kSenders)
        m_entries.erase(m_entries.begin());
    m_entries.push_back(std::move(entry));
}

} // namespace orvsim
