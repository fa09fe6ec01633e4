#pragma once

#include "gentl/GenTL.h"
#include "orvcam/OrvCam.h"

#include <cstdint>
#include <functional>

namespace orv::cam {

/// Fills in the figures that the producer tells; the others keep the value that they have.
/// \param ask  gets a figure's command and the value to answer where the producer tells none.
/// \param isOurs  the producer: its own commands are asked as well.
void ReadFigures(const std::function<std::uint64_t(STREAM_INFO_CMD, std::uint64_t)> &ask, bool isOurs,
                 OrvCam::StreamStatistics *statistics);

} // namespace orv::cam
