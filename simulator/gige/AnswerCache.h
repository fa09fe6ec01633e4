#pragma once

#include "base/Bytes.h"
#include "simulator/gige/Endpoint.h"
#include "simulator/gige/Reply.h"

#include <cstdint>
#include <vector>

namespace orvsim {

/// The last command of each sender and what was answered: a repeated command is answered again, not done again.
///
/// A repeat is the same bytes from the same address and port within a few seconds; after that the same bytes come from
/// a new client on an old port. Bounded: the sender that was silent longest is forgotten. One thread.
class AnswerCache {
public:
    struct Entry {
        Endpoint from;
        Datagram command;
        Datagram answer; ///< empty: none was asked for
        TimePoint at;    ///< when the command came
        TimePoint dueAt; ///< when the answer was or will be sent
    };

    /// \return null when this is no repeat. Valid until the next call.
    const Entry *Find(const Endpoint &from, orv::ByteSpan command, TimePoint now) const;
    void Remember(Entry entry);
    void Clear() { m_entries.clear(); } ///< what was answered holds no longer

private:
    std::vector<Entry> m_entries;
};

} // namespace orvsim
