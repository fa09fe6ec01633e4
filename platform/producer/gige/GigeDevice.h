#pragma once

#include "producer/gige/GvcpClient.h"
#include "producer/gige/Heartbeat.h"
#include "producer/gige/MessageChannel.h"
#include "producer/gige/NetworkInterfaces.h"
#include "producer/gige/RegisterAccess.h"
#include "producer/Transport.h"

#include <atomic>
#include <initializer_list>
#include <memory>
#include <set>
#include <string>

namespace nuvark::gige {

/// One opened GigE Vision camera: its control channel, privilege and register space.
///
/// Life: Open() takes control and starts the heartbeat; Close() gives control up and ends the thread. When the camera
/// is lost all calls fail at once from then on, and the listener is told. Threads: any.
class GigeDevice final : public Camera {
public:
    /// Blocks for some register round trips, or for the tries of one command when the address is dead.
    [[nodiscard]] static Result<std::unique_ptr<Camera>> Open(const NetworkInterface &interface, std::uint32_t address,
                                                              CameraAccess access, CameraListener &listener);
    ~GigeDevice() override { Close(); }

    Status Read(std::uint64_t address, void *data, std::size_t size) override;
    Status Write(std::uint64_t address, const void *data, std::size_t size) override;
    Status ReadAll(const std::vector<PortAccess> &accesses, std::size_t &done) override;
    Status WriteAll(const std::vector<PortAccess> &accesses, std::size_t &done) override;
    std::vector<DescriptionUrl> DescriptionUrls() override EXCLUDES(m_urlMutex);
    bool IsLittleEndian() const override { return false; }
    bool IsWritable() const override { return m_access != CameraAccess::ReadOnly; }
    std::uint64_t TickFrequency() const override { return m_tickFrequency; }
    std::uint32_t StreamCount() const override { return m_streamCount; }
    std::unique_ptr<StreamChannel> MakeStream(std::uint32_t index) override;
    CameraTraffic &Traffic() override { return m_traffic; }
    bool HasMessages() const override { return m_hasMessages; }
    Status ListenToMessages(bool wanted) override EXCLUDES(m_messageMutex);
    void Close() override EXCLUDES(m_messageMutex);

    // For the streams of this camera.
    GvcpClient &Client() { return *m_client; }
    const NetworkInterface &Interface() const { return m_interface; }
    std::uint32_t Address() const { return m_address; }
    /// Success, or why the camera cannot be talked to any more.
    Status CheckConnection() const;
    /// Likewise of writing.
    Status CheckWritable() const;
    /// The status of a call that the loss of the camera may have ended: whoever was waiting is to hear that.
    Status Told(Status status) const;
    /// Follows what the application's successful write has changed in the bootstrap registers.
    void OnWritten(std::uint64_t address, std::size_t size);
    /// Writes a stream's closing register, without waiting long: what does not get through is repeated later.
    void WriteWithoutWaiting(RegisterWrite write) EXCLUDES(m_channelMutex);
    /// Whether the application has written a stream's packet size since the camera was opened.
    bool IsPacketSizeChosen() const { return m_isPacketSizeChosen; }
    /// The application has not written these features' registers itself, and may show what was in them before.
    void TellWritten(std::initializer_list<const char *> features);
    /// Forgets such a write that is still to come, since the channel is being opened again.
    void ForgetPendingWrite(std::uint32_t address) EXCLUDES(m_channelMutex);

private:
    GigeDevice(NetworkInterface interface, std::uint32_t address, CameraAccess access, CameraListener &listener,
               std::unique_ptr<GvcpClient> client);

    Status TakeControl();
    Status CheckReadable();
    Status RefuseBecauseHeld();
    Heartbeat::Settings HeartbeatSettings();
    std::chrono::milliseconds ReadHeartbeatTimeout();
    void ReadFacts();
    std::uint32_t ReadOptional(std::uint32_t address, std::uint32_t fallback);
    bool HasLegacyDescription();
    std::vector<DescriptionUrl> ReadUrls();
    void OnLost(const std::string &reason);
    Status OpenMessages() REQUIRES(m_messageMutex);
    Status NameMessagePort(std::uint16_t port);
    /// After the camera's heartbeat time ran out without our fault. \return why not, or "".
    std::string RegainControl() EXCLUDES(m_messageMutex, m_channelMutex);
    void EnablePending();

    const NetworkInterface m_interface;
    const std::uint32_t m_address;
    const CameraAccess m_access;
    CameraListener &m_listener;
    CameraTraffic m_traffic; ///< outlives all that pushes into it
    const std::unique_ptr<GvcpClient> m_client;
    RegisterAccess m_registers;
    std::unique_ptr<Heartbeat> m_heartbeat; ///< set while opening, then constant

    // Read while opening, then constant.
    std::uint32_t m_capability = 0;
    std::uint32_t m_privilege = 0;
    std::uint32_t m_streamCount = 0;
    std::atomic<bool> m_isPacketSizeChosen{false};
    std::uint64_t m_tickFrequency = 0;
    bool m_hasMessages = false;

    orv::Mutex m_urlMutex; ///< held while the URLs are read the first time
    std::optional<std::vector<DescriptionUrl>> m_urls GUARDED_BY(m_urlMutex);

    orv::Mutex m_messageMutex; ///< one opening or closing of the message channel; held for its round trips
    std::unique_ptr<MessageChannel> m_messages GUARDED_BY(m_messageMutex);

    mutable orv::Mutex m_channelMutex;                                ///< taken last
    std::set<std::uint32_t> m_openStreams GUARDED_BY(m_channelMutex); ///< by their port registers

    std::atomic<bool> m_lost{false};
    std::atomic<bool> m_closed{false};
};

} // namespace nuvark::gige
