#pragma once

#include "cli/Options.h"
#include "cli/Outcome.h"

#include <string>
#include <vector>

namespace orvcli {

/// One command of the program: a row of the table, and a file of its own.
struct Command {
    std::string name;
    std::string arguments; ///< as --help shows them
    std::size_t leastWords;
    std::size_t mostWords;
    std::string summary; ///< one line
    std::string details;
    std::vector<std::string> options; ///< names, besides those that all commands take
    Outcome (*run)(const Options &options);
};

/// In the order of --help.
const std::vector<Command> &Commands();
const Command *FindCommand(const std::string &name);

Outcome RunList(const Options &options);
Outcome RunInfo(const Options &options);
Outcome RunFeatures(const Options &options);
Outcome RunXml(const Options &options);
Outcome RunStream(const Options &options);
Outcome RunEvents(const Options &options);
Outcome RunForceIp(const Options &options);
Outcome RunDoctor(const Options &options);

} // namespace orvcli
