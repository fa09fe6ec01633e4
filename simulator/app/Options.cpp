#include "simulator/app/Options.h"

#include "simulator/app/OptionTable.h"

#include <algorithm>
#include <cstring>
#include <fstream>

namespace orvsim {

namespace {

std::string Trimmed(const std::string &text)
{
    const std::size_t begin = text.find_first_not_of(" \t\r");
    if (begin == std::string::npos)
        return {};
    return text.substr(begin, text.find_last_not_of(" \t\r") - begin + 1);
}

/// Gathers blocks from the command line and from files alike.
class BlockReader {
public:
    void BeginCamera() { m_blocks.push_back(m_defaults); }

    /// \return what is wrong; empty when the option was taken.
    std::string Take(const std::string &name, const std::string &value)
    {
        const OptionRow *row = FindOption(name);
        if (row == nullptr)
            return "there is no option \"" + name + "\"";
        const std::string problem = row->apply(m_blocks.empty() ? m_defaults : m_blocks.back(), value);
        return problem.empty() ? problem : name + ": " + problem;
    }

    std::string TakeFile(const std::string &path);
    std::vector<CameraBlock> Finish();

private:
    CameraBlock m_defaults;
    std::vector<CameraBlock> m_blocks;
};

std::string BlockReader::TakeFile(const std::string &path)
{
    std::ifstream file(path);
    if (!file)
        return path + ": cannot be read: " + std::strerror(errno);
    std::string line;
    for (int number = 1; std::getline(file, line); ++number) {
        const std::string text = Trimmed(line);
        if (text.empty() || text[0] == '#')
            continue;
        std::string problem;
        const std::size_t equals = text.find('=');
        if (text == "[camera]")
            BeginCamera();
        else if (equals == std::string::npos)
            problem = "\"" + text + "\" is neither [camera] nor name = value";
        else
            problem = Take(Trimmed(text.substr(0, equals)), Trimmed(text.substr(equals + 1)));
        if (!problem.empty())
            return path + ":" + std::to_string(number) + ": " + problem;
    }
    return file.bad() ? path + ": cannot be read to its end" : std::string();
}

std::vector<CameraBlock> BlockReader::Finish()
{
    if (m_blocks.empty())
        m_blocks.push_back(m_defaults);
    return m_blocks;
}

/// Takes the arguments one after another; stops being of use once there is a problem.
class CommandLine {
public:
    explicit CommandLine(const std::vector<std::string> &arguments) : m_arguments(arguments) {}

    bool HasNext() const { return m_next < m_arguments.size(); }
    void TakeNext();
    const std::string &Problem() const { return m_problem; }
    ProgramOptions Finish();

private:
    std::string Value();
    void TakeNamed(const std::string &name);
    void TakeStatistics(const std::string &seconds);

    const std::vector<std::string> &m_arguments;
    std::size_t m_next = 0;
    std::optional<std::string> m_attached; ///< value behind the "=" of the present argument
    std::string m_problem;
    ProgramOptions m_options;
    BlockReader m_reader;
};

void CommandLine::TakeNext()
{
    const std::string &argument = m_arguments[m_next++];
    if (argument == "--help" || argument == "-h") {
        m_options.task = Task::ShowHelp;
    } else if (argument == "--print-xml") {
        m_options.task = Task::ShowXml;
    } else if (argument == "--camera") {
        m_reader.BeginCamera();
    } else if (argument.rfind("--", 0) == 0) {
        const std::size_t equals = argument.find('=');
        m_attached.reset();
        if (equals != std::string::npos)
            m_attached = argument.substr(equals + 1);
        TakeNamed(argument.substr(2, equals == std::string::npos ? equals : equals - 2));
    } else {
        m_problem = "\"" + argument + "\" is not an option; --help lists them";
    }
}

std::string CommandLine::Value()
{
    if (m_attached.has_value())
        return *m_attached;
    if (HasNext())
        return m_arguments[m_next++];
    m_problem = m_arguments.back() + " needs a value";
    return {};
}

void CommandLine::TakeNamed(const std::string &name)
{
    const OptionRow *row = FindOption(name);
    if (row == nullptr && name != "config" && name != "statistics") {
        m_problem = "there is no option \"--" + name + "\"; --help lists them";
        return;
    }
    const bool isBareSwitch = row != nullptr && row->IsSwitch() && !m_attached.has_value();
    const std::string value = isBareSwitch ? "yes" : Value();
    if (!m_problem.empty())
        return;
    if (name == "config") {
        m_problem = m_reader.TakeFile(value);
    } else if (name == "statistics") {
        TakeStatistics(value);
    } else {
        const std::string problem = m_reader.Take(name, value);
        m_problem = problem.empty() ? problem : "--" + problem;
    }
}

void CommandLine::TakeStatistics(const std::string &seconds)
{
    const bool isNumber =
        !seconds.empty() && seconds.size() < 6 && seconds.find_first_not_of("0123456789") == std::string::npos;
    if (isNumber)
        m_options.statisticsSeconds = std::stoi(seconds);
    else
        m_problem = "--statistics: \"" + seconds + "\" is not a number of seconds";
}

ProgramOptions CommandLine::Finish()
{
    m_options.cameras = m_reader.Finish();
    return m_options;
}

std::string HelpLine(const std::string &option, const std::string &help)
{
    constexpr std::size_t kColumn = 34;
    std::string line = "  " + option;
    line += line.size() < kColumn ? std::string(kColumn - line.size(), ' ') : "\n" + std::string(kColumn, ' ');
    return line + help + "\n";
}

} // namespace

std::optional<ProgramOptions> ParseOptions(const std::vector<std::string> &arguments, std::string &problem)
{
    CommandLine line(arguments);
    while (problem = line.Problem(), problem.empty() && line.HasNext())
        line.TakeNext();
    if (!problem.empty())
        return std::nullopt;
    return line.Finish();
}

std::string SerialAt(std::uint32_t address)
{
    const std::string digits = std::to_string(address & 0xffff);
    return "SIM" + std::string(digits.size() < 4 ? 4 - digits.size() : 0, '0') + digits;
}

std::string HelpText()
{
    std::string text = "orvsim - software cameras for GigE Vision\n\n"
                       "usage: orvsim [OPTION...] [--camera OPTION...]...\n\n"
                       "Options before the first --camera hold for all cameras. Without an address the cameras are on\n"
                       "loopback: 127.0.0.1, 127.0.0.2, ... Ends on SIGINT or SIGTERM.\n\n";
    text += HelpLine("--camera", "begins another camera");
    text += HelpLine("--config FILE", "lines \"name = value\" with the names below; \"[camera]\" begins a camera");
    text += HelpLine("--statistics SECONDS", "prints what was sent every so often");
    text += HelpLine("--print-xml", "prints the first camera's GenICam description and ends");
    text += HelpLine("--help", "prints this and ends");
    text += "\nOf a camera:\n";
    for (const OptionRow &row : OptionRows()) {
        if (FindFault(row.name) != nullptr && row.name == FaultRows().front().option)
            text += "\nMisbehaviour of a camera (also features of its category SimulatorControl):\n";
        text += HelpLine("--" + row.name + (row.IsSwitch() ? "" : " " + row.argument), row.help);
    }
    return text;
}

} // namespace orvsim
