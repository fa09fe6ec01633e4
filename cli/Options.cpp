#include "cli/Options.h"

#include "cli/Command.h"

#include <algorithm>
#include <optional>

namespace orvcli {

namespace {

/// Options that every command takes.
const char *const kCommonOptions[] = {"json", "verbose", "help"};

const OptionRow *FindOption(const std::string &name)
{
    const std::vector<OptionRow> &rows = OptionRows();
    const auto found = std::find_if(rows.begin(), rows.end(), [&](const OptionRow &row) { return row.name == name; });
    return found == rows.end() ? nullptr : &*found;
}

bool Takes(const Command *command, const std::string &option)
{
    const bool isCommon =
        std::find(std::begin(kCommonOptions), std::end(kCommonOptions), option) != std::end(kCommonOptions);
    return isCommon || (command != nullptr &&
                        std::find(command->options.begin(), command->options.end(), option) != command->options.end());
}

class Reader {
public:
    explicit Reader(const std::vector<std::string> &arguments) : m_arguments(arguments) {}

    CommandLine Read()
    {
        while (m_line.problem.empty() && m_next < m_arguments.size())
            TakeArgument(m_arguments[m_next++]);
        // What stopped the reading is told in the form that was asked for, also where that stands behind it.
        if (std::find(m_arguments.begin() + static_cast<std::ptrdiff_t>(m_next), m_arguments.end(), "--json") !=
            m_arguments.end())
            m_line.options.isJson = true;
        if (m_line.problem.empty() && m_line.command != nullptr && !m_line.options.isHelpWanted)
            CheckWords();
        return std::move(m_line);
    }

private:
    void TakeArgument(const std::string &argument)
    {
        const bool isOption = !m_onlyWords && argument.size() > 1 && argument[0] == '-';
        if (argument == "--" && isOption)
            m_onlyWords = true;
        else if (argument == "-h")
            m_line.options.isHelpWanted = true;
        else if (isOption)
            TakeOption(argument);
        else if (m_line.command != nullptr)
            m_line.options.words.push_back(argument);
        else if (m_line.command = FindCommand(argument); m_line.command == nullptr)
            m_line.problem = "there is no command \"" + argument + "\"";
    }

    void TakeOption(const std::string &argument)
    {
        if (argument == "--version") {
            m_line.isVersionWanted = true;
            return;
        }
        const std::size_t equals = argument.find('=');
        const std::string name = argument.rfind("--", 0) == 0 ? argument.substr(2, equals - 2) : std::string();
        const OptionRow *row = FindOption(name);
        if (row == nullptr || !Takes(m_line.command, name)) {
            m_line.problem = (m_line.command != nullptr ? m_line.command->name + ": " : "") + "there is no option \"" +
                             argument.substr(0, equals) + "\"";
            return;
        }
        std::optional<std::string> value;
        if (equals != std::string::npos)
            value = argument.substr(equals + 1);
        Apply(*row, value);
    }

    void Apply(const OptionRow &row, std::optional<std::string> value)
    {
        const bool isSwitch = row.argument.empty();
        if (isSwitch && value.has_value()) {
            m_line.problem = "--" + row.name + " has no value";
            return;
        }
        if (!isSwitch && !value.has_value()) {
            if (m_next == m_arguments.size()) {
                m_line.problem = "--" + row.name + " needs " + row.argument;
                return;
            }
            value = m_arguments[m_next++];
        }
        const std::string problem = row.apply(m_line.options, value.value_or(std::string()));
        if (!problem.empty())
            m_line.problem = "--" + row.name + ": " + problem;
    }

    void CheckWords()
    {
        const std::vector<std::string> &words = m_line.options.words;
        const Command &command = *m_line.command;
        if (words.size() > command.mostWords)
            m_line.problem = command.name + ": \"" + words[command.mostWords] + "\" is one word too many";
        else if (words.size() < command.leastWords)
            m_line.problem = command.name + " needs " + command.arguments;
    }

    const std::vector<std::string> &m_arguments;
    std::size_t m_next = 0;
    bool m_onlyWords = false;
    CommandLine m_line;
};

std::string HelpLine(const std::string &what, const std::string &help)
{
    constexpr std::size_t kColumn = 26;
    std::string line = "  " + what;
    line += line.size() < kColumn ? std::string(kColumn - line.size(), ' ') : "\n" + std::string(kColumn, ' ');
    return line + help + "\n";
}

std::string OptionLine(const OptionRow &row)
{
    return HelpLine("--" + row.name + (row.argument.empty() ? "" : " " + row.argument), row.help);
}

constexpr char kAboutCamera[] =
    "CAMERA is a serial number, user name, model, IP address, MAC address or id, as \"orvcam list\" shows them.\n"
    "Without it: the only camera, or the first that is free.\n";

} // namespace

CommandLine ParseCommandLine(const std::vector<std::string> &arguments)
{
    return Reader(arguments).Read();
}

std::string HelpText()
{
    std::string text = "orvcam - finds, asks and tries cameras\n\n"
                       "usage: orvcam COMMAND [CAMERA] [OPTION...]\n\n";
    for (const Command &command : Commands())
        text += HelpLine(command.name, command.summary);
    text += "\n";
    for (const char *name : kCommonOptions)
        text += OptionLine(*FindOption(name));
    text += HelpLine("--version", "prints the version and ends");
    return text + "\n" + kAboutCamera + "\"orvcam COMMAND --help\" tells more.\n";
}

std::string HelpText(const Command &command)
{
    std::string text = "orvcam " + command.name + " - " + command.summary + "\n\nusage: orvcam " + command.name;
    text += (command.arguments.empty() ? "" : " " + command.arguments) + " [OPTION...]\n\n" + command.details + "\n\n";
    for (const OptionRow &row : OptionRows()) {
        if (Takes(&command, row.name))
            text += OptionLine(row);
    }
    return text + (command.mostWords > 0 ? std::string("\n") + kAboutCamera : std::string());
}

} // namespace orvcli
