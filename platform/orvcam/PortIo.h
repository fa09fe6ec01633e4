#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace orv::cam {

/// The registers behind one GenTL port: a camera's, or those of a module on the host. Bytes as they lie on the wire.
class PortIo {
public:
    virtual ~PortIo() = default;

    /// All or nothing. \return an OrvCamStatus; on failure a sentence in `*why`.
    virtual int Read(std::uint64_t address, void *data, std::size_t bytes, std::string *why) = 0;
    virtual int Write(std::uint64_t address, const void *data, std::size_t bytes, std::string *why) = 0;
};

} // namespace orv::cam
