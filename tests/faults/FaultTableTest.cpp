// What comes of each fault of a camera, through the whole producer: the table that this prints is the promise.
#include "faults/ProducerSession.h"
#include "faults/TableRows.h"
#include "simulator/gige/GigeCamera.h"
#include "support/PrivateNetwork.h"
#include "support/Sanitized.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>

namespace {

constexpr std::uint32_t kCameraAddress = 0x7f000015;
constexpr char kCameraText[] = "127.0.0.21";
constexpr char kInterface[] = "GEV:lo:127.0.0.1";
constexpr std::size_t kFrameIdInChunks = 8 + 16; // behind the image: its tail, the timestamp, then the number

/// How large the frames are, and how many there may be at a time.
struct Scale {
    std::size_t width;
    std::size_t height;
    /// What the checks below keep up with on a busy machine: frames that nobody fetches are no fault of the stream.
    double framesPerSecond;
    std::size_t buffers;     ///< for frames that wait for packets while the machine is busy elsewhere
    int resendFrames;        ///< outlast a pause of a loaded machine
    std::size_t frameMemory; ///< bytes for frames prepared ahead
    std::int64_t patience;   ///< how many times the usual tries and retention: the camera's threads may wait as well
};
/// Three packets of data, with leader and trailer five.
constexpr Scale kSmall{64, 64, kIsSanitized ? 600 : 1500, 512, 1024, 8 << 20, 1};
/// Some 720 packets, which come in runs, land in the buffers and let the receiver sleep in between.
constexpr Scale kLarge{1024, 1024, kIsSanitized ? 40 : 100, 64, 64, 16 << 20, 8};

orvsim::CameraOptions FastCamera(const Scale &scale, const TableRow &row)
{
    orvsim::CameraOptions options;
    options.sensor.width = static_cast<int>(scale.width);
    options.sensor.height = static_cast<int>(scale.height);
    options.sensor.isColour = false;
    options.pixelFormat = "Mono8";
    options.frameRate = scale.framesPerSecond;
    options.frameMemory = scale.frameMemory;
    options.features = {{"ExposureTime", "50"}, {"TestPattern", "FrameCounter"}};
    if (row.form == Form::Chunks)
        options.features["ChunkModeActive"] = "1";
    if (row.form == Form::AllIn)
        options.features["GevSCCFGAllInTransmission"] = "1";
    row.fault(options.faults);
    return options;
}

orvsim::GigeOptions OnLoopback(const Scale &scale, Form form)
{
    orvsim::GigeOptions options;
    options.address = kCameraAddress;
    options.legacy = form == Form::ShortIds;
    options.multiPart = form == Form::Parts;
    options.packetSize = form == Form::AllIn ? 9000 : 1500;
    options.resendFrames = scale.resendFrames;
    return options;
}

/// Counts up, or down from 255, modulo 256: what a line holds begins at some place of it.
std::vector<std::uint8_t> Ramp(bool isRising)
{
    std::vector<std::uint8_t> ramp(256 + kLarge.width);
    for (std::size_t i = 0; i < ramp.size(); ++i)
        ramp[i] = static_cast<std::uint8_t>(isRising ? i : 255 - i);
    return ramp;
}

/// The pattern's picture has the value (x + y + number) in each pixel, the second part 255 less that, and one chunk the
/// number. What is missing is zero.
class Look {
public:
    Look(const ProducerSession::Frame &frame, const Scale &scale, Form form)
        : m_bytes(frame.data), m_size(frame.dataSize), m_width(scale.width), m_height(scale.height),
          m_hasParts(form == Form::Parts)
    {
        const std::size_t picture = m_width * m_height;
        const std::size_t number = NumberOf();
        static const std::vector<std::uint8_t> rising = Ramp(true);
        static const std::vector<std::uint8_t> falling = Ramp(false);
        for (std::size_t y = 0; y < m_height; ++y) {
            const std::size_t begin = (number + y) % 256;
            Compare(y * m_width, &rising[begin], m_width);
            if (m_hasParts)
                Compare(picture + y * m_width, &falling[begin], m_width);
        }
        if (form == Form::Chunks)
            Compare(picture + kFrameIdInChunks + 7, &rising[number], 1);
    }

    bool isWhole = true;    ///< every byte is the same frame's
    std::size_t holes = 0;  ///< bytes that are zero and ought not to be
    bool isForeign = false; ///< bytes that are neither

private:
    /// Of a frame with holes nobody knows which number it has: the one that most lines begin by counts.
    std::size_t NumberOf() const
    {
        std::array<int, 256> votes{};
        const auto vote = [&](std::size_t at, std::size_t number) {
            votes[number % votes.size()] += at < m_size ? 1 : 0;
        };
        for (std::size_t y = 0; y < m_height; ++y) {
            const std::size_t line = y * m_width;
            vote(line, m_bytes[line] - y);
            if (m_hasParts)
                vote(m_width * m_height + line, 255U - m_bytes[m_width * m_height + line] - y);
        }
        return static_cast<std::size_t>(std::max_element(votes.begin(), votes.end()) - votes.begin());
    }
    /// Beyond the frame's data is what the buffer held before.
    void Compare(std::size_t at, const std::uint8_t *right, std::size_t count)
    {
        const std::size_t there = std::min(count, m_size - std::min(m_size, at));
        if (there == count && std::memcmp(m_bytes + at, right, count) == 0)
            return;
        isWhole = false;
        for (std::size_t i = 0; i < there; ++i) {
            const std::uint8_t byte = m_bytes[at + i];
            holes += byte != right[i] && byte == 0 ? 1 : 0;
            isForeign = isForeign || (byte != right[i] && byte != 0);
        }
    }

    const std::uint8_t *const m_bytes;
    const std::size_t m_size; ///< bytes of the frame's data
    const std::size_t m_width;
    const std::size_t m_height;
    const bool m_hasParts;
};

/// Counts a frame. \param bytes  of a whole one
void Judge(const ProducerSession::Frame &frame, const Look &look, std::size_t bytes, Result &result)
{
    if (!frame.isIncomplete) {
        ++result.complete;
        result.wrong += look.isWhole ? 0 : 1;
        return;
    }
    ++result.incomplete;
    result.unharmed += frame.hasImage && look.isWhole && frame.bytes == bytes ? 1 : 0;
    result.spoilt += look.isForeign || look.holes > bytes - std::min(bytes, frame.bytes) ? 1 : 0;
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

Result RunRow(ProducerSession &session, orvsim::GigeCamera &camera, const Scale &scale, const TableRow &row)
{
    std::string problem;
    session.OpenDevice(kCameraText);
    const std::size_t bytes = camera.Core().PayloadSize();
    session.OpenStream(scale.buffers, bytes);
    session.SetStreamFeature("StreamPacketResendEnable", row.resend ? 1 : 0);
    for (const char *feature : {"StreamPacketRequestTries", "StreamFrameRetention"})
        session.SetStreamFeature(feature, scale.patience * session.StreamFeature(feature));
    session.Start();
    EXPECT_EQ(camera.Core().SetFeature("AcquisitionStart", "1", problem), orvsim::Outcome::Ok) << problem;
    Result result;
    std::uint64_t lastId = 0;
    for (int i = 0; i < row.frames; ++i) {
        const ProducerSession::Frame frame = session.Fetch(20000);
        if (frame.handle == nullptr)
            break;
        Judge(frame, Look(frame, scale, row.form), bytes, result);
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

void RunTable(const std::vector<TableRow> &rows, const Scale &scale)
{
    (void)InPrivateNetwork();
    ProducerSession session(ORV_PRODUCER_FILE, kInterface);
    PrintHead();
    for (const TableRow &row : rows) {
        SCOPED_TRACE(std::string(row.name) + (row.resend ? ", resend on" : ", resend off"));
        const orvsim::CameraOptions options = FastCamera(scale, row);
        orvsim::GigeCamera camera(options, OnLoopback(scale, row.form));
        ASSERT_EQ(camera.Open(), "");
        const Result result = RunRow(session, camera, scale, row);
        Print(row, result);
        EXPECT_EQ(result.wrong, 0);
        EXPECT_EQ(result.disordered, 0);
        EXPECT_TRUE(result.spoilt == 0 || options.faults.corruptRate > 0) // a header may lead data to another's place
            << result.spoilt;
        row.expect(result, row.frames);
    }
}

} // namespace

TEST(FaultTable, EachFaultHasItsOutcome)
{
    RunTable(TableRows(), kSmall);
}

TEST(FaultTable, SoItIsWithLargeFrames)
{
    RunTable(LargeRows(), kLarge);
}
