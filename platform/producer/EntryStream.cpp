#include "producer/ChunkLayout.h"
#include "producer/Entry.h"
#include "producer/FrameFacts.h"

// Data stream and buffer functions.

namespace nuvark::entry {

namespace {

struct StreamBuffer {
    std::shared_ptr<StreamModule> stream;
    std::shared_ptr<Buffer> buffer;
};

/// A stream and a buffer that was announced to it.
Result<StreamBuffer> GetBuffer(DS_HANDLE hDataStream, BUFFER_HANDLE hBuffer)
{
    auto stream = GetStream(hDataStream);
    if (!stream.Ok())
        return stream.status;
    std::shared_ptr<Buffer> buffer = HandleTable::Instance().Find<Buffer>(hBuffer);
    if (buffer == nullptr || buffer->Stream() != hDataStream)
        return Status(GC_ERR_INVALID_HANDLE, "this is no handle of a buffer of this stream");
    return StreamBuffer{std::move(stream.value), std::move(buffer)};
}

Status NoFlows()
{
    return {GC_ERR_NOT_IMPLEMENTED, "GigE Vision streams have no flows"};
}

/// Answers a list of questions, each with a result of its own.
template <class Item, class Answer> Status AnswerStacked(Item *pItems, size_t count, Answer answer)
{
    if (IsInvalidPointer(pItems) || count == 0)
        return InvalidPointer("pInfoStacked");
    for (std::size_t i = 0; i < count; ++i) {
        Item item; // packed: every second element is unaligned
        std::memcpy(&item, pItems + i, sizeof item);
        INFO_DATATYPE type = item.iType;
        std::size_t size = item.iSize;
        item.iResult = GiveInfo(answer(item), &type, item.pBuffer, &size).Code();
        item.iType = type;
        item.iSize = size;
        std::memcpy(pItems + i, &item, sizeof item);
    }
    return {};
}

Status AnnounceBuffer(StreamModule &stream, std::shared_ptr<Buffer> buffer, BUFFER_HANDLE *phBuffer)
{
    Status announced = stream.Buffers().Announce(buffer);
    if (announced.Ok())
        *phBuffer = buffer->Handle();
    return announced;
}

Result<StreamChannel::Stop> StopFrom(ACQ_STOP_FLAGS flags)
{
    switch (flags) {
    case ACQ_STOP_FLAGS_DEFAULT:
        return StreamChannel::Stop::Finish;
    case ACQ_STOP_FLAGS_KILL:
        return StreamChannel::Stop::AtOnce;
    default:
        return Status(GC_ERR_NOT_IMPLEMENTED, "there is no stop flag " + std::to_string(flags));
    }
}

} // namespace

Status DSClose(DS_HANDLE hDataStream)
{
    const auto stream = GetStream(hDataStream);
    if (stream.Ok())
        stream.value->Close();
    return stream.status;
}

Status DSGetInfo(DS_HANDLE hDataStream, STREAM_INFO_CMD iInfoCmd, INFO_DATATYPE *piType, void *pBuffer, size_t *piSize)
{
    const auto stream = GetStream(hDataStream);
    return stream.Ok() ? GiveInfo(stream.value->Info(iInfoCmd), piType, pBuffer, piSize) : stream.status;
}

Status DSAnnounceBuffer(DS_HANDLE hDataStream, void *pBuffer, size_t iSize, void *pPrivate, BUFFER_HANDLE *phBuffer)
{
    const auto stream = GetStream(hDataStream);
    if (!stream.Ok())
        return stream.status;
    if (IsInvalidPointer(pBuffer) || IsInvalidPointer(phBuffer) || iSize == 0 || iSize > PTRDIFF_MAX)
        return {GC_ERR_INVALID_PARAMETER, "pBuffer, iSize or phBuffer is invalid"};
    return AnnounceBuffer(*stream.value,
                          std::make_shared<Buffer>(hDataStream, static_cast<std::uint8_t *>(pBuffer), iSize, pPrivate),
                          phBuffer);
}

Status DSAllocAndAnnounceBuffer(DS_HANDLE hDataStream, size_t iBufferSize, void *pPrivate, BUFFER_HANDLE *phBuffer)
{
    const auto stream = GetStream(hDataStream);
    if (!stream.Ok())
        return stream.status;
    if (IsInvalidPointer(phBuffer) || iBufferSize == 0)
        return {GC_ERR_INVALID_PARAMETER, "iBufferSize or phBuffer is invalid"};
    if (iBufferSize > PTRDIFF_MAX)
        return {GC_ERR_OUT_OF_MEMORY, "no memory has " + std::to_string(iBufferSize) + " bytes"};
    orv::FrameMemory memory = orv::AllocateFrame(iBufferSize);
    if (memory == nullptr)
        return {GC_ERR_OUT_OF_MEMORY, "there is no memory for a buffer of " + std::to_string(iBufferSize) + " bytes"};
    return AnnounceBuffer(*stream.value,
                          std::make_shared<Buffer>(hDataStream, std::move(memory), iBufferSize, pPrivate), phBuffer);
}

Status DSAnnounceCompositeBuffer(DS_HANDLE hDataStream, size_t, void **, size_t *, void *, BUFFER_HANDLE *)
{
    const auto stream = GetStream(hDataStream);
    return stream.Ok() ? NoFlows() : stream.status;
}

Status DSQueueBuffer(DS_HANDLE hDataStream, BUFFER_HANDLE hBuffer)
{
    const auto found = GetBuffer(hDataStream, hBuffer);
    return found.Ok() ? found.value.stream->Buffers().Queue(found.value.buffer) : found.status;
}

Status DSRevokeBuffer(DS_HANDLE hDataStream, BUFFER_HANDLE hBuffer, void **ppBuffer, void **ppPrivate)
{
    const auto found = GetBuffer(hDataStream, hBuffer);
    if (!found.Ok())
        return found.status;
    const Buffer &buffer = *found.value.buffer;
    Status revoked = found.value.stream->Buffers().Revoke(found.value.buffer);
    if (!revoked.Ok())
        return revoked;
    if (!IsInvalidPointer(ppBuffer))
        *ppBuffer = buffer.IsOwned() ? nullptr : buffer.Base();
    if (!IsInvalidPointer(ppPrivate))
        *ppPrivate = buffer.UserPointer();
    return {};
}

Status DSFlushQueue(DS_HANDLE hDataStream, ACQ_QUEUE_TYPE iOperation)
{
    const auto stream = GetStream(hDataStream);
    return stream.Ok() ? stream.value->Flush(iOperation) : stream.status;
}

Status DSStartAcquisition(DS_HANDLE hDataStream, ACQ_START_FLAGS iStartFlags, uint64_t iNumToAcquire)
{
    const auto stream = GetStream(hDataStream);
    if (!stream.Ok())
        return stream.status;
    if (iStartFlags != ACQ_START_FLAGS_DEFAULT)
        return {GC_ERR_NOT_IMPLEMENTED, "there is no start flag " + std::to_string(iStartFlags)};
    if (iNumToAcquire == 0)
        return {GC_ERR_INVALID_PARAMETER, "no frames are to be acquired"};
    return stream.value->Start(iNumToAcquire);
}

Status DSStopAcquisition(DS_HANDLE hDataStream, ACQ_STOP_FLAGS iStopFlags)
{
    const auto stream = GetStream(hDataStream);
    if (!stream.Ok())
        return stream.status;
    const auto how = StopFrom(iStopFlags);
    return how.Ok() ? stream.value->Stop(how.value) : how.status;
}

Status DSGetBufferID(DS_HANDLE hDataStream, uint32_t iIndex, BUFFER_HANDLE *phBuffer)
{
    const auto stream = GetStream(hDataStream);
    if (!stream.Ok())
        return stream.status;
    const std::shared_ptr<Buffer> buffer = stream.value->Buffers().At(iIndex);
    if (buffer == nullptr)
        return {GC_ERR_INVALID_INDEX, "there is no buffer " + std::to_string(iIndex)};
    return Give(buffer->Handle(), phBuffer, "phBuffer");
}

Status DSGetBufferInfo(DS_HANDLE hDataStream, BUFFER_HANDLE hBuffer, BUFFER_INFO_CMD iInfoCmd, INFO_DATATYPE *piType,
                       void *pBuffer, size_t *piSize)
{
    const auto found = GetBuffer(hDataStream, hBuffer);
    if (!found.Ok())
        return found.status;
    return GiveInfo(found.value.stream->BufferInfo(*found.value.buffer, iInfoCmd), piType, pBuffer, piSize);
}

Status DSGetBufferInfoStacked(DS_HANDLE hDataStream, BUFFER_HANDLE hBuffer, DS_BUFFER_INFO_STACKED *pInfoStacked,
                              size_t iNumInfos)
{
    const auto found = GetBuffer(hDataStream, hBuffer);
    if (!found.Ok())
        return found.status;
    const std::shared_ptr<const FrameInfo> frame = found.value.buffer->Frame();
    return AnswerStacked(pInfoStacked, iNumInfos, [&](const DS_BUFFER_INFO_STACKED &item) {
        return found.value.stream->BufferInfo(*found.value.buffer, frame.get(), item.iInfoCmd);
    });
}

Status DSGetBufferChunkData(DS_HANDLE hDataStream, BUFFER_HANDLE hBuffer, SINGLE_CHUNK_DATA *pChunkData,
                            size_t *piNumChunks)
{
    const auto found = GetBuffer(hDataStream, hBuffer);
    if (!found.Ok())
        return found.status;
    if (IsInvalidPointer(piNumChunks) || (pChunkData != nullptr && IsInvalidPointer(pChunkData)))
        return InvalidPointer("pChunkData or piNumChunks");
    const std::shared_ptr<const FrameInfo> frame = found.value.buffer->Frame();
    if (frame == nullptr || !frame->hasChunks)
        return {GC_ERR_NO_DATA, "the buffer holds no chunks"};
    const auto chunks = ParseChunks({found.value.buffer->Base(), frame->chunkPayloadSize}, frame->imageBytes);
    if (!chunks)
        return {GC_ERR_PARSING_CHUNK_DATA, "the chunks' lengths do not fit the payload"};
    if (pChunkData != nullptr && *piNumChunks < chunks->size())
        return {GC_ERR_BUFFER_TOO_SMALL, "there are " + std::to_string(chunks->size()) + " chunks"};
    if (pChunkData != nullptr)
        std::memcpy(pChunkData, chunks->data(), chunks->size() * sizeof(SINGLE_CHUNK_DATA));
    *piNumChunks = chunks->size();
    return {};
}

Status DSGetParentDev(DS_HANDLE hDataStream, DEV_HANDLE *phDevice)
{
    const auto stream = GetStream(hDataStream);
    return stream.Ok() ? Give(stream.value->Parent()->Handle(), phDevice, "phDevice") : stream.status;
}

Status DSGetNumBufferParts(DS_HANDLE hDataStream, BUFFER_HANDLE hBuffer, uint32_t *piNumParts)
{
    const auto found = GetBuffer(hDataStream, hBuffer);
    if (!found.Ok())
        return found.status;
    if (IsInvalidPointer(piNumParts))
        return InvalidPointer("piNumParts");
    const std::shared_ptr<const FrameInfo> frame = found.value.buffer->Frame();
    const Status hasParts = CheckHasParts(frame.get());
    return hasParts.Ok() ? Give(frame->parts.size(), piNumParts, "piNumParts") : hasParts;
}

Status DSGetBufferPartInfo(DS_HANDLE hDataStream, BUFFER_HANDLE hBuffer, uint32_t iPartIndex,
                           BUFFER_PART_INFO_CMD iInfoCmd, INFO_DATATYPE *piType, void *pBuffer, size_t *piSize)
{
    const auto found = GetBuffer(hDataStream, hBuffer);
    if (!found.Ok())
        return found.status;
    const Buffer &buffer = *found.value.buffer;
    return GiveInfo(PartFact(buffer, buffer.Frame().get(), iPartIndex, iInfoCmd), piType, pBuffer, piSize);
}

Status DSGetBufferPartInfoStacked(DS_HANDLE hDataStream, BUFFER_HANDLE hBuffer,
                                  DS_BUFFER_PART_INFO_STACKED *pInfoStacked, size_t iNumInfos)
{
    const auto found = GetBuffer(hDataStream, hBuffer);
    if (!found.Ok())
        return found.status;
    const Buffer &buffer = *found.value.buffer;
    const std::shared_ptr<const FrameInfo> frame = buffer.Frame();
    const Status hasParts = CheckHasParts(frame.get());
    if (!hasParts.Ok())
        return hasParts;
    return AnswerStacked(pInfoStacked, iNumInfos, [&](const DS_BUFFER_PART_INFO_STACKED &item) {
        return PartFact(buffer, frame.get(), item.iPartIndex, item.iInfoCmd);
    });
}

Status DSGetNumFlows(DS_HANDLE hDataStream, uint32_t *piNumFlows)
{
    const auto stream = GetStream(hDataStream);
    if (!stream.Ok())
        return stream.status;
    return IsInvalidPointer(piNumFlows) ? InvalidPointer("piNumFlows") : NoFlows();
}

Status DSGetFlowInfo(DS_HANDLE hDataStream, uint32_t, FLOW_INFO_CMD, INFO_DATATYPE *, void *, size_t *)
{
    const auto stream = GetStream(hDataStream);
    return stream.Ok() ? NoFlows() : stream.status;
}

Status DSGetNumBufferSegments(DS_HANDLE hDataStream, BUFFER_HANDLE hBuffer, uint32_t *piNumSegments)
{
    const auto found = GetBuffer(hDataStream, hBuffer);
    return found.Ok() ? Give(1, piNumSegments, "piNumSegments") : found.status;
}

Status DSGetBufferSegmentInfo(DS_HANDLE hDataStream, BUFFER_HANDLE hBuffer, uint32_t iSegmentIndex,
                              SEGMENT_INFO_CMD iInfoCmd, INFO_DATATYPE *piType, void *pBuffer, size_t *piSize)
{
    const auto found = GetBuffer(hDataStream, hBuffer);
    if (!found.Ok())
        return found.status;
    if (iSegmentIndex != 0)
        return {GC_ERR_INVALID_INDEX, "a buffer has one segment"};
    constexpr struct {
        SEGMENT_INFO_CMD segment;
        BUFFER_INFO_CMD buffer;
    } kSame[] = {{SEGMENT_INFO_BASE, BUFFER_INFO_BASE},
                 {SEGMENT_INFO_SIZE, BUFFER_INFO_SIZE},
                 {SEGMENT_INFO_IS_INCOMPLETE, BUFFER_INFO_IS_INCOMPLETE},
                 {SEGMENT_INFO_SIZE_FILLED, BUFFER_INFO_SIZE_FILLED},
                 {SEGMENT_INFO_DATA_SIZE, BUFFER_INFO_DATA_SIZE}};
    for (const auto &row : kSame) {
        if (row.segment == iInfoCmd)
            return GiveInfo(found.value.stream->BufferInfo(*found.value.buffer, row.buffer), piType, pBuffer, piSize);
    }
    return UnknownCommand("segment", iInfoCmd);
}

} // namespace nuvark::entry
