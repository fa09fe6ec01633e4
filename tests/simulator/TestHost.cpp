#include "tests/simulator/TestHost.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace orvsim {
namespace {

sockaddr_in ToSocketAddress(const Endpoint &endpoint)
{
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(endpoint.address);
    address.sin_port = htons(endpoint.port);
    return address;
}

} // namespace

std::uint32_t TestAddress(int n)
{
    const auto process = static_cast<std::uint32_t>(getpid());
    return 0x7f800000 | (process & 0x1ffff) << 6 | static_cast<std::uint32_t>(n + 1);
}

TestHost::TestHost() : m_fd(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0))
{
    const int on = 1;
    setsockopt(m_fd, SOL_SOCKET, SO_BROADCAST, &on, sizeof on);
    const sockaddr_in address = ToSocketAddress({INADDR_LOOPBACK, 0});
    EXPECT_EQ(bind(m_fd, reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
}

TestHost::~TestHost()
{
    close(m_fd);
}

std::uint16_t TestHost::Port() const
{
    sockaddr_in address = {};
    socklen_t length = sizeof address;
    getsockname(m_fd, reinterpret_cast<sockaddr *>(&address), &length);
    return ntohs(address.sin_port);
}

void TestHost::Send(const Endpoint &to, const Datagram &bytes)
{
    const sockaddr_in address = ToSocketAddress(to);
    sendto(m_fd, bytes.data(), bytes.size(), 0, reinterpret_cast<const sockaddr *>(&address), sizeof address);
}

std::optional<TestHost::Arrival> TestHost::Receive(int limitMs)
{
    pollfd polled = {m_fd, POLLIN, 0};
    if (poll(&polled, 1, limitMs) <= 0)
        return std::nullopt;
    Arrival arrival;
    arrival.bytes.resize(65536);
    sockaddr_in from = {};
    socklen_t length = sizeof from;
    const ssize_t size =
        recvfrom(m_fd, arrival.bytes.data(), arrival.bytes.size(), 0, reinterpret_cast<sockaddr *>(&from), &length);
    if (size < 0)
        return std::nullopt;
    arrival.bytes.resize(static_cast<std::size_t>(size));
    arrival.from = {ntohl(from.sin_addr.s_addr), ntohs(from.sin_port)};
    return arrival;
}

Datagram TestHost::Ask(std::uint32_t camera, const Datagram &command, int limitMs)
{
    Send({camera, kGvcpPort}, command);
    while (const auto arrival = Receive(limitMs)) {
        const Datagram &answer = arrival->bytes;
        if (answer.size() >= 8 && answer[6] == command[6] && answer[7] == command[7])
            return answer;
    }
    return {};
}

int TestHost::Write(std::uint32_t camera, std::uint32_t reg, std::uint32_t value)
{
    const Datagram answer = Ask(camera, commands.Write(reg, value));
    return answer.empty() ? -1 : answer[0] << 8 | answer[1];
}

std::uint32_t TestHost::Read(std::uint32_t camera, std::uint32_t reg)
{
    const Datagram answer = Ask(camera, commands.Read(reg));
    EXPECT_EQ(answer.size(), 12U) << std::hex << reg;
    orv::ByteReader in(SpanOf(answer));
    in.Skip(8);
    return in.U32();
}

std::string TestHost::ReadMemory(std::uint32_t camera, std::uint32_t address, std::size_t size)
{
    std::string bytes;
    while (bytes.size() < size) {
        const auto count = static_cast<std::uint32_t>(std::min<std::size_t>(512, (size - bytes.size() + 3) / 4 * 4));
        const auto start = static_cast<std::uint32_t>(bytes.size());
        const Datagram answer = Ask(camera, commands.Make(GvcpCommand::ReadMemory, {address + start, count}));
        if (answer.size() != 12U + count)
            break;
        bytes.append(answer.begin() + 12, answer.end());
    }
    bytes.resize(std::min(bytes.size(), size));
    return bytes;
}

} // namespace orvsim
