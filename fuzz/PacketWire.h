#pragma once

#include "fuzz/Target.h"
#include "producer/gige/PacketBatch.h"
#include "producer/gige/UdpSocket.h"

#include <memory>

namespace orv::fuzz {

/// Two sockets, one that datagrams are put into and one that a batch takes them out of. One thread.
class PacketWire {
public:
    /// One message for each datagram, through AF_UNIX sockets of its own.
    static std::unique_ptr<PacketWire> Single();
    /// Datagrams of one size in a row, and a last one that may be shorter, as one message: UDP on loopback, which the
    /// kernel cuts (UDP_SEGMENT) and hands out as it was (UDP_GRO). The sockets are the process's: one such wire at a
    /// time. Only when HasRuns().
    static std::unique_ptr<PacketWire> Runs();
    /// Whether kernel and network can do that.
    static bool HasRuns();
    /// How many datagrams from `first` on make one message of such a wire.
    static std::size_t RunLength(const std::vector<Bytes> &datagrams, std::size_t first);

    PacketWire(const PacketWire &) = delete;

    void Put(const std::vector<Bytes> &datagrams);
    /// \return whether something is there now, or comes within seconds.
    bool WaitForMore() const;

    std::unique_ptr<nuvark::gige::PacketBatch> batch;

private:
    PacketWire(int in, int out, std::uint32_t sender, bool hasRuns);

    const int m_in;
    const int m_out;
    const bool m_hasRuns;
    nuvark::gige::Descriptor m_ends[2]; ///< those that it closes
};

} // namespace orv::fuzz
