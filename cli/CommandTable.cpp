#include "cli/Command.h"

#include <algorithm>

namespace orvcli {

const std::vector<Command> &Commands()
{
    static const std::vector<Command> commands = {
        {"list",
         "",
         0,
         0,
         "lists the cameras on all interfaces",
         "Cameras whose address fits no interface are listed as unreachable; see force-ip. Interfaces that the search\n"
         "could not be sent through are told on the error output. Exit code 4 when there is no camera.",
         {"interfaces"},
         RunList},
        {"info",
         "[CAMERA]",
         0,
         1,
         "tells what is known of a camera",
         "A camera that can be opened for reading is asked for its most telling features, too; otherwise the exit "
         "code\n"
         "tells why not.",
         {},
         RunInfo},
        {"features",
         "[CAMERA]",
         0,
         1,
         "shows features, reads, writes and runs them",
         "Without --get, --set and --run: the tree of features with values, units, limits and access.\n"
         "These three may be repeated and mixed, and are done in the order given.",
         {"get", "set", "run", "visibility", "interface", "stream"},
         RunFeatures},
        {"xml",
         "[CAMERA]",
         0,
         1,
         "prints the camera's GenICam description",
         "Unpacked, otherwise as the camera has it.",
         {},
         RunXml},
        {"stream",
         "[CAMERA]",
         0,
         1,
         "receives frames and tells how well that went",
         "Ends after --frames or --seconds, or on Ctrl+C. What --set-stream can set is shown by features --stream.",
         {"frames", "seconds", "timeout", "buffers", "set-stream", "traffic"},
         RunStream},
        {"events",
         "[CAMERA]",
         0,
         1,
         "prints events as they come",
         "Those of the camera's message channel, and the loss of the connection. Ends after --seconds, with the "
         "camera,\n"
         "or on Ctrl+C. With --json every event is a line of its own.",
         {"seconds", "on", "streaming", "traffic"},
         RunEvents},
        {"force-ip",
         "CAMERA ADDRESS MASK [GATEWAY]",
         3,
         4,
         "gives a camera another address until it is switched off",
         "Reaches cameras whose address fits no interface. The camera must not be open anywhere. An address that this\n"
         "computer or another camera has, or that fits no network of the interface, is refused.",
         {"unchecked"},
         RunForceIp},
        {"doctor",
         "[CAMERA]",
         0,
         1,
         "finds out why there is no picture",
         "Looks at host, camera and a short stream, names the causes and what cures them. Exit code 0 when nothing is\n"
         "wrong, 3 when a cause was found.",
         {"seconds"},
         RunDoctor},
    };
    return commands;
}

const Command *FindCommand(const std::string &name)
{
    const std::vector<Command> &commands = Commands();
    const auto found = std::find_if(commands.begin(), commands.end(), [&](const Command &c) { return c.name == name; });
    return found == commands.end() ? nullptr : &*found;
}

} // namespace orvcli
