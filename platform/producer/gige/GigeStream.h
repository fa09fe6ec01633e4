#pragma once

#include "producer/gige/StreamReceiver.h"
#include "producer/Transport.h"

#include <atomic>
#include <cstdint>
#include <memory>

namespace nuvark::gige {

class GigeDevice;

/// One stream channel of a GigE Vision camera: its registers and its receiver.
///
/// Threads: Start() and StopReceiving() from one thread at a time; AbandonFrames(), Counters() and
/// the settings from any.
class GigeStream final : public StreamChannel {
public:
    GigeStream(GigeDevice &device, std::uint32_t index) : m_device(device), m_index(index) {}
    ~GigeStream() override { StopReceiving(Stop::AtOnce); }

    Status Start(FrameSink &sink, std::size_t payloadSize) override;
    void StopReceiving(Stop how) override;
    void AbandonFrames() override EXCLUDES(m_mutex);
    StreamCounters Counters() const override EXCLUDES(m_mutex);
    ResendSettings Resend() const override EXCLUDES(m_mutex);
    void SetResend(const ResendSettings &settings) override EXCLUDES(m_mutex);

private:
    Result<std::uint32_t> OpenChannel(UdpSocket &socket);
    Result<std::uint32_t> ChoosePacketSize(UdpSocket &socket);
    bool PrepareResend();
    Status CheckMulticast();
    void CloseChannel();

    GigeDevice &m_device;
    const std::uint32_t m_index;
    std::uint32_t m_verifiedPacketSize = 0; ///< that size is known to get through; 0: not looked at yet

    mutable orv::Mutex m_mutex; ///< guards the pointer, for those who only look; taken before the receiver's own
    std::shared_ptr<StreamReceiver> m_receiver GUARDED_BY(m_mutex);
    ResendSettings m_resend GUARDED_BY(m_mutex);
    StreamCounters m_last GUARDED_BY(m_mutex); ///< of the receiver that was stopped last
};

} // namespace nuvark::gige
