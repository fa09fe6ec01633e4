// What comes of each fault of a camera, through the whole producer: the table that this prints is the promise.
#include "faults/ProducerSession.h"
#include "simulator/gige/GigeCamera.h"
#include "support/PrivateNetwork.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <functional>

namespace {

using Clock = std::chrono::steady_clock;
using orvsim::Faults;

constexpr std::uint32_t kCameraAddress = 0x7f000015;
constexpr char kCameraText[] = "127.0.0.21";
constexpr char kSerial[] = "FAULTS21";
constexpr char kInterface[] = "GEV:lo:127.0.0.1";
constexpr int kWidth = 64;
constexpr int kHeight = 64;
constexpr std::size_t kBytes = kWidth * kHeight; // three packets of data, with leader and trailer five
constexpr std::size_t kBuffers = 128;
constexpr double kFramesPerSecond = 2000;

orvsim::CameraOptions SmallFastCamera(const Faults &faults)
{
    orvsim::CameraOptions options;
    options.serial = kSerial;
    options.sensor.width = kWidth;
    options.sensor.height = kHeight;
    options.sensor.isColour = false;
    options.pixelFormat = "Mono8";
    options.frameRate = kFramesPerSecond;
    options.frameMemory = 8 << 20;
    options.features = {{"ExposureTime", "50"}, {"TestPattern", "FrameCounter"}};
    options.faults = faults;
    return options;
}

orvsim::GigeOptions OnLoopback(bool legacy = false)
{
    orvsim::GigeOptions options;
    options.address = kCameraAddress;
    options.legacy = legacy;
    options.resendFrames = 1024; // outlasts a pause of a loaded machine
    return options;
}

/// The pattern's picture has the value (x + y + number) in each pixel. What is missing is zero.
struct Look {
    bool isWhole = true;    ///< every byte is the same frame's
    bool hasHoles = false;  ///< bytes are zero that ought not to be
    bool isForeign = false; ///< bytes that are neither
};
Look LookAt(const ProducerSession::Frame &frame)
{
    // Of a frame with holes nobody knows which number it has: the most frequent one counts.
    std::vector<int> votes(256);
    for (std::size_t i = 0; i < kBytes; ++i)
        ++votes[static_cast<std::uint8_t>(frame.data[i] - i % kWidth - i / kWidth)];
    int number = 0;
    for (int i = 1; i < 256; ++i)
        number = votes[i] > votes[number] ? i : number;
    Look look;
    for (std::size_t i = 0; i < kBytes; ++i) {
        const auto right = static_cast<std::uint8_t>(i % kWidth + i / kWidth + static_cast<std::size_t>(number));
        if (frame.data[i] == right)
            continue;
        look.isWhole = false;
        (frame.data[i] == 0 ? look.hasHoles : look.isForeign) = true;
    }
    return look;
}

struct Result {
    int complete = 0;
    int incomplete = 0;
    int wrong = 0;      ///< marked complete, but not every byte is right
    int unharmed = 0;   ///< marked incomplete with every byte there: only a lost trailer explains that
    int disordered = 0; ///< with a number not above its predecessor's
    double seconds = 0;
    std::int64_t requested = 0;
    std::int64_t resent = 0;
    std::int64_t refused = 0;
    std::int64_t duplicates = 0;
    std::int64_t late = 0;
    std::int64_t unusable = 0;
    std::int64_t missed = 0;
    std::int64_t underruns = 0;
    std::int64_t kernelDrops = 0;
};

struct Row {
    const char *name;
    int frames;
    bool resend;
    std::function<void(Faults &)> fault;
    /// What the fault is to come to, besides that no frame marked complete has a wrong byte.
    std::function<void(const Result &, int frames)> expect;
    bool legacy = false;
};

void AllComplete(const Result &result, int frames)
{
    EXPECT_EQ(result.complete, frames);
    EXPECT_EQ(result.incomplete, 0);
}
void SomeIncomplete(const Result &result, int)
{
    EXPECT_GT(result.incomplete, 0);
    EXPECT_LE(result.unharmed, result.incomplete / 2) << "a third of the lost packets are neither leader nor data";
    EXPECT_GT(result.complete, 0);
}
void Mostly(const Result &result, int frames)
{
    EXPECT_GT(result.complete, frames / 2);
}

Result RunRow(ProducerSession &session, orvsim::GigeCamera &camera, const Row &row)
{
    std::string problem;
    session.OpenDevice(kCameraText);
    session.OpenStream(kBuffers, kBytes);
    session.SetStreamFeature("StreamPacketResendEnable", row.resend ? 1 : 0);
    session.Start();
    EXPECT_EQ(camera.Core().SetFeature("AcquisitionStart", "1", problem), orvsim::Outcome::Ok) << problem;
    Result result;
    const Clock::time_point begin = Clock::now();
    std::uint64_t lastId = 0;
    for (int i = 0; i < row.frames; ++i) {
        const ProducerSession::Frame frame = session.Fetch(5000);
        if (frame.handle == nullptr)
            break;
        const Look look = LookAt(frame);
        ++(frame.isIncomplete ? result.incomplete : result.complete);
        result.wrong += !frame.isIncomplete && !look.isWhole ? 1 : 0;
        result.unharmed += frame.isIncomplete && frame.hasImage && look.isWhole && frame.bytes == kBytes ? 1 : 0;
        result.disordered += i > 0 && frame.id <= lastId && lastId != 0xFFFF ? 1 : 0;
        lastId = frame.id;
        session.GiveBack(frame);
    }
    result.seconds = std::chrono::duration<double>(Clock::now() - begin).count();
    camera.Core().SetFeature("AcquisitionStop", "1", problem);
    result.requested = session.StreamFeature("StreamRequestedPacketCount");
    result.resent = session.StreamFeature("StreamResentPacketCount");
    result.refused = session.StreamFeature("StreamRefusedPacketCount");
    result.duplicates = session.StreamFeature("StreamDuplicatePacketCount");
    result.late = session.StreamFeature("StreamLatePacketCount");
    result.unusable = session.StreamFeature("StreamUnusablePacketCount");
    result.missed = session.StreamFeature("StreamMissedFrameCount");
    result.underruns = session.StreamFeature("StreamLostFrameCount");
    result.kernelDrops = session.StreamFeature("StreamKernelDropCount");
    session.Stop();
    session.CloseDevice();
    return result;
}

void Print(const Row &row, const Result &r)
{
    std::printf("%-26s %-3s %6d %6d %6d %5d %6lld %6lld %6lld %6lld %6lld %6lld %6lld %5lld %5lld %6.0f\n", row.name,
                row.resend ? "on" : "off", row.frames, r.complete, r.incomplete, r.wrong, (long long)r.requested,
                (long long)r.resent, (long long)r.refused, (long long)r.duplicates, (long long)r.late,
                (long long)r.unusable, (long long)r.missed, (long long)r.underruns, (long long)r.kernelDrops,
                (r.complete + r.incomplete) / r.seconds);
    std::fflush(stdout);
}

} // namespace

TEST(FaultTable, EachFaultHasItsOutcome)
{
    (void)InPrivateNetwork();
    const Row kRows[] = {
        {"none", 2000, true, [](Faults &) {}, AllComplete},
        {"1 % dropped", 10000, true, [](Faults &f) { f.dropRate = 0.01; },
         [](const Result &r, int frames) {
             AllComplete(r, frames);
             EXPECT_GT(r.resent, 0);
         }},
        {"1 % dropped", 2000, false, [](Faults &f) { f.dropRate = 0.01; },
         [](const Result &r, int frames) {
             SomeIncomplete(r, frames);
             EXPECT_EQ(r.requested, 0);
         }},
        {"one packet of each frame", 1000, true, [](Faults &f) { f.dropPacket = 2; }, AllComplete},
        {"5 % leaders dropped", 1000, true, [](Faults &f) { f.dropLeaderRate = 0.05; }, AllComplete},
        {"5 % leaders dropped", 1000, false, [](Faults &f) { f.dropLeaderRate = 0.05; }, SomeIncomplete},
        {"5 % trailers dropped", 1000, true, [](Faults &f) { f.dropTrailerRate = 0.05; }, AllComplete},
        {"5 % trailers dropped", 1000, false, [](Faults &f) { f.dropTrailerRate = 0.05; },
         [](const Result &r, int) {
             EXPECT_GT(r.incomplete, 0);
             EXPECT_EQ(r.unharmed, r.incomplete) << "no byte of the picture is lost with it";
         }},
        {"1 % dropped, refused", 1000, true,
         [](Faults &f) {
             f.dropRate = 0.01;
             f.resendMode = 1;
         },
         [](const Result &r, int frames) {
             SomeIncomplete(r, frames);
             EXPECT_GT(r.refused, 0);
             EXPECT_EQ(r.resent, 0);
         }},
        {"1 % dropped, ignored", 1000, true,
         [](Faults &f) {
             f.dropRate = 0.01;
             f.resendMode = 2;
         },
         [](const Result &r, int frames) {
             SomeIncomplete(r, frames);
             EXPECT_GT(r.requested, 0);
             EXPECT_EQ(r.resent, 0);
         }},
        {"5 % reordered", 2000, true, [](Faults &f) { f.reorderRate = 0.05; }, AllComplete},
        {"5 % reordered", 2000, false, [](Faults &f) { f.reorderRate = 0.05; }, AllComplete},
        {"5 % duplicated", 2000, true, [](Faults &f) { f.duplicateRate = 0.05; },
         [](const Result &r, int frames) {
             AllComplete(r, frames);
             EXPECT_GT(r.duplicates + r.late, 0);
         }},
        {"2 % truncated", 2000, true, [](Faults &f) { f.truncateRate = 0.02; }, AllComplete},
        {"2 % truncated", 2000, false, [](Faults &f) { f.truncateRate = 0.02; }, SomeIncomplete},
        {"1 % corrupted headers", 2000, true, [](Faults &f) { f.corruptRate = 0.01; }, Mostly},
        {"1 % corrupted headers", 2000, false, [](Faults &f) { f.corruptRate = 0.01; }, Mostly},
        {"5 % foreign packets", 2000, true, [](Faults &f) { f.foreignRate = 0.05; }, AllComplete},
        {"numbers wrap", 1000, true, [](Faults &f) { f.firstBlockId = 65400; },
         [](const Result &r, int frames) {
             AllComplete(r, frames);
             EXPECT_EQ(r.missed, 0);
         },
         true},
        {"wrap, 1 % dropped", 1000, true,
         [](Faults &f) {
             f.firstBlockId = 65400;
             f.dropRate = 0.01;
         },
         AllComplete, true},
        {"5 % numbers repeated", 1000, true, [](Faults &f) { f.repeatIdRate = 0.05; },
         [](const Result &r, int frames) {
             Mostly(r, frames);
             EXPECT_GT(r.late, 0) << "a frame under a number that is through";
         }},
        {"5 % numbers left out", 1000, true, [](Faults &f) { f.skipIdRate = 0.05; },
         [](const Result &r, int frames) {
             AllComplete(r, frames);
             EXPECT_GT(r.missed, 0);
         }},
        {"every 100th stalls 250 ms", 500, true,
         [](Faults &f) {
             f.stallEvery = 100;
             f.stallMs = 250;
         },
         SomeIncomplete},
    };
    ProducerSession session(ORV_PRODUCER_FILE, kInterface);
    std::printf("%-26s %-3s %6s %6s %6s %5s %6s %6s %6s %6s %6s %6s %6s %5s %5s %6s\n", "fault", "res", "frames",
                "compl.", "incom.", "wrong", "asked", "resent", "refus.", "double", "late", "unus.", "missed", "under",
                "kern", "fps");
    for (const Row &row : kRows) {
        SCOPED_TRACE(std::string(row.name) + (row.resend ? ", resend on" : ", resend off"));
        Faults faults;
        row.fault(faults);
        orvsim::GigeCamera camera(SmallFastCamera(faults), OnLoopback(row.legacy));
        ASSERT_EQ(camera.Open(), "");
        const Result result = RunRow(session, camera, row);
        Print(row, result);
        EXPECT_EQ(result.wrong, 0);
        EXPECT_EQ(result.disordered, 0);
        row.expect(result, row.frames);
    }
}

TEST(FaultTable, ACameraThatGoesIsReportedAndCanBeOpenedAgain)
{
    (void)InPrivateNetwork();
    Faults faults;
    faults.vanishAfterMs = 300;
    faults.vanishForMs = 5000;
    orvsim::GigeCamera camera(SmallFastCamera(faults), OnLoopback());
    ASSERT_EQ(camera.Open(), "");
    ProducerSession session(ORV_PRODUCER_FILE, kInterface);
    const Clock::time_point opened = Clock::now();
    session.OpenDevice(kCameraText);
    const std::string reason = session.WaitForLoss(10000);
    const std::chrono::duration<double> seconds = Clock::now() - opened;
    EXPECT_NE(reason, "");
    EXPECT_LT(seconds.count(), 0.3 + 3 + 1) << "the promise is 3 s; one more for a loaded machine";
    std::printf("gone after 0.3 s, reported after %.2f s: %s\n", seconds.count(), reason.c_str());
    session.CloseDevice();
    bool isBack = false;
    for (int i = 0; i < 40 && !isBack; ++i)
        isBack = session.Finds(kSerial);
    ASSERT_TRUE(isBack);
    session.OpenDevice(kCameraText);
    session.CloseDevice();
}
