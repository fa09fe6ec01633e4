#pragma once

#include "base/Mutex.h"
#include "producer/gige/GvcpClient.h"
#include "producer/Transport.h"

#include <functional>
#include <vector>

namespace nuvark::gige {

/// The register space of a camera as its consumer sees it: any length and alignment, and several accesses at once, made
/// of what the control protocol and the one camera can do.
///
/// Statuses are those of the control channel. Threads: any, after Learn().
class RegisterAccess {
public:
    struct Facts {
        bool writesMemory = false;
        bool concatenates = false; ///< several registers in one command
        bool bigEndian = false;    ///< memory holds registers as the register commands carry them
        /// Descriptions before schema 1.1 declare 4-byte registers as the register commands carry them.
        bool legacyDescription = false;
    };
    using WriteListener = std::function<void(std::uint64_t address, std::size_t size)>;

    /// \param onWritten is told of each successful write, on the writing thread.
    RegisterAccess(GvcpClient &client, WriteListener onWritten) : m_client(client), m_onWritten(std::move(onWritten)) {}

    /// While opening, before other threads come.
    void Learn(const Facts &facts) { m_facts = facts; }

    Status Read(std::uint64_t address, void *data, std::size_t size);
    Status Write(std::uint64_t address, const void *data, std::size_t size) EXCLUDES(m_writeMutex);
    /// One after the other, until one fails. \param done how many succeeded.
    Status ReadAll(const std::vector<PortAccess> &accesses, std::size_t &done);
    Status WriteAll(const std::vector<PortAccess> &accesses, std::size_t &done) EXCLUDES(m_writeMutex);

private:
    /// How many accesses from `first` on can go into one register command, 0 or 1 when none can.
    std::size_t CountTogether(const std::vector<PortAccess> &accesses, std::size_t first, std::size_t limit) const;
    bool ReadTogether(const std::vector<PortAccess> &accesses, std::size_t first, std::size_t count);
    /// \param done counts on.
    Status WriteTogether(const std::vector<PortAccess> &accesses, std::size_t count, std::size_t &done)
        EXCLUDES(m_writeMutex);
    Status WriteWords(std::uint32_t address, const std::uint8_t *data, std::size_t size);
    Status WriteChunk(std::uint64_t address, const std::uint8_t *data, std::size_t size);

    GvcpClient &m_client;
    const WriteListener m_onWritten;
    Facts m_facts;           ///< constant after opening
    orv::Mutex m_writeMutex; ///< makes reading and writing back the rest of a word one step; held for its round trips
};

} // namespace nuvark::gige
