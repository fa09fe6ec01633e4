#include "producer/Modules.h"

namespace nuvark {

Status RemotePort::ReadPort(std::uint64_t address, void *data, std::size_t size)
{
    return m_device->GetCamera().Read(address, data, size);
}

Status RemotePort::WritePort(std::uint64_t address, const void *data, std::size_t size)
{
    return m_device->GetCamera().Write(address, data, size);
}

Status RemotePort::ReadPorts(const std::vector<PortAccess> &accesses, std::size_t &done)
{
    return m_device->GetCamera().ReadAll(accesses, done);
}

Status RemotePort::WritePorts(const std::vector<PortAccess> &accesses, std::size_t &done)
{
    return m_device->GetCamera().WriteAll(accesses, done);
}

PortFacts RemotePort::Facts()
{
    const DeviceRecord record = m_device->Record();
    PortFacts facts;
    facts.id = record.id;
    facts.vendor = record.vendor;
    facts.model = record.model;
    facts.tlType = TLTypeGEVName;
    facts.module = "Device";
    facts.portName = "Device";
    facts.version = record.version;
    facts.littleEndian = m_device->GetCamera().IsLittleEndian();
    facts.accessible = !m_device->IsLost();
    facts.readable = facts.accessible;
    facts.writable = facts.accessible && m_device->GetCamera().IsWritable();
    return facts;
}

Result<std::vector<DescriptionUrl>> RemotePort::Urls()
{
    std::vector<DescriptionUrl> urls = m_device->GetCamera().DescriptionUrls();
    if (urls.empty())
        return Status(GC_ERR_IO, "the camera gives no address of its description");
    return urls;
}

} // namespace nuvark
