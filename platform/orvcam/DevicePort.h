#pragma once

#include "gentl/Library.h"
#include "orvcam/Contact.h"
#include "orvcam/LossFlag.h"
#include "orvcam/PortIo.h"

#include <atomic>
#include <string>
#include <vector>

namespace orv::cam {

/// Registers behind a GenTL port handle.
/// Threads: as the producer's port functions: any.
class DevicePort final : public PortIo {
public:
    /// \param lost  once set, every access fails at once.
    /// \param contact  learns of every access; null for a module of the producer, which answers without the camera.
    DevicePort(const gentl::Functions &calls, PORT_HANDLE port, const LossFlag &lost, Contact *contact = nullptr)
        : m_calls(calls), m_port(port), m_lost(lost), m_contact(contact)
    {
    }

    int Read(std::uint64_t address, void *data, std::size_t bytes, std::string *why) override;
    int Write(std::uint64_t address, const void *data, std::size_t bytes, std::string *why) override;
    /// The same registers behind another handle from now on.
    void Rebind(PORT_HANDLE port) { m_port = port; }
    /// Where the port's description may be fetched, in the producer's order.
    std::vector<std::string> DescriptionUrls() const;

private:
    template <class Call> GC_ERROR Access(const Call &call);
    int Finish(const char *call, std::uint64_t address, std::size_t wanted, std::size_t done, GC_ERROR result,
               std::string *why) const;

    const gentl::Functions &m_calls;
    std::atomic<PORT_HANDLE> m_port;
    const LossFlag &m_lost;
    Contact *const m_contact;
};

} // namespace orv::cam
