#include "simulator/core/Camera.h"

#include "base/Bytes.h"
#include "simulator/core/CameraModel.h"
#include "simulator/core/ChunkTable.h"
#include "simulator/features/Description.h"
#include "simulator/imaging/ConfidencePlane.h"

#include "orvimage/PixelFormats.h"

#include <algorithm>

namespace orvsim {

namespace {

/// Where the features' own registers begin; below lie the standard registers of transports.
constexpr std::uint32_t kFirstRegister = 0x10000;

DeviceEvent MakeEvent(const CameraModel::Pending &pending)
{
    orv::ByteWriter data;
    if (pending.frameNumber.has_value())
        data.U64(*pending.frameNumber);
    return {EventIdOf(pending.kind), pending.timestampNs, pending.frameNumber.value_or(0), data.Take(),
            pending.frameNumber.has_value()};
}

/// Settings as they are after switching on: the options' own.
/// \return what could not be set.
std::string ApplyOptions(const CameraOptions &options, FeatureTable &features)
{
    std::string problems;
    const auto apply = [&](const std::string &name, const std::string &text) {
        std::string problem;
        if (features.SetText(name, text, problem) != Outcome::Ok)
            problems += (problems.empty() ? "" : "; ") + problem;
    };
    if (!options.pixelFormat.empty())
        apply("PixelFormat", options.pixelFormat);
    for (const auto &[name, text] : options.features)
        apply(name, text);
    return problems;
}

} // namespace

struct Camera::Parts {
    class Change;

    explicit Parts(const CameraOptions &options)
        : model(options), store(options.sensor, options.seed, options.frameMemory)
    {
    }

    orv::Mutex mutex;
    orv::ConditionVariable changed; // settings, acquisition, or the end
    CameraModel model GUARDED_BY(mutex);
    FrameStore store;           // taken from by the stream thread only
    bool isPreparing = false;   // the store is; the stream thread's
    ConfidencePlane confidence; // the stream thread's
    std::string description;
    std::function<void(const DeviceEvent &)> sink GUARDED_BY(mutex);
    std::function<void()> resetHandler GUARDED_BY(mutex);
    std::function<void(std::uint64_t)> leftoverHandler GUARDED_BY(mutex);
    std::uint64_t toldWantedFrom GUARDED_BY(mutex) = 0; // by the handler
    bool isClosed GUARDED_BY(mutex) = false;

    /// Frames are prepared ahead while the camera acquires, and their memory is given back afterwards. Not at once: the
    /// last frame is taken when the acquisition is over.
    void FollowAcquisition() EXCLUDES(mutex);
    enum class Moment { ExposureBegan, FrameDue, Over };
    /// Waits for the next of them; Over: the deadline, or the camera is closed.
    Moment WaitForMoment(std::chrono::steady_clock::time_point deadline) REQUIRES(mutex);
    /// Takes the frame that is due.
    FrameJob MakeJob() REQUIRES(mutex);
};

/// Holds the mutex while something is done to the camera; at its end, without the mutex, tells what came of it.
class SCOPED_CAPABILITY Camera::Parts::Change {
public:
    explicit Change(Parts &parts) ACQUIRE(parts.mutex) : m_parts(parts) { m_parts.mutex.lock(); }
    ~Change() RELEASE();
    Change(const Change &) = delete;

private:
    Parts &m_parts;
};

Camera::Parts::Change::~Change() NO_THREAD_SAFETY_ANALYSIS // releases in the middle
{
    CameraModel &model = m_parts.model;
    std::vector<CameraModel::Pending> events;
    events.swap(model.pendingEvents);
    const bool isReset = model.isResetRequested;
    model.isResetRequested = false;
    if (isReset)
        model.ResetState();
    const auto sink = m_parts.sink;
    const auto resetHandler = m_parts.resetHandler;
    const std::uint64_t wantedFrom = model.wantedFrom;
    const auto leftoverHandler = wantedFrom == m_parts.toldWantedFrom ? nullptr : m_parts.leftoverHandler;
    m_parts.toldWantedFrom = wantedFrom;
    m_parts.mutex.unlock();
    m_parts.changed.NotifyAll();
    if (leftoverHandler)
        leftoverHandler(wantedFrom);
    for (const CameraModel::Pending &event : events) {
        if (sink)
            sink(MakeEvent(event));
    }
    if (isReset && resetHandler)
        resetHandler();
}

Camera::Camera(const CameraOptions &options) : m_parts(std::make_unique<Parts>(options)) {}

Camera::~Camera()
{
    Close();
}

FeatureTable &Camera::Features()
{
    orv::MutexLock lock(m_parts->mutex);
    return m_parts->model.features;
}

RegisterSpace &Camera::Registers()
{
    orv::MutexLock lock(m_parts->mutex);
    return m_parts->model.registers;
}

std::string Camera::Finish()
{
    Parts &parts = *m_parts;
    const Parts::Change change(parts);
    CameraModel &model = parts.model;
    model.features.PlaceRegisters(model.registers, kFirstRegister);
    DescriptionHead head;
    head.vendor = model.options.vendor;
    head.model = model.options.model;
    head.toolTip = "Software camera";
    parts.description = MakeDescription(model.features, head);
    const std::string problems = ApplyOptions(model.options, model.features);
    model.AdoptAsDefault();
    return problems;
}

const CameraOptions &Camera::Options() const
{
    orv::MutexLock lock(m_parts->mutex);
    return m_parts->model.options; // constant from construction on
}

const std::string &Camera::DescriptionXml() const
{
    return m_parts->description;
}

WriteResult Camera::Write(std::uint32_t address, std::uint32_t size, const std::uint8_t *bytes)
{
    const Parts::Change change(*m_parts);
    CameraModel &model = m_parts->model;
    model.busyMs = 0;
    const Outcome outcome = model.registers.Write(address, size, bytes);
    return {outcome, model.busyMs};
}

Outcome Camera::Read(std::uint32_t address, std::uint32_t size, std::uint8_t *bytes)
{
    orv::MutexLock lock(m_parts->mutex);
    return m_parts->model.registers.Read(address, size, bytes);
}

std::string Camera::GetFeature(const std::string &name)
{
    orv::MutexLock lock(m_parts->mutex);
    return m_parts->model.features.GetText(name);
}

Outcome Camera::SetFeature(const std::string &name, const std::string &text, std::string &problem)
{
    const Parts::Change change(*m_parts);
    return m_parts->model.features.SetText(name, text, problem);
}

std::uint64_t Camera::Now() const
{
    orv::MutexLock lock(m_parts->mutex);
    return m_parts->model.clock.Now();
}

void Camera::ResetClock()
{
    const Parts::Change change(*m_parts);
    m_parts->model.ResetClock();
}

Faults Camera::CurrentFaults() const
{
    orv::MutexLock lock(m_parts->mutex);
    return m_parts->model.faults;
}

std::size_t Camera::PayloadSize()
{
    orv::MutexLock lock(m_parts->mutex);
    return m_parts->model.PayloadBytes();
}

void Camera::SetWireBytes(std::function<std::uint64_t(std::size_t)> wireBytes)
{
    orv::MutexLock lock(m_parts->mutex);
    m_parts->model.wireBytes = std::move(wireBytes);
}

void Camera::SetConfidenceQuestion(std::function<bool()> sendsConfidence)
{
    orv::MutexLock lock(m_parts->mutex);
    m_parts->model.sendsConfidence = std::move(sendsConfidence);
}

void Camera::SetEventSink(std::function<void(const DeviceEvent &)> sink)
{
    orv::MutexLock lock(m_parts->mutex);
    m_parts->sink = std::move(sink);
}

void Camera::SetResetHandler(std::function<void()> handler)
{
    orv::MutexLock lock(m_parts->mutex);
    m_parts->resetHandler = std::move(handler);
}

void Camera::SetLeftoverHandler(std::function<void(std::uint64_t)> handler)
{
    orv::MutexLock lock(m_parts->mutex);
    m_parts->leftoverHandler = std::move(handler);
}

void Camera::Reset()
{
    const Parts::Change change(*m_parts);
    m_parts->model.ResetState();
}

void Camera::StopAcquisition()
{
    const Parts::Change change(*m_parts);
    m_parts->model.EndAcquisition();
    m_parts->model.isLocked = false;
}

bool Camera::IsAcquiring() const
{
    orv::MutexLock lock(m_parts->mutex);
    return m_parts->model.acquisition.IsRunning();
}

FrameJob Camera::Parts::MakeJob()
{
    FrameJob job;
    job.settings = model.state.frame;
    job.periodNs = model.Pace().periodNs;
    job.withConfidence = model.sendsConfidence();
    job.withChunks = model.state.hasChunks && !job.withConfidence;
    job.acquisition = model.acquisitionNumber;
    const FrameClock::Taken taken = model.TakeFrame(model.clock.Now());
    job.lossShare = model.LossShareOf(taken);
    job.number = taken.number;
    job.timestampNs = taken.startNs;
    return job;
}

void Camera::Parts::FollowAcquisition()
{
    orv::MutexLock lock(mutex);
    const bool isRunning = model.acquisition.IsRunning();
    lock.Unlock();
    if (isRunning == isPreparing)
        return;
    isPreparing = isRunning;
    if (isRunning)
        store.Start();
    else
        store.Release();
}

Camera::Parts::Moment Camera::Parts::WaitForMoment(std::chrono::steady_clock::time_point deadline)
{
    while (!isClosed) {
        const std::uint64_t now = model.clock.Now();
        const FrameClock::Pace pace = model.Pace();
        const std::optional<std::uint64_t> due = model.acquisition.NextDue(now, pace);
        if (due.has_value() && *due <= now)
            return Moment::FrameDue;
        if (model.TellBegin(now))
            return Moment::ExposureBegan;
        if (std::chrono::steady_clock::now() >= deadline)
            break;
        auto until = deadline;
        for (const std::optional<std::uint64_t> &next : {due, model.acquisition.NextStart(now, pace)}) {
            if (next.has_value())
                until = std::min(until, model.clock.ToHost(*next));
        }
        changed.WaitUntil(mutex, until);
    }
    return Moment::Over;
}

std::optional<FrameJob> Camera::WaitForFrame(std::int64_t timeoutMs)
{
    Parts &parts = *m_parts;
    parts.FollowAcquisition();
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    while (true) {
        const Parts::Change change(parts); // each time anew: what began is told at once
        const Parts::Moment moment = parts.WaitForMoment(deadline);
        if (moment == Parts::Moment::FrameDue)
            return parts.MakeJob();
        if (moment == Parts::Moment::Over)
            return std::nullopt;
    }
}

std::shared_ptr<Frame> Camera::TakeFrame(const FrameJob &job)
{
    std::shared_ptr<Frame> frame = m_parts->store.Take(job.settings, job.number, job.timestampNs);
    frame->payload.resize(frame->imageBytes);
    frame->hasChunks = job.withChunks;
    if (job.withConfidence) {
        m_parts->confidence.AppendTo(frame->payload, job.settings, job.number);
        frame->confidenceBytes = frame->payload.size() - frame->imageBytes;
    }
    if (!job.withChunks)
        return frame;
    orv::MutexLock lock(m_parts->mutex);
    CameraModel &model = m_parts->model;
    ChunkValues values;
    values.timestampNs = job.timestampNs;
    values.frameNumber = job.number;
    values.counter = model.counters[static_cast<std::size_t>(model.selectors.chunkCounter)];
    values.pixelFormat = orv::WireFromPixelType(job.settings.pixelType);
    values.frame = job.settings;
    AppendChunks(model.state, values, frame->payload);
    return frame;
}

void Camera::FrameSent(const FrameJob &job)
{
    const Parts::Change change(*m_parts);
    m_parts->model.Happened(EventKind::FrameEnd, m_parts->model.clock.Now(), job.number);
}

void Camera::Close()
{
    orv::MutexLock lock(m_parts->mutex);
    m_parts->isClosed = true;
    m_parts->model.acquisition.Stop();
    lock.Unlock();
    m_parts->changed.NotifyAll();
    m_parts->store.Stop();
}

} // namespace orvsim
