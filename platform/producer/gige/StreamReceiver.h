#pragma once

#include "base/Mutex.h"
#include "producer/gige/FrameAssembler.h"
#include "producer/gige/Naps.h"
#include "producer/gige/PacketBatch.h"
#include "producer/gige/UdpSocket.h"
#include "producer/gige/Way.h"
#include "producer/Transport.h"

#include <atomic>
#include <memory>
#include <thread>

namespace nuvark::gige {

/// Receives stream packets on a thread of its own and feeds them to a frame assembler.
///
/// Life: Start() once, Stop() once. Packets are taken from the kernel in batches, their payload straight into the
/// running frame's buffer where they are the expected ones and nobody listens to the traffic; where the kernel can
/// (UDP_GRO), many packets at a time. While a frame comes, the thread sleeps between batches (Naps).
/// Packets of other senders are dropped. So are packets of more than twice the length agreed on, the first time they
/// come. Missing packets are asked for from the stream's own socket. Threads: Start() and Stop() from the owner's;
/// AbandonFrames() and Counters() from any. The sink is called on the receiver's thread, in AbandonFrames() on the
/// caller's. Lock order: m_mutex, then whatever the sink takes.
class StreamReceiver {
public:
    struct Settings {
        std::uint32_t cameraAddress = 0;
        std::uint16_t channel = 0;
        StreamCounters known;                   ///< what the counters show that does not change
        const TrafficTap *tap = nullptr;        ///< for what is received
        const TrafficTap *controlTap = nullptr; ///< for the requests that are sent
        Way way{{}};                            ///< from the camera's port, to be kept open
        FrameAssembler::Settings assembly;
    };

    StreamReceiver(FrameSink &sink, UdpSocket socket, const Settings &settings);
    ~StreamReceiver();

    /// Fails when the process has no file descriptor left for the means to stop it again.
    Status Start();
    /// Takes less than a tenth of a second. Finish waits that long for the packets of frames that have begun.
    void Stop(StreamChannel::Stop how) EXCLUDES(m_mutex);
    void AbandonFrames() EXCLUDES(m_mutex);
    StreamCounters Counters() const EXCLUDES(m_mutex);

private:
    void Run() EXCLUDES(m_mutex); // body of m_thread
    /// Nothing: better wait for packets. \param wake  when something else is due
    std::optional<TimePoint> EndOfNap(TimePoint wake) EXCLUDES(m_mutex);
    PacketBatch::Found TakeBatch() EXCLUDES(m_mutex);
    void TakePacket(const PacketBatch::Packet &packet, TimePoint now) REQUIRES(m_mutex);
    /// What is due by the clock: requests for missing packets and, when nothing more is to be read, frames that have
    /// waited long enough. \return when something is due next.
    TimePoint OnTime(bool isAllRead) EXCLUDES(m_mutex);
    void SendRequests();
    void Drain() EXCLUDES(m_mutex);

    const Settings m_settings;
    UdpSocket m_socket;
    PacketBatch m_batch; ///< receiver's thread only
    Way m_way;           ///< receiver's thread only
    Naps m_naps;         ///< receiver's thread only
    WakeUp m_stop;
    std::size_t m_longest = 0;             ///< bytes of a datagram that is taken; receiver's thread only
    std::vector<ResendRequest> m_requests; ///< receiver's thread only
    std::uint16_t m_requestId = 0;
    std::atomic<bool> m_realTime{false};
    std::atomic<StreamChannel::Stop> m_how{StreamChannel::Stop::AtOnce};

    mutable orv::Mutex m_mutex; ///< held while a batch is read and put together; frames are taken away in between
    FrameAssembler m_assembler GUARDED_BY(m_mutex);
    std::uint64_t m_oversized GUARDED_BY(m_mutex) = 0;
    std::thread m_thread;
};

} // namespace nuvark::gige
