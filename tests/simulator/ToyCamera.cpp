#include "tests/simulator/ToyCamera.h"

#include "simulator/core/FeatureRows.h"

namespace orvsim {

namespace {

constexpr std::uint32_t kFirstRegister = 0x1000;
const char *const kRoom = "ImageFormatControl";
const char *const kLight = "AnalogControl";
const char *const kOther = "SimExtras";

} // namespace

ToyCamera::ToyCamera()
{
    AddIntegers();
    AddFloats();
    AddChoices();
    AddCommands();
    AddTexts();
    AddComputed();
    AddFields();
    table.PlaceRegisters(registers, kFirstRegister);
}

std::string ToyCamera::Xml() const
{
    DescriptionHead head;
    head.vendor = "Toy \"Makers\" & Sons";
    head.model = "Toy 1";
    return MakeDescription(table, head);
}

GenApiBridge ToyCamera::Open()
{
    return GenApiBridge(
        Xml(),
        [this](std::uint32_t address, std::uint32_t size, std::uint8_t *bytes) {
            return registers.Read(address, size, bytes);
        },
        [this](std::uint32_t address, std::uint32_t size, const std::uint8_t *bytes) {
            return registers.Write(address, size, bytes);
        });
}

std::string ToyCamera::Set(const std::string &name, const std::string &text)
{
    std::string problem;
    return table.SetText(name, text, problem) == Outcome::Ok ? "" : problem;
}

void ToyCamera::AddIntegers()
{
    Feature size =
        IntegerRow("Width", kRoom, "Columns <of> the frame & more.", GetterOf(&width), SetterOf(&width), [this] {
            return IntegerRange{16, (1280 - offset) / 16 * 16, 16};
        });
    size.isLocked = [this] { return isStreaming != 0; };
    size.dependsOn = {"OffsetX"};
    size.isStreamable = true;
    size.unit = "px";
    table.Add(size);
    Feature begin = IntegerRow("OffsetX", kRoom, "First column.", GetterOf(&offset), SetterOf(&offset), [this] {
        return IntegerRange{0, 1280 - width, 1};
    });
    begin.dependsOn = {"Width"};
    table.Add(begin);
    Feature locked = FixedIntegerRow("TLParamsLocked", kRoom, "1 while streaming.", GetterOf(&isStreaming),
                                     SetterOf(&isStreaming), {0, 1, 1});
    locked.visibility = Visibility::Invisible;
    table.Add(locked);
    Feature signedLevel = FixedIntegerRow("SimLevel", kOther, "Signed in four bytes.", GetterOf(&level),
                                          SetterOf(&level), {-100, 100, 5});
    signedLevel.isVolatile = true;
    signedLevel.pollingMs = 500;
    table.Add(signedLevel);
    Feature wide = IntegerRow("SimCount", kOther, "Eight bytes.", GetterOf(&count), SetterOf(&count), [this] {
        return IntegerRange{-count, 2 * count, 1};
    });
    wide.integerBytes = 8;
    wide.visibility = Visibility::Guru;
    table.Add(wide);
    Feature secret = FixedIntegerRow("SimKey", kOther, "Cannot be read.", {}, SetterOf(&key), {0, 0xffffffff, 1});
    secret.access = FeatureAccess::WriteOnly;
    secret.representation = "HexNumber";
    table.Add(secret);
    Feature wideFact = FactRow("SimFact", kOther, "Above four bytes.", [] { return std::int64_t{1} << 40; });
    wideFact.integerBytes = 8;
    table.Add(wideFact);
}

void ToyCamera::AddFloats()
{
    Feature exposure = FixedFloatRow("ExposureTime", kLight, "Time.", FloatGetterOf(&exposureUs),
                                     FloatSetterOf(&exposureUs), {10, 1e6});
    exposure.unit = "us";
    exposure.representation = "Logarithmic";
    table.Add(exposure);
    Feature selector =
        EnumerationRow("GainSelector", kLight, "Which gain is shown.", EntriesOf({{"Analog", ""}, {"Digital", ""}}),
                       GetterOf(&channel), SetterOf(&channel));
    selector.selects = {"Gain"};
    table.Add(selector);
    const auto gain = [this]() -> double & { return gains[static_cast<std::size_t>(channel)]; };
    table.Add(FloatRow(
        "Gain", kLight, "Of the selected channel.", [gain] { return gain(); },
        [gain](double given) {
            gain() = given;
            return Outcome::Ok;
        },
        [this] {
            return FloatRange{0, channel == 0 ? 12.5 : 24.0};
        }));
}

void ToyCamera::AddChoices()
{
    std::vector<EnumerationEntry> entries = {
        {"Mono8", 1, "Eight bits."}, {"Mono10", 0x01100003, {}}, {"Mono12", 7, {}}};
    entries[1].isAvailable = [this] { return isDeep; };
    entries[2].isAvailable = [this] { return isDeep && width <= 640; };
    Feature row =
        EnumerationRow("PixelFormat", kRoom, "What a pixel holds.", entries, GetterOf(&format), SetterOf(&format));
    row.dependsOn = {"SimDeep", "Width"};
    table.Add(row);
    table.Add(BooleanRow("SimDeep", kOther, "More bits.", GetterOf(&isDeep), SetterOf(&isDeep)));
    table.Add(BooleanRow("ReverseX", kRoom, "Mirrored.", GetterOf(&isMirrored), SetterOf(&isMirrored)));
}

void ToyCamera::AddCommands()
{
    Feature trigger = CommandRow("TriggerSoftware", "AcquisitionControl", "Triggers.", [this](std::int64_t) {
        ++triggers;
        return Outcome::Ok;
    });
    trigger.isAvailable = [this] { return isMirrored != 0; };
    trigger.dependsOn = {"ReverseX"};
    table.Add(trigger);
    Feature save = CommandRow("UserSetSave", "UserSetControl", "Takes its time.", [this](std::int64_t) {
        return std::exchange(isSaving, 1) != 0 ? Outcome::Busy : Outcome::Ok;
    });
    save.getInteger = GetterOf(&isSaving);
    save.pollingMs = 100;
    table.Add(save);
}

void ToyCamera::AddTexts()
{
    Feature name = TextRow(
        "DeviceUserID", "DeviceControl", "Name that the user gave.", [this] { return userName; },
        [this](const std::string &given) {
            userName = given;
            return given == "taken" ? Outcome::Refused : Outcome::Ok;
        });
    name.textBytes = 16;
    table.Add(name);
}

void ToyCamera::AddComputed()
{
    Feature stop = Row("SimIris", kOther, FeatureType::Float, FeatureAccess::ReadWrite, "F-number.");
    stop.source = Scaled{"(FROM * 100)", "(TO / 100.0)"};
    stop.getInteger = GetterOf(&iris);
    stop.setInteger = SetterOf(&iris);
    stop.integerRange = [] { return IntegerRange{100, 2200, 20}; };
    stop.getFloat = [this] { return static_cast<double>(iris) / 100; };
    table.Add(stop);
    Feature share = Row("SimShare", kOther, FeatureType::Float, FeatureAccess::ReadOnly, "Share of the sensor.");
    share.source = Formula{"((W * 100.0) / S)", {{"W", "Width"}, {"S", "SimSensor"}}};
    share.getFloat = [this] { return static_cast<double>(width) * 100 / 1280; };
    table.Add(share);
    Feature sensor = FactRow("SimSensor", kOther, "Columns of the sensor.", [] { return 1280; });
    sensor.isHidden = true;
    table.Add(sensor);
}

void ToyCamera::AddFields()
{
    registers.AddNumber(
        0x900, 4, RegisterAccess::ReadWrite, [this] { return packetWord; },
        [this](std::uint64_t value) {
            packetWord = static_cast<std::uint32_t>(value);
            return Outcome::Ok;
        });
    registers.AddText(
        0x910, 16, RegisterAccess::ReadWrite, [this] { return hostName; },
        [this](const std::string &given) {
            hostName = given;
            return Outcome::Ok;
        });
    Feature size = FixedIntegerRow("GevSCPSPacketSize", "TransportLayerControl", "Bytes.", {}, {}, {46, 16000, 2});
    size.access = FeatureAccess::ReadWrite;
    size.source = RegisterField{0x900, 4, 0, 15};
    table.Add(size);
    Feature keep = BooleanRow("GevSCPSDoNotFragment", "TransportLayerControl", "Whole packets.", {}, {});
    keep.access = FeatureAccess::ReadWrite;
    keep.source = RegisterField{0x900, 4, 30, 30};
    table.Add(keep);
    Feature host = TextRow("SimHost", kOther, "Name.", {});
    host.access = FeatureAccess::ReadWrite;
    host.source = RegisterField{0x910, 16};
    table.Add(host);
}

} // namespace orvsim
