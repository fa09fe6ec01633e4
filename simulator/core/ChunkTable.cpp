#include "simulator/core/ChunkTable.h"

#include "base/Bytes.h"

#include <cstring>

namespace orvsim {

namespace {

constexpr std::size_t kTailBytes = 8; // identifier, length

void WriteDouble(orv::ByteWriter &writer, double value)
{
    std::uint64_t bits;
    std::memcpy(&bits, &value, sizeof bits);
    writer.U64(bits);
}

void WriteValue(orv::ByteWriter &writer, ChunkKind kind, const ChunkValues &values)
{
    switch (kind) {
    case ChunkKind::Image:
        break;
    case ChunkKind::Timestamp:
        writer.U64(values.timestampNs);
        break;
    case ChunkKind::FrameId:
        writer.U64(values.frameNumber);
        break;
    case ChunkKind::ExposureTime:
        WriteDouble(writer, values.frame.exposureUs);
        break;
    case ChunkKind::Gain:
        WriteDouble(writer, values.frame.gainDb);
        break;
    case ChunkKind::Width:
        writer.U32(static_cast<std::uint32_t>(values.frame.width));
        break;
    case ChunkKind::Height:
        writer.U32(static_cast<std::uint32_t>(values.frame.height));
        break;
    case ChunkKind::PixelFormat:
        writer.U32(values.pixelFormat);
        break;
    case ChunkKind::CounterValue:
        writer.U64(values.counter);
        break;
    }
}

bool IsOn(const CameraState &state, const ChunkRow &row)
{
    return row.kind == ChunkKind::Image || state.chunks[static_cast<std::size_t>(row.kind)];
}

} // namespace

const std::vector<ChunkRow> &ChunkRows()
{
    static const std::vector<ChunkRow> rows = {
        {ChunkKind::Image, "Image", 0x0001, 0, "The pixels."},
        {ChunkKind::Timestamp, "Timestamp", 0x1001, 8, "Start of the exposure, in ns of the device's clock."},
        {ChunkKind::FrameId, "FrameID", 0x1002, 8, "Number of the frame in its acquisition, from 0."},
        {ChunkKind::ExposureTime, "ExposureTime", 0x1003, 8, "Exposure time in us."},
        {ChunkKind::Gain, "Gain", 0x1004, 8, "Gain in dB."},
        {ChunkKind::Width, "Width", 0x1005, 4, "Columns of the frame."},
        {ChunkKind::Height, "Height", 0x1006, 4, "Lines of the frame."},
        {ChunkKind::PixelFormat, "PixelFormat", 0x1007, 4, "Code of the pixel format."},
        {ChunkKind::CounterValue, "CounterValue", 0x1008, 8, "Value of the counter that ChunkCounterSelector names."},
    };
    return rows;
}

std::size_t ChunkBytes(const CameraState &state)
{
    if (!state.hasChunks)
        return 0;
    std::size_t bytes = 0;
    for (const ChunkRow &row : ChunkRows())
        bytes += IsOn(state, row) ? row.bytes + kTailBytes : 0;
    return bytes;
}

void AppendChunks(const CameraState &state, const ChunkValues &values, std::vector<std::uint8_t> &payload)
{
    const auto imageBytes = static_cast<std::uint32_t>(payload.size());
    orv::ByteWriter writer;
    for (const ChunkRow &row : ChunkRows()) {
        if (!IsOn(state, row))
            continue;
        WriteValue(writer, row.kind, values);
        writer.U32(row.id);
        writer.U32(row.kind == ChunkKind::Image ? imageBytes : row.bytes);
    }
    const std::vector<std::uint8_t> tails = writer.Take();
    payload.insert(payload.end(), tails.begin(), tails.end());
}

} // namespace orvsim
