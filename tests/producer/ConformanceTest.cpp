// What the standard says every module and every buffer answers, through the exported functions.
#include "ConformanceFixture.h"
#include "tests/simulator/DescriptionChecks.h"
#include "tests/simulator/GenApiBridge.h"

#include <algorithm>
#include <array>
#include <functional>

namespace {

constexpr INFO_DATATYPE kText = INFO_DATATYPE_STRING;
constexpr INFO_DATATYPE kBool = INFO_DATATYPE_BOOL8;
constexpr INFO_DATATYPE kInt32 = INFO_DATATYPE_INT32;
constexpr INFO_DATATYPE kUInt32 = INFO_DATATYPE_UINT32;
constexpr INFO_DATATYPE kUInt64 = INFO_DATATYPE_UINT64;
constexpr INFO_DATATYPE kSize = INFO_DATATYPE_SIZET;
constexpr INFO_DATATYPE kPointer = INFO_DATATYPE_PTR;
constexpr std::uint8_t kUntouched = 0xEE;

struct InfoRow {
    std::int32_t command;
    INFO_DATATYPE type; ///< of the answer
    const char *value;  ///< a text or a decimal number; null when the test cannot know it
    GC_ERROR expected = GC_ERR_SUCCESS;
};
constexpr InfoRow Unknown(std::int32_t command)
{
    return {command, 0, nullptr, GC_ERR_NOT_IMPLEMENTED};
}

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
/// Of a delivered buffer with a picture of 64 x 48 BayerRG8.
const std::vector<InfoRow> kBufferInfos = {{BUFFER_INFO_BASE, kPointer, nullptr},
                                           {BUFFER_INFO_SIZE, kSize, "16384"},
                                           {BUFFER_INFO_USER_PTR, kPointer, nullptr},
                                           {BUFFER_INFO_TIMESTAMP, kUInt64, nullptr},
                                           {BUFFER_INFO_NEW_DATA, kBool, "1"},
                                           {BUFFER_INFO_IS_QUEUED, kBool, "0"},
                                           {BUFFER_INFO_IS_ACQUIRING, kBool, "0"},
                                           {BUFFER_INFO_IS_INCOMPLETE, kBool, "0"},
                                           {BUFFER_INFO_TLTYPE, kText, "GEV"},
                                           {BUFFER_INFO_SIZE_FILLED, kSize, "3072"},
                                           {BUFFER_INFO_WIDTH, kSize, "64"},
                                           {BUFFER_INFO_HEIGHT, kSize, "48"},
                                           {BUFFER_INFO_XOFFSET, kSize, "0"},
                                           {BUFFER_INFO_YOFFSET, kSize, "0"},
                                           {BUFFER_INFO_XPADDING, kSize, "0"},
                                           {BUFFER_INFO_YPADDING, kSize, "0"},
                                           {BUFFER_INFO_FRAMEID, kUInt64, nullptr},
                                           {BUFFER_INFO_IMAGEPRESENT, kBool, "1"},
                                           {BUFFER_INFO_IMAGEOFFSET, kSize, "0"},
                                           {BUFFER_INFO_PAYLOADTYPE, kSize, "1"},
                                           {BUFFER_INFO_PIXELFORMAT, kUInt64, "17301513"},
                                           {BUFFER_INFO_PIXELFORMAT_NAMESPACE, kUInt64, "4"},
                                           {BUFFER_INFO_DELIVERED_IMAGEHEIGHT, kSize, "48"},
                                           {BUFFER_INFO_DELIVERED_CHUNKPAYLOADSIZE, kSize, "0"},
                                           {BUFFER_INFO_CHUNKLAYOUTID, kUInt64, "0"},
                                           {BUFFER_INFO_FILENAME, 0, nullptr, GC_ERR_NO_DATA},
                                           {BUFFER_INFO_PIXEL_ENDIANNESS, kInt32, "1"},
                                           {BUFFER_INFO_DATA_SIZE, kSize, "3072"},
                                           {BUFFER_INFO_TIMESTAMP_NS, kUInt64, nullptr},
                                           {BUFFER_INFO_DATA_LARGER_THAN_BUFFER, kBool, "0"},
                                           {BUFFER_INFO_CONTAINS_CHUNKDATA, kBool, "0"},
                                           {BUFFER_INFO_IS_COMPOSITE, kBool, "0"},
                                           Unknown(32)};
const std::vector<InfoRow> kSegmentInfos = {
    {SEGMENT_INFO_BASE, kPointer, nullptr},   {SEGMENT_INFO_SIZE, kSize, "16384"},
    {SEGMENT_INFO_IS_INCOMPLETE, kBool, "0"}, {SEGMENT_INFO_SIZE_FILLED, kSize, "3072"},
    {SEGMENT_INFO_DATA_SIZE, kSize, "3072"},  Unknown(5)};
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

using Query = std::function<GC_ERROR(std::int32_t, INFO_DATATYPE *, void *, size_t *)>;

std::string Readable(INFO_DATATYPE type, const std::vector<std::uint8_t> &bytes, size_t size)
{
    if (type == kText)
        return {bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(size) - 1};
    std::uint64_t number = 0;
    std::memcpy(&number, bytes.data(), std::min(size, sizeof number));
    return std::to_string(number);
}

/// The size-query idiom for one command.
void CheckAnswer(const std::string &what, const InfoRow &row, const Query &query)
{
    INFO_DATATYPE type = INFO_DATATYPE_UNKNOWN;
    size_t needed = 12345;
    const GC_ERROR code = query(row.command, &type, nullptr, &needed);
    ASSERT_EQ(code, row.expected) << what;
    if (row.expected != GC_ERR_SUCCESS) {
        EXPECT_EQ(needed, 12345U) << what << ": a failing call changes nothing";
        return;
    }
    EXPECT_EQ(type, row.type) << what;
    ASSERT_GT(needed, 0U) << what;
    std::vector<std::uint8_t> bytes(needed + 1, kUntouched);
    size_t size = needed + 1;
    EXPECT_EQ(query(row.command, nullptr, bytes.data(), &size), GC_ERR_SUCCESS) << what << ": no type wanted";
    EXPECT_EQ(size, needed) << what;
    EXPECT_EQ(bytes.back(), kUntouched) << what;
    if (type == kText) {
        EXPECT_EQ(std::find(bytes.begin(), bytes.end(), 0) - bytes.begin() + 1, static_cast<std::ptrdiff_t>(needed));
        EXPECT_GT(needed, 1U) << what << ": no text of this camera is empty";
    }
    if (row.value != nullptr) {
        EXPECT_EQ(Readable(type, bytes, needed), row.value) << what;
    }
    std::fill(bytes.begin(), bytes.end(), kUntouched);
    size = needed - 1;
    EXPECT_EQ(query(row.command, &type, bytes.data(), &size), GC_ERR_BUFFER_TOO_SMALL) << what;
    EXPECT_EQ(size, needed - 1) << what;
    EXPECT_EQ(bytes, std::vector<std::uint8_t>(needed + 1, kUntouched)) << what;
    EXPECT_EQ(query(row.command, &type, bytes.data(), nullptr), GC_ERR_INVALID_PARAMETER) << what;
    EXPECT_EQ(query(row.command, &type, reinterpret_cast<void *>(~std::uintptr_t{0}), &size), GC_ERR_INVALID_PARAMETER)
        << what;
}

void CheckAll(const std::string &function, const std::vector<InfoRow> &rows, const Query &query)
{
    for (const InfoRow &row : rows)
        CheckAnswer(function + " " + std::to_string(row.command), row, query);
}

/// What a buffer still answers when there is no frame in it: the rest is GC_ERR_NO_DATA.
std::vector<InfoRow> WithoutFrame(std::vector<InfoRow> rows, const char *isQueued)
{
    const std::map<std::int32_t, const char *> kStay = {
        {BUFFER_INFO_BASE, nullptr}, {BUFFER_INFO_SIZE, "16384"},       {BUFFER_INFO_USER_PTR, nullptr},
        {BUFFER_INFO_NEW_DATA, "0"}, {BUFFER_INFO_IS_QUEUED, isQueued}, {BUFFER_INFO_IS_ACQUIRING, "0"},
        {BUFFER_INFO_TLTYPE, "GEV"}, {BUFFER_INFO_SIZE_FILLED, "0"},    {BUFFER_INFO_IS_COMPOSITE, "0"},
    };
    for (InfoRow &row : rows) {
        const auto stays = kStay.find(row.command);
        if (stays != kStay.end())
            row.value = stays->second;
        else if (row.expected == GC_ERR_SUCCESS)
            row = {row.command, 0, nullptr, GC_ERR_NO_DATA};
    }
    return rows;
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

TEST_F(ConformanceTest, EveryInfoOfABufferIsAnsweredInEveryState)
{
    AllocateBuffers(2);
    const BUFFER_HANDLE filled = TakeOneFrame();
    ASSERT_NE(filled, nullptr);
    const auto ofBuffer = [&](BUFFER_HANDLE buffer) {
        return
            [this, buffer](auto command, auto... out) { return Gc().DSGetBufferInfo(stream, buffer, command, out...); };
    };
    CheckAll("DSGetBufferInfo", kBufferInfos, ofBuffer(filled));
    EXPECT_EQ(AskFor<void *>([&](auto... out) { return ofBuffer(filled)(BUFFER_INFO_USER_PTR, out...); }), this);
    CheckAll("DSGetBufferSegmentInfo", kSegmentInfos, [&](auto command, auto... out) {
        return Gc().DSGetBufferSegmentInfo(stream, filled, 0, command, out...);
    });
    // Several at once: each with the answer of its own, a failing one between them.
    std::vector<DS_BUFFER_INFO_STACKED> stacked;
    std::vector<std::array<std::uint8_t, 64>> bytes(kBufferInfos.size());
    for (std::size_t i = 0; i < kBufferInfos.size(); ++i)
        stacked.push_back({kBufferInfos[i].command, 0, bytes[i].data(), bytes[i].size(), 1});
    ASSERT_EQ(Gc().DSGetBufferInfoStacked(stream, filled, stacked.data(), stacked.size()), GC_ERR_SUCCESS);
    for (std::size_t i = 0; i < stacked.size(); ++i) {
        const DS_BUFFER_INFO_STACKED item = stacked[i]; // packed: no references into it
        EXPECT_EQ(GC_ERROR{item.iResult}, kBufferInfos[i].expected) << i;
        if (item.iResult != GC_ERR_SUCCESS)
            continue;
        EXPECT_EQ(INFO_DATATYPE{item.iType}, kBufferInfos[i].type) << i;
        EXPECT_EQ(Readable(item.iType, {bytes[i].begin(), bytes[i].end()}, item.iSize),
                  Readable(
                      item.iType,
                      [&] {
                          std::vector<std::uint8_t> single(64);
                          size_t size = single.size();
                          EXPECT_EQ(ofBuffer(filled)(item.iInfoCmd, nullptr, single.data(), &size), GC_ERR_SUCCESS);
                          return single;
                      }(),
                      item.iSize))
            << i;
    }
    size_t chunks = 0;
    EXPECT_EQ(Gc().DSGetBufferChunkData(stream, filled, nullptr, &chunks), GC_ERR_NO_DATA);
    ASSERT_EQ(Gc().DSQueueBuffer(stream, filled), GC_ERR_SUCCESS);
    CheckAll("queued again: DSGetBufferInfo", WithoutFrame(kBufferInfos, "1"), ofBuffer(filled));
    ASSERT_EQ(Gc().DSFlushQueue(stream, ACQ_QUEUE_ALL_DISCARD), GC_ERR_SUCCESS);
    CheckAll("idle: DSGetBufferInfo", WithoutFrame(kBufferInfos, "0"), ofBuffer(filled));
}

TEST_F(ConformanceTest, TheLossIsToldToWhoRegistersLate)
{
    const EVENT_HANDLE lost = Register(NUVARK_EVENT_DEVICE_LOST);
    camera->Close();
    ASSERT_FALSE(Next(lost, 10000).empty());
    for (void *module : {device, stream}) {
        EVENT_HANDLE error = nullptr;
        ASSERT_EQ(Gc().GCRegisterEvent(module, EVENT_ERROR, &error), GC_ERR_SUCCESS);
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
}

TEST_F(ConformanceTest, APartAnswersForItselfWhereTheFrameHasSeveral)
{
    ASSERT_EQ(Gc().DevClose(device), GC_ERR_SUCCESS);
    camera.reset();
    orvsim::GigeOptions gige;
    gige.multiPart = true;
    ASSERT_NO_FATAL_FAILURE(OpenAll(gige));
    AllocateBuffers(1);
    const BUFFER_HANDLE buffer = TakeOneFrame();
    ASSERT_NE(buffer, nullptr);
    const auto ofFrame = [&](auto command, auto... out) {
        return Gc().DSGetBufferInfo(stream, buffer, command, out...);
    };
    constexpr GC_ERROR kNoData = GC_ERR_NO_DATA;
    CheckAll("DSGetBufferInfo",
             {{BUFFER_INFO_PAYLOADTYPE, kSize, "10"},
              {BUFFER_INFO_SIZE_FILLED, kSize, "6144"},
              {BUFFER_INFO_IMAGEPRESENT, kBool, "1"},
              {BUFFER_INFO_WIDTH, 0, nullptr, kNoData},
              {BUFFER_INFO_DELIVERED_IMAGEHEIGHT, 0, nullptr, kNoData},
              {BUFFER_INFO_PIXELFORMAT, 0, nullptr, kNoData}},
             ofFrame);
    std::uint32_t parts = 0;
    ASSERT_EQ(Gc().DSGetNumBufferParts(stream, buffer, &parts), GC_ERR_SUCCESS) << LastError();
    ASSERT_EQ(parts, 2U);
    const auto *base = AskFor<const std::uint8_t *>([&](auto... out) { return ofFrame(BUFFER_INFO_BASE, out...); });
    const char *const kDataTypes[] = {"1", "9"};             // image, confidence map
    const char *const kFormats[] = {"17301513", "17301505"}; // BayerRG8, Mono8
    for (std::uint32_t part = 0; part < parts; ++part) {
        const std::vector<InfoRow> kRows = {{BUFFER_PART_INFO_BASE, kPointer, nullptr},
                                            {BUFFER_PART_INFO_DATA_SIZE, kSize, "3072"},
                                            {BUFFER_PART_INFO_DATA_TYPE, kSize, kDataTypes[part]},
                                            {BUFFER_PART_INFO_DATA_FORMAT, kUInt64, kFormats[part]},
                                            {BUFFER_PART_INFO_DATA_FORMAT_NAMESPACE, kUInt64, "4"},
                                            {BUFFER_PART_INFO_WIDTH, kSize, "64"},
                                            {BUFFER_PART_INFO_HEIGHT, kSize, "48"},
                                            {BUFFER_PART_INFO_XOFFSET, kSize, "0"},
                                            {BUFFER_PART_INFO_YOFFSET, kSize, "0"},
                                            {BUFFER_PART_INFO_XPADDING, kSize, "0"},
                                            {BUFFER_PART_INFO_SOURCE_ID, kUInt64, "0"},
                                            {BUFFER_PART_INFO_DELIVERED_IMAGEHEIGHT, kSize, "48"},
                                            {BUFFER_PART_INFO_REGION_ID, kUInt64, nullptr},
                                            {BUFFER_PART_INFO_DATA_PURPOSE_ID, kUInt64, nullptr},
                                            Unknown(14)};
        const auto ofPart = [&](auto command, auto... out) {
            return Gc().DSGetBufferPartInfo(stream, buffer, part, command, out...);
        };
        CheckAll("DSGetBufferPartInfo of " + std::to_string(part), kRows, ofPart);
        EXPECT_EQ(AskFor<const std::uint8_t *>([&](auto... out) { return ofPart(BUFFER_PART_INFO_BASE, out...); }),
                  base + part * 3072);
    }
    std::uint64_t values[2] = {};
    DS_BUFFER_PART_INFO_STACKED stacked[2] = {{1, BUFFER_PART_INFO_DATA_TYPE, 1, 0, &values[0], sizeof values[0]},
                                              {2, BUFFER_PART_INFO_DATA_TYPE, 1, 0, &values[1], sizeof values[1]}};
    ASSERT_EQ(Gc().DSGetBufferPartInfoStacked(stream, buffer, stacked, 2), GC_ERR_SUCCESS);
    EXPECT_EQ(GC_ERROR{stacked[0].iResult}, GC_ERR_SUCCESS);
    EXPECT_EQ(INFO_DATATYPE{stacked[0].iType}, kSize);
    EXPECT_EQ(values[0], std::uint64_t{PART_DATATYPE_CONFIDENCE_MAP});
    EXPECT_EQ(GC_ERROR{stacked[1].iResult}, GC_ERR_INVALID_INDEX);
}

TEST_F(ConformanceTest, ParentsAreToldAndWhatIsNotThereIsRefused)
{
    TL_HANDLE parentSystem = nullptr;
    IF_HANDLE parentInterface = nullptr;
    DEV_HANDLE parentDevice = nullptr;
    EXPECT_EQ(Gc().IFGetParentTL(interface, &parentSystem), GC_ERR_SUCCESS);
    EXPECT_EQ(Gc().DevGetParentIF(device, &parentInterface), GC_ERR_SUCCESS);
    EXPECT_EQ(Gc().DSGetParentDev(stream, &parentDevice), GC_ERR_SUCCESS);
    EXPECT_EQ(parentSystem, system);
    EXPECT_EQ(parentInterface, interface);
    EXPECT_EQ(parentDevice, device);

    AllocateBuffers(1);
    const BUFFER_HANDLE buffer = TakeOneFrame();
    std::uint32_t number = 0;
    size_t size = 0;
    EXPECT_EQ(Gc().DSGetNumBufferSegments(stream, buffer, &number), GC_ERR_SUCCESS);
    EXPECT_EQ(number, 1U);
    EXPECT_EQ(Gc().DSGetBufferSegmentInfo(stream, buffer, 1, SEGMENT_INFO_BASE, nullptr, nullptr, &size),
              GC_ERR_INVALID_INDEX);
    EXPECT_EQ(Gc().DSGetNumBufferParts(stream, buffer, &number), GC_ERR_NO_DATA) << "one picture is not multi-part";
    EXPECT_EQ(Gc().DSGetBufferPartInfo(stream, buffer, 0, BUFFER_PART_INFO_BASE, nullptr, nullptr, &size),
              GC_ERR_NO_DATA);
    EXPECT_EQ(Gc().DSGetNumFlows(stream, &number), GC_ERR_NOT_IMPLEMENTED);
    EXPECT_EQ(Gc().DSGetFlowInfo(stream, 0, FLOW_INFO_SIZE, nullptr, nullptr, &size), GC_ERR_NOT_IMPLEMENTED);
    std::uint8_t memory[16];
    void *segments[] = {memory};
    size_t sizes[] = {sizeof memory};
    BUFFER_HANDLE composite = nullptr;
    EXPECT_EQ(Gc().DSAnnounceCompositeBuffer(stream, 1, segments, sizes, nullptr, &composite), GC_ERR_NOT_IMPLEMENTED);
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

/// The modules' own descriptions: in the schema's order, and loaded by somebody else's GenApi, which reads every
/// feature.
TEST_F(ConformanceTest, DescriptionsAreUnderstoodByOthers)
{
    const std::pair<const char *, void *> kModules[] = {
        {"system", system}, {"interface", interface}, {"device", device}, {"stream", stream}};
    for (const auto &[name, module] : kModules) {
        const auto number = [&, port = module](URL_INFO_CMD command) {
            return AskFor<std::uint64_t>([&](auto... out) { return Gc().GCGetPortURLInfo(port, 0, command, out...); });
        };
        std::string xml(number(URL_INFO_FILE_SIZE), '\0');
        size_t xmlSize = xml.size();
        ASSERT_EQ(Gc().GCReadPort(module, number(URL_INFO_FILE_REGISTER_ADDRESS), xml.data(), &xmlSize),
                  GC_ERR_SUCCESS);
        for (const std::string &problem : orvsim::DescriptionProblems(xml))
            ADD_FAILURE() << name << ": " << problem;
        const auto outcome = [](GC_ERROR code) {
            return code == GC_ERR_SUCCESS ? orvsim::Outcome::Ok : orvsim::Outcome::NoSuchAddress;
        };
        orvsim::GenApiBridge bridge(
            xml,
            [&, port = module](std::uint32_t address, std::uint32_t wanted, std::uint8_t *bytes) {
                size_t size = wanted;
                return outcome(Gc().GCReadPort(port, address, bytes, &size));
            },
            [&, port = module](std::uint32_t address, std::uint32_t given, const std::uint8_t *bytes) {
                size_t size = given;
                return outcome(Gc().GCWritePort(port, address, bytes, &size));
            });
        ASSERT_TRUE(bridge.IsOpen()) << name << " " << bridge.Error();
        EXPECT_GT(bridge.Features().size(), 15U) << name;
        for (const std::string &feature : bridge.Features()) {
            const std::string kind = bridge.KindOf(feature);
            EXPECT_NE(kind, "Other") << feature;
            if (kind == "Command")
                continue;
            (void)bridge.Get(feature);
            EXPECT_EQ(bridge.Error(), "") << name << " " << feature;
        }
        if (module != stream)
            continue;
        EXPECT_EQ(bridge.KindOf("StreamIsGrabbing"), "Boolean");
        ASSERT_TRUE(bridge.Set("StreamPacketResendEnable", "0")) << bridge.Error();
        EXPECT_EQ(GetNumber(stream, "StreamPacketResendEnable"), 0);
    }
}
