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
    /// \param device  borrowed, must outlive the object.
    explicit Traffic(OrvCam::Device &device) : m_device(device) {}
    ~Traffic();
    Traffic(const Traffic &) = delete;
    Traffic &operator=(const Traffic &) = delete;

    /// Passes the message channel's packets on as well. Before the start.
    void PassMessagesTo(OrvCam::EventCallback callback, void *context);
    /// Both fail when the camera's driver cannot show its packets.
    Outcome Start();
    Outcome StartMessagesOnly() { return Start(m_channels.back()); }
    /// "control 12 (768 bytes), stream 0, events 0"
    std::string Text() const;
    /// An object of three objects with "packets" and "bytes".
    void Write(Json &json) const;

private:
    struct Channel {
        const char *name;
        int event;
        OrvCam::EventCallback callback = nullptr;
        void *context = nullptr;
        bool isRegistered = false;
        std::atomic<std::uint64_t> packets{0};
        std::atomic<std::uint64_t> bytes{0};
    };
    Outcome Start(Channel &channel);
    static void Count(const void *data, unsigned long size, void *channel);

    OrvCam::Device &m_device;
    std::array<Channel, 3> m_channels{Channel{"control", OrvCam::kEventControlTraffic},
                                      Channel{"stream", OrvCam::kEventStreamTraffic},
                                      Channel{"events", OrvCam::kEventEventTraffic}};
};

} // namespace orvcli
