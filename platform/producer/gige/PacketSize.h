#pragma once

#include "producer/gige/GigeDevice.h"
#include "producer/gige/UdpSocket.h"

#include <cstdint>

namespace nuvark::gige {

struct NegotiatedSize {
    std::uint32_t size = 0;  ///< in use now
    bool isVerified = false; ///< a test packet of that size has come
};

struct SizeWish {
    bool sendsTests =
        true; ///< false: for all that is known none come, so that one shot per size is enough until one does
    bool isLargest = false; ///< the largest that gets through, not the present one
};

/// Makes sure that packets of the camera's packet size get through to `socket`, which the stream channel points at.
///
/// The present size stays when a test packet of that size arrives, unless a larger one is wished for and arrives: what
/// the interface's MTU is now. When the present one does not arrive, the largest size that does arrive is set, found by
/// bisection below the MTU; what is written is read back, since cameras round. When no test packet comes at all (not
/// every camera sends them), the present size stays as far as the MTU allows, else 1500. Late test packets are read
/// away.
/// Blocks: up to 50 ms per shot that does not get through.
/// \return the size, or the status of a register access that failed.
Result<NegotiatedSize> NegotiatePacketSize(GigeDevice &device, std::uint32_t streamIndex, UdpSocket &socket,
                                           SizeWish wish);

/// Writes the size that the application chooses; the flags beside it stay. Cameras round to steps of their own.
/// GC_ERR_INVALID_VALUE for a size that the camera makes quite another one of: then what was set before stays. Blocks
/// for round trips.
Status WritePacketSize(GigeDevice &device, std::uint32_t streamIndex, std::uint32_t size);

/// The search alone: the largest size in [low, high] that `works` accepts, trying `high` first; `low` is known to work.
/// `works` gives the size that the camera made of the one asked for, 0 when it did not get through.
template <class Works>
std::uint32_t FindLargestSize(std::uint32_t low, std::uint32_t high, std::uint32_t step, Works works)
{
    std::uint32_t best = works(high);
    if (best != 0)
        return best;
    best = low;
    while (high - low > step) {
        const std::uint32_t middle = low + (high - low) / 2 / step * step;
        if (middle == low)
            break;
        const std::uint32_t actual = works(middle);
        if (actual != 0)
            best = actual;
        (actual != 0 ? low : high) = middle;
    }
    return best;
}

} // namespace nuvark::gige
