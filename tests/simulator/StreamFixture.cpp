#include "simulator/StreamFixture.h"

#include "base/Bytes.h"
#include "orvimage/PixelFormats.h"

#include <chrono>

namespace orvsim {

namespace {

constexpr std::chrono::seconds kLimit{10};

using Clock = std::chrono::steady_clock;

} // namespace

std::shared_ptr<Frame> MakeFrame(int width, int height, std::size_t chunkBytes)
{
    auto frame = std::make_shared<Frame>();
    frame->settings.width = width;
    frame->settings.height = height;
    frame->settings.pixelType = orv::kMono8;
    frame->imageBytes = static_cast<std::size_t>(width) * static_cast<std::size_t>(height);
    frame->hasChunks = chunkBytes > 0;
    frame->payload.resize(frame->imageBytes + chunkBytes);
    std::uint32_t state = 1;
    for (std::uint8_t &byte : frame->payload) {
        state = state * 1664525 + 1013904223;
        byte = static_cast<std::uint8_t>(state >> 24);
    }
    return frame;
}

PacketFields Parse(const Datagram &datagram)
{
    orv::ByteReader in({datagram.data(), datagram.size()});
    PacketFields fields;
    fields.status = in.U16();
    const std::uint16_t second = in.U16();
    const std::uint8_t format = in.U8();
    fields.format = format & 0x7f;
    fields.isExtended = (format & 0x80) != 0;
    if (fields.isExtended) {
        fields.flags = second;
        in.Skip(3);
        fields.blockId = in.U64();
        fields.packetId = in.U32();
    } else {
        fields.blockId = second;
        fields.packetId = static_cast<std::uint32_t>(in.U8()) << 16;
        fields.packetId |= in.U16();
    }
    const orv::ByteSpan rest = in.Rest();
    if (in.Ok())
        fields.content.assign(rest.data, rest.data + rest.size);
    return fields;
}

Datagram BytesOf(const Packet &packet)
{
    Datagram datagram(packet.head.begin(), packet.head.begin() + static_cast<std::ptrdiff_t>(packet.headBytes));
    datagram.insert(datagram.end(), packet.body.data, packet.body.data + packet.body.size);
    return datagram;
}

void FakeSource::Push(const FrameJob &job, std::shared_ptr<Frame> frame)
{
    {
        const orv::MutexLock lock(m_mutex);
        m_due.push_back({job, std::move(frame)});
        m_progress.due = m_due.size();
    }
    m_changed.NotifyAll();
}

void FakeSource::SetFaults(const Faults &faults)
{
    const orv::MutexLock lock(m_mutex);
    m_faults = faults;
}

FakeSource::Progress FakeSource::SoFar() const
{
    const orv::MutexLock lock(m_mutex);
    return m_progress;
}

bool FakeSource::WaitFor(const std::function<bool(const Progress &)> &isReached)
{
    const orv::MutexLock lock(m_mutex);
    const auto deadline = Clock::now() + kLimit;
    while (!isReached(m_progress) && m_changed.WaitUntil(m_mutex, deadline) == std::cv_status::no_timeout) {
    }
    return isReached(m_progress);
}

std::optional<FrameJob> FakeSource::WaitForFrame(std::int64_t timeoutMs)
{
    const orv::MutexLock lock(m_mutex);
    const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    while (m_due.empty() && m_changed.WaitUntil(m_mutex, deadline) == std::cv_status::no_timeout) {
    }
    if (m_due.empty())
        return std::nullopt;
    const Entry entry = std::move(m_due.front());
    m_due.pop_front();
    m_progress.due = m_due.size();
    m_frame = entry.frame;
    m_changed.NotifyAll();
    return entry.job;
}

std::shared_ptr<Frame> FakeSource::TakeFrame(const FrameJob &job)
{
    const orv::MutexLock lock(m_mutex);
    m_frame->number = job.number;
    return m_frame;
}

void FakeSource::FrameSent(const FrameJob &)
{
    {
        const orv::MutexLock lock(m_mutex);
        ++m_progress.sent;
    }
    m_changed.NotifyAll();
}

Faults FakeSource::CurrentFaults() const
{
    const orv::MutexLock lock(m_mutex);
    ++m_progress.questions;
    m_changed.NotifyAll();
    return m_faults;
}

} // namespace orvsim
