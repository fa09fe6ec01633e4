#include "ScriptedFixture.h"

#include "gentl/NuvarkCustom.h"
#include "orvcam/OrvStatus.h"
#include "orvimage/PixelFormats.h"

#include <map>
#include <set>
#include <vector>

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

/// The same camera behind three producers.
class Stream : public ScriptedTest, public testing::WithParamInterface<const char *> {
protected:
    Stream() : ScriptedTest(GetParam()) {}
};
INSTANTIATE_TEST_SUITE_P(Producers, Stream, testing::Values("Scripted.cti", "ScriptedFirst.cti", "ScriptedOurs.cti"),
                         [](const auto &info) {
                             const std::string name = info.param;
                             return name.substr(0, name.find('.'));
                         });

TEST_P(Stream, FramesArriveWithTheirInfos)
{
    for (const int stacked : {1, 0}) {
        for (const int odd : {0, 1}) {
            SCOPED_TRACE(testing::Message() << "stacked " << stacked << ", odd types " << odd);
            script->reset();
            script->stacked = stacked;
            script->oddTypes = odd;
            Start();
            int status = -1;
            OrvCam::Buffer *buffer = Next(&status);
            ASSERT_NE(nullptr, buffer);
            EXPECT_EQ(ORV_CAM_OK, status);
            const _OrvImage *image = buffer->GetImage();
            EXPECT_EQ(8u, image->width);
            EXPECT_EQ(4u, image->height);
            EXPECT_EQ(8u, image->linePitch);
            EXPECT_EQ(orv::kMono8, image->pixelType);
            EXPECT_EQ(32u, image->dataSize);
            EXPECT_EQ(32u, buffer->GetBufferSize());
            EXPECT_FALSE(buffer->IsIncomplete());
            EXPECT_EQ(1000 * buffer->GetFrameID(), buffer->GetTimestamp());
            EXPECT_EQ(static_cast<unsigned char>(buffer->GetFrameID()), static_cast<unsigned char *>(image->data)[31]);
            EXPECT_EQ(ORV_CAM_OK, stream->QueueBuffer(buffer));
            EXPECT_EQ(ORV_CAM_ERR_INVALID_STATE, stream->QueueBuffer(buffer)) << "given back twice";
            EXPECT_EQ(ORV_CAM_OK, stream->StopAcquisition(1));
            EXPECT_EQ(ORV_CAM_OK, stream->ReleaseBufferQueue());
        }
    }
}

TEST_P(Stream, BuffersThatDoNotFitTheFrame)
{
    Start();
    script->width = 100; // 100 x 4 in a buffer of 32
    script->sizeFilled = 400;
    script->dataSize = 400;
    OrvCam::Buffer *buffer = Next();
    ASSERT_NE(nullptr, buffer);
    EXPECT_TRUE(buffer->IsIncomplete());
    EXPECT_EQ(32u, buffer->GetImage()->dataSize);
    stream->QueueBuffer(buffer);
    script->width = 2;
    script->height = 2;
    script->sizeFilled = 4;
    buffer = Next();
    ASSERT_NE(nullptr, buffer);
    EXPECT_FALSE(buffer->IsIncomplete());
    EXPECT_EQ(4u, buffer->GetImage()->dataSize);
    script->pixelFormat = 0x81080123;
    buffer = Next();
    ASSERT_NE(nullptr, buffer);
    EXPECT_EQ(0u, buffer->GetImage()->pixelType);
    EXPECT_EQ(8u, buffer->GetImage()->bitsPerPixel);
    script->fewInfos = 1; // and both other buffers are still lent
    buffer = Next();
    ASSERT_NE(nullptr, buffer);
    EXPECT_EQ(8u, buffer->GetImage()->width) << "as the camera is set";
    EXPECT_EQ(orv::kMono8, buffer->GetImage()->pixelType);
}

TEST_P(Stream, OfSeveralPartsTheBestIsThePicture)
{
    const struct {
        std::vector<int> types;
        std::uint32_t height; ///< of the part: its number + 1; 0: there is no picture
    } kRows[] = {
        {{PART_DATATYPE_2D_IMAGE}, 1},
        {{PART_DATATYPE_CONFIDENCE_MAP, PART_DATATYPE_3D_IMAGE, PART_DATATYPE_2D_IMAGE, PART_DATATYPE_2D_IMAGE}, 3},
        {{PART_DATATYPE_CONFIDENCE_MAP, PART_DATATYPE_3D_IMAGE}, 2},
        {{PART_DATATYPE_2D_PLANE_BIPLANAR, PART_DATATYPE_2D_PLANE_BIPLANAR}, 1},
        {{PART_DATATYPE_CUSTOM_ID, PART_DATATYPE_3D_PLANE_QUADPLANAR}, 2},
        {{PART_DATATYPE_JPEG, PART_DATATYPE_CONFIDENCE_MAP}, 2},
        {{PART_DATATYPE_JPEG}, 0},
    };
    const bool tellsParts = m_producer != "ScriptedFirst.cti"; // else the frame is as the camera is set
    Start(1);
    for (const auto &row : kRows) {
        SCOPED_TRACE(testing::PrintToString(row.types));
        std::copy(row.types.begin(), row.types.end(), script->partTypes);
        script->parts = static_cast<std::uint32_t>(row.types.size());
        OrvCam::Buffer *buffer = Next();
        ASSERT_NE(nullptr, buffer);
        EXPECT_FALSE(buffer->IsIncomplete());
        const _OrvImage *image = buffer->GetImage();
        EXPECT_EQ(!tellsParts ? 8 : row.height != 0 ? 4 : 0, image->width);
        EXPECT_EQ(tellsParts ? row.height : 4, image->height);
        const std::size_t offset = tellsParts && row.height > 0 ? 4 * (row.height - 1) : 0;
        EXPECT_EQ(offset, reinterpret_cast<std::uintptr_t>(image->data) % 4096);
        EXPECT_EQ(ORV_CAM_OK, stream->QueueBuffer(buffer));
    }
}

TEST_P(Stream, WaitsEndWhenTheyShould)
{
    Start();
    EXPECT_EQ(ORV_CAM_ERR_TIMEOUT, FetchNothing(0));
    const auto start = steady_clock::now();
    EXPECT_EQ(ORV_CAM_ERR_TIMEOUT, FetchNothing(30));
    EXPECT_GE(steady_clock::now() - start, milliseconds(30));

    stream->CancelBuffer(); // nobody waits: the next call ends
    EXPECT_EQ(ORV_CAM_ERR_ABORTED, FetchNothing(OrvCam::kInfinite));
    EXPECT_EQ(ORV_CAM_ERR_TIMEOUT, FetchNothing(1)) << "one cancel ends one wait";

    for (const int losesKills : {0, 1}) {
        script->losesKills = losesKills;
        std::atomic<int> result{1};
        std::thread waiter([&] {
            int answer = 0;
            stream->GetBuffer(OrvCam::kInfinite, &answer);
            result = answer;
        });
        EXPECT_EQ(ORV_CAM_OK, stream->StopAcquisition(1)) << "does not wait for the waiting thread";
        EXPECT_EQ(1, result);
        stream->CancelBuffer();
        waiter.join();
        EXPECT_EQ(ORV_CAM_ERR_ABORTED, result);
        EXPECT_EQ(ORV_CAM_OK, stream->StartAcquisition(OrvCam::kInfinite, 0));
    }
}

TEST_P(Stream, FailingStreamDoesNotSpin)
{
    Start();
    script->eventResult = GC_ERR_IO;
    const auto start = steady_clock::now();
    for (int i = 0; i < 5; ++i)
        EXPECT_EQ(ORV_CAM_ERR_IO, FetchNothing(OrvCam::kInfinite));
    EXPECT_GE(steady_clock::now() - start, milliseconds(50));
    script->eventResult = GC_ERR_ABORT; // without end, and nobody asked for it
    EXPECT_EQ(ORV_CAM_ERR_PRODUCER, FetchNothing(OrvCam::kInfinite));
    script->eventResult = GC_ERR_SUCCESS;
    script->waitsAtOnce = 1;
    script->polls = 0;
    EXPECT_EQ(ORV_CAM_ERR_TIMEOUT, FetchNothing(200));
    EXPECT_LT(script->polls, 100);
    EXPECT_NE(nullptr, Next());
}

TEST_P(Stream, FiguresComeFromTheInfosTheyAreNamedAfter)
{
    const bool isOurs = std::string(GetParam()) == "ScriptedOurs.cti";
    const std::map<std::string, int> commands = {
        {"delivered", STREAM_INFO_NUM_DELIVERED},
        {"underruns", STREAM_INFO_NUM_UNDERRUN},
        {"started", STREAM_INFO_NUM_STARTED},
        {"incomplete", NUVARK_STREAM_INFO_NUM_INCOMPLETE},
        {"missed", NUVARK_STREAM_INFO_NUM_MISSED},
        {"packets", NUVARK_STREAM_INFO_NUM_PACKETS},
        {"fullPackets", NUVARK_STREAM_INFO_NUM_FULL},
        {"withoutBuffer", NUVARK_STREAM_INFO_NUM_WITHOUT_BUFFER},
        {"droppedByCamera", NUVARK_STREAM_INFO_NUM_DROPPED_BY_CAMERA},
        {"requested", NUVARK_STREAM_INFO_NUM_REQUESTED},
        {"resent", NUVARK_STREAM_INFO_NUM_RESENT},
        {"missing", NUVARK_STREAM_INFO_NUM_MISSING},
        {"duplicates", NUVARK_STREAM_INFO_NUM_DUPLICATES},
        {"late", NUVARK_STREAM_INFO_NUM_LATE},
        {"refused", NUVARK_STREAM_INFO_NUM_REFUSED},
        {"unusable", NUVARK_STREAM_INFO_NUM_UNUSABLE},
        {"oversized", NUVARK_STREAM_INFO_NUM_OVERSIZED},
        {"kernelDrops", NUVARK_STREAM_INFO_KERNEL_DROPS},
        {"receiveBuffer", NUVARK_STREAM_INFO_RECEIVE_BUFFER},
        {"wantedReceiveBuffer", NUVARK_STREAM_INFO_WANTED_BUFFER},
        {"packetSize", NUVARK_STREAM_INFO_PACKET_SIZE},
    };
    const OrvCam::StreamStatistics silent = stream->GetStatistics();
    script->tellsFigures = 1;
    const OrvCam::StreamStatistics told = stream->GetStatistics();
    for (const OrvCam::NamedFigure &figure : OrvCam::NamedFigures()) {
        SCOPED_TRACE(figure.name);
        const auto command = commands.find(figure.name);
        ASSERT_NE(commands.end(), command);
        EXPECT_EQ(0u, silent.*figure.member);
        const bool isAsked = isOurs || command->second < STREAM_INFO_CUSTOM_ID;
        EXPECT_EQ(isAsked ? kScriptedFigure + static_cast<std::uint64_t>(command->second) : 0, told.*figure.member);
    }
}

TEST_P(Stream, FramesAreCountedWhereNobodyTells)
{
    Start();
    script->incomplete = 1;
    stream->QueueBuffer(Next());
    script->incomplete = 0;
    stream->QueueBuffer(Next());
    EXPECT_EQ(1u, stream->GetStatistics().incomplete);
    EXPECT_EQ(2u, stream->GetStatistics().delivered);
    stream->StopAcquisition(1);
    EXPECT_EQ(ORV_CAM_OK, stream->StartAcquisition(OrvCam::kInfinite, 0));
    EXPECT_EQ(0u, stream->GetStatistics().incomplete) << "of this start";
}

TEST_P(Stream, StatesAndSizesAreChecked)
{
    EXPECT_EQ(ORV_CAM_ERR_INVALID_PARAMETER, stream->AllocBufferQueue(nullptr, 0));
    EXPECT_EQ(ORV_CAM_ERR_INVALID_STATE, stream->StartAcquisition(OrvCam::kInfinite, 0)) << "without buffers";
    EXPECT_EQ(ORV_CAM_ERR_INVALID_STATE, stream->StopAcquisition(0));
    EXPECT_EQ(ORV_CAM_ERR_INVALID_PARAMETER, stream->QueueBuffer(nullptr));

    script->announceFailsAt = 2;
    EXPECT_NE(ORV_CAM_OK, stream->AllocBufferQueue(nullptr, 4));
    EXPECT_EQ(0, script->announced) << "all or nothing";
    script->announceFailsAt = -1;

    script->portResult = GC_ERR_TIMEOUT;
    EXPECT_EQ(ORV_CAM_ERR_TIMEOUT, stream->AllocBufferQueue(nullptr, 4)) << "the camera's own answer";
    script->portResult = GC_ERR_SUCCESS;
    script->payload = 1ull << 45;
    EXPECT_EQ(ORV_CAM_ERR_OUT_OF_MEMORY, stream->AllocBufferQueue(nullptr, 4));
    script->payload = 64;
    Start(4);
    EXPECT_EQ(4, script->announced);
    EXPECT_EQ(ORV_CAM_ERR_INVALID_STATE, stream->AllocBufferQueue(nullptr, 4)) << "while running";
    EXPECT_EQ(ORV_CAM_ERR_INVALID_STATE, stream->StartAcquisition(OrvCam::kInfinite, 0));
    OrvCam::Buffer *lent = Next();
    ASSERT_NE(nullptr, lent);
    EXPECT_EQ(0u, reinterpret_cast<std::uintptr_t>(lent->GetImage()->data) % 4096);
    EXPECT_EQ(ORV_CAM_OK, stream->StopAcquisition(0));
    EXPECT_EQ(ORV_CAM_OK, stream->AllocBufferQueue(nullptr, 2));
    EXPECT_EQ(2, script->announced);
    // The address of one that is gone may be that of a new one, which is not lent: refused as well.
    EXPECT_NE(ORV_CAM_OK, stream->QueueBuffer(lent)) << "of a queue that is gone";
    script->startResult = GC_ERR_INVALID_BUFFER;
    EXPECT_EQ(ORV_CAM_ERR_INVALID_STATE, stream->StartAcquisition(OrvCam::kInfinite, 0));
}

TEST_P(Stream, ManyStartsAndStops)
{
    for (int round = 0; round < 200; ++round) {
        Start();
        std::atomic<bool> stop{false};
        std::atomic<int> frames{0};
        std::thread grabber([&] {
            while (!stop) {
                if (OrvCam::Buffer *buffer = stream->GetBuffer(OrvCam::kInfinite, nullptr)) {
                    ++frames;
                    stream->QueueBuffer(buffer);
                }
            }
        });
        for (int i = 0; i < 3; ++i)
            EXPECT_TRUE(WaitFor([&] { return script->deliver() == 1; }));
        EXPECT_TRUE(WaitFor([&] { return frames == 3; }));
        stop = true;
        stream->CancelBuffer();
        grabber.join();
        ASSERT_EQ(ORV_CAM_OK, stream->StopAcquisition(1));
        ASSERT_EQ(ORV_CAM_OK, stream->ReleaseBufferQueue());
    }
}

TEST_P(Stream, GrabbingWhileFeaturesAreRead)
{
    Start(8);
    std::atomic<bool> stop{false};
    OrvCam::FeatureArray *features = device->GetCameraParameters();
    std::thread reader([&] {
        while (!stop)
            EXPECT_EQ(8, features->GetInt("Width")->GetValue());
    });
    std::thread giver([&] {
        while (!stop)
            script->deliver();
    });
    std::uint64_t last = 0;
    for (int i = 0; i < 300; ++i) {
        int status = -1;
        OrvCam::Buffer *buffer = stream->GetBuffer(5000, &status);
        ASSERT_NE(nullptr, buffer) << status;
        EXPECT_GT(buffer->GetFrameID(), last);
        last = buffer->GetFrameID();
        ASSERT_EQ(ORV_CAM_OK, stream->QueueBuffer(buffer));
    }
    stop = true;
    reader.join();
    giver.join();
}

/// What was left over of the run before is not part of the next one.
TEST_P(Stream, AStartForgetsTheRunBefore)
{
    Start();
    OrvCam::Buffer *lent = Next();
    script->deliver();
    stream->CancelBuffer();
    Restart();
    EXPECT_EQ(ORV_CAM_ERR_TIMEOUT, FetchNothing(20)) << "neither the cancel nor the frame that was not fetched";
    EXPECT_EQ(1, script->deliver());
    EXPECT_EQ(1, script->deliver());
    EXPECT_EQ(0, script->deliver()) << "two of three: one is still lent";
    EXPECT_EQ(ORV_CAM_OK, stream->QueueBuffer(lent));
    EXPECT_EQ(1, script->deliver());
    // A producer that does not take a buffer twice in its own words: none is queued twice, so each is still known.
    script->twiceResult = GC_ERR_INVALID_BUFFER;
    Restart();
    Restart();
    for (int i = 0; i < 3; ++i) {
        OrvCam::Buffer *buffer = Next();
        ASSERT_NE(nullptr, buffer);
        EXPECT_EQ(ORV_CAM_OK, stream->QueueBuffer(buffer));
    }
    // Who waits all the while gets a frame of the new run.
    OrvCam::Buffer *fetched = nullptr;
    std::thread waiter([&] { fetched = stream->GetBuffer(OrvCam::kInfinite, nullptr); });
    Restart();
    EXPECT_EQ(1, script->deliver());
    waiter.join();
    EXPECT_NE(nullptr, fetched);
}

/// The producer refuses a call that usually cannot fail: nothing is lost for good, and the next try makes it good.
TEST_P(Stream, RefusalsOfTheProducerCanBeRepaired)
{
    Start();
    OrvCam::Buffer *buffer = Next();
    script->queueFailures = 1;
    EXPECT_EQ(ORV_CAM_ERR_BUSY, stream->QueueBuffer(buffer));
    EXPECT_NE(nullptr, Next()) << "the fetch of another offers it again";
    EXPECT_EQ(1, script->deliver());
    EXPECT_EQ(1, script->deliver()) << "all three are in use";

    script->stopResult = GC_ERR_BUSY;
    EXPECT_EQ(ORV_CAM_ERR_BUSY, stream->ReleaseBufferQueue()) << "the producer is still filling them";
    EXPECT_EQ(3, script->announced);
    script->stopResult = GC_ERR_SUCCESS;
    EXPECT_EQ(ORV_CAM_OK, stream->StartAcquisition(OrvCam::kInfinite, 0)) << "stopped at last, and started";
    EXPECT_EQ(ORV_CAM_OK, stream->StopAcquisition(1));
    EXPECT_EQ(ORV_CAM_ERR_INVALID_STATE, stream->StopAcquisition(1));

    script->revokeResult = GC_ERR_BUSY;
    for (int i = 0; i < 3; ++i) {
        ASSERT_EQ(ORV_CAM_OK, stream->AllocBufferQueue(this, 3));
        EXPECT_EQ(3, script->announced) << "none is left with the producer";
    }
    EXPECT_EQ(ORV_CAM_OK, stream->StartAcquisition(OrvCam::kInfinite, 0));
    EXPECT_NE(nullptr, Next()) << "through the stream that was opened anew";
    script->revokeResult = GC_ERR_SUCCESS;

    script->stopResult = GC_ERR_BUSY;
    EXPECT_EQ(ORV_CAM_ERR_BUSY, stream->StopAcquisition(1));
    EXPECT_EQ(ORV_CAM_OK, stream->ReleaseBufferQueue()) << "closing ends what would not stop";
    Start();
    EXPECT_NE(nullptr, Next());
    script->stopResult = GC_ERR_SUCCESS;
    EXPECT_EQ(ORV_CAM_OK, stream->StopAcquisition(1));
}

/// What the producer does not give back it may write to, so the memory stays for as long.
TEST_P(Stream, BuffersOutliveAStreamThatWouldNotClose)
{
    Start();
    ASSERT_EQ(ORV_CAM_OK, stream->StopAcquisition(1));
    script->revokeResult = script->closeResult = GC_ERR_BUSY;
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(ORV_CAM_ERR_PRODUCER, stream->ReleaseBufferQueue());
        script->scribble();
        EXPECT_EQ(ORV_CAM_ERR_INVALID_STATE, FetchNothing(10));
    }
    script->closeResult = GC_ERR_SUCCESS;
    Start();
    EXPECT_EQ(3, script->announced) << "closed at last, and opened anew";
    script->closeResult = GC_ERR_BUSY;
    Release();
    script->scribble();
    script->closeResult = GC_ERR_SUCCESS;
    script->closeStream(); // TearDown finds nothing left behind
}

TEST_P(Stream, ReleaseInTheMiddleOfEverything)
{
    Start();
    ASSERT_NE(nullptr, Next()); // lent and never given back
    script->deliver();          // filled and never fetched
    std::thread waiter([&] {
        stream->GetBuffer(OrvCam::kInfinite, nullptr);
        stream->GetBuffer(OrvCam::kInfinite, nullptr);
    });
    EXPECT_TRUE(WaitFor([&] { return script->deliver() == 1; }));
    stream->CancelBuffer();
    waiter.join();
    Release(); // TearDown finds nothing left behind
}

} // namespace
