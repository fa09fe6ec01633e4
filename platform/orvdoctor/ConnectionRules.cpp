#include "orvdoctor/Addresses.h"
#include "orvdoctor/FactText.h"
#include "orvdoctor/Symptoms.h"

#include <algorithm>

namespace orv {
namespace {

/// A word by which the camera can be named on a command line though no connection can reach it.
std::string CameraWord(const OrvCam::DeviceDescription &camera)
{
    // Several cameras may have one serial number, and that may look like an option.
    const std::string &word = !camera.mac.empty()      ? camera.mac
                              : !camera.serial.empty() ? camera.serial
                                                       : camera.address;
    return (word.rfind('-', 0) == 0 ? "-- " : "") + ShellWord(word);
}

bool IsOwnAddress(const Facts &facts, const std::string &address)
{
    const auto number = ParseIpv4(address);
    return number && std::any_of(facts.interfaces.begin(), facts.interfaces.end(),
                                 [&](const HostInterfaceFacts &i) { return i.address == *number; });
}

/// Digits only, so that nothing else gets into a command.
std::string PortOf(const std::string &holder)
{
    const std::size_t colon = holder.rfind(':');
    const std::string port = colon == std::string::npos ? "" : holder.substr(colon + 1);
    const bool isNumber =
        !port.empty() && port.size() <= 5 && port.find_first_not_of("0123456789") == std::string::npos;
    return isNumber ? port : "";
}

bool IsForeign(const Facts &facts, std::uint32_t address)
{
    if (facts.camera.state == OrvCam::DeviceState::Unreachable)
        return true;
    if (facts.camera.state != OrvCam::DeviceState::Unknown)
        return false; // it was reached, by a router where no subnet fits
    return std::none_of(facts.interfaces.begin(), facts.interfaces.end(), [&](const HostInterfaceFacts &interface) {
        return interface.isUp && interface.address != 0 && IsInSubnet(address, interface.address, interface.subnetMask);
    });
}

/// Where the kernel tells of no such interface, nothing is proposed.
void ProposeIn(const HostInterfaceFacts &interface, const Facts &facts, std::uint32_t address, Diagnosis &diagnosis)
{
    std::vector<std::uint32_t> taken = facts.takenAddresses;
    for (const HostInterfaceFacts &other : facts.interfaces)
        taken.push_back(other.address);
    const std::uint32_t proposed = ProposeAddress(interface, address, taken);
    if (proposed == 0)
        return;
    diagnosis.cure = Cure::SetAddress;
    diagnosis.address = Ipv4Text(proposed);
    diagnosis.subnetMask = Ipv4Text(interface.subnetMask);
    diagnosis.remedy = "Give the camera the address " + diagnosis.address + " with the mask " + diagnosis.subnetMask +
                       ", if nobody else has it.";
    diagnosis.command =
        "orvcam force-ip " + CameraWord(facts.camera) + " " + diagnosis.address + " " + diagnosis.subnetMask;
}

} // namespace

Finding FindHolder(const Facts &facts)
{
    const bool isHeld = facts.camera.state == OrvCam::DeviceState::Busy ||
                        facts.camera.state == OrvCam::DeviceState::ReadOnly || !facts.camera.holder.empty();
    if (facts.isOpen || facts.isMissing || facts.camera.state == OrvCam::DeviceState::OpenHere || !isHeld)
        return {};
    Diagnosis diagnosis{};
    const std::string &holder = facts.camera.holder;
    const std::string address = holder.substr(0, holder.rfind(':'));
    const std::string port = PortOf(holder);
    if (holder.empty()) {
        diagnosis.finding = "Another program controls the camera; the camera does not tell which.";
    } else if (IsOwnAddress(facts, address)) {
        diagnosis.finding = "Another program on this computer controls the camera (" + Printable(holder) + ").";
        if (!port.empty())
            diagnosis.command = "sudo ss -uanp 'sport = :" + port + "'";
    } else {
        diagnosis.finding = "A program on another computer controls the camera (" + Printable(holder) + ").";
    }
    diagnosis.remedy = "Close the camera there; it becomes free after a few seconds.";
    return diagnosis;
}

Finding FindForeignSubnet(const Facts &facts)
{
    const auto address = ParseIpv4(facts.camera.address);
    if (facts.isOpen || facts.isMissing || !address || !IsForeign(facts, *address))
        return {};
    Diagnosis diagnosis{};
    const auto mask = ParseIpv4(facts.camera.subnetMask);
    const std::string camera = mask ? SubnetText(*address, *mask) : Ipv4Text(*address);
    const HostInterfaceFacts *const interface = InterfaceOf(facts.camera, facts.interfaces);
    diagnosis.remedy = "Give the camera an address in this computer's subnet, or this computer one in the camera's.";
    if (!interface) {
        diagnosis.finding = "The camera's address " + camera + " belongs to no network of this computer.";
        return diagnosis;
    }
    diagnosis.finding =
        "The camera's address " + camera + " does not belong to the network of " + InterfaceText(*interface) + ".";
    ProposeIn(*interface, facts, *address, diagnosis);
    return diagnosis;
}

Finding FindBusyAnswers(const Facts &facts)
{
    if (!facts.answersBusy || facts.isSilent)
        return {};
    Diagnosis diagnosis{};
    diagnosis.finding = "The camera answers that it is busy, though nobody holds it.";
    diagnosis.remedy = "Wait a while; when that does not help, switch the camera off and on.";
    return diagnosis;
}

Finding FindUnusableDescription(const Facts &facts)
{
    if (facts.descriptionProblem.empty())
        return {};
    Diagnosis diagnosis{};
    diagnosis.finding = facts.descriptionProblem + (facts.descriptionProblem.back() == '.' ? "" : ".");
    diagnosis.remedy = "Connect the camera anew; when that does not help, its maker may have a firmware that mends it.";
    return diagnosis;
}

Finding FindSilence(const Facts &facts)
{
    if (!facts.isSilent)
        return {};
    Diagnosis diagnosis{};
    const auto address = ParseIpv4(facts.camera.address);
    diagnosis.finding = "The camera" + (address ? " at " + Ipv4Text(*address) : std::string()) +
                        " does not answer on its control channel.";
    diagnosis.remedy = "Check the camera's power and cable. When it answers again, connect it anew.";
    if (address)
        diagnosis.command = "ping -c 3 " + Ipv4Text(*address);
    return diagnosis;
}

} // namespace orv
