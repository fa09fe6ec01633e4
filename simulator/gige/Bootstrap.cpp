#include "simulator/gige/Bootstrap.h"

#include <algorithm>
#include <utility>

namespace orvsim {
namespace {

using State = BootstrapState;

constexpr std::uint32_t kPersistentAddressOn = 0x1; // of the network configuration
constexpr std::uint32_t kLinkLocalOn = 0x4;
constexpr std::uint32_t kTickFrequency = 1000000000;
constexpr std::uint32_t kFireTestPacketBit = 0x80000000; // of SCPS
constexpr std::uint32_t kDontFragmentBit = 0x40000000;
constexpr std::uint32_t kInterfaceBits = 0x000f0000; // of MCP and SCP: only interface 0 is there
constexpr std::uint32_t kStreamOptions = 0x0000000d; // extended chunk data, all-in, resend destination
constexpr std::uint32_t kAlwaysOnOptions = 0x1;      // chunks are always sent in the extended form
/// Names, heartbeat off, link speed, controller's address, discovery delay, extended status codes 1.1, actions from
/// everybody; ACTION, PENDING_ACK, EVENTDATA, EVENT, PACKETRESEND, WRITEMEM, several registers at once.
constexpr std::uint32_t kGvcpCapability = 0xf9d0007f;
constexpr std::uint32_t kStatusCodes2Capability = 0x00040000;

/// Registers that version 1.x devices do not have are left out there.
enum class Since { Version1, Version2 };

struct ConstantRow {
    std::uint32_t address;
    std::uint32_t value;
    Since since;
};
constexpr ConstantRow kConstants[] = {
    {0x0004, 0x80000001, Since::Version1},     // big-endian, transmitter, one link, UTF-8
    {0x0010, 0x00000007, Since::Version1},     // persistent address, DHCP, link-local
    {0x0600, 1, Since::Version1},              // network interfaces
    {0x0900, 1, Since::Version1},              // message channels
    {0x0904, 1, Since::Version1},              // stream channels
    {0x0908, 1, Since::Version1},              // action signals
    {0x0910, 1, Since::Version2},              // active links
    {0x092C, 0xC0000000, Since::Version2},     // SCSP is there, 16-bit ids too
    {0x0930, 0x80000000, Since::Version2},     // MCSP is there
    {0x093C, 0, Since::Version1},              // tick frequency, high word
    {0x0940, kTickFrequency, Since::Version1}, // and low word
    {0x0958, 200, Since::Version2},            // ms, longest command without PENDING_ACK
    {0x0964, 1, Since::Version2},              // single link
    {0x0968, 0, Since::Version2},              //
};

struct WordRow {
    std::uint32_t address;
    std::uint32_t State::*word;             // null: write-only
    Outcome (*set)(State &, std::uint32_t); // null: read-only
    Since since = Since::Version1;
};

/// A stream or event may go to the controller or to a group that chose to listen, to nobody else.
Outcome SetDestination(State &state, std::uint32_t State::*word, std::uint32_t value, std::uint32_t change)
{
    const bool isOwn = state.IsControlled() && value == state.controllerAddress;
    if (value != 0 && !isOwn && !IsMulticast(value))
        return Outcome::InvalidValue;
    state.*word = value;
    state.changes |= change;
    return Outcome::Ok;
}

Outcome SetPort(State &state, std::uint32_t State::*word, std::uint32_t value, std::uint32_t change)
{
    if ((value & kInterfaceBits) != 0)
        return Outcome::InvalidValue;
    state.*word = value & 0xffff;
    state.changes |= change;
    return Outcome::Ok;
}

Outcome SetPacketSize(State &state, std::uint32_t value)
{
    const std::uint32_t size = std::clamp(value & 0xffff, kMinPacketSize, kMaxPacketSize) / kPacketSizeStep;
    state.streamPacketSize = (value & kDontFragmentBit) | (size * kPacketSizeStep);
    state.changes |= kStreamChanged;
    if ((value & kFireTestPacketBit) != 0)
        state.changes |= kFireTestPacket;
    return Outcome::Ok;
}

/// The caller has been found entitled to it. Switch-over is not offered: its bits stay 0.
Outcome SetPrivilege(State &state, std::uint32_t value)
{
    if (!state.caller)
        return Outcome::ReadOnly;
    const std::uint32_t wanted = (value & kControlExclusive) != 0 ? kControlExclusive : value & kControlShared;
    if (wanted == 0) {
        if (state.IsControlled())
            state.ReleaseControl();
        return Outcome::Ok;
    }
    if (!state.IsControlled())
        state.changes |= kControlTaken;
    state.privilege = wanted;
    state.controllerAddress = state.caller->address;
    state.controllerPort = state.caller->port;
    return Outcome::Ok;
}

Outcome SetTimestampControl(State &state, std::uint32_t value)
{
    if ((value & 2) != 0)
        state.changes |= kLatchTimestamp;
    if ((value & 1) != 0)
        state.changes |= kResetTimestamp;
    return Outcome::Ok;
}

Outcome SetStreamConfiguration(State &state, std::uint32_t value)
{
    if ((value & ~state.streamOptions) != 0)
        return Outcome::InvalidValue;
    state.streamConfiguration = value | kAlwaysOnOptions;
    state.changes |= kStreamChanged;
    return Outcome::Ok;
}

template <std::uint32_t State::*word, std::uint32_t mask = 0xffffffff>
Outcome SetMasked(State &state, std::uint32_t value)
{
    state.*word = value & mask;
    return Outcome::Ok;
}

constexpr std::uint32_t kGvcpOptions =
    kConfigHeartbeatOff | kConfigPending | kConfigStatusCodes1 | kConfigUnconditionalAction | kConfigStatusCodes2;
constexpr std::uint32_t kGvspOptions = 0x40000000; // 64-bit block ids

const WordRow kWords[] = {
    {0x0014, &State::networkConfiguration,
     [](State &s, std::uint32_t v) {
         s.networkConfiguration = (v & 0x3) | kLinkLocalOn;
         return Outcome::Ok;
     }},
    {0x0024, &State::address, nullptr},
    {0x0034, &State::subnetMask, nullptr},
    {0x0044, &State::gateway, nullptr},
    {0x064C, &State::persistentAddress, SetMasked<&State::persistentAddress>},
    {0x065C, &State::persistentMask, SetMasked<&State::persistentMask>},
    {0x066C, &State::persistentGateway, SetMasked<&State::persistentGateway>},
    {0x090C, nullptr, SetMasked<&State::actionDeviceKey>},
    {0x0938, &State::heartbeatMs,
     [](State &s, std::uint32_t v) {
         s.heartbeatMs = std::max(v, kMinHeartbeatMs);
         return Outcome::Ok;
     }},
    {0x0944, nullptr, SetTimestampControl},
    {0x0948, &State::latchedHigh, nullptr},
    {0x094C, &State::latchedLow, nullptr},
    {0x0950, &State::discoveryDelayMs,
     [](State &s, std::uint32_t v) {
         s.discoveryDelayMs = std::min(v & 0xffff, kMaxDiscoveryDelayMs);
         return Outcome::Ok;
     }},
    {0x0954, &State::gvcpConfiguration,
     [](State &s, std::uint32_t v) {
         s.gvcpConfiguration = v & kGvcpOptions;
         s.changes |= kStreamChanged; // the packets' status codes
         return Outcome::Ok;
     }},
    {0x0960, &State::gvspConfiguration,
     [](State &s, std::uint32_t v) {
         s.gvspConfiguration = v & kGvspOptions;
         s.changes |= kStreamChanged | kMessagesChanged;
         return Outcome::Ok;
     },
     Since::Version2},
    {kRegControlPrivilege, &State::privilege, SetPrivilege},
    {0x0A04, &State::controllerPort, nullptr},
    {0x0A14, &State::controllerAddress, nullptr},
    {0x0B00, &State::messagePort,
     [](State &s, std::uint32_t v) { return SetPort(s, &State::messagePort, v, kMessagesChanged); }},
    {0x0B10, &State::messageAddress,
     [](State &s, std::uint32_t v) { return SetDestination(s, &State::messageAddress, v, kMessagesChanged); }},
    {0x0B14, &State::messageTimeoutMs,
     [](State &s, std::uint32_t v) {
         s.messageTimeoutMs = std::min(v, kMaxMessageTimeoutMs);
         s.changes |= kMessagesChanged;
         return Outcome::Ok;
     }},
    {0x0B18, &State::messageRetries,
     [](State &s, std::uint32_t v) {
         s.messageRetries = std::min(v, kMaxMessageRetries);
         s.changes |= kMessagesChanged;
         return Outcome::Ok;
     }},
    {0x0B1C, &State::messageSourcePort, nullptr, Since::Version2},
    {0x0D00, &State::streamPort,
     [](State &s, std::uint32_t v) { return SetPort(s, &State::streamPort, v, kStreamChanged); }},
    {kRegStreamPacketSize, &State::streamPacketSize, SetPacketSize},
    {0x0D08, &State::streamDelay,
     [](State &s, std::uint32_t v) {
         s.streamDelay = v;
         s.changes |= kStreamChanged;
         return Outcome::Ok;
     }},
    {0x0D18, &State::streamAddress,
     [](State &s, std::uint32_t v) { return SetDestination(s, &State::streamAddress, v, kStreamChanged); }},
    {0x0D1C, &State::streamSourcePort, nullptr, Since::Version2},
    {0x0D20, &State::streamOptions, nullptr, Since::Version2},
    {0x0D24, &State::streamConfiguration, SetStreamConfiguration, Since::Version2},
    {0x9800, &State::actionGroupKey, SetMasked<&State::actionGroupKey>},
    {0x9804, &State::actionGroupMask, SetMasked<&State::actionGroupMask>},
};

/// Parts of 0x0000 to 0x00F7 without a meaning: they belong to the discovery acknowledge and read as zero.
constexpr std::uint32_t kReservedStretches[] = {0x0018, 0x0028, 0x0038};
constexpr std::uint32_t kReservedBytes = 12;

/// What outlasts a reset: settings that are kept without power, and what is so because of where the device is.
constexpr std::uint32_t State::*kLastingWords[] = {
    &State::address,           &State::subnetMask,     &State::gateway,           &State::networkConfiguration,
    &State::persistentAddress, &State::persistentMask, &State::persistentGateway, &State::messageSourcePort,
    &State::streamSourcePort,
};

/// Locally administered, and another one for every serial number and address.
std::uint64_t MacOf(const CameraOptions &camera, const GigeOptions &gige)
{
    std::uint64_t hash = 0xcbf29ce484222325; // FNV-1a
    const std::string identity = camera.model + '/' + camera.serial + '/' + std::to_string(gige.address);
    for (const char letter : identity)
        hash = (hash ^ static_cast<std::uint8_t>(letter)) * 0x100000001b3;
    return 0x020000000000 | (hash & 0xffffffffff);
}

} // namespace

Bootstrap::Bootstrap(const CameraOptions &camera, const GigeOptions &gige)
    : m_camera(camera), m_firstNetwork{gige.address, gige.subnetMask, 0}, m_firstPacketSize(gige.packetSize),
      m_mac(MacOf(camera, gige)), m_isLegacy(gige.legacy), m_hasParts(gige.multiPart && !gige.legacy)
{
    SetNetwork(m_firstNetwork);
    ResetState();
}

void Bootstrap::AddTo(RegisterSpace &space, const UserName &userName)
{
    AddIdentity(space, userName);
    AddConstants(space);
    AddWords(space);
}

void Bootstrap::AddIdentity(RegisterSpace &space, const UserName &userName)
{
    const auto addText = [&space](std::uint32_t address, std::uint32_t length, const std::string &text) {
        space.AddText(address, length, RegisterAccess::ReadOnly, [text] { return text; });
    };
    addText(0x0048, 32, m_camera.vendor);
    addText(0x0068, 32, m_camera.model);
    addText(0x0088, 32, m_camera.deviceVersion);
    addText(0x00A8, 48, m_camera.manufacturerInfo);
    addText(0x00D8, 16, m_camera.serial);
    space.AddText(kRegUserName, 16, RegisterAccess::ReadWrite, userName.get, userName.set);
    space.AddText(0x0200, 512, RegisterAccess::ReadOnly, [this] {
        orv::MutexLock lock(m_mutex);
        return m_url;
    });
    addText(0x0400, 512, {});
}

void Bootstrap::AddConstants(RegisterSpace &space)
{
    const auto add = [&space](std::uint32_t address, std::uint32_t value) {
        space.AddNumber(address, 4, RegisterAccess::ReadOnly, [value] { return value; });
    };
    for (const ConstantRow &row : kConstants)
        if (row.since == Since::Version1 || !m_isLegacy)
            add(row.address, row.value);
    add(0x0000, m_isLegacy ? 0x00010002 : m_hasParts ? 0x00020001 : 0x00020000);
    add(0x0008, static_cast<std::uint32_t>(m_mac >> 32));
    add(0x000C, static_cast<std::uint32_t>(m_mac));
    add(0x0670, static_cast<std::uint32_t>(m_camera.linkMbps > 0 ? m_camera.linkMbps : 1000));
    add(0x0934, kGvcpCapability | (m_isLegacy ? 0 : kStatusCodes2Capability));
    for (const std::uint32_t address : kReservedStretches)
        space.AddBlock(address, std::string(kReservedBytes, '\0'));
}

void Bootstrap::AddWords(RegisterSpace &space)
{
    for (const WordRow &row : kWords) {
        if (row.since == Since::Version2 && m_isLegacy)
            continue;
        std::function<std::uint64_t()> get;
        std::function<Outcome(std::uint64_t)> set;
        if (row.word != nullptr)
            get = [this, &row] {
                orv::MutexLock lock(m_mutex);
                return m_state.*row.word;
            };
        if (row.set != nullptr)
            set = [this, &row](std::uint64_t value) {
                orv::MutexLock lock(m_mutex);
                return row.set(m_state, static_cast<std::uint32_t>(value));
            };
        const RegisterAccess access = row.word == nullptr  ? RegisterAccess::WriteOnly
                                      : row.set == nullptr ? RegisterAccess::ReadOnly
                                                           : RegisterAccess::ReadWrite;
        space.AddNumber(row.address, 4, access, get, set);
    }
}

void Bootstrap::SetUrl(const std::string &url)
{
    orv::MutexLock lock(m_mutex);
    m_url = url;
}

void Bootstrap::SetSourcePorts(std::uint16_t messages, std::uint16_t stream)
{
    orv::MutexLock lock(m_mutex);
    m_state.messageSourcePort = messages;
    m_state.streamSourcePort = stream;
}

BootstrapState Bootstrap::State() const
{
    orv::MutexLock lock(m_mutex);
    return m_state;
}

std::uint32_t Bootstrap::TakeChanges()
{
    orv::MutexLock lock(m_mutex);
    return std::exchange(m_state.changes, 0);
}

void Bootstrap::SetCaller(const std::optional<Endpoint> &caller)
{
    orv::MutexLock lock(m_mutex);
    m_state.caller = caller;
}

void Bootstrap::Request(std::uint32_t changes)
{
    orv::MutexLock lock(m_mutex);
    m_state.changes |= changes;
}

void Bootstrap::ReleaseControl()
{
    orv::MutexLock lock(m_mutex);
    m_state.ReleaseControl();
}

void Bootstrap::ResetState()
{
    orv::MutexLock lock(m_mutex);
    BootstrapState fresh;
    SetPacketSize(fresh, kDontFragmentBit | std::min<std::uint32_t>(m_firstPacketSize, 0xffff));
    for (const auto word : kLastingWords)
        fresh.*word = m_state.*word;
    fresh.isLegacy = m_isLegacy;
    fresh.streamOptions = kStreamOptions | (m_hasParts ? kStreamMultiPart : 0);
    fresh.streamConfiguration = kAlwaysOnOptions | (m_hasParts ? kStreamMultiPart : 0);
    fresh.caller = m_state.caller;
    fresh.changes = m_state.changes | kStreamChanged | kMessagesChanged;
    if (m_state.IsControlled())
        fresh.changes |= kControlLost;
    m_state = fresh;
}

void Bootstrap::SetLatchedTimestamp(std::uint64_t ticks)
{
    orv::MutexLock lock(m_mutex);
    m_state.latchedHigh = static_cast<std::uint32_t>(ticks >> 32);
    m_state.latchedLow = static_cast<std::uint32_t>(ticks);
}

void Bootstrap::SetNetwork(const NetworkAddress &network)
{
    orv::MutexLock lock(m_mutex);
    m_state.address = network.address;
    m_state.subnetMask = network.subnetMask;
    m_state.gateway = network.gateway;
}

NetworkAddress Bootstrap::ConfiguredNetwork() const
{
    orv::MutexLock lock(m_mutex);
    if ((m_state.networkConfiguration & kPersistentAddressOn) != 0 && m_state.persistentAddress != 0)
        return {m_state.persistentAddress, m_state.persistentMask, m_state.persistentGateway};
    return m_firstNetwork;
}

} // namespace orvsim
