#pragma once

#include "simulator/app/Options.h"

#include <functional>
#include <string>
#include <vector>

namespace orvsim {

/// One option of a camera, the same on the command line and in configuration files.
struct OptionRow {
    std::string name;
    std::string argument; ///< what --help calls its value; empty: a switch
    std::string help;
    /// \return what is wrong with the value; empty when it was taken.
    std::function<std::string(CameraBlock &, const std::string &value)> apply;
    /// What value the option takes when none is given: only switches have one.
    bool IsSwitch() const { return argument.empty(); }
};

/// All options of a camera in the order of --help; those of the faults come last.
const std::vector<OptionRow> &OptionRows();
const OptionRow *FindOption(const std::string &name);

} // namespace orvsim
