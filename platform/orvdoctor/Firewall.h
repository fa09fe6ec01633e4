#pragma once

#include "orvdoctor/Diagnosis.h"

#include <string>

namespace orv {

/// Which firewall looks to be switched on, into Facts::firewall and firewallChain.
void GatherFirewall(Facts &facts, const HostFolders &folders);

/// "inet filter input": family, table and chain of the first chain for incoming packets in a script of nft's; ""
/// without.
std::string FindInputChain(const std::string &script);

/// A command that lets UDP packets through, and what makes that last.
struct Passage {
    std::string command;
    std::string lasting;
    std::string advice; ///< a sentence, where there is no command for it
};
/// \param source  IPv4 address of the sender, "" for any.
/// \param port  the sender's, 0 for any.
/// \param interface  that they come in by, "" when not known.
Passage LetThrough(const Facts &facts, const std::string &source, int port, const std::string &interface);

} // namespace orv
