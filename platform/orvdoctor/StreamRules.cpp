#include "orvdoctor/Addresses.h"
#include "orvdoctor/FactText.h"
#include "orvdoctor/Symptoms.h"

#include <algorithm>

namespace orv {
namespace {

constexpr double kShortExposureUs = 20000;
constexpr double kLongestCureUs = 500000;
constexpr double kExposureStep = 4; ///< by which an exposure is changed when pictures are black or white
constexpr std::uint64_t kEthernetMtu = 1500;
constexpr std::uint64_t kSmallestMtu = 576; ///< that every IPv4 path carries

/// The limit that lets a socket have the buffer that was asked for: a power of two, 8 to 256 MiB.
std::uint64_t SuitableBufferLimit(const Facts &facts)
{
    constexpr std::uint64_t kLeast = 8U << 20;
    constexpr std::uint64_t kMost = 256U << 20;
    const std::uint64_t wanted = std::max(facts.stream.wantedReceiveBuffer, 2 * facts.payloadSize);
    std::uint64_t limit = kLeast;
    while (limit < wanted && limit < kMost)
        limit *= 2;
    return limit;
}

bool HasSmallBuffer(const OrvCam::StreamStatistics &stream)
{
    return stream.kernelDrops > 0 && stream.receiveBuffer < stream.wantedReceiveBuffer;
}

/// The kernel counts what it drops in entries of a socket's queue, and may have made one of many packets. Of a frame
/// that never came it is not known how many packets it had.
bool DropsExplainLoss(const OrvCam::StreamStatistics &stream)
{
    constexpr std::uint64_t kPacketsOfEntry = 64;
    return stream.kernelDrops >= (stream.missing + stream.missed) / 2 / kPacketsOfEntry;
}

/// That there should have been. Handing over and counting are no one step.
std::uint64_t AllFrames(const OrvCam::StreamStatistics &stream)
{
    return std::max(stream.delivered, stream.incomplete) + stream.missed;
}

/// Packets of more than one frame in a thousand.
bool LosesNoticeably(const OrvCam::StreamStatistics &stream)
{
    const std::uint64_t lost = stream.incomplete + stream.missed;
    return lost > 0 && lost >= AllFrames(stream) / 1000;
}

/// It was asked for most of the frames that never came, and said that it has nothing of them.
bool LacksFramesItself(const OrvCam::StreamStatistics &stream)
{
    return stream.missed > stream.incomplete && 2 * stream.refused >= stream.missed;
}

std::string ExposureText(const Facts &facts)
{
    std::string text;
    if (facts.exposureUs > 0)
        text = "the exposure time is " + SecondsText(facts.exposureUs / 1e6);
    if (facts.hasGain)
        text += (text.empty() ? "the gain is " : ", the gain ") + NumberText(facts.gain);
    return text.empty() ? "." : "; " + text + ".";
}

std::string LossText(const Facts &facts)
{
    const OrvCam::StreamStatistics &stream = facts.stream;
    const std::string ofAll = " of " + CountText(AllFrames(stream), "picture", "pictures");
    std::string text;
    if (stream.incomplete > 0)
        text = std::to_string(stream.incomplete) + ofAll + " came incomplete";
    if (stream.missed > 0)
        text +=
            (text.empty() ? "" : " and ") + std::to_string(stream.missed) + (text.empty() ? ofAll : "") + " never came";
    if (facts.countedSeconds > 0)
        text += " in " + SecondsText(facts.countedSeconds);
    if (stream.missing > 0)
        text += ": " + CountText(stream.missing, "packet", "packets") + " never arrived";
    if (stream.requested > 0)
        text += "; " + CountText(stream.requested, "packet was", "packets were") + " asked for again, " +
                std::to_string(stream.resent) + " of them came";
    if (stream.unusable > 0)
        text += "; " + CountText(stream.unusable, "packet was", "packets were") + " malformed or of no stream of ours";
    return text + ".";
}

} // namespace

Finding FindTrigger(const Facts &facts)
{
    if (!IsWithoutFrames(facts) || !facts.hasTrigger || facts.isSilent)
        return {};
    Diagnosis diagnosis{};
    const std::string source = Printable(facts.triggerSource);
    diagnosis.finding = "The camera waits for a trigger: TriggerMode is On" +
                        (source.empty() ? std::string() : ", TriggerSource is " + source) + "; none came for " +
                        SecondsText(facts.secondsSinceFrame) + ".";
    diagnosis.cure = Cure::SwitchTriggerOff;
    if (facts.triggerSource == "Software") {
        diagnosis.remedy = "Execute TriggerSoftware, or set TriggerMode to Off to let the camera run freely.";
        diagnosis.otherCure = Cure::TriggerOnce;
    } else {
        diagnosis.remedy = "Apply the trigger signal, or set TriggerMode to Off to let the camera run freely.";
    }
    return diagnosis;
}

Finding FindEndedAcquisition(const Facts &facts)
{
    if (!IsWithoutFrames(facts) || facts.isSilent || facts.hasTrigger)
        return {};
    const bool isSingle = facts.acquisitionMode == "SingleFrame";
    const std::uint64_t told = isSingle ? 1 : facts.acquisitionMode == "MultiFrame" ? facts.acquisitionFrameCount : 0;
    const std::uint64_t came = facts.completeFrames + facts.incompleteFrames;
    if (told == 0 || came < told)
        return {};
    Diagnosis diagnosis{};
    diagnosis.finding = "The camera was told to take " + CountText(told, "picture", "pictures") +
                        " only (AcquisitionMode is " + facts.acquisitionMode + "); " +
                        (came == 1 ? "it has come." : "they have come.");
    diagnosis.remedy = "Set AcquisitionMode to Continuous, and start again.";
    diagnosis.cure = Cure::TakeContinuously;
    return diagnosis;
}

Finding FindLongExposure(const Facts &facts)
{
    if (!IsWithoutFrames(facts) || facts.hasTrigger || facts.isSilent || FindEndedAcquisition(facts) ||
        !IsWithinPicturePeriod(facts))
        return {};
    Diagnosis diagnosis{};
    const double exposureSeconds = facts.exposureUs / 1e6;
    if (exposureSeconds >= kPatienceSeconds / 2 && exposureSeconds >= PicturePeriodSeconds(facts) / 2) {
        diagnosis.finding = "The exposure takes " + SecondsText(exposureSeconds) + "; " +
                            SecondsText(facts.secondsSinceFrame) + " have passed.";
        diagnosis.remedy = "The picture comes by itself. A shorter ExposureTime brings pictures sooner.";
        diagnosis.cure = facts.exposureIsAuto ? Cure::None : Cure::ShortenExposure;
        diagnosis.value = kShortExposureUs;
        return diagnosis;
    }
    diagnosis.finding = "The camera takes a picture only every " + SecondsText(PicturePeriodSeconds(facts)) + "; " +
                        SecondsText(facts.secondsSinceFrame) + " have passed.";
    diagnosis.remedy = "The picture comes by itself. A higher AcquisitionFrameRate brings pictures sooner.";
    return diagnosis;
}

Finding FindLargePackets(const Facts &facts)
{
    const OrvCam::StreamStatistics &stream = facts.stream;
    const HostInterfaceFacts *const interface = InterfaceOf(facts.camera, facts.interfaces);
    const std::uint64_t mtu = interface && interface->mtu > 0 ? static_cast<std::uint64_t>(interface->mtu) : 0;
    const std::uint64_t packetSize = PacketSize(facts);
    const bool isAboveMtu = mtu != 0 && packetSize > mtu;
    const bool isHarmful = LacksPackets(facts) || LosesNoticeably(stream);
    if (facts.isSilent || (!LosesAllLongPackets(facts) && !(isAboveMtu && isHarmful)))
        return {};
    Diagnosis diagnosis{};
    const std::string size = std::to_string(packetSize);
    diagnosis.cure = Cure::ReducePacketSize;
    if (isAboveMtu) {
        diagnosis.finding = "The camera sends packets of " + size + " bytes, but " + Printable(interface->name) +
                            " carries only " + std::to_string(mtu) + ".";
        diagnosis.value = static_cast<double>(mtu);
        diagnosis.command = "sudo ip link set dev " + ShellWord(interface->name) + " mtu " + size; // until a restart
    } else {
        diagnosis.finding = "The camera sends packets of " + size +
                            " bytes, and not one of the long ones arrives: something on the way carries less.";
        diagnosis.value = static_cast<double>(packetSize > kEthernetMtu ? kEthernetMtu : kSmallestMtu);
    }
    diagnosis.remedy = "Set GevSCPSPacketSize to " + NumberText(diagnosis.value) +
                       (isAboveMtu ? ", or let interface (for good in the network settings) and switches carry more."
                                   : ", or let every switch on the way carry larger packets (jumbo frames).");
    return diagnosis;
}

Finding FindSmallBuffer(const Facts &facts)
{
    const OrvCam::StreamStatistics &stream = facts.stream;
    if (facts.isSilent || !HasSmallBuffer(stream) || !LosesNoticeably(stream))
        return {};
    Diagnosis diagnosis{};
    diagnosis.finding =
        "This computer threw at least " + CountText(stream.kernelDrops, "packet", "packets") +
        " away: the socket's buffer has " + std::to_string(stream.receiveBuffer) + " bytes in place of " +
        std::to_string(stream.wantedReceiveBuffer) +
        (facts.receiveBufferLimit > 0 ? ", since net.core.rmem_max is " + std::to_string(facts.receiveBufferLimit)
                                      : "") +
        ".";
    diagnosis.remedy = "Allow larger buffers, then start the stream again.";
    SetSysctl(diagnosis, {"net.core.rmem_max=" + std::to_string(SuitableBufferLimit(facts))});
    return diagnosis;
}

Finding FindNoBuffers(const Facts &facts)
{
    const OrvCam::StreamStatistics &stream = facts.stream;
    const std::uint64_t all = std::max(stream.started, stream.delivered + stream.underruns);
    if (!facts.isStreaming || stream.underruns == 0 || stream.underruns < all / 100)
        return {};
    Diagnosis diagnosis{};
    diagnosis.finding = std::to_string(stream.underruns) + " of " + CountText(all, "picture", "pictures") +
                        " were lost because no buffer was free: the program gives them back too slowly.";
    diagnosis.remedy = "Use more buffers, a lower frame rate, or close other programs.";
    return diagnosis;
}

Finding FindLostPackets(const Facts &facts)
{
    const OrvCam::StreamStatistics &stream = facts.stream;
    const bool isExplained = FindLargePackets(facts) || (HasSmallBuffer(stream) && DropsExplainLoss(stream));
    if (!facts.isStreaming || facts.isSilent || isExplained || !LosesNoticeably(stream))
        return {};
    Diagnosis diagnosis{};
    diagnosis.finding = LossText(facts);
    if (stream.kernelDrops > 0 && DropsExplainLoss(stream))
        diagnosis.remedy = "This computer itself dropped at least " + std::to_string(stream.kernelDrops) +
                           " of them, being too busy: close other programs, or lower the frame rate.";
    else if (stream.droppedByCamera > 0)
        diagnosis.remedy = "The camera says that it could not send " + std::to_string(stream.droppedByCamera) +
                           " of them whole: lower the frame rate, or raise the camera's bandwidth limit.";
    else if (LacksFramesItself(stream))
        diagnosis.remedy = "The camera answers that it has nothing of them: it leaves their numbers out, as where it "
                           "cannot keep up (lower the frame rate), or they were lost on the way, and it keeps nothing "
                           "to send again (check cables and switches).";
    else if (stream.missing + stream.missed == 0)
        diagnosis.remedy = "The camera sends less than it announces: set its region and format anew, or restart it.";
    else
        diagnosis.remedy = "Check cables and switches, lower the frame rate, or raise GevSCPD, the pause between two "
                           "packets, so that the network keeps up.";
    return diagnosis;
}

Finding FindInterruption(const Facts &facts)
{
    const double pause = facts.longestPauseSeconds;
    const double usual = facts.usualPauseSeconds; // a single pause may be as long as all of them
    const bool isUnusual = usual > 0 && pause >= PatienceSeconds(usual) && !IsWithinPicturePeriod(facts, pause);
    if (!facts.isStreaming || facts.isSilent || facts.hasTrigger || !isUnusual || FindNoBuffers(facts))
        return {};
    Diagnosis diagnosis{};
    diagnosis.finding =
        "No pictures came for " + SecondsText(pause) + " in the midst of the stream, then they came again.";
    diagnosis.remedy =
        "Check plugs, cables and switches, and what else uses the network or this computer at such times.";
    return diagnosis;
}

Finding FindUnusablePackets(const Facts &facts)
{
    const OrvCam::StreamStatistics &stream = facts.stream;
    if (!IsWithoutFrames(facts) || stream.packets == 0 || facts.hasTrigger || facts.isSilent ||
        IsWithinPicturePeriod(facts) || FindEndedAcquisition(facts) || FindNoBuffers(facts))
        return {};
    Diagnosis diagnosis{};
    diagnosis.finding = CountText(stream.packets, "stream packet has", "stream packets have") + " arrived in " +
                        SecondsText(facts.countedSeconds) + ", but no picture came of them.";
    if (stream.unusable + stream.oversized > 0)
        diagnosis.finding += " Malformed or of another stream were " + std::to_string(stream.unusable) +
                             ", longer than agreed " + std::to_string(stream.oversized) + ".";
    diagnosis.remedy = "Stop the stream and start it again; when that does not help, restart the camera.";
    return diagnosis;
}

Finding FindBlack(const Facts &facts)
{
    if (!facts.hasPicture || IsWithoutFrames(facts) || facts.darkShare < kDarkLimit)
        return {};
    Diagnosis diagnosis{};
    diagnosis.finding =
        "Pictures come, but " + PercentText(facts.darkShare) + " of them is black" + ExposureText(facts);
    diagnosis.remedy = facts.exposureIsAuto ? "Take the lens cap off, open the lens or switch the light on."
                                            : "Take the lens cap off, open the lens, or raise ExposureTime or Gain.";
    if (facts.exposureUs > 0 && facts.exposureUs < kLongestCureUs && !facts.exposureIsAuto) {
        diagnosis.cure = Cure::LengthenExposure;
        diagnosis.value = std::min(std::max(facts.exposureUs * kExposureStep, kShortExposureUs / 2), kLongestCureUs);
    }
    return diagnosis;
}

Finding FindSaturated(const Facts &facts)
{
    if (!facts.hasPicture || IsWithoutFrames(facts) || facts.saturatedShare < kSaturatedLimit)
        return {};
    Diagnosis diagnosis{};
    diagnosis.finding = "Pictures come, but " + PercentText(facts.saturatedShare) + " of them is as bright as can be" +
                        ExposureText(facts);
    diagnosis.remedy = facts.exposureIsAuto ? "Close the lens further, or dim the light."
                                            : "Close the lens further, or lower ExposureTime or Gain.";
    if (facts.exposureUs > 0 && !facts.exposureIsAuto) {
        diagnosis.cure = Cure::ShortenExposure;
        diagnosis.value = facts.exposureUs / kExposureStep;
    }
    return diagnosis;
}

} // namespace orv
