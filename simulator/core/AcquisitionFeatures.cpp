// Acquisition control, counters and timer, user sets.
#include "simulator/core/CameraModel.h"
#include "simulator/core/FeatureRows.h"
#include "simulator/core/SensorTiming.h"

#include <algorithm>

namespace orvsim {

namespace {

const char *const kAcquisition = "AcquisitionControl";
const char *const kCounting = "CounterAndTimerControl";
const char *const kUserSets = "UserSetControl";

/// What the shortest period between frames follows from.
std::vector<std::string> WhatSetsThePace(const CameraModel &model)
{
    std::vector<std::string> names = {"Width",
                                      "Height",
                                      "BinningHorizontal",
                                      "BinningVertical",
                                      "PixelFormat",
                                      "ChunkModeActive",
                                      "DecimationHorizontal",
                                      "DecimationVertical",
                                      "ExposureTime",
                                      "ChunkEnable",
                                      "DeviceLinkThroughputLimitMode",
                                      "DeviceLinkThroughputLimit"};
    names.push_back(TimingFeature(model.options));
    return names;
}

void AddCommands(CameraModel &model)
{
    CameraState &state = model.state;
    Feature mode = EnumerationRow("AcquisitionMode", kAcquisition, "How many frames an acquisition takes.",
                                  EntriesOf({{"SingleFrame", "One."},
                                             {"MultiFrame", "AcquisitionFrameCount."},
                                             {"Continuous", "Until it is stopped."}}),
                                  GetterOf(&state.acquisitionMode), SetterOf(&state.acquisitionMode));
    mode.isStreamable = true;
    mode.isLocked = [&model] { return model.isLocked; };
    model.Add(mode);
    model.Add(CommandRow("AcquisitionStart", kAcquisition, "Begins to take frames.", [&model](std::int64_t) {
        model.StartAcquisition();
        return Outcome::Ok;
    }));
    model.Add(CommandRow("AcquisitionStop", kAcquisition, "Takes no more frames.", [&model](std::int64_t) {
        model.EndAcquisition();
        return Outcome::Ok;
    }));
    model.Add(CommandRow("AcquisitionAbort", kAcquisition, "Ends within a frame, too.", [&model](std::int64_t) {
        model.AbortAcquisition();
        return Outcome::Ok;
    }));
    Feature count = FixedIntegerRow("AcquisitionFrameCount", kAcquisition, "Frames of a MultiFrame acquisition.",
                                    GetterOf(&state.frameCount), SetterOf(&state.frameCount), {1, 65535, 1});
    count.isStreamable = true;
    model.Add(count);
}

void AddRate(CameraModel &model)
{
    CameraState &state = model.state;
    Feature enable = BooleanRow("AcquisitionFrameRateEnable", kAcquisition,
                                "Whether AcquisitionFrameRate sets the pace; else frames come as fast as they can.",
                                GetterOf(&state.isRateEnabled), SetterOf(&state.isRateEnabled));
    enable.isStreamable = true;
    model.Add(enable);
    const auto most = [&model] { return model.Timing().MaximumRateHz(); };
    Feature rate = FloatRow(
        "AcquisitionFrameRate", kAcquisition,
        "Frames per second. The most follows from region, format, exposure, the sensor's pace and the link.",
        [&model, most] { return std::min(model.state.rateHz, most()); }, FloatSetterOf(&state.rateHz),
        [most] {
            return FloatRange{std::min(0.01, most()), most()};
        });
    rate.unit = "Hz";
    rate.isStreamable = true;
    rate.dependsOn = WhatSetsThePace(model);
    model.Add(rate);
    Feature resulting = FloatRow(
        "ResultingFrameRate", kAcquisition, "Frames per second that the settings lead to.",
        [&model] { return 1e9 / model.PeriodNs(); }, {},
        [] {
            return FloatRange{0, 1e6};
        });
    resulting.isRangeFixed = true;
    resulting.isCustom = true;
    resulting.unit = "Hz";
    resulting.dependsOn = WhatSetsThePace(model);
    resulting.dependsOn.insert(resulting.dependsOn.end(), {"AcquisitionFrameRate", "AcquisitionFrameRateEnable"});
    model.Add(resulting);
}

void AddExposure(CameraModel &model)
{
    model.Add(EnumerationRow(
        "ExposureMode", kAcquisition, "What ends the exposure.", EntriesOf({{"Timed", "ExposureTime."}}),
        [] { return 0; }, [](std::int64_t) { return Outcome::Ok; }));
    double *exposure = &model.state.frame.exposureUs;
    Feature row = FixedFloatRow("ExposureTime", kAcquisition, "Time that light is gathered for a frame.",
                                FloatGetterOf(exposure), FloatSetterOf(exposure), {10, 10'000'000});
    row.unit = "us";
    row.representation = "Logarithmic";
    row.isStreamable = true;
    model.Add(row);
}

void AddTiming(CameraModel &model)
{
    const bool isClock = model.options.family == TimingFamily::PixelClock;
    std::int64_t *value = isClock ? &model.state.pixelClockMHz : &model.state.lineClocks;
    const IntegerRange range =
        isClock ? IntegerRange{10, model.options.maxPixelClockMHz, 1} : IntegerRange{kShortestLineClocks, 8000, 1};
    Feature row =
        FixedIntegerRow(TimingFeature(model.options), kAcquisition,
                        isClock ? "Columns that the sensor reads per microsecond: sets the fastest frame rate."
                                : "Clocks of 75 MHz that a line takes: sets the fastest frame rate.",
                        GetterOf(value), SetterOf(value), range);
    row.unit = isClock ? "MHz" : "clocks";
    row.isStreamable = true;
    row.isCustom = true;
    model.Add(row);
}

void AddTrigger(CameraModel &model)
{
    CameraState &state = model.state;
    Feature selector = EnumerationRow(
        "TriggerSelector", kAcquisition, "Which trigger is shown.",
        EntriesOf({{"FrameStart", "Starts the exposure of a frame."}}), [] { return 0; },
        [](std::int64_t) { return Outcome::Ok; });
    selector.selects = {"TriggerMode", "TriggerSource", "TriggerSoftware", "TriggerDelay"};
    model.Add(selector);
    Feature mode = EnumerationRow("TriggerMode", kAcquisition, "Whether frames wait for a trigger.",
                                  EntriesOf({{"Off", "They do not."}, {"On", "They do."}}),
                                  GetterOf(&state.isTriggerOn), SetterOf(&state.isTriggerOn));
    mode.isStreamable = true;
    model.Add(mode);
    Feature source =
        EnumerationRow("TriggerSource", kAcquisition, "Where triggers come from.",
                       EntriesOf({{"Software", "TriggerSoftware."}, {"Timer0End", "The timer, again and again."}}),
                       GetterOf(&state.triggerSource), SetterOf(&state.triggerSource));
    source.isStreamable = true;
    model.Add(source);
    const auto isUsed = [&state] { return state.isTriggerOn && state.triggerSource == TriggerSource::Software; };
    Feature software = CommandRow("TriggerSoftware", kAcquisition, "Triggers one frame.",
                                  [&model](std::int64_t) { return model.SoftwareTrigger(); });
    software.isAvailable = isUsed;
    software.dependsOn = {"TriggerMode", "TriggerSource"};
    model.Add(software);
    Feature delay =
        FixedFloatRow("TriggerDelay", kAcquisition, "Time from a trigger to the exposure.",
                      FloatGetterOf(&state.triggerDelayUs), FloatSetterOf(&state.triggerDelayUs), {0, 1'000'000});
    delay.unit = "us";
    delay.isStreamable = true;
    model.Add(delay);
}

} // namespace

std::string TimingFeature(const CameraOptions &options)
{
    const std::string name = options.family == TimingFamily::PixelClock ? "PixelClock" : "LineTime";
    return options.hasFramePrefix ? "Frame_" + name : name;
}

void AddAcquisitionFeatures(CameraModel &model)
{
    AddCommands(model);
    AddRate(model);
    AddTiming(model);
    AddExposure(model);
    AddTrigger(model);
}

std::vector<EnumerationEntry> CounterEntries()
{
    return EntriesOf({{"Counter0", "The first counter."}, {"Counter1", "The second counter."}});
}

void AddCounterFeatures(CameraModel &model)
{
    CameraState &state = model.state;
    Feature selector = EnumerationRow("CounterSelector", kCounting, "Which counter is shown.", CounterEntries(),
                                      GetterOf(&model.selectors.counter), SetterOf(&model.selectors.counter));
    selector.selects = {"CounterEventSource", "CounterValue", "CounterReset"};
    model.Add(selector);
    const auto selected = [&model] { return static_cast<std::size_t>(model.selectors.counter); };
    Feature source = EnumerationRow(
        "CounterEventSource", kCounting, "What the counter counts.",
        EntriesOf({{"Off", "Nothing."},
                   {"FrameTrigger", "Triggers."},
                   {"ExposureStart", "Exposures."},
                   {"FrameEnd", "Frames sent."}}),
        [&state, selected] { return static_cast<std::int64_t>(state.counterSources[selected()]); },
        [&state, selected](std::int64_t value) {
            state.counterSources[selected()] = static_cast<CounterSource>(value);
            return Outcome::Ok;
        });
    source.isStreamable = true;
    model.Add(source);
    Feature value = FactRow("CounterValue", kCounting, "What was counted since the last reset.",
                            [&model, selected] { return static_cast<std::int64_t>(model.counters[selected()]); });
    value.isVolatile = true;
    value.pollingMs = 1000;
    model.Add(value);
    model.Add(CommandRow("CounterReset", kCounting, "Sets the counter to 0.", [&model, selected](std::int64_t) {
        model.counters[selected()] = 0;
        return Outcome::Ok;
    }));
    Feature timerSelector = EnumerationRow(
        "TimerSelector", kCounting, "Which timer is shown.", EntriesOf({{"Timer0", "The only timer."}}),
        [] { return 0; }, [](std::int64_t) { return Outcome::Ok; });
    timerSelector.selects = {"TimerDuration"};
    model.Add(timerSelector);
    Feature duration =
        FixedFloatRow("TimerDuration", kCounting, "Time from one end of the timer to the next.",
                      FloatGetterOf(&state.timerPeriodUs), FloatSetterOf(&state.timerPeriodUs), {100, 60'000'000});
    duration.unit = "us";
    duration.isStreamable = true;
    model.Add(duration);
}

void AddUserSetFeatures(CameraModel &model)
{
    const auto sets = EntriesOf({{"Default", "As delivered; cannot be changed."},
                                 {"UserSet1", "The user's first."},
                                 {"UserSet2", "The user's second."}});
    Feature selector = EnumerationRow("UserSetSelector", kUserSets, "Which set of settings is loaded or saved.", sets,
                                      GetterOf(&model.selectors.userSet), SetterOf(&model.selectors.userSet));
    selector.selects = {"UserSetLoad", "UserSetSave"};
    model.Add(selector);
    Feature load = CommandRow("UserSetLoad", kUserSets, "Takes the settings of the set.",
                              [&model](std::int64_t) { return model.LoadUserSet(model.selectors.userSet); });
    load.isLocked = [&model] { return model.isLocked; };
    model.Add(load);
    Feature save = CommandRow("UserSetSave", kUserSets, "Keeps the settings in the set until the camera ends.",
                              [&model](std::int64_t) { return model.SaveUserSet(model.selectors.userSet); });
    save.isAvailable = [&model] { return model.selectors.userSet != UserSet::Default; };
    model.Add(save);
    model.Add(EnumerationRow("UserSetDefault", kUserSets, "The set that a reset loads.", sets,
                             GetterOf(&model.startSet), SetterOf(&model.startSet)));
}

} // namespace orvsim
