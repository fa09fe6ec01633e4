#pragma once

#include "simulator/gige/Endpoint.h"

#include <chrono>

namespace orvsim {

using TimePoint = std::chrono::steady_clock::time_point;

/// A datagram that is due at a time.
struct Reply {
    Endpoint to;
    Datagram bytes;
    TimePoint at;
};

} // namespace orvsim
