#include "cli/Options.h"

#include <charconv>

namespace orvcli {

namespace {

template <class T> std::string TakeNumber(const std::string &text, T minimum, T maximum, T &number)
{
    T given{};
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), given);
    const bool isNumber = error == std::errc() && end == text.data() + text.size();
    if (isNumber && given >= minimum && given <= maximum) {
        number = given;
        return {};
    }
    const auto shown = [](T bound) {
        char digits[64];
        return std::string(digits, std::to_chars(std::begin(digits), std::end(digits), bound).ptr);
    };
    return "\"" + text + "\" is not a number of " + shown(minimum) + " to " + shown(maximum);
}

template <class T>
OptionRow Number(const char *name, const char *argument, const char *help, T minimum, T maximum, T Options::*member)
{
    return {name, argument, help, [=](Options &options, const std::string &value) {
                return TakeNumber<T>(value, minimum, maximum, options.*member);
            }};
}

OptionRow Switch(const char *name, const char *help, bool Options::*member)
{
    return {name, "", help, [member](Options &options, const std::string &) -> std::string {
                options.*member = true;
                return {};
            }};
}

OptionRow Action(const char *name, const char *argument, const char *help, FeatureAction::Kind kind)
{
    return {name, argument, help, [kind](Options &options, const std::string &value) -> std::string {
                const bool isSet = kind == FeatureAction::Kind::Set;
                const std::size_t equals = isSet ? value.find('=') : value.size();
                if (equals == 0 || equals == std::string::npos)
                    return "\"" + value + "\" is not " + (isSet ? "NAME=VALUE" : "the name of a feature");
                options.actions.push_back({kind, value.substr(0, equals), isSet ? value.substr(equals + 1) : ""});
                return {};
            }};
}

std::string TakeVisibility(Options &options, const std::string &value)
{
    const char *const kNames[] = {"beginner", "expert", "guru", "invisible"};
    for (int level = 0; level < 4; ++level) {
        if (value == kNames[level]) {
            options.visibility = static_cast<OrvCam::Visibility>(level);
            return {};
        }
    }
    return "\"" + value + "\" is none of beginner, expert, guru, invisible";
}

std::string TakeEvent(Options &options, const std::string &value)
{
    options.events.push_back(value);
    return {};
}

} // namespace

const std::vector<OptionRow> &OptionRows()
{
    constexpr double kShortest = 0.001;
    constexpr double kLongest = 1e9;
    constexpr std::uint64_t kMostFrames = std::uint64_t{1} << 62;
    static const std::vector<OptionRow> rows = {
        Action("get", "NAME", "prints the feature's value", FeatureAction::Kind::Get),
        Action("set", "NAME=VALUE", "writes the feature", FeatureAction::Kind::Set),
        Action("run", "NAME", "runs the command and waits until it is done", FeatureAction::Kind::Run),
        {"visibility", "LEVEL", "shows features up to beginner, expert, guru (the default) or invisible",
         TakeVisibility},
        Action("set-stream", "NAME=VALUE", "writes a setting of the stream before it starts", FeatureAction::Kind::Set),
        Switch("stream", "the features of the camera's stream, as this computer receives it", &Options::ofStream),
        Switch("interface", "the features of the host's interface instead of the camera's", &Options::ofInterface),
        Switch("interfaces", "the interfaces instead, with how the search through each ended", &Options::byInterface),
        Number<std::uint64_t>("frames", "COUNT", "ends after so many frames", 1, kMostFrames, &Options::frames),
        Number<double>("seconds", "TIME", "ends after so many seconds", kShortest, kLongest, &Options::seconds),
        Number<double>("timeout", "TIME", "gives up after so many seconds without a frame (5)", kShortest, kLongest,
                       &Options::timeoutSeconds),
        Number<unsigned>("buffers", "COUNT", "frames that may wait (16)", 1, 4096, &Options::buffers),
        {"on", "NAME", "switches the camera's event of that name on meanwhile; may be repeated", TakeEvent},
        Switch("streaming", "runs the camera meanwhile: most events come only then", &Options::isStreaming),
        Switch("unchecked", "takes the address as it is, whether it fits this computer's networks or not",
               &Options::isUnchecked),
        Switch("traffic", "counts the raw packets of each channel", &Options::countTraffic),
        Switch("json", "prints for scripts", &Options::isJson),
        Switch("verbose", "prints what the camera library logs on the error output", &Options::isVerbose),
        Switch("help", "prints this and ends", &Options::isHelpWanted),
    };
    return rows;
}

} // namespace orvcli
