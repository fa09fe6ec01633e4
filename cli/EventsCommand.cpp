#include "base/Mutex.h"
#include "cli/Acquisition.h"
#include "cli/Cameras.h"
#include "cli/Command.h"
#include "cli/MessageEvents.h"
#include "cli/Terminal.h"
#include "cli/Traffic.h"

#include <chrono>
#include <map>
#include <optional>
#include <utility>

namespace orvcli {

namespace {

using Clock = std::chrono::steady_clock;

/// What the library's threads have told and the program has not printed yet.
class Inbox {
public:
    struct News {
        std::vector<MessageEvent> events;
        std::optional<std::string> loss; ///< the reason
        std::uint64_t dropped = 0;
    };

    static void OnMessage(const void *data, unsigned long size, void *inbox)
    {
        static_cast<Inbox *>(inbox)->Add(ReadMessageEvents(data, size));
    }
    static void OnLost(const void *data, unsigned long size, void *inbox)
    {
        static_cast<Inbox *>(inbox)->Lose(std::string(static_cast<const char *>(data), size));
    }

    /// Waits a moment when there is nothing.
    News Take() EXCLUDES(m_mutex)
    {
        const auto end = Clock::now() + std::chrono::milliseconds(100);
        orv::MutexLock lock(m_mutex);
        while (m_news.events.empty() && !m_news.loss.has_value()) {
            if (m_arrived.WaitUntil(m_mutex, end) == std::cv_status::timeout)
                break;
        }
        return std::exchange(m_news, {});
    }

private:
    void Add(std::vector<MessageEvent> events) EXCLUDES(m_mutex)
    {
        constexpr std::size_t kMostWaiting = 10000;
        orv::MutexLock lock(m_mutex);
        for (const MessageEvent &event : events) {
            if (m_news.events.size() < kMostWaiting)
                m_news.events.push_back(event);
            else
                ++m_news.dropped;
        }
        m_arrived.NotifyAll();
    }
    void Lose(std::string reason) EXCLUDES(m_mutex)
    {
        orv::MutexLock lock(m_mutex);
        m_news.loss = reason.substr(0, reason.find('\0'));
        m_arrived.NotifyAll();
    }

    orv::Mutex m_mutex;
    orv::ConditionVariable m_arrived;
    News m_news GUARDED_BY(m_mutex);
};

/// Hears of the loss as long as it lives.
class LossWatch {
public:
    LossWatch(OrvCam::Device &device, Inbox &inbox)
        : m_device(device), m_inbox(inbox),
          m_isRegistered(device.RegisterEvent(OrvCam::kEventDeviceLost, Inbox::OnLost, &inbox) == ORV_CAM_OK)
    {
    }
    ~LossWatch()
    {
        if (m_isRegistered)
            m_device.UnregisterEvent(OrvCam::kEventDeviceLost, Inbox::OnLost, &m_inbox);
    }
    LossWatch(const LossWatch &) = delete;
    LossWatch &operator=(const LossWatch &) = delete;
    bool IsRegistered() const { return m_isRegistered; }

private:
    OrvCam::Device &m_device;
    Inbox &m_inbox;
    const bool m_isRegistered;
};

/// Switches the events that were asked for on, and off again at the end.
class Notifications {
public:
    explicit Notifications(OrvCam::FeatureArray *features) : m_features(features) {}
    ~Notifications()
    {
        for (const std::string &name : m_on)
            (void)Switch(name, "Off");
    }
    Notifications(const Notifications &) = delete;
    Notifications &operator=(const Notifications &) = delete;

    Outcome SwitchOn(const std::vector<std::string> &names)
    {
        for (const std::string &name : names) {
            const Outcome outcome = Switch(name, "On");
            if (!outcome.IsOk())
                return outcome;
            m_on.push_back(name);
        }
        return {};
    }

private:
    Outcome Switch(const std::string &name, const char *state)
    {
        const auto set = [this](const char *feature, const std::string &entry) {
            int status = m_features != nullptr ? ORV_CAM_OK : ORV_CAM_ERR_XML;
            if (OrvCam::EnumerationNode *node = status == ORV_CAM_OK ? m_features->GetEnum(feature, &status) : nullptr)
                status = node->SetValue(entry);
            return status;
        };
        int status = set("EventSelector", name);
        if (status == ORV_CAM_OK)
            status = set("EventNotification", state);
        return status == ORV_CAM_OK ? Outcome() : FailedWith(status, "event \"" + name + "\"");
    }

    OrvCam::FeatureArray *const m_features;
    std::vector<std::string> m_on;
};

/// The standard's names: the feature "EventExposureEnd" holds the number of the event "ExposureEnd".
std::map<std::int64_t, std::string> EventNames(OrvCam::FeatureArray *features)
{
    std::map<std::int64_t, std::string> names;
    OrvCam::EnumerationNode *selector = features != nullptr ? features->GetEnum("EventSelector") : nullptr;
    if (selector == nullptr)
        return names;
    for (const std::string &entry : selector->GetEntries()) {
        int status = ORV_CAM_OK;
        OrvCam::IntegerNode *number = features->GetInt(("Event" + entry).c_str(), &status);
        const std::int64_t id = number != nullptr ? number->GetValue(&status) : 0;
        if (status == ORV_CAM_OK)
            names[id] = entry;
    }
    return names;
}

void PrintEvent(const MessageEvent &event, const std::string &name, bool isJson)
{
    if (isJson) {
        Json json;
        json.Open('{').Member("event", name).Member("id", std::uint64_t{event.id}).Member("block", event.block);
        json.Member("timestamp", event.timestamp).Member("dataBytes", std::uint64_t{event.dataBytes}).Close('}');
        PrintLine(json.Text());
        return;
    }
    char id[8];
    std::snprintf(id, sizeof id, "0x%04x", event.id);
    PrintLine(std::string(id) + " " + (name.empty() ? "-" : Printable(name)) + ", frame " +
              std::to_string(event.block) + ", time " + std::to_string(event.timestamp) +
              (event.dataBytes > 0 ? ", " + std::to_string(event.dataBytes) + " bytes of data" : ""));
}

void PrintTraffic(const Traffic &traffic, bool isJson)
{
    Json json;
    json.Open('{').Key("traffic");
    traffic.Write(json);
    PrintLine(isJson ? json.Close('}').Text() : "packets: " + traffic.Text());
}

/// The frames are not what was asked for; without their buffers the camera's driver would complain.
void ThrowFramesAway(OrvCam::Stream &stream)
{
    int status = ORV_CAM_OK;
    while (OrvCam::Buffer *buffer = stream.GetBuffer(0, &status))
        stream.QueueBuffer(buffer);
}

struct Sources {
    Inbox &inbox;
    std::map<std::int64_t, std::string> names;
    OrvCam::Stream *stream; ///< that runs meanwhile, or null
    const Traffic *traffic; ///< to be shown, or null
};

Outcome Listen(const Sources &from, const Options &options)
{
    Progress progress;
    const auto length = std::chrono::duration<double>(options.seconds);
    const Clock::time_point end = Clock::now() + std::chrono::duration_cast<Clock::duration>(length);
    while (!IsInterrupted() && (options.seconds == 0 || Clock::now() < end)) {
        const Inbox::News news = from.inbox.Take();
        if (from.stream != nullptr)
            ThrowFramesAway(*from.stream);
        for (const MessageEvent &event : news.events) {
            const auto name = from.names.find(event.id);
            PrintEvent(event, name != from.names.end() ? name->second : std::string(), options.isJson);
        }
        if (news.dropped > 0)
            std::fprintf(stderr, "orvcam: events: %llu more came too fast to be printed\n",
                         static_cast<unsigned long long>(news.dropped));
        if (from.traffic != nullptr)
            progress.Show(from.traffic->Text());
        if (news.loss.has_value()) {
            if (options.isJson)
                PrintLine(
                    Json().Open('{').Member("event", "DeviceLost").Member("reason", *news.loss).Close('}').Text());
            return Fail("the connection to the camera was lost: " + Printable(*news.loss), ExitCode::Lost);
        }
    }
    return {};
}

} // namespace

Outcome RunEvents(const Options &options)
{
    WatchForInterrupt();
    OrvCam::DeviceDescription camera;
    DevicePtr device;
    Outcome outcome = FindAndOpen(options.Word(0), OrvCam::ORV_ACCESS_CONTROL, camera, device);
    if (!outcome.IsOk())
        return outcome;
    OrvCam::FeatureArray *features = device->GetCameraParameters();
    Inbox inbox;
    const LossWatch loss(*device, inbox);
    Traffic traffic(*device);
    traffic.PassMessagesTo(Inbox::OnMessage, &inbox);
    outcome = options.countTraffic ? traffic.Start() : traffic.StartMessagesOnly();
    // A driver that shows no packets may still tell the loss, which is then all there is.
    const bool asksForMessages = options.countTraffic || !options.events.empty();
    if (!outcome.IsOk() && (asksForMessages || !loss.IsRegistered()))
        return outcome;
    Notifications notifications(features);
    Acquisition acquisition(*device);
    outcome = notifications.SwitchOn(options.events);
    if (outcome.IsOk() && options.isStreaming)
        outcome = acquisition.Start(options.buffers);
    if (outcome.IsOk())
        outcome = Listen({inbox, EventNames(features), options.isStreaming ? &acquisition.Stream() : nullptr,
                          options.countTraffic ? &traffic : nullptr},
                         options);
    if (!outcome.IsOk())
        outcome.problem = NameOf(camera) + ": " + outcome.problem;
    if (options.countTraffic)
        PrintTraffic(traffic, options.isJson);
    return outcome;
}

} // namespace orvcli
