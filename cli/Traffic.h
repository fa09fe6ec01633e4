#pragma once

#include "cli/Json.h"
#include "cli/Outcome.h"
#include "orvcam/OrvCam.h"

#include <array>
#include <atomic>
#include <cstdint>
#include <string>

namespace orvcli {

/// Counts the raw packets of a device's three channels as long as it lives. One thread; the library's count beside it.
class Traffic {
public:
    Traffic() = default;
    ~Traffic();
    Traffic(const Traffic &) = delete;
    Traffic &operator=(const Traffic &) = delete;

    /// Fails when the camera's driver cannot show its packets. \param device  borrowed, must outlive the object.
    Outcome Start(OrvCam::Device &device);
    /// "control 12 (768 bytes), stream 90 (45000 bytes, 4 more dropped), events 0"
    std::string Text() const;
    /// An object of three objects with "packets", "bytes" and "dropped"; zero before the start.
    void Write(Json &json) const;

private:
    struct Channel {
        const char *name;
        int event;
        bool isRegistered = false;
        std::atomic<std::uint64_t> packets{0};
        std::atomic<std::uint64_t> bytes{0};
    };
    /// Packets that came faster than they were counted.
    std::uint64_t Dropped(const Channel &channel) const;
    static void Count(const void *data, unsigned long size, void *channel);

    OrvCam::Device *m_device = nullptr;
    std::array<Channel, 3> m_channels{Channel{"control", OrvCam::kEventControlTraffic},
                                      Channel{"stream", OrvCam::kEventStreamTraffic},
                                      Channel{"events", OrvCam::kEventEventTraffic}};
};

} // namespace orvcli
