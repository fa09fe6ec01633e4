#include "tests/simulator/TestHost.h"

#include <unistd.h>

namespace orvsim {

std::uint32_t TestAddress(int n)
{
    const auto process = static_cast<std::uint32_t>(getpid());
    return 0x7f800000 | (process & 0x1ffff) << 6 | static_cast<std::uint32_t>(n + 1);
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
