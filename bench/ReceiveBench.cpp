/// What receiving a stream costs: our producer beside Aravis and beside a bare loop. See README.md.

#include "receive/Receivers.h"
#include "simulator/gige/GigeCamera.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace receivebench;

namespace {

constexpr int kRepetitions = 5;

/// A child process that ends with its parent, and what it has to say: one value.
template <typename Value> class Child {
public:
    /// \param work  runs in the child; what it is given says the value
    explicit Child(const std::function<void(const std::function<void(const Value &)> &)> &work)
    {
        std::array<int, 2> ends{};
        if (pipe(ends.data()) != 0)
            Fail("no pipe");
        std::fflush(stdout);
        m_process = fork();
        if (m_process == 0) {
            prctl(PR_SET_PDEATHSIG, SIGTERM);
            close(ends[0]);
            work([&](const Value &value) {
                if (write(ends[1], &value, sizeof value) != sizeof value)
                    _exit(1);
            });
            _exit(0);
        }
        close(ends[1]);
        m_end = ends[0];
    }
    ~Child()
    {
        kill(m_process, SIGTERM);
        waitpid(m_process, nullptr, 0);
        close(m_end);
    }
    Child(const Child &) = delete;
    Child &operator=(const Child &) = delete;

    Value Wait()
    {
        Value value{};
        if (read(m_end, &value, sizeof value) != sizeof value)
            Fail("a camera or a receiver has failed");
        return value;
    }

private:
    pid_t m_process = -1;
    int m_end = -1;
};

/// \param say  is told when the camera's clock began, ns of the host's steady clock
void BeCamera(const Stream &sent, const std::function<void(const std::int64_t &)> &say)
{
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
        Fail(problem.c_str());
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    say(std::chrono::nanoseconds(now).count() - static_cast<std::int64_t>(device.Core().Now()));
    for (;;)
        pause();
}

/// The camera and one receiver, each in a process of its own, so that only the receiver's time is counted.
Figures RunOnce(const Stream &sent, const std::function<Figures()> &receive)
{
    Child<std::int64_t> camera([&](const auto &say) { BeCamera(sent, say); });
    const std::int64_t cameraStart = camera.Wait();
    Child<Figures> receiver([&](const auto &say) { say(receive()); });
    Figures figures = receiver.Wait();
    figures.medianAge -= cameraStart;
    figures.longAge -= cameraStart;
    return figures;
}

struct Receiver {
    const char *name;
    std::function<Figures()> receive;
    std::vector<Figures> runs = {};
};

/// \return the middle one of the runs' values.
template <typename Value> Value Median(const std::vector<Figures> &runs, Value Figures::*value)
{
    std::vector<Value> values;
    for (const Figures &run : runs)
        values.push_back(run.*value);
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

template <typename Value> Value Sum(const std::vector<Figures> &runs, Value Figures::*value)
{
    Value sum{};
    for (const Figures &run : runs)
        sum += run.*value;
    return sum;
}

void ShowTrouble(const std::vector<Figures> &runs)
{
    for (std::size_t i = 0; i < kCauses.size(); ++i) {
        std::uint64_t count = 0;
        for (const Figures &run : runs)
            count += run.causes[i];
        if (count != 0)
            std::printf("    %s, in all runs: %llu\n", kCauses[i], static_cast<unsigned long long>(count));
    }
    const std::uint64_t leftOut = Sum(runs, &Figures::leftOut);
    if (leftOut != 0)
        std::printf("    numbers of frames left out, in all runs: %llu\n", static_cast<unsigned long long>(leftOut));
}

/// \return the median cost.
double Show(const Receiver &receiver)
{
    const std::vector<Figures> &runs = receiver.runs;
    const auto [least, most] = std::minmax_element(runs.begin(), runs.end(), [](const Figures &a, const Figures &b) {
        return a.cpuPerGigabyte < b.cpuPerGigabyte;
    });
    const double cost = Median(runs, &Figures::cpuPerGigabyte);
    std::printf("  %-26s %8.3f (%.3f to %.3f) %8.0f %8.2f %8.2f %8llu %8llu %8llu\n", receiver.name, cost,
                least->cpuPerGigabyte, most->cpuPerGigabyte, Median(runs, &Figures::megabytesPerSecond),
                double(Median(runs, &Figures::medianAge)) * 1e-6, double(Median(runs, &Figures::longAge)) * 1e-6,
                static_cast<unsigned long long>(Sum(runs, &Figures::complete)),
                static_cast<unsigned long long>(Sum(runs, &Figures::damaged)),
                static_cast<unsigned long long>(Sum(runs, &Figures::refilled)));
    ShowTrouble(runs);
    std::fflush(stdout);
    return cost;
}

void Compare(const Stream &sent)
{
    std::printf("%d x %d, packets of %u bytes, %.0f MB/s asked for\n", sent.width, sent.height, sent.packetSize,
                sent.megabytesPerSecond);
    std::printf("  %-26s %8s %17s %8s %8s %8s %8s %8s %8s\n", "", "CPU s/GB", "(range)", "MB/s", "age, ms", "99 %",
                "complete", "damaged", "resent");
    std::vector<Receiver> receivers = {
        {"bare loop, UDP_GRO", [=] { return ReceiveBare(sent, true); }},
        {"bare loop", [=] { return ReceiveBare(sent, false); }},
        {"ours", [=] { return ReceiveWithOurs(sent); }},
        {"Aravis, UDP socket", [=] { return ReceiveWithAravis(sent, AravisWay::Udp); }},
        {"Aravis, UDP, memory as ours", [=] { return ReceiveWithAravis(sent, AravisWay::UdpOnOurs); }},
    };
    if (geteuid() == 0)
        receivers.push_back(
            {"Aravis, packet socket", [=] { return ReceiveWithAravis(sent, AravisWay::PacketSocket); }});
    // In turn: what else the machine does comes and goes within minutes.
    for (int i = 0; i < kRepetitions; ++i) {
        for (Receiver &receiver : receivers)
            receiver.runs.push_back(RunOnce(sent, receiver.receive));
    }
    std::vector<double> cost;
    for (const Receiver &receiver : receivers)
        cost.push_back(Show(receiver));
    std::printf(
        "  Aravis (UDP) / ours %.2f, with memory as ours %.2f; ours / bare loop with UDP_GRO %.2f, without %.2f\n",
        cost[3] / cost[2], cost[4] / cost[2], cost[2] / cost[0], cost[2] / cost[1]);
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
