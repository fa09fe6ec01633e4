#include "simulator/gige/GigeFeatures.h"

#include "simulator/gige/BootstrapState.h"

#include <string>
#include <utility>
#include <vector>

namespace orvsim {
namespace {

constexpr FeatureAccess kRead = FeatureAccess::ReadOnly;
constexpr FeatureAccess kReadWrite = FeatureAccess::ReadWrite;
constexpr FeatureAccess kWrite = FeatureAccess::WriteOnly;

const char *const kTransport = "TransportLayerControl";
const char *const kAction = "ActionControl";

enum Trait : unsigned {
    kPlain = 0,
    kVolatile = 1,     // changes by itself
    kLockable = 2,     // while TLParamsLocked
    kVersion2 = 4,     // not in legacy cameras
    kOfAction = 8,     // belongs to ActionControl
    kHidden = 16,      // only for formulas
    kOfStream = 32,    // chosen by GevStreamChannelSelector
    kOfInterface = 64, // chosen by GevInterfaceSelector
    kOfParts = 128,    // only of cameras that send frames of two parts
    kCustom = 256      // no name of the standard feature naming
};

/// A number in a bootstrap register of 4 bytes.
struct NumberRow {
    const char *name;
    FeatureAccess access;
    Visibility visibility;
    std::uint32_t address;
    int lowBit;
    int highBit;
    const char *representation;
    const char *unit;
    unsigned traits;
    const char *toolTip;
    std::int64_t minimum = 0;
    std::int64_t maximum = 0; ///< 0: what the bits hold
};

constexpr Visibility kExpert = Visibility::Expert;
constexpr Visibility kGuru = Visibility::Guru;
const char *const kIp = "IPV4Address";
const char *const kHex = "HexNumber";
const char *const kNumber = "PureNumber";

const NumberRow kNumbers[] = {
    {"GevVersionMajor", kRead, kExpert, 0x0000, 16, 31, kNumber, "", kPlain,
     "Major version of the GigE Vision standard that the device follows."},
    {"GevVersionMinor", kRead, kExpert, 0x0000, 0, 15, kNumber, "", kPlain,
     "Minor version of the GigE Vision standard that the device follows."},
    {"GevCurrentIPAddress", kRead, Visibility::Beginner, 0x0024, 0, 31, kIp, "", kVolatile | kOfInterface,
     "Address that the device has now."},
    {"GevCurrentSubnetMask", kRead, Visibility::Beginner, 0x0034, 0, 31, kIp, "", kVolatile | kOfInterface,
     "Subnet mask that the device has now."},
    {"GevCurrentDefaultGateway", kRead, Visibility::Beginner, 0x0044, 0, 31, kIp, "", kVolatile | kOfInterface,
     "Gateway that the device has now; 0 when there is none."},
    {"GevPersistentIPAddress", kReadWrite, kExpert, 0x064C, 0, 31, kIp, "", kOfInterface,
     "Address that the device takes when GevCurrentIPConfigurationPersistentIP is on."},
    {"GevPersistentSubnetMask", kReadWrite, kExpert, 0x065C, 0, 31, kIp, "", kOfInterface,
     "Subnet mask that goes with GevPersistentIPAddress."},
    {"GevPersistentDefaultGateway", kReadWrite, kExpert, 0x066C, 0, 31, kIp, "", kOfInterface,
     "Gateway that goes with GevPersistentIPAddress."},
    {"GevLinkSpeed", kRead, kExpert, 0x0670, 0, 31, kNumber, "Mbps", kOfInterface, "Speed of the link."},
    {"GevNumberOfInterfaces", kRead, kExpert, 0x0600, 0, 31, kNumber, "", kPlain, "Network interfaces of the device."},
    {"GevMessageChannelCount", kRead, kExpert, 0x0900, 0, 31, kNumber, "", kPlain, "Channels that events can take."},
    {"GevStreamChannelCount", kRead, kExpert, 0x0904, 0, 31, kNumber, "", kPlain, "Channels that images can take."},
    {"GevActiveLinkCount", kRead, kExpert, 0x0910, 0, 31, kNumber, "", kVersion2, "Links in use."},
    {"GevHeartbeatTimeout", kReadWrite, kGuru, 0x0938, 0, 31, "Linear", "ms", kPlain,
     "Silence after which the device takes control away from its controller.", kMinHeartbeatMs, 0xffffffff},
    {"GevDiscoveryAckDelay", kReadWrite, kGuru, 0x0950, 0, 15, "Linear", "ms", kPlain,
     "Answers to a search are put off by a random time up to this.", 0, kMaxDiscoveryDelayMs},
    {"GevGVCPPendingTimeout", kRead, kGuru, 0x0958, 0, 31, "Linear", "ms", kVersion2,
     "Longest time that a command takes without the device saying so."},
    {"GevPrimaryApplicationSocket", kRead, kGuru, 0x0A04, 0, 15, kNumber, "", kVolatile,
     "UDP port of the application in control; 0 when there is none."},
    {"GevPrimaryApplicationIPAddress", kRead, kGuru, 0x0A14, 0, 31, kIp, "", kVolatile,
     "Address of the application in control; 0 when there is none."},
    {"GevMCPHostPort", kReadWrite, kGuru, 0x0B00, 0, 15, kNumber, "", kPlain,
     "UDP port that events go to; 0 closes the message channel."},
    {"GevMCDA", kReadWrite, kGuru, 0x0B10, 0, 31, kIp, "", kPlain,
     "Address that events go to: the controller's own, or a multicast group."},
    {"GevMCTT", kReadWrite, kGuru, 0x0B14, 0, 31, "Linear", "ms", kPlain,
     "An event is sent again when it was not acknowledged for this long. 0: no acknowledge is asked for.", 0,
     kMaxMessageTimeoutMs},
    {"GevMCRC", kReadWrite, kGuru, 0x0B18, 0, 31, "Linear", "", kPlain,
     "How often an event is sent again at most. 0: no acknowledge is asked for.", 0, kMaxMessageRetries},
    {"GevMCSP", kRead, kGuru, 0x0B1C, 0, 15, kNumber, "", kVersion2, "UDP port that events come from."},
    {"GevSCPInterfaceIndex", kRead, kGuru, 0x0D00, 16, 19, kNumber, "", kOfStream,
     "Network interface that the stream leaves by."},
    {"GevSCPHostPort", kReadWrite, kGuru, 0x0D00, 0, 15, kNumber, "", kOfStream,
     "UDP port that images go to; 0 closes the stream channel."},
    {"GevSCPD", kReadWrite, kExpert, 0x0D08, 0, 31, "Linear", "ns", kOfStream,
     "Time from the start of one packet to the start of the next, in ticks of the device's clock, which are "
     "nanoseconds. 0: as fast as the link allows."},
    {"GevSCDA", kReadWrite, kGuru, 0x0D18, 0, 31, kIp, "", kOfStream,
     "Address that images go to: the controller's own, or a multicast group."},
    {"GevSCSP", kRead, kGuru, 0x0D1C, 0, 15, kNumber, "", kVersion2 | kOfStream, "UDP port that images come from."},
    {"GevTimestampValueHigh", kRead, kGuru, 0x0948, 0, 31, "", "", kVolatile | kHidden,
     "Upper half of the latched timestamp."},
    {"GevTimestampValueLow", kRead, kGuru, 0x094C, 0, 31, "", "", kVolatile | kHidden,
     "Lower half of the latched timestamp."},
    {"ActionDeviceKey", kWrite, kGuru, 0x090C, 0, 31, kHex, "", kOfAction,
     "Key that an action command must carry. It cannot be read back."},
    {"ActionGroupKey", kReadWrite, kGuru, 0x9800, 0, 31, kHex, "", kOfAction,
     "Group that an action command must name."},
    {"ActionGroupMask", kReadWrite, kGuru, 0x9804, 0, 31, kHex, "", kOfAction,
     "An action command must have at least one of these bits in its mask. 0: the action is off."},
};

/// One bit of a bootstrap register.
struct SwitchRow {
    const char *name;
    FeatureAccess access;
    Visibility visibility;
    std::uint32_t address;
    int bit;
    unsigned traits;
    const char *toolTip;
};
const SwitchRow kSwitches[] = {
    {"GevDeviceModeIsBigEndian", kRead, kGuru, 0x0004, 31, kPlain, "Whether the registers are big-endian."},
    {"GevCurrentIPConfigurationLLA", kRead, kExpert, 0x0014, 2, kOfInterface,
     "Link-local address as the last resort; always on."},
    {"GevCurrentIPConfigurationDHCP", kReadWrite, kExpert, 0x0014, 1, kOfInterface,
     "Whether the device asks a DHCP server for its address."},
    {"GevCurrentIPConfigurationPersistentIP", kReadWrite, kExpert, 0x0014, 0, kOfInterface,
     "Whether the device takes GevPersistentIPAddress with its next network configuration."},
    {"GevGVCPHeartbeatDisable", kReadWrite, kGuru, 0x0954, 0, kPlain,
     "Whether control is kept however long the controller is silent."},
    {"GevGVCPPendingAck", kReadWrite, kGuru, 0x0954, 1, kPlain,
     "Whether the device tells the host when a command takes long."},
    {"GevGVCPExtendedStatusCodes", kReadWrite, kGuru, 0x0954, 2, kPlain,
     "Whether the status codes of GigE Vision 1.1 are used for packets sent again or refused."},
    {"GevSCPSDoNotFragment", kReadWrite, kGuru, 0x0D04, 30, kOfStream,
     "Whether packets that are too long for the network are dropped there, not cut into pieces."},
    {"GevSCCFGExtendedChunkData", kRead, kGuru, 0x0D24, 0, kVersion2 | kOfStream,
     "Chunks travel behind an image, not in place of one; always on."},
    {"GevSCCFGAllInTransmission", kReadWrite, kGuru, 0x0D24, 2, kVersion2 | kLockable | kOfStream,
     "Whether a frame that fits one packet is sent as one packet."},
    {"GevSCCFGPacketResendDestination", kReadWrite, kGuru, 0x0D24, 3, kVersion2 | kLockable | kOfStream,
     "Whether packets sent again go to the socket that asked for them, not to the stream's destination."},
    {"GevSCCFGMultiPart", kReadWrite, kGuru, 0x0D24, 6, kVersion2 | kLockable | kOfStream | kOfParts | kCustom,
     "Whether frames have two parts: the image, and how far each of its pixels can be trusted. Then ids are extended "
     "and chunks do not go along."},
};

/// Some bits of a bootstrap register whose values have names.
struct ChoiceRow {
    const char *name;
    FeatureAccess access;
    std::uint32_t address;
    int lowBit;
    int highBit;
    unsigned traits;
    std::vector<EnumerationEntry> entries;
    const char *toolTip;
};
const std::vector<ChoiceRow> &Choices()
{
    static const std::vector<ChoiceRow> rows = {
        {"GevCCP",
         kReadWrite,
         0x0A00,
         0,
         1,
         kVolatile,
         {{"OpenAccess", 0, "Nobody is in control."},
          {"ExclusiveAccess", 1, "Others may neither read nor write."},
          {"ControlAccess", 2, "Others may read."}},
         "Control of the device by the application that wrote it."},
        {"GevDeviceModeCharacterSet",
         kRead,
         0x0004,
         0,
         7,
         kPlain,
         {{"UTF8", 1, "UTF-8."}, {"ASCII", 2, "ASCII."}},
         "Character set of the device's strings."},
        {"GevPhysicalLinkConfiguration",
         kRead,
         0x0968,
         0,
         1,
         kVersion2,
         {{"SingleLink", 0, "One link."}, {"MultiLink", 1, "Several links of their own."}},
         "How the device's links work together."},
        {"GevGVSPExtendedIDMode",
         kReadWrite,
         0x0960,
         30,
         30,
         kVersion2 | kLockable | kVolatile, // hosts write the register past this description
         {{"Off", 0, "16-bit frame ids and 24-bit packet ids."}, {"On", 1, "64-bit frame ids and 32-bit packet ids."}},
         "Length of the ids in stream packets and events."},
        {"ActionUnconditionalMode",
         kReadWrite,
         0x0954,
         3,
         3,
         kOfAction,
         {{"Off", 0, "Only the controller's."}, {"On", 1, "Everybody's."}},
         "Whose action commands the device obeys."},
    };
    return rows;
}

class Builder {
public:
    /// \param missing  traits of rows that this camera does not have
    Builder(FeatureTable &table, unsigned missing) : m_table(table), m_missing(missing) {}

    void Add(Feature feature, unsigned traits)
    {
        if ((traits & m_missing) != 0)
            return;
        feature.category = (traits & kOfAction) != 0 ? kAction : kTransport;
        feature.isVolatile = (traits & kVolatile) != 0;
        feature.isHidden = (traits & kHidden) != 0;
        feature.isCustom = (traits & kCustom) != 0;
        if ((traits & kLockable) != 0)
            feature.isLocked = [&table = m_table] {
                const Feature *lock = table.Find("TLParamsLocked");
                return lock != nullptr && lock->getInteger && lock->getInteger() != 0;
            };
        if ((traits & kOfStream) != 0)
            m_ofStream.push_back(feature.name);
        if ((traits & kOfInterface) != 0)
            m_ofInterface.push_back(feature.name);
        m_table.Add(std::move(feature));
    }

    const std::vector<std::string> &OfStream() const { return m_ofStream; }
    const std::vector<std::string> &OfInterface() const { return m_ofInterface; }

private:
    FeatureTable &m_table;
    const unsigned m_missing;
    std::vector<std::string> m_ofStream;
    std::vector<std::string> m_ofInterface;
};

Feature Named(const char *name, FeatureType type, FeatureAccess access, Visibility visibility, const char *toolTip)
{
    Feature feature;
    feature.name = name;
    feature.type = type;
    feature.access = access;
    feature.visibility = visibility;
    feature.toolTip = toolTip;
    return feature;
}

void AddNumbers(Builder &builder)
{
    for (const NumberRow &row : kNumbers) {
        Feature feature = Named(row.name, FeatureType::Integer, row.access, row.visibility, row.toolTip);
        feature.source = RegisterField{row.address, 4, row.lowBit, row.highBit};
        feature.representation = row.representation;
        feature.unit = row.unit;
        const std::int64_t held = (std::int64_t{1} << (row.highBit - row.lowBit + 1)) - 1;
        const IntegerRange range{row.minimum, row.maximum != 0 ? row.maximum : held, 1};
        feature.integerRange = [range] { return range; };
        feature.isRangeFixed = true;
        builder.Add(std::move(feature), row.traits);
    }
}

void AddSwitchesAndChoices(Builder &builder)
{
    for (const SwitchRow &row : kSwitches) {
        Feature feature = Named(row.name, FeatureType::Boolean, row.access, row.visibility, row.toolTip);
        feature.source = RegisterField{row.address, 4, row.bit, row.bit};
        builder.Add(std::move(feature), row.traits);
    }
    for (const ChoiceRow &row : Choices()) {
        Feature feature = Named(row.name, FeatureType::Enumeration, row.access, kGuru, row.toolTip);
        feature.source = RegisterField{row.address, 4, row.lowBit, row.highBit};
        feature.entries = row.entries;
        builder.Add(std::move(feature), row.traits);
    }
}

void AddTexts(Builder &builder)
{
    const auto add = [&builder](const char *name, std::uint32_t address, const char *toolTip) {
        Feature url = Named(name, FeatureType::String, kRead, kGuru, toolTip);
        url.source = RegisterField{address, 512, 0, 31};
        url.textBytes = 512;
        builder.Add(std::move(url), kPlain);
    };
    add("GevFirstURL", 0x0200, "Where this description lies.");
    add("GevSecondURL", 0x0400, "Where it lies as well; empty.");

    Feature mac = Named("GevMACAddress", FeatureType::Integer, kRead, Visibility::Beginner,
                        "Hardware address of the network interface.");
    mac.source = RegisterField{0x0008, 8, 0, 47};
    mac.representation = "MACAddress";
    mac.integerRange = [] { return IntegerRange{0, 0xffffffffffff, 1}; };
    mac.isRangeFixed = true;
    builder.Add(std::move(mac), kOfInterface);
}

void AddPacketSize(Builder &builder)
{
    Feature size = Named("GevSCPSPacketSize", FeatureType::Integer, kReadWrite, kExpert,
                         "Size of a stream packet on the network, IP and UDP headers included.");
    size.source = RegisterField{kRegStreamPacketSize, 4, 0, 15};
    size.unit = "B";
    size.integerRange = [] { return IntegerRange{kMinPacketSize, kMaxPacketSize, kPacketSizeStep}; };
    size.isRangeFixed = true;
    builder.Add(std::move(size), kLockable | kOfStream);

    Feature fire = Named("GevSCPSFireTestPacket", FeatureType::Command, kReadWrite, kGuru,
                         "Sends one packet of GevSCPSPacketSize, so that the host sees whether it comes through.");
    fire.source = RegisterField{kRegStreamPacketSize, 4, 31, 31};
    builder.Add(std::move(fire), kOfStream);
}

void AddTimestamp(Builder &builder, const std::function<void(std::uint32_t)> &request)
{
    Feature frequency = Named("GevTimestampTickFrequency", FeatureType::Integer, kRead, kExpert,
                              "Ticks of the device's clock in a second.");
    frequency.source = RegisterField{0x093C, 8, 0, 63};
    frequency.unit = "Hz";
    builder.Add(std::move(frequency), kPlain);

    const auto addCommand = [&](const char *name, std::uint32_t change, const char *toolTip) {
        Feature command = Named(name, FeatureType::Command, kWrite, kExpert, toolTip);
        command.setInteger = [request, change](std::int64_t) {
            request(change);
            return Outcome::Ok;
        };
        builder.Add(std::move(command), kPlain);
    };
    addCommand("GevTimestampControlLatch", kLatchTimestamp, "Keeps the present time for GevTimestampValue.");
    addCommand("GevTimestampControlReset", kResetTimestamp, "Starts the device's clock anew.");

    Feature value = Named("GevTimestampValue", FeatureType::Integer, kRead, kExpert, "Time that was latched.");
    value.source =
        Formula{"((HIGH << 32) | LOW)", {{"HIGH", "GevTimestampValueHigh"}, {"LOW", "GevTimestampValueLow"}}};
    value.unit = "ns";
    builder.Add(std::move(value), kVolatile);
}

/// There is one of each; hosts expect to choose nevertheless.
Feature Selector(const char *name, const char *toolTip, std::vector<std::string> selects)
{
    Feature selector = Named(name, FeatureType::Integer, kReadWrite, kExpert, toolTip);
    selector.integerRange = [] { return IntegerRange{0, 0, 1}; };
    selector.isRangeFixed = true;
    selector.getInteger = [] { return 0; };
    selector.setInteger = [](std::int64_t) { return Outcome::Ok; };
    selector.selects = std::move(selects);
    return selector;
}

/// A limited link carries fewer frames when they are larger or when more of it goes into the packets' headers.
void AddToThePace(FeatureTable &table)
{
    std::vector<std::string> packets;
    for (const char *name : {"GevSCPSPacketSize", "GevGVSPExtendedIDMode", "GevSCCFGMultiPart"}) {
        if (table.Find(name) != nullptr)
            packets.emplace_back(name);
    }
    for (const char *name : {"AcquisitionFrameRate", "ResultingFrameRate"}) {
        if (table.Find(name) != nullptr)
            table.AddDependencies(name, packets);
    }
    if (table.Find("GevSCCFGMultiPart") != nullptr && table.Find("PayloadSize") != nullptr)
        table.AddDependencies("PayloadSize", {"GevSCCFGMultiPart"});
}

} // namespace

void AddGigeFeatures(FeatureTable &table, std::function<void(std::uint32_t changes)> request,
                     const GigeOptions &options)
{
    Builder builder(table, (options.legacy ? kVersion2 : 0U) | (options.multiPart ? 0U : kOfParts));
    if (!options.legacy)
        table.SetEventForm("GevGVSPExtendedIDMode");
    AddNumbers(builder);
    AddSwitchesAndChoices(builder);
    AddTexts(builder);
    AddPacketSize(builder);
    AddTimestamp(builder, request);
    builder.Add(Selector("GevStreamChannelSelector", "Stream channel to look at.", builder.OfStream()), kPlain);
    builder.Add(Selector("GevInterfaceSelector", "Network interface to look at.", builder.OfInterface()), kPlain);
    builder.Add(Selector("ActionSelector", "Action signal to look at.", {"ActionGroupKey", "ActionGroupMask"}),
                kOfAction);
    AddToThePace(table);
}

} // namespace orvsim
