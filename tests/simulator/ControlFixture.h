#pragma once

#include "producer/HexBytes.h"
#include "tests/simulator/FakeDevice.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

namespace orvsim {

/// Puts commands together. Request ids count up by themselves.
class CommandWriter {
public:
    Datagram Make(GvcpCommand code, const std::vector<std::uint32_t> &words, std::uint8_t flags = kFlagAcknowledge)
    {
        orv::ByteWriter out;
        out.U8(0x42);
        out.U8(flags);
        out.U16(static_cast<std::uint16_t>(code));
        out.U16(static_cast<std::uint16_t>(4 * words.size()));
        out.U16(++m_lastId);
        for (const std::uint32_t word : words)
            out.U32(word);
        return out.Take();
    }
    Datagram Read(std::uint32_t address) { return Make(GvcpCommand::ReadRegister, {address}); }
    Datagram Write(std::uint32_t address, std::uint32_t value)
    {
        return Make(GvcpCommand::WriteRegister, {address, value});
    }

private:
    std::uint16_t m_lastId = 0;
};

/// Content of a command that gives the device with that hardware address another IP address; 0: its configured one.
inline std::vector<std::uint32_t> ForceIpWords(std::uint64_t mac, std::uint32_t address, std::uint32_t mask)
{
    std::vector<std::uint32_t> words(14, 0);
    words[0] = static_cast<std::uint32_t>(mac >> 32);
    words[1] = static_cast<std::uint32_t>(mac);
    words[5] = address;
    words[9] = mask;
    return words;
}

constexpr Endpoint kHost{0xC0A80A01, 40000}; // 192.168.10.1
constexpr Endpoint kOtherPort{0xC0A80A01, 40001};
constexpr Endpoint kOtherHost{0xC0A80A02, 40000};

inline GigeOptions FakeNetwork(bool isLegacy = false)
{
    GigeOptions options;
    options.address = 0xC0A80A14; // 192.168.10.20
    options.subnetMask = 0xFFFFFF00;
    options.legacy = isLegacy;
    return options;
}

/// A control server over a fake device, with a clock that goes when it is told to.
class ControlFixture {
public:
    explicit ControlFixture(bool isLegacy = false) : device(FakeNetwork(isLegacy)) {}

    std::vector<Reply> Handle(const Endpoint &from, const Datagram &command)
    {
        return server.Handle(from, SpanOf(command), now);
    }
    /// The only answer, due at once.
    Datagram Ask(const Endpoint &from, const Datagram &command)
    {
        const auto replies = Handle(from, command);
        EXPECT_EQ(replies.size(), 1U);
        if (replies.size() != 1)
            return {};
        EXPECT_EQ(replies[0].to, from);
        EXPECT_EQ(replies[0].at, now);
        return replies[0].bytes;
    }
    /// Status of the only answer; -1 when there is none.
    int Status(const Endpoint &from, const Datagram &command)
    {
        const auto replies = Handle(from, command);
        return replies.empty() ? -1 : replies[0].bytes[0] << 8 | replies[0].bytes[1];
    }
    int Write(std::uint32_t address, std::uint32_t value, const Endpoint &from = kHost)
    {
        return Status(from, commands.Write(address, value));
    }
    std::uint32_t Read(std::uint32_t address, const Endpoint &from = kHost)
    {
        const Datagram answer = Ask(from, commands.Read(address));
        orv::ByteReader in(SpanOf(answer));
        in.Skip(8);
        return in.U32();
    }
    void TakeControl(std::uint32_t privilege = kControlShared) { EXPECT_EQ(Write(0x0A00, privilege), 0); }
    void Pass(int ms)
    {
        now += std::chrono::milliseconds(ms);
        server.Tick(now);
    }

    FakeDevice device;
    MessageChannel messages;
    ControlServer server{device.bootstrap, device, messages, 1};
    CommandWriter commands;
    TimePoint now = TimePoint{} + std::chrono::hours(1);
};

class ControlTest : public ::testing::Test, public ControlFixture {};

} // namespace orvsim
