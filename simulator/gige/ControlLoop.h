#pragma once

#include "simulator/gige/ControlServer.h"
#include "simulator/gige/ControlSockets.h"
#include "simulator/gige/MessageChannel.h"
#include "simulator/gige/Reply.h"

#include <atomic>
#include <map>
#include <memory>
#include <string>
#include <thread>

namespace orvsim {

/// The camera's control thread: brings datagrams from the sockets to the control server and the message channel, and
/// their answers out again when they are due.
///
/// Threads: Wake() from any; MoveTo() from the control thread only (the server calls it through the device); the rest
/// from the owner's. Full: beyond 1024 answers that wait for their time, further ones are dropped.
class ControlLoop {
public:
    ControlLoop(ControlServer &server, MessageChannel &messages);
    ~ControlLoop();

    /// Binds the sockets. \return what went wrong; empty on success.
    std::string Open(const NetworkAddress &network);
    std::uint16_t MessagePort() const { return m_sockets->MessagePort(); }
    void Start();
    /// Joins the thread and closes the sockets.
    void Stop();
    /// An event was queued, or something else wants a look soon.
    void Wake();
    /// New sockets on another address; the old ones stay when it cannot be taken.
    bool MoveTo(const NetworkAddress &network);

private:
    void Run();
    void Wait();
    void ReceiveAll();
    void Take(std::vector<Reply> replies);
    void SendDue(TimePoint now);

    ControlServer &m_server;
    MessageChannel &m_messages;
    std::unique_ptr<ControlSockets> m_sockets; // control thread only, once started
    std::multimap<TimePoint, Reply> m_waiting; // the same
    Descriptor m_wake;                         // eventfd
    std::atomic<bool> m_isStopping{false};
    std::thread m_thread;
};

} // namespace orvsim
