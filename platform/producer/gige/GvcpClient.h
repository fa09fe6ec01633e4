#pragma once

#include "base/Mutex.h"
#include "producer/gige/Gvcp.h"
#include "producer/gige/UdpSocket.h"

#include <atomic>
#include <memory>

namespace nuvark::gige {

/// How hard a command tries before it gives up.
enum class Effort {
    Normal, ///< all tries; one short one while the camera is not answering
    Once,   ///< one try of the full acknowledge time
    Quick   ///< one short try, and none at all while another thread uses the channel; for closing sequences
};

/// A control status as the consumer is to see it: inside, no answer is a time-out; outside, talking to the camera
/// failed.
Status Outward(Status status);

/// The control channel to one camera: register and memory accesses over one UDP socket.
///
/// One command is under way at a time; further callers queue on a mutex, which is therefore held while waiting for the
/// camera. When a command has had no answer to all of its tries the channel counts as not answering: commands then make
/// one short try until something answers again, so callers in a row do not wait for a sum of time-outs.
/// No answer gives GC_ERR_TIMEOUT, an interrupted wait GC_ERR_ABORT.
/// Threads: any. Lock order: m_mutex is taken last; nothing is called with it held.
class GvcpClient {
public:
    /// \param local address of the host interface, \param remote of the camera.
    [[nodiscard]] static Result<std::unique_ptr<GvcpClient>> Open(std::uint32_t local, std::uint32_t remote);

    Status ReadRegister(std::uint32_t address, std::uint32_t &value, Effort effort = Effort::Normal) EXCLUDES(m_mutex);
    Status WriteRegister(std::uint32_t address, std::uint32_t value, Effort effort = Effort::Normal) EXCLUDES(m_mutex);
    /// Address and count are multiples of 4, count at most kMemoryChunk.
    Status ReadMemory(std::uint32_t address, std::uint8_t *data, std::size_t count) EXCLUDES(m_mutex);
    Status WriteMemory(std::uint32_t address, orv::ByteSpan data) EXCLUDES(m_mutex);

    /// Longest time the camera needs for a command without saying so; bounds the wait per try.
    void SetPendingTimeout(std::chrono::milliseconds time);

    bool IsAnswering() const { return m_answering; }
    /// When the camera last answered anything.
    TimePoint LastAnswer() const { return TimePoint(Clock::duration(m_lastAnswer)); }

    /// Ends the command under way and refuses new ones, until Resume(), which waits for the former to leave.
    void Interrupt();
    void Resume() EXCLUDES(m_mutex);

    std::uint16_t LocalPort() const { return m_socket.LocalPort(); }

private:
    explicit GvcpClient(UdpSocket socket) : m_socket(std::move(socket)) { Touch(); }

    static constexpr int kBaseTimeoutMs = 200; ///< per try, when the camera does not ask for more
    struct Plan {
        int tries;
        std::chrono::milliseconds timeout;
    };
    Plan PlanFor(Effort effort) const;
    void Touch() { m_lastAnswer = Clock::now().time_since_epoch().count(); }

    /// \param make gives the command's datagram for a request id.
    template <class MakeDatagram>
    Status Transact(Command command, Effort effort, const std::string &context, MakeDatagram make,
                    std::vector<std::uint8_t> &payload) EXCLUDES(m_mutex);
    Status TransactOnce(Command command, const Plan &plan, const std::string &context, const Datagram &datagram,
                        std::uint16_t requestId, std::vector<std::uint8_t> &payload, std::uint16_t &wireStatus)
        REQUIRES(m_mutex);
    std::uint16_t NextId() REQUIRES(m_mutex);

    orv::Mutex m_mutex; ///< the channel: one command at a time
    UdpSocket m_socket; ///< sending and receiving under m_mutex; the descriptor itself never changes
    std::uint16_t m_lastId GUARDED_BY(m_mutex) = 0;
    WakeUp m_interrupt;
    std::atomic<bool> m_interrupted{false};
    std::atomic<bool> m_answering{true};
    std::atomic<Clock::rep> m_lastAnswer{0};
    std::atomic<int> m_timeoutMs{kBaseTimeoutMs};
};

} // namespace nuvark::gige
