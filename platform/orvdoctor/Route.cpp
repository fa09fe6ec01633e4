#include "orvdoctor/Route.h"

#include <cstring>

#include <arpa/inet.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <sys/socket.h>
#include <unistd.h>

namespace orv {
namespace {

/// RTM_GETROUTE for one destination, as the kernel reads it.
struct Question {
    nlmsghdr header{};
    rtmsg route{};
    rtattr attribute{};
    std::uint32_t destination = 0;
};

class NetlinkSocket {
public:
    NetlinkSocket() : m_fd(socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE)) {}
    ~NetlinkSocket()
    {
        if (m_fd >= 0)
            close(m_fd);
    }
    NetlinkSocket(const NetlinkSocket &) = delete;
    NetlinkSocket &operator=(const NetlinkSocket &) = delete;

    bool Send(const Question &question) const
    {
        return m_fd >= 0 && send(m_fd, &question, sizeof question, 0) == static_cast<ssize_t>(sizeof question);
    }
    /// The kernel has its answer ready when send() returns.
    ssize_t Receive(void *data, std::size_t size) const { return recv(m_fd, data, size, MSG_DONTWAIT); }

private:
    int m_fd;
};

std::string OutgoingInterface(nlmsghdr *answer)
{
    auto *const route = static_cast<rtmsg *>(NLMSG_DATA(answer));
    auto left = static_cast<unsigned>(RTM_PAYLOAD(answer));
    for (rtattr *attribute = RTM_RTA(route); RTA_OK(attribute, left); attribute = RTA_NEXT(attribute, left)) {
        if (attribute->rta_type != RTA_OIF || RTA_PAYLOAD(attribute) < sizeof(std::uint32_t))
            continue;
        std::uint32_t index = 0;
        std::memcpy(&index, RTA_DATA(attribute), sizeof index);
        char name[IF_NAMESIZE] = "";
        return if_indextoname(index, name) ? name : "";
    }
    return "";
}

} // namespace

std::optional<std::string> RouteTo(std::uint32_t address)
{
    Question question;
    question.header.nlmsg_len = sizeof question;
    question.header.nlmsg_type = RTM_GETROUTE;
    question.header.nlmsg_flags = NLM_F_REQUEST;
    question.route.rtm_family = AF_INET;
    question.route.rtm_dst_len = 32;
    question.attribute.rta_type = RTA_DST;
    question.attribute.rta_len = RTA_LENGTH(sizeof question.destination);
    question.destination = htonl(address);
    const NetlinkSocket kernel;
    alignas(nlmsghdr) char data[4096];
    const ssize_t size = kernel.Send(question) ? kernel.Receive(data, sizeof data) : -1;
    auto *const answer = reinterpret_cast<nlmsghdr *>(data);
    if (size < 0 || !NLMSG_OK(answer, static_cast<unsigned>(size)))
        return std::nullopt;
    return answer->nlmsg_type == RTM_NEWROUTE ? OutgoingInterface(answer) : std::string();
}

} // namespace orv
