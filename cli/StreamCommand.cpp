#include "cli/Acquisition.h"
#include "cli/Cameras.h"
#include "cli/Command.h"
#include "cli/Features.h"
#include "cli/StreamFigures.h"
#include "cli/Terminal.h"
#include "cli/Traffic.h"

#include <optional>

namespace orvcli {

namespace {

using Clock = StreamFigures::Clock;

constexpr std::uint64_t kWaitMs = 100; ///< how long an interrupt may go unnoticed

Clock::time_point After(double seconds)
{
    return Clock::now() + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
}

/// Takes frames until the options or the person say that it is enough, or none comes any more.
Outcome Receive(OrvCam::Stream &stream, const Options &options, StreamFigures &figures)
{
    Progress progress;
    const Clock::time_point end = After(options.seconds);
    Clock::time_point patience = After(options.timeoutSeconds);
    while (!IsInterrupted() && (options.frames == 0 || figures.Frames() < options.frames) &&
           (options.seconds == 0 || Clock::now() < end)) {
        int status = ORV_CAM_OK;
        OrvCam::Buffer *buffer = stream.GetBuffer(kWaitMs, &status);
        if (buffer != nullptr) {
            figures.Take(*buffer);
            stream.QueueBuffer(buffer);
            patience = After(options.timeoutSeconds);
            progress.Show(figures.Text());
        } else if (status != ORV_CAM_ERR_TIMEOUT) {
            return FailedWith(status, "after " + std::to_string(figures.Frames()) + " frames");
        } else if (Clock::now() >= patience) {
            return Fail("no frame came within " + NumberText(options.timeoutSeconds) + " s after " +
                        std::to_string(figures.Frames()) + " frames; \"orvcam doctor\" may tell why");
        }
    }
    if (figures.Frames() > 0 && figures.Incomplete() == figures.Frames())
        return Fail("all " + std::to_string(figures.Frames()) +
                    " frames came incomplete; \"orvcam doctor\" may tell why");
    return {};
}

/// What a run brought, as far as it came.
struct Result {
    StreamFigures figures;
    OrvCam::StreamStatistics statistics;
    bool isStarted = false;
    Traffic traffic;
};

void Write(Json &json, const Result &result, const Options &options)
{
    json.Member("resent", result.statistics.resent);
    result.figures.Write(json);
    json.Key("statistics");
    WriteStatistics(json, result.statistics);
    if (options.countTraffic) {
        json.Key("traffic");
        result.traffic.Write(json);
    }
}

void Print(const OrvCam::DeviceDescription &camera, const Result &result, const Options &options)
{
    PrintLine(NameOf(camera) + ": " + result.figures.Text() + ", " + std::to_string(result.statistics.resent) +
              " packets resent");
    if (options.countTraffic)
        PrintLine("packets: " + result.traffic.Text());
}

/// Before the start: the stream keeps its settings as long as it is open.
Outcome SetUp(OrvCam::Device &device, const Options &options)
{
    if (options.actions.empty())
        return {};
    OrvCam::Stream *const stream = device.GetStreamByIndex(0);
    OrvCam::FeatureArray *const features = stream != nullptr ? stream->GetParameters() : nullptr;
    return features != nullptr ? WriteAll(*features, options) : FailedWith(ORV_CAM_ERR_XML, "the stream's settings");
}

Outcome Run(OrvCam::Device &device, const Options &options, Result &result)
{
    Outcome outcome = SetUp(device, options);
    if (outcome.IsOk() && options.countTraffic)
        outcome = result.traffic.Start(device);
    if (!outcome.IsOk())
        return outcome;
    Acquisition acquisition(device);
    result.isStarted = true;
    result.figures.Start();
    outcome = acquisition.Start(options.buffers);
    if (outcome.IsOk())
        outcome = Receive(acquisition.Stream(), options, result.figures);
    result.figures.Finish();
    result.statistics = acquisition.Statistics();
    return outcome;
}

} // namespace

Outcome RunStream(const Options &options, Report &report)
{
    WatchForInterrupt();
    OrvCam::DeviceDescription camera;
    DevicePtr device;
    Result result; // ends before the device
    Outcome outcome = FindAndOpen(options.Word(0), OrvCam::ORV_ACCESS_CONTROL, camera, device);
    if (outcome.IsOk())
        outcome = Run(*device, options, result);
    if (options.isJson)
        Write(report.Members().Member("camera", camera.serial), result, options);
    else if (result.isStarted)
        Print(camera, result, options);
    return outcome;
}

} // namespace orvcli
