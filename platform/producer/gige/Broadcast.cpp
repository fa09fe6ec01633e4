#include "producer/gige/Broadcast.h"

namespace nuvark::gige {

Result<UdpSocket> OpenBroadcastSocket()
{
    // Bound to no address: a socket bound to one would not get answers that are broadcast.
    Result<UdpSocket> socket = UdpSocket::Open(0);
    if (!socket.Ok())
        return socket;
    const Status allowed = socket.value.EnableBroadcast();
    if (!allowed.Ok())
        return allowed;
    return socket;
}

std::vector<std::uint32_t> Everybody(const NetworkInterface &interface)
{
    std::vector<std::uint32_t> addresses = {0xFFFFFFFF};
    if (interface.broadcast != 0)
        addresses.push_back(interface.broadcast);
    return addresses;
}

Status SendToAll(UdpSocket &socket, const NetworkInterface &interface, const std::vector<std::uint32_t> &destinations,
                 const Datagram &command)
{
    Status failure;
    bool isSent = false;
    for (const std::uint32_t destination : destinations) {
        const Status sent = socket.SendVia(interface.index, interface.address, {destination, kControlPort},
                                           {command.data(), command.size()});
        isSent |= sent.Ok();
        if (failure.Ok())
            failure = sent;
    }
    return isSent ? Status() : failure;
}

} // namespace nuvark::gige
