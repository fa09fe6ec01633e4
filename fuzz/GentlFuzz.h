#pragma once

#include <cstdint>

/// The form of the entry points' inputs, see GentlFuzz.cpp.
namespace gentlinput {

/// What is opened beforehand: all that stands before it, too.
enum Level : std::uint8_t { kNothing, kLibrary, kSystem, kInterface, kDevice, kStream, kRunning };

/// Numbers of the handles that this gives.
enum OpenedHandle : std::uint8_t {
    kSystemHandle,
    kInterfaceHandle,
    kDeviceHandle,
    kPortHandle,
    kCameraEventHandle,
    kErrorEventHandle,
    kStreamHandle,
    kNewBufferHandle,
    kBufferHandle,
    kOtherBufferHandle,
    kFirstFreeHandle
};

constexpr std::uint8_t kCameraSteps = 0xE0;
enum CameraStep : std::uint8_t { kFrame = kCameraSteps, kEvent, kLoss, kInvalidFeature, kFails, kWorks };

} // namespace gentlinput
