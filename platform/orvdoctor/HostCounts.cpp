#include "orvdoctor/Diagnosis.h"

#include <algorithm>
#include <fstream>
#include <map>
#include <sstream>

namespace orv {
namespace {

using Figures = std::map<std::string, std::int64_t>;

/// Of the two lines that begin with `group`, the first has the names and the second the figures.
Figures ReadGroup(const std::string &path, const std::string &group)
{
    std::ifstream file(path);
    std::vector<std::string> lines;
    for (std::string line; std::getline(file, line);)
        if (line.compare(0, group.size(), group) == 0)
            lines.push_back(line.substr(group.size()));
    Figures figures;
    if (lines.size() < 2)
        return figures;
    std::istringstream names(lines[0]), values(lines[1]);
    std::int64_t value = 0;
    for (std::string name; names >> name && values >> value;)
        figures[name] = value;
    return figures;
}

/// Behind two lines of headings: "eth0: bytes packets ...".
std::vector<HostCounts::Arrived> ReadInterfaces(const std::string &path)
{
    std::ifstream file(path);
    std::vector<HostCounts::Arrived> all;
    for (std::string line; std::getline(file, line);) {
        const std::size_t colon = line.rfind(':');
        if (colon == std::string::npos)
            continue;
        HostCounts::Arrived one;
        std::istringstream(line.substr(0, colon)) >> one.name;
        if (std::istringstream(line.substr(colon + 1)) >> one.bytes >> one.packets)
            all.push_back(one);
    }
    return all;
}

} // namespace

HostCounts ReadHostCounts(const HostFolders &folders)
{
    HostCounts counts;
    counts.arrived = ReadInterfaces(folders.procNet + "/dev");
    Figures filter = ReadGroup(folders.procNet + "/netstat", "TcpExt:");
    Figures ip = ReadGroup(folders.procNet + "/snmp", "Ip:");
    counts.areKnown = !counts.arrived.empty() && ip.count("InReceives") != 0 && ip.count("InDelivers") != 0;
    counts.filtered = static_cast<std::uint64_t>(filter["IPReversePathFilter"]);
    // What came in went to a program or on to another host; fragments were made one first.
    counts.undelivered = ip["InReceives"] - ip["InDelivers"] - ip["ForwDatagrams"] - ip["ReasmReqds"] + ip["ReasmOKs"] -
                         filter["IPReversePathFilter"];
    return counts;
}

HostCounts Since(const HostCounts &before, const HostCounts &now)
{
    HostCounts difference = now;
    difference.areKnown = before.areKnown && now.areKnown;
    difference.filtered -= std::min(before.filtered, now.filtered);
    difference.undelivered = std::max<std::int64_t>(0, now.undelivered - before.undelivered);
    for (HostCounts::Arrived &one : difference.arrived) {
        const auto earlier = std::find_if(before.arrived.begin(), before.arrived.end(),
                                          [&](const HostCounts::Arrived &other) { return other.name == one.name; });
        if (earlier == before.arrived.end())
            continue;
        one.packets -= std::min(earlier->packets, one.packets);
        one.bytes -= std::min(earlier->bytes, one.bytes);
    }
    return difference;
}

} // namespace orv
