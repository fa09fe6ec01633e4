#pragma once

#include <chrono>
#include <string>

namespace orvsim {

/// Whether anybody on this machine reads raw packets: a capture, or a host that receives streams past the UDP layer.
///
/// On loopback such readers get a segmented message whole, before the kernel cuts it up, and see one long broken
/// packet. So the stream is segmented only while there are none. One thread.
class CaptureWatch {
public:
    /// \param list  the kernel's list of packet sockets, a title line and one line for each.
    explicit CaptureWatch(std::string list = "/proc/net/packet") : m_list(std::move(list)) {}

    /// Looks at most every 20 ms, unless `now`. What cannot be looked at counts as nobody.
    bool SomebodyReads(bool now);

private:
    const std::string m_list;
    std::chrono::steady_clock::time_point m_nextLook{};
    bool m_somebody = false;
};

} // namespace orvsim
