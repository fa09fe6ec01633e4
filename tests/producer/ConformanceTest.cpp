// What the standard says every module answers, through the exported functions.
#include "ConformanceFixture.h"
#include "InfoChecks.h"
#include "tests/simulator/DescriptionChecks.h"
#include "tests/simulator/GenApiBridge.h"

#include <functional>
#include <iterator>
#include <sstream>

namespace {

const std::vector<InfoRow> kSystemInfos = {{TL_INFO_ID, kText, nullptr},
                                           {TL_INFO_VENDOR, kText, NUVARK_VENDOR},
                                           {TL_INFO_MODEL, kText, NUVARK_MODEL},
                                           {TL_INFO_VERSION, kText, nullptr},
                                           {TL_INFO_TLTYPE, kText, "GEV"},
                                           {TL_INFO_NAME, kText, "Nuvark.cti"},
                                           {TL_INFO_PATHNAME, kText, ORV_PRODUCER_FILE},
                                           {TL_INFO_DISPLAYNAME, kText, "Nuvark GenTL producer (GigE Vision)"},
                                           {TL_INFO_CHAR_ENCODING, kInt32, "1"},
                                           {TL_INFO_GENTL_VER_MAJOR, kUInt32, "1"},
                                           {TL_INFO_GENTL_VER_MINOR, kUInt32, "6"},
                                           Unknown(11),
                                           Unknown(-1),
                                           Unknown(TL_INFO_CUSTOM_ID)};
const std::vector<InfoRow> kInterfaceInfos = {{INTERFACE_INFO_ID, kText, "GEV:lo:127.0.0.1"},
                                              {INTERFACE_INFO_DISPLAYNAME, kText, "lo (127.0.0.1)"},
                                              {INTERFACE_INFO_TLTYPE, kText, "GEV"},
                                              Unknown(3)};
const std::vector<InfoRow> kDeviceInfos = {{DEVICE_INFO_ID, kText, nullptr},
                                           {DEVICE_INFO_VENDOR, kText, "OrvPlayer"},
                                           {DEVICE_INFO_MODEL, kText, "OrvSim"},
                                           {DEVICE_INFO_TLTYPE, kText, "GEV"},
                                           {DEVICE_INFO_DISPLAYNAME, kText, nullptr},
                                           {DEVICE_INFO_ACCESS_STATUS, kInt32, "5"},
                                           {DEVICE_INFO_USER_DEFINED_NAME, kText, "renamed"},
                                           {DEVICE_INFO_SERIAL_NUMBER, kText, "SIM-PRODUCER"},
                                           {DEVICE_INFO_VERSION, kText, nullptr},
                                           {DEVICE_INFO_TIMESTAMP_FREQUENCY, kUInt64, "1000000000"},
                                           {NUVARK_DEVICE_INFO_IP_ADDRESS, kText, "127.0.0.14"},
                                           Unknown(10),
                                           Unknown(DEVICE_INFO_CUSTOM_ID + 500)};
const std::vector<InfoRow> kStreamInfos = {
    {STREAM_INFO_ID, kText, nullptr},
    {STREAM_INFO_NUM_DELIVERED, kUInt64, "1"},
    {STREAM_INFO_NUM_UNDERRUN, kUInt64, "0"},
    {STREAM_INFO_NUM_ANNOUNCED, kSize, "3"},
    {STREAM_INFO_NUM_QUEUED, kSize, "2"},
    {STREAM_INFO_NUM_AWAIT_DELIVERY, kSize, "0"},
    {STREAM_INFO_NUM_STARTED, kUInt64, "1"},
    {STREAM_INFO_PAYLOAD_SIZE, 0, nullptr, GC_ERR_NOT_AVAILABLE}, // the camera's own feature tells it
    {STREAM_INFO_IS_GRABBING, kBool, "0"},
    {STREAM_INFO_DEFINES_PAYLOADSIZE, kBool, "0"},
    {STREAM_INFO_TLTYPE, kText, "GEV"},
    {STREAM_INFO_NUM_CHUNKS_MAX, 0, nullptr, GC_ERR_NOT_AVAILABLE},
    {STREAM_INFO_BUF_ANNOUNCE_MIN, kSize, "1"},
    {STREAM_INFO_BUF_ALIGNMENT, kSize, "1"},
    {STREAM_INFO_FLOW_TABLE, 0, nullptr, GC_ERR_NO_DATA},
    {STREAM_INFO_GENDC_PREFETCH_DESCRIPTOR, 0, nullptr, GC_ERR_NO_DATA},
    Unknown(16)};
const std::vector<InfoRow> kPortInfos = {
    {PORT_INFO_ID, kText, nullptr},         {PORT_INFO_VENDOR, kText, nullptr},
    {PORT_INFO_MODEL, kText, nullptr},      {PORT_INFO_TLTYPE, kText, "GEV"},
    {PORT_INFO_MODULE, kText, nullptr},     {PORT_INFO_LITTLE_ENDIAN, kBool, nullptr},
    {PORT_INFO_BIG_ENDIAN, kBool, nullptr}, {PORT_INFO_ACCESS_READ, kBool, "1"},
    {PORT_INFO_ACCESS_WRITE, kBool, "1"},   {PORT_INFO_ACCESS_NA, kBool, "0"},
    {PORT_INFO_ACCESS_NI, kBool, "0"},      {PORT_INFO_VERSION, kText, nullptr},
    {PORT_INFO_PORTNAME, kText, nullptr},   Unknown(13)};
const std::vector<InfoRow> kUrlInfos = {{URL_INFO_URL, kText, nullptr},
                                        {URL_INFO_SCHEMA_VER_MAJOR, kInt32, "1"},
                                        {URL_INFO_SCHEMA_VER_MINOR, kInt32, "1"},
                                        {URL_INFO_FILE_REGISTER_ADDRESS, kUInt64, nullptr},
                                        {URL_INFO_FILE_SIZE, kUInt64, nullptr},
                                        {URL_INFO_SCHEME, kInt32, "0"},
                                        {URL_INFO_FILENAME, kText, nullptr},
                                        {URL_INFO_FILE_SHA1_HASH, 0, nullptr, GC_ERR_NOT_AVAILABLE}, // not computed
                                        Unknown(11)};
const std::vector<InfoRow> kFileVersions = {{URL_INFO_FILE_VER_MAJOR, kInt32, "1"},
                                            {URL_INFO_FILE_VER_MINOR, kInt32, "0"},
                                            {URL_INFO_FILE_VER_SUBMINOR, kInt32, "0"}};
const std::vector<InfoRow> kEventInfos = {{EVENT_EVENT_TYPE, kInt32, nullptr},
                                          {EVENT_NUM_IN_QUEUE, kSize, "0"},
                                          {EVENT_NUM_FIRED, kUInt64, "0"},
                                          {EVENT_SIZE_MAX, kSize, nullptr},
                                          {EVENT_INFO_DATA_SIZE_MAX, kSize, nullptr},
                                          {NUVARK_EVENT_INFO_NUM_DROPPED, kUInt64, "0"},
                                          Unknown(5)};

// Features that the standard wants in the modules' descriptions.
constexpr char kSystemFeatures[] =
    "TLID TLVendorName TLModelName TLVersion TLPath TLType GenTLVersionMajor GenTLVersionMinor InterfaceUpdateList "
    "InterfaceSelector InterfaceID GevInterfaceMACAddress GevInterfaceDefaultIPAddress GevInterfaceDefaultSubnetMask "
    "GevInterfaceDefaultGateway";
constexpr char kInterfaceFeatures[] =
    "InterfaceID InterfaceType InterfaceTLVersionMajor InterfaceTLVersionMinor DeviceUpdateList DeviceSelector "
    "DeviceID DeviceVendorName DeviceModelName DeviceAccessStatus DeviceTLVersionMajor DeviceTLVersionMinor "
    "GevInterfaceMACAddress GevInterfaceSubnetSelector GevInterfaceSubnetIPAddress GevInterfaceSubnetMask "
    "GevInterfaceGatewaySelector GevInterfaceGateway GevDeviceIPAddress GevDeviceSubnetMask GevDeviceMACAddress "
    "GevDeviceForceIP GevDeviceForceIPAddress GevDeviceForceSubnetMask GevDeviceForceGateway";
constexpr char kDeviceFeatures[] =
    "DeviceID DeviceVendorName DeviceModelName DeviceType DeviceAccessStatus StreamSelector StreamID "
    "GevDeviceIPAddress GevDeviceSubnetMask GevDeviceMACAddress GevDeviceGateway DeviceEndianessMechanism";
constexpr char kStreamFeatures[] = "StreamID StreamType StreamAnnouncedBufferCount StreamBufferHandlingMode "
                                   "StreamAnnounceBufferMinimum StreamBufferAlignment";

std::vector<std::string> Words(const std::string &text)
{
    std::istringstream words(text);
    return {std::istream_iterator<std::string>(words), {}};
}

} // namespace

TEST_F(ConformanceTest, EveryInfoIsAnsweredWithItsTypeSizeAndValue)
{
    Set("DeviceUserID", "renamed");
    ASSERT_EQ(Gc().IFUpdateDeviceList(interface, nullptr, 200), GC_ERR_SUCCESS);
    AllocateBuffers(3);
    ASSERT_NE(TakeOneFrame(), nullptr);
    const std::string id = "SIM-PRODUCER";
    const Query ofSystem = [&](auto command, auto... out) { return Gc().TLGetInfo(system, command, out...); };
    const Query inList = [&](auto command, auto... out) {
        return Gc().IFGetDeviceInfo(interface, id.c_str(), command, out...);
    };
    const Query ofDevice = [&](auto command, auto... out) { return Gc().DevGetInfo(device, command, out...); };
    CheckAll("GCGetInfo", kSystemInfos, [&](auto command, auto... out) { return Gc().GCGetInfo(command, out...); });
    CheckAll("TLGetInfo", kSystemInfos, ofSystem);
    CheckAll("TLGetInterfaceInfo", kInterfaceInfos, [&](auto command, auto... out) {
        return Gc().TLGetInterfaceInfo(system, "GEV:lo:127.0.0.1", command, out...);
    });
    CheckAll("IFGetInfo", kInterfaceInfos,
             [&](auto command, auto... out) { return Gc().IFGetInfo(interface, command, out...); });
    CheckAll("IFGetDeviceInfo", kDeviceInfos, inList);
    CheckAll("DevGetInfo", kDeviceInfos, ofDevice);
    for (const InfoRow &row : kDeviceInfos) {
        if (row.expected != GC_ERR_SUCCESS)
            continue;
        EXPECT_EQ(Ask([&](auto... out) { return inList(row.command, out...); }),
                  Ask([&](auto... out) { return ofDevice(row.command, out...); }))
            << row.command;
    }
    CheckAll("DSGetInfo", kStreamInfos,
             [&](auto command, auto... out) { return Gc().DSGetInfo(stream, command, out...); });
    for (const EVENT_TYPE type : {EVENT_ERROR, EVENT_REMOTE_DEVICE, EVENT_FEATURE_INVALIDATE}) {
        const EVENT_HANDLE event = Register(type);
        CheckAll("EventGetInfo " + std::to_string(type), kEventInfos,
                 [&](auto command, auto... out) { return Gc().EventGetInfo(event, command, out...); });
    }
}

TEST_F(ConformanceTest, EveryPortTellsWhatItIsAndWhereItsDescriptionIs)
{
    const struct {
        void *handle;
        const char *module, *portName, *vendor;
    } kPorts[] = {{system, "TLSystem", "TLPort", NUVARK_VENDOR},
                  {interface, "TLInterface", "InterfacePort", NUVARK_VENDOR},
                  {device, "TLDevice", "DevicePort", NUVARK_VENDOR},
                  {port, "Device", "Device", "OrvPlayer"},
                  {stream, "TLDataStream", "StreamPort", NUVARK_VENDOR}};
    for (const auto &row : kPorts) {
        const Query info = [&](auto command, auto... out) { return Gc().GCGetPortInfo(row.handle, command, out...); };
        const std::string name = std::string(" of ") + row.module;
        CheckAll("GCGetPortInfo" + name, kPortInfos, info);
        const char *bigEndian = row.handle == port ? "1" : "0";
        CheckAll("GCGetPortInfo" + name,
                 {{PORT_INFO_MODULE, kText, row.module},
                  {PORT_INFO_PORTNAME, kText, row.portName},
                  {PORT_INFO_VENDOR, kText, row.vendor},
                  {PORT_INFO_BIG_ENDIAN, kBool, bigEndian},
                  {PORT_INFO_LITTLE_ENDIAN, kBool, row.handle == port ? "0" : "1"}},
                 info);
        const Query url = [&](auto command, auto... out) {
            return Gc().GCGetPortURLInfo(row.handle, 0, command, out...);
        };
        CheckAll("GCGetPortURLInfo" + name, kUrlInfos, url);
        if (row.handle != port)
            CheckAll("GCGetPortURLInfo" + name, kFileVersions, url);
        std::uint32_t count = 0;
        EXPECT_EQ(Gc().GCGetNumPortURLs(row.handle, &count), GC_ERR_SUCCESS);
        size_t size = 0;
        EXPECT_EQ(Gc().GCGetPortURLInfo(row.handle, count, URL_INFO_URL, nullptr, nullptr, &size),
                  GC_ERR_INVALID_INDEX);
        // The list of old: each entry and the whole list end with a zero.
        const std::string list = Ask([&](INFO_DATATYPE *, void *out, size_t *bytes) {
            return Gc().GCGetPortURL(row.handle, static_cast<char *>(out), bytes);
        });
        EXPECT_EQ(list, Ask([&](auto... out) { return url(URL_INFO_URL, out...); }) + "?SchemaVersion=1.1.0" +
                            std::string(2, '\0'))
            << name;
    }
}

TEST_F(ConformanceTest, TextsFollowTheSizeQueryIdiom)
{
    const struct {
        const char *function;
        std::function<GC_ERROR(std::uint32_t, char *, size_t *)> query;
        GC_ERROR pastTheEnd;
    } kRows[] = {
        {"TLGetInterfaceID", [&](auto... a) { return Gc().TLGetInterfaceID(system, a...); }, GC_ERR_INVALID_INDEX},
        {"IFGetDeviceID", [&](auto... a) { return Gc().IFGetDeviceID(interface, a...); }, GC_ERR_INVALID_INDEX},
        {"DevGetDataStreamID", [&](auto... a) { return Gc().DevGetDataStreamID(device, a...); }, GC_ERR_INVALID_INDEX},
        {"GCGetPortURL", [&](auto, auto... a) { return Gc().GCGetPortURL(stream, a...); }, GC_ERR_SUCCESS},
        {"GCGetLastError",
         [&](auto, auto... a) {
             GC_ERROR code = 0;
             return Gc().GCGetLastError(&code, a...);
         },
         GC_ERR_SUCCESS},
    };
    ASSERT_EQ(Gc().TLUpdateInterfaceList(system, nullptr, 10), GC_ERR_SUCCESS);
    for (const auto &row : kRows) {
        CheckAnswer(row.function, {0, INFO_DATATYPE_UNKNOWN, nullptr},
                    [&](auto, auto *, auto *out, auto *size) { return row.query(0, static_cast<char *>(out), size); });
        size_t size = 0;
        EXPECT_EQ(row.query(1000, nullptr, &size), row.pastTheEnd) << row.function;
    }
}

TEST_F(ConformanceTest, ALossIsToldToWhoRegistersLateTooAndTheCameraIsFoundAgain)
{
    const auto listed = [&] {
        std::uint32_t count = 0;
        EXPECT_EQ(Gc().IFUpdateDeviceList(interface, nullptr, 150), GC_ERR_SUCCESS);
        EXPECT_EQ(Gc().IFGetNumDevices(interface, &count), GC_ERR_SUCCESS);
        return count;
    };
    camera->Close();
    for (int round = 0; round < 2; ++round) {
        const EVENT_HANDLE lost = Register(NUVARK_EVENT_DEVICE_LOST);
        EXPECT_THAT(NextText(lost), testing::HasSubstr("not answered"));
        EXPECT_EQ(NextText(lost, 0), "") << "once";
        EXPECT_EQ(Gc().GCUnregisterEvent(device, NUVARK_EVENT_DEVICE_LOST), GC_ERR_SUCCESS);
    }
    for (void *module : {device, stream}) {
        const EVENT_HANDLE error = Register(module, EVENT_ERROR);
        const auto data = Next(error);
        ASSERT_FALSE(data.empty());
        CheckAll("EventGetDataInfo",
                 {{EVENT_DATA_ID, kInt32, "4294966286"}, // GC_ERR_IO
                  {EVENT_DATA_VALUE, kText, nullptr},
                  {EVENT_DATA_NUMID, kUInt64, nullptr},
                  Unknown(3)},
                 [&](auto command, auto... out) {
                     return Gc().EventGetDataInfo(error, data.data(), data.size(), command, out...);
                 });
        EXPECT_TRUE(Next(error, 0).empty()) << "once";
    }
    CheckAll("GCGetPortInfo", {{PORT_INFO_ACCESS_NA, kBool, "1"}, {PORT_INFO_ACCESS_WRITE, kBool, "0"}},
             [&](auto command, auto... out) { return Gc().GCGetPortInfo(port, command, out...); });
    std::uint8_t bytes[4];
    EXPECT_EQ(Read(0x0938, bytes, 4), GC_ERR_IO) << "not a time-out any more";
    EXPECT_EQ(listed(), 0U);
    ASSERT_EQ(camera->Open(), "");
    EXPECT_EQ(listed(), 1U);
    EXPECT_EQ(Gc().DevClose(device), GC_ERR_SUCCESS);
    OpenEverything();
    EXPECT_EQ(Read(0x0938, bytes, 4), GC_ERR_SUCCESS) << LastError();
}

TEST_F(ConformanceTest, EachModuleHasItsEventsAndNoOthers)
{
    constexpr GC_ERROR kYes = GC_ERR_SUCCESS;
    constexpr GC_ERROR kNo = GC_ERR_NOT_IMPLEMENTED;
    const struct {
        EVENT_TYPE type;
        GC_ERROR onSystem, onInterface, onDevice, onStream;
    } kRows[] = {
        {EVENT_ERROR, kYes, kYes, kYes, kYes},
        {EVENT_NEW_BUFFER, kNo, kNo, kNo, kYes},
        {EVENT_FEATURE_INVALIDATE, kNo, kNo, kYes, kNo},
        {EVENT_FEATURE_CHANGE, kNo, kNo, kNo, kNo},
        {EVENT_REMOTE_DEVICE, kNo, kNo, kYes, kNo},
        {EVENT_MODULE, kNo, kNo, kNo, kNo},
        {NUVARK_EVENT_CONTROL_TRAFFIC, kNo, kNo, kYes, kNo},
        {NUVARK_EVENT_STREAM_TRAFFIC, kNo, kNo, kYes, kNo},
        {NUVARK_EVENT_EVENT_TRAFFIC, kNo, kNo, kYes, kNo},
        {NUVARK_EVENT_DEVICE_LOST, kNo, kNo, kYes, kNo},
        {6, kNo, kNo, kNo, kNo},
        {-1, kNo, kNo, kNo, kNo},
    };
    ASSERT_EQ(Gc().GCUnregisterEvent(stream, EVENT_NEW_BUFFER), kYes);
    for (const auto &row : kRows) {
        const std::pair<void *, GC_ERROR> kModules[] = {
            {system, row.onSystem}, {interface, row.onInterface}, {device, row.onDevice}, {stream, row.onStream}};
        for (const auto &[module, expected] : kModules) {
            EVENT_HANDLE event = nullptr;
            EXPECT_EQ(Gc().GCRegisterEvent(module, row.type, &event), expected) << row.type << " " << LastError();
            if (expected != kYes)
                continue;
            EXPECT_EQ(Gc().GCRegisterEvent(module, row.type, &event), GC_ERR_RESOURCE_IN_USE) << row.type;
            size_t size = 0;
            EXPECT_EQ(Gc().EventGetData(event, nullptr, &size, 0), GC_ERR_TIMEOUT) << row.type;
            EXPECT_EQ(Gc().EventFlush(event), kYes);
            EXPECT_EQ(Gc().GCUnregisterEvent(module, row.type), kYes) << row.type;
            EXPECT_EQ(Gc().GCUnregisterEvent(module, row.type), GC_ERR_NOT_INITIALIZED) << row.type;
            EXPECT_EQ(Gc().EventFlush(event), GC_ERR_INVALID_HANDLE) << row.type;
        }
    }
}

/// The modules' own descriptions: in the schema's order, and loaded by somebody else's GenApi, which finds every
/// feature that the standard wants and reads it.
TEST_F(ConformanceTest, DescriptionsAreUnderstoodByOthers)
{
    const struct {
        const char *name;
        void *module;
        const char *features;
    } kModules[] = {{"system", system, kSystemFeatures},
                    {"interface", interface, kInterfaceFeatures},
                    {"device", device, kDeviceFeatures},
                    {"stream", stream, kStreamFeatures}};
    for (const auto &row : kModules) {
        SCOPED_TRACE(row.name);
        const std::string xml = DescriptionOf(row.module);
        EXPECT_THAT(orvsim::DescriptionProblems(xml), testing::IsEmpty());
        const auto outcome = [](GC_ERROR code) {
            return code == GC_ERR_SUCCESS ? orvsim::Outcome::Ok : orvsim::Outcome::NoSuchAddress;
        };
        orvsim::GenApiBridge bridge(
            xml,
            [&](std::uint32_t address, std::uint32_t wanted, std::uint8_t *bytes) {
                size_t size = wanted;
                return outcome(Gc().GCReadPort(row.module, address, bytes, &size));
            },
            [&](std::uint32_t address, std::uint32_t given, const std::uint8_t *bytes) {
                size_t size = given;
                return outcome(Gc().GCWritePort(row.module, address, bytes, &size));
            });
        ASSERT_TRUE(bridge.IsOpen()) << bridge.Error();
        EXPECT_THAT(bridge.Features(), testing::IsSupersetOf(Words(row.features)));
        for (const std::string &feature : bridge.Features()) {
            const std::string kind = bridge.KindOf(feature);
            EXPECT_NE(kind, "Other") << feature;
            if (kind == "Command")
                continue;
            (void)bridge.Get(feature);
            EXPECT_EQ(bridge.Error(), "") << feature;
        }
        for (const std::uint64_t nowhere : {std::uint64_t{0}, ~std::uint64_t{0}}) {
            std::uint8_t byte = 0;
            size_t one = 1;
            EXPECT_EQ(Gc().GCReadPort(row.module, nowhere, &byte, &one), GC_ERR_INVALID_ADDRESS);
        }
        if (row.module != stream)
            continue;
        EXPECT_EQ(bridge.KindOf("StreamIsGrabbing"), "Boolean");
        ASSERT_TRUE(bridge.Set("StreamPacketResendEnable", "0")) << bridge.Error();
        EXPECT_EQ(GetNumber(stream, "StreamPacketResendEnable"), 0);
        EXPECT_EQ(SetNumber(stream, "StreamPacketResendEnable", 2), GC_ERR_INVALID_VALUE) << "it is 0 or 1";
        EXPECT_EQ(SetNumber(stream, "StreamIsGrabbing", 1), GC_ERR_ACCESS_DENIED);
        AllocateBuffers(1);
        for (const bool runs : {false, true}) {
            ASSERT_TRUE(!runs || Gc().DSStartAcquisition(stream, 0, GENTL_INFINITE) == GC_ERR_SUCCESS) << LastError();
            EXPECT_EQ(bridge.IsLocked("DeviceStreamChannelPacketSize"), runs);
            EXPECT_EQ(bridge.IsLocked("GevStreamPacketDelay"), runs);
            EXPECT_EQ(bridge.Error(), "");
        }
    }
}
