#pragma once

#include "base/Bytes.h"

#include <atomic>
#include <functional>

namespace nuvark {

/// A place that packets pass, where somebody may listen.
///
/// While nobody does, it costs one look at a flag; ask IsOn() first where making the bytes available costs something.
/// The receiver is set once, before the first switching on, and must outlive the last packet; it runs on the thread
/// that pushes, which may hold a lock of the transport. Threads: any.
class TrafficTap {
public:
    using Receiver = std::function<void(orv::ByteSpan packet)>;

    void SetReceiver(Receiver receiver) { m_receiver = std::move(receiver); }
    /// A packet that is on its way meanwhile may still be told.
    void Switch(bool on) { m_on.store(on, std::memory_order_release); }

    bool IsOn() const { return m_on.load(std::memory_order_acquire); }
    /// One packet, its bytes as on the wire.
    void Push(orv::ByteSpan packet) const
    {
        if (IsOn())
            m_receiver(packet);
    }

private:
    std::atomic<bool> m_on{false};
    Receiver m_receiver;
};

/// All that passes between a camera and this host.
struct CameraTraffic {
    TrafficTap control; ///< both directions
    TrafficTap stream;
    TrafficTap messages; ///< what the camera tells by itself, and our acknowledges
};

} // namespace nuvark
