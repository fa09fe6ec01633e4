#include "producer/Module.h"

#include "producer/RegisterMap.h"

namespace nuvark {

Status Module::ReadPort(std::uint64_t address, void *data, std::size_t size)
{
    return Registers()->Read(address, data, size);
}

Status Module::WritePort(std::uint64_t address, const void *data, std::size_t size)
{
    return Registers()->Write(address, data, size);
}

Status Module::ReadPorts(const std::vector<PortAccess> &accesses, std::size_t &done)
{
    for (done = 0; done < accesses.size(); ++done) {
        const PortAccess &access = accesses[done];
        Status status = ReadPort(access.address, access.data, access.size);
        if (!status.Ok())
            return status;
    }
    return {};
}

Status Module::WritePorts(const std::vector<PortAccess> &accesses, std::size_t &done)
{
    for (done = 0; done < accesses.size(); ++done) {
        const PortAccess &access = accesses[done];
        Status status = WritePort(access.address, access.data, access.size);
        if (!status.Ok())
            return status;
    }
    return {};
}

Result<std::vector<DescriptionUrl>> Module::Urls()
{
    const RegisterMap *registers = Registers();
    DescriptionUrl url;
    url.fileName = registers->DescriptionFileName();
    url.address = RegisterMap::kDescriptionAddress;
    url.size = registers->Description().size();
    url.schemaMajor = 1;
    url.schemaMinor = 1;
    url.fileMajor = RegisterMap::kDescriptionMajor;
    char numbers[40];
    std::snprintf(numbers, sizeof numbers, ";%llx;%llx", static_cast<unsigned long long>(url.address),
                  static_cast<unsigned long long>(url.size));
    url.url = "local:" + url.fileName + numbers;
    return std::vector<DescriptionUrl>{url};
}

std::shared_ptr<EventSource> Module::MakeEventSource(EVENT_TYPE type)
{
    if (type == EVENT_ERROR)
        return std::make_shared<ErrorEvents>();
    return nullptr;
}

Result<void *> Module::RegisterEvent(EVENT_TYPE type)
{
    std::shared_ptr<EventSource> source = MakeEventSource(type);
    if (source == nullptr)
        return Status(GC_ERR_NOT_IMPLEMENTED, "this module has no events of type " + std::to_string(type));
    auto event = std::make_shared<Event>(type, source);
    {
        const orv::MutexLock lock(m_eventMutex);
        if (m_ended)
            return Status(GC_ERR_INVALID_HANDLE, "the module has been closed");
        if (!m_events.emplace(type, event).second)
            return Status(GC_ERR_RESOURCE_IN_USE, "events of type " + std::to_string(type) + " are registered already");
        HandleTable::Instance().Add(event);
    }
    Status begun = OnEventRegistered(type, *source);
    if (!begun.Ok()) {
        (void)EndRegistration(type, event.get());
        return begun;
    }
    return event->Handle();
}

Status Module::UnregisterEvent(EVENT_TYPE type)
{
    return EndRegistration(type, nullptr);
}

Status Module::EndRegistration(EVENT_TYPE type, const Event *only)
{
    std::shared_ptr<Event> event;
    {
        const orv::MutexLock lock(m_eventMutex);
        const auto found = m_events.find(type);
        if (found == m_events.end() || (only != nullptr && found->second.get() != only))
            return {GC_ERR_NOT_INITIALIZED, "events of type " + std::to_string(type) + " are not registered"};
        event = std::move(found->second);
        m_events.erase(found);
    }
    EndEvent(*event);
    OnEventUnregistered(type);
    return {};
}

void Module::EndEvent(Event &event)
{
    HandleTable::Instance().Remove(event);
    event.Close();
    event.Source().Clear();
}

std::shared_ptr<Event> Module::FindEvent(EVENT_TYPE type)
{
    const orv::MutexLock lock(m_eventMutex);
    const auto found = m_events.find(type);
    return found != m_events.end() ? found->second : nullptr;
}

void Module::Fire(EVENT_TYPE type, std::vector<std::uint8_t> data)
{
    const std::shared_ptr<Event> event = FindEvent(type);
    if (event == nullptr)
        return;
    static_cast<EventQueue &>(event->Source()).Push(std::move(data));
    event->Notify();
}

void Module::FireError(GC_ERROR code, const std::string &text)
{
    Fire(EVENT_ERROR, ErrorEvents::Encode(code, text));
}

void Module::NotifyEvent(EVENT_TYPE type)
{
    const std::shared_ptr<Event> event = FindEvent(type);
    if (event != nullptr)
        event->Notify();
}

void Module::EndHandle()
{
    HandleTable::Instance().Remove(*this);
    std::map<EVENT_TYPE, std::shared_ptr<Event>> events;
    {
        const orv::MutexLock lock(m_eventMutex);
        m_ended = true;
        events.swap(m_events);
    }
    for (auto &[type, event] : events)
        EndEvent(*event);
}

} // namespace nuvark
