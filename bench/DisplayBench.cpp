#include "orvimage/Convert.h"
#include "orvimage/PixelFormats.h"

#include <algorithm>
#include <benchmark/benchmark.h>
#include <cstdio>
#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <opencv2/imgproc.hpp>
#include <random>
#include <string>
#include <vector>

// Converts 20-megapixel frames for a 1280 x 720 window that shows them whole: our conversion, and OpenCV converting the
// frame and then resizing it, over the same bytes in the same run. Each is measured with one frame again and again,
// which leaves in the caches what the conversion needs, and with four frames in turn, as a camera fills its buffers.
// The ratios of the medians are printed at the end.

namespace {

constexpr int kFrameWidth = 5472;
constexpr int kFrameHeight = 3648;
constexpr int kWindowWidth = 1280;
constexpr int kWindowHeight = 720;
constexpr double kFitScale = static_cast<double>(kWindowHeight) / kFrameHeight;
const cv::Size kFitSize(static_cast<int>(kFrameWidth *kFitScale), kWindowHeight);
constexpr int kFramesInTurn = 4;

/// One frame, seen as our image record and as an OpenCV matrix over the same bytes.
class Frame {
public:
    Frame(const char *format, unsigned seed)
    {
        const OrvColorModelDescription &model = *orv::FindColorModel(std::string(format));
        if (OrvCreateImage(&m_image, kFrameWidth, kFrameHeight, model.pixelType) != ORV_IMAGE_OK)
            std::abort();
        m_matrix = cv::Mat(kFrameHeight, kFrameWidth, model.bitsPerChannel == 8 ? CV_8U : CV_16U, m_image->data);
        DrawScene(model.bitsPerChannel, seed);
    }
    ~Frame() { OrvReleaseImage(&m_image); }
    Frame(const Frame &) = delete;
    Frame &operator=(const Frame &) = delete;

    const _OrvImage *Image() const { return m_image; }
    const cv::Mat &Matrix() const { return m_matrix; }

private:
    /// Gradients, squares and noise, so that no side profits from constant data.
    void DrawScene(int bits, unsigned seed)
    {
        std::mt19937 random(seed);
        const unsigned top = (1U << bits) - 1;
        for (unsigned y = 0; y < kFrameHeight; ++y) {
            for (unsigned x = 0; x < kFrameWidth; ++x) {
                const unsigned shade =
                    x * (top / 2) / kFrameWidth + (y / 64 + x / 96) % 2 * top / 4 + random() % (top / 8);
                if (bits == 8)
                    m_matrix.at<std::uint8_t>(static_cast<int>(y), static_cast<int>(x)) =
                        static_cast<std::uint8_t>(shade);
                else
                    m_matrix.at<std::uint16_t>(static_cast<int>(y), static_cast<int>(x)) =
                        static_cast<std::uint16_t>(shade);
            }
        }
    }

    _OrvImage *m_image = nullptr;
    cv::Mat m_matrix;
};

/// The frames of one format, made when first asked for.
class Camera {
public:
    explicit Camera(const char *format) : m_format(format) {}

    /// \param framesInTurn  how many different frames the calls go through.
    const Frame &Next(int framesInTurn)
    {
        while (m_frames.size() < static_cast<std::size_t>(framesInTurn))
            m_frames.push_back(std::make_unique<Frame>(m_format, static_cast<unsigned>(m_frames.size())));
        return *m_frames[static_cast<std::size_t>(++m_calls % framesInTurn)];
    }

private:
    const char *m_format;
    std::vector<std::unique_ptr<Frame>> m_frames;
    int m_calls = 0;
};

void CopyFrame(benchmark::State &state, Camera &camera, int framesInTurn)
{
    std::vector<char> copy(camera.Next(1).Image()->dataSize);
    camera.Next(framesInTurn);
    for (auto _ : state) {
        std::memcpy(copy.data(), camera.Next(framesInTurn).Image()->data, copy.size());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(copy.size()) * static_cast<std::int64_t>(state.iterations()));
}

void Ours(benchmark::State &state, Camera &camera, int framesInTurn)
{
    std::vector<std::uint32_t> window(std::size_t{kWindowWidth} * kWindowHeight);
    const orv::ViewTarget target{window.data(), kWindowWidth, kWindowHeight, kWindowWidth, 0xff808080};
    const orv::ViewTransform view{kFitScale, (kWindowWidth - kFitSize.width) / 2, 0};
    camera.Next(framesInTurn);
    for (auto _ : state) {
        if (orv::ConvertView(camera.Next(framesInTurn).Image(), view, target) != ORV_IMAGE_OK)
            state.SkipWithError("conversion failed");
        benchmark::ClobberMemory();
    }
}

/// How OpenCV goes about it.
struct Peer {
    int threads;
    int interpolation;
};

void OpenCvBayer(benchmark::State &state, Camera &camera, int framesInTurn, const Peer &peer)
{
    cv::setNumThreads(peer.threads);
    cv::Mat colours;
    cv::Mat window;
    camera.Next(framesInTurn);
    for (auto _ : state) {
        cv::cvtColor(camera.Next(framesInTurn).Matrix(), colours, cv::COLOR_BayerRGGB2BGR);
        cv::resize(colours, window, kFitSize, 0, 0, peer.interpolation);
        benchmark::ClobberMemory();
    }
}

void OpenCvMono12(benchmark::State &state, Camera &camera, int framesInTurn, const Peer &peer)
{
    cv::setNumThreads(peer.threads);
    cv::Mat eight;
    cv::Mat window;
    camera.Next(framesInTurn);
    for (auto _ : state) {
        camera.Next(framesInTurn).Matrix().convertTo(eight, CV_8U, 1.0 / 16);
        cv::resize(eight, window, kFitSize, 0, 0, peer.interpolation);
        benchmark::ClobberMemory();
    }
}

/// Not a conversion of the frame, but the quickest way that OpenCV has from a mono frame to this window.
void OpenCvMono12ResizedFirst(benchmark::State &state, Camera &camera, int framesInTurn, const Peer &peer)
{
    cv::setNumThreads(peer.threads);
    cv::Mat small;
    cv::Mat window;
    camera.Next(framesInTurn);
    for (auto _ : state) {
        cv::resize(camera.Next(framesInTurn).Matrix(), small, kFitSize, 0, 0, peer.interpolation);
        small.convertTo(window, CV_8U, 1.0 / 16);
        benchmark::ClobberMemory();
    }
}

/// Prints as usual and keeps the medians.
class MedianKeeper : public benchmark::ConsoleReporter {
public:
    MedianKeeper() : ConsoleReporter(OO_Tabular) {}

    void ReportRuns(const std::vector<Run> &runs) override
    {
        for (const Run &run : runs) {
            if (run.aggregate_name == "median")
                m_medians[run.run_name.function_name] = run.GetAdjustedRealTime();
        }
        ConsoleReporter::ReportRuns(runs);
    }

    /// \param prefix  format and frames, as the benchmarks' names begin.
    void PrintRatio(const std::string &prefix, int threads) const
    {
        const std::string peer = prefix + "/OpenCV " + std::to_string(threads);
        const double best = std::min(Median(peer + "/area"), Median(peer + "/linear"));
        const double ours = Median(prefix + "/ours");
        if (ours > 0 && best > 0)
            std::printf("%-24s OpenCV with %d thread(s), the faster way: %.2f times our time\n", prefix.c_str(),
                        threads, best / ours);
    }

private:
    double Median(const std::string &name) const
    {
        const auto found = m_medians.find(name);
        return found == m_medians.end() ? 0 : found->second;
    }

    std::map<std::string, double> m_medians;
};

void Register(const std::string &name, const std::function<void(benchmark::State &)> &body)
{
    benchmark::RegisterBenchmark(name.c_str(), body)
        ->Unit(benchmark::kMillisecond)
        ->UseRealTime()
        ->MinTime(0.3)
        ->Repetitions(7)
        ->ReportAggregatesOnly();
}

std::string Prefix(const char *format, int framesInTurn)
{
    return std::string(format) + (framesInTurn == 1 ? "/one frame" : "/four frames");
}

using OpenCvBody = void (*)(benchmark::State &, Camera &, int, const Peer &);

void RegisterFormat(const char *format, Camera &camera, OpenCvBody openCv, const std::vector<int> &threadCounts)
{
    for (const int frames : {1, kFramesInTurn}) {
        const std::string prefix = Prefix(format, frames);
        Register(prefix + "/memcpy", [=, &camera](auto &state) { CopyFrame(state, camera, frames); });
        Register(prefix + "/ours", [=, &camera](auto &state) { Ours(state, camera, frames); });
        for (const int threads : threadCounts) {
            const std::string peer = prefix + "/OpenCV " + std::to_string(threads);
            Register(peer + "/area", [=, &camera](auto &state) {
                openCv(state, camera, frames, {threads, cv::INTER_AREA});
            });
            Register(peer + "/linear", [=, &camera](auto &state) {
                openCv(state, camera, frames, {threads, cv::INTER_LINEAR});
            });
            if (openCv == OpenCvMono12) {
                Register(peer + "/resized first", [=, &camera](auto &state) {
                    OpenCvMono12ResizedFirst(state, camera, frames, {threads, cv::INTER_LINEAR});
                });
            }
        }
    }
}

} // namespace

int main(int argc, char **argv)
{
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    std::vector<int> threadCounts = {1};
    if (cv::getNumThreads() > 1)
        threadCounts.push_back(cv::getNumThreads());
    Camera bayer("BayerRG8");
    Camera mono("Mono12");
    RegisterFormat("BayerRG8", bayer, OpenCvBayer, threadCounts);
    RegisterFormat("Mono12", mono, OpenCvMono12, threadCounts);
    MedianKeeper reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    for (const char *format : {"BayerRG8", "Mono12"}) {
        for (const int frames : {1, kFramesInTurn}) {
            for (const int threads : threadCounts)
                reporter.PrintRatio(Prefix(format, frames), threads);
        }
    }
    return 0;
}
