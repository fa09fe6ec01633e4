#pragma once

#include "simulator/core/CameraOptions.h"
#include "simulator/imaging/FrameSettings.h"

#include <array>
#include <cstdint>

namespace orvsim {

enum class AcquisitionMode { SingleFrame, MultiFrame, Continuous };
enum class TriggerSource { Software, Timer0 };
enum class UserSet { Default, UserSet1, UserSet2 };

/// What a chunk holds; the values number the rows of the chunk table and the entries of the selector.
enum class ChunkKind { Image, Timestamp, FrameId, ExposureTime, Gain, Width, Height, PixelFormat, CounterValue };
constexpr std::size_t kChunkKinds = 9;

/// What a client may be told of; the values number the entries of the selector.
enum class EventKind {
    AcquisitionStart,
    AcquisitionEnd,
    FrameTrigger,
    FrameTriggerMissed,
    ExposureStart,
    ExposureEnd,
    FrameEnd,
    Test
};
constexpr std::size_t kEventKinds = 8;
/// Identifier on the wire of an event.
constexpr std::uint16_t EventIdOf(EventKind kind)
{
    return static_cast<std::uint16_t>(0x9001 + static_cast<int>(kind));
}

constexpr std::size_t kCounters = 2;
enum class CounterSource { Off, FrameTrigger, ExposureStart, FrameEnd };

/// What the selectors show; no user set changes it.
struct Selectors {
    ChunkKind chunk = ChunkKind::Timestamp;
    EventKind event = EventKind::ExposureEnd;
    std::int64_t counter = 0;
    std::int64_t chunkCounter = 0; ///< that frames carry the value of
    std::int64_t balance = 0;      ///< red, green, blue
    std::int64_t temperature = 0;
    UserSet userSet = UserSet::Default;
};

/// Every setting of a camera that a user set keeps.
struct CameraState {
    explicit CameraState(const CameraOptions &options);

    FrameSettings frame;
    std::int64_t pixelClockMHz;
    std::int64_t lineClocks; ///< of the fixed clock of line-time cameras
    AcquisitionMode acquisitionMode = AcquisitionMode::Continuous;
    std::int64_t frameCount = 10; ///< of a MultiFrame acquisition
    bool isRateEnabled = false;
    double rateHz = 20;
    bool isTriggerOn = false;
    TriggerSource triggerSource = TriggerSource::Software;
    double triggerDelayUs = 0;
    double timerPeriodUs = 100000;
    bool isThroughputLimited = false;
    std::int64_t throughputLimit; ///< bytes per second
    bool hasChunks = false;
    std::array<bool, kChunkKinds> chunks;
    std::array<bool, kEventKinds> events{};
    std::array<CounterSource, kCounters> counterSources{CounterSource::Off, CounterSource::Off};
};

} // namespace orvsim
