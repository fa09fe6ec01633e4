/// How fast the software camera's stream side is, beside Aravis's fake camera. See README.md.

#include "base/Bytes.h"
#include "orvimage/PixelFormats.h"
#include "simulator/gige/StreamSender.h"
#include "simulator/imaging/FrameStore.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <arpa/inet.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using namespace orvsim;
using Clock = std::chrono::steady_clock;

constexpr std::uint32_t kLoopback = 0x7f000001;
constexpr std::uint32_t kPacketSize = 1500;
constexpr std::size_t kFrameMemory = 192U << 20;
constexpr std::chrono::seconds kWarmUp{3}; ///< our frames are rendered meanwhile
constexpr std::chrono::seconds kMeasured{3};
constexpr int kRepetitions = 3;

double Seconds(const timeval &time)
{
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
}

sockaddr_in Loopback(std::uint16_t port)
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(kLoopback);
    address.sin_port = htons(port);
    return address;
}

[[noreturn]] void Fail(const std::string &what)
{
    std::fprintf(stderr, "bench_stream: %s\n", what.c_str());
    std::exit(1);
}

/// Takes packets from a socket and counts the frames that are complete. Looks at headers only.
class BareReceiver {
public:
    BareReceiver() : m_fd(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0))
    {
        const int bytes = 8 << 20; // the kernel grants net.core.rmem_max
        setsockopt(m_fd, SOL_SOCKET, SO_RCVBUF, &bytes, sizeof bytes);
        sockaddr_in local = Loopback(0);
        socklen_t length = sizeof local;
        if (bind(m_fd, reinterpret_cast<sockaddr *>(&local), length) != 0 ||
            getsockname(m_fd, reinterpret_cast<sockaddr *>(&local), &length) != 0)
            Fail("no socket to receive with");
        m_port = ntohs(local.sin_port);
    }
    ~BareReceiver()
    {
        m_isStopping = true;
        if (m_thread.joinable())
            m_thread.join();
        close(m_fd);
    }
    BareReceiver(const BareReceiver &) = delete;

    std::uint16_t Port() const { return m_port; }
    void Start()
    {
        m_thread = std::thread([this] { Run(); });
    }

    struct Counts {
        std::uint64_t begun = 0; ///< frames of which something came
        std::uint64_t complete = 0;
        std::uint64_t payloadBytes = 0; ///< of complete frames
        double cpuSeconds = 0;
    };
    Counts Read() const { return {m_begun, m_complete, m_payloadBytes, m_cpuSeconds}; }

private:
    static constexpr std::size_t kBatch = 64;
    static constexpr std::size_t kHeaderBytes = 8; // standard ids

    void Run()
    {
        std::vector<std::array<std::uint8_t, 2048>> slots(kBatch);
        std::vector<iovec> pieces(kBatch);
        std::vector<mmsghdr> messages(kBatch);
        for (std::size_t i = 0; i < kBatch; ++i) {
            pieces[i] = {slots[i].data(), slots[i].size()};
            messages[i].msg_hdr.msg_iov = &pieces[i];
            messages[i].msg_hdr.msg_iovlen = 1;
        }
        while (!m_isStopping) {
            pollfd readable{m_fd, POLLIN, 0};
            if (poll(&readable, 1, 100) != 1)
                continue;
            const int count = recvmmsg(m_fd, messages.data(), kBatch, MSG_DONTWAIT, nullptr);
            for (int i = 0; i < count; ++i)
                Take({slots[static_cast<std::size_t>(i)].data(), messages[static_cast<std::size_t>(i)].msg_len});
            rusage usage{};
            getrusage(RUSAGE_THREAD, &usage);
            m_cpuSeconds = Seconds(usage.ru_utime) + Seconds(usage.ru_stime);
        }
    }

    void Take(orv::ByteSpan datagram)
    {
        orv::ByteReader in(datagram);
        in.Skip(2);
        const std::uint16_t blockId = in.U16();
        const std::uint8_t format = in.U8();
        const std::uint32_t packetId = in.U8() << 16U | in.U16();
        if (!in.Ok() || blockId == 0)
            return;
        if (blockId != m_block) {
            m_block = blockId;
            m_packets = 0;
            m_bytes = 0;
            ++m_begun;
        }
        ++m_packets;
        if (format == 3)
            m_bytes += datagram.size - kHeaderBytes;
        if (format == 2 && m_packets == packetId + 1) {
            ++m_complete;
            m_payloadBytes += m_bytes;
        }
    }

    int m_fd = -1;
    std::uint16_t m_port = 0;
    std::uint16_t m_block = 0;
    std::uint32_t m_packets = 0;
    std::uint64_t m_bytes = 0;
    std::atomic<std::uint64_t> m_begun{0};
    std::atomic<std::uint64_t> m_complete{0};
    std::atomic<std::uint64_t> m_payloadBytes{0};
    std::atomic<double> m_cpuSeconds{0};
    std::atomic<bool> m_isStopping{false};
    std::thread m_thread;
};

struct Size {
    int width;
    int height;
};

/// A camera process; ends with this object.
class CameraProcess {
public:
    explicit CameraProcess(pid_t pid) : m_pid(pid) {}
    ~CameraProcess()
    {
        kill(m_pid, SIGTERM);
        waitpid(m_pid, nullptr, 0);
    }
    CameraProcess(const CameraProcess &) = delete;

    /// User and system time of all its threads so far.
    double CpuSeconds() const
    {
        std::ifstream file("/proc/" + std::to_string(m_pid) + "/stat");
        std::string text((std::istreambuf_iterator<char>(file)), {});
        const std::size_t name = text.rfind(')');
        unsigned long user = 0;
        unsigned long system = 0;
        if (name == std::string::npos ||
            std::sscanf(text.c_str() + name + 2, "%*c %*d %*d %*d %*d %*d %*u %*u %*u %*u %*u %lu %lu", &user,
                        &system) != 2)
            Fail("the camera's process is gone");
        return static_cast<double>(user + system) / static_cast<double>(sysconf(_SC_CLK_TCK));
    }

private:
    const pid_t m_pid;
};

/// Rendered frames, due at a fixed rate or at once.
class RenderedFrames : public FrameSource {
public:
    RenderedFrames(Size size, double framesPerSecond)
        : m_store(SensorTraits(), 1, kFrameMemory), m_periodNs(framesPerSecond > 0 ? 1e9 / framesPerSecond : 0)
    {
        m_settings.width = size.width;
        m_settings.height = size.height;
        m_settings.pixelType = orv::kMono8;
        m_store.Start();
    }
    void SetWireBytes(std::function<std::uint64_t(std::size_t)>) override {}
    std::optional<FrameJob> WaitForFrame(std::int64_t) override
    {
        const auto period = std::chrono::nanoseconds(static_cast<std::int64_t>(m_periodNs));
        m_due = std::max(m_due + period, Clock::now() - period); // late frames are not caught up with
        std::this_thread::sleep_until(m_due);
        FrameJob job;
        job.settings = m_settings;
        job.number = m_number++;
        job.periodNs = m_periodNs;
        return job;
    }
    std::shared_ptr<Frame> TakeFrame(const FrameJob &job) override
    {
        return m_store.Take(job.settings, job.number,
                            static_cast<std::uint64_t>(Clock::now().time_since_epoch().count()));
    }
    void FrameSent(const FrameJob &) override {}
    Faults CurrentFaults() const override { return {}; }

private:
    FrameStore m_store;
    FrameSettings m_settings;
    const double m_periodNs;
    std::uint64_t m_number = 0;
    Clock::time_point m_due = Clock::now();
};

/// Ours, in a process of its own so that its time is counted as the other's is.
std::unique_ptr<CameraProcess> StartOurs(Size size, double framesPerSecond, std::uint16_t port)
{
    const pid_t pid = fork();
    if (pid != 0)
        return std::make_unique<CameraProcess>(pid);
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    StreamSender sender(std::make_shared<RenderedFrames>(size, framesPerSecond), 1, 4);
    if (!sender.Open(kLoopback).empty())
        _exit(1);
    StreamTarget target;
    target.to = {kLoopback, port};
    target.packetSize = kPacketSize;
    sender.SetTarget(target);
    sender.Start();
    for (;;)
        pause();
}

/// Just enough of the control protocol to start the other camera.
class ControlClient {
public:
    ControlClient() : m_fd(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0))
    {
        const sockaddr_in camera = Loopback(3956);
        connect(m_fd, reinterpret_cast<const sockaddr *>(&camera), sizeof camera);
    }
    ~ControlClient() { close(m_fd); }
    ControlClient(const ControlClient &) = delete;

    void Write(std::uint32_t address, std::uint32_t value)
    {
        orv::ByteWriter out;
        out.U16(0x4201); // an acknowledge is wanted
        out.U16(0x0082); // WRITEREG
        out.U16(8);
        out.U16(++m_request);
        out.U32(address);
        out.U32(value);
        const std::vector<std::uint8_t> command = out.Take();
        for (int attempt = 0; attempt < 20; ++attempt) { // it may still be starting
            send(m_fd, command.data(), command.size(), 0);
            pollfd readable{m_fd, POLLIN, 0};
            std::array<std::uint8_t, 64> answer{};
            if (poll(&readable, 1, 200) == 1 && recv(m_fd, answer.data(), answer.size(), 0) >= 8 && answer[0] == 0)
                return;
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        }
        Fail("the other camera does not answer at 127.0.0.1:3956");
    }

private:
    int m_fd = -1;
    std::uint16_t m_request = 0;
};

constexpr const char *kOther = "arv-fake-gv-camera-0.8";

std::unique_ptr<CameraProcess> StartOther(Size size, std::uint16_t port)
{
    const pid_t pid = fork();
    if (pid == 0) {
        prctl(PR_SET_PDEATHSIG, SIGTERM);
        execlp(kOther, kOther, "-i", "127.0.0.1", nullptr);
        _exit(127);
    }
    auto camera = std::make_unique<CameraProcess>(pid);
    ControlClient control;
    control.Write(0x0938, 3'600'000); // heartbeat: we send none
    control.Write(0x0a00, 2);         // control
    control.Write(0x0100, static_cast<std::uint32_t>(size.width));
    control.Write(0x0104, static_cast<std::uint32_t>(size.height));
    control.Write(0x0138, 1); // us from frame to frame: as fast as it goes
    control.Write(0x0d18, kLoopback);
    control.Write(0x0d04, kPacketSize);
    control.Write(0x0d00, port);
    control.Write(0x0124, 1); // acquisition start
    return camera;
}

struct Figures {
    double framesPerSecond = 0; ///< complete ones
    double megabytesPerSecond = 0;
    double completeShare = 0;
    double senderCpuPerGigabyte = 0; ///< seconds
    double receiverCpuShare = 0;     ///< of one core
};

template <typename StartCamera> Figures MeasureOnce(StartCamera startCamera)
{
    BareReceiver receiver;
    const std::unique_ptr<CameraProcess> camera = startCamera(receiver.Port());
    receiver.Start();
    std::this_thread::sleep_for(kWarmUp);
    const double cpuBefore = camera->CpuSeconds();
    const BareReceiver::Counts before = receiver.Read();
    const Clock::time_point begin = Clock::now();
    std::this_thread::sleep_for(kMeasured);
    const double seconds = std::chrono::duration<double>(Clock::now() - begin).count();
    const BareReceiver::Counts after = receiver.Read();
    const double cpu = camera->CpuSeconds() - cpuBefore;

    const auto frames = static_cast<double>(after.complete - before.complete);
    const auto bytes = static_cast<double>(after.payloadBytes - before.payloadBytes);
    Figures figures;
    figures.framesPerSecond = frames / seconds;
    figures.megabytesPerSecond = bytes / seconds / 1e6;
    figures.completeShare = frames / std::max(1.0, static_cast<double>(after.begun - before.begun));
    figures.senderCpuPerGigabyte = cpu / std::max(bytes / 1e9, 1e-9);
    figures.receiverCpuShare = (after.cpuSeconds - before.cpuSeconds) / seconds;
    return figures;
}

/// The repetition with the median rate.
template <typename StartCamera> Figures Measure(const char *name, StartCamera startCamera)
{
    std::array<Figures, kRepetitions> runs;
    for (Figures &run : runs)
        run = MeasureOnce(startCamera);
    std::sort(runs.begin(), runs.end(),
              [](const Figures &a, const Figures &b) { return a.megabytesPerSecond < b.megabytesPerSecond; });
    const Figures &median = runs[kRepetitions / 2];
    std::printf("  %-26s %9.1f %9.0f (%5.0f to %5.0f) %9.2f %% %10.3f %9.0f %%\n", name, median.framesPerSecond,
                median.megabytesPerSecond, runs.front().megabytesPerSecond, runs.back().megabytesPerSecond,
                100 * median.completeShare, median.senderCpuPerGigabyte, 100 * median.receiverCpuShare);
    std::fflush(stdout);
    return median;
}

void Compare(Size size)
{
    std::printf("%d x %d Mono8, packets of %u bytes\n", size.width, size.height, kPacketSize);
    std::printf("  %-26s %9s %9s %16s %11s %10s %11s\n", "", "frames/s", "MB/s", "(range)", "complete", "CPU s/GB",
                "receiver");
    const Figures other = Measure(kOther, [&](std::uint16_t port) { return StartOther(size, port); });
    for (const double factor : {3.0, 5.0, 0.0}) {
        const std::string name =
            factor > 0 ? "ours, set to " + std::to_string(static_cast<int>(factor)) + " times that" : "ours, unlimited";
        const Figures ours = Measure(
            name.c_str(), [&](std::uint16_t port) { return StartOurs(size, factor * other.framesPerSecond, port); });
        std::printf("  %-26s %9.2f times\n", "", ours.megabytesPerSecond / other.megabytesPerSecond);
    }
}

} // namespace

int main()
{
    Compare({512, 512});
    Compare({2048, 2048});
    return 0;
}
