#include "simulator/core/CameraModel.h"

#include "simulator/core/ChunkTable.h"
#include "simulator/imaging/ConfidencePlane.h"

#include "orvimage/PixelFormats.h"
#include "orvimage/PixelLayout.h"

#include <algorithm>
#include <cmath>
#include <set>

namespace orvsim {

CameraModel::CameraModel(const CameraOptions &cameraOptions)
    : options(cameraOptions), state(options), faults(options.faults),
      userName(options.userName), userSets{state, state}, m_defaults(state)
{
    AddDeviceFeatures(*this);
    AddImageFeatures(*this);
    AddAcquisitionFeatures(*this);
    AddAnalogFeatures(*this);
    AddCounterFeatures(*this);
    AddUserSetFeatures(*this);
    AddChunkFeatures(*this);
    AddEventFeatures(*this);
    AddTransportFeatures(*this);
    AddFaultFeatures(*this);
}

void CameraModel::Add(Feature feature)
{
    if (feature.isStreamable || !feature.dependsOn.empty())
        feature.dependsOn.push_back("UserSetLoad");
    features.Add(std::move(feature));
}

std::size_t CameraModel::PayloadBytes() const
{
    return ImageBytes(state.frame) + (sendsConfidence() ? ConfidencePlane::Bytes(state.frame) : ChunkBytes(state));
}

SensorTiming CameraModel::Timing() const
{
    return TimingOf(state, options.family, wireBytes(PayloadBytes()));
}

double CameraModel::PeriodNs() const
{
    const double shortest = Timing().periodNs;
    return state.isRateEnabled ? std::max(shortest, 1e9 / state.rateHz) : shortest;
}

FrameClock::Pace CameraModel::Pace() const
{
    FrameClock::Pace pace;
    pace.periodNs = state.isTriggerOn ? Timing().periodNs : PeriodNs();
    pace.exposureNs = state.frame.exposureUs * 1000;
    pace.isTriggered = state.isTriggerOn;
    pace.isTimer = state.isTriggerOn && state.triggerSource == TriggerSource::Timer0;
    pace.timerNs = state.timerPeriodUs * 1000;
    pace.delayNs = state.isTriggerOn ? state.triggerDelayUs * 1000 : 0;
    return pace;
}

double CameraModel::LossShareOf(const FrameClock::Taken &taken) const
{
    const double period = state.isTriggerOn ? taken.sinceLastNs : PeriodNs();
    return LossShare(wireBytes(PayloadBytes()), period, options.linkMbps);
}

int CameraModel::WidthMax() const
{
    return options.sensor.width / (state.frame.binningX * state.frame.decimationX) / 8 * 8;
}

int CameraModel::HeightMax() const
{
    return options.sensor.height / (state.frame.binningY * state.frame.decimationY) / 2 * 2;
}

void CameraModel::FitRegion()
{
    FrameSettings &frame = state.frame;
    frame.width = std::min(frame.width, WidthMax());
    frame.height = std::min(frame.height, HeightMax());
    frame.offsetX = std::min(frame.offsetX, (WidthMax() - frame.width) / 2 * 2);
    frame.offsetY = std::min(frame.offsetY, (HeightMax() - frame.height) / 2 * 2);
}

Outcome CameraModel::LoadUserSet(UserSet set)
{
    state = set == UserSet::Default ? m_defaults : userSets[set == UserSet::UserSet1 ? 0 : 1];
    busyMs = faults.commandMs;
    return Outcome::Ok;
}

Outcome CameraModel::SaveUserSet(UserSet set)
{
    if (set == UserSet::Default)
        return Outcome::ReadOnly;
    userSets[set == UserSet::UserSet1 ? 0 : 1] = state;
    busyMs = faults.commandMs;
    return Outcome::Ok;
}

void CameraModel::ResetState()
{
    EndAcquisition();
    isLocked = false;
    LoadUserSet(startSet);
    busyMs = 0;
    counters.fill(0);
    selectors = Selectors();
    ResetClock();
    m_workedNs = 0;
}

void CameraModel::ResetClock()
{
    const std::uint64_t elapsedNs = clock.Reset();
    acquisition.SetBack(elapsedNs);
    if (acquisition.IsRunning())
        m_workedNs += elapsedNs - m_startedNs;
    m_startedNs = 0;
}

void CameraModel::AdoptAsDefault()
{
    m_defaults = state;
    userSets.fill(state);
}

void CameraModel::StartAcquisition()
{
    if (acquisition.IsRunning())
        return;
    m_startedNs = clock.Now();
    wantedFrom = ++acquisitionNumber;
    acquisition.Start(m_startedNs);
    Happened(EventKind::AcquisitionStart, m_startedNs);
}

void CameraModel::EndAcquisition()
{
    if (!acquisition.IsRunning())
        return;
    acquisition.Stop();
    const std::uint64_t now = clock.Now();
    m_workedNs += now - m_startedNs;
    Happened(EventKind::AcquisitionEnd, now);
}

void CameraModel::AbortAcquisition()
{
    EndAcquisition();
    wantedFrom = acquisitionNumber + 1;
}

Outcome CameraModel::SoftwareTrigger()
{
    const std::uint64_t now = clock.Now();
    if (acquisition.Trigger(now, Pace()))
        Happened(EventKind::FrameTrigger, now, acquisition.NextNumber());
    else
        Happened(EventKind::FrameTriggerMissed, now);
    return Outcome::Ok;
}

void CameraModel::TellStart(std::uint64_t startNs, std::uint64_t frameNumber)
{
    const FrameClock::Pace pace = Pace();
    if (pace.isTimer)
        Happened(EventKind::FrameTrigger, startNs - std::min(startNs, static_cast<std::uint64_t>(pace.delayNs)),
                 frameNumber);
    Happened(EventKind::ExposureStart, startNs, frameNumber);
}

bool CameraModel::TellBegin(std::uint64_t nowNs)
{
    const std::optional<std::uint64_t> startNs = acquisition.Begin(nowNs, Pace());
    if (startNs.has_value())
        TellStart(*startNs, acquisition.NextNumber());
    return startNs.has_value();
}

FrameClock::Taken CameraModel::TakeFrame(std::uint64_t nowNs)
{
    const FrameClock::Taken taken = acquisition.Take(nowNs, Pace());
    if (!taken.isToldOf)
        TellStart(taken.startNs, taken.number);
    const auto exposureNs = static_cast<std::uint64_t>(state.frame.exposureUs * 1000);
    Happened(EventKind::ExposureEnd, taken.startNs + exposureNs, taken.number);
    const bool isLast = state.acquisitionMode == AcquisitionMode::SingleFrame ||
                        (state.acquisitionMode == AcquisitionMode::MultiFrame &&
                         taken.number + 1 >= static_cast<std::uint64_t>(state.frameCount));
    if (isLast)
        EndAcquisition();
    return taken;
}

void CameraModel::Happened(EventKind kind, std::uint64_t timestampNs, std::optional<std::uint64_t> frameNumber)
{
    if (kind == EventKind::FrameTrigger)
        Count(CounterSource::FrameTrigger);
    else if (kind == EventKind::ExposureStart)
        Count(CounterSource::ExposureStart);
    else if (kind == EventKind::FrameEnd)
        Count(CounterSource::FrameEnd);
    if (state.events[static_cast<std::size_t>(kind)])
        pendingEvents.push_back({kind, timestampNs, frameNumber});
}

void CameraModel::Count(CounterSource source)
{
    for (std::size_t i = 0; i < kCounters; ++i) {
        if (state.counterSources[i] == source)
            ++counters[i];
    }
}

double CameraModel::Temperature(std::int64_t place) const
{
    constexpr double kWarmUpSeconds = 90;
    const std::uint64_t now = clock.Now();
    const std::uint64_t running = acquisition.IsRunning() ? now - m_startedNs : 0;
    const double worked = static_cast<double>(m_workedNs + running) / 1e9;
    const double rise = 14 * (1 - std::exp(-worked / kWarmUpSeconds));
    return (place == 0 ? 31.0 : 27.0) + (place == 0 ? rise : rise / 2);
}

std::vector<std::uint32_t> OfferedPixelTypes(bool isColour)
{
    std::vector<std::uint32_t> offered;
    std::set<std::uint32_t> codes;
    for (const OrvColorModelDescription &row : s_colorModelDescription) {
        const std::uint32_t code = orv::WireFromPixelType(row.pixelType);
        const orv::PixelFamily family = orv::LayoutOf(row.pixelType).family;
        const bool isShown = family == orv::PixelFamily::Mono || (isColour && family != orv::PixelFamily::Unknown);
        if (code != 0 && isShown && codes.insert(code).second)
            offered.push_back(row.pixelType);
    }
    return offered;
}

} // namespace orvsim
