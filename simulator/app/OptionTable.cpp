#include "simulator/app/OptionTable.h"

#include <algorithm>
#include <arpa/inet.h>
#include <charconv>
#include <cstring>
#include <ifaddrs.h>
#include <memory>
#include <net/if.h>

namespace orvsim {

namespace {

std::string Range(const std::string &what, const std::string &value, const std::string &range)
{
    return "\"" + value + "\" is not " + what + " of " + range;
}

template <class T> std::string TakeNumber(const std::string &text, T minimum, T maximum, T &value)
{
    T given{};
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), given);
    const bool isNumber = error == std::errc() && end == text.data() + text.size();
    if (!isNumber || !(given >= minimum && given <= maximum)) {
        const auto shown = [](T bound) {
            std::string digits = std::to_string(bound);
            if (digits.find('.') != std::string::npos)
                digits.erase(std::max(digits.find_last_not_of('0'), digits.find('.') + 1) + 1);
            return digits;
        };
        return Range("a number", text, shown(minimum) + " to " + shown(maximum));
    }
    value = given;
    return {};
}

template <class Get> OptionRow Text(const char *name, const char *argument, const char *help, std::size_t most, Get get)
{
    return {name, argument, help, [most, get](CameraBlock &block, const std::string &value) -> std::string {
                if (value.size() > most)
                    return "\"" + value + "\" is longer than " + std::to_string(most) + " bytes";
                get(block) = value;
                return {};
            }};
}

template <class T, class Get>
OptionRow Number(const char *name, const char *argument, const char *help, T minimum, T maximum, Get get)
{
    return {name, argument, help, [minimum, maximum, get](CameraBlock &block, const std::string &value) {
                return TakeNumber<T>(value, minimum, maximum, get(block));
            }};
}

template <class Get> OptionRow Switch(const char *name, const char *help, bool meaning, Get get)
{
    return {name, "", help, [meaning, get](CameraBlock &block, const std::string &value) -> std::string {
                if (value != "yes" && value != "no")
                    return "\"" + value + "\" is neither yes nor no";
                get(block) = (value == "yes") == meaning;
                return {};
            }};
}

/// Neither "any", nor a group, nor everybody.
bool CanBeACamera(std::uint32_t address)
{
    const std::uint32_t loopbackHost = address & 0xffffff;
    const bool isLoopback = address >> 24 == 127;
    return address >> 24 != 0 && address >> 24 < 224 &&
           !(isLoopback && (loopbackHost == 0 || loopbackHost == 0xffffff));
}

std::string TakeAddress(CameraBlock &block, const std::string &value)
{
    const std::optional<std::uint32_t> address = ParseAddress(value);
    if (!address.has_value() || !CanBeACamera(*address))
        return "\"" + value + "\" is not an IPv4 address that a device can have";
    block.gige.address = *address;
    block.gige.subnetMask = *address >> 24 == 127 ? 0xff000000U : 0xffffff00U;
    block.hasAddress = true;
    return {};
}

/// Address and mask of the first IPv4 address of a network interface.
std::string TakeInterface(CameraBlock &block, const std::string &value)
{
    ifaddrs *list = nullptr;
    if (getifaddrs(&list) != 0)
        return std::string("the network interfaces cannot be listed: ") + std::strerror(errno);
    const std::unique_ptr<ifaddrs, decltype(&freeifaddrs)> owner(list, freeifaddrs);
    for (const ifaddrs *entry = list; entry != nullptr; entry = entry->ifa_next) {
        if (value != entry->ifa_name || entry->ifa_addr == nullptr || entry->ifa_addr->sa_family != AF_INET)
            continue;
        const auto number = [](const sockaddr *address) {
            return ntohl(reinterpret_cast<const sockaddr_in *>(address)->sin_addr.s_addr);
        };
        block.gige.address = number(entry->ifa_addr);
        block.gige.subnetMask = number(entry->ifa_netmask);
        block.hasAddress = true;
        return {};
    }
    return "there is no network interface \"" + value + "\" with an IPv4 address";
}

std::string TakeFeature(CameraBlock &block, const std::string &value)
{
    const std::size_t equals = value.find('=');
    if (equals == 0 || equals == std::string::npos)
        return "\"" + value + "\" is not Feature=Value";
    block.camera.features[value.substr(0, equals)] = value.substr(equals + 1);
    return {};
}

std::string TakeFamily(CameraBlock &block, const std::string &value)
{
    const bool hasPrefix = value.rfind("frame-", 0) == 0;
    const std::string kind = hasPrefix ? value.substr(6) : value;
    if (kind != "pixel-clock" && kind != "line-time")
        return "\"" + value + "\" is none of pixel-clock, line-time, frame-pixel-clock, frame-line-time";
    block.camera.hasFramePrefix = hasPrefix;
    block.camera.family = kind == "pixel-clock" ? TimingFamily::PixelClock : TimingFamily::LineTime;
    return {};
}

std::vector<OptionRow> IdentityRows()
{
    return {
        {"address", "ADDRESS", "IPv4 address of this machine to be at (127.0.0.1 and up)", TakeAddress},
        {"interface", "NAME", "network interface whose address to be at", TakeInterface},
        Text(
            "vendor", "TEXT", "who made it", 31, [](CameraBlock & b) -> auto & { return b.camera.vendor; }),
        Text(
            "model", "TEXT", "model name", 31, [](CameraBlock & b) -> auto & { return b.camera.model; }),
        {"serial", "TEXT", "serial number (SIM0001 and up)",
         [](CameraBlock &block, const std::string &value) -> std::string {
             if (value.empty() || value.size() > 15)
                 return "\"" + value + "\" is not a text of 1 to 15 bytes";
             block.camera.serial = value;
             block.hasSerial = true;
             return {};
         }},
        Text(
            "user-name", "TEXT", "name that the user gave it", 15,
            [](CameraBlock & b) -> auto & { return b.camera.userName; }),
    };
}

std::vector<OptionRow> SensorRows()
{
    return {
        Number<int>("width", "PIXELS", "columns of the sensor (1280)", 64, 16384,
                    [](CameraBlock &b) -> int & { return b.camera.sensor.width; }),
        Number<int>("height", "PIXELS", "lines of the sensor (1024)", 64, 16384,
                    [](CameraBlock &b) -> int & { return b.camera.sensor.height; }),
        Switch("mono", "a monochrome sensor", false, [](CameraBlock &b) -> bool & { return b.camera.sensor.isColour; }),
        Text(
            "format", "NAME", "pixel format by name (BayerRG8, or Mono8)", 63,
            [](CameraBlock & b) -> auto & { return b.camera.pixelFormat; }),
        Number<double>("fps", "RATE", "frames per second; the sensor is set fast enough (27 at full size)", 0.01, 1e6,
                       [](CameraBlock &b) -> double & { return b.camera.frameRate; }),
        {"pace", "FEATURE",
         "feature that sets the sensor's pace: frame-pixel-clock (the default), pixel-clock, frame-line-time, "
         "line-time",
         TakeFamily},
        Number<std::int64_t>("max-pixel-clock", "MHZ", "fastest pixel clock (400)", 20, 100000,
                             [](CameraBlock &b) -> std::int64_t & { return b.camera.maxPixelClockMHz; }),
        Number<std::uint64_t>("seed", "NUMBER", "seed of noise and faults (1)", 0, UINT64_MAX,
                              [](CameraBlock &b) -> std::uint64_t & { return b.camera.seed; }),
        {"memory", "MIB", "memory for frames prepared ahead (192)",
         [](CameraBlock &block, const std::string &value) {
             std::size_t mebibytes = 0;
             const std::string problem = TakeNumber<std::size_t>(value, 1, 65536, mebibytes);
             if (problem.empty())
                 block.camera.frameMemory = mebibytes << 20;
             return problem;
         }},
        {"set", "FEATURE=VALUE", "sets any feature before the first client comes; may be repeated", TakeFeature},
    };
}

std::vector<OptionRow> TransportRows()
{
    return {
        Switch("legacy", "GigE Vision 1.2: 16-bit frame ids only", true,
               [](CameraBlock &b) -> bool & { return b.gige.legacy; }),
        Switch("multi-part", "frames of two parts: image and confidence plane (GevSCCFGMultiPart = 0 switches it off)",
               true, [](CameraBlock &b) -> bool & { return b.gige.multiPart; }),
        Switch("plain-xml", "the description is not zipped", false,
               [](CameraBlock &b) -> bool & { return b.gige.zippedXml; }),
        Switch("read-gaps", "addresses without a register read as 0 instead of being refused", true,
               [](CameraBlock &b) -> bool & { return b.gige.gapsReadAsZero; }),
        Number<std::uint32_t>("packet-size", "BYTES", "first size of the stream's packets (1500)", 220, 16000,
                              [](CameraBlock &b) -> std::uint32_t & { return b.gige.packetSize; }),
        Number<std::uint32_t>("path-mtu", "BYTES", "larger packets are lost, as on a network with that limit (0: none)",
                              0, 65535, [](CameraBlock &b) -> std::uint32_t & { return b.gige.pathMtu; }),
        Number<int>("resend-frames", "COUNT", "frames kept to be sent again in part (8)", 0, 64,
                    [](CameraBlock &b) -> int & { return b.gige.resendFrames; }),
        Number<std::int64_t>("link-mbps", "MBPS", "speed of the link; packets beyond it are lost (0: no limit)", 0,
                             1000000, [](CameraBlock &b) -> std::int64_t & { return b.camera.linkMbps; }),
    };
}

OptionRow RowOf(const FaultRow &fault)
{
    OptionRow row;
    row.name = fault.option;
    row.argument = fault.rate != nullptr ? "SHARE" : fault.unit[0] != '\0' ? fault.unit : "NUMBER";
    row.help = fault.toolTip;
    row.apply = [&fault](CameraBlock &block, const std::string &value) {
        if (fault.rate != nullptr)
            return TakeNumber<double>(value, 0, 1, block.camera.faults.*fault.rate);
        return TakeNumber<std::int64_t>(value, fault.minimum, fault.maximum, block.camera.faults.*fault.number);
    };
    return row;
}

} // namespace

const std::vector<OptionRow> &OptionRows()
{
    static const std::vector<OptionRow> rows = [] {
        std::vector<OptionRow> all = IdentityRows();
        for (const std::vector<OptionRow> &part : {SensorRows(), TransportRows()})
            all.insert(all.end(), part.begin(), part.end());
        for (const FaultRow &fault : FaultRows())
            all.push_back(RowOf(fault));
        return all;
    }();
    return rows;
}

const OptionRow *FindOption(const std::string &name)
{
    const std::vector<OptionRow> &rows = OptionRows();
    const auto found = std::find_if(rows.begin(), rows.end(), [&](const OptionRow &row) { return row.name == name; });
    return found == rows.end() ? nullptr : &*found;
}

std::optional<std::uint32_t> ParseAddress(const std::string &text)
{
    in_addr address{};
    if (inet_pton(AF_INET, text.c_str(), &address) != 1)
        return std::nullopt;
    return ntohl(address.s_addr);
}

} // namespace orvsim
