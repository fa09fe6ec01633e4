// What the device does for each command.
#include "simulator/gige/ControlServer.h"

#include "simulator/gige/GvspPackets.h"

#include <algorithm>

namespace orvsim {
namespace {

constexpr bool IsAligned(std::size_t number)
{
    return number % 4 == 0;
}

} // namespace

const ControlServer::HandlerRow ControlServer::kHandlers[] = {
    {GvcpCommand::Discovery, &ControlServer::Discover, false},
    {GvcpCommand::ForceIp, &ControlServer::ForceIp, false},
    {GvcpCommand::PacketResend, &ControlServer::Resend, false},
    {GvcpCommand::ReadRegister, &ControlServer::ReadRegisters, true},
    {GvcpCommand::WriteRegister, &ControlServer::WriteRegisters, true},
    {GvcpCommand::ReadMemory, &ControlServer::ReadMemory, true},
    {GvcpCommand::WriteMemory, &ControlServer::WriteMemory, true},
    {GvcpCommand::Action, &ControlServer::Act, true},
};

const ControlServer::HandlerRow *ControlServer::FindHandler(const ParsedCommand &command)
{
    for (const HandlerRow &row : kHandlers)
        if (command.Is(row.command))
            return &row;
    return nullptr;
}

bool ControlServer::IsForeign(const Endpoint &from) const
{
    const BootstrapState state = m_bootstrap.State();
    return ((from.address ^ state.address) & state.subnetMask) != 0;
}

bool ControlServer::MayRead(const Endpoint &from) const
{
    const BootstrapState state = m_bootstrap.State();
    return (state.privilege & kControlExclusive) == 0 || state.IsController(from);
}

/// Without a controller only control itself can be taken.
bool ControlServer::MayWrite(const Endpoint &from, std::uint32_t address, std::size_t size) const
{
    const BootstrapState state = m_bootstrap.State();
    if (state.IsControlled())
        return state.IsController(from);
    return address == kRegControlPrivilege && size == 4;
}

ControlServer::Answer ControlServer::Discover(const Request &request)
{
    Answer answer;
    answer.payload.resize(kDiscoveryDataSize);
    answer.status = StatusOf(m_device.Read(0, kDiscoveryDataSize, answer.payload.data()));
    answer.isBroadcast = request.command.Has(kFlagBroadcastAnswer) && IsForeign(request.from);
    const std::uint32_t delayMs = m_bootstrap.State().discoveryDelayMs;
    answer.delayMs = delayMs > 0 ? m_dice.Number(delayMs + 1) : 0;
    return answer;
}

ControlServer::Answer ControlServer::ForceIp(const Request &request)
{
    Answer answer;
    answer.isSilent = true;
    const auto wanted = ParseForceIp(request.command.payload);
    if (!wanted || wanted->mac != m_bootstrap.Mac() || m_bootstrap.State().IsControlled())
        return answer;
    const bool isRestart = wanted->address == 0;
    const NetworkAddress network = isRestart ? m_bootstrap.ConfiguredNetwork()
                                             : NetworkAddress{wanted->address, wanted->subnetMask, wanted->gateway};
    if (!m_device.MoveTo(network))
        return answer;
    m_bootstrap.SetNetwork(network);
    answer.isSilent = isRestart;
    answer.isBroadcast = request.command.Has(kFlagBroadcastAnswer) && IsForeign(request.from);
    return answer;
}

/// The controller may ask from any of its ports; others only where the stream goes to a group, and then the packets go
/// to that group: an address that did not take control gets none.
ControlServer::Answer ControlServer::Resend(const Request &request)
{
    Answer answer;
    answer.isSilent = true;
    const auto wanted = ParseResend(request.command.payload, request.command.Has(kFlagExtendedIds));
    const BootstrapState state = m_bootstrap.State();
    const StreamTarget target = state.Stream();
    const bool isControllers = state.IsControlled() && request.from.address == state.controllerAddress;
    const bool isGroups = IsMulticast(target.to.address) && !target.resendToRequester;
    if (!wanted || wanted->channel != 0 || target.to.port == 0 || !(isControllers || isGroups))
        return answer;
    if (m_resendBudget.Take(PacketsOf(wanted->request, target), request.now))
        m_device.Resend(wanted->request, request.from);
    return answer;
}

/// At most: packets that the block has, and refusals for some of those that it has not.
double ControlServer::PacketsOf(const ResendRequest &request, const StreamTarget &target)
{
    const std::size_t overhead = gvsp::kIpAndUdpBytes + gvsp::HeaderBytes(target.extendedIds);
    const std::uint64_t count = m_device.PayloadSize() / (target.packetSize - overhead) + 3;
    const std::uint64_t first = request.firstPacket;
    const std::uint64_t end = std::max(first, std::uint64_t{request.lastPacket} + 1);
    const std::uint64_t endThere = std::clamp(count, first, end);
    const std::uint64_t refusals =
        request.lastPacket == kToBlockEnd ? 1 : std::min<std::uint64_t>(end - endThere, kMostRefusals);
    return static_cast<double>(std::max<std::uint64_t>(endThere - first + refusals, 1));
}

ControlServer::Answer ControlServer::ReadRegisters(const Request &request)
{
    const orv::ByteSpan list = request.command.payload;
    if (list.size == 0 || !IsAligned(list.size) || list.size / 4 > kMaxReadRegisters)
        return Failure(GvcpStatus::InvalidHeader);
    if (!MayRead(request.from))
        return Failure(GvcpStatus::AccessDenied);
    Answer answer;
    orv::ByteReader in(list);
    for (std::size_t i = 0; i < list.size / 4; ++i) {
        std::uint8_t value[4];
        const std::uint32_t address = in.U32();
        answer.status =
            IsAligned(address) ? StatusOf(m_device.Read(address, sizeof value, value)) : GvcpStatus::BadAlignment;
        if (answer.status != GvcpStatus::Success)
            break; // the values before it tell which one failed
        answer.payload.insert(answer.payload.end(), value, value + sizeof value);
    }
    return answer;
}

ControlServer::Answer ControlServer::WriteRegisters(const Request &request)
{
    const orv::ByteSpan list = request.command.payload;
    const std::size_t count = list.size / 8;
    if (count == 0 || list.size % 8 != 0 || count > kMaxWriteRegisters)
        return Failure(GvcpStatus::InvalidHeader);
    Answer answer;
    std::size_t done = 0;
    for (; done < count && answer.status == GvcpStatus::Success; ++done) {
        orv::ByteReader in({list.data + 8 * done, 8});
        const std::uint32_t address = in.U32();
        answer.status = Write(request, address, in.Rest(), answer.busyMs);
        if (answer.status != GvcpStatus::Success)
            break;
    }
    if (answer.status != GvcpStatus::AccessDenied)
        answer.payload = IndexPayload(static_cast<std::uint16_t>(done));
    return answer;
}

ControlServer::Answer ControlServer::ReadMemory(const Request &request)
{
    orv::ByteReader in(request.command.payload);
    const std::uint32_t address = in.U32();
    in.Skip(2);
    const std::uint16_t count = in.U16();
    if (!in.Ok())
        return Failure(GvcpStatus::InvalidHeader);
    if (!MayRead(request.from))
        return Failure(GvcpStatus::AccessDenied);
    if (!IsAligned(address) || !IsAligned(count))
        return Failure(GvcpStatus::BadAlignment);
    if (count == 0 || count > kMaxGvcpData)
        return Failure(GvcpStatus::InvalidParameter);
    Answer answer;
    answer.payload.assign(request.command.payload.data, request.command.payload.data + 4);
    answer.payload.resize(4U + count);
    answer.status = StatusOf(m_device.Read(address, count, answer.payload.data() + 4));
    if (answer.status != GvcpStatus::Success)
        answer.payload.clear();
    return answer;
}

ControlServer::Answer ControlServer::WriteMemory(const Request &request)
{
    orv::ByteReader in(request.command.payload);
    const std::uint32_t address = in.U32();
    const orv::ByteSpan bytes = in.Rest();
    if (!in.Ok() || bytes.size == 0 || bytes.size > kMaxGvcpData)
        return Failure(GvcpStatus::InvalidHeader);
    Answer answer;
    answer.status = Write(request, address, bytes, answer.busyMs);
    const bool isDone = answer.status == GvcpStatus::Success;
    if (answer.status != GvcpStatus::AccessDenied)
        answer.payload = IndexPayload(isDone ? static_cast<std::uint16_t>(bytes.size) : 0);
    return answer;
}

GvcpStatus ControlServer::Write(const Request &request, std::uint32_t address, orv::ByteSpan bytes,
                                std::int64_t &busyMs)
{
    if (!MayWrite(request.from, address, bytes.size))
        return GvcpStatus::AccessDenied;
    if (!IsAligned(address) || !IsAligned(bytes.size))
        return GvcpStatus::BadAlignment;
    m_bootstrap.SetCaller(request.from);
    const WriteResult result = m_device.Write(address, static_cast<std::uint32_t>(bytes.size), bytes.data);
    m_bootstrap.SetCaller({});
    ApplyChanges(request.now);
    busyMs += result.busyMs;
    return StatusOf(result.outcome);
}

/// Answered only by a device that the keys mean, that may act and that does.
ControlServer::Answer ControlServer::Act(const Request &request)
{
    Answer answer;
    answer.isSilent = true;
    const bool isScheduled = request.command.Has(kFlagScheduled);
    const auto action = ParseAction(request.command.payload, isScheduled);
    const BootstrapState state = m_bootstrap.State();
    const bool mayAct = state.IsController(request.from) || (state.gvcpConfiguration & kConfigUnconditionalAction) != 0;
    if (!action || !mayAct || action->deviceKey != state.actionDeviceKey || action->groupKey != state.actionGroupKey ||
        (action->groupMask & state.actionGroupMask) == 0)
        return answer;
    if (isScheduled) { // there is no common clock that the time could be of
        const bool knowsCode = (state.gvcpConfiguration & kConfigStatusCodes2) != 0;
        answer.isSilent = false;
        answer.status = knowsCode ? GvcpStatus::NoReferenceTime : GvcpStatus::NotImplemented;
        return answer;
    }
    answer.isSilent = !m_device.RunAction();
    return answer;
}

} // namespace orvsim
