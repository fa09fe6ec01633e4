#pragma once

#include "producer/gige/Gvcp.h"

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

constexpr char kScriptedAddress[] = "127.0.0.21";

inline std::vector<std::uint8_t> MakeAnswer(std::uint16_t status, std::uint16_t code, std::uint16_t id,
                                            const std::vector<std::uint8_t> &payload)
{
    orv::ByteWriter out;
    out.U16(status);
    out.U16(code);
    out.U16(static_cast<std::uint16_t>(payload.size()));
    out.U16(id);
    out.Bytes({payload.data(), payload.size()});
    return out.Take();
}

/// A device that answers as a test wants. The script gets each command and sends what it likes; on its own thread.
/// At the broadcast address it hears what is sent to everybody, and nothing else.
class ScriptedDevice {
public:
    struct Received {
        std::uint8_t flags = 0;
        std::uint16_t command = 0;
        std::uint16_t id = 0;
        std::vector<std::uint8_t> payload;
    };
    using Script = std::function<void(ScriptedDevice &, const Received &)>;

    explicit ScriptedDevice(Script script, const char *address = kScriptedAddress) : m_script(std::move(script))
    {
        m_fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        const int on = 1;
        setsockopt(m_fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
        sockaddr_in local{};
        local.sin_family = AF_INET;
        local.sin_port = htons(nuvark::gige::kControlPort);
        inet_pton(AF_INET, address, &local.sin_addr);
        EXPECT_EQ(bind(m_fd, reinterpret_cast<sockaddr *>(&local), sizeof local), 0);
        m_thread = std::thread([this] { Run(); });
    }
    ~ScriptedDevice()
    {
        m_stopping = true;
        m_thread.join();
        close(m_fd);
    }

    void Answer(std::uint16_t status, std::uint16_t code, std::uint16_t id, const std::vector<std::uint8_t> &payload)
    {
        const auto datagram = MakeAnswer(status, code, id, payload);
        sendto(m_fd, datagram.data(), datagram.size(), 0, reinterpret_cast<sockaddr *>(&m_peer), sizeof m_peer);
    }
    /// Something of that many bytes, to anybody.
    void Send(std::uint32_t address, std::uint16_t port, std::size_t size)
    {
        const std::vector<std::uint8_t> datagram(size, 0xA5);
        sockaddr_in to{};
        to.sin_family = AF_INET;
        to.sin_addr.s_addr = htonl(address);
        to.sin_port = htons(port);
        sendto(m_fd, datagram.data(), datagram.size(), 0, reinterpret_cast<sockaddr *>(&to), sizeof to);
    }
    bool IsStopping() const { return m_stopping; }
    std::vector<Received> Commands()
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_commands;
    }
    /// The latest one of that kind.
    Received Last(std::uint16_t command)
    {
        Received last;
        for (const Received &got : Commands())
            last = got.command == command ? got : last;
        return last;
    }

private:
    void Run()
    {
        while (!m_stopping) {
            pollfd ready{m_fd, POLLIN, 0};
            if (poll(&ready, 1, 10) <= 0)
                continue;
            std::uint8_t datagram[1024];
            socklen_t length = sizeof m_peer;
            const ssize_t size =
                recvfrom(m_fd, datagram, sizeof datagram, 0, reinterpret_cast<sockaddr *>(&m_peer), &length);
            if (size < static_cast<ssize_t>(nuvark::gige::kHeaderSize))
                continue;
            Received received{datagram[1], std::uint16_t(datagram[2] << 8 | datagram[3]),
                              std::uint16_t(datagram[6] << 8 | datagram[7]),
                              std::vector<std::uint8_t>(datagram + 8, datagram + size)};
            {
                const std::lock_guard<std::mutex> lock(m_mutex);
                m_commands.push_back(received);
            }
            m_script(*this, received);
        }
    }

    const Script m_script;
    int m_fd = -1;
    sockaddr_in m_peer{};
    std::atomic<bool> m_stopping{false};
    std::mutex m_mutex;
    std::vector<Received> m_commands;
    std::thread m_thread;
};

/// A scripted device with plain registers. Test packets are sent as far as `path` says, and the bit that asks for them
/// falls back.
class RegisterCamera {
public:
    enum class Reaction { Answer, Stay, Refuse, Deny, Busy, PutOff };
    static constexpr std::uint16_t kPutOffMs = 10000; ///< that it says to need then
    /// What to do with a command; on the device's thread.
    using Hook = std::function<Reaction(std::uint16_t command, std::uint32_t address)>;

    explicit RegisterCamera(const char *address = kScriptedAddress)
    {
        m_registers = {{0x0904, 1}, {0x0934, 0x2}, {0x0938, 3000}, {kPacketSize, 1500}};
        m_device.emplace(
            [this](ScriptedDevice &device, const ScriptedDevice::Received &got) { OnCommand(device, got); }, address);
    }
    ~RegisterCamera() { m_device.reset(); }

    void SetHook(Hook hook)
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_hook = std::move(hook);
    }
    std::uint32_t Get(std::uint32_t address)
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_registers[address];
    }
    void Set(std::uint32_t address, std::uint32_t value)
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_registers[address] = value;
    }
    std::vector<ScriptedDevice::Received> Commands() { return m_device->Commands(); }
    /// Commands that begin at that address.
    std::size_t Count(std::uint32_t address)
    {
        std::size_t count = 0;
        for (const ScriptedDevice::Received &got : Commands())
            count += orv::ByteReader({got.payload.data(), got.payload.size()}).U32() == address ? 1 : 0;
        return count;
    }

    /// IP packets that get through to the host, and what sizes the camera takes.
    struct Path {
        std::uint32_t largest = 0; ///< 0: no test packets
        std::uint32_t least = 0;
        std::uint32_t step = 1;
        bool losesEverySecond = false;
    };
    /// Of a command whose later registers are refused, how many were written before.
    std::atomic<bool> tellsHowFar{false};
    void SetPath(const Path &path)
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_path = path;
    }

    static constexpr std::uint32_t kPrivilege = 0x0A00;
    static constexpr std::uint32_t kStreamPort = 0x0D00;
    static constexpr std::uint32_t kPacketSize = 0x0D04;
    static constexpr std::uint32_t kStreamAddress = 0x0D18;

private:
    using Command = nuvark::gige::Command;
    using Outcome = std::optional<std::uint16_t>; ///< a status; nothing when no answer is to be sent
    struct Exchange {
        ScriptedDevice &device;
        const ScriptedDevice::Received &got;
        orv::ByteReader in;
        orv::ByteWriter out;
    };

    void OnCommand(ScriptedDevice &device, const ScriptedDevice::Received &got)
    {
        Exchange e{device, got, orv::ByteReader({got.payload.data(), got.payload.size()}), {}};
        const auto command = static_cast<Command>(got.command);
        const Outcome outcome = command == Command::ReadRegister    ? ReadRegisters(e)
                                : command == Command::WriteRegister ? WriteRegisters(e)
                                                                    : UseMemory(e);
        if (outcome)
            device.Answer(*outcome, static_cast<std::uint16_t>(got.command + 1), got.id, e.out.Take());
    }
    /// What the hook wants done about one register.
    Outcome React(const Exchange &e, std::uint32_t address)
    {
        Hook hook;
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            hook = m_hook;
        }
        const Reaction reaction = hook ? hook(e.got.command, address) : Reaction::Answer;
        if (reaction == Reaction::PutOff)
            e.device.Answer(0, nuvark::gige::kPendingAcknowledge, e.got.id, {0, 0, kPutOffMs >> 8, kPutOffMs & 0xFF});
        const std::map<Reaction, Outcome> kStatuses = {{Reaction::Answer, 0},
                                                       {Reaction::Refuse, 0x8003},
                                                       {Reaction::Deny, nuvark::gige::kStatusAccessDenied},
                                                       {Reaction::Busy, nuvark::gige::kStatusBusy}};
        const auto status = kStatuses.find(reaction);
        return status == kStatuses.end() ? std::nullopt : status->second;
    }
    Outcome ReadRegisters(Exchange &e)
    {
        Outcome outcome = 0;
        while (outcome == 0 && e.in.Rest().size >= 4) {
            const std::uint32_t address = e.in.U32();
            outcome = React(e, address);
            if (outcome == 0)
                e.out.U32(Get(address));
        }
        return outcome;
    }
    Outcome WriteRegisters(Exchange &e)
    {
        Outcome outcome = 0;
        std::uint32_t done = 0;
        while (outcome == 0 && e.in.Rest().size >= 8) {
            const std::uint32_t address = e.in.U32();
            const std::uint32_t value = e.in.U32();
            outcome = React(e, address);
            if (outcome == 0 && address == kPacketSize)
                outcome = SetPacketSize(e.device, value) ? 0 : 0x8005;
            else if (outcome == 0)
                Set(address, value);
            done += outcome == 0 ? 1 : 0;
        }
        if (outcome == 0 || tellsHowFar)
            e.out.U32(done);
        return outcome;
    }
    Outcome UseMemory(Exchange &e)
    {
        std::uint32_t address = e.in.U32();
        const Outcome outcome = React(e, address);
        if (outcome != 0)
            return outcome;
        if (e.got.command == static_cast<std::uint16_t>(Command::ReadMemory)) {
            e.out.U32(address);
            for (const std::uint32_t end = address + (e.in.U32() & 0xFFFF); address < end; address += 4)
                e.out.U32(Get(address));
            return outcome;
        }
        e.out.U32(static_cast<std::uint32_t>(e.in.Rest().size));
        for (; e.in.Rest().size >= 4; address += 4)
            Set(address, e.in.U32());
        return outcome;
    }

    bool SetPacketSize(ScriptedDevice &device, std::uint32_t value)
    {
        Path path;
        bool isLost = false;
        const std::uint32_t size = value & 0xFFFF;
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            path = m_path;
            isLost = size > path.largest || (path.losesEverySecond && ++m_onTheWay % 2 == 0);
        }
        if (size < path.least || size % path.step != 0)
            return false;
        Set(kPacketSize, value & 0x7FFFFFFF);
        if ((value & 0x80000000) != 0 && !isLost)
            device.Send(Get(kStreamAddress), static_cast<std::uint16_t>(Get(kStreamPort)), size - 28);
        return true;
    }

    std::mutex m_mutex;
    Path m_path;
    int m_onTheWay = 0; ///< test packets
    std::map<std::uint32_t, std::uint32_t> m_registers;
    Hook m_hook;
    std::optional<ScriptedDevice> m_device;
};
