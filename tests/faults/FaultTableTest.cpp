// What comes of each fault of a camera, through the whole producer: the table that this prints is the promise.
#include "faults/ProducerSession.h"
#include "faults/TableRows.h"
#include "simulator/gige/GigeCamera.h"
#include "support/PrivateNetwork.h"
#include "support/Sanitized.h"

#include <gtest/gtest.h>

#include <cstdio>

namespace {

using orvsim::Faults;

constexpr std::uint32_t kCameraAddress = 0x7f000015;
constexpr char kCameraText[] = "127.0.0.21";
constexpr char kInterface[] = "GEV:lo:127.0.0.1";
constexpr int kWidth = 64;
constexpr int kHeight = 64;
constexpr std::size_t kBytes = kWidth * kHeight; // three packets of data, with leader and trailer five
constexpr std::size_t kFrameIdInChunks = 8 + 16; // behind the image: its tail, the timestamp, then the number
constexpr std::size_t kBuffers = 512; ///< for frames that wait for packets while the machine is busy elsewhere
/// What the checks below keep up with on a busy machine: frames that nobody fetches are no fault of the stream.
constexpr double kFramesPerSecond = kIsSanitized ? 600 : 1500;

orvsim::CameraOptions SmallFastCamera(const Faults &faults, Form form = Form::Image)
{
    orvsim::CameraOptions options;
    options.sensor.width = kWidth;
    options.sensor.height = kHeight;
    options.sensor.isColour = false;
    options.pixelFormat = "Mono8";
    options.frameRate = kFramesPerSecond;
    options.frameMemory = 8 << 20;
    options.features = {{"ExposureTime", "50"}, {"TestPattern", "FrameCounter"}};
    if (form == Form::Chunks)
        options.features["ChunkModeActive"] = "1";
    if (form == Form::AllIn)
        options.features["GevSCCFGAllInTransmission"] = "1";
    options.faults = faults;
    return options;
}

orvsim::GigeOptions OnLoopback(Form form = Form::Image)
{
    orvsim::GigeOptions options;
    options.address = kCameraAddress;
    options.legacy = form == Form::ShortIds;
    options.multiPart = form == Form::Parts;
    options.packetSize = form == Form::AllIn ? 9000 : 1500;
    options.resendFrames = 1024; // outlasts a pause of a loaded machine
    return options;
}

/// The pattern's picture has the value (x + y + number) in each pixel, the second part 255 less that, and one chunk the
/// number. What is missing is zero.
struct Look {
    bool isWhole = true;    ///< every byte is the same frame's
    bool hasHoles = false;  ///< bytes are zero that ought not to be
    bool isForeign = false; ///< bytes that are neither
};
Look LookAt(const ProducerSession::Frame &frame, Form form)
{
    // Of a frame with holes nobody knows which number it has: the most frequent one counts.
    std::vector<int> votes(256);
    for (std::size_t i = 0; i < kBytes; ++i)
        ++votes[static_cast<std::uint8_t>(frame.data[i] - i % kWidth - i / kWidth)];
    int number = 0;
    for (int i = 1; i < 256; ++i)
        number = votes[i] > votes[number] ? i : number;
    Look look;
    const auto compare = [&](std::size_t place, std::size_t right) {
        if (frame.data[place] == static_cast<std::uint8_t>(right))
            return;
        look.isWhole = false;
        (frame.data[place] == 0 ? look.hasHoles : look.isForeign) = true;
    };
    for (std::size_t i = 0; i < kBytes; ++i) {
        const std::size_t right = i % kWidth + i / kWidth + static_cast<std::size_t>(number);
        compare(i, right);
        if (form == Form::Parts)
            compare(kBytes + i, 255 - right);
    }
    if (form == Form::Chunks)
        compare(kBytes + kFrameIdInChunks + 7, static_cast<std::size_t>(number));
    return look;
}

struct Counter {
    const char *column;
    const char *feature;
    std::int64_t Result::*value;
};
const Counter kCounters[] = {
    {"asked", "StreamRequestedPacketCount", &Result::requested},
    {"resent", "StreamResentPacketCount", &Result::resent},
    {"refus.", "StreamRefusedPacketCount", &Result::refused},
    {"double", "StreamDuplicatePacketCount", &Result::duplicates},
    {"late", "StreamLatePacketCount", &Result::late},
    {"unus.", "StreamUnusablePacketCount", &Result::unusable},
    {"missed", "StreamMissedFrameCount", &Result::missed},
    {"under", "StreamLostFrameCount", &Result::underruns},
    {"kern", "StreamKernelDropCount", &Result::kernelDrops},
};

Result RunRow(ProducerSession &session, orvsim::GigeCamera &camera, const TableRow &row)
{
    std::string problem;
    session.OpenDevice(kCameraText);
    const std::size_t bytes = camera.Core().PayloadSize();
    session.OpenStream(kBuffers, bytes);
    session.SetStreamFeature("StreamPacketResendEnable", row.resend ? 1 : 0);
    session.Start();
    EXPECT_EQ(camera.Core().SetFeature("AcquisitionStart", "1", problem), orvsim::Outcome::Ok) << problem;
    Result result;
    std::uint64_t lastId = 0;
    for (int i = 0; i < row.frames; ++i) {
        const ProducerSession::Frame frame = session.Fetch(20000);
        if (frame.handle == nullptr)
            break;
        const Look look = LookAt(frame, row.form);
        ++(frame.isIncomplete ? result.incomplete : result.complete);
        result.wrong += !frame.isIncomplete && !look.isWhole ? 1 : 0;
        result.unharmed += frame.isIncomplete && frame.hasImage && look.isWhole && frame.bytes == bytes ? 1 : 0;
        result.disordered += i > 0 && frame.id <= lastId && lastId != 0xFFFF ? 1 : 0;
        lastId = frame.id;
        session.GiveBack(frame);
    }
    camera.Core().SetFeature("AcquisitionStop", "1", problem);
    for (const Counter &counter : kCounters)
        result.*counter.value = session.StreamFeature(counter.feature);
    session.Stop();
    session.CloseDevice();
    return result;
}

void PrintHead()
{
    std::printf("%-26s %-3s %6s %6s %6s %5s", "fault", "res", "frames", "compl.", "incom.", "wrong");
    for (const Counter &counter : kCounters)
        std::printf(" %6s", counter.column);
    std::puts("");
}

void Print(const TableRow &row, const Result &r)
{
    std::printf("%-26s %-3s %6d %6d %6d %5d", row.name, row.resend ? "on" : "off", row.frames, r.complete, r.incomplete,
                r.wrong);
    for (const Counter &counter : kCounters)
        std::printf(" %6lld", static_cast<long long>(r.*counter.value));
    std::puts("");
    std::fflush(stdout);
}

} // namespace

TEST(FaultTable, EachFaultHasItsOutcome)
{
    (void)InPrivateNetwork();
    ProducerSession session(ORV_PRODUCER_FILE, kInterface);
    PrintHead();
    for (const TableRow &row : TableRows()) {
        SCOPED_TRACE(std::string(row.name) + (row.resend ? ", resend on" : ", resend off"));
        Faults faults;
        row.fault(faults);
        orvsim::GigeCamera camera(SmallFastCamera(faults, row.form), OnLoopback(row.form));
        ASSERT_EQ(camera.Open(), "");
        const Result result = RunRow(session, camera, row);
        Print(row, result);
        EXPECT_EQ(result.wrong, 0);
        EXPECT_EQ(result.disordered, 0);
        row.expect(result, row.frames);
    }
}
