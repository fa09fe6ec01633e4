#pragma once

#include "base/Mutex.h"
#include "simulator/gige/FrameSource.h"
#include "simulator/gige/GvspPackets.h"
#include "simulator/gige/StreamSender.h"
#include "simulator/LoopbackSocket.h"

#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

namespace orvsim {

/// An image of Mono8 with bytes that repeat nowhere within a packet's reach.
std::shared_ptr<Frame> MakeFrame(int width, int height, std::size_t chunkBytes = 0);

/// The fields of a stream packet's header.
struct PacketFields {
    std::uint16_t status = 0;
    std::uint16_t flags = 0;
    std::uint64_t blockId = 0;
    std::uint8_t format = 0;
    std::uint32_t packetId = 0;
    bool isExtended = false;
    Datagram content;
};
PacketFields Parse(const Datagram &datagram);
/// Head and body one behind the other.
Datagram BytesOf(const Packet &packet);

/// Frames that a test hands out one by one.
class FakeSource : public FrameSource {
public:
    void Push(const FrameJob &job, std::shared_ptr<Frame> frame) EXCLUDES(m_mutex);
    void SetFaults(const Faults &faults) EXCLUDES(m_mutex);
    struct Progress {
        std::size_t due = 0;       ///< frames that were neither taken from here nor passed over
        std::size_t sent = 0;      ///< frames
        std::size_t questions = 0; ///< for the faults
    };
    Progress SoFar() const EXCLUDES(m_mutex);
    /// True once it has come so far.
    bool WaitFor(const std::function<bool(const Progress &)> &isReached) EXCLUDES(m_mutex);
    std::uint64_t WireBytes(std::size_t payloadBytes) const { return m_wireBytes(payloadBytes); }

    void SetWireBytes(std::function<std::uint64_t(std::size_t)> wireBytes) override { m_wireBytes = wireBytes; }
    std::optional<FrameJob> WaitForFrame(std::int64_t timeoutMs) override EXCLUDES(m_mutex);
    std::shared_ptr<Frame> TakeFrame(const FrameJob &job) override EXCLUDES(m_mutex);
    void FrameSent(const FrameJob &job) override EXCLUDES(m_mutex);
    Faults CurrentFaults() const override EXCLUDES(m_mutex);

private:
    struct Entry {
        FrameJob job;
        std::shared_ptr<Frame> frame;
    };

    std::function<std::uint64_t(std::size_t)> m_wireBytes;
    mutable orv::Mutex m_mutex;
    mutable orv::ConditionVariable m_changed;
    std::deque<Entry> m_due GUARDED_BY(m_mutex);
    std::shared_ptr<Frame> m_frame GUARDED_BY(m_mutex); ///< of the job that was given last
    Faults m_faults GUARDED_BY(m_mutex);
    mutable Progress m_progress GUARDED_BY(m_mutex);
};

} // namespace orvsim
