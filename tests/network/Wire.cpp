#include "network/Wire.h"

#include "support/PrivateNetwork.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <iterator>
#include <sstream>
#include <thread>

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

namespace {

using orvsim::ProgramRun;

constexpr char kBothStand[] = "ip link set lo up; ip link add h0 type veth peer name c0 netns $CAMERA;"
                              "ip link set h0 up; ip addr add 10.0.0.1/24 dev h0;"
                              "camera ip link set lo up; camera ip link set c0 up;"
                              "camera ip addr add 10.0.0.20/24 dev c0";

std::vector<std::string> Words(const std::string &text)
{
    std::istringstream stream(text);
    return {std::istream_iterator<std::string>(stream), {}};
}

/// A /sys that shows the interfaces of the present namespace, for this thread and what it starts.
bool MountOwnSys()
{
    return mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
           mount("sysfs", "/sys", "sysfs", 0, nullptr) == 0;
}

} // namespace

Wire::~Wire()
{
    m_program.Interrupt();
    m_program.Finish();
    if (m_camera >= 0)
        close(m_camera);
}

std::string Wire::Lay()
{
    const auto fail = [](const char *what) { return std::string(what) + ": " + std::strerror(errno); };
    if (unshare(CLONE_NEWNET) != 0)
        return fail("a network namespace");
    m_camera = open("/proc/thread-self/ns/net", O_RDONLY | O_CLOEXEC);
    if (unshare(CLONE_NEWNET | CLONE_NEWNS) != 0)
        return fail("a second namespace");
    if (!MountOwnSys())
        return fail("a /sys of its own");
    return Run(kBothStand);
}

std::string Wire::CameraNamespace() const
{
    return "/proc/" + std::to_string(getpid()) + "/fd/" + std::to_string(m_camera);
}

std::string Wire::Run(const std::string &lines)
{
    const std::string camera = "CAMERA=" + CameraNamespace() + "; camera() { nsenter --net=$CAMERA \"$@\"; }; ";
    const ProgramRun run = orvsim::RunForeignProgram({"sh", "-ec", camera + lines});
    return run.exitCode == 0 ? "" : lines + ": " + run.errors;
}

/// Without "sudo", which nobody needs here, and with the program of this build.
std::string Wire::RunCure(const std::string &command)
{
    constexpr char kSudo[] = "sudo ";
    std::string line = command;
    for (std::size_t at = line.find(kSudo); at != std::string::npos; at = line.find(kSudo, at))
        line.erase(at, sizeof kSudo - 1);
    if (line.rfind("orvcam ", 0) == 0)
        line.replace(0, 6, ORVCAM_PROGRAM);
    return Run(line);
}

std::string Wire::StartCamera(const std::string &options)
{
    std::vector<std::string> words = Words(options);
    const auto cameras = std::max<std::ptrdiff_t>(1, std::count(words.begin(), words.end(), "--camera"));
    words.insert(words.begin(), {"nsenter", "--net=" + CameraNamespace(), ORVSIM_PROGRAM});
    const auto isReady = [&] { // a line for each that can be asked
        const std::string output = m_program.Output();
        return std::count(output.begin(), output.end(), '\n') >= cameras;
    };
    const bool isStarted = m_program.Start(words) && Eventually([&] { return m_program.HasEnded() || isReady(); });
    return isStarted && !m_program.HasEnded() ? "" : "orvsim " + options + ": " + m_program.Errors();
}

/// Without what only root may, such as a socket buffer above the system's limit.
bool Wire::Start(orvsim::ForeignProgram &program, const std::string &text)
{
    std::vector<std::string> words = Words(text);
    words.insert(words.begin(), {"setpriv", "--bounding-set=-all", ORVCAM_PROGRAM});
    return program.Start(words);
}

ProgramRun Wire::Orvcam(const std::string &words)
{
    return Orvcam(words, 0, {});
}

ProgramRun Wire::Orvcam(const std::string &words, std::uint64_t bytes, const std::function<void(pid_t)> &meanwhile)
{
    orvsim::ForeignProgram program;
    const std::uint64_t before = Received();
    if (!Start(program, words))
        return {};
    if (meanwhile) {
        EXPECT_TRUE(Eventually([&] { return Received() - before >= bytes || program.HasEnded(); }));
        EXPECT_FALSE(program.HasEnded()) << words << " ended before " << bytes << " bytes had come";
        meanwhile(program.Process());
    }
    const std::optional<int> exitCode = program.Finish();
    return {exitCode, program.Output(), program.Errors()};
}

std::uint64_t Wire::Received()
{
    std::ifstream file("/proc/thread-self/net/dev");
    for (std::string line; std::getline(file, line);) {
        std::istringstream words(line);
        std::string name;
        std::uint64_t bytes = 0;
        if (words >> name >> bytes && name == "h0:")
            return bytes;
    }
    return 0;
}

std::uint64_t Wire::Dropped()
{
    std::ifstream file("/proc/thread-self/net/udp");
    std::uint64_t sum = 0;
    for (std::string line; std::getline(file, line);) {
        const std::vector<std::string> words = Words(line);
        if (!words.empty() && words[0] != "sl")
            sum += std::strtoull(words.back().c_str(), nullptr, 10);
    }
    return sum;
}

std::string WhyNoWires()
{
    if (!InPrivateNetwork())
        return "needs a network namespace, which this system does not let us make";
    std::string problem;
    std::thread([&] { problem = Wire().Lay(); }).join();
    return problem.empty() ? problem : "needs two network namespaces and a cable between them; " + problem;
}

void RunOnWires(const std::vector<WireCase> &cases)
{
    constexpr std::size_t kAtOnce = 5;
    std::atomic<std::size_t> next{0};
    const auto work = [&] {
        for (std::size_t i; (i = next++) < cases.size();) {
            // The namespaces end with the thread that is in them.
            std::thread([&] {
                SCOPED_TRACE(cases[i].name);
                Wire wire;
                const std::string problem = wire.Lay();
                EXPECT_EQ("", problem);
                if (problem.empty())
                    cases[i].run(wire);
            }).join();
        }
    };
    std::vector<std::thread> workers;
    for (std::size_t i = 0; i < kAtOnce; ++i)
        workers.emplace_back(work);
    for (std::thread &worker : workers)
        worker.join();
}
