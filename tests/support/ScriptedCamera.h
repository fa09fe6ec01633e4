#pragma once

#include "base/Mutex.h"
#include "orvcam/OrvCam.h"
#include "orvimage/PixelFormats.h"

#include <atomic>
#include <chrono>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

/// A camera without hardware behind the camera library's interfaces: frames, failures and the loss are scripted, and
/// every command is written down in the order it came.
namespace scripted {

class Buffer final : public OrvCam::Buffer {
public:
    bool IsIncomplete() override { return incomplete; }
    std::uint64_t GetTimestamp() override { return timestamp; }
    std::uint64_t GetFrameID() override { return frameId; }
    std::size_t GetBufferSize() override { return payloadBytes; }
    const _OrvImage *GetImage() override { return &image; }

    bool incomplete = false;
    std::uint64_t timestamp = 0;
    std::uint64_t frameId = 0;
    std::size_t payloadBytes = 0;
    _OrvImage image{};
    std::vector<std::uint8_t> pixels;
};

/// A frame as a test wants it.
struct Frame {
    std::uint64_t id = 1;
    std::uint64_t timestamp = 0;
    bool incomplete = false;
    std::uint8_t fill = 0;        ///< value of every byte
    std::size_t payloadBytes = 0; ///< 0: the image's size
};

/// Format of the frames that a stream delivers.
struct Format {
    std::uint32_t width = 8;
    std::uint32_t height = 4;
    std::uint32_t pixelType = orv::kMono8;
};

class Stream final : public OrvCam::Stream {
public:
    explicit Stream(std::vector<std::string> *log, orv::Mutex *logMutex) : m_log(log), m_logMutex(logMutex) {}

    int AllocBufferQueue(void *, unsigned int count) override
    {
        Note("AllocBufferQueue");
        if (allocStatus != ORV_CAM_OK)
            return allocStatus;
        const orv::MutexLock lock(m_mutex);
        m_buffers.clear();
        m_free.clear();
        m_filled.clear();
        for (unsigned int i = 0; i < count; ++i) {
            m_buffers.push_back(std::make_unique<Buffer>());
            m_free.push_back(m_buffers.back().get());
        }
        return ORV_CAM_OK;
    }
    int ReleaseBufferQueue() override
    {
        Note("ReleaseBufferQueue");
        const orv::MutexLock lock(m_mutex);
        m_releasedFree = m_free.size() + m_filled.size();
        m_free.clear();
        m_filled.clear();
        m_buffers.clear();
        return ORV_CAM_OK;
    }
    int StartAcquisition(std::uint64_t, unsigned int) override
    {
        Note("StartAcquisition");
        return startStatus;
    }
    int StopAcquisition(unsigned int) override
    {
        Note("StopAcquisition");
        if (onStopAcquisition)
            onStopAcquisition();
        return stopStatus;
    }
    OrvCam::Buffer *GetBuffer(std::uint64_t timeoutMs, int *err) override
    {
        const auto deadline = std::chrono::steady_clock::now() +
                              std::chrono::milliseconds(timeoutMs == OrvCam::kInfinite ? 3600000 : timeoutMs);
        const orv::MutexLock lock(m_mutex);
        while (m_filled.empty() && !m_cancelled) {
            if (m_condition.WaitUntil(m_mutex, deadline) == std::cv_status::timeout) {
                *err = ORV_CAM_ERR_TIMEOUT;
                return nullptr;
            }
        }
        if (m_cancelled) {
            m_cancelled = false;
            *err = ORV_CAM_ERR_ABORTED;
            return nullptr;
        }
        Buffer *buffer = m_filled.front();
        m_filled.pop_front();
        *err = ORV_CAM_OK;
        return buffer;
    }
    int CancelBuffer() override
    {
        {
            const orv::MutexLock lock(m_mutex);
            m_cancelled = true;
        }
        m_condition.NotifyAll();
        return ORV_CAM_OK;
    }
    int QueueBuffer(OrvCam::Buffer *buffer) override
    {
        const orv::MutexLock lock(m_mutex);
        m_free.push_back(static_cast<Buffer *>(buffer));
        m_returnedIds.push_back(buffer->GetFrameID());
        return ORV_CAM_OK;
    }
    OrvCam::StreamStatistics GetStatistics() override
    {
        const orv::MutexLock lock(m_mutex);
        m_statisticsWereAsked = true;
        return m_statistics;
    }
    bool StatisticsWereAsked()
    {
        const orv::MutexLock lock(m_mutex);
        return m_statisticsWereAsked;
    }
    void SetStatistics(const OrvCam::StreamStatistics &statistics)
    {
        const orv::MutexLock lock(m_mutex);
        m_statistics = statistics;
        m_statisticsWereAsked = false;
    }

    /// Fills a free buffer and makes it the next that GetBuffer yields; false when none is free.
    bool Deliver(const Frame &frame)
    {
        {
            const orv::MutexLock lock(m_mutex);
            if (m_free.empty())
                return false;
            Buffer *buffer = m_free.front();
            m_free.pop_front();
            Fill(buffer, frame);
            m_filled.push_back(buffer);
        }
        m_condition.NotifyAll();
        return true;
    }
    std::size_t FreeBuffers()
    {
        const orv::MutexLock lock(m_mutex);
        return m_free.size();
    }
    /// Buffers that were with the stream when the queue was released: all of them, unless somebody kept one.
    std::size_t ReleasedBuffers()
    {
        const orv::MutexLock lock(m_mutex);
        return m_releasedFree;
    }
    std::vector<std::uint64_t> ReturnedIds()
    {
        const orv::MutexLock lock(m_mutex);
        return m_returnedIds;
    }

    std::atomic<int> allocStatus{ORV_CAM_OK};
    std::atomic<int> startStatus{ORV_CAM_OK};
    std::atomic<int> stopStatus{ORV_CAM_OK};
    Format format;                           ///< set before frames are delivered
    std::function<void()> onStopAcquisition; ///< set before use

private:
    void Note(const char *call)
    {
        const orv::MutexLock lock(*m_logMutex);
        m_log->push_back(call);
    }
    void Fill(Buffer *buffer, const Frame &frame)
    {
        buffer->frameId = frame.id;
        buffer->timestamp = frame.timestamp;
        buffer->incomplete = frame.incomplete;
        const std::uint32_t bits = orv::BitsPerPixel(format.pixelType);
        buffer->pixels.assign(static_cast<std::size_t>(format.width) * format.height * bits / 8, frame.fill);
        buffer->payloadBytes = frame.payloadBytes ? frame.payloadBytes : buffer->pixels.size();
        _OrvImage &image = buffer->image;
        image = {};
        image.pixelType = format.pixelType;
        image.significantBits = 8;
        image.bitsPerPixel = bits;
        image.width = format.width;
        image.height = format.height;
        image.linePitch = format.width * bits / 8;
        image.timestamp = frame.timestamp;
        image.frameId = frame.id;
        image.data = buffer->pixels.data();
        image.dataSize = buffer->pixels.size();
    }

    std::vector<std::string> *m_log;
    orv::Mutex *m_logMutex;
    orv::Mutex m_mutex;
    orv::ConditionVariable m_condition;
    std::vector<std::unique_ptr<Buffer>> m_buffers GUARDED_BY(m_mutex);
    std::deque<Buffer *> m_free GUARDED_BY(m_mutex);
    std::deque<Buffer *> m_filled GUARDED_BY(m_mutex);
    std::vector<std::uint64_t> m_returnedIds GUARDED_BY(m_mutex);
    std::size_t m_releasedFree GUARDED_BY(m_mutex) = 0;
    bool m_cancelled GUARDED_BY(m_mutex) = false;
    OrvCam::StreamStatistics m_statistics GUARDED_BY(m_mutex);
    bool m_statisticsWereAsked GUARDED_BY(m_mutex) = false;
};

/// How long the camera takes for an answer. While somebody watches an event loop, the answer that makes such waits add
/// up to more than the loop may stand still comes only after the loop has turned.
class Delay {
public:
    static constexpr int kLongestStillMs = 100;

    void Wait() const
    {
        const int delay = ms;
        std::this_thread::sleep_for(std::chrono::milliseconds(delay)); // the camera's own slowness
        const orv::MutexLock lock(m_mutex);
        m_stillMs += delay;
        if (!m_isWatched || m_stillMs < kLongestStillMs)
            return;
        const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(5);
        while (m_stillMs != 0 && !m_hasStuck)
            m_hasStuck = m_turned.WaitUntil(m_mutex, limit) == std::cv_status::timeout && m_stillMs != 0;
    }
    void Watch(bool isWatched)
    {
        const orv::MutexLock lock(m_mutex);
        m_isWatched = isWatched;
        m_stillMs = 0;
        m_hasStuck = false;
    }
    /// The event loop has.
    void Turn()
    {
        const orv::MutexLock lock(m_mutex);
        m_stillMs = 0;
        m_turned.NotifyAll();
    }
    /// Whether it has waited for an answer instead of turning.
    bool HasStuck() const
    {
        const orv::MutexLock lock(m_mutex);
        return m_hasStuck;
    }
    std::atomic<int> ms{0};

private:
    mutable orv::Mutex m_mutex;
    mutable orv::ConditionVariable m_turned;
    bool m_isWatched GUARDED_BY(m_mutex) = false;
    mutable int m_stillMs GUARDED_BY(m_mutex) = 0; ///< of waits since the loop has turned
    mutable bool m_hasStuck GUARDED_BY(m_mutex) = false;
};

class StringNode final : public OrvCam::StringNode {
public:
    StringNode(std::string name, std::string value, const Delay *delay)
        : m_name(std::move(name)), m_value(std::move(value)), m_delay(delay)
    {
    }
    const std::string &Name() const override { return m_name; }
    OrvCam::Access GetAccess() override { return OrvCam::Access::ReadOnly; }
    std::string GetValue(int *err) override
    {
        m_delay->Wait();
        if (err)
            *err = ORV_CAM_OK;
        return m_value;
    }
    int SetValue(const std::string &) override { return ORV_CAM_ERR_NOT_WRITABLE; }

private:
    std::string m_name;
    std::string m_value;
    const Delay *m_delay;
};

class IntegerNode final : public OrvCam::IntegerNode {
public:
    IntegerNode(std::string name, std::int64_t value, const Delay *delay)
        : m_name(std::move(name)), m_value(value), m_delay(delay)
    {
    }
    const std::string &Name() const override { return m_name; }
    OrvCam::Access GetAccess() override { return OrvCam::Access::ReadOnly; }
    std::int64_t GetValue(int *err) override { return Answer(err, m_value); }
    int SetValue(std::int64_t) override { return ORV_CAM_ERR_NOT_WRITABLE; }
    std::int64_t GetMin(int *err) override { return Answer(err, m_value); }
    std::int64_t GetMax(int *err) override { return Answer(err, m_value); }
    std::int64_t GetIncrement(int *err) override { return Answer(err, 1); }

private:
    std::int64_t Answer(int *err, std::int64_t value) const
    {
        m_delay->Wait();
        if (err)
            *err = ORV_CAM_OK;
        return value;
    }
    std::string m_name;
    std::int64_t m_value;
    const Delay *m_delay;
};

/// Takes every value within its limits.
class FloatNode final : public OrvCam::FloatNode {
public:
    FloatNode(std::string name, double value, double maximum, const Delay *delay)
        : m_name(std::move(name)), m_value(value), m_maximum(maximum), m_delay(delay)
    {
    }
    const std::string &Name() const override { return m_name; }
    OrvCam::Access GetAccess() override { return OrvCam::Access::ReadWrite; }
    double GetValue(int *err) override { return Answer(err, m_value); }
    int SetValue(double value) override
    {
        m_delay->Wait();
        if (value < 0 || value > m_maximum)
            return ORV_CAM_ERR_OUT_OF_RANGE;
        m_value = value;
        return ORV_CAM_OK;
    }
    double GetMin(int *err) override { return Answer(err, 0); }
    double GetMax(int *err) override { return Answer(err, m_maximum); }

private:
    double Answer(int *err, double value) const
    {
        m_delay->Wait();
        if (err)
            *err = ORV_CAM_OK;
        return value;
    }
    std::string m_name;
    std::atomic<double> m_value;
    double m_maximum;
    const Delay *m_delay;
};

/// One value for each entry of its selector, or one alone.
class EnumerationNode final : public OrvCam::EnumerationNode {
public:
    EnumerationNode(std::string name, std::vector<std::string> entries, EnumerationNode *selector, const Delay *delay)
        : m_name(std::move(name)), m_entries(std::move(entries)), m_selector(selector), m_delay(delay)
    {
    }
    const std::string &Name() const override { return m_name; }
    OrvCam::Access GetAccess() override { return OrvCam::Access::ReadWrite; }
    std::string GetValue(int *err = nullptr) override
    {
        m_delay->Wait();
        if (err)
            *err = readStatus;
        return readStatus == ORV_CAM_OK ? Current() : "";
    }
    std::int64_t GetIntValue(int *err) override
    {
        if (err)
            *err = ORV_CAM_ERR_NOT_IMPLEMENTED;
        return 0;
    }
    int SetValue(const std::string &entry) override
    {
        m_delay->Wait();
        ++sets;
        if (setStatus == ORV_CAM_OK)
            Set(Selected(), entry);
        return setStatus;
    }
    std::vector<std::string> GetEntries(int *err) override
    {
        if (err)
            *err = readStatus;
        return m_entries;
    }

    /// Without a round trip. The first entry until something is set.
    std::string Current()
    {
        const std::string selected = Selected();
        const orv::MutexLock lock(m_mutex);
        const auto found = m_values.find(selected);
        return found == m_values.end() ? m_entries.front() : found->second;
    }
    void Set(const std::string &selected, const std::string &entry)
    {
        const orv::MutexLock lock(m_mutex);
        m_values[selected] = entry;
    }

    std::atomic<int> readStatus{ORV_CAM_OK};
    std::atomic<int> setStatus{ORV_CAM_OK};
    std::atomic<int> sets{0}; ///< tries to set it

private:
    std::string Selected() { return m_selector ? m_selector->Current() : ""; }

    std::string m_name;
    std::vector<std::string> m_entries;
    EnumerationNode *m_selector;
    const Delay *m_delay;
    orv::Mutex m_mutex;
    std::map<std::string, std::string> m_values GUARDED_BY(m_mutex); ///< by the selector's entry
};

class FeatureArray final : public OrvCam::FeatureArray {
public:
    FeatureArray(std::vector<std::string> *log, orv::Mutex *logMutex) : m_log(log), m_logMutex(logMutex) {}

    OrvCam::IntegerNode *GetInt(const char *name, int *err) override { return Find(integers, name, err); }
    OrvCam::FloatNode *GetFloat(const char *name, int *err) override { return Find(floats, name, err); }
    OrvCam::BooleanNode *GetBool(const char *, int *err) override { return Missing<OrvCam::BooleanNode>(err); }
    OrvCam::StringNode *GetString(const char *name, int *err) override { return Find(strings, name, err); }
    OrvCam::EnumerationNode *GetEnum(const char *name, int *err) override { return Find(enumerations, name, err); }
    int ExecuteCommand(const char *name) override { return Run(name); }
    int SetIntegerValue(const char *name, std::int64_t value) override
    {
        return Run(std::string(name) + "=" + std::to_string(value));
    }
    std::vector<std::string> FeatureNames() override { return {}; }

    void AddString(const std::string &name, const std::string &value)
    {
        strings[name] = std::make_unique<StringNode>(name, value, &delay);
    }
    void AddInteger(const std::string &name, std::int64_t value)
    {
        integers[name] = std::make_unique<IntegerNode>(name, value, &delay);
    }

    void AddFloat(const std::string &name, double value, double maximum)
    {
        floats[name] = std::make_unique<FloatNode>(name, value, maximum, &delay);
    }
    EnumerationNode &AddEnumeration(const std::string &name, std::vector<std::string> entries,
                                    EnumerationNode *selector = nullptr)
    {
        enumerations[name] = std::make_unique<EnumerationNode>(name, std::move(entries), selector, &delay);
        return *enumerations[name];
    }

    std::map<std::string, std::unique_ptr<StringNode>> strings;
    std::map<std::string, std::unique_ptr<FloatNode>> floats;
    std::map<std::string, std::unique_ptr<EnumerationNode>> enumerations;
    std::map<std::string, std::unique_ptr<IntegerNode>> integers;
    /// Status by call, "AcquisitionStart" or "TLParamsLocked=1"; success for the others. Set before use.
    std::map<std::string, int> status;
    /// Of every command and every read.
    Delay delay;

private:
    int Run(const std::string &call)
    {
        {
            const orv::MutexLock lock(*m_logMutex);
            m_log->push_back(call);
        }
        delay.Wait();
        const auto found = status.find(call);
        return found == status.end() ? static_cast<int>(ORV_CAM_OK) : found->second;
    }
    template <class Map> typename Map::mapped_type::element_type *Find(Map &map, const char *name, int *err)
    {
        const auto found = map.find(name);
        if (err)
            *err = found == map.end() ? ORV_CAM_ERR_FEATURE_NOT_PRESENT : ORV_CAM_OK;
        return found == map.end() ? nullptr : found->second.get();
    }
    template <class NodeType> NodeType *Missing(int *err)
    {
        if (err)
            *err = ORV_CAM_ERR_FEATURE_NOT_PRESENT;
        return nullptr;
    }

    std::vector<std::string> *m_log;
    orv::Mutex *m_logMutex;
};

/// Owned by the test: Release() only marks it.
class Device final : public OrvCam::Device {
public:
    Device() : stream(&m_log, &m_logMutex), features(&m_log, &m_logMutex) { description.id = "scripted"; }

    const OrvCam::DeviceDescription &GetDescription() const override { return description; }
    OrvCam::FeatureArray *GetCameraParameters(int) override { return hasFeatures ? &features : nullptr; }
    unsigned int GetStreamCount() override { return 1; }
    OrvCam::Stream *GetStreamByIndex(unsigned int index) override
    {
        if (!m_isStreamOpen.exchange(true))
            features.delay.Wait(); // opening it is a matter between producer and camera
        return hasStream && index == 0 ? &stream : nullptr;
    }
    int RegisterEvent(int type, OrvCam::EventCallback callback, void *context) override
    {
        if (type != OrvCam::kEventDeviceLost) {
            if (duringRegistration)
                duringRegistration();
            const orv::MutexLock lock(m_logMutex);
            return hasTraffic && m_traffic.insert({type, context}).second ? ORV_CAM_OK : ORV_CAM_ERR_NOT_IMPLEMENTED;
        }
        {
            const orv::MutexLock lock(m_logMutex);
            m_lost = {callback, context};
        }
        if (lostFromTheStart)
            Lose();
        return ORV_CAM_OK;
    }
    int UnregisterEvent(int type, OrvCam::EventCallback, void *context) override
    {
        const orv::MutexLock lock(m_logMutex);
        if (type != OrvCam::kEventDeviceLost)
            return m_traffic.erase({type, context}) != 0 ? ORV_CAM_OK : ORV_CAM_ERR_INVALID_PARAMETER;
        m_lost = {};
        return ORV_CAM_OK;
    }
    int SaveFeatures(const char *) override { return saveStatus; }
    int LoadFeatures(const char *) override { return loadStatus; }
    void Release() override { released = true; }

    /// Calls the device-lost callback on a thread of its own, as the library does.
    void Lose()
    {
        std::pair<OrvCam::EventCallback, void *> lost;
        {
            const orv::MutexLock lock(m_logMutex);
            lost = m_lost;
        }
        if (lost.first)
            std::thread([lost] { lost.first("lost", 4, lost.second); }).join();
    }
    bool HasTrafficListeners()
    {
        const orv::MutexLock lock(m_logMutex);
        return !m_traffic.empty();
    }
    std::vector<std::string> TakeLog()
    {
        const orv::MutexLock lock(m_logMutex);
        return std::exchange(m_log, {});
    }

private:
    orv::Mutex m_logMutex;
    std::vector<std::string> m_log;
    std::atomic<bool> m_isStreamOpen{false};
    std::pair<OrvCam::EventCallback, void *> m_lost;
    std::set<std::pair<int, void *>> m_traffic; ///< who is registered for which channel

public:
    OrvCam::DeviceDescription description;
    Stream stream;
    FeatureArray features;
    bool hasFeatures = true;
    bool hasStream = true;
    bool lostFromTheStart = false; ///< the loss is reported as soon as somebody registers for it
    std::atomic<int> saveStatus{ORV_CAM_OK};
    std::atomic<int> loadStatus{ORV_CAM_OK};
    std::atomic<bool> hasTraffic{false};      ///< channels of raw packets can be registered for
    std::function<void()> duringRegistration; ///< for one
    std::atomic<bool> released{false};
};

} // namespace scripted
