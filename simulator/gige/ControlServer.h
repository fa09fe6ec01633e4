#pragma once

#include "base/Bytes.h"
#include "simulator/core/Faults.h"
#include "simulator/gige/AnswerCache.h"
#include "simulator/gige/Bootstrap.h"
#include "simulator/gige/ControlledDevice.h"
#include "simulator/gige/Gvcp.h"
#include "simulator/gige/MessageChannel.h"
#include "simulator/gige/RateLimit.h"
#include "simulator/gige/Reply.h"

#include <atomic>
#include <cstdint>
#include <vector>

namespace orvsim {

/// The device's end of the control channel: takes commands, gives answers, watches the heartbeat. No sockets and no
/// clock of its own.
///
/// Whoever writes CCP first is in control, by address and port, until it writes 0 or is silent for the heartbeat
/// time-out; then the channels close and the acquisition ends. Others may read (unless control is exclusive) but not
/// write. Nothing is sent without a command that asked for it.
///
/// Threads: RequestReset() from any; the rest from one.
class ControlServer {
public:
    ControlServer(Bootstrap &bootstrap, ControlledDevice &device, MessageChannel &messages, std::uint64_t seed);

    /// A datagram that came to the control socket.
    /// \return the answers, each with the time when it is due.
    std::vector<Reply> Handle(const Endpoint &from, orv::ByteSpan datagram, TimePoint now);
    /// The same for one that came by broadcast: only discovery, FORCEIP and actions may.
    std::vector<Reply> HandleBroadcast(const Endpoint &from, orv::ByteSpan datagram, TimePoint now);
    /// Time-outs, and what other threads changed. To be called every 20 ms or so.
    void Tick(TimePoint now);
    /// With the next Tick() the controller is dropped and all registers are as after switching on: the device restarts.
    void RequestReset() { m_isResetRequested = true; }
    /// True while the device plays dead: nothing may be sent, late answers neither.
    bool IsVanished(TimePoint now) const { return now < m_vanishedUntil; }

private:
    struct Request {
        Endpoint from;
        ParsedCommand command;
        TimePoint now;
    };
    struct Answer {
        GvcpStatus status = GvcpStatus::Success;
        std::vector<std::uint8_t> payload = {};
        bool isSilent = false; ///< the command was not for this device, or has no answer
        bool isBroadcast = false;
        std::int64_t delayMs = 0;
        std::int64_t busyMs = 0; ///< worth a PENDING_ACK
    };
    using Handler = Answer (ControlServer::*)(const Request &);
    struct HandlerRow {
        GvcpCommand command;
        Handler handle;
        bool isRemembered; ///< a repeat is answered from the cache
    };
    static const HandlerRow kHandlers[];
    static const HandlerRow *FindHandler(const ParsedCommand &command);

    Answer Discover(const Request &request);
    Answer ForceIp(const Request &request);
    Answer Resend(const Request &request);
    Answer ReadRegisters(const Request &request);
    Answer WriteRegisters(const Request &request);
    Answer ReadMemory(const Request &request);
    Answer WriteMemory(const Request &request);
    Answer Act(const Request &request);
    static Answer Failure(GvcpStatus status) { return {status}; }

    bool MayRead(const Endpoint &from) const;
    /// Checks and does one write, then what follows from it.
    GvcpStatus Write(const Request &request, std::uint32_t address, orv::ByteSpan bytes, std::int64_t &busyMs);
    bool MayWrite(const Endpoint &from, std::uint32_t address, std::size_t size) const;
    bool IsForeign(const Endpoint &from) const;
    double PacketsOf(const ResendRequest &request, const StreamTarget &target);

    void ApplyChanges(TimePoint now);
    void DropControl(TimePoint now);
    void Restart(TimePoint now);
    void CheckFaults(TimePoint now);

    std::vector<Reply> Serve(const Endpoint &from, orv::ByteSpan datagram, const ParsedCommand &command, TimePoint now);
    std::vector<Reply> Repeat(const Request &request, const AnswerCache::Entry &entry);
    std::vector<Reply> Respond(const Request &request, orv::ByteSpan datagram, const HandlerRow *row,
                               const Answer &answer);
    /// The answer as the faults leave it: late, twice, under another id, or not at all.
    void Send(const Endpoint &to, const Datagram &bytes, TimePoint at, std::vector<Reply> &out);

    Bootstrap &m_bootstrap;
    ControlledDevice &m_device;
    MessageChannel &m_messages;
    FaultDice m_dice;
    Faults m_faults; ///< as they were at the start of the present command
    AnswerCache m_cache;
    RateLimit m_resendBudget;
    TimePoint m_heardAt{};       ///< last command of the controller
    TimePoint m_controlSince{};  ///< when control was taken
    TimePoint m_vanishedUntil{}; ///< in the past: it is there
    std::atomic<bool> m_isResetRequested{false};
};

} // namespace orvsim
