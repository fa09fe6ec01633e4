#pragma once

#include "orvcam/OrvFeatures.h"

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace orvcli {

struct Command;

/// One thing to be done with a feature.
struct FeatureAction {
    enum class Kind { Get, Set, Run };
    Kind kind;
    std::string name;
    std::string value; ///< of Set
};

/// What the command line asks for. Not every option means something to every command.
struct Options {
    std::vector<std::string> words; ///< behind the command's name
    bool isHelpWanted = false;
    bool isJson = false;
    bool isVerbose = false;

    std::uint64_t frames = 0; ///< 0: no limit
    double seconds = 0;       ///< 0: the command's own default
    double timeoutSeconds = 5;
    unsigned buffers = 16;
    std::vector<FeatureAction> actions; ///< in the order they were given
    OrvCam::Visibility visibility = OrvCam::Visibility::Guru;
    bool ofInterface = false;
    bool ofStream = false;
    bool byInterface = false; ///< "list" tells of the interfaces
    bool countTraffic = false;
    bool isStreaming = false;        ///< "events" runs the camera
    bool isUnchecked = false;        ///< "force-ip" does not look whether the address fits
    std::vector<std::string> events; ///< to be switched on

    /// The word at that place, "" when there are fewer.
    std::string Word(std::size_t index) const { return index < words.size() ? words[index] : std::string(); }
};

/// One option; which commands take it stands in theirs.
struct OptionRow {
    std::string name;
    std::string argument; ///< what --help calls its value; empty: a switch
    std::string help;
    /// \return what is wrong with the value; empty when it was taken.
    std::function<std::string(Options &, const std::string &value)> apply;
};
const std::vector<OptionRow> &OptionRows();

/// What the arguments mean.
struct CommandLine {
    const Command *command = nullptr; ///< null: none was named
    Options options;
    bool isVersionWanted = false;
    std::string problem; ///< what is not understood; empty when all is
};
CommandLine ParseCommandLine(const std::vector<std::string> &arguments);

/// What --help prints: of the whole program, and of one command.
std::string HelpText();
std::string HelpText(const Command &command);

} // namespace orvcli
