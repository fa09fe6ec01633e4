#include "orvdisplay/DisplayParams.h"

#include "orvdisplay/ColourMap.h"

#include <cstring>
#include <limits>

namespace orv {

namespace {

/// Longest colour map: three numbers of eight characters and their separators for each level.
constexpr std::size_t kColourMapCapacity = std::size_t{kMaxColourMapEntries} * 3 * 10 + 1;

constexpr const char *kColourMapFilter = "cmap.base";

/// The view that this thread is publishing, so that its own listener leaves the notification alone. Another display's
/// parameters may be set by listeners of the notification: those must act.
thread_local const DisplayParams *t_publishing = nullptr;

/// Names are passed without const throughout the store's interface; it does not write them.
char *NameArg(const char *name)
{
    return const_cast<char *>(name);
}

_OrvStParam Record(const char *name, OrvParamType type)
{
    _OrvStParam param;
    std::memset(&param, 0, sizeof param);
    param.type = type;
    param.access = ORV_PARAM_ACCESS_RW;
    std::strncpy(param.name, name, sizeof param.name - 1);
    return param;
}

DisplayParams &ParamsOf(void *context)
{
    return *static_cast<DisplayParams *>(context);
}

std::uint32_t Status(OrvParamStatus status)
{
    return status | static_cast<std::uint32_t>(DisplayParams::kTypeId) << 16;
}

} // namespace

DisplayParams::DisplayParams(DisplayControl &control)
    : OrvComponentImp(kTypeId), m_control(control), m_colourMap(kColourMapCapacity)
{
    Declare();
}

void DisplayParams::Declare()
{
    constexpr IntRange kFits = {0, 3};
    constexpr IntRange kAny = {std::numeric_limits<long>::min(), std::numeric_limits<long>::max()};
    AddInt("display.fit", m_members.fit, kFits);
    AddCommand("display.zoom.in", [](void *context) {
        ParamsOf(context).m_control.ZoomIn();
        return 0;
    });
    AddCommand("display.zoom.out", [](void *context) {
        ParamsOf(context).m_control.ZoomOut();
        return 0;
    });
    AddCommand("display.atcenter", [](void *context) {
        ParamsOf(context).m_control.CentreImage();
        return 0;
    });
    // A fit may lie beyond the zoom range and must be publishable; setting is brought into the zoom range.
    AddFloat("display.view.scale", m_members.scale, 0, std::numeric_limits<double>::max());
    AddInt("display.init.fit", m_members.initialFit, kFits);
    AddFloat("display.init.at.x", m_members.initialX, 0, 1);
    AddFloat("display.init.at.y", m_members.initialY, 0, 1);
    AddInt("dump.x", m_members.markedX, kAny);
    AddInt("dump.y", m_members.markedY, kAny);
    AddInt("dump.w", m_members.markedWidth, kAny);
    AddInt("dump.h", m_members.markedHeight, kAny);
    AddCommand("display.dump.on", [](void *context) {
        ParamsOf(context).SwitchMark(true);
        return 0;
    });
    AddCommand("display.dump.off", [](void *context) {
        ParamsOf(context).SwitchMark(false);
        return 0;
    });
    AddInt("filter.id", m_members.filterId, kAny);
    AddString("filter.name", m_members.filterName, sizeof m_members.filterName);
    AddInt("filter.channels", m_members.filterChannels, {0, 4});
    AddString("filter.channel.0", m_colourMap.data(), m_colourMap.size());
    AddInt("filter.state", m_members.filterState, {0, 1});
    AddCommand("filter.add", [](void *context) { return ParamsOf(context).AddFilter(); });
    AddCommand("filter.del", [](void *context) { return ParamsOf(context).DeleteFilter(); });
    for (const char *name :
         {"display.fit", "display.view.scale", "dump.x", "dump.y", "dump.w", "dump.h", "filter.state"})
        Listen(name);
}

void DisplayParams::AddInt(const char *name, long &member, const IntRange &range)
{
    static_assert(sizeof(long) == sizeof(std::int64_t));
    _OrvStParam param = Record(name, ORV_PARAM_INT);
    param.asInt.defaultValue = member;
    param.asInt.minimum = range.minimum;
    param.asInt.maximum = range.maximum;
    param.asInt.value = &member;
    m_params.AddParam(&param);
}

void DisplayParams::AddFloat(const char *name, double &member, double minimum, double maximum)
{
    _OrvStParam param = Record(name, ORV_PARAM_FLOAT);
    param.asFloat.defaultValue = member;
    param.asFloat.minimum = minimum;
    param.asFloat.maximum = maximum;
    param.asFloat.value = &member;
    m_params.AddParam(&param);
}

void DisplayParams::AddString(const char *name, char *member, std::size_t capacity)
{
    _OrvStParam param = Record(name, ORV_PARAM_STRING);
    param.asString.defaultValue = "";
    param.asString.value = member;
    param.asString.capacity = static_cast<std::int64_t>(capacity);
    m_params.AddParam(&param);
}

void DisplayParams::AddCommand(const char *name, OrvParamCommand run)
{
    _OrvStParam param = Record(name, ORV_PARAM_COMMAND);
    param.asCommand.run = run;
    param.asCommand.context = this;
    m_params.AddParam(&param);
}

void DisplayParams::Listen(const char *name)
{
    m_params.AddParamChangedListener(NameArg(name), this);
}

long DisplayParams::IntValue(const char *name) const
{
    long value = 0;
    m_params.GetParamInt(NameArg(name), &value);
    return value;
}

double DisplayParams::FloatValue(const char *name) const
{
    double value = 0;
    m_params.GetParamFloat(NameArg(name), &value);
    return value;
}

std::string DisplayParams::TextValue(const char *name, std::size_t capacity) const
{
    std::vector<char> text(capacity);
    auto length = static_cast<unsigned int>(capacity);
    return m_params.GetParamString(NameArg(name), text.data(), &length) == ORV_PARAM_OK ? text.data() : "";
}

StartView DisplayParams::InitialView() const
{
    return {static_cast<Fit>(IntValue("display.init.fit")), FloatValue("display.init.at.x"),
            FloatValue("display.init.at.y")};
}

void DisplayParams::PublishView(Fit fit, double scale)
{
    const DisplayParams *const outer = t_publishing;
    t_publishing = this;
    if (IntValue("display.fit") != static_cast<long>(fit))
        m_params.SetParamInt(NameArg("display.fit"), static_cast<long>(fit), true);
    if (FloatValue("display.view.scale") != scale)
        m_params.SetParamFloat(NameArg("display.view.scale"), scale, true);
    t_publishing = outer;
}

void DisplayParams::ParamChanged(_OrvStParam param)
{
    if (t_publishing == this)
        return;
    const std::string name = param.name;
    if (name == "display.fit") {
        m_control.SetFit(static_cast<Fit>(IntValue("display.fit")));
    } else if (name == "display.view.scale") {
        m_control.SetScale(FloatValue("display.view.scale"));
    } else {
        const MutexLock lock(m_mutex);
        if (name == "filter.state")
            ApplyFilter();
        else
            MarkAsSet();
    }
}

void DisplayParams::SwitchMark(bool isOn)
{
    const MutexLock lock(m_mutex);
    m_isMarked = isOn;
    MarkAsSet();
}

void DisplayParams::MarkAsSet()
{
    m_control.Mark({IntValue("dump.x"), IntValue("dump.y"), IntValue("dump.w"), IntValue("dump.h"), m_isMarked});
}

int DisplayParams::AddFilter()
{
    auto colours = std::make_shared<LevelColours>();
    const bool isKnown =
        TextValue("filter.name", sizeof m_members.filterName) == kColourMapFilter && IntValue("filter.channels") == 1;
    const bool isGood = isKnown && ParseColourMap(TextValue("filter.channel.0", m_colourMap.size()), *colours);
    const MutexLock lock(m_mutex);
    m_filter = isGood ? colours : nullptr;
    m_filterId = IntValue("filter.id");
    ApplyFilter();
    return isGood ? 0 : static_cast<int>(Status(ORV_PARAM_BAD_VALUE));
}

int DisplayParams::DeleteFilter()
{
    const MutexLock lock(m_mutex);
    if (m_filterId == IntValue("filter.id"))
        m_filter = nullptr;
    ApplyFilter();
    return 0;
}

void DisplayParams::ApplyFilter()
{
    m_control.SetColours(IntValue("filter.state") != 0 ? m_filter : nullptr);
}

} // namespace orv
