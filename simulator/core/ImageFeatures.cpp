// Image format control and analog control.
#include "simulator/core/CameraModel.h"
#include "simulator/core/FeatureRows.h"

#include "orvimage/PixelFormats.h"
#include "orvimage/PixelLayout.h"

#include <algorithm>
#include <array>

namespace orvsim {

namespace {

const char *const kImage = "ImageFormatControl";
const char *const kAnalog = "AnalogControl";

/// Steps of the frame's size; the least is kFewestSteps of them.
constexpr int kWidthStep = 8;
constexpr int kHeightStep = 2;
constexpr int kFewestSteps = 4;
constexpr int kHighestFactor = 4;

/// A setting that changes the frame's size or region, and so is locked while a client streams.
Feature Geometry(CameraModel &model, Feature feature)
{
    feature.isLocked = [&model] { return model.isLocked; };
    feature.isStreamable = true;
    return feature;
}

void AddSensor(CameraModel &model)
{
    const SensorTraits &sensor = model.options.sensor;
    const auto pixels = [&model](const char *name, int value, const char *toolTip) {
        Feature feature = FactRow(name, kImage, toolTip, [value] { return std::int64_t{value}; });
        feature.unit = "px";
        model.Add(feature);
    };
    pixels("SensorWidth", sensor.width, "Columns of the sensor.");
    pixels("SensorHeight", sensor.height, "Lines of the sensor.");
    const std::int64_t type = sensor.isColour ? 1 : 0;
    Feature sensorType = EnumerationRow("SensorType", kImage, "What the sensor sees.",
                                        EntriesOf({{"Monochrome", "Brightness."}, {"Color", "Colours, by a filter."}}),
                                        [type] { return type; }, {});
    sensorType.isCustom = true;
    model.Add(sensorType);
}

void AddRegion(CameraModel &model)
{
    FrameSettings &frame = model.state.frame;
    const std::vector<std::string> reduction = {"BinningHorizontal", "BinningVertical", "DecimationHorizontal",
                                                "DecimationVertical"};
    struct Side {
        const char *size;
        const char *offset;
        const char *maximum;
        int FrameSettings::*sizeMember;
        int FrameSettings::*offsetMember;
        int (CameraModel::*most)() const;
        int step;
        const char *what;
    };
    const Side sides[] = {
        {"Width", "OffsetX", "WidthMax", &FrameSettings::width, &FrameSettings::offsetX, &CameraModel::WidthMax,
         kWidthStep, "columns"},
        {"Height", "OffsetY", "HeightMax", &FrameSettings::height, &FrameSettings::offsetY, &CameraModel::HeightMax,
         kHeightStep, "lines"},
    };
    for (const Side &side : sides) {
        Feature most = FactRow(side.maximum, kImage, std::string("Most ") + side.what + " that a frame can have.",
                               [&model, side] { return std::int64_t{(model.*side.most)()}; });
        most.unit = "px";
        most.dependsOn = reduction;
        model.Add(most);
        int *size = &(frame.*side.sizeMember);
        int *offset = &(frame.*side.offsetMember);
        Feature sizeRow = Geometry(
            model,
            IntegerRow(side.size, kImage, std::string("The frame's ") + side.what + ".", GetterOf(size), SetterOf(size),
                       [&model, side, offset] {
                           const int room = ((model.*side.most)() - *offset);
                           return IntegerRange{side.step * kFewestSteps, room / side.step * side.step, side.step};
                       }));
        sizeRow.unit = "px";
        sizeRow.dependsOn = reduction;
        sizeRow.dependsOn.push_back(side.offset);
        model.Add(sizeRow);
        Feature offsetRow =
            Geometry(model, IntegerRow(side.offset, kImage, std::string("First of the frame's ") + side.what + ".",
                                       GetterOf(offset), SetterOf(offset), [&model, side, size] {
                                           return IntegerRange{0, ((model.*side.most)() - *size) / 2 * 2, 2};
                                       }));
        offsetRow.unit = "px";
        offsetRow.dependsOn = reduction;
        offsetRow.dependsOn.push_back(side.size);
        model.Add(offsetRow);
    }
}

void AddReduction(CameraModel &model)
{
    FrameSettings &frame = model.state.frame;
    struct Factor {
        const char *name;
        const char *otherName; ///< in the same direction
        int *value;
        const int *other;
        int room; ///< how often the smallest frame fits the sensor
        const char *toolTip;
    };
    const int across = model.options.sensor.width / (kWidthStep * kFewestSteps);
    const int down = model.options.sensor.height / (kHeightStep * kFewestSteps);
    const Factor factors[] = {
        {"BinningHorizontal", "DecimationHorizontal", &frame.binningX, &frame.decimationX, across,
         "Sensor columns that make one column of the frame."},
        {"BinningVertical", "DecimationVertical", &frame.binningY, &frame.decimationY, down,
         "Sensor lines that make one line of the frame."},
        {"DecimationHorizontal", "BinningHorizontal", &frame.decimationX, &frame.binningX, across,
         "One of so many columns is read."},
        {"DecimationVertical", "BinningVertical", &frame.decimationY, &frame.binningY, down,
         "One of so many lines is read."},
    };
    for (const Factor &factor : factors) {
        int *value = factor.value;
        const auto set = [&model, value](std::int64_t given) {
            *value = static_cast<int>(given);
            model.FitRegion();
            return Outcome::Ok;
        };
        const auto range = [factor] {
            return IntegerRange{1, std::clamp(factor.room / *factor.other, 1, kHighestFactor), 1};
        };
        Feature row = Geometry(model, IntegerRow(factor.name, kImage, factor.toolTip, GetterOf(value), set, range));
        row.dependsOn = {factor.otherName};
        model.Add(row);
    }
    const auto addStreamable = [&model](Feature row) {
        row.isStreamable = true;
        model.Add(std::move(row));
    };
    const auto modes = EntriesOf({{"Sum", "Their sum: brighter."}, {"Average", "Their mean: less noise."}});
    addStreamable(EnumerationRow("BinningHorizontalMode", kImage, "How binned columns make one.", modes,
                                 GetterOf(&frame.binningModeX), SetterOf(&frame.binningModeX)));
    addStreamable(EnumerationRow("BinningVerticalMode", kImage, "How binned lines make one.", modes,
                                 GetterOf(&frame.binningModeY), SetterOf(&frame.binningModeY)));
    addStreamable(BooleanRow("ReverseX", kImage, "Mirrors the picture left to right; the colour filter's order stays.",
                             GetterOf(&frame.reverseX), SetterOf(&frame.reverseX)));
    addStreamable(BooleanRow("ReverseY", kImage, "Mirrors the picture top to bottom; the colour filter's order stays.",
                             GetterOf(&frame.reverseY), SetterOf(&frame.reverseY)));
}

/// What a pixel of the format holds.
std::string FormatToolTip(std::uint32_t pixelType)
{
    const orv::PixelLayout layout = orv::LayoutOf(pixelType);
    const std::string bits = std::to_string(layout.bits) + " bit";
    const std::string memory = " per value, " + std::to_string(layout.bitsPerPixel) + " per pixel.";
    switch (layout.family) {
    case orv::PixelFamily::Mono:
        return "Brightness: " + bits + memory;
    case orv::PixelFamily::Bayer:
        return "One colour per pixel, by the filter: " + bits + memory;
    case orv::PixelFamily::Rgb:
        return "Red, green and blue: " + bits + memory;
    default:
        return "Brightness and colour difference: " + bits + memory;
    }
}

void AddPixelFormat(CameraModel &model)
{
    std::uint32_t &type = model.state.frame.pixelType;
    std::vector<EnumerationEntry> entries;
    for (const std::uint32_t offered : OfferedPixelTypes(model.options.sensor.isColour)) {
        const std::uint32_t code = orv::WireFromPixelType(offered);
        entries.push_back({orv::WireFormatName(code), code, FormatToolTip(offered)});
    }
    model.Add(Geometry(model, EnumerationRow(
                                  "PixelFormat", kImage, "What a pixel holds and how it lies in memory.", entries,
                                  [&type] { return std::int64_t{orv::WireFromPixelType(type)}; },
                                  [&type](std::int64_t code) {
                                      type = orv::PixelTypeFromWire(static_cast<std::uint32_t>(code));
                                      return Outcome::Ok;
                                  })));
    const auto depth = [&type] { return std::int64_t{1} << orv::LayoutOf(type).bits; };
    const auto add = [&model](Feature feature, const char *unit) {
        feature.unit = unit;
        feature.dependsOn = {"PixelFormat"};
        model.Add(feature);
    };
    add(FactRow("PixelSizeBits", kImage, "Bits of a pixel in memory.",
                [&type] { return std::int64_t{orv::BitsPerPixel(type)}; }),
        "bit");
    add(FactRow("PixelDynamicRangeMin", kImage, "Lowest value of a pixel's channel.", [] { return 0; }), "");
    add(FactRow("PixelDynamicRangeMax", kImage, "Highest value of a pixel's channel.", [depth] { return depth() - 1; }),
        "");
}

void AddTestPattern(CameraModel &model)
{
    TestPattern &pattern = model.state.frame.testPattern;
    Feature row =
        EnumerationRow("TestPattern", kImage, "Computed pictures in the place of the sensor's.",
                       EntriesOf({{"Off", "The sensor's picture."},
                                  {"Black", "Zero everywhere."},
                                  {"White", "The highest value everywhere."},
                                  {"GreyHorizontalRamp", "Rises from left to right."},
                                  {"GreyVerticalRamp", "Rises from top to bottom."},
                                  {"ColorBar", "Eight bars of colour."},
                                  {"FrameCounter", "Column + line + frame number: every byte can be checked."}}),
                       GetterOf(&pattern), SetterOf(&pattern));
    row.isStreamable = true;
    model.Add(row);
}

void AddBalance(CameraModel &model)
{
    Feature selector =
        EnumerationRow("BalanceRatioSelector", kAnalog, "Colour whose ratio is shown.",
                       EntriesOf({{"Red", "Red pixels."}, {"Green", "Green pixels."}, {"Blue", "Blue pixels."}}),
                       GetterOf(&model.selectors.balance), SetterOf(&model.selectors.balance));
    selector.selects = {"BalanceRatio"};
    model.Add(selector);
    const auto ratio = [&model]() -> double & {
        FrameSettings &frame = model.state.frame;
        const std::array<double *, 3> ratios = {&frame.balanceRed, &frame.balanceGreen, &frame.balanceBlue};
        return *ratios[static_cast<std::size_t>(model.selectors.balance)];
    };
    Feature row = FixedFloatRow(
        "BalanceRatio", kAnalog, "Factor of the selected colour.", [ratio] { return ratio(); },
        [ratio](double given) {
            ratio() = given;
            return Outcome::Ok;
        },
        {0.25, 4});
    row.isStreamable = true;
    model.Add(row);
}

} // namespace

void AddImageFeatures(CameraModel &model)
{
    AddSensor(model);
    AddRegion(model);
    AddReduction(model);
    AddPixelFormat(model);
    AddTestPattern(model);
}

void AddAnalogFeatures(CameraModel &model)
{
    FrameSettings &frame = model.state.frame;
    const auto add = [&model](const char *name, const char *unit, double *value, FloatRange range,
                              const char *toolTip) {
        Feature row = FixedFloatRow(name, kAnalog, toolTip, FloatGetterOf(value), FloatSetterOf(value), range);
        row.unit = unit;
        row.representation = "Linear";
        row.isStreamable = true;
        model.Add(row);
    };
    Feature gainSelector = EnumerationRow(
        "GainSelector", kAnalog, "Which gain is shown.", EntriesOf({{"All", "Of all pixels."}}), [] { return 0; },
        [](std::int64_t) { return Outcome::Ok; });
    gainSelector.selects = {"Gain"};
    model.Add(gainSelector);
    add("Gain", "dB", &frame.gainDb, {0, 24}, "Amplification before the converter.");
    Feature blackSelector = EnumerationRow(
        "BlackLevelSelector", kAnalog, "Which black level is shown.", EntriesOf({{"All", "Of all pixels."}}),
        [] { return 0; }, [](std::int64_t) { return Outcome::Ok; });
    blackSelector.selects = {"BlackLevel"};
    model.Add(blackSelector);
    add("BlackLevel", "DN", &frame.blackLevel, {0, 511}, "Level of a dark pixel, in steps of the converter.");
    add("Gamma", "", &frame.gamma, {0.25, 4}, "Exponent that brings brightness to the output.");
    if (model.options.sensor.isColour)
        AddBalance(model);
}

} // namespace orvsim
