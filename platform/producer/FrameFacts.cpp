#include "producer/FrameFacts.h"

namespace nuvark {

namespace {

Status NoFrame()
{
    return {GC_ERR_NO_DATA, "the buffer holds no frame"};
}
Status NoImage()
{
    return {GC_ERR_NO_DATA, "the frame holds no image, or its leader was lost"};
}

/// What only each part of a multi-part frame can answer.
bool IsOfAPart(BUFFER_INFO_CMD command)
{
    switch (command) {
    case BUFFER_INFO_WIDTH:
    case BUFFER_INFO_HEIGHT:
    case BUFFER_INFO_DELIVERED_IMAGEHEIGHT:
    case BUFFER_INFO_XOFFSET:
    case BUFFER_INFO_YOFFSET:
    case BUFFER_INFO_XPADDING:
    case BUFFER_INFO_PIXELFORMAT:
    case BUFFER_INFO_PIXELFORMAT_NAMESPACE:
        return true;
    default:
        return false;
    }
}

/// What can be said of a buffer in any state.
Result<InfoValue> PlainBufferInfo(const Buffer &buffer, BUFFER_INFO_CMD command)
{
    switch (command) {
    case BUFFER_INFO_BASE:
        return InfoValue::Pointer(buffer.Base());
    case BUFFER_INFO_SIZE:
        return InfoValue::Size(buffer.Size());
    case BUFFER_INFO_USER_PTR:
        return InfoValue::Pointer(buffer.UserPointer());
    case BUFFER_INFO_IS_QUEUED:
        return InfoValue::Bool(buffer.IsQueued());
    case BUFFER_INFO_IS_ACQUIRING:
        return InfoValue::Bool(buffer.GetState() == Buffer::State::Filling);
    case BUFFER_INFO_NEW_DATA:
        return InfoValue::Bool(buffer.HasNewData());
    case BUFFER_INFO_TLTYPE:
        return InfoValue::String(TLTypeGEVName);
    case BUFFER_INFO_IS_COMPOSITE:
        return InfoValue::Bool(false);
    default:
        return Status(GC_ERR_NOT_IMPLEMENTED, "");
    }
}

/// What can only be said of an image.
Result<InfoValue> ImageInfo(const FrameInfo &frame, BUFFER_INFO_CMD command)
{
    if (!frame.hasImage && command >= BUFFER_INFO_WIDTH && command <= BUFFER_INFO_PIXEL_ENDIANNESS)
        return NoImage();
    if (frame.payloadType == PAYLOAD_TYPE_MULTI_PART && IsOfAPart(command))
        return Status(GC_ERR_NO_DATA, "the frame has several parts, each with an answer of its own");
    switch (command) {
    case BUFFER_INFO_WIDTH:
        return InfoValue::Size(frame.width);
    case BUFFER_INFO_HEIGHT:
        return InfoValue::Size(frame.height);
    case BUFFER_INFO_DELIVERED_IMAGEHEIGHT:
        return InfoValue::Size(frame.deliveredHeight);
    case BUFFER_INFO_XOFFSET:
        return InfoValue::Size(frame.xOffset);
    case BUFFER_INFO_YOFFSET:
        return InfoValue::Size(frame.yOffset);
    case BUFFER_INFO_XPADDING:
        return InfoValue::Size(frame.xPadding);
    case BUFFER_INFO_YPADDING:
        return InfoValue::Size(frame.yPadding);
    case BUFFER_INFO_IMAGEOFFSET:
        return InfoValue::Size(frame.imageOffset);
    case BUFFER_INFO_PIXELFORMAT:
        return InfoValue::UInt64(frame.pixelFormat);
    case BUFFER_INFO_PIXELFORMAT_NAMESPACE:
        return InfoValue::UInt64(PIXELFORMAT_NAMESPACE_PFNC_32BIT);
    case BUFFER_INFO_PIXEL_ENDIANNESS:
        return InfoValue::Int32(frame.bigEndianPixels ? PIXELENDIANNESS_BIG : PIXELENDIANNESS_LITTLE);
    default:
        return UnknownCommand("buffer", command);
    }
}

Result<InfoValue> TimestampNs(const FrameInfo &frame, std::uint64_t frequency)
{
    if (frequency == 0)
        return Status(GC_ERR_NOT_AVAILABLE, "the camera has no clock");
    constexpr std::uint64_t kNsPerSecond = 1000000000;
    // In two parts: the product of all ticks overflows after seconds.
    const std::uint64_t rest = frame.timestamp % frequency;
    const auto restNs = static_cast<std::uint64_t>(static_cast<unsigned __int128>(rest) * kNsPerSecond / frequency);
    return InfoValue::UInt64(frame.timestamp / frequency * kNsPerSecond + restNs);
}

Result<InfoValue> FrameFact(const FrameInfo &frame, std::uint64_t tickFrequency, BUFFER_INFO_CMD command)
{
    switch (command) {
    case BUFFER_INFO_TIMESTAMP:
        return InfoValue::UInt64(frame.timestamp);
    case BUFFER_INFO_TIMESTAMP_NS:
        return TimestampNs(frame, tickFrequency);
    case BUFFER_INFO_IS_INCOMPLETE:
        return InfoValue::Bool(frame.isIncomplete);
    case BUFFER_INFO_SIZE_FILLED:
        return InfoValue::Size(frame.sizeFilled);
    case BUFFER_INFO_DATA_SIZE:
        return InfoValue::Size(frame.dataSize);
    case BUFFER_INFO_DATA_LARGER_THAN_BUFFER:
        return InfoValue::Bool(frame.isLargerThanBuffer);
    case BUFFER_INFO_FRAMEID:
        return InfoValue::UInt64(frame.frameId);
    case BUFFER_INFO_PAYLOADTYPE:
        return InfoValue::Size(static_cast<std::size_t>(frame.payloadType));
    case BUFFER_INFO_IMAGEPRESENT:
        return InfoValue::Bool(frame.hasImage);
    case BUFFER_INFO_CONTAINS_CHUNKDATA:
        return InfoValue::Bool(frame.hasChunks);
    case BUFFER_INFO_DELIVERED_CHUNKPAYLOADSIZE:
        return InfoValue::Size(frame.chunkPayloadSize);
    case BUFFER_INFO_CHUNKLAYOUTID:
        return InfoValue::UInt64(frame.chunkLayoutId);
    case BUFFER_INFO_FILENAME:
        if (frame.payloadType != PAYLOAD_TYPE_FILE)
            return Status(GC_ERR_NO_DATA, "the frame is no file");
        return InfoValue::String(frame.fileName);
    default:
        return ImageInfo(frame, command);
    }
}

Result<InfoValue> GeometryOf(const FramePart &part, BUFFER_PART_INFO_CMD command)
{
    switch (command) {
    case BUFFER_PART_INFO_WIDTH:
        return InfoValue::Size(part.width);
    case BUFFER_PART_INFO_HEIGHT:
    case BUFFER_PART_INFO_DELIVERED_IMAGEHEIGHT:
        return InfoValue::Size(part.height);
    case BUFFER_PART_INFO_XOFFSET:
        return InfoValue::Size(part.xOffset);
    case BUFFER_PART_INFO_YOFFSET:
        return InfoValue::Size(part.yOffset);
    case BUFFER_PART_INFO_XPADDING:
        return InfoValue::Size(part.xPadding);
    default:
        return UnknownCommand("part", command);
    }
}

} // namespace

Result<InfoValue> BufferFact(const Buffer &buffer, const FrameInfo *frame, std::uint64_t tickFrequency,
                             BUFFER_INFO_CMD command)
{
    Result<InfoValue> plain = PlainBufferInfo(buffer, command);
    if (plain.status.Code() != GC_ERR_NOT_IMPLEMENTED)
        return plain;
    if (frame != nullptr)
        return FrameFact(*frame, tickFrequency, command);
    if (command == BUFFER_INFO_SIZE_FILLED)
        return InfoValue::Size(0);
    const Result<InfoValue> ofAnyFrame = FrameFact({}, tickFrequency, command);
    return ofAnyFrame.status.Code() == GC_ERR_NOT_IMPLEMENTED ? ofAnyFrame.status : NoFrame();
}

Status CheckHasParts(const FrameInfo *frame)
{
    if (frame == nullptr)
        return NoFrame();
    // Success here would be taken for a multi-part payload by consumers, whatever the number.
    if (frame->payloadType != PAYLOAD_TYPE_MULTI_PART)
        return {GC_ERR_NO_DATA, "the buffer holds no multi-part payload"};
    return {};
}

Result<InfoValue> PartFact(const Buffer &buffer, const FrameInfo *frame, std::uint32_t index,
                           BUFFER_PART_INFO_CMD command)
{
    const Status hasParts = CheckHasParts(frame);
    if (!hasParts.Ok())
        return hasParts;
    if (index >= frame->parts.size())
        return Status(GC_ERR_INVALID_INDEX, "the frame has " + std::to_string(frame->parts.size()) + " parts");
    const FramePart &part = frame->parts[index];
    switch (command) {
    case BUFFER_PART_INFO_BASE:
        return InfoValue::Pointer(buffer.Base() + part.begin);
    case BUFFER_PART_INFO_DATA_SIZE:
        return InfoValue::Size(part.size);
    case BUFFER_PART_INFO_DATA_TYPE:
        return InfoValue::Size(static_cast<std::size_t>(part.dataType));
    case BUFFER_PART_INFO_DATA_FORMAT:
        return InfoValue::UInt64(part.pixelFormat);
    case BUFFER_PART_INFO_DATA_FORMAT_NAMESPACE:
        return InfoValue::UInt64(PIXELFORMAT_NAMESPACE_PFNC_32BIT);
    case BUFFER_PART_INFO_SOURCE_ID:
        return InfoValue::UInt64(part.sourceId);
    case BUFFER_PART_INFO_REGION_ID:
        return InfoValue::UInt64(part.regionId);
    case BUFFER_PART_INFO_DATA_PURPOSE_ID:
        return InfoValue::UInt64(part.purposeId);
    default:
        return GeometryOf(part, command);
    }
}

} // namespace nuvark
