#include "acquisition/GrabbingFifo.h"

#include "core/DiagnosticLog.h"
#include "core/RunBeside.h"
#include "panels/PlayerPanel.h"

#include <chrono>
#include <cstring>
#include <limits>
#include <thread>

namespace {

constexpr std::chrono::milliseconds kWrongStatePause{10};
/// Buffers that the stream always keeps for receiving.
constexpr std::uint64_t kReservedBuffers = 3;
constexpr double kBytesPerMiB = 1048576.0;
constexpr double kLowestSpeedMiBs = 0.1;
constexpr long kIntMin = std::numeric_limits<long>::min();
constexpr long kIntMax = std::numeric_limits<long>::max();

} // namespace

GrabbingFifo::GrabbingFifo(QObject *parent, OrvCam::Device *device)
    : QObject(parent), WorkingThread("GrabbingFifo"), OrvComponentImp(202),
      // Opened on first use, for which a producer may talk to the camera.
      m_stream(orv::RunBeside([device] { return device->GetStreamByIndex(0); }))
{
    DeclareParams();
    ReadTickFrequency(device);
}

GrabbingFifo::~GrabbingFifo()
{
    LogFormatted(LogLevel::Debug, 0, "GrabbingFifo::~GrabbingFifo()");
    SetGrabberThtreadBlocking(false);
    // The thread uses members of this class, so it has to end before they do.
    if (IsStarted())
        StopGrabbing();
    Terminate();
}

void GrabbingFifo::DeclareInt(const char *name, long *member, long defaultValue, long minimum)
{
    *member = defaultValue;
    _OrvStParam param = {};
    param.type = ORV_PARAM_INT;
    param.access = ORV_PARAM_ACCESS_RW;
    std::strncpy(param.name, name, sizeof param.name - 1);
    param.onChange = PlayerPanel::OnParamChanged;
    param.asInt.defaultValue = defaultValue;
    param.asInt.minimum = minimum;
    param.asInt.maximum = kIntMax;
    param.asInt.value = member;
    m_params.AddParam(&param);
}

void GrabbingFifo::DeclareFloat(const char *name, double *member)
{
    *member = 0.0;
    _OrvStParam param = {};
    param.type = ORV_PARAM_FLOAT;
    param.access = ORV_PARAM_ACCESS_RW;
    std::strncpy(param.name, name, sizeof param.name - 1);
    param.onChange = PlayerPanel::OnParamChanged;
    param.asFloat.maximum = std::numeric_limits<double>::max();
    param.asFloat.value = member;
    m_params.AddParam(&param);
}

void GrabbingFifo::DeclareParams()
{
    DeclareInt("FramesAcquired", &m_framesAcquired, 0, 0);
    DeclareInt("FramesDroppedHW", &m_framesDroppedHW, 0, 0);
    DeclareInt("FramesDroppedSW", &m_framesDroppedSW, 0, 0);
    DeclareInt("QueueFilled", &m_queueFilled, 0, 0);
    DeclareInt("QueueSize", &m_queueSize, 16, 3);
    DeclareInt("Timestamp", &m_timestamp, 0, kIntMin);
    DeclareInt("FrameID", &m_frameId, 0, kIntMin);
    DeclareInt("FramesIncomp", &m_framesIncomplete, 0, kIntMin);
    DeclareFloat("FpsAvg", &m_fpsAvg);
    DeclareFloat("FpsInst", &m_fpsInst);
    DeclareFloat("Speed", &m_speed);
}

void GrabbingFifo::ReadTickFrequency(OrvCam::Device *device)
{
    orv::RunBeside([this, device] {
        OrvCam::FeatureArray *features = device->GetCameraParameters();
        if (!features)
            return;
        int err = ORV_CAM_OK;
        OrvCam::IntegerNode *node = features->GetInt("GevTimestampTickFrequency", &err);
        if (!node || err != ORV_CAM_OK)
            return;
        const std::int64_t frequency = node->GetValue(&err);
        if (err == ORV_CAM_OK)
            m_tickFrequency = frequency;
    });
}

void GrabbingFifo::PublishInt(const char *name, std::int64_t value)
{
    m_params.SetParamInt(const_cast<char *>(name), value, true);
}

void GrabbingFifo::PublishFloat(const char *name, double value)
{
    m_params.SetParamFloat(const_cast<char *>(name), value, true);
}

long GrabbingFifo::ReadInt(const char *name)
{
    long value = 0;
    m_params.GetParamInt(const_cast<char *>(name), &value);
    return value;
}

void GrabbingFifo::Count(const char *name, std::int64_t increment)
{
    PublishInt(name, ReadInt(name) + increment);
}

bool GrabbingFifo::SetState(SessionState state)
{
    m_state = state;
    return true;
}

int GrabbingFifo::CreateBuffers()
{
    const LogScope scope("GrabbingFifo::CreateBuffers()");
    const long count = ReadInt("QueueSize");
    if (count > std::numeric_limits<int>::max()) {
        LogFormatted(LogLevel::Error, static_cast<std::uint64_t>(count),
                     "GrabbingFifo::CreateBuffers(): no stream has that many buffers");
        return ORV_CAM_ERR_INVALID_PARAMETER;
    }
    const int result = m_stream->AllocBufferQueue(this, static_cast<unsigned int>(count));
    if (result != ORV_CAM_OK)
        LogFormatted(LogLevel::Error, LogCode(result), "GrabbingFifo::CreateBuffers(): AllocBufferQueue() failed");
    return result;
}

int GrabbingFifo::ReleaseBuffers()
{
    const LogScope scope("GrabbingFifo::ReleaseBuffers()");
    {
        const orv::MutexLock lock(m_fifoMutex);
        while (!m_grab_fifo.empty()) {
            HandBack(m_grab_fifo.back());
            m_grab_fifo.pop_back();
        }
        PublishQueueFilled();
    }
    const int result = m_stream->ReleaseBufferQueue();
    if (result != ORV_CAM_OK)
        LogFormatted(LogLevel::Error, LogCode(result), "GrabbingFifo::CreateBuffers(): ReleaseBufferQueue() failed");
    return result;
}

bool GrabbingFifo::StartGrabbing()
{
    const LogScope scope("GrabbingFifo::StartGrabbing()");
    const int result = m_stream->StartAcquisition(OrvCam::kInfinite, 0);
    if (result != ORV_CAM_OK) {
        LogFormatted(LogLevel::Error, LogCode(result), "GrabbingFifo::StartGrabbing() : StartAcquisition failed");
        return false;
    }
    m_clock.firstTimestamp = 0;
    m_clock.lastFrameId = 0;
    for (const char *name : {"FramesAcquired", "FramesDroppedHW", "FramesDroppedSW", "FramesIncomp"})
        PublishInt(name, 0);
    return WorkingThread::Start();
}

bool GrabbingFifo::StopGrabbing()
{
    LogFormatted(LogLevel::Debug, 0, "GrabbingFifo::StopGrabbing() -> ENTER");
    if (!Stop()) {
        LogFormatted(LogLevel::Error, 0, "GrabbingFifo::StopGrabbing(): Stop() failed");
        return false;
    }
    const int result = m_stream->StopAcquisition(1);
    if (result != ORV_CAM_OK) {
        LogFormatted(LogLevel::Error, LogCode(result), "GrabbingFifo::StopGrabbing(): StopAcquisition() failed");
        return false;
    }
    LogFormatted(LogLevel::Debug, 0, "GrabbingFifo::Stop() <- LEAVE");
    return true;
}

bool GrabbingFifo::Stop()
{
    const LogScope scope("GrabbingFifo::Stop()");
    if (!IsStarted()) {
        LogFormatted(LogLevel::Error, 0, "GrabbingFifo::Stop(): grabbing was not started ");
        return false;
    }
    RequestPark();
    m_stream->CancelBuffer();
    WaitUntilParked();
    LogFormatted(LogLevel::Notice, 0, "GrabbingFifo::Stop() : Grabbing thread stopped");
    return true;
}

void GrabbingFifo::Work()
{
    const int result = GrabNewBuffer(static_cast<unsigned long>(OrvCam::kInfinite));
    if (result != ORV_CAM_OK)
        LogFormatted(LogLevel::Error, LogCode(result), "GrabbingFifo::Work: GrabNewBuffer failed: %i", result);
    else
        LogFormatted(LogLevel::Notice, 0, "GrabbingFifo::Work: GrabNewBuffer OK");
}

int GrabbingFifo::GrabNewBuffer(unsigned long timeout)
{
    const LogScope scope("GrabbingFifo::GrabNewBuffer()");
    const SessionState state = m_state;
    if (state == Disconnected || state == Idle) {
        std::this_thread::sleep_for(kWrongStatePause);
        LogFormatted(LogLevel::Error, LogCode(state), "GrabbingFifo::GrabNewBuffer(): ORV_CAM_ERR_INVALID_STATE");
        return ORV_CAM_ERR_INVALID_STATE;
    }
    int err = ORV_CAM_OK;
    OrvCam::Buffer *buffer = m_stream->GetBuffer(timeout, &err);
    const bool incomplete = buffer && buffer->IsIncomplete();
    if (incomplete)
        Count("FramesIncomp", 1);
    if (m_dropIncomplete && (err != ORV_CAM_OK || incomplete))
        buffer = DropIncomplete(buffer, err);
    if (buffer && !incomplete)
        UpdateFigures(buffer);
    {
        const orv::MutexLock lock(m_fifoMutex);
        if (m_state == Capturing)
            QueueForWriter(buffer);
        else
            QueueForDisplay(buffer);
        PublishQueueFilled();
    }
    WakeConsumers();
    return ORV_CAM_OK;
}

void GrabbingFifo::WakeConsumers()
{
    // A consumer between its check and its wait holds the wait mutex: passing through it makes sure it is waiting.
    {
        const orv::MutexLock lock(m_waitMutex);
    }
    m_cvFifoEmpty.NotifyAll();
}

OrvCam::Buffer *GrabbingFifo::DropIncomplete(OrvCam::Buffer *buffer, int err)
{
    if (buffer) {
        const orv::MutexLock lock(m_fifoMutex);
        HandBack(buffer);
    }
    LogFormatted(LogLevel::Error, LogCode(err), "GrabbingFifo::GrabNewBuffer(): GetBuffer() failed");
    return nullptr;
}

void GrabbingFifo::UpdateFigures(OrvCam::Buffer *buffer)
{
    Count("FramesAcquired", 1);

    const std::uint64_t timestamp = buffer->GetTimestamp();
    std::uint64_t previousTimestamp = m_clock.lastTimestamp;
    m_clock.lastTimestamp = timestamp;
    PublishInt("Timestamp", static_cast<std::int64_t>(timestamp));
    if (m_clock.firstTimestamp == 0) { // nothing to measure against yet
        m_clock.firstTimestamp = timestamp;
        previousTimestamp = timestamp;
    }

    const std::uint64_t frameId = buffer->GetFrameID();
    const std::uint64_t lastFrameId = m_clock.lastFrameId;
    if (lastFrameId != 0 && frameId != lastFrameId + 1) // a restarted or wrapped numbering loses nothing
        Count("FramesDroppedHW", frameId > lastFrameId ? static_cast<std::int64_t>(frameId - lastFrameId - 1) : 0);
    UpdateRates(frameId, previousTimestamp, buffer->GetBufferSize());
    m_clock.lastFrameId = frameId;
    PublishInt("FrameID", static_cast<std::int64_t>(frameId));
}

void GrabbingFifo::UpdateRates(std::uint64_t frameId, std::uint64_t previousTimestamp, std::size_t payloadBytes)
{
    const std::uint64_t sinceFirst = m_clock.lastTimestamp - m_clock.firstTimestamp;
    const std::uint64_t sincePrevious = m_clock.lastTimestamp - previousTimestamp;
    const auto ticksPerSecond = static_cast<double>(m_tickFrequency);

    // A gap of n numbers between two frames stands for n frame periods.
    if (sincePrevious != 0 && frameId > m_clock.lastFrameId)
        PublishFloat("FpsInst", ticksPerSecond * static_cast<double>(frameId - m_clock.lastFrameId) /
                                    static_cast<double>(sincePrevious));
    // Lost frames count too: this is the camera's rate, not the received one.
    if (sinceFirst != 0)
        PublishFloat("FpsAvg", ticksPerSecond *
                                   static_cast<double>(ReadInt("FramesDroppedHW") + ReadInt("FramesAcquired")) /
                                   static_cast<double>(sinceFirst));
    if (static_cast<std::int64_t>(sincePrevious) > 0) {
        const double speed =
            static_cast<double>(payloadBytes) * ticksPerSecond / (static_cast<double>(sincePrevious) * kBytesPerMiB);
        PublishFloat("Speed", speed < kLowestSpeedMiBs ? 0.0 : speed);
    }
}

void GrabbingFifo::QueueForWriter(OrvCam::Buffer *buffer)
{
    if (!buffer)
        return;
    const std::uint64_t capacity = static_cast<std::uint64_t>(ReadInt("QueueSize")) - kReservedBuffers;
    while (buffer && capacity <= m_grab_fifo.size()) {
        Count("FramesDroppedSW", 1);
        const OverflowPolicy policy = m_overflowPolicy;
        if (policy == OverflowPolicy::DiscardReceived) {
            buffer = nullptr;             // out of circulation until the queue is released
        } else if (m_grab_fifo.empty()) { // no room at all: a queue of three buffers
            HandBack(buffer);
            buffer = nullptr;
        } else if (policy == OverflowPolicy::ReturnNewest) {
            HandBack(m_grab_fifo.front());
            m_grab_fifo.pop_front();
        } else {
            HandBack(m_grab_fifo.back());
            m_grab_fifo.pop_back();
        }
    }
    if (!buffer)
        return;
    LogFormatted(LogLevel::Info, 0, "Frame added to m_grab_fifo id=%i", static_cast<int>(m_clock.lastFrameId));
    m_grab_fifo.push_front(buffer);
}

void GrabbingFifo::QueueForDisplay(OrvCam::Buffer *buffer)
{
    while (!m_grab_fifo.empty() && (buffer || m_grab_fifo.size() > 1)) {
        HandBack(m_grab_fifo.back());
        m_grab_fifo.pop_back();
    }
    if (!buffer)
        return;
    LogFormatted(LogLevel::Info, 0, "Frame added to m_grab_fifo id=%i", static_cast<int>(m_clock.lastFrameId));
    m_grab_fifo.push_front(buffer);
}

void GrabbingFifo::HandBack(OrvCam::Buffer *buffer)
{
    const int result = m_stream->QueueBuffer(buffer);
    if (result != ORV_CAM_OK)
        LogFormatted(LogLevel::Error, LogCode(result), "GrabbingFifo: QueueBuffer() failed");
}

void GrabbingFifo::PublishQueueFilled()
{
    const long filled = static_cast<long>(m_grab_fifo.size());
    if (filled == m_publishedFilled)
        return;
    m_publishedFilled = filled;
    PublishInt("QueueFilled", filled);
}

template <class Take> OrvCam::Buffer *GrabbingFifo::WaitAndTake(Take take)
{
    const orv::MutexLock wait(m_waitMutex);
    while (m_bBlockCallerThread) {
        {
            const orv::MutexLock fifo(m_fifoMutex);
            if (!m_grab_fifo.empty()) {
                OrvCam::Buffer *buffer = take(m_grab_fifo);
                PublishQueueFilled();
                return buffer;
            }
        }
        m_cvFifoEmpty.Wait(m_waitMutex);
    }
    return nullptr;
}

int GrabbingFifo::GetNewestBuffer(OrvCam::Buffer **out, bool bKeepInFifo)
{
    const LogScope scope("GrabbingFifo::GetNewestBuffer()");
    if (m_state < Acquisition) {
        LogFormatted(LogLevel::Error, LogCode(ORV_CAM_ERR_INVALID_STATE),
                     "GrabbingFifo::GetNewestBuffer(): ORV_CAM_ERR_INVALID_STATE");
        std::this_thread::sleep_for(kWrongStatePause);
        return ORV_CAM_ERR_INVALID_STATE;
    }
    OrvCam::Buffer *buffer = WaitAndTake([bKeepInFifo](std::deque<OrvCam::Buffer *> &fifo) {
        OrvCam::Buffer *newest = fifo.front();
        LogFormatted(LogLevel::Info, 0, "GrabbingFifo::GetNewestBuffer(): buffer id=%i returned",
                     static_cast<int>(newest->GetFrameID()));
        if (!bKeepInFifo) {
            LogFormatted(LogLevel::Info, 0,
                         "GrabbingFifo::GetNewestBuffer(): buffer id=%i poped from m_grab_fifo, bKeepInFifo=false",
                         static_cast<int>(newest->GetFrameID()));
            fifo.pop_front();
        }
        return newest;
    });
    if (buffer)
        *out = buffer;
    else
        LogFormatted(LogLevel::Info, 0,
                     "GrabbingFifo::GetNewestBuffer(): m_cvFifoEmpty.wait quit by m_bBlockCallerThread");
    return ORV_CAM_OK;
}

int GrabbingFifo::PopOldestBuffer(OrvCam::Buffer **out)
{
    const LogScope scope("GrabbingFifo::PopOldestBuffer()");
    if (m_state < Acquisition) {
        LogFormatted(LogLevel::Error, LogCode(ORV_CAM_ERR_INVALID_STATE),
                     "GrabbingFifo::PopOldestBuffer(): ORV_CAM_ERR_INVALID_STATE");
        return ORV_CAM_ERR_INVALID_STATE;
    }
    OrvCam::Buffer *buffer = WaitAndTake([](std::deque<OrvCam::Buffer *> &fifo) {
        OrvCam::Buffer *oldest = fifo.back();
        LogFormatted(LogLevel::Info, 0,
                     "GrabbingFifo::PopOldestBuffer(): buffer id=%i poped from m_grab_fifo, and returned to caller",
                     static_cast<int>(oldest->GetFrameID()));
        fifo.pop_back();
        return oldest;
    });
    if (buffer)
        *out = buffer;
    else
        LogFormatted(LogLevel::Info, 0,
                     "GrabbingFifo::PopOldestBuffer(): m_cvFifoEmpty.wait quit by m_bBlockCallerThread");
    return ORV_CAM_OK;
}

int GrabbingFifo::ReturnBuffer(OrvCam::Buffer *buffer)
{
    const LogScope scope("GrabbingFifo::ReturnBuffer()");
    if (m_state != Capturing)
        return ReleaseBuffer(buffer);
    {
        const orv::MutexLock lock(m_fifoMutex);
        m_grab_fifo.push_front(buffer);
    }
    WakeConsumers();
    return ORV_CAM_OK;
}

int GrabbingFifo::ReleaseBuffer(OrvCam::Buffer *buffer)
{
    const LogScope scope("GrabbingFifo::ReleaseBuffer()");
    const orv::MutexLock lock(m_fifoMutex);
    return m_stream->QueueBuffer(buffer);
}

void GrabbingFifo::SetGrabberThtreadBlocking(bool block)
{
    const LogScope scope("GrabbingFifo::SetGrabberThtreadBlocking()");
    {
        const orv::MutexLock lock(m_waitMutex);
        m_bBlockCallerThread = block;
    }
    m_cvFifoEmpty.NotifyAll();
}

double GrabbingFifo::GetCurrentFPS()
{
    const std::uint64_t ticks = m_clock.lastTimestamp - m_clock.firstTimestamp;
    if (ticks == 0)
        return 0.0;
    return static_cast<double>(ReadInt("FramesAcquired")) / static_cast<double>(ticks);
}
