// What the standard says every buffer, and every part in it, answers, through the exported functions.
#include "ConformanceFixture.h"
#include "InfoChecks.h"

#include <array>

namespace {

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
        std::array<std::uint8_t, 64> alone{};
        size_t size = alone.size();
        EXPECT_EQ(ofBuffer(filled)(item.iInfoCmd, nullptr, alone.data(), &size), GC_ERR_SUCCESS);
        EXPECT_EQ(size_t{item.iSize}, size) << i;
        EXPECT_EQ(bytes[i], alone) << i;
    }
    size_t chunks = 0;
    EXPECT_EQ(Gc().DSGetBufferChunkData(stream, filled, nullptr, &chunks), GC_ERR_NO_DATA);
    ASSERT_EQ(Gc().DSQueueBuffer(stream, filled), GC_ERR_SUCCESS);
    CheckAll("queued again: DSGetBufferInfo", WithoutFrame(kBufferInfos, "1"), ofBuffer(filled));
    ASSERT_EQ(Gc().DSFlushQueue(stream, ACQ_QUEUE_ALL_DISCARD), GC_ERR_SUCCESS);
    CheckAll("idle: DSGetBufferInfo", WithoutFrame(kBufferInfos, "0"), ofBuffer(filled));
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
