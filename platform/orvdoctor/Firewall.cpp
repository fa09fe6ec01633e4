#include "orvdoctor/Firewall.h"

#include "orvdoctor/FactText.h"

#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>

namespace orv {
namespace {

bool Exists(const std::string &path)
{
    std::error_code ignored;
    return std::filesystem::is_symlink(path, ignored) || std::filesystem::exists(path, ignored);
}

/// Started with the system, though no process of it stays.
bool IsEnabled(const HostFolders &folders, const std::string &service)
{
    for (const char *target : {"sysinit", "multi-user", "network-pre"})
        if (Exists(folders.etc + "/systemd/system/" + target + ".target.wants/" + service))
            return true;
    return false;
}

bool UfwIsOn(const HostFolders &folders)
{
    std::ifstream file(folders.etc + "/ufw/ufw.conf");
    for (std::string line; std::getline(file, line);)
        if (line.compare(0, 11, "ENABLED=yes") == 0)
            return true;
    return false;
}

/// "ip saddr 10.0.0.20 udp sport 3956 accept"
std::string NftRule(const std::string &source, int port)
{
    const std::string from = source.empty() ? "" : "ip saddr " + source + " ";
    return from + "udp sport " + (port != 0 ? std::to_string(port) : "1-65535") + " accept";
}

Passage ByFirewalld(const std::string &source, int port, const std::string &interface)
{
    const std::string from = source.empty() ? "" : " source address=" + source;
    const std::string kind =
        port != 0 ? " source-port port=" + std::to_string(port) + " protocol=udp" : " protocol value=udp";
    const std::string rule = "--add-rich-rule='rule family=ipv4" + from + kind + " accept'";
    // The zone of an interface that was put in none is the default one.
    const std::string zone = interface.empty()
                                 ? ""
                                 : "--zone=$(sudo firewall-cmd --get-zone-of-interface=" + ShellWord(interface) +
                                       " 2>/dev/null || sudo firewall-cmd --get-default-zone) ";
    return {"sudo firewall-cmd " + zone + rule, "sudo firewall-cmd --permanent " + zone + rule, ""};
}

Passage ByNftables(const Facts &facts, const std::string &rule)
{
    return {"sudo nft insert rule " + facts.firewallChain + " " + rule, "",
            "To keep it so, put the line \"" + rule + "\" first into that chain in /etc/nftables.conf."};
}

} // namespace

std::string FindInputChain(const std::string &script)
{
    // Names are words; so nothing else gets into a command.
    static const std::regex kParts(R"(table\s+(?:(\w+)\s+)?(\w+)\s*\{|chain\s+(\w+)\s*\{|(hook\s+input\b)|#[^\n]*)");
    std::string table, chain;
    for (std::sregex_iterator part(script.begin(), script.end(), kParts), end; part != end; ++part) {
        if ((*part)[2].matched)
            table = ((*part)[1].matched ? (*part)[1].str() : "ip") + " " + (*part)[2].str();
        else if ((*part)[3].matched)
            chain = (*part)[3].str();
        else if ((*part)[4].matched && !chain.empty() &&
                 (table.compare(0, 3, "ip ") == 0 || table.compare(0, 5, "inet ") == 0))
            return table + " " + chain;
    }
    return {};
}

void GatherFirewall(Facts &facts, const HostFolders &folders)
{
    facts.firewall = facts.firewallChain = "";
    if (Exists(folders.services + "/firewalld.service")) {
        facts.firewall = "firewalld";
    } else if (UfwIsOn(folders)) {
        facts.firewall = "ufw";
    } else if (IsEnabled(folders, "nftables.service")) {
        std::ostringstream script;
        script << std::ifstream(folders.etc + "/nftables.conf").rdbuf();
        facts.firewallChain = FindInputChain(script.str());
        facts.firewall = facts.firewallChain.empty() ? "" : "nftables";
    } else if (IsEnabled(folders, "netfilter-persistent.service")) {
        facts.firewall = "iptables";
    }
}

Passage LetThrough(const Facts &facts, const std::string &source, int port, const std::string &interface)
{
    const std::string from = source.empty() ? "any" : source;
    if (facts.firewall == "ufw")
        return {"sudo ufw allow proto udp from " + from + (port != 0 ? " port " + std::to_string(port) : ""), "", ""};
    if (facts.firewall == "firewalld")
        return ByFirewalld(source, port, interface);
    if (facts.firewall == "nftables")
        return ByNftables(facts, NftRule(source, port));
    if (facts.firewall == "iptables")
        return {"sudo iptables -I INPUT -p udp" + (source.empty() ? "" : " -s " + source) +
                    (port != 0 ? " --sport " + std::to_string(port) : "") + " -j ACCEPT",
                "sudo netfilter-persistent save", ""};
    return {"sudo nft list ruleset", "", "The command shows the packet filter's rules, if it is what stops them."};
}

} // namespace orv
