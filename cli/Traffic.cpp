#include "cli/Traffic.h"

namespace orvcli {

Traffic::~Traffic()
{
    for (Channel &channel : m_channels) {
        if (channel.isRegistered)
            m_device->UnregisterEvent(channel.event, Count, &channel);
    }
}

void Traffic::Count(const void *, unsigned long size, void *channel)
{
    auto *counted = static_cast<Channel *>(channel);
    ++counted->packets;
    counted->bytes += size;
}

Outcome Traffic::Start(OrvCam::Device &device)
{
    m_device = &device;
    for (Channel &channel : m_channels) {
        const int status = device.RegisterEvent(channel.event, Count, &channel);
        channel.isRegistered = status == ORV_CAM_OK;
        if (!channel.isRegistered)
            return FailedWith(status, std::string("packets of the channel \"") + channel.name + "\"");
    }
    return {};
}

std::uint64_t Traffic::Dropped(const Channel &channel) const
{
    return channel.isRegistered ? m_device->GetEventFigures(channel.event).dropped : 0;
}

std::string Traffic::Text() const
{
    std::string text;
    for (const Channel &channel : m_channels) {
        text += (text.empty() ? "" : ", ") + std::string(channel.name) + " " + std::to_string(channel.packets);
        const std::uint64_t dropped = Dropped(channel);
        if (channel.packets != 0 || dropped != 0)
            text += " (" + std::to_string(channel.bytes) + " bytes" +
                    (dropped != 0 ? ", " + std::to_string(dropped) + " more dropped" : "") + ")";
    }
    return text;
}

void Traffic::Write(Json &json) const
{
    json.Open('{');
    for (const Channel &channel : m_channels) {
        json.Key(channel.name).Open('{').Member("packets", channel.packets.load());
        json.Member("bytes", channel.bytes.load()).Member("dropped", Dropped(channel)).Close('}');
    }
    json.Close('}');
}

} // namespace orvcli
