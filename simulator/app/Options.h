#pragma once

#include "simulator/core/CameraOptions.h"
#include "simulator/gige/GigeCamera.h"

#include <optional>
#include <string>
#include <vector>

namespace orvsim {

/// One camera to be started.
struct CameraBlock {
    CameraOptions camera;
    GigeOptions gige;
    bool hasAddress = false; ///< else the next free one of 127.0.0.1, 127.0.0.2, ..., found when it is opened
    bool hasSerial = false;  ///< else one that its address gives, see SerialAt()
};

enum class Task { Run, ShowHelp, ShowXml };

struct ProgramOptions {
    Task task = Task::Run;
    int statisticsSeconds = 0; ///< 0: none are printed
    std::vector<CameraBlock> cameras;
};

/// Reads the command line, and the configuration files that it names.
///
/// Options before the first --camera hold for all cameras; without one there is one camera. In a file every line is
/// "name = value" with the options' names, "[camera]" begins a camera, and "#" a comment.
///
/// \param problem  what is wrong and where, when nothing is returned.
std::optional<ProgramOptions> ParseOptions(const std::vector<std::string> &arguments, std::string &problem);

/// Serial number of a camera that was told none: "SIM0002" at 127.0.0.2.
std::string SerialAt(std::uint32_t address);

/// What --help prints.
std::string HelpText();

/// "127.0.0.2" as a number in host byte order; nothing for anything else.
std::optional<std::uint32_t> ParseAddress(const std::string &text);

} // namespace orvsim
