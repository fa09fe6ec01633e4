#include "fuzz/ToyTransport.h"

#include "producer/gige/GigeInterface.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace toy {

namespace {

using namespace nuvark;

constexpr std::size_t kMemory = 4096;

class ToyCamera;
class ToyStream;
/// What is open now: one of each at most, the rest is none of the script's business.
struct State {
    ToyCamera *camera = nullptr;
    ToyStream *stream = nullptr;
    std::size_t open = 0;
    bool failing = false;
};
State s_state;

Status Failure()
{
    return {GC_ERR_IO, "made to fail"};
}

class ToyStream final : public StreamChannel {
public:
    ToyStream()
    {
        s_state.stream = this;
        ++s_state.open;
    }
    ~ToyStream() override
    {
        s_state.stream = s_state.stream == this ? nullptr : s_state.stream;
        --s_state.open;
    }

    Status Start(FrameSink &sink, std::size_t) override
    {
        if (s_state.failing)
            return Failure();
        m_sink = &sink;
        return {};
    }
    void StopReceiving(Stop) override { m_sink = nullptr; }
    void AbandonFrames() override {}
    StreamCounters Counters() const override { return {}; }
    PacketSettings Packets() const override { return {}; }
    Status SetPacketSize(std::uint32_t) override { return s_state.failing ? Failure() : Status(); }
    Status SetPacketDelay(std::uint32_t) override { return s_state.failing ? Failure() : Status(); }
    ResendSettings Resend() const override { return m_resend; }
    void SetResend(const ResendSettings &settings) override { m_resend = settings; }

    void SendFrame(orv::ByteReader &in)
    {
        FrameTarget target;
        if (m_sink == nullptr || !m_sink->TakeBuffer(target))
            return;
        if ((in.U8() & 1) != 0) {
            m_sink->GiveBack(target);
            return;
        }
        m_sink->Deliver(target, Describe(target, in));
    }

private:
    /// Within what a transport may say: nothing beyond the buffer.
    FrameInfo Describe(const FrameTarget &target, orv::ByteReader &in)
    {
        const std::uint8_t flags = in.U8();
        FrameInfo info;
        info.frameId = ++m_frames;
        info.isIncomplete = (flags & 1) != 0;
        info.isLargerThanBuffer = (flags & 2) != 0;
        info.hasImage = (flags & 4) != 0;
        info.hasChunks = (flags & 8) != 0;
        info.payloadType = in.U8();
        info.dataSize = std::min<std::size_t>(in.U16(), target.size);
        info.sizeFilled = std::min<std::size_t>(in.U16(), info.dataSize);
        info.chunkPayloadSize = std::min<std::size_t>(in.U16(), info.sizeFilled);
        info.imageOffset = std::min<std::size_t>(in.U8(), target.size);
        info.pixelFormat = in.U32();
        info.width = in.U32();
        info.height = info.deliveredHeight = in.U32();
        info.fileName = (flags & 16) != 0 ? "toy.bin" : "";
        const std::size_t count = std::min<std::size_t>({in.U8(), in.Rest().size, info.sizeFilled});
        std::copy_n(in.Rest().data, count, target.data + info.sizeFilled - count); // chunks are read from their end
        in.Skip(count);
        return info;
    }

    FrameSink *m_sink = nullptr;
    ResendSettings m_resend;
    std::uint64_t m_frames = 0;
};

class ToyCamera final : public Camera {
public:
    explicit ToyCamera(CameraListener &listener) : m_listener(listener)
    {
        s_state.camera = this;
        ++s_state.open;
    }
    ~ToyCamera() override
    {
        s_state.camera = s_state.camera == this ? nullptr : s_state.camera;
        --s_state.open;
    }

    Status Read(std::uint64_t address, void *data, std::size_t size) override
    {
        if (!IsThere(address, size))
            return Failure();
        std::memcpy(data, m_memory.data() + address, size);
        return {};
    }
    Status Write(std::uint64_t address, const void *data, std::size_t size) override
    {
        if (!IsThere(address, size))
            return Failure();
        std::memcpy(m_memory.data() + address, data, size);
        return {};
    }
    Status ReadAll(const std::vector<PortAccess> &accesses, std::size_t &done) override
    {
        return Each(accesses, done, [this](const PortAccess &one) { return Read(one.address, one.data, one.size); });
    }
    Status WriteAll(const std::vector<PortAccess> &accesses, std::size_t &done) override
    {
        return Each(accesses, done, [this](const PortAccess &one) { return Write(one.address, one.data, one.size); });
    }
    std::vector<DescriptionUrl> DescriptionUrls() override
    {
        DescriptionUrl local;
        local.url = "local:toy.xml;100;40";
        local.fileName = "toy.xml";
        local.address = 0x100;
        local.size = 0x40;
        DescriptionUrl file;
        file.url = "file:///toy.xml";
        file.scheme = URL_SCHEME_FILE;
        return {local, file};
    }
    bool IsLittleEndian() const override { return false; }
    bool IsWritable() const override { return true; }
    std::uint64_t TickFrequency() const override { return 1000000000; }
    std::uint32_t StreamCount() const override { return 1; }
    std::unique_ptr<StreamChannel> MakeStream(std::uint32_t) override { return std::make_unique<ToyStream>(); }
    CameraTraffic &Traffic() override { return m_traffic; }
    bool HasMessages() const override { return true; }
    Status ListenToMessages(bool) override { return s_state.failing ? Failure() : Status(); }
    void Close() override {}

    CameraListener &Listener() { return m_listener; }

private:
    static bool IsThere(std::uint64_t address, std::size_t size)
    {
        return !s_state.failing && address <= kMemory && size <= kMemory - address;
    }
    template <class Access> Status Each(const std::vector<PortAccess> &accesses, std::size_t &done, Access access)
    {
        for (done = 0; done < accesses.size(); ++done) {
            const Status status = access(accesses[done]);
            if (!status.Ok())
                return status;
        }
        return {};
    }

    CameraListener &m_listener;
    CameraTraffic m_traffic;
    std::array<std::uint8_t, kMemory> m_memory{};
};

class ToyInterface final : public HostInterface {
public:
    ToyInterface()
    {
        m_record.id = "toy:0";
        m_record.displayName = "toy (192.168.10.1)";
        m_record.tlType = TLTypeGEVName;
        m_record.mac = 0x020000000001;
        m_record.address = 0xC0A80A01;
        m_record.mask = 0xFFFFFF00;
    }

    InterfaceRecord Record() const override { return m_record; }
    Result<std::vector<DeviceRecord>> Discover(std::chrono::milliseconds) override
    {
        if (s_state.failing)
            return Failure();
        return Cameras();
    }
    Result<DeviceRecord> Find(const std::string &name) override
    {
        for (const DeviceRecord &record : Cameras()) {
            if (record.id == name)
                return record;
        }
        return Status(GC_ERR_INVALID_ID, "no such camera");
    }
    Status ForceAddress(const DeviceRecord &, std::uint32_t, std::uint32_t, std::uint32_t) override
    {
        return s_state.failing ? Failure() : Status();
    }
    Result<std::unique_ptr<Camera>> Open(const DeviceRecord &, CameraAccess, CameraListener &listener) override
    {
        if (s_state.failing)
            return Failure();
        return std::unique_ptr<Camera>(std::make_unique<ToyCamera>(listener));
    }

private:
    static std::vector<DeviceRecord> Cameras() { return {Device(1, "cam:1"), Device(2, "cam:2")}; }
    static DeviceRecord Device(std::uint32_t number, const char *id)
    {
        DeviceRecord record;
        record.id = id;
        record.vendor = "Nuvark";
        record.model = "Toy";
        record.serial = "T-" + std::to_string(number);
        record.userName = "same";
        record.displayName = record.vendor + " " + record.model;
        record.accessStatus = DEVICE_ACCESS_STATUS_READWRITE;
        record.mac = 0x020000000010 + number;
        record.address = 0xC0A80A10 + number;
        record.mask = 0xFFFFFF00;
        return record;
    }

    InterfaceRecord m_record;
};

} // namespace

void SendFrame(orv::ByteReader &in)
{
    if (s_state.stream != nullptr)
        s_state.stream->SendFrame(in);
}

void SendEvent(orv::ByteSpan packet)
{
    if (s_state.camera == nullptr)
        return;
    for (const TrafficTap *tap :
         {&s_state.camera->Traffic().control, &s_state.camera->Traffic().stream, &s_state.camera->Traffic().messages})
        tap->Push(packet);
    s_state.camera->Listener().OnCameraEvent({packet.data, packet.data + packet.size});
}

void LoseCamera()
{
    if (s_state.camera != nullptr)
        s_state.camera->Listener().OnCameraLost("made to be lost");
}

void InvalidateFeature()
{
    if (s_state.camera != nullptr)
        s_state.camera->Listener().OnFeatureInvalid("Width");
}

void SetFailing(bool failing)
{
    s_state.failing = failing;
}

std::size_t CountOpen()
{
    return s_state.open;
}

} // namespace toy

namespace nuvark::gige {

std::vector<std::shared_ptr<HostInterface>> ListGigeInterfaces()
{
    return {std::make_shared<toy::ToyInterface>()};
}

} // namespace nuvark::gige
