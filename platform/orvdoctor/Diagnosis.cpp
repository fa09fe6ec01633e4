#include "orvdoctor/Diagnosis.h"

#include "orvdoctor/Symptoms.h"

namespace orv {
namespace {

struct CauseRow {
    Cause cause;
    const char *name;
    bool isFault;
    Finding (*find)(const Facts &);
};

/// The surest and most specific first: what camera and host say of themselves, then what follows from counts, then
/// what is left over.
constexpr CauseRow kCauses[] = {
    {Cause::HeldByAnother, "held-by-another", true, FindHolder},
    {Cause::ForeignSubnet, "foreign-subnet", true, FindForeignSubnet},
    {Cause::CameraBusy, "camera-busy", true, FindBusyAnswers},
    {Cause::BadDescription, "description-unusable", true, FindUnusableDescription},
    {Cause::WaitsForTrigger, "waits-for-trigger", false, FindTrigger},
    {Cause::AcquisitionEnded, "acquisition-ended", false, FindEndedAcquisition},
    {Cause::LongExposure, "long-exposure", false, FindLongExposure},
    {Cause::ReversePathFilter, "reverse-path-filter", true, FindReversePathFilter},
    {Cause::TwoInterfacesInOneSubnet, "two-interfaces-in-one-subnet", true, FindTwoInterfaces},
    {Cause::PacketsTooLarge, "packets-too-large", true, FindLargePackets},
    {Cause::SocketBufferSmall, "socket-buffer-small", true, FindSmallBuffer},
    {Cause::NoBuffers, "no-buffers", true, FindNoBuffers},
    {Cause::CameraSilent, "camera-silent", true, FindSilence},
    {Cause::StreamBlocked, "stream-blocked", true, FindBlockedStream},
    {Cause::NoPackets, "no-packets", true, FindNoPackets},
    {Cause::StreamInterrupted, "stream-interrupted", true, FindInterruption},
    {Cause::PacketsLost, "packets-lost", true, FindLostPackets},
    {Cause::UnusablePackets, "unusable-packets", true, FindUnusablePackets},
    {Cause::NoInterface, "no-interface", true, FindNoInterface},
    {Cause::SearchNotSent, "search-not-sent", true, FindSearchFailure},
    {Cause::InterfaceAddress, "interface-without-address", true, FindInterfaceAddress},
    {Cause::Firewall, "firewall", true, FindFirewall},
    {Cause::InterfaceLink, "interface-without-link", false, FindInterfaceLink},
    {Cause::Black, "black", false, FindBlack},
    {Cause::Saturated, "saturated", false, FindSaturated},
};

const CauseRow *RowOf(Cause cause)
{
    for (const CauseRow &row : kCauses)
        if (row.cause == cause)
            return &row;
    return nullptr;
}

} // namespace

std::vector<Diagnosis> Diagnose(const Facts &facts)
{
    std::vector<Diagnosis> diagnoses;
    for (const CauseRow &row : kCauses) {
        if (Finding finding = row.find(facts)) {
            finding->cause = row.cause;
            finding->isFault = row.isFault && !(facts.isMissing && facts.othersAreFound);
            diagnoses.push_back(std::move(*finding));
        }
    }
    return diagnoses;
}

const char *NameOf(Cause cause)
{
    const CauseRow *const row = RowOf(cause);
    return row ? row->name : "";
}

bool IsFault(Cause cause)
{
    const CauseRow *const row = RowOf(cause);
    return row && row->isFault;
}

} // namespace orv
