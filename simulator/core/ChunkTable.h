#pragma once

#include "simulator/core/CameraState.h"

#include <cstdint>
#include <vector>

namespace orvsim {

/// One kind of chunk: its place in the selector, its identifier on the wire and the length of its data.
struct ChunkRow {
    ChunkKind kind;
    const char *name; ///< entry of "ChunkSelector"
    std::uint32_t id;
    std::uint32_t bytes; ///< 0: the image, as long as it is
    const char *toolTip; ///< what it holds
};
const std::vector<ChunkRow> &ChunkRows();

/// The values that chunks carry.
struct ChunkValues {
    std::uint64_t timestampNs = 0;
    std::uint64_t frameNumber = 0;
    std::uint64_t counter = 0;
    std::uint32_t pixelFormat = 0; ///< wire code
    FrameSettings frame;
};

/// Bytes that the chunks add to an image, the image's own tail included; 0 when chunks are off.
std::size_t ChunkBytes(const CameraState &state);

/// Appends the chunks that are on behind the image that `payload` holds. Each is its data and, big-endian, identifier
/// and length (GigE Vision's order, read from the end).
void AppendChunks(const CameraState &state, const ChunkValues &values, std::vector<std::uint8_t> &payload);

} // namespace orvsim
