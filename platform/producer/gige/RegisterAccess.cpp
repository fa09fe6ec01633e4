#include "producer/gige/RegisterAccess.h"

#include "producer/gige/Text.h"

#include <algorithm>
#include <cstring>

namespace nuvark::gige {

namespace {

std::uint32_t BigEndianWord(const std::uint8_t *bytes)
{
    return orv::ByteReader({bytes, 4}).U32();
}

void StoreBigEndian(std::uint32_t value, std::uint8_t *bytes)
{
    for (int i = 0; i < 4; ++i)
        bytes[i] = static_cast<std::uint8_t>(value >> (24 - 8 * i));
}

} // namespace

Status RegisterAccess::Read(std::uint64_t address, void *data, std::size_t size)
{
    if (size == 0)
        return {};
    if (address + size > (std::uint64_t{1} << 32) || address + size < address)
        return {GC_ERR_INVALID_ADDRESS, "address " + Hex(address) + " is beyond the camera's register space"};
    auto *target = static_cast<std::uint8_t *>(data);
    if (m_facts.legacyDescription && size == 4 && address % 4 == 0) {
        std::uint32_t value = 0;
        const Status status = m_client.ReadRegister(static_cast<std::uint32_t>(address), value);
        StoreBigEndian(value, target);
        return status;
    }
    std::uint8_t chunk[kMemoryChunk];
    for (std::size_t done = 0; done < size;) {
        const auto aligned = static_cast<std::uint32_t>((address + done) & ~std::uint64_t{3});
        const std::size_t lead = (address + done) - aligned;
        const std::size_t take = std::min(kMemoryChunk - lead, size - done);
        const Status status = m_client.ReadMemory(aligned, chunk, (lead + take + 3) / 4 * 4);
        if (!status.Ok())
            return status;
        std::memcpy(target + done, chunk + lead, take);
        done += take;
    }
    return {};
}

Status RegisterAccess::Write(std::uint64_t address, const void *data, std::size_t size)
{
    if (size == 0)
        return {};
    if (address + size > (std::uint64_t{1} << 32) || address + size < address)
        return {GC_ERR_INVALID_ADDRESS, "address " + Hex(address) + " is beyond the camera's register space"};
    const auto *source = static_cast<const std::uint8_t *>(data);
    const orv::MutexLock lock(m_writeMutex);
    for (std::size_t done = 0; done < size;) {
        const std::size_t lead = (address + done) % 4;
        const std::size_t take = std::min(kMemoryChunk - lead, size - done);
        const Status status = WriteChunk(address + done, source + done, take);
        if (!status.Ok())
            return status;
        done += take;
    }
    m_onWritten(address, size);
    return {};
}

std::size_t RegisterAccess::CountTogether(const std::vector<PortAccess> &accesses, std::size_t first,
                                          std::size_t limit) const
{
    // On others the same four bytes would come in another order than Read() and Write() have them.
    if (!m_facts.concatenates || !(m_facts.bigEndian || m_facts.legacyDescription))
        return 0;
    std::size_t count = 0;
    for (; first + count < accesses.size() && count < limit; ++count) {
        const PortAccess &access = accesses[first + count];
        if (access.size != 4 || access.address % 4 != 0 || access.address > 0xFFFFFFFC)
            break;
    }
    return count;
}

Status RegisterAccess::ReadAll(const std::vector<PortAccess> &accesses, std::size_t &done)
{
    for (done = 0; done < accesses.size();) {
        const std::size_t count = CountTogether(accesses, done, kMaxReads);
        if (count > 1 && ReadTogether(accesses, done, count)) {
            done += count;
            continue;
        }
        // What failed together shows one by one where it fails.
        for (const std::size_t end = done + std::max<std::size_t>(count, 1); done < end; ++done) {
            Status status = Read(accesses[done].address, accesses[done].data, accesses[done].size);
            if (!status.Ok())
                return status;
        }
    }
    return {};
}

bool RegisterAccess::ReadTogether(const std::vector<PortAccess> &accesses, std::size_t first, std::size_t count)
{
    std::vector<std::uint32_t> addresses;
    for (std::size_t i = first; i < first + count; ++i)
        addresses.push_back(static_cast<std::uint32_t>(accesses[i].address));
    std::vector<std::uint32_t> values;
    if (!m_client.ReadRegisters(addresses, values).Ok())
        return false;
    for (std::size_t i = 0; i < count; ++i)
        StoreBigEndian(values[i], accesses[first + i].data);
    return true;
}

Status RegisterAccess::WriteAll(const std::vector<PortAccess> &accesses, std::size_t &done)
{
    for (done = 0; done < accesses.size();) {
        const std::size_t count = CountTogether(accesses, done, kMaxWrites);
        if (count > 1) {
            Status status = WriteTogether(accesses, count, done);
            if (!status.Ok())
                return status;
            continue;
        }
        Status status = Write(accesses[done].address, accesses[done].data, accesses[done].size);
        if (!status.Ok())
            return status;
        ++done;
    }
    return {};
}

Status RegisterAccess::WriteTogether(const std::vector<PortAccess> &accesses, std::size_t count, std::size_t &done)
{
    std::vector<RegisterWrite> writes;
    for (std::size_t i = done; i < done + count; ++i)
        writes.push_back({static_cast<std::uint32_t>(accesses[i].address), BigEndianWord(accesses[i].data)});
    std::optional<std::size_t> written;
    Status status;
    {
        const orv::MutexLock lock(m_writeMutex);
        status = m_client.WriteRegisters(writes, written);
    }
    // Where the camera does not say how far it got nothing counts as written, and nothing is written twice.
    for (std::size_t i = 0; i < written.value_or(0); ++i)
        m_onWritten(accesses[done + i].address, accesses[done + i].size);
    done += written.value_or(0);
    if (status.Code() != GC_ERR_BUSY || !written || *written >= count)
        return status;
    // The one that it was too busy for may be asked for again, alone.
    status = Write(accesses[done].address, accesses[done].data, accesses[done].size);
    if (status.Ok())
        ++done;
    return status;
}

Status RegisterAccess::WriteChunk(std::uint64_t address, const std::uint8_t *data, std::size_t size)
{
    const auto aligned = static_cast<std::uint32_t>(address & ~std::uint64_t{3});
    const std::size_t lead = address - aligned;
    const std::size_t padded = (lead + size + 3) / 4 * 4;
    std::uint8_t chunk[kMemoryChunk];
    // The words at the two ends keep the bytes that are not written.
    if (lead != 0) {
        const Status status = m_client.ReadMemory(aligned, chunk, 4);
        if (!status.Ok())
            return status;
    }
    if (lead + size != padded && (lead == 0 || padded > 4)) {
        const Status status =
            m_client.ReadMemory(static_cast<std::uint32_t>(aligned + padded - 4), chunk + padded - 4, 4);
        if (!status.Ok())
            return status;
    }
    std::memcpy(chunk + lead, data, size);
    return WriteWords(aligned, chunk, padded);
}

Status RegisterAccess::WriteWords(std::uint32_t address, const std::uint8_t *data, std::size_t size)
{
    const bool byRegister = !m_facts.writesMemory || (m_facts.legacyDescription && size == 4);
    if (!byRegister)
        return m_client.WriteMemory(address, {data, size});
    for (std::size_t i = 0; i < size; i += 4) {
        Status status = m_client.WriteRegister(static_cast<std::uint32_t>(address + i), BigEndianWord(data + i));
        if (!status.Ok())
            return status;
    }
    return {};
}

} // namespace nuvark::gige
