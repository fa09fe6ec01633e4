#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

/// The receivers that bench_receive compares. Each takes the process it runs in for itself and blocks until its time is
/// over; a receiver that fails ends the process with a message.
namespace receivebench {

constexpr std::uint32_t kCameraAddress = 0x7f000017;
constexpr char kCameraText[] = "127.0.0.23";
constexpr int kBuffers = 16;

/// What the camera sends: Mono8.
struct Stream {
    int width;
    int height;
    double megabytesPerSecond;
    std::uint32_t packetSize; ///< bytes with IP and UDP header

    std::size_t Payload() const { return static_cast<std::size_t>(width) * static_cast<std::size_t>(height); }
    double FramesPerSecond() const { return megabytesPerSecond * 1e6 / double(Payload()); }
    /// Bytes of socket buffer that every receiver gets: what ours would ask for.
    int SocketBuffer() const;
};

/// What a receiver tells at the end of its run.
struct Figures {
    double cpuPerGigabyte = 0;
    double megabytesPerSecond = 0;
    /// From the camera's timestamp, the start of the exposure, until the receiver has the complete frame, ns: the
    /// median and what 99 of 100 do not exceed. The receivers leave the start of the camera's clock in it.
    std::int64_t medianAge = 0;
    std::int64_t longAge = 0;
    std::uint64_t complete = 0;
    std::uint64_t damaged = 0;             ///< incomplete, or without a buffer
    std::uint64_t refilled = 0;            ///< packets sent again
    std::array<std::uint64_t, 7> causes{}; ///< of ours alone: see kCauses
    std::uint64_t leftOut = 0;             ///< of ours alone: numbers between the first frame and the last one
};

/// What Figures::causes counts, over the whole run.
extern const std::array<const char *, 7> kCauses;

/// Our producer, through its exported functions.
Figures ReceiveWithOurs(const Stream &sent);

enum class AravisWay {
    Udp,       ///< as it comes
    UdpOnOurs, ///< into memory allocated as our producer allocates it
    PacketSocket
};
Figures ReceiveWithAravis(const Stream &sent, AravisWay way);

/// The least that can be done: packets in batches from the socket, payload copied to where its number says, into memory
/// as ours.
/// \param manyAtOnce  with UDP_GRO
Figures ReceiveBare(const Stream &sent, bool manyAtOnce);

[[noreturn]] void Fail(const char *what);

} // namespace receivebench
