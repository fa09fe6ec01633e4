#pragma once

#include "base/Mutex.h"
#include "producer/gige/Gvcp.h"
#include "producer/gige/Silence.h"
#include "producer/gige/Turn.h"
#include "producer/gige/UdpSocket.h"
#include "producer/TrafficTap.h"

#include <atomic>
#include <functional>
#include <memory>
#include <optional>

namespace nuvark::gige {

/// How hard a command tries before it gives up.
enum class Effort {
    Normal, ///< all tries; one short one while the camera is not answering
    Beat,  ///< short tries for the acknowledge time, before all others that wait. GC_ERR_BUSY when the channel does not
           ///< become free soon: then a question has been sent beside the command under way
    Quick, ///< one short try, and none at all while another thread uses the channel; for closing sequences
    Last   ///< two short tries, also after an interrupt, which has sent everybody else away
};

/// The control channel to one camera: register and memory accesses over one UDP socket.
///
/// One command is under way at a time; further callers wait for their turn. When a command of normal effort has had no
/// answer to all of its tries the channel counts as not answering: commands then make one short try until anything
/// comes from the camera, if only a late answer, so callers in a row do not wait for a sum of time-outs. A datagram
/// that the host itself cannot send counts as lost on the way. Writes to the maker's registers may take seconds, and a
/// camera that forgets a command over the next one would carry out a repeat once more. They are repeated only when the
/// camera has answered a question that was sent behind them, so that they are lost, and waited for as long as it
/// answers; a silent camera is given up after the silence limit, or the time that it states to need. No answer gives
/// GC_ERR_TIMEOUT, an interrupted wait GC_ERR_ABORT. Threads: any. With the turn nothing is called but the tap.
class GvcpClient {
public:
    struct Timing {
        std::chrono::milliseconds firstTry{200};   ///< short, since datagrams get lost more often than cameras are slow
        std::chrono::milliseconds furtherTry{500}; ///< each
        std::chrono::milliseconds total{2200};     ///< all tries of a command
        std::chrono::milliseconds slowTotal{10000}; ///< of one that writes to the maker's registers
        std::chrono::milliseconds pending{30000};   ///< a camera that says "pending" for longer does not answer
        std::chrono::milliseconds busyPause{20};    ///< before a busy camera is asked again; doubled each time
    };

    /// \param local address of the host interface, \param remote of the camera.
    [[nodiscard]] static Result<std::unique_ptr<GvcpClient>> Open(std::uint32_t local, std::uint32_t remote,
                                                                  const Timing &timing);
    [[nodiscard]] static Result<std::unique_ptr<GvcpClient>> Open(std::uint32_t local, std::uint32_t remote)
    {
        return Open(local, remote, Timing());
    }

    Status ReadRegister(std::uint32_t address, std::uint32_t &value, Effort effort = Effort::Normal) EXCLUDES(m_turn);
    Status WriteRegister(std::uint32_t address, std::uint32_t value, Effort effort = Effort::Normal) EXCLUDES(m_turn);
    /// Several in one command, at most kMaxReads and kMaxWrites; only for cameras with the concatenation capability.
    /// The values are those of all the addresses or, on failure, none.
    Status ReadRegisters(const std::vector<std::uint32_t> &addresses, std::vector<std::uint32_t> &values,
                         Effort effort = Effort::Normal) EXCLUDES(m_turn);
    /// \param done how many were written, also on failure; unset when the camera does not say.
    Status WriteRegisters(const std::vector<RegisterWrite> &writes, std::optional<std::size_t> &done) EXCLUDES(m_turn);
    /// Address and count are multiples of 4, count at most kMemoryChunk.
    Status ReadMemory(std::uint32_t address, std::uint8_t *data, std::size_t count) EXCLUDES(m_turn);
    Status WriteMemory(std::uint32_t address, orv::ByteSpan data) EXCLUDES(m_turn);

    /// Longest time the camera needs for a command without saying so, believed up to ten seconds.
    void SetPendingTimeout(std::chrono::milliseconds time);
    /// A camera that has been silent for so long may be gone: no command waits longer, unless the camera needs longer.
    void SetSilenceLimit(std::chrono::milliseconds time) { m_silenceLimitMs = static_cast<int>(time.count()); }

    bool IsAnswering() const { return m_answering; }
    /// When the camera last answered anything.
    TimePoint LastAnswer() const { return m_silence.LastAnswer(); }
    /// For how long the camera has been asked without answering anything; 0 as long as that may have another reason.
    Clock::duration AskedInVain() const;
    /// The longest time between two answers since the last ForgetGaps().
    Clock::duration LongestGap() const { return m_silence.LongestGap(); }
    void ForgetGaps() { m_silence.ForgetGaps(); }

    /// Ends the command under way and refuses new ones from now on, except for Effort::Last.
    void Interrupt();

    std::uint16_t LocalPort() const { return m_socket.LocalPort(); }

    /// Where every packet of the channel is shown. Before the first command; must outlive the client.
    void SetTap(const TrafficTap *tap) { m_tap = tap; }
    /// Sends a command that has no acknowledge (PACKETRESEND), at once, also while another command is under way.
    Status SendUnanswered(orv::ByteSpan datagram);

private:
    GvcpClient(UdpSocket socket, const Timing &timing) : m_timing(timing), m_socket(std::move(socket)) {}

    struct Request {
        Command command;
        std::uint32_t address;
        Effort effort;
        std::string context;       ///< for messages
        bool mayBeRepeated = true; ///< when the camera is busy: nothing of it has been done then
    };
    struct Plan {
        int tries;
        std::chrono::milliseconds firstTry;
        std::chrono::milliseconds furtherTry;
        std::chrono::milliseconds total;    ///< for all tries of a slow one
        std::chrono::milliseconds patience; ///< silence of the camera that ends it before its tries are used up
        bool isSlow = false;                ///< asks whether the camera is still there before it is repeated
    };
    /// A command under way.
    struct Exchange {
        const Request &request;
        const std::uint16_t id;
        const Datagram datagram;
        std::optional<TimePoint> pendingUntil{}; ///< set once the camera has said "pending"
        std::uint16_t lastIdBefore = 0;          ///< given out when it had been sent (again)
        TimePoint repeatAfter{};                 ///< not sent again before
        bool isOvertaken = false;                ///< the camera has answered what was sent later
        std::vector<std::uint8_t> payload{};     ///< of the answer
        std::uint16_t wireStatus = 0;
    };
    enum class Outcome { Answered, NoAnswer, Interrupted };

    static bool IsWrite(Command command);
    Plan PlanFor(const Request &request) const;
    bool TakeTurn(Effort effort) TRY_ACQUIRE(true, m_turn);

    using MakeDatagram = std::function<Datagram(std::uint16_t requestId)>;
    Status Transact(const Request &request, const MakeDatagram &make, std::vector<std::uint8_t> &payload)
        EXCLUDES(m_turn);
    Status TransactOnce(Exchange &exchange) REQUIRES(m_turn);
    TimePoint GiveUpTime(const Request &request, const Plan &plan, TimePoint start) const;
    Status SendTry(Exchange &exchange, const Plan &plan, int attempt) REQUIRES(m_turn);
    Outcome Await(Exchange &exchange, const Plan &plan, TimePoint deadline) REQUIRES(m_turn);
    /// Takes one datagram in. \return whether it is the answer.
    bool TakeAcknowledge(Exchange &exchange, const Plan &plan, TimePoint &deadline) REQUIRES(m_turn);
    void TakePending(Exchange &exchange, const Plan &plan, orv::ByteSpan payload, TimePoint &deadline) REQUIRES(m_turn);
    /// Nobody waits for the answer: that one comes is enough. Also while a command is under way.
    void AskWhetherThere();
    Status Send(const Datagram &datagram);
    std::uint16_t NextId();

    const Timing m_timing;
    Turn m_turn;                       ///< one command at a time; kept while waiting for the camera
    UdpSocket m_socket;                ///< received from by whose turn it is; the descriptor itself never changes
    const TrafficTap *m_tap = nullptr; ///< constant after opening
    std::atomic<std::uint16_t> m_lastId{0};
    Silence m_silence;
    WakeUp m_interrupt;
    std::atomic<bool> m_interrupted{false};
    std::atomic<bool> m_answering{true};
    std::atomic<int> m_statedMs{0}; ///< what the camera may need for a command without saying so
    std::atomic<int> m_silenceLimitMs{3000};
};

} // namespace nuvark::gige
