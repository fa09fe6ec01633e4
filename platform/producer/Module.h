#pragma once

#include "base/Mutex.h"
#include "producer/Event.h"
#include "producer/HandleTable.h"
#include "producer/Info.h"
#include "producer/Transport.h"

#include <map>
#include <memory>
#include <string>
#include <vector>

namespace nuvark {

class RegisterMap;

/// How a module's port presents itself.
struct PortFacts {
    std::string id;
    std::string vendor;
    std::string model;
    std::string tlType;
    std::string module;   ///< "TLSystem"
    std::string portName; ///< as in its description
    std::string version;
    bool littleEndian = true;
    bool accessible = true; ///< false once nothing answers any more
    bool readable = true;
    bool writable = true;
};

/// What system, interface, device, camera port and stream have in common: a handle, a port and events.
///
/// Life: made by its parent, which owns it until Close(). A call that is under way when it is closed still finds a
/// whole object; it just fails. Threads: any. Lock order from outer to inner: a module's control lock (one start, stop
/// or close at a time), the modules' list locks (never two at once, never while closing a child), the stream
/// receiver's, the buffer queue's, m_eventMutex, an event's, an event source's, the handle table's.
class Module : public Object {
public:
    static bool IsKind(Kind kind) { return kind != Kind::Buffer && kind != Kind::Event; }

    using Object::Object;

    virtual Status ReadPort(std::uint64_t address, void *data, std::size_t size);
    virtual Status WritePort(std::uint64_t address, const void *data, std::size_t size);
    /// One after the other, until one fails. \param done how many succeeded.
    virtual Status ReadPorts(const std::vector<PortAccess> &accesses, std::size_t &done);
    virtual Status WritePorts(const std::vector<PortAccess> &accesses, std::size_t &done);
    virtual PortFacts Facts() = 0;
    /// All descriptions that the port offers, the best first.
    virtual Result<std::vector<DescriptionUrl>> Urls();

    /// \return the new event's handle.
    Result<void *> RegisterEvent(EVENT_TYPE type) EXCLUDES(m_eventMutex);
    Status UnregisterEvent(EVENT_TYPE type) EXCLUDES(m_eventMutex);

protected:
    /// The module's own registers; null for a port that leads elsewhere.
    virtual const RegisterMap *Registers() const { return nullptr; }

    /// Where events of that type come from; null when the module has none of that type.
    virtual std::shared_ptr<EventSource> MakeEventSource(EVENT_TYPE type);
    /// Runs right after registration, with the new source in place. A failure undoes the registration.
    virtual Status OnEventRegistered(EVENT_TYPE, EventSource &) { return {}; }
    /// Runs after the end of a registration, though not when the whole module ends.
    virtual void OnEventUnregistered(EVENT_TYPE) {}
    bool IsRegistered(EVENT_TYPE type) EXCLUDES(m_eventMutex) { return FindEvent(type) != nullptr; }

    /// Puts data into the event's queue, if it is registered.
    void Fire(EVENT_TYPE type, std::vector<std::uint8_t> data) EXCLUDES(m_eventMutex);
    void FireError(GC_ERROR code, const std::string &text);
    /// Wakes a waiter: the event's source has got data by another way.
    void NotifyEvent(EVENT_TYPE type) EXCLUDES(m_eventMutex);
    /// Unregisters all events and makes the handle invalid.
    void EndHandle() EXCLUDES(m_eventMutex);

    orv::Mutex m_eventMutex;

private:
    std::shared_ptr<Event> FindEvent(EVENT_TYPE type) EXCLUDES(m_eventMutex);
    /// \param only  null, or leaves any other event of that type alone: it may be a later registration's.
    Status EndRegistration(EVENT_TYPE type, const Event *only) EXCLUDES(m_eventMutex);
    static void EndEvent(Event &event);

    std::map<EVENT_TYPE, std::shared_ptr<Event>> m_events GUARDED_BY(m_eventMutex);
    bool m_ended GUARDED_BY(m_eventMutex) = false;
};

} // namespace nuvark
