#include "producer/FrameFacts.h"
#include "producer/Modules.h"
#include "producer/Rollback.h"

#include "gentl/NuvarkCustom.h"

namespace nuvark {

StreamModule::StreamModule(std::shared_ptr<DeviceModule> parent, std::string id, std::uint32_t index)
    : Module(Kind::Stream), m_parent(std::move(parent)), m_id(std::move(id)),
      m_queue(std::make_shared<BufferQueue>([this] { NotifyEvent(EVENT_NEW_BUFFER); },
                                            [this](GC_ERROR code, const std::string &text) { FireError(code, text); })),
      m_channel(m_parent->GetCamera().MakeStream(index)), m_registers("stream", "StreamPort", Features())
{
}

PortFacts StreamModule::Facts()
{
    PortFacts facts;
    facts.id = m_id;
    facts.vendor = NUVARK_VENDOR;
    facts.model = NUVARK_MODEL;
    facts.tlType = TLTypeGEVName;
    facts.module = "TLDataStream";
    facts.portName = "StreamPort";
    facts.version = NUVARK_VERSION;
    return facts;
}

std::shared_ptr<EventSource> StreamModule::MakeEventSource(EVENT_TYPE type)
{
    if (type == EVENT_NEW_BUFFER)
        return std::make_shared<NewBufferEvents>(m_queue);
    return Module::MakeEventSource(type);
}

Status StreamModule::OnEventRegistered(EVENT_TYPE type, EventSource &)
{
    if (type != EVENT_ERROR)
        return {};
    const orv::MutexLock lock(m_errorMutex);
    for (const auto &[code, text] : m_untold)
        FireError(code, text);
    m_untold.clear();
    return {};
}

void StreamModule::TellError(GC_ERROR code, std::string text)
{
    const orv::MutexLock lock(m_errorMutex);
    if (IsRegistered(EVENT_ERROR))
        FireError(code, text);
    else
        m_untold.emplace_back(code, std::move(text));
}

Result<InfoValue> StreamModule::Info(STREAM_INFO_CMD command)
{
    const BufferQueue::Counts counts = m_queue->GetCounts();
    switch (command) {
    case STREAM_INFO_ID:
        return InfoValue::String(m_id);
    case STREAM_INFO_NUM_DELIVERED:
        return InfoValue::UInt64(counts.delivered);
    case STREAM_INFO_NUM_UNDERRUN:
        return InfoValue::UInt64(counts.underruns);
    case STREAM_INFO_NUM_ANNOUNCED:
        return InfoValue::Size(counts.announced);
    case STREAM_INFO_NUM_QUEUED:
        return InfoValue::Size(counts.queued);
    case STREAM_INFO_NUM_AWAIT_DELIVERY:
        return InfoValue::Size(counts.awaiting);
    case STREAM_INFO_NUM_STARTED:
        return InfoValue::UInt64(counts.started);
    case STREAM_INFO_IS_GRABBING:
        return InfoValue::Bool(counts.isGrabbing);
    case STREAM_INFO_DEFINES_PAYLOADSIZE:
        return InfoValue::Bool(false);
    case STREAM_INFO_PAYLOAD_SIZE:
        return Status(GC_ERR_NOT_AVAILABLE, "the camera's PayloadSize feature tells the size");
    case STREAM_INFO_TLTYPE:
        return InfoValue::String(TLTypeGEVName);
    case STREAM_INFO_NUM_CHUNKS_MAX:
        return Status(GC_ERR_NOT_AVAILABLE, "the camera does not tell how many chunks there may be");
    case STREAM_INFO_BUF_ANNOUNCE_MIN:
        return InfoValue::Size(kMinimumBuffers);
    case STREAM_INFO_BUF_ALIGNMENT:
        return InfoValue::Size(kBufferAlignment);
    case STREAM_INFO_FLOW_TABLE:
    case STREAM_INFO_GENDC_PREFETCH_DESCRIPTOR:
        return Status(GC_ERR_NO_DATA, "the stream has no flows");
    case NUVARK_STREAM_INFO_RECEIVE_BUFFER:
        return InfoValue::Size(m_channel->Counters().receiveBuffer);
    case NUVARK_STREAM_INFO_KERNEL_DROPS:
        return InfoValue::UInt64(m_channel->Counters().kernelDrops);
    case NUVARK_STREAM_INFO_PACKET_SIZE:
        return InfoValue::Size(m_channel->Counters().packetSize);
    case NUVARK_STREAM_INFO_NUM_INCOMPLETE:
        return InfoValue::UInt64(counts.incomplete);
    case NUVARK_STREAM_INFO_NUM_PACKETS:
        return InfoValue::UInt64(m_channel->Counters().packets);
    case NUVARK_STREAM_INFO_NUM_MISSING:
        return InfoValue::UInt64(m_channel->Counters().missingPackets);
    case NUVARK_STREAM_INFO_NUM_OVERSIZED:
        return InfoValue::UInt64(m_channel->Counters().oversizedPackets);
    case NUVARK_STREAM_INFO_NUM_REQUESTED:
        return InfoValue::UInt64(m_channel->Counters().requestedPackets);
    case NUVARK_STREAM_INFO_NUM_RESENT:
        return InfoValue::UInt64(m_channel->Counters().resentPackets);
    case NUVARK_STREAM_INFO_NUM_DUPLICATES:
        return InfoValue::UInt64(m_channel->Counters().duplicatePackets);
    case NUVARK_STREAM_INFO_NUM_LATE:
        return InfoValue::UInt64(m_channel->Counters().latePackets);
    case NUVARK_STREAM_INFO_NUM_REFUSED:
        return InfoValue::UInt64(m_channel->Counters().refusedPackets);
    case NUVARK_STREAM_INFO_NUM_UNUSABLE:
        return InfoValue::UInt64(m_channel->Counters().unusablePackets);
    case NUVARK_STREAM_INFO_WANTED_BUFFER:
        return InfoValue::Size(m_channel->Counters().wantedReceiveBuffer);
    case NUVARK_STREAM_INFO_NUM_FULL:
        return InfoValue::UInt64(m_channel->Counters().fullPackets);
    case NUVARK_STREAM_INFO_NUM_WITHOUT_BUFFER:
        return InfoValue::UInt64(m_channel->Counters().withoutBuffer);
    case NUVARK_STREAM_INFO_NUM_DROPPED_BY_CAMERA:
        return InfoValue::UInt64(m_channel->Counters().droppedByCamera);
    case NUVARK_STREAM_INFO_NUM_MISSED:
        return InfoValue::UInt64(m_channel->Counters().missedFrames);
    default:
        return UnknownCommand("stream", command);
    }
}

Result<InfoValue> StreamModule::BufferInfo(const Buffer &buffer, BUFFER_INFO_CMD command)
{
    return BufferInfo(buffer, buffer.Frame().get(), command);
}

Result<InfoValue> StreamModule::BufferInfo(const Buffer &buffer, const FrameInfo *frame, BUFFER_INFO_CMD command)
{
    return BufferFact(buffer, frame, m_parent->GetCamera().TickFrequency(), command);
}

Status StreamModule::Start(std::uint64_t count)
{
    const orv::MutexLock lock(m_controlMutex);
    if (m_closed)
        return {GC_ERR_INVALID_HANDLE, "the stream has been closed"};
    if (m_running)
        return {GC_ERR_RESOURCE_IN_USE, "the acquisition is running already"};
    if (m_queue->GetCounts().announced < kMinimumBuffers)
        return {GC_ERR_INVALID_BUFFER, "no buffer has been announced"};
    Rollback takeBack([this] { m_queue->TakeBackBegin(); });
    m_queue->Begin(count);
    Status started = m_channel->Start(*m_queue, m_queue->LargestSize());
    if (!started.Ok())
        return started;
    takeBack.Dismiss();
    m_running = true;
    WarnOfSmallBuffer();
    return {};
}

/// Once per stream: the most common reason for lost packets, and its cure.
void StreamModule::WarnOfSmallBuffer()
{
    const StreamCounters counters = m_channel->Counters();
    if (m_warned || counters.receiveBuffer >= counters.wantedReceiveBuffer)
        return;
    m_warned = true;
    TellError(GC_ERR_RESOURCE_EXHAUSTED,
              "the socket's receive buffer is " + std::to_string(counters.receiveBuffer) + " bytes instead of the " +
                  std::to_string(counters.wantedReceiveBuffer) +
                  " wanted; packets may get lost while the computer is busy. Cure: sudo sysctl -w net.core.rmem_max=" +
                  std::to_string(counters.wantedReceiveBuffer));
}

Status StreamModule::Stop(StreamChannel::Stop how)
{
    const orv::MutexLock lock(m_controlMutex);
    if (m_closed)
        return {GC_ERR_INVALID_HANDLE, "the stream has been closed"};
    if (!m_running)
        return {GC_ERR_RESOURCE_IN_USE, "the acquisition is not running"};
    m_channel->StopReceiving(how);
    m_queue->End();
    m_running = false;
    return {};
}

Status StreamModule::SetPackets(Status (StreamChannel::*set)(std::uint32_t), std::int64_t value)
{
    const orv::MutexLock lock(m_controlMutex);
    if (m_closed)
        return {GC_ERR_INVALID_HANDLE, "the stream has been closed"};
    if (m_running)
        return {GC_ERR_BUSY, "packet size and delay cannot be changed while the acquisition is running"};
    return (m_channel.get()->*set)(static_cast<std::uint32_t>(value));
}

Status StreamModule::Flush(ACQ_QUEUE_TYPE operation)
{
    const bool includesFilling = operation == ACQ_QUEUE_ALL_TO_INPUT || operation == ACQ_QUEUE_ALL_DISCARD;
    if (!includesFilling)
        return m_queue->Flush(operation);
    // Another flush would end the pause under this one, and a start would bring a receiver that nobody asks.
    const orv::MutexLock lock(m_controlMutex);
    m_queue->Pause(true);
    m_channel->AbandonFrames();
    Status flushed = m_queue->Flush(operation);
    m_queue->Pause(false);
    return flushed;
}

void StreamModule::Close()
{
    EndHandle();
    const orv::MutexLock lock(m_controlMutex);
    if (m_closed)
        return;
    m_closed = true;
    m_channel->StopReceiving(StreamChannel::Stop::AtOnce);
    m_queue->End();
    m_running = false;
    m_queue->RevokeAll();
    m_parent->Forget(m_id);
}

} // namespace nuvark
