#pragma once

#include "base/Bytes.h"
#include "gentl/GenTL.h"

#include <optional>
#include <vector>

namespace nuvark {

/// Takes a payload of chunks apart: each chunk is its data followed by id and length, both big-endian. Read from the
/// end; the result is in the order of the buffer, offsets counted from the payload's begin.
/// An image without a tail may precede the first chunk; nothing when not even the last chunk makes sense.
/// \param imageSize  bytes of the image that the payload begins with, 0 without one: what lies in them is no chunk,
///                   whatever the pixels look like. The image may be a chunk itself.
std::optional<std::vector<SINGLE_CHUNK_DATA>> ParseChunks(orv::ByteSpan payload, std::size_t imageSize);

} // namespace nuvark
