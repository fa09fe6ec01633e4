#pragma once

#include "simulator/core/CameraOptions.h"
#include "simulator/core/CameraState.h"
#include "simulator/core/DeviceClock.h"
#include "simulator/core/FrameClock.h"
#include "simulator/core/SensorTiming.h"
#include "simulator/features/FeatureTable.h"
#include "simulator/features/RegisterSpace.h"

#include <array>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace orvsim {

/// Everything a camera knows: its settings, the features that show them, its acquisition. Passive and not locked: the
/// Camera around it holds its mutex for every call, so that the features' functions need not.
class CameraModel {
public:
    explicit CameraModel(const CameraOptions &options);
    CameraModel(const CameraModel &) = delete; // the features' functions refer to it

    const CameraOptions options;
    DeviceClock clock;
    FeatureTable features;
    RegisterSpace registers;

    CameraState state;
    Selectors selectors;
    Faults faults;
    std::string userName;
    bool isLocked = false; ///< "TLParamsLocked"
    std::uint64_t latchedNs = 0;
    std::array<CameraState, 2> userSets; ///< UserSet1, UserSet2
    UserSet startSet = UserSet::Default;
    std::array<std::uint64_t, kCounters> counters{};

    /// Adds a row to the table; one that follows from what user sets keep names their loading, too,
    /// as what changes it.
    void Add(Feature feature);

    /// What the frame costs on the link; the transport replaces it.
    std::function<std::uint64_t(std::size_t)> wireBytes = [](std::size_t bytes) { return bytes; };

    /// Whether a second picture goes with each image; the transport replaces it.
    std::function<bool()> sendsConfidence = [] { return false; };

    std::size_t PayloadBytes() const;
    SensorTiming Timing() const;
    /// The period in force: the set rate where one is set and possible, else the shortest.
    double PeriodNs() const;
    FrameClock::Pace Pace() const;
    /// Share of a frame's packets that the link cannot carry. A frame that was triggered has the link to itself since
    /// the frame before; the sensor's pace counts for the others.
    double LossShareOf(const FrameClock::Taken &taken) const;

    int WidthMax() const;
    int HeightMax() const;
    /// Brings region and colour format into what binning and decimation leave of the sensor.
    void FitRegion();

    Outcome LoadUserSet(UserSet set);
    Outcome SaveUserSet(UserSet set);
    /// As after switching on.
    void ResetState();
    /// The present settings are those of the set "Default", and what the user sets hold until they are saved.
    void AdoptAsDefault();

    /// Starts the device's clock anew. An acquisition goes on at its pace.
    void ResetClock();

    FrameClock acquisition;
    void StartAcquisition();
    void EndAcquisition();
    /// Frames that are under way are not wanted either.
    void AbortAcquisition();
    std::uint64_t acquisitionNumber = 0; ///< of the present one, or of the last
    std::uint64_t wantedFrom = 0;        ///< frames of acquisitions before it are given up
    Outcome SoftwareTrigger();
    /// Tells of the next frame's exposure when it has begun. \return whether there was something to tell.
    bool TellBegin(std::uint64_t nowNs);
    /// Takes the frame that is due; after an acquisition's last frame it ends.
    FrameClock::Taken TakeFrame(std::uint64_t nowNs);

    /// Notes an event for whoever asked for it, and counts it. They leave when the mutex is released.
    /// \param frameNumber  that it belongs to, if any
    void Happened(EventKind kind, std::uint64_t timestampNs, std::optional<std::uint64_t> frameNumber = {});
    struct Pending {
        EventKind kind;
        std::uint64_t timestampNs;
        std::optional<std::uint64_t> frameNumber;
    };
    std::vector<Pending> pendingEvents;
    std::int64_t busyMs = 0; ///< the command under way takes that long
    bool isResetRequested = false;

    /// Degrees Celsius; rises while frames are taken.
    double Temperature(std::int64_t place) const;

private:
    void Count(CounterSource source);
    void TellStart(std::uint64_t startNs, std::uint64_t frameNumber);

    CameraState m_defaults;
    std::uint64_t m_workedNs = 0; ///< time spent acquiring before the present acquisition
    std::uint64_t m_startedNs = 0;
};

/// The wire formats that a sensor offers, as rows of the application's table, each wire code once.
std::vector<std::uint32_t> OfferedPixelTypes(bool isColour);

/// Entries of the selectors of counters.
std::vector<EnumerationEntry> CounterEntries();

/// Name of the feature that sets the sensor's pace.
std::string TimingFeature(const CameraOptions &options);

// The features by category; each adds its rows to the model's table.
void AddDeviceFeatures(CameraModel &model);
void AddImageFeatures(CameraModel &model);
void AddAcquisitionFeatures(CameraModel &model);
void AddAnalogFeatures(CameraModel &model);
void AddUserSetFeatures(CameraModel &model);
void AddCounterFeatures(CameraModel &model);
void AddChunkFeatures(CameraModel &model);
void AddEventFeatures(CameraModel &model);
void AddTransportFeatures(CameraModel &model);
void AddFaultFeatures(CameraModel &model);

} // namespace orvsim
