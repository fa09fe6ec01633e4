#pragma once

#include "MadeDescription.h"

#include "orvcam/OrvStatus.h"
#include "orvcam/PortIo.h"

#include <atomic>
#include <cstring>
#include <vector>

/// A camera made of bytes: registers are what lies at their address.
class BytePort final : public orv::cam::PortIo {
public:
    explicit BytePort(std::size_t size = 0x1000) : bytes(size, 0) {}

    std::vector<unsigned char> bytes;
    std::atomic<int> accesses{0};
    std::atomic<int> writes{0};
    int failAt = -1; ///< number of the access (from 0) that fails; -1: none
    int failWith = ORV_CAM_ERR_IO;
    std::uint64_t clearsItself = ~std::uint64_t{0}; ///< a register that goes back to 0 on the third read after a write
    int readsUntilClear = 0;

    int Read(std::uint64_t address, void *data, std::size_t count, std::string *why) override
    {
        const int status = Check(address, count, why);
        if (status != ORV_CAM_OK)
            return status;
        if (address == clearsItself && readsUntilClear > 0 && --readsUntilClear == 0)
            std::memset(&bytes[address], 0, count);
        std::memcpy(data, &bytes[address], count);
        return ORV_CAM_OK;
    }
    int Write(std::uint64_t address, const void *data, std::size_t count, std::string *why) override
    {
        const int status = Check(address, count, why);
        if (status != ORV_CAM_OK)
            return status;
        ++writes;
        if (address == clearsItself)
            readsUntilClear = 3;
        std::memcpy(&bytes[address], data, count);
        return ORV_CAM_OK;
    }

private:
    int Check(std::uint64_t address, std::size_t count, std::string *why)
    {
        if (accesses++ == failAt) {
            *why = "made to fail";
            return failWith;
        }
        if (address > bytes.size() || count > bytes.size() - address) {
            *why = "no register there";
            return ORV_CAM_ERR_IO;
        }
        return ORV_CAM_OK;
    }
};
