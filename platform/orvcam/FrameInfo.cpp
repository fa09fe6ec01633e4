#include "orvcam/FrameInfo.h"

#include "orvcam/GenTLInfo.h"
#include "orvimage/PixelFormats.h"

#include <algorithm>

namespace orv::cam {

namespace {

struct ItemCommand {
    FrameItem item;
    BUFFER_INFO_CMD command;
};

constexpr ItemCommand kItems[] = {
    {FrameItem::PayloadType, BUFFER_INFO_PAYLOADTYPE},
    {FrameItem::Incomplete, BUFFER_INFO_IS_INCOMPLETE},
    {FrameItem::Timestamp, BUFFER_INFO_TIMESTAMP},
    {FrameItem::FrameId, BUFFER_INFO_FRAMEID},
    {FrameItem::SizeFilled, BUFFER_INFO_SIZE_FILLED},
    {FrameItem::DataSize, BUFFER_INFO_DATA_SIZE},
    {FrameItem::Width, BUFFER_INFO_WIDTH},
    {FrameItem::Height, BUFFER_INFO_HEIGHT},
    {FrameItem::DeliveredHeight, BUFFER_INFO_DELIVERED_IMAGEHEIGHT},
    {FrameItem::XPadding, BUFFER_INFO_XPADDING},
    {FrameItem::ImageOffset, BUFFER_INFO_IMAGEOFFSET},
    {FrameItem::ImagePresent, BUFFER_INFO_IMAGEPRESENT},
    {FrameItem::PixelFormat, BUFFER_INFO_PIXELFORMAT},
    {FrameItem::PixelFormatNamespace, BUFFER_INFO_PIXELFORMAT_NAMESPACE},
    {FrameItem::LargerThanBuffer, BUFFER_INFO_DATA_LARGER_THAN_BUFFER},
    {FrameItem::TimestampNs, BUFFER_INFO_TIMESTAMP_NS}, // the last: left out of a producer that tells ticks
};
constexpr std::size_t kItemCount = sizeof kItems / sizeof kItems[0];
static_assert(kItemCount == static_cast<std::size_t>(FrameItem::Count), "one row per item");

struct PartCommand {
    FrameItem item;
    BUFFER_PART_INFO_CMD command;
};

constexpr PartCommand kPartItems[] = {
    {FrameItem::Width, BUFFER_PART_INFO_WIDTH},
    {FrameItem::Height, BUFFER_PART_INFO_HEIGHT},
    {FrameItem::DeliveredHeight, BUFFER_PART_INFO_DELIVERED_IMAGEHEIGHT},
    {FrameItem::XPadding, BUFFER_PART_INFO_XPADDING},
    {FrameItem::PixelFormat, BUFFER_PART_INFO_DATA_FORMAT},
    {FrameItem::PixelFormatNamespace, BUFFER_PART_INFO_DATA_FORMAT_NAMESPACE},
};

/// How well a part stands for the frame: 1 is best, 0 not at all. A flat image before a depth image or one plane of an
/// image, and a map of confidence for want of anything else; a compressed part has no pixels.
int RankOfPart(std::uint64_t type)
{
    if (type == PART_DATATYPE_2D_IMAGE)
        return 1;
    if (type >= PART_DATATYPE_2D_PLANE_BIPLANAR && type <= PART_DATATYPE_3D_PLANE_QUADPLANAR)
        return 2;
    return type == PART_DATATYPE_CONFIDENCE_MAP ? 3 : 0;
}

/// Beyond this a size is believed only of an image that the buffer holds: line cameras send pictures of any height.
constexpr std::uint64_t kUsualSide = 65535;

bool HoldsPixels(std::uint64_t payloadType)
{
    switch (payloadType) {
    case PAYLOAD_TYPE_RAW_DATA:
    case PAYLOAD_TYPE_FILE:
    case PAYLOAD_TYPE_JPEG:
    case PAYLOAD_TYPE_JPEG2000:
    case PAYLOAD_TYPE_H264:
    case PAYLOAD_TYPE_CHUNK_ONLY:
    case PAYLOAD_TYPE_GENDC:
        return false;
    default:
        return true;
    }
}

/// The namespaces of two early standards number formats in their own ways.
bool IsPfnc(std::uint64_t pixelNamespace)
{
    return pixelNamespace != PIXELFORMAT_NAMESPACE_IIDC && pixelNamespace != PIXELFORMAT_NAMESPACE_PFNC_16BIT;
}

/// Depth of one channel, for formats that are in no table.
std::uint32_t GuessDepth(std::uint32_t bitsPerPixel)
{
    for (const std::uint32_t depth : {16u, 14u, 12u, 10u}) {
        if (bitsPerPixel % depth == 0 && bitsPerPixel % 24 != 0 && bitsPerPixel != 32)
            return depth;
    }
    return 8;
}

struct Geometry {
    std::uint64_t width;
    std::uint64_t height;
    std::uint64_t xPadding;
};

void DescribeFormat(std::uint32_t wireCode, bool isPfnc, _OrvImage *image)
{
    image->pixelType = isPfnc ? PixelTypeFromWire(wireCode) : kPixelTypeNone;
    image->wireFormat = isPfnc ? wireCode : 0;
    if (const OrvColorModelDescription *model = FindColorModel(image->pixelType)) {
        image->bitsPerPixel = BitsPerPixel(image->pixelType);
        image->significantBits = static_cast<std::uint32_t>(model->bitsPerChannel);
    } else {
        image->bitsPerPixel = wireCode >> 16 & 0xFF;
        image->significantBits = GuessDepth(image->bitsPerPixel);
    }
}

/// Sets line layout and pitch. \return the bytes from the first pixel to the end of the last.
std::uint64_t LayLines(const Geometry &geometry, _OrvImage *image)
{
    const std::uint64_t lineBits = geometry.width * image->bitsPerPixel;
    if (lineBits % 8 != 0 && geometry.xPadding == 0) {
        image->lineLayout = ORV_LINES_CONTINUOUS;
        image->linePitch = static_cast<std::uint32_t>(lineBits / 8);
        return (lineBits * geometry.height + 7) / 8;
    }
    const std::uint64_t lineBytes = (lineBits + 7) / 8;
    const std::uint64_t pitch = lineBytes + geometry.xPadding;
    image->lineLayout = ORV_LINES_PITCHED;
    image->linePitch = static_cast<std::uint32_t>(pitch);
    return geometry.height == 0 ? 0 : pitch * (geometry.height - 1) + lineBytes;
}

/// \param ticksPerSecond  0 where that is not known: then a tick is a nanosecond.
std::uint64_t TicksOf(std::uint64_t nanoseconds, std::uint64_t ticksPerSecond)
{
    constexpr std::uint64_t kNanoseconds = 1000000000;
    if (ticksPerSecond == 0 || ticksPerSecond == kNanoseconds)
        return nanoseconds;
    return nanoseconds / kNanoseconds * ticksPerSecond + nanoseconds % kNanoseconds * ticksPerSecond / kNanoseconds;
}

Geometry GeometryOf(const FrameInfo &info, const ConfiguredFormat &configured, bool incomplete)
{
    Geometry geometry;
    geometry.width = info.Get(FrameItem::Width, configured.width);
    geometry.height = info.Get(FrameItem::Height, configured.height);
    geometry.xPadding = info.Get(FrameItem::XPadding);
    // A whole frame may have fewer lines than the camera is set to; a damaged one keeps its size, with a hole.
    const std::uint64_t delivered = info.Get(FrameItem::DeliveredHeight);
    if (!incomplete && delivered > 0 && delivered < geometry.height)
        geometry.height = delivered;
    return geometry;
}

bool IsBelievable(const Geometry &geometry, std::uint32_t bitsPerPixel, std::size_t memoryBytes)
{
    if (geometry.xPadding > kUsualSide)
        return false;
    if (geometry.width <= kUsualSide && geometry.height <= kUsualSide)
        return true;
    const std::uint64_t pixels = std::uint64_t{memoryBytes} * 8 / std::max(bitsPerPixel, 1u);
    constexpr std::uint64_t kMost = ~std::uint32_t{0};
    return geometry.width <= kMost && geometry.height <= kMost &&
           (geometry.width == 0 || geometry.height <= pixels / geometry.width);
}

} // namespace

FrameInfoReader::FrameInfoReader(const gentl::Functions &calls, DS_HANDLE stream)
    : m_calls(calls), m_stream(stream), m_stackedTries(calls.DSGetBufferInfoStacked != nullptr ? kStackedTries : 0)
{
}

void FrameInfoReader::Read(BUFFER_HANDLE buffer, const void *memory, FrameInfo *info)
{
    info->Clear();
    const std::size_t items = m_tellsTicks ? kItemCount - 1 : kItemCount;
    if (!ReadStacked(buffer, items, info))
        ReadSingly(buffer, items, info);
    m_tellsTicks = info->Has(FrameItem::Timestamp);
    if (info->Get(FrameItem::PayloadType) == PAYLOAD_TYPE_MULTI_PART)
        ReadImagePart(buffer, memory, info);
}

bool FrameInfoReader::ReadStacked(BUFFER_HANDLE buffer, std::size_t items, FrameInfo *info)
{
    if (m_stackedTries == 0)
        return false;
    InfoBytes answers[kItemCount];
    DS_BUFFER_INFO_STACKED entries[kItemCount];
    for (std::size_t i = 0; i < items; ++i)
        entries[i] = {kItems[i].command, INFO_DATATYPE_UNKNOWN, answers[i].bytes, answers[i].size, GC_ERR_ERROR};
    const GC_ERROR result = m_calls.DSGetBufferInfoStacked(m_stream, buffer, entries, items);
    if (result != GC_ERR_SUCCESS) {
        m_stackedTries = result == GC_ERR_NOT_IMPLEMENTED ? 0 : m_stackedTries - 1; // it may be this buffer's fault
        return false;
    }
    m_stackedTries = kStackedTries;
    for (std::size_t i = 0; i < items; ++i) {
        answers[i].size = entries[i].iSize;
        answers[i].type = entries[i].iType;
        std::uint64_t value = 0;
        if (entries[i].iResult == GC_ERR_SUCCESS && DecodeNumber(answers[i], &value))
            info->Set(kItems[i].item, value);
    }
    return true;
}

void FrameInfoReader::ReadSingly(BUFFER_HANDLE buffer, std::size_t items, FrameInfo *info)
{
    for (std::size_t i = 0; i < items; ++i) {
        const ItemCommand &row = kItems[i];
        std::uint64_t value = 0;
        const bool told = QueryNumber(
            [&](INFO_DATATYPE *type, void *bytes, std::size_t *size) {
                return m_calls.DSGetBufferInfo(m_stream, buffer, row.command, type, bytes, size);
            },
            &value);
        if (told)
            info->Set(row.item, value);
    }
}

/// Of several parts, the one that stands best for the frame, and the first of those, is the frame.
void FrameInfoReader::ReadImagePart(BUFFER_HANDLE buffer, const void *memory, FrameInfo *info)
{
    constexpr std::uint32_t kMostParts = 64;
    std::uint32_t parts = 0;
    if (m_calls.DSGetNumBufferParts == nullptr || m_calls.DSGetBufferPartInfo == nullptr ||
        m_calls.DSGetNumBufferParts(m_stream, buffer, &parts) != GC_ERR_SUCCESS)
        return;
    const auto query = [&](std::uint32_t part, BUFFER_PART_INFO_CMD command, std::uint64_t *value) {
        return QueryNumber(
            [&](INFO_DATATYPE *type, void *bytes, std::size_t *size) {
                return m_calls.DSGetBufferPartInfo(m_stream, buffer, part, command, type, bytes, size);
            },
            value);
    };
    std::uint64_t value = 0;
    std::uint32_t best = 0;
    int rankOfBest = 0;
    for (std::uint32_t part = 0; part < std::min(parts, kMostParts) && rankOfBest != 1; ++part) {
        const int rank = query(part, BUFFER_PART_INFO_DATA_TYPE, &value) ? RankOfPart(value) : 0;
        if (rank != 0 && (rankOfBest == 0 || rank < rankOfBest)) {
            best = part;
            rankOfBest = rank;
        }
    }
    info->Set(FrameItem::ImagePresent, rankOfBest != 0 ? 1 : 0);
    if (rankOfBest == 0)
        return;
    for (const PartCommand &row : kPartItems) {
        if (query(best, row.command, &value))
            info->Set(row.item, value);
    }
    const auto start = reinterpret_cast<std::uintptr_t>(memory);
    if (query(best, BUFFER_PART_INFO_BASE, &value) && value >= start)
        info->Set(FrameItem::ImageOffset, value - start);
}

FrameView ViewOf(const FrameInfo &info, const ConfiguredFormat &configured, void *memory, std::size_t memoryBytes)
{
    FrameView view = {};
    view.incomplete = info.Get(FrameItem::Incomplete) != 0 || info.Get(FrameItem::LargerThanBuffer) != 0;
    const std::uint64_t meant = std::min<std::uint64_t>(info.Get(FrameItem::DataSize, memoryBytes), memoryBytes);
    const std::uint64_t received = std::min<std::uint64_t>(info.Get(FrameItem::SizeFilled, meant), memoryBytes);
    view.receivedBytes = received;
    // With packets missing, what did come may lie anywhere up to the full size.
    const std::uint64_t end = view.incomplete ? std::max(meant, received) : received;
    const std::uint64_t offset = std::min(info.Get(FrameItem::ImageOffset), end);
    const std::uint64_t available = end - offset;

    _OrvImage &image = view.image;
    image.data = static_cast<unsigned char *>(memory) + offset;
    image.dataSize = available;
    image.timestamp =
        info.Get(FrameItem::Timestamp, TicksOf(info.Get(FrameItem::TimestampNs), configured.ticksPerSecond));
    image.frameId = info.Get(FrameItem::FrameId);
    if (!HoldsPixels(info.Get(FrameItem::PayloadType)) || info.Get(FrameItem::ImagePresent, 1) == 0)
        return view;

    const auto wireCode = static_cast<std::uint32_t>(info.Get(FrameItem::PixelFormat, configured.pixelFormat));
    DescribeFormat(wireCode, IsPfnc(info.Get(FrameItem::PixelFormatNamespace)), &image);
    const Geometry geometry = GeometryOf(info, configured, view.incomplete);
    if (!IsBelievable(geometry, image.bitsPerPixel, memoryBytes)) {
        view.incomplete = true; // no camera sends this, so nothing else of it can be believed
        return view;
    }
    image.width = static_cast<std::uint32_t>(geometry.width);
    image.height = static_cast<std::uint32_t>(geometry.height);
    if (image.bitsPerPixel == 0) // a code that does not tell the size of its pixels: a whole frame that nobody can read
        return view;
    const std::uint64_t needed = LayLines(geometry, &image);
    if (needed > available)
        view.incomplete = true;
    const std::uint64_t withPadding = std::max<std::uint64_t>(needed, std::uint64_t{image.linePitch} * image.height);
    image.dataSize = std::min(available, withPadding);
    return view;
}

} // namespace orv::cam
