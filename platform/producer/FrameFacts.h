#pragma once

#include "producer/BufferQueue.h"
#include "producer/Info.h"

/// What the standard's buffer and part commands answer. Pure functions over a copy of the frame's facts, so that
/// several questions can be answered from the same copy. Any thread.
namespace nuvark {

/// \param frame  null while the buffer holds none
/// \param tickFrequency  of the camera's clock in Hz, 0 where it has none
Result<InfoValue> BufferFact(const Buffer &buffer, const FrameInfo *frame, std::uint64_t tickFrequency,
                             BUFFER_INFO_CMD command);

/// GC_ERR_NO_DATA unless the frame is a multi-part one.
Status CheckHasParts(const FrameInfo *frame);
/// GC_ERR_INVALID_INDEX past the last part.
Result<InfoValue> PartFact(const Buffer &buffer, const FrameInfo *frame, std::uint32_t index,
                           BUFFER_PART_INFO_CMD command);

} // namespace nuvark
