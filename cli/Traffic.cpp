#include "cli/Traffic.h"

namespace orvcli {

Traffic::~Traffic()
{
    for (Channel &channel : m_channels) {
        if (channel.isRegistered)
            m_device.UnregisterEvent(channel.event, Count, &channel);
    }
}

void Traffic::PassMessagesTo(OrvCam::EventCallback callback, void *context)
{
    m_channels.back().callback = callback;
    m_channels.back().context = context;
}

void Traffic::Count(const void *data, unsigned long size, void *channel)
{
    auto *counted = static_cast<Channel *>(channel);
    ++counted->packets;
    counted->bytes += size;
    if (counted->callback != nullptr)
        counted->callback(data, size, counted->context);
}

Outcome Traffic::Start()
{
    for (Channel &channel : m_channels) {
        const Outcome outcome = Start(channel);
        if (!outcome.IsOk())
            return outcome;
    }
    return {};
}

Outcome Traffic::Start(Channel &channel)
{
    const int status = m_device.RegisterEvent(channel.event, Count, &channel);
    channel.isRegistered = status == ORV_CAM_OK;
    return channel.isRegistered ? Outcome()
                                : FailedWith(status, std::string("packets of the channel \"") + channel.name + "\"");
}

std::string Traffic::Text() const
{
    std::string text;
    for (const Channel &channel : m_channels) {
        text += (text.empty() ? "" : ", ") + std::string(channel.name) + " " + std::to_string(channel.packets);
        if (channel.packets != 0)
            text += " (" + std::to_string(channel.bytes) + " bytes)";
    }
    return text;
}

void Traffic::Write(Json &json) const
{
    json.Open('{');
    for (const Channel &channel : m_channels) {
        json.Key(channel.name).Open('{').Member("packets", channel.packets.load());
        json.Member("bytes", channel.bytes.load()).Close('}');
    }
    json.Close('}');
}

} // namespace orvcli
