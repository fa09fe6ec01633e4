#pragma once

#include "base/Mutex.h"
#include "producer/gige/FrameAssembler.h"
#include "producer/gige/UdpSocket.h"
#include "producer/Transport.h"

#include <atomic>
#include <memory>
#include <thread>

namespace nuvark::gige {

/// Receives stream packets on a thread of its own and feeds them to a frame assembler.
///
/// Life: Start() once, Stop() once. Packets are taken from the kernel in batches into a ring of slots; packets of other
/// senders are dropped. So are packets longer than a slot, which for that grow to what a datagram can be at most.
/// Threads: Start() and Stop() from the owner's; AbandonFrames() and Counters() from any. The sink is called on the
/// receiver's thread, in AbandonFrames() on the caller's. Lock order: m_mutex, then whatever the sink takes.
class StreamReceiver {
public:
    struct Settings {
        std::uint32_t cameraAddress = 0;
        std::size_t receiveBuffer = 0; ///< bytes the kernel granted, for the counters
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
    struct Ring;

    void Run() EXCLUDES(m_mutex); // body of m_thread
    TimePoint NextWake() EXCLUDES(m_mutex);
    /// Takes what is there. \return false when there was nothing.
    bool TakeBatch() EXCLUDES(m_mutex);
    void Drain() EXCLUDES(m_mutex);

    const Settings m_settings;
    UdpSocket m_socket;
    std::unique_ptr<Ring> m_ring; ///< receiver's thread only
    WakeUp m_stop;
    std::atomic<StreamChannel::Stop> m_how{StreamChannel::Stop::AtOnce};

    mutable orv::Mutex m_mutex; ///< held while a batch is put together, so frames can be taken away in between
    FrameAssembler m_assembler GUARDED_BY(m_mutex);
    std::uint64_t m_kernelDrops GUARDED_BY(m_mutex) = 0;
    std::uint64_t m_oversized GUARDED_BY(m_mutex) = 0;
    std::thread m_thread;
};

} // namespace nuvark::gige
