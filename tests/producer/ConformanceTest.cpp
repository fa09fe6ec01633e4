// What the standard says every module answers, through the exported functions.
#include "SimulatedFixture.h"
#include "tests/simulator/DescriptionChecks.h"

#include <algorithm>
#include <functional>

namespace {

constexpr INFO_DATATYPE kText = INFO_DATATYPE_STRING;
constexpr std::uint8_t kUntouched = 0xEE;

struct InfoRow {
    std::int32_t command;
    INFO_DATATYPE type;
    GC_ERROR expected = GC_ERR_SUCCESS;
};

const std::vector<InfoRow> kSystemInfos = {{TL_INFO_ID, kText},
                                           {TL_INFO_VENDOR, kText},
                                           {TL_INFO_MODEL, kText},
                                           {TL_INFO_VERSION, kText},
                                           {TL_INFO_TLTYPE, kText},
                                           {TL_INFO_NAME, kText},
                                           {TL_INFO_PATHNAME, kText},
                                           {TL_INFO_DISPLAYNAME, kText},
                                           {TL_INFO_CHAR_ENCODING, INFO_DATATYPE_INT32},
                                           {TL_INFO_GENTL_VER_MAJOR, INFO_DATATYPE_UINT32},
                                           {TL_INFO_GENTL_VER_MINOR, INFO_DATATYPE_UINT32},
                                           {11, 0, GC_ERR_NOT_IMPLEMENTED},
                                           {-1, 0, GC_ERR_NOT_IMPLEMENTED},
                                           {TL_INFO_CUSTOM_ID, 0, GC_ERR_NOT_IMPLEMENTED}};
const std::vector<InfoRow> kInterfaceInfos = {{INTERFACE_INFO_ID, kText},
                                              {INTERFACE_INFO_DISPLAYNAME, kText},
                                              {INTERFACE_INFO_TLTYPE, kText},
                                              {3, 0, GC_ERR_NOT_IMPLEMENTED}};
const std::vector<InfoRow> kDeviceInfos = {{DEVICE_INFO_ID, kText},
                                           {DEVICE_INFO_VENDOR, kText},
                                           {DEVICE_INFO_MODEL, kText},
                                           {DEVICE_INFO_TLTYPE, kText},
                                           {DEVICE_INFO_DISPLAYNAME, kText},
                                           {DEVICE_INFO_ACCESS_STATUS, INFO_DATATYPE_INT32},
                                           {DEVICE_INFO_USER_DEFINED_NAME, kText},
                                           {DEVICE_INFO_SERIAL_NUMBER, kText},
                                           {DEVICE_INFO_VERSION, kText},
                                           {DEVICE_INFO_TIMESTAMP_FREQUENCY, INFO_DATATYPE_UINT64},
                                           {10, 0, GC_ERR_NOT_IMPLEMENTED},
                                           {DEVICE_INFO_CUSTOM_ID + 500, 0, GC_ERR_NOT_IMPLEMENTED}};
const std::vector<InfoRow> kStreamInfos = {{STREAM_INFO_ID, kText},
                                           {STREAM_INFO_NUM_DELIVERED, INFO_DATATYPE_UINT64},
                                           {STREAM_INFO_NUM_UNDERRUN, INFO_DATATYPE_UINT64},
                                           {STREAM_INFO_NUM_ANNOUNCED, INFO_DATATYPE_SIZET},
                                           {STREAM_INFO_NUM_QUEUED, INFO_DATATYPE_SIZET},
                                           {STREAM_INFO_NUM_AWAIT_DELIVERY, INFO_DATATYPE_SIZET},
                                           {STREAM_INFO_NUM_STARTED, INFO_DATATYPE_UINT64},
                                           {STREAM_INFO_IS_GRABBING, INFO_DATATYPE_BOOL8},
                                           {STREAM_INFO_DEFINES_PAYLOADSIZE, INFO_DATATYPE_BOOL8},
                                           {STREAM_INFO_TLTYPE, kText},
                                           {STREAM_INFO_BUF_ANNOUNCE_MIN, INFO_DATATYPE_SIZET},
                                           {STREAM_INFO_BUF_ALIGNMENT, INFO_DATATYPE_SIZET},
                                           {STREAM_INFO_FLOW_TABLE, 0, GC_ERR_NO_DATA},
                                           {STREAM_INFO_GENDC_PREFETCH_DESCRIPTOR, 0, GC_ERR_NO_DATA},
                                           {16, 0, GC_ERR_NOT_IMPLEMENTED}};
const std::vector<InfoRow> kPortInfos = {{PORT_INFO_ID, kText},
                                         {PORT_INFO_VENDOR, kText},
                                         {PORT_INFO_MODEL, kText},
                                         {PORT_INFO_TLTYPE, kText},
                                         {PORT_INFO_MODULE, kText},
                                         {PORT_INFO_LITTLE_ENDIAN, INFO_DATATYPE_BOOL8},
                                         {PORT_INFO_BIG_ENDIAN, INFO_DATATYPE_BOOL8},
                                         {PORT_INFO_ACCESS_READ, INFO_DATATYPE_BOOL8},
                                         {PORT_INFO_ACCESS_WRITE, INFO_DATATYPE_BOOL8},
                                         {PORT_INFO_ACCESS_NA, INFO_DATATYPE_BOOL8},
                                         {PORT_INFO_ACCESS_NI, INFO_DATATYPE_BOOL8},
                                         {PORT_INFO_VERSION, kText},
                                         {PORT_INFO_PORTNAME, kText},
                                         {13, 0, GC_ERR_NOT_IMPLEMENTED}};
const std::vector<InfoRow> kUrlInfos = {{URL_INFO_URL, kText},
                                        {URL_INFO_SCHEMA_VER_MAJOR, INFO_DATATYPE_INT32},
                                        {URL_INFO_SCHEMA_VER_MINOR, INFO_DATATYPE_INT32},
                                        {URL_INFO_FILE_REGISTER_ADDRESS, INFO_DATATYPE_UINT64},
                                        {URL_INFO_FILE_SIZE, INFO_DATATYPE_UINT64},
                                        {URL_INFO_SCHEME, INFO_DATATYPE_INT32},
                                        {URL_INFO_FILENAME, kText},
                                        {URL_INFO_FILE_SHA1_HASH, 0, GC_ERR_NOT_AVAILABLE},
                                        {11, 0, GC_ERR_NOT_IMPLEMENTED}};
const std::vector<InfoRow> kFileVersions = {{URL_INFO_FILE_VER_MAJOR, INFO_DATATYPE_INT32},
                                            {URL_INFO_FILE_VER_MINOR, INFO_DATATYPE_INT32},
                                            {URL_INFO_FILE_VER_SUBMINOR, INFO_DATATYPE_INT32}};
const std::vector<InfoRow> kEventInfos = {{EVENT_EVENT_TYPE, INFO_DATATYPE_INT32},
                                          {EVENT_NUM_IN_QUEUE, INFO_DATATYPE_SIZET},
                                          {EVENT_NUM_FIRED, INFO_DATATYPE_UINT64},
                                          {EVENT_SIZE_MAX, INFO_DATATYPE_SIZET},
                                          {EVENT_INFO_DATA_SIZE_MAX, INFO_DATATYPE_SIZET},
                                          {NUVARK_EVENT_INFO_NUM_DROPPED, INFO_DATATYPE_UINT64},
                                          {5, 0, GC_ERR_NOT_IMPLEMENTED}};

using Query = std::function<GC_ERROR(std::int32_t, INFO_DATATYPE *, void *, size_t *)>;

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

class ConformanceTest : public SimulatedTest {
protected:
    void SetUp() override
    {
        SimulatedTest::SetUp();
        StartCamera();
        ASSERT_EQ(Gc().IFUpdateDeviceList(interface, nullptr, 200), GC_ERR_SUCCESS);
        OpenEverything();
    }
    void OpenEverything()
    {
        ASSERT_NO_FATAL_FAILURE(OpenDevice());
        size_t size = sizeof streamId;
        ASSERT_EQ(Gc().DevGetDataStreamID(device, 0, streamId, &size), GC_ERR_SUCCESS);
        ASSERT_EQ(Gc().DevOpenDataStream(device, streamId, &stream), GC_ERR_SUCCESS);
    }
    void CheckAll(const std::string &function, const std::vector<InfoRow> &rows, const Query &query)
    {
        for (const InfoRow &row : rows)
            CheckAnswer(function + " " + std::to_string(row.command), row, query);
    }

    struct Named {
        const char *name;
        void *handle;
    };
    std::vector<Named> Ports() const
    {
        return {{"system", system}, {"interface", interface}, {"device", device}, {"camera", port}, {"stream", stream}};
    }

    char streamId[256] = {};
    DS_HANDLE stream = nullptr;
};

} // namespace

TEST_F(ConformanceTest, EveryInfoIsAnsweredWithItsTypeAndSize)
{
    const std::string id = "SIM-PRODUCER";
    CheckAll("GCGetInfo", kSystemInfos, [&](auto command, auto... out) { return Gc().GCGetInfo(command, out...); });
    CheckAll("TLGetInfo", kSystemInfos,
             [&](auto command, auto... out) { return Gc().TLGetInfo(system, command, out...); });
    CheckAll("TLGetInterfaceInfo", kInterfaceInfos, [&](auto command, auto... out) {
        return Gc().TLGetInterfaceInfo(system, "GEV:lo:127.0.0.1", command, out...);
    });
    CheckAll("IFGetInfo", kInterfaceInfos,
             [&](auto command, auto... out) { return Gc().IFGetInfo(interface, command, out...); });
    CheckAll("IFGetDeviceInfo", kDeviceInfos,
             [&](auto command, auto... out) { return Gc().IFGetDeviceInfo(interface, id.c_str(), command, out...); });
    CheckAll("DevGetInfo", kDeviceInfos,
             [&](auto command, auto... out) { return Gc().DevGetInfo(device, command, out...); });
    CheckAll("DSGetInfo", kStreamInfos,
             [&](auto command, auto... out) { return Gc().DSGetInfo(stream, command, out...); });
    for (const Named &module : Ports()) {
        CheckAll(std::string("GCGetPortInfo ") + module.name, kPortInfos,
                 [&](auto command, auto... out) { return Gc().GCGetPortInfo(module.handle, command, out...); });
        const Query url = [&](auto command, auto... out) {
            return Gc().GCGetPortURLInfo(module.handle, 0, command, out...);
        };
        CheckAll(std::string("GCGetPortURLInfo ") + module.name, kUrlInfos, url);
        if (module.handle != port)
            CheckAll(std::string("GCGetPortURLInfo ") + module.name, kFileVersions, url);
        std::uint32_t count = 0;
        EXPECT_EQ(Gc().GCGetNumPortURLs(module.handle, &count), GC_ERR_SUCCESS);
        size_t size = 0;
        EXPECT_EQ(Gc().GCGetPortURLInfo(module.handle, count, URL_INFO_URL, nullptr, nullptr, &size),
                  GC_ERR_INVALID_INDEX);
    }
    for (const EVENT_TYPE type : {EVENT_ERROR, EVENT_REMOTE_DEVICE, EVENT_FEATURE_INVALIDATE}) {
        const EVENT_HANDLE event = Register(type);
        CheckAll("EventGetInfo " + std::to_string(type), kEventInfos,
                 [&](auto command, auto... out) { return Gc().EventGetInfo(event, command, out...); });
    }
}

TEST_F(ConformanceTest, IdsFollowTheSizeQueryIdiom)
{
    const struct {
        const char *function;
        std::function<GC_ERROR(std::uint32_t, char *, size_t *)> query;
    } kRows[] = {
        {"TLGetInterfaceID", [&](auto... a) { return Gc().TLGetInterfaceID(system, a...); }},
        {"IFGetDeviceID", [&](auto... a) { return Gc().IFGetDeviceID(interface, a...); }},
        {"DevGetDataStreamID", [&](auto... a) { return Gc().DevGetDataStreamID(device, a...); }},
    };
    ASSERT_EQ(Gc().TLUpdateInterfaceList(system, nullptr, 10), GC_ERR_SUCCESS);
    for (const auto &row : kRows) {
        CheckAnswer(row.function, {0, INFO_DATATYPE_UNKNOWN},
                    [&](auto, auto *, auto *out, auto *size) { return row.query(0, static_cast<char *>(out), size); });
        size_t size = 0;
        EXPECT_EQ(row.query(1000, nullptr, &size), GC_ERR_INVALID_INDEX) << row.function;
    }
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

TEST_F(ConformanceTest, DescriptionsKeepTheSchemasOrder)
{
    for (const Named &module : Ports()) {
        if (module.handle == port)
            continue; // the camera's own
        const auto number = [&](URL_INFO_CMD command) {
            return AskFor<std::uint64_t>(
                [&](auto... out) { return Gc().GCGetPortURLInfo(module.handle, 0, command, out...); });
        };
        std::string xml(number(URL_INFO_FILE_SIZE), '\0');
        size_t size = xml.size();
        ASSERT_EQ(Gc().GCReadPort(module.handle, number(URL_INFO_FILE_REGISTER_ADDRESS), xml.data(), &size),
                  GC_ERR_SUCCESS);
        for (const std::string &problem : orvsim::DescriptionProblems(xml))
            ADD_FAILURE() << module.name << ": " << problem;
    }
}

TEST_F(ConformanceTest, WhatIsBelowAClosedModuleIsGone)
{
    const EVENT_HANDLE events[] = {Register(EVENT_ERROR), Register(NUVARK_EVENT_STREAM_TRAFFIC)};
    std::thread waiter([&] {
        std::uint8_t bytes[64];
        size_t size = sizeof bytes;
        const GC_ERROR code = Gc().EventGetData(events[0], bytes, &size, GENTL_INFINITE);
        EXPECT_TRUE(code == GC_ERR_ABORT || code == GC_ERR_INVALID_HANDLE) << code << ", the latter when it came late";
    });
    const auto inQueue = [&](EVENT_HANDLE event) {
        size_t size = 0;
        return Gc().EventGetInfo(event, EVENT_NUM_IN_QUEUE, nullptr, nullptr, &size);
    };
    BUFFER_HANDLE buffer = nullptr;
    ASSERT_EQ(Gc().DSAllocAndAnnounceBuffer(stream, 1 << 20, nullptr, &buffer), GC_ERR_SUCCESS);
    ASSERT_EQ(Gc().DSQueueBuffer(stream, buffer), GC_ERR_SUCCESS);
    ASSERT_EQ(Gc().DSStartAcquisition(stream, ACQ_START_FLAGS_DEFAULT, GENTL_INFINITE), GC_ERR_SUCCESS);
    ASSERT_EQ(Gc().IFClose(interface), GC_ERR_SUCCESS) << "while running, with somebody waiting";
    waiter.join();
    std::uint8_t bytes[4];
    size_t size = sizeof bytes;
    EXPECT_EQ(inQueue(events[0]), GC_ERR_INVALID_HANDLE);
    EXPECT_EQ(inQueue(events[1]), GC_ERR_INVALID_HANDLE);
    EXPECT_EQ(Gc().GCReadPort(port, 0, bytes, &size), GC_ERR_INVALID_HANDLE);
    EXPECT_EQ(Gc().DSQueueBuffer(stream, buffer), GC_ERR_INVALID_HANDLE);
    EXPECT_EQ(Gc().DSClose(stream), GC_ERR_INVALID_HANDLE) << "some consumers close the stream last";
    EXPECT_EQ(Gc().DevClose(device), GC_ERR_INVALID_HANDLE);
    EXPECT_EQ(Gc().IFClose(interface), GC_ERR_INVALID_HANDLE);
    ASSERT_EQ(Gc().TLOpenInterface(system, "GEV:lo:127.0.0.1", &interface), GC_ERR_SUCCESS) << "and opened again";
    OpenEverything();
}

TEST_F(ConformanceTest, ClosingUnderManyCallersIsAnsweredByCode)
{
    for (int round = 0; round < 8; ++round) {
        std::atomic<bool> done{false};
        std::vector<std::thread> callers;
        const auto call = [&](auto function) {
            callers.emplace_back([&done, function] {
                while (!done) {
                    const GC_ERROR code = function();
                    const std::initializer_list<GC_ERROR> kFine = {
                        GC_ERR_SUCCESS, GC_ERR_INVALID_HANDLE, GC_ERR_ABORT, GC_ERR_RESOURCE_IN_USE, GC_ERR_TIMEOUT,
                        GC_ERR_IO,      GC_ERR_NOT_INITIALIZED};
                    EXPECT_NE(std::find(kFine.begin(), kFine.end(), code), kFine.end()) << code;
                }
            });
        };
        call([this] {
            std::uint8_t bytes[4];
            size_t size = sizeof bytes;
            return Gc().GCReadPort(port, 0x0938, bytes, &size);
        });
        call([this] {
            size_t size = 0;
            return Gc().GCGetPortURLInfo(port, 0, URL_INFO_URL, nullptr, nullptr, &size);
        });
        call([this] {
            EVENT_HANDLE event = nullptr;
            const GC_ERROR code = Gc().GCRegisterEvent(device, EVENT_REMOTE_DEVICE, &event);
            return code == GC_ERR_SUCCESS ? Gc().GCUnregisterEvent(device, EVENT_REMOTE_DEVICE) : code;
        });
        call([this] {
            EVENT_HANDLE event = nullptr;
            size_t size = 0;
            (void)Gc().GCRegisterEvent(device, NUVARK_EVENT_CONTROL_TRAFFIC, &event);
            (void)Gc().EventGetData(event, nullptr, &size, 1);
            return Gc().GCUnregisterEvent(device, NUVARK_EVENT_CONTROL_TRAFFIC);
        });
        call([this] {
            size_t size = 0;
            return Gc().DSGetInfo(stream, STREAM_INFO_NUM_DELIVERED, nullptr, nullptr, &size);
        });
        std::atomic<int> reads{0};
        const auto read = [&] {
            std::uint8_t bytes[4];
            size_t size = sizeof bytes;
            reads += Gc().GCReadPort(port, 0x0A00, bytes, &size) == GC_ERR_SUCCESS;
            return reads > 3 * (round + 1);
        };
        EXPECT_TRUE(Becomes(read));
        EXPECT_EQ(Gc().DevClose(device), GC_ERR_SUCCESS);
        done = true;
        for (std::thread &caller : callers)
            caller.join();
        OpenEverything();
    }
}

TEST_F(ConformanceTest, ACameraThatReturnsIsFoundAgain)
{
    const auto listed = [&] {
        std::uint32_t count = 0;
        EXPECT_EQ(Gc().IFUpdateDeviceList(interface, nullptr, 150), GC_ERR_SUCCESS);
        EXPECT_EQ(Gc().IFGetNumDevices(interface, &count), GC_ERR_SUCCESS);
        return count;
    };
    EVENT_HANDLE lost = Register(NUVARK_EVENT_DEVICE_LOST);
    camera->Close();
    const Stopwatch watch;
    EXPECT_FALSE(Next(lost, 10000).empty());
    EXPECT_LT(watch.Milliseconds(), 4500) << "three seconds of silence, and some";
    EXPECT_EQ(listed(), 0U);
    ASSERT_EQ(camera->Open(), "");
    EXPECT_EQ(listed(), 1U);
    EXPECT_EQ(Gc().DevClose(device), GC_ERR_SUCCESS);
    OpenEverything();
    std::uint8_t bytes[4];
    EXPECT_EQ(Read(0x0938, bytes, 4), GC_ERR_SUCCESS) << LastError();
}
