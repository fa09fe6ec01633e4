#pragma once

#include <array>
#include <cstdint>
#include <cstring>
#include <vector>

#include <netinet/in.h>
#include <netinet/udp.h>
#include <sys/socket.h>

/// Sends one message over a connected UDP socket, which the kernel takes for datagrams of `datagramSize` bytes and a
/// shorter last one. \return false where it cannot.
inline bool SendRun(int socket, const std::vector<std::uint8_t> &bytes, std::size_t datagramSize)
{
    iovec piece{const_cast<std::uint8_t *>(bytes.data()), bytes.size()};
    alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(std::uint16_t))> control{};
    msghdr message{};
    message.msg_iov = &piece;
    message.msg_iovlen = 1;
    if (datagramSize < bytes.size()) {
        message.msg_control = control.data();
        message.msg_controllen = control.size();
        cmsghdr *header = CMSG_FIRSTHDR(&message);
        header->cmsg_level = SOL_UDP;
        header->cmsg_type = UDP_SEGMENT;
        header->cmsg_len = CMSG_LEN(sizeof(std::uint16_t));
        const auto size = static_cast<std::uint16_t>(datagramSize);
        std::memcpy(CMSG_DATA(header), &size, sizeof size);
    }
    return sendmsg(socket, &message, 0) == static_cast<ssize_t>(bytes.size());
}
