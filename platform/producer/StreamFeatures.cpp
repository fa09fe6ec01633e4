#include "producer/ModuleFeatures.h"
#include "producer/Modules.h"

/// What a stream shows of itself in its own register map.
namespace nuvark {

namespace {

constexpr char kAbout[] = "StreamInformation";
constexpr char kBuffers[] = "StreamBuffers";
constexpr char kStatistics[] = "StreamStatistics";
constexpr char kResend[] = "StreamResend";

constexpr std::int64_t kLongestTimeoutUs = 10000000;
constexpr std::int64_t kMostTries = 100;

} // namespace

std::vector<ModuleFeature> StreamModule::Features()
{
    const auto buffers = [this](const char *name, const char *toolTip, auto field) {
        return NumberFeature(name, kBuffers, toolTip,
                             [this, field] { return std::int64_t(m_queue->GetCounts().*field); });
    };
    const auto count = [this](const char *name, const char *toolTip, auto field, const char *category = kStatistics) {
        return NumberFeature(name, category, toolTip,
                             [this, field] { return std::int64_t(m_channel->Counters().*field); });
    };
    using Counts = BufferQueue::Counts;
    using Counters = StreamCounters;
    std::vector<ModuleFeature> features = {
        TextFeature("StreamID", kAbout, "Identifier of the stream", [this] { return m_id; }),
        TransportTypeFeature("StreamType", kAbout),
        ChoiceFeature("StreamBufferHandlingMode", kAbout, "Which buffers are delivered in which order",
                      {{"OldestFirst", 0}}, [] { return 0; }),
        NumberFeature("StreamAnnounceBufferMinimum", kAbout, "Least number of buffers to announce",
                      [] { return kMinimumBuffers; }),
        NumberFeature("StreamBufferAlignment", kAbout, "Bytes whose multiple a buffer's address has to be",
                      [] { return kBufferAlignment; }),
        YesNoFeature("StreamIsGrabbing", kAbout, "Whether frames are being taken",
                     [this] { return m_queue->GetCounts().isGrabbing; }),
        count("StreamReceiveBufferSize", "Bytes the kernel granted the socket", &Counters::receiveBuffer, kAbout),
        count("StreamReceiveBufferWanted", "Bytes asked of the kernel for the socket", &Counters::wantedReceiveBuffer,
              kAbout),
        YesNoFeature("StreamThreadIsRealTime", kAbout, "Whether the receiving thread got a raised priority",
                     [this] { return m_channel->Counters().realTime; }),
        buffers("StreamAnnouncedBufferCount", "Buffers announced", &Counts::announced),
        buffers("StreamInputBufferCount", "Buffers waiting to be filled", &Counts::queued),
        buffers("StreamOutputBufferCount", "Buffers waiting to be fetched", &Counts::awaiting),
        buffers("StreamDeliveredFrameCount", "Frames fetched since the last start", &Counts::delivered),
        buffers("StreamLostFrameCount", "Frames lost because no buffer was queued", &Counts::underruns),
        buffers("StreamDiscardedFrameCount", "Frames that began while the buffers were being flushed",
                &Counts::discarded),
        buffers("StreamStartedFrameCount", "Frames begun", &Counts::started),
        buffers("StreamIncompleteFrameCount", "Frames fetched that have holes", &Counts::incomplete),
        count("StreamMissedFrameCount", "Frames of which no packet came", &Counters::missedFrames),
        count("StreamPacketCount", "Packets received", &Counters::packets),
        count("StreamFullPacketCount", "Payload packets of full length", &Counters::fullPackets),
        count("StreamMissingPacketCount", "Packets that never came", &Counters::missingPackets),
        count("StreamRequestedPacketCount", "Packets asked for again", &Counters::requestedPackets),
        count("StreamResentPacketCount", "Packets that came after they had been asked for", &Counters::resentPackets),
        count("StreamRefusedPacketCount", "Packets that the camera could not send", &Counters::refusedPackets),
        count("StreamDuplicatePacketCount", "Packets that came twice", &Counters::duplicatePackets),
        count("StreamLatePacketCount", "Packets of frames that were through already", &Counters::latePackets),
        count("StreamBufferlessPacketCount",
              "Packets of frames for which no buffer was queued, or whose buffer was flushed",
              &Counters::withoutBuffer),
        count("StreamCameraDropCount", "Frames that the camera could not send, whole or in part",
              &Counters::droppedByCamera),
        count("StreamUnusablePacketCount", "Malformed or foreign packets", &Counters::unusablePackets),
        count("StreamOversizedPacketCount", "Packets dropped for their length", &Counters::oversizedPackets),
        count("StreamKernelDropCount",
              "Messages, each of one or more packets, that the kernel dropped, its buffer being full",
              &Counters::kernelDrops),
    };
    for (const auto &more : {PacketFeatures(), ResendFeatures()})
        features.insert(features.end(), more.begin(), more.end());
    return features;
}

/// The camera's own settings, not of this computer; they keep their values when the stream is closed.
std::vector<ModuleFeature> StreamModule::PacketFeatures()
{
    const auto setting = [this](const char *name, const char *toolTip, auto field, auto set, std::int64_t maximum) {
        ModuleFeature feature = SettingFeature(
            name, kAbout, toolTip, [this, field] { return std::int64_t(m_channel->Packets().*field); },
            [this, set](std::int64_t value) { return SetPackets(set, value); }, [maximum] { return maximum; });
        feature.locked = [this] { return m_queue->GetCounts().isGrabbing || !m_parent->GetCamera().IsWritable(); };
        return feature;
    };
    return {
        setting(
            "DeviceStreamChannelPacketSize",
            "IP packet size in use; without a stream the camera's setting. A start makes it smaller where it does not "
            "get through, and, unless it has been written, as large as gets through",
            &PacketSettings::size, &StreamChannel::SetPacketSize, PacketSettings::kMaxSize),
        setting("GevStreamPacketDelay",
                "Pause between packets in ticks of the camera's clock, as the stream began; without a stream the "
                "camera's setting",
                &PacketSettings::delay, &StreamChannel::SetPacketDelay, PacketSettings::kMaxDelay),
    };
}

/// What is written counts from the next start on.
std::vector<ModuleFeature> StreamModule::ResendFeatures()
{
    const auto change = [this](auto set) {
        const orv::MutexLock lock(m_settingsMutex);
        ResendSettings settings = m_channel->Resend();
        set(settings);
        m_channel->SetResend(settings);
        return Status();
    };
    const auto number = [](const char *name, const char *toolTip, std::int64_t maximum,
                           std::function<std::int64_t()> value, std::function<Status(std::int64_t)> write) {
        return SettingFeature(name, kResend, toolTip, std::move(value), std::move(write), [=] { return maximum; });
    };
    const auto time = [=](const char *name, const char *toolTip, auto field) {
        return number(
            name, toolTip, kLongestTimeoutUs, [this, field] { return (m_channel->Resend().*field).count(); },
            [=](std::int64_t us) {
                return change([&](ResendSettings &settings) { settings.*field = std::chrono::microseconds(us); });
            });
    };
    return {
        YesNoFeature(
            "StreamPacketResendEnable", kResend, "Whether missing packets are asked for again",
            [this] { return m_channel->Resend().enabled; },
            [=](bool value) { return change([&](ResendSettings &settings) { settings.enabled = value; }); }),
        time("StreamPacketResendInitialTimeout", "Microseconds that packets may come out of order",
             &ResendSettings::initialTimeout),
        time("StreamPacketResendTimeout", "Microseconds, at most, between two requests for the same packet",
             &ResendSettings::packetTimeout),
        time("StreamFrameRetention",
             "Microseconds after its last packet until a frame is given up; at least a second for the newest one while "
             "payload of it is missing",
             &ResendSettings::retention),
        number(
            "StreamPacketRequestRatio",
            "Percent of a frame's packets that may be asked for; of a frame that lacks more, none is", 1000,
            [this] { return std::int64_t{m_channel->Resend().requestPercent}; },
            [=](std::int64_t value) {
                return change([&](ResendSettings &settings) { settings.requestPercent = std::uint32_t(value); });
            }),
        number(
            "StreamPacketRequestTries", "Requests for the same packet", kMostTries,
            [this] { return std::int64_t{m_channel->Resend().tries}; },
            [=](std::int64_t value) {
                return change([&](ResendSettings &settings) { settings.tries = std::uint32_t(value); });
            }),
    };
}

} // namespace nuvark
