#include "simulator/gige/GigeCamera.h"

#include "simulator/gige/Bootstrap.h"
#include "simulator/gige/ControlLoop.h"
#include "simulator/gige/ControlServer.h"
#include "simulator/gige/GigeFeatures.h"
#include "simulator/gige/MessageChannel.h"
#include "simulator/gige/Zip.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace orvsim {
namespace {

constexpr std::uint32_t kDescriptionAddress = 0x10000000;
constexpr std::size_t kDescriptionPiece = 4096; // a read copies the whole register that it is in

/// Sockets can also be bound to addresses of nobody and of many.
bool IsOneHosts(const NetworkAddress &network)
{
    const std::uint32_t host = network.address & ~network.subnetMask;
    const bool isUnicast = network.address >> 24 != 0 && network.address < 0xe0000000;
    return isUnicast && host != 0 && host != ~network.subnetMask;
}

} // namespace

struct GigeCamera::Parts : ControlledDevice {
    Parts(const CameraOptions &cameraOptions, const GigeOptions &gigeOptions);
    ~Parts() override { Close(); }

    void AddRegisters();
    void PlaceDescription();
    std::string Open();
    void Close();

    // ControlledDevice
    WriteResult Write(std::uint32_t address, std::uint32_t size, const std::uint8_t *bytes) override
    {
        return camera.Write(address, size, bytes);
    }
    Outcome Read(std::uint32_t address, std::uint32_t size, std::uint8_t *bytes) override;
    std::uint64_t Now() override { return camera.Now(); }
    void ResetClock() override { camera.ResetClock(); }
    Faults CurrentFaults() override { return camera.CurrentFaults(); }
    void StopAcquisition() override { camera.StopAcquisition(); }
    void Reset() override { camera.Reset(); }
    bool RunAction() override
    {
        std::string ignored;
        return camera.SetFeature("TriggerSoftware", "1", ignored) == Outcome::Ok;
    }
    void SetStreamTarget(const StreamTarget &target) override { stream.SetTarget(target); }
    void FireTestPacket() override { stream.FireTestPacket(); }
    void Resend(const ResendRequest &request, const Endpoint &requester) override { stream.Resend(request, requester); }
    std::size_t PayloadSize() override { return camera.PayloadSize(); }
    bool MoveTo(const NetworkAddress &network) override;

    const GigeOptions options;
    Camera camera;
    std::string problem; ///< of the options; told by Open()
    Bootstrap bootstrap;
    StreamSender stream;
    MessageChannel messages;
    ControlServer server;
    ControlLoop loop;
};

GigeCamera::Parts::Parts(const CameraOptions &cameraOptions, const GigeOptions &gigeOptions)
    : options(gigeOptions), camera(cameraOptions), bootstrap(cameraOptions, gigeOptions),
      stream(camera, gigeOptions.resendFrames), server(bootstrap, *this, messages, cameraOptions.seed),
      loop(server, messages)
{
    AddRegisters();
    problem = camera.Finish();
    PlaceDescription();
    stream.SetPathMtu(options.pathMtu);
    camera.SetEventSink([this](const DeviceEvent &event) {
        if (messages.Push(event, event.isTied ? stream.BlockIdOf(event.frameNumber) : 0))
            loop.Wake();
    });
    camera.SetLeftoverHandler([this](std::uint64_t first) { stream.DropBefore(first); });
    camera.SetResetHandler([this] {
        server.RequestReset();
        loop.Wake();
    });
}

void GigeCamera::Parts::AddRegisters()
{
    FeatureTable &features = camera.Features();
    UserName userName; // runs with the camera's mutex held, as all functions of registers
    userName.get = [&features] { return features.GetText("DeviceUserID"); };
    userName.set = [&features](const std::string &name) {
        std::string ignored;
        return features.SetText("DeviceUserID", name, ignored);
    };
    bootstrap.AddTo(camera.Registers(), userName);
    camera.SetConfidenceQuestion([this] { return bootstrap.State().IsMultiPart(); });
    AddGigeFeatures(
        features, [this](std::uint32_t changes) { bootstrap.Request(changes); }, options);
}

/// Nobody else knows the camera yet, so its registers may still grow: the description exists only now.
void GigeCamera::Parts::PlaceDescription()
{
    const std::string &xml = camera.DescriptionXml();
    const std::string bytes = options.zippedXml ? MakeZip("orvsim.xml", xml) : xml;
    for (std::size_t start = 0; start < bytes.size(); start += kDescriptionPiece)
        camera.Registers().AddBlock(kDescriptionAddress + static_cast<std::uint32_t>(start),
                                    bytes.substr(start, kDescriptionPiece));
    char url[64];
    std::snprintf(url, sizeof url, "Local:orvsim.%s;%X;%zX", options.zippedXml ? "zip" : "xml", kDescriptionAddress,
                  bytes.size());
    bootstrap.SetUrl(url);
}

Outcome GigeCamera::Parts::Read(std::uint32_t address, std::uint32_t size, std::uint8_t *bytes)
{
    const Outcome outcome = camera.Read(address, size, bytes);
    if (outcome != Outcome::NoSuchAddress || !options.gapsReadAsZero)
        return outcome;
    for (std::uint32_t done = 0; done < size; done += 4) {
        const Outcome ofWord = camera.Read(address + done, 4, bytes + done);
        if (ofWord == Outcome::NoSuchAddress)
            std::memset(bytes + done, 0, 4);
        else if (ofWord != Outcome::Ok)
            return ofWord;
    }
    return Outcome::Ok;
}

std::string GigeCamera::Parts::Open()
{
    if (!problem.empty())
        return problem;
    const BootstrapState state = bootstrap.State();
    std::string trouble = loop.Open({state.address, state.subnetMask, state.gateway});
    if (trouble.empty())
        trouble = stream.Open(state.address);
    if (!trouble.empty())
        return trouble;
    bootstrap.SetSourcePorts(loop.MessagePort(), stream.SourcePort());
    stream.Start();
    loop.Start();
    return {};
}

void GigeCamera::Parts::Close()
{
    loop.Stop();
    bootstrap.ReleaseControl();
    stream.SetTarget({});
    stream.Stop();
    camera.StopAcquisition();
}

/// Nobody is in control, so nothing is being sent. Only to addresses that this machine has, as all of loopback's: which
/// those are is the system's.
bool GigeCamera::Parts::MoveTo(const NetworkAddress &network)
{
    if (!IsOneHosts(network))
        return false;
    if (network.address == bootstrap.State().address)
        return true;
    if (!loop.MoveTo(network))
        return false;
    stream.Stop();
    const bool isMoved = stream.Open(network.address).empty();
    stream.Start();
    bootstrap.SetSourcePorts(loop.MessagePort(), stream.SourcePort());
    return isMoved;
}

GigeCamera::GigeCamera(const CameraOptions &camera, const GigeOptions &gige)
    : m_parts(std::make_unique<Parts>(camera, gige))
{
}

GigeCamera::~GigeCamera() = default;

std::string GigeCamera::Open()
{
    return m_parts->Open();
}

void GigeCamera::Close()
{
    m_parts->Close();
}

Camera &GigeCamera::Core()
{
    return m_parts->camera;
}

StreamCounts GigeCamera::Counts() const
{
    return m_parts->stream.Counts();
}

std::uint32_t GigeCamera::Address() const
{
    return m_parts->bootstrap.State().address;
}

} // namespace orvsim
