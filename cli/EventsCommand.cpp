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
    /// Events that came faster than they were taken.
    std::uint64_t Dropped() EXCLUDES(m_mutex)
    {
        orv::MutexLock lock(m_mutex);
        return m_dropped;
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
                ++m_dropped;
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
    std::uint64_t m_dropped GUARDED_BY(m_mutex) = 0;
};

/// One kind of news that the inbox gets as long as this lives.
class Registration {
public:
    Registration(OrvCam::Device &device, int type, OrvCam::EventCallback callback, Inbox &inbox)
        : m_device(device), m_type(type), m_callback(callback), m_inbox(inbox),
          m_status(device.RegisterEvent(type, callback, &inbox))
    {
    }
    ~Registration()
    {
        if (m_status == ORV_CAM_OK)
            m_device.UnregisterEvent(m_type, m_callback, &m_inbox);
    }
    Registration(const Registration &) = delete;
    Registration &operator=(const Registration &) = delete;

    int Status() const { return m_status; }
    /// News that came faster than the inbox took them.
    std::uint64_t Dropped() const { return m_device.GetEventFigures(m_type).dropped; }

private:
    OrvCam::Device &m_device;
    const int m_type;
    const OrvCam::EventCallback m_callback;
    Inbox &m_inbox;
    const int m_status;
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

void PrintEvent(const MessageEvent &event, const std::string &name, Report *report)
{
    if (report != nullptr) {
        Json json;
        json.Open('{').Member("event", name).Member("id", std::uint64_t{event.id}).Member("block", event.block);
        json.Member("timestamp", event.timestamp).Member("dataBytes", std::uint64_t{event.dataBytes}).Close('}');
        report->Print(json);
        return;
    }
    char id[8];
    std::snprintf(id, sizeof id, "0x%04x", event.id);
    PrintLine(std::string(id) + " " + (name.empty() ? "-" : Printable(name)) + ", frame " +
              std::to_string(event.block) + ", time " + std::to_string(event.timestamp) +
              (event.dataBytes > 0 ? ", " + std::to_string(event.dataBytes) + " bytes of data" : ""));
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
    Report *report;         ///< null: it is for a person
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
            PrintEvent(event, name != from.names.end() ? name->second : std::string(), from.report);
        }
        if (from.traffic != nullptr)
            progress.Show(from.traffic->Text());
        if (news.loss.has_value()) {
            if (from.report != nullptr)
                from.report->Print(
                    Json().Open('{').Member("event", "DeviceLost").Member("reason", *news.loss).Close('}'));
            return Fail("the connection to the camera was lost: " + Printable(*news.loss), ExitCode::Lost);
        }
    }
    return {};
}

/// What is left to be told when all events are printed.
void TellTheRest(const Sources &from, std::uint64_t dropped)
{
    if (dropped > 0) {
        std::fprintf(stderr, "orvcam: events: %llu more came too fast to be printed\n",
                     static_cast<unsigned long long>(dropped));
        if (from.report != nullptr)
            from.report->Members().Member("dropped", dropped);
    }
    if (from.traffic == nullptr)
        return;
    if (from.report != nullptr)
        from.traffic->Write(from.report->Members().Key("traffic"));
    else
        PrintLine("packets: " + from.traffic->Text());
}

} // namespace

Outcome RunEvents(const Options &options, Report &report)
{
    WatchForInterrupt();
    OrvCam::DeviceDescription camera;
    DevicePtr device;
    Outcome outcome = FindAndOpen(options.Word(0), OrvCam::ORV_ACCESS_CONTROL, camera, device);
    if (!outcome.IsOk())
        return outcome;
    OrvCam::FeatureArray *features = device->GetCameraParameters();
    Inbox inbox;
    const Registration loss(*device, OrvCam::kEventDeviceLost, Inbox::OnLost, inbox);
    const Registration events(*device, OrvCam::kEventRemoteDevice, Inbox::OnMessage, inbox);
    // A driver that has no events may still tell the loss, which is then all there is.
    if (events.Status() != ORV_CAM_OK && (!options.events.empty() || loss.Status() != ORV_CAM_OK))
        return FailedWith(events.Status(), "events");
    Traffic traffic;
    if (options.countTraffic)
        outcome = traffic.Start(*device);
    if (!outcome.IsOk())
        return outcome;
    Notifications notifications(features);
    Acquisition acquisition(*device);
    outcome = notifications.SwitchOn(options.events);
    if (outcome.IsOk() && options.isStreaming)
        outcome = acquisition.Start(options.buffers);
    Sources from{inbox, EventNames(features), nullptr, options.countTraffic ? &traffic : nullptr,
                 options.isJson ? &report : nullptr};
    if (outcome.IsOk() && options.isStreaming)
        from.stream = &acquisition.Stream();
    if (outcome.IsOk())
        outcome = Listen(from, options);
    if (!outcome.IsOk())
        outcome.problem = NameOf(camera) + ": " + outcome.problem;
    TellTheRest(from, inbox.Dropped() + events.Dropped());
    return outcome;
}

} // namespace orvcli
