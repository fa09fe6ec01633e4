// Device control, transport layer control and the faults.
#include "simulator/core/CameraModel.h"
#include "simulator/core/FeatureRows.h"

#include <algorithm>

namespace orvsim {

namespace {

const char *const kDevice = "DeviceControl";
const char *const kTransport = "TransportLayerControl";
const char *const kFaults = "SimulatorControl";

Feature Fact(const std::string &name, std::int64_t value, const std::string &toolTip)
{
    Feature feature = FactRow(name, kDevice, toolTip, [value] { return value; });
    feature.visibility = Visibility::Expert;
    return feature;
}

void AddIdentity(CameraModel &model)
{
    struct Text {
        const char *name;
        std::string value;
        const char *toolTip;
    };
    const CameraOptions &options = model.options;
    const Text texts[] = {
        {"DeviceVendorName", options.vendor, "Who made the device."},
        {"DeviceModelName", options.model, "Model of the device."},
        {"DeviceFamilyName", "OrvSim", "Family of the device."},
        {"DeviceManufacturerInfo", options.manufacturerInfo, "What the maker says about the device."},
        {"DeviceVersion", options.deviceVersion, "Version of the device."},
        {"DeviceFirmwareVersion", options.deviceVersion + ".0", "Version of the device's firmware."},
        {"DeviceSerialNumber", options.serial, "Serial number of the device."},
        {"DeviceID", options.serial, "Identifier of the device: its serial number."},
    };
    for (const Text &text : texts) {
        const std::string value = text.value;
        model.Add(TextRow(text.name, kDevice, text.toolTip, [value] { return value; }));
    }
    Feature userName = TextRow(
        "DeviceUserID", kDevice, "Name that the user gives the device; kept until the camera ends.",
        [&model] { return model.userName; },
        [&model](const std::string &name) {
            model.userName = name;
            return Outcome::Ok;
        });
    userName.textBytes = 16;
    model.Add(userName);
}

void AddVersions(CameraModel &model)
{
    model.Add(EnumerationRow("DeviceScanType", kDevice, "How the sensor scans.",
                             EntriesOf({{"Areascan", "A whole area at once."}}), [] { return 0; }, {}));
    model.Add(Fact("DeviceSFNCVersionMajor", 2, "Major version of the standard feature names."));
    model.Add(Fact("DeviceSFNCVersionMinor", 7, "Minor version of the standard feature names."));
    model.Add(Fact("DeviceSFNCVersionSubMinor", 0, "Sub-minor version of the standard feature names."));
    const auto family = static_cast<std::int64_t>(model.options.family);
    const auto addCustom = [&model](const char *name, std::int64_t value, const char *toolTip) {
        Feature fact = Fact(name, value, toolTip);
        fact.isCustom = true;
        model.Add(fact);
    };
    addCustom("FamilyID", family, "What sets the sensor's pace: 1 the line time, 2 the pixel clock.");
    addCustom("FirmwareVersion", 0x0103, "Version of the firmware.");
    addCustom("FirmwareImage", 0x01, "Firmware image in use.");
    addCustom("FirmwareBuild", 0x2a, "Build number of the firmware.");
    addCustom("CustomerID", 0, "Customer that the firmware was made for.");
    addCustom("RgsID", 0x11, "Version of the register set.");
    addCustom("FpgaID", 0x5151, "Identifier of the logic.");
    addCustom("EpcsID", 0x16, "Identifier of the configuration memory.");
    addCustom("XmlVersion", 0x0100, "Version of this description.");
    for (const char *name : {"GevFirmwareSwVersion", "GevFirmwareHwVersion"})
        addCustom(name, 0x0200, "Version of the GigE Vision part of the firmware.");
}

void AddTemperature(CameraModel &model)
{
    Feature selector = EnumerationRow("DeviceTemperatureSelector", kDevice, "Where the temperature is taken.",
                                      EntriesOf({{"Sensor", "At the sensor."}, {"Mainboard", "On the main board."}}),
                                      GetterOf(&model.selectors.temperature), SetterOf(&model.selectors.temperature));
    selector.selects = {"DeviceTemperature"};
    model.Add(selector);
    Feature temperature = Row("DeviceTemperature", kDevice, FeatureType::Float, FeatureAccess::ReadOnly,
                              "Temperature; rises while frames are taken.");
    temperature.source = Scaled{"(FROM * 100)", "(TO / 100.0)"};
    temperature.unit = "C";
    temperature.getInteger = [&model] {
        return static_cast<std::int64_t>(model.Temperature(model.selectors.temperature) * 100);
    };
    temperature.getFloat = [&model] { return model.Temperature(model.selectors.temperature); };
    temperature.integerRange = [] { return IntegerRange{-4000, 12500, 1}; };
    temperature.isRangeFixed = true;
    temperature.isVolatile = true;
    temperature.pollingMs = 2000;
    model.Add(temperature);
}

void AddTimestamp(CameraModel &model)
{
    model.Add(CommandRow("TimestampReset", kDevice, "Starts the device's clock anew.", [&model](std::int64_t) {
        model.ResetClock();
        return Outcome::Ok;
    }));
    model.Add(CommandRow("TimestampLatch", kDevice, "Keeps the present time for TimestampLatchValue.",
                         [&model](std::int64_t) {
                             model.latchedNs = model.clock.Now();
                             return Outcome::Ok;
                         }));
    Feature value = FactRow("TimestampLatchValue", kDevice, "Time that was latched.",
                            [&model] { return static_cast<std::int64_t>(model.latchedNs); });
    value.integerBytes = 8;
    value.integerRange = [] { return IntegerRange{0, INT64_MAX, 1}; };
    value.unit = "ns";
    value.isVolatile = true;
    model.Add(value);
    model.Add(CommandRow("DeviceReset", kDevice, "Restarts the device; its clients lose it.", [&model](std::int64_t) {
        model.isResetRequested = true;
        return Outcome::Ok;
    }));
}

void AddLink(CameraModel &model)
{
    const std::int64_t speed = (model.options.linkMbps > 0 ? model.options.linkMbps : 1000) * 125'000;
    Feature linkSpeed = Fact("DeviceLinkSpeed", speed, "Speed of the link.");
    linkSpeed.unit = "Bps";
    linkSpeed.integerBytes = 8;
    linkSpeed.integerRange = [] { return IntegerRange{0, INT64_MAX, 1}; };
    model.Add(linkSpeed);
    Feature mode =
        EnumerationRow("DeviceLinkThroughputLimitMode", kDevice,
                       "Whether the frame rate is kept within DeviceLinkThroughputLimit. When it is not, what "
                       "the link cannot carry is lost.",
                       EntriesOf({{"Off", "No limit."}, {"On", "Limited."}}),
                       GetterOf(&model.state.isThroughputLimited), SetterOf(&model.state.isThroughputLimited));
    mode.isStreamable = true;
    model.Add(mode);
    Feature limit = FixedIntegerRow(
        "DeviceLinkThroughputLimit", kDevice, "Bytes per second that the stream may use, packet overhead included.",
        GetterOf(&model.state.throughputLimit), SetterOf(&model.state.throughputLimit), {125'000, 125'000'000'000, 1});
    limit.integerBytes = 8;
    limit.unit = "Bps";
    limit.isStreamable = true;
    model.Add(limit);
}

Feature FaultFeature(CameraModel &model, const FaultRow &row)
{
    Feature feature;
    if (row.rate != nullptr) {
        double *rate = &(model.faults.*row.rate);
        feature = FixedFloatRow(row.feature, kFaults, row.toolTip, FloatGetterOf(rate), FloatSetterOf(rate), {0, 1});
    } else {
        std::int64_t *number = &(model.faults.*row.number);
        feature = FixedIntegerRow(row.feature, kFaults, row.toolTip, GetterOf(number), SetterOf(number),
                                  {row.minimum, row.maximum, 1});
        feature.integerBytes = 8;
    }
    feature.unit = row.unit;
    feature.visibility = Visibility::Guru;
    return feature;
}

} // namespace

void AddDeviceFeatures(CameraModel &model)
{
    AddIdentity(model);
    AddVersions(model);
    AddTemperature(model);
    AddTimestamp(model);
    AddLink(model);
}

void AddTransportFeatures(CameraModel &model)
{
    Feature payload = FactRow("PayloadSize", kTransport, "Bytes of one frame, with chunks or all its parts.", [&model] {
        const std::int64_t said = static_cast<std::int64_t>(model.PayloadBytes()) + model.faults.payloadSizeError;
        return std::max<std::int64_t>(0, said);
    });
    payload.unit = "B";
    payload.dependsOn = {
        "Width",       "Height",          "PixelFormat",          "BinningHorizontal",  "BinningVertical",
        "ChunkEnable", "ChunkModeActive", "DecimationHorizontal", "DecimationVertical", "SimPayloadSizeError"};
    model.Add(payload);
    Feature locked = FixedIntegerRow("TLParamsLocked", kTransport,
                                     "1 while a client streams: what the frame's size depends on cannot change.",
                                     GetterOf(&model.isLocked), SetterOf(&model.isLocked), {0, 1, 1});
    locked.visibility = Visibility::Invisible;
    model.Add(locked);
}

void AddFaultFeatures(CameraModel &model)
{
    for (const FaultRow &row : FaultRows())
        model.Add(FaultFeature(model, row));
}

} // namespace orvsim
