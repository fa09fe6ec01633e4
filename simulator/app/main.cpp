#include "simulator/app/Options.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <ctime>
#include <memory>
#include <vector>

#include <malloc.h>

namespace {

using namespace orvsim;

/// Frames lie in memory of their own, which the system has back as soon as they are freed. By itself the allocator
/// would keep such blocks after the first one was freed.
void GiveFramesBack()
{
    constexpr int kFrameBytes = 256 << 10;
    mallopt(M_MMAP_THRESHOLD, kFrameBytes);
}

/// Fills `set` with the signals that end the program, blocked in every thread.
void BlockEndSignals(sigset_t &set)
{
    sigemptyset(&set);
    sigaddset(&set, SIGINT);
    sigaddset(&set, SIGTERM);
    sigaddset(&set, SIGHUP);
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
}

void PrintCounts(GigeCamera &camera, StreamCounts &last)
{
    const StreamCounts now = camera.Counts();
    const std::string serial = camera.Core().Options().serial;
    std::printf("%s: %llu frames, %.1f MB, %llu packets sent again, %llu refused, %llu lost on the link, %llu errors\n",
                serial.c_str(), static_cast<unsigned long long>(now.frames - last.frames),
                static_cast<double>(now.bytes - last.bytes) / 1e6,
                static_cast<unsigned long long>(now.resentPackets - last.resentPackets),
                static_cast<unsigned long long>(now.refusedPackets - last.refusedPackets),
                static_cast<unsigned long long>(now.lostOnLink - last.lostOnLink),
                static_cast<unsigned long long>(now.sendErrors - last.sendErrors));
    std::fflush(stdout);
    last = now;
}

/// Opens a camera where it was told to be, else at the first free address from its own on.
/// \return null when that failed; says why.
std::unique_ptr<GigeCamera> OpenCamera(const CameraBlock &block, std::uint32_t &nextAddress)
{
    constexpr int kAddresses = 64;
    CameraOptions options = block.camera;
    GigeOptions gige = block.gige;
    std::string problem;
    for (int tries = block.hasAddress ? 1 : kAddresses; tries > 0; --tries) {
        if (!block.hasAddress)
            gige.address = nextAddress++;
        if (!block.hasSerial)
            options.serial = SerialAt(gige.address);
        auto camera = std::make_unique<GigeCamera>(options, gige);
        problem = camera->Open();
        if (problem.empty())
            return camera;
    }
    std::fprintf(stderr, "orvsim: %s: %s\n", options.serial.c_str(), problem.c_str());
    return nullptr;
}

int Run(const ProgramOptions &options)
{
    GiveFramesBack();
    sigset_t endSignals;
    BlockEndSignals(endSignals);
    std::vector<std::unique_ptr<GigeCamera>> cameras;
    std::uint32_t nextAddress = 0x7f000001;
    for (const CameraBlock &block : options.cameras) {
        cameras.push_back(OpenCamera(block, nextAddress));
        if (cameras.back() == nullptr)
            return 1;
        std::printf("%s %s at %s\n", block.camera.model.c_str(), cameras.back()->Core().Options().serial.c_str(),
                    AddressText(cameras.back()->Address()).c_str());
        std::fflush(stdout);
    }
    std::vector<StreamCounts> counts(cameras.size());
    const timespec period{options.statisticsSeconds > 0 ? options.statisticsSeconds : 3600, 0};
    while (sigtimedwait(&endSignals, nullptr, &period) < 0) {
        if (errno != EAGAIN || options.statisticsSeconds == 0)
            continue;
        for (std::size_t i = 0; i < cameras.size(); ++i)
            PrintCounts(*cameras[i], counts[i]);
    }
    return 0;
}

} // namespace

int main(int argc, char **argv)
{
    std::string problem;
    const std::optional<ProgramOptions> options = ParseOptions({argv + 1, argv + argc}, problem);
    if (!options.has_value()) {
        std::fprintf(stderr, "orvsim: %s\n", problem.c_str());
        return 2;
    }
    if (options->task == Task::ShowHelp) {
        std::fputs(HelpText().c_str(), stdout);
        return 0;
    }
    if (options->task == Task::ShowXml) {
        GigeCamera camera(options->cameras.front().camera, options->cameras.front().gige);
        std::fputs(camera.Core().DescriptionXml().c_str(), stdout);
        return 0;
    }
    return Run(*options);
}
