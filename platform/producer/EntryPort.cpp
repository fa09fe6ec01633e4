#include "producer/Entry.h"

// Port functions: registers and descriptions of any module.

namespace nuvark::entry {

namespace {

Result<std::shared_ptr<Module>> GetPort(PORT_HANDLE handle)
{
    if (HandleTable::Instance().Find<Buffer>(handle) != nullptr)
        return Status(GC_ERR_NOT_IMPLEMENTED, "buffers have no port");
    return FromHandle<Module>(handle, "a module with a port");
}

Result<InfoValue> PortInfo(const PortFacts &facts, PORT_INFO_CMD command)
{
    switch (command) {
    case PORT_INFO_ID:
        return InfoValue::String(facts.id);
    case PORT_INFO_VENDOR:
        return InfoValue::String(facts.vendor);
    case PORT_INFO_MODEL:
        return InfoValue::String(facts.model);
    case PORT_INFO_TLTYPE:
        return InfoValue::String(facts.tlType);
    case PORT_INFO_MODULE:
        return InfoValue::String(facts.module);
    case PORT_INFO_LITTLE_ENDIAN:
        return InfoValue::Bool(facts.littleEndian);
    case PORT_INFO_BIG_ENDIAN:
        return InfoValue::Bool(!facts.littleEndian);
    case PORT_INFO_ACCESS_READ:
        return InfoValue::Bool(facts.readable);
    case PORT_INFO_ACCESS_WRITE:
        return InfoValue::Bool(facts.writable);
    case PORT_INFO_ACCESS_NA:
        return InfoValue::Bool(!facts.accessible);
    case PORT_INFO_ACCESS_NI:
        return InfoValue::Bool(false);
    case PORT_INFO_VERSION:
        return InfoValue::String(facts.version);
    case PORT_INFO_PORTNAME:
        return InfoValue::String(facts.portName);
    default:
        return UnknownCommand("port", command);
    }
}

Result<InfoValue> NumberOrUnknown(bool known, InfoValue value)
{
    if (!known)
        return Status(GC_ERR_NOT_AVAILABLE, "this is not known of the description");
    return value;
}

Result<InfoValue> UrlInfo(const DescriptionUrl &url, URL_INFO_CMD command)
{
    const bool isLocal = url.scheme == URL_SCHEME_LOCAL;
    switch (command) {
    case URL_INFO_URL:
        return InfoValue::String(url.url);
    case URL_INFO_SCHEMA_VER_MAJOR:
        return NumberOrUnknown(url.schemaMajor != 0, InfoValue::Int32(url.schemaMajor));
    case URL_INFO_SCHEMA_VER_MINOR:
        return NumberOrUnknown(url.schemaMajor != 0, InfoValue::Int32(url.schemaMinor));
    case URL_INFO_FILE_VER_MAJOR:
        return NumberOrUnknown(url.fileMajor != 0, InfoValue::Int32(url.fileMajor));
    case URL_INFO_FILE_VER_MINOR:
        return NumberOrUnknown(url.fileMajor != 0, InfoValue::Int32(url.fileMinor));
    case URL_INFO_FILE_VER_SUBMINOR:
        return NumberOrUnknown(url.fileMajor != 0, InfoValue::Int32(url.fileSubMinor));
    case URL_INFO_FILE_SHA1_HASH:
        return NumberOrUnknown(false, {});
    case URL_INFO_FILE_REGISTER_ADDRESS:
        return NumberOrUnknown(isLocal, InfoValue::UInt64(url.address));
    case URL_INFO_FILE_SIZE:
        return NumberOrUnknown(isLocal, InfoValue::UInt64(url.size));
    case URL_INFO_SCHEME:
        return InfoValue::Int32(url.scheme);
    case URL_INFO_FILENAME:
        return InfoValue::String(url.fileName);
    default:
        return UnknownCommand("URL", command);
    }
}

/// The entries up to the first that cannot be used; the list is packed, its members may be unaligned.
std::vector<PortAccess> UsableEntries(const PORT_REGISTER_STACK_ENTRY *pEntries, std::size_t count)
{
    std::vector<PortAccess> accesses;
    for (std::size_t i = 0; i < count; ++i) {
        PORT_REGISTER_STACK_ENTRY entry;
        std::memcpy(&entry, pEntries + i, sizeof entry);
        if (IsInvalidPointer(entry.pBuffer))
            break;
        accesses.push_back({entry.Address, static_cast<std::uint8_t *>(entry.pBuffer), entry.Size});
    }
    return accesses;
}

/// Runs `access` over a list until one entry fails; tells how many were done in any case.
template <class Access>
Status RunStacked(PORT_HANDLE hPort, PORT_REGISTER_STACK_ENTRY *pEntries, size_t *piNumEntries, Access access)
{
    const auto port = GetPort(hPort);
    if (!port.Ok())
        return port.status;
    if (IsInvalidPointer(pEntries) || IsInvalidPointer(piNumEntries))
        return InvalidPointer("pEntries or piNumEntries");
    const std::size_t count = *piNumEntries;
    *piNumEntries = 0;
    const std::vector<PortAccess> accesses = UsableEntries(pEntries, count);
    Status status = access(*port.value, accesses, *piNumEntries);
    if (status.Ok() && accesses.size() < count)
        return InvalidPointer("pBuffer of an entry");
    return status;
}

} // namespace

Status GCGetPortInfo(PORT_HANDLE hPort, PORT_INFO_CMD iInfoCmd, INFO_DATATYPE *piType, void *pBuffer, size_t *piSize)
{
    const auto port = GetPort(hPort);
    return port.Ok() ? GiveInfo(PortInfo(port.value->Facts(), iInfoCmd), piType, pBuffer, piSize) : port.status;
}

Status GCGetPortURL(PORT_HANDLE hPort, char *sURL, size_t *piSize)
{
    const auto port = GetPort(hPort);
    if (!port.Ok())
        return port.status;
    const auto urls = port.value->Urls();
    if (!urls.Ok())
        return urls.status;
    // A string list of one entry. Without the suffix old consumers take the schema for 1.0.
    const DescriptionUrl &first = urls.value.front();
    std::string list = first.url;
    if (first.schemaMajor != 0) {
        list += "?SchemaVersion=" + std::to_string(first.schemaMajor) + "." + std::to_string(first.schemaMinor) + ".0";
    }
    list += '\0';
    return GiveString(list, sURL, piSize);
}

Status GCGetNumPortURLs(PORT_HANDLE hPort, uint32_t *piNumURLs)
{
    const auto port = GetPort(hPort);
    if (!port.Ok())
        return port.status;
    const auto urls = port.value->Urls();
    return urls.Ok() ? Give(urls.value.size(), piNumURLs, "piNumURLs") : urls.status;
}

Status GCGetPortURLInfo(PORT_HANDLE hPort, uint32_t iURLIndex, URL_INFO_CMD iInfoCmd, INFO_DATATYPE *piType,
                        void *pBuffer, size_t *piSize)
{
    const auto port = GetPort(hPort);
    if (!port.Ok())
        return port.status;
    const auto urls = port.value->Urls();
    if (!urls.Ok())
        return urls.status;
    if (iURLIndex >= urls.value.size())
        return {GC_ERR_INVALID_INDEX, "URL " + std::to_string(iURLIndex) + " of " + std::to_string(urls.value.size())};
    return GiveInfo(UrlInfo(urls.value[iURLIndex], iInfoCmd), piType, pBuffer, piSize);
}

Status GCReadPort(PORT_HANDLE hPort, uint64_t iAddress, void *pBuffer, size_t *piSize)
{
    const auto port = GetPort(hPort);
    if (!port.Ok())
        return port.status;
    if (IsInvalidPointer(pBuffer) || IsInvalidPointer(piSize))
        return InvalidPointer("pBuffer or piSize");
    return port.value->ReadPort(iAddress, pBuffer, *piSize);
}

Status GCWritePort(PORT_HANDLE hPort, uint64_t iAddress, const void *pBuffer, size_t *piSize)
{
    const auto port = GetPort(hPort);
    if (!port.Ok())
        return port.status;
    if (IsInvalidPointer(pBuffer) || IsInvalidPointer(piSize))
        return InvalidPointer("pBuffer or piSize");
    return port.value->WritePort(iAddress, pBuffer, *piSize);
}

Status GCReadPortStacked(PORT_HANDLE hPort, PORT_REGISTER_STACK_ENTRY *pEntries, size_t *piNumEntries)
{
    return RunStacked(hPort, pEntries, piNumEntries, [](Module &port, const auto &accesses, std::size_t &done) {
        return port.ReadPorts(accesses, done);
    });
}

Status GCWritePortStacked(PORT_HANDLE hPort, PORT_REGISTER_STACK_ENTRY *pEntries, size_t *piNumEntries)
{
    return RunStacked(hPort, pEntries, piNumEntries, [](Module &port, const auto &accesses, std::size_t &done) {
        return port.WritePorts(accesses, done);
    });
}

} // namespace nuvark::entry
