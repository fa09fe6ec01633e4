// Chunk data control and event control.
#include "simulator/core/CameraModel.h"
#include "simulator/core/ChunkTable.h"
#include "simulator/core/FeatureRows.h"

namespace orvsim {

namespace {

const char *const kChunks = "ChunkDataControl";
const char *const kEvents = "EventControl";

struct EventRow {
    EventKind kind;
    const char *name;
    const char *toolTip;
    bool isOfFrame; ///< it carries the frame's number; others carry nothing
};
const EventRow kEventRows[] = {
    {EventKind::AcquisitionStart, "AcquisitionStart", "An acquisition began.", false},
    {EventKind::AcquisitionEnd, "AcquisitionEnd", "An acquisition ended.", false},
    {EventKind::FrameTrigger, "FrameTrigger", "A trigger was taken.", true},
    {EventKind::FrameTriggerMissed, "FrameTriggerMissed", "A trigger came too early.", false},
    {EventKind::ExposureStart, "ExposureStart", "An exposure began.", true},
    {EventKind::ExposureEnd, "ExposureEnd", "An exposure ended.", true},
    {EventKind::FrameEnd, "FrameEnd", "A frame was sent.", true},
    {EventKind::Test, "Test", "TestEventGenerate was run.", false},
};

/// Where an event's fields lie in the item that the message channel delivers: header, then the frame number. In the
/// extended form the block id has a field of its own in front of the timestamp.
constexpr std::uint32_t kEventTimestampOffset = 8;
constexpr std::uint32_t kEventDataOffset = 16;
constexpr std::uint32_t kExtendedEventBytes = 8;

Feature ReadOnlyNumber(const std::string &name, const char *category, FeatureType type, const std::string &toolTip)
{
    Feature feature = Row(name, category, type, FeatureAccess::ReadOnly, toolTip);
    feature.isVolatile = true;
    return feature;
}

void AddChunkValue(CameraModel &model, const ChunkRow &row)
{
    const bool isFloat = row.kind == ChunkKind::ExposureTime || row.kind == ChunkKind::Gain;
    const std::string name = std::string("Chunk") + row.name;
    Feature feature = ReadOnlyNumber(name, kChunks, isFloat ? FeatureType::Float : FeatureType::Integer, row.toolTip);
    feature.source = ChunkField{row.id, 0, row.bytes};
    feature.integerBytes = row.bytes;
    if (row.kind == ChunkKind::PixelFormat)
        feature.representation = "HexNumber";
    model.Add(feature);
}

void AddEvent(CameraModel &model, const EventRow &row)
{
    const std::string prefix = std::string("Event") + row.name;
    const std::uint32_t id = EventIdOf(row.kind);
    Feature identifier = FactRow(prefix, kEvents, row.toolTip, [id] { return std::int64_t{id}; });
    identifier.representation = "HexNumber";
    identifier.visibility = Visibility::Expert;
    model.Add(identifier);
    const auto add = [&](const char *suffix, std::uint32_t offset, const char *unit, const char *toolTip) {
        Feature field = ReadOnlyNumber(prefix + suffix, kEvents, FeatureType::Integer, toolTip);
        field.source = EventField{id, offset, 8, offset + kExtendedEventBytes};
        field.integerBytes = 8;
        field.unit = unit;
        field.visibility = Visibility::Expert;
        model.Add(field);
    };
    add("Timestamp", kEventTimestampOffset, "ns", "When it happened, on the device's clock.");
    if (row.isOfFrame)
        add("FrameID", kEventDataOffset, "", "Frame that it belongs to.");
}

} // namespace

void AddChunkFeatures(CameraModel &model)
{
    CameraState &state = model.state;
    Feature active = BooleanRow("ChunkModeActive", kChunks, "Whether frames carry data behind their pixels.",
                                GetterOf(&state.hasChunks), SetterOf(&state.hasChunks));
    active.isStreamable = true;
    active.isLocked = [&model] { return model.isLocked; };
    model.Add(active);
    std::vector<EnumerationEntry> entries;
    // Without the image, which is always sent: clients switch every entry off before they switch theirs on.
    for (const ChunkRow &row : ChunkRows()) {
        if (row.kind != ChunkKind::Image)
            entries.push_back({row.name, static_cast<std::int64_t>(row.kind), row.toolTip});
    }
    Feature selector = EnumerationRow("ChunkSelector", kChunks, "Which chunk is shown.", entries,
                                      GetterOf(&model.selectors.chunk), SetterOf(&model.selectors.chunk));
    selector.selects = {"ChunkEnable"};
    model.Add(selector);
    Feature enable = BooleanRow(
        "ChunkEnable", kChunks, "Whether the chunk is sent; the image always is.",
        [&model, &state] { return std::int64_t{state.chunks[static_cast<std::size_t>(model.selectors.chunk)]}; },
        [&model, &state](std::int64_t on) {
            state.chunks[static_cast<std::size_t>(model.selectors.chunk)] = on != 0;
            return Outcome::Ok;
        });
    enable.isStreamable = true;
    enable.isLocked = [&model] { return model.isLocked; };
    model.Add(enable);
    Feature counter =
        EnumerationRow("ChunkCounterSelector", kChunks, "Which counter's value frames carry.", CounterEntries(),
                       GetterOf(&model.selectors.chunkCounter), SetterOf(&model.selectors.chunkCounter));
    counter.selects = {"ChunkCounterValue"};
    model.Add(counter);
    for (const ChunkRow &row : ChunkRows()) {
        if (row.kind != ChunkKind::Image)
            AddChunkValue(model, row);
    }
}

void AddEventFeatures(CameraModel &model)
{
    CameraState &state = model.state;
    std::vector<EnumerationEntry> entries;
    for (const EventRow &row : kEventRows)
        entries.push_back({row.name, static_cast<std::int64_t>(row.kind), row.toolTip});
    Feature selector = EnumerationRow("EventSelector", kEvents, "Which event is shown.", entries,
                                      GetterOf(&model.selectors.event), SetterOf(&model.selectors.event));
    selector.selects = {"EventNotification"};
    model.Add(selector);
    Feature notification = EnumerationRow(
        "EventNotification", kEvents, "Whether the client is told of the event.",
        EntriesOf({{"Off", "It is not."}, {"On", "It is."}}),
        [&model, &state] { return std::int64_t{state.events[static_cast<std::size_t>(model.selectors.event)]}; },
        [&model, &state](std::int64_t on) {
            state.events[static_cast<std::size_t>(model.selectors.event)] = on != 0;
            return Outcome::Ok;
        });
    notification.isStreamable = true;
    model.Add(notification);
    model.Add(CommandRow("TestEventGenerate", kEvents, "Makes a Test event.", [&model](std::int64_t) {
        model.Happened(EventKind::Test, model.clock.Now());
        return Outcome::Ok;
    }));
    for (const EventRow &row : kEventRows)
        AddEvent(model, row);
}

} // namespace orvsim
