/// What receiving a stream costs: our producer beside Aravis and beside a bare loop. See README.md.

#include "gentl/Library.h"
#include "gentl/NuvarkCustom.h"
#include "simulator/gige/GigeCamera.h"

#include <arv.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <arpa/inet.h>
#include <netinet/udp.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::uint32_t kCameraAddress = 0x7f000017;
constexpr char kCameraText[] = "127.0.0.23";
/// Mono8.
struct Stream {
    int width;
    int height;
    double megabytesPerSecond;
    std::uint32_t packetSize;

    std::size_t Payload() const { return static_cast<std::size_t>(width) * static_cast<std::size_t>(height); }
    double FramesPerSecond() const { return megabytesPerSecond * 1e6 / double(Payload()); }
};
constexpr int kBuffers = 16;
constexpr std::chrono::seconds kWarmUp{2};
constexpr std::chrono::seconds kMeasured{4};
constexpr int kRepetitions = 5;

[[noreturn]] void Fail(const std::string &what)
{
    std::fprintf(stderr, "bench_receive: %s\n", what.c_str());
    std::exit(1);
}

/// User and system time of this process.
double CpuSeconds()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    const auto seconds = [](const timeval &t) { return double(t.tv_sec) + double(t.tv_usec) * 1e-6; };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

/// What a receiver tells at the end of its run.
struct Figures {
    double cpuPerGigabyte = 0;
    double megabytesPerSecond = 0;
    std::uint64_t complete = 0;
    std::uint64_t damaged = 0;             ///< incomplete, or without a buffer
    std::uint64_t refilled = 0;            ///< packets sent again
    std::array<std::uint64_t, 7> causes{}; ///< of ours alone: see kCauses
    std::uint64_t leftOut = 0;             ///< of ours alone: numbers between the first frame and the last one
};

/// What tells where packets stayed, over the whole run.
const struct {
    const char *name;
    STREAM_INFO_CMD info;
} kCauses[] = {{"messages the kernel dropped", NUVARK_STREAM_INFO_KERNEL_DROPS},
               {"packets asked for again", NUVARK_STREAM_INFO_NUM_REQUESTED},
               {"refused", NUVARK_STREAM_INFO_NUM_REFUSED},
               {"late", NUVARK_STREAM_INFO_NUM_LATE},
               {"missing", NUVARK_STREAM_INFO_NUM_MISSING},
               {"frames without a buffer", STREAM_INFO_NUM_UNDERRUN},
               {"frames that never came", NUVARK_STREAM_INFO_NUM_MISSED}};

/// Counts while a receiver runs: the time between the marks is what is measured.
class Meter {
public:
    explicit Meter(std::size_t payload) : m_payload(payload) {}
    void Frame(bool isComplete)
    {
        ++(isComplete ? m_complete : m_damaged);
        const Clock::time_point now = Clock::now();
        if (!m_isMeasuring && now - m_created >= kWarmUp) {
            m_isMeasuring = true;
            m_begin = now;
            m_cpu = CpuSeconds();
            m_complete = m_damaged = 0;
        }
    }
    bool IsOver() const { return Clock::now() - m_created >= kWarmUp + kMeasured; }
    Figures Result() const
    {
        Figures figures;
        const double gigabytes = double(m_complete) * double(m_payload) / 1e9;
        const double seconds = std::chrono::duration<double>(Clock::now() - m_begin).count();
        figures.cpuPerGigabyte = (CpuSeconds() - m_cpu) / std::max(gigabytes, 1e-9);
        figures.megabytesPerSecond = gigabytes * 1e3 / seconds;
        figures.complete = m_complete;
        figures.damaged = m_damaged;
        return figures;
    }

private:
    const std::size_t m_payload;
    const Clock::time_point m_created = Clock::now();
    Clock::time_point m_begin = m_created;
    double m_cpu = 0;
    std::uint64_t m_complete = 0;
    std::uint64_t m_damaged = 0;
    bool m_isMeasuring = false;
};

/// Our producer, through its exported functions.
Figures ReceiveWithOurs(const Stream &sent)
{
    std::string error;
    const auto library = orv::gentl::Library::Load(ORV_PRODUCER_FILE, &error);
    if (library == nullptr)
        Fail(error);
    const orv::gentl::Functions &gc = library->Calls();
    const auto check = [](GC_ERROR code, const char *what) {
        if (code != GC_ERR_SUCCESS)
            Fail(std::string(what) + " failed: " + std::to_string(code));
    };
    TL_HANDLE system = nullptr;
    IF_HANDLE interface = nullptr;
    DEV_HANDLE device = nullptr;
    PORT_HANDLE port = nullptr;
    DS_HANDLE stream = nullptr;
    EVENT_HANDLE event = nullptr;
    check(gc.GCInitLib(), "GCInitLib");
    check(gc.TLOpen(&system), "TLOpen");
    check(gc.TLUpdateInterfaceList(system, nullptr, 10), "TLUpdateInterfaceList");
    check(gc.TLOpenInterface(system, "GEV:lo:127.0.0.1", &interface), "TLOpenInterface");
    check(gc.IFOpenDevice(interface, kCameraText, DEVICE_ACCESS_CONTROL, &device), "IFOpenDevice");
    check(gc.DevGetPort(device, &port), "DevGetPort");
    const std::array<std::uint8_t, 4> size{0x40, 0, std::uint8_t(sent.packetSize >> 8), std::uint8_t(sent.packetSize)};
    std::size_t bytes = size.size();
    check(gc.GCWritePort(port, 0x0d04, size.data(), &bytes), "writing the packet size");
    std::array<char, 256> id{};
    std::size_t idSize = id.size();
    check(gc.DevGetDataStreamID(device, 0, id.data(), &idSize), "DevGetDataStreamID");
    check(gc.DevOpenDataStream(device, id.data(), &stream), "DevOpenDataStream");
    check(gc.GCRegisterEvent(stream, EVENT_NEW_BUFFER, &event), "GCRegisterEvent");
    for (int i = 0; i < kBuffers; ++i) {
        BUFFER_HANDLE buffer = nullptr;
        check(gc.DSAllocAndAnnounceBuffer(stream, sent.Payload(), nullptr, &buffer), "DSAllocAndAnnounceBuffer");
        check(gc.DSQueueBuffer(stream, buffer), "DSQueueBuffer");
    }
    check(gc.DSStartAcquisition(stream, ACQ_START_FLAGS_DEFAULT, GENTL_INFINITE), "DSStartAcquisition");
    Meter meter(sent.Payload());
    std::uint64_t frames = 0;
    std::uint64_t firstId = 0;
    std::uint64_t lastId = 0;
    while (!meter.IsOver()) {
        EVENT_NEW_BUFFER_DATA data{};
        std::size_t dataSize = sizeof data;
        if (gc.EventGetData(event, &data, &dataSize, 1000) != GC_ERR_SUCCESS)
            continue;
        bool8_t incomplete = 1;
        std::size_t infoSize = sizeof incomplete;
        INFO_DATATYPE type = INFO_DATATYPE_UNKNOWN;
        check(gc.DSGetBufferInfo(stream, data.BufferHandle, BUFFER_INFO_IS_INCOMPLETE, &type, &incomplete, &infoSize),
              "DSGetBufferInfo");
        infoSize = sizeof lastId;
        check(gc.DSGetBufferInfo(stream, data.BufferHandle, BUFFER_INFO_FRAMEID, &type, &lastId, &infoSize),
              "DSGetBufferInfo");
        firstId = frames++ == 0 ? lastId : firstId;
        meter.Frame(incomplete == 0);
        gc.DSQueueBuffer(stream, data.BufferHandle);
    }
    Figures figures = meter.Result();
    figures.leftOut = frames != 0 ? lastId - firstId + 1 - frames : 0; // too few frames for them to wrap
    const auto ask = [&](STREAM_INFO_CMD info, std::uint64_t &value) {
        std::size_t infoSize = sizeof value;
        INFO_DATATYPE type = INFO_DATATYPE_UNKNOWN;
        check(gc.DSGetInfo(stream, info, &type, &value, &infoSize), "DSGetInfo");
    };
    ask(NUVARK_STREAM_INFO_NUM_RESENT, figures.refilled);
    for (std::size_t i = 0; i < figures.causes.size(); ++i)
        ask(kCauses[i].info, figures.causes[i]);
    gc.GCCloseLib();
    return figures;
}

/// Aravis, by UDP socket or by its packet socket.
Figures ReceiveWithAravis(const Stream &sent, bool packetSocket)
{
    GError *error = nullptr;
    GInetAddress *host = g_inet_address_new_from_string("127.0.0.1");
    GInetAddress *camera = g_inet_address_new_from_string(kCameraText);
    ArvDevice *device = arv_gv_device_new(host, camera, &error);
    if (device == nullptr)
        Fail(error->message);
    arv_gv_device_set_stream_options(ARV_GV_DEVICE(device), packetSocket ? ARV_GV_STREAM_OPTION_NONE
                                                                         : ARV_GV_STREAM_OPTION_PACKET_SOCKET_DISABLED);
    arv_gv_device_set_packet_size_adjustment(ARV_GV_DEVICE(device), ARV_GV_PACKET_SIZE_ADJUSTMENT_NEVER);
    arv_gv_device_set_packet_size(ARV_GV_DEVICE(device), static_cast<gint>(sent.packetSize), &error);
    ArvStream *stream = arv_device_create_stream(device, nullptr, nullptr, &error);
    if (stream == nullptr)
        Fail(error->message);
    g_object_set(stream, "socket-buffer", ARV_GV_STREAM_SOCKET_BUFFER_FIXED, "socket-buffer-size", 8 << 20, nullptr);
    for (int i = 0; i < kBuffers; ++i)
        arv_stream_push_buffer(stream, arv_buffer_new(sent.Payload(), nullptr));
    Meter meter(sent.Payload());
    while (!meter.IsOver()) {
        ArvBuffer *buffer = arv_stream_timeout_pop_buffer(stream, 1000000);
        if (buffer == nullptr)
            continue;
        meter.Frame(arv_buffer_get_status(buffer) == ARV_BUFFER_STATUS_SUCCESS);
        arv_stream_push_buffer(stream, buffer);
    }
    Figures figures = meter.Result();
    guint64 resent = 0;
    guint64 missing = 0;
    arv_gv_stream_get_statistics(ARV_GV_STREAM(stream), &resent, &missing);
    figures.refilled = resent;
    g_object_unref(stream);
    g_object_unref(device);
    return figures;
}

/// Just enough of the control protocol to open the stream channel.
void WriteRegister(int fd, std::uint32_t address, std::uint32_t value)
{
    static std::uint16_t id = 0;
    ++id;
    const std::array<std::uint8_t, 16> command{0x42,
                                               0x01,
                                               0x00,
                                               0x82,
                                               0x00,
                                               0x08,
                                               std::uint8_t(id >> 8),
                                               std::uint8_t(id),
                                               std::uint8_t(address >> 24),
                                               std::uint8_t(address >> 16),
                                               std::uint8_t(address >> 8),
                                               std::uint8_t(address),
                                               std::uint8_t(value >> 24),
                                               std::uint8_t(value >> 16),
                                               std::uint8_t(value >> 8),
                                               std::uint8_t(value)};
    for (int attempt = 0; attempt < 20; ++attempt) {
        send(fd, command.data(), command.size(), 0);
        pollfd readable{fd, POLLIN, 0};
        std::array<std::uint8_t, 64> answer{};
        if (poll(&readable, 1, 200) == 1 && recv(fd, answer.data(), answer.size(), 0) >= 8 && answer[0] == 0)
            return;
        std::this_thread::sleep_for(std::chrono::milliseconds(100)); // refused at once while it is starting
    }
    Fail("the camera does not answer");
}

/// The least that can be done: packets in batches from the socket, payload copied to where its number says.
Figures ReceiveBare(const Stream &sent, bool manyAtOnce)
{
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const int control = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_in local{};
    local.sin_family = AF_INET;
    local.sin_addr.s_addr = htonl(0x7f000001);
    sockaddr_in camera = local;
    camera.sin_addr.s_addr = htonl(kCameraAddress);
    camera.sin_port = htons(3956);
    socklen_t length = sizeof local;
    const int wanted = 8 << 20;
    const int on = 1;
    setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &wanted, sizeof wanted);
    setsockopt(fd, SOL_SOCKET, SO_RCVBUFFORCE, &wanted, sizeof wanted);
    if (manyAtOnce)
        setsockopt(fd, SOL_UDP, UDP_GRO, &on, sizeof on);
    if (bind(fd, reinterpret_cast<sockaddr *>(&local), length) != 0 ||
        getsockname(fd, reinterpret_cast<sockaddr *>(&local), &length) != 0 ||
        connect(control, reinterpret_cast<sockaddr *>(&camera), sizeof camera) != 0)
        Fail("no socket to receive with");
    WriteRegister(control, 0x0a00, 2);         // control
    WriteRegister(control, 0x0938, 3'600'000); // heartbeat: none is sent
    WriteRegister(control, 0x0d18, 0x7f000001);
    WriteRegister(control, 0x0d04, sent.packetSize);
    WriteRegister(control, 0x0d00, ntohs(local.sin_port));

    constexpr std::size_t kHeader = 8;
    const std::size_t slots = manyAtOnce ? 32 : 128;
    const std::size_t slotBytes = manyAtOnce ? 65536 : 9216;
    const std::size_t full = sent.packetSize - 28;
    const std::size_t data = full - kHeader;
    std::vector<std::uint8_t> memory(slots * slotBytes);
    std::vector<std::uint8_t> frames(kBuffers * sent.Payload());
    std::vector<iovec> pieces(slots);
    std::vector<mmsghdr> messages(slots);
    for (std::size_t i = 0; i < slots; ++i) {
        pieces[i] = {memory.data() + i * slotBytes, slotBytes};
        messages[i].msg_hdr.msg_iov = &pieces[i];
        messages[i].msg_hdr.msg_iovlen = 1;
    }
    Meter meter(sent.Payload());
    std::size_t frame = 0;
    std::size_t got = 0;
    while (!meter.IsOver()) {
        pollfd readable{fd, POLLIN, 0};
        if (poll(&readable, 1, 100) != 1)
            continue;
        const int count = recvmmsg(fd, messages.data(), static_cast<unsigned>(slots), MSG_DONTWAIT, nullptr);
        for (int i = 0; i < count; ++i) {
            const std::uint8_t *message = memory.data() + static_cast<std::size_t>(i) * slotBytes;
            // Leaders and trailers are never sent together with others of another length before them.
            for (std::size_t at = 0; at < messages[static_cast<std::size_t>(i)].msg_len; at += full) {
                const std::size_t size =
                    std::min<std::size_t>(full, messages[static_cast<std::size_t>(i)].msg_len - at);
                const std::uint8_t *packet = message + at;
                const std::size_t id = std::size_t{packet[5]} << 16 | std::size_t{packet[6]} << 8 | packet[7];
                const std::size_t offset = (id - 1) * data;
                if (packet[4] == 3 && offset < sent.Payload()) {
                    const std::size_t bytes = std::min(size - kHeader, sent.Payload() - offset);
                    std::memcpy(frames.data() + frame * sent.Payload() + offset, packet + kHeader, bytes);
                    got += bytes;
                } else if (packet[4] == 2) {
                    meter.Frame(got == sent.Payload());
                    frame = (frame + 1) % kBuffers;
                    got = 0;
                }
            }
        }
    }
    const Figures figures = meter.Result();
    WriteRegister(control, 0x0d00, 0);
    WriteRegister(control, 0x0a00, 0);
    close(fd);
    close(control);
    return figures;
}

/// The camera and one receiver, each in a process of its own, so that only the receiver's time is counted.
Figures RunOnce(const Stream &sent, const std::function<Figures()> &receive)
{
    std::fflush(stdout);
    const pid_t camera = fork();
    if (camera == 0) {
        prctl(PR_SET_PDEATHSIG, SIGTERM);
        orvsim::CameraOptions options;
        options.serial = "BENCH23";
        options.sensor.width = sent.width;
        options.sensor.height = sent.height;
        options.sensor.isColour = false;
        options.pixelFormat = "Mono8";
        options.frameRate = sent.FramesPerSecond();
        options.features = {{"ExposureTime", "100"}};
        orvsim::GigeOptions gige;
        gige.address = kCameraAddress;
        gige.legacy = true;
        orvsim::GigeCamera device(options, gige);
        std::string problem = device.Open();
        if (problem.empty())
            device.Core().SetFeature("AcquisitionStart", "1", problem);
        if (!problem.empty())
            Fail(problem);
        for (;;)
            pause();
    }
    std::array<int, 2> ends{};
    if (pipe(ends.data()) != 0)
        Fail("no pipe");
    const pid_t receiver = fork();
    if (receiver == 0) {
        prctl(PR_SET_PDEATHSIG, SIGTERM);
        std::this_thread::sleep_for(std::chrono::milliseconds(500)); // the camera is starting
        const Figures figures = receive();
        _exit(write(ends[1], &figures, sizeof figures) == sizeof figures ? 0 : 1);
    }
    close(ends[1]);
    Figures figures;
    const bool got = read(ends[0], &figures, sizeof figures) == sizeof figures;
    close(ends[0]);
    waitpid(receiver, nullptr, 0);
    kill(camera, SIGTERM);
    waitpid(camera, nullptr, 0);
    if (!got)
        Fail("a receiver has failed");
    return figures;
}

struct Receiver {
    const char *name;
    std::function<Figures()> receive;
    std::vector<Figures> runs = {};
};

/// \return the repetition with the median cost.
Figures Show(Receiver &receiver)
{
    std::vector<Figures> &runs = receiver.runs;
    std::sort(runs.begin(), runs.end(),
              [](const Figures &a, const Figures &b) { return a.cpuPerGigabyte < b.cpuPerGigabyte; });
    Figures median = runs[runs.size() / 2];
    std::uint64_t damaged = 0;
    std::uint64_t leftOut = 0;
    std::array<std::uint64_t, 7> causes{};
    for (const Figures &run : runs) {
        damaged += run.damaged;
        leftOut += run.leftOut;
        for (std::size_t i = 0; i < causes.size(); ++i)
            causes[i] += run.causes[i];
    }
    std::printf("  %-26s %8.3f (%.3f to %.3f) %8.0f %8llu %8llu %8llu\n", receiver.name, median.cpuPerGigabyte,
                runs.front().cpuPerGigabyte, runs.back().cpuPerGigabyte, median.megabytesPerSecond,
                static_cast<unsigned long long>(median.complete), static_cast<unsigned long long>(damaged),
                static_cast<unsigned long long>(median.refilled));
    for (std::size_t i = 0; i < causes.size(); ++i) {
        if (causes[i] != 0)
            std::printf("    %s, in all runs: %llu\n", kCauses[i].name, static_cast<unsigned long long>(causes[i]));
    }
    if (leftOut != 0)
        std::printf("    numbers of frames left out, in all runs: %llu\n", static_cast<unsigned long long>(leftOut));
    std::fflush(stdout);
    return median;
}

void Compare(const Stream &sent)
{
    std::printf("%d x %d, packets of %u bytes, %.0f MB/s asked for\n", sent.width, sent.height, sent.packetSize,
                sent.megabytesPerSecond);
    std::printf("  %-26s %8s %17s %8s %8s %8s %8s\n", "", "CPU s/GB", "(range)", "MB/s", "complete", "damaged",
                "resent");
    std::vector<Receiver> receivers = {
        {"bare loop, UDP_GRO", [=] { return ReceiveBare(sent, true); }},
        {"bare loop", [=] { return ReceiveBare(sent, false); }},
        {"ours", [=] { return ReceiveWithOurs(sent); }},
        {"Aravis, UDP socket", [=] { return ReceiveWithAravis(sent, false); }},
    };
    if (geteuid() == 0)
        receivers.push_back({"Aravis, packet socket", [=] { return ReceiveWithAravis(sent, true); }});
    // In turn: what else the machine does comes and goes within minutes.
    for (int i = 0; i < kRepetitions; ++i) {
        for (Receiver &receiver : receivers)
            receiver.runs.push_back(RunOnce(sent, receiver.receive));
    }
    std::vector<double> cost;
    for (Receiver &receiver : receivers)
        cost.push_back(Show(receiver).cpuPerGigabyte);
    std::printf("  Aravis (UDP) / ours %.2f; ours / bare loop with UDP_GRO %.2f, without %.2f\n", cost[3] / cost[2],
                cost[2] / cost[0], cost[2] / cost[1]);
}

} // namespace

int main(int argc, char **argv)
{
    const double megabytesPerSecond = argc > 1 ? std::atof(argv[1]) : 210;
    const int only = argc > 2 ? std::atoi(argv[2]) : 0; // packet size; 0: both
    for (const std::uint32_t packetSize : {1500U, 9000U}) {
        if (only != 0 && static_cast<std::uint32_t>(only) != packetSize)
            continue;
        Compare({2048, 1024, megabytesPerSecond, packetSize});
        Compare({4096, 3072, megabytesPerSecond, packetSize});
    }
    return 0;
}
