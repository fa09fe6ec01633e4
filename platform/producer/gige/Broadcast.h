#pragma once

#include "producer/gige/Gvcp.h"
#include "producer/gige/NetworkInterfaces.h"
#include "producer/gige/UdpSocket.h"

#include <vector>

/// Commands to cameras that are not known yet, or that no route leads to.
namespace nuvark::gige {

/// A socket that may broadcast and gets answers that are broadcast.
Result<UdpSocket> OpenBroadcastSocket();

/// Where all cameras of the interface listen. Some hear only one of the global and the subnet's broadcast.
std::vector<std::uint32_t> Everybody(const NetworkInterface &interface);

/// Sends a command to the control port of all of these addresses, through the interface whatever the routes say. One of
/// two broadcasts may well be refused (no route), so one that is sent is enough. \return the first failure when none
/// could be sent.
Status SendToAll(UdpSocket &socket, const NetworkInterface &interface, const std::vector<std::uint32_t> &destinations,
                 const Datagram &command);

} // namespace nuvark::gige
