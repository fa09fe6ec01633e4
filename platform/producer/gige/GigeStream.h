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
/// Threads: Start(), StopReceiving(), SetPacketSize() and SetPacketDelay() from one thread at a time; all others from
/// any.
class GigeStream final : public StreamChannel {
public:
    GigeStream(GigeDevice &device, std::uint32_t index) : m_device(device), m_index(index) {}
    ~GigeStream() override { StopReceiving(Stop::AtOnce); }

    Status Start(FrameSink &sink, std::size_t payloadSize) override;
    void StopReceiving(Stop how) override;
    void AbandonFrames() override EXCLUDES(m_mutex);
    StreamCounters Counters() const override EXCLUDES(m_mutex);
    PacketSettings Packets() const override EXCLUDES(m_mutex);
    Status SetPacketSize(std::uint32_t size) override;
    Status SetPacketDelay(std::uint32_t ticks) override;
    ResendSettings Resend() const override EXCLUDES(m_mutex);
    void SetResend(const ResendSettings &settings) override EXCLUDES(m_mutex);

private:
    Result<UdpSocket> OpenSocket();
    Result<UdpSocket> JoinGroup();
    /// Opens the channel towards `socket` where we are the ones who may.
    Status OpenChannel(UdpSocket &socket);
    /// \return the packet size register as it is in the end.
    Result<std::uint32_t> ChoosePacketSize(UdpSocket &socket);
    std::uint16_t SourcePort();
    bool PrepareResend();
    void CloseChannel();
    bool IsReceiving() const EXCLUDES(m_mutex);

    GigeDevice &m_device;
    const std::uint32_t m_index;
    bool m_sendsTests = true;     ///< the camera has sent test packets, or has not been asked yet
    bool m_isSizeSettled = false; ///< packets have been made as large as the way carries

    mutable orv::Mutex m_mutex; ///< guards the pointer, for those who only look; taken before the receiver's own
    std::shared_ptr<StreamReceiver> m_receiver GUARDED_BY(m_mutex);
    ResendSettings m_resend GUARDED_BY(m_mutex);
    StreamCounters m_last GUARDED_BY(m_mutex); ///< of the receiver that was stopped last
};

} // namespace nuvark::gige
