#pragma once

#include "cli/Options.h"
#include "cli/Outcome.h"
#include "cli/Report.h"

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
    /// Prints what it has for people itself; with --json puts it into the report instead, as far as it came.
    Outcome (*run)(const Options &options, Report &report);
};

/// In the order of --help.
const std::vector<Command> &Commands();
const Command *FindCommand(const std::string &name);

Outcome RunList(const Options &options, Report &report);
Outcome RunInfo(const Options &options, Report &report);
Outcome RunFeatures(const Options &options, Report &report);
Outcome RunXml(const Options &options, Report &report);
Outcome RunStream(const Options &options, Report &report);
Outcome RunEvents(const Options &options, Report &report);
Outcome RunForceIp(const Options &options, Report &report);
Outcome RunDoctor(const Options &options, Report &report);

} // namespace orvcli
