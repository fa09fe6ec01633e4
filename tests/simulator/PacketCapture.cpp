#include "tests/simulator/PacketCapture.h"

#include "simulator/gige/Endpoint.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace orvsim {
namespace {

constexpr char kRecorder[] = "dumpcap"; // tshark's own; without dissection it keeps up with a stream
constexpr char kDissector[] = "tshark";
constexpr std::uint16_t kMarkPort = 9; // "discard": nobody answers
constexpr std::chrono::milliseconds kMarkPeriod{20};
constexpr char kSeparator = '\t';

void SendText(std::uint32_t address, const std::string &text)
{
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_in to = {};
    to.sin_family = AF_INET;
    to.sin_addr.s_addr = htonl(address);
    to.sin_port = htons(kMarkPort);
    sendto(fd, text.data(), text.size(), 0, reinterpret_cast<const sockaddr *>(&to), sizeof to);
    close(fd);
}

bool FileContains(const std::string &path, const std::string &text)
{
    std::ifstream file(path, std::ios::binary);
    const std::string content(std::istreambuf_iterator<char>(file), {});
    return content.find(text) != std::string::npos;
}

DissectedPacket ToPacket(const std::string &line, const std::vector<std::string> &fields)
{
    DissectedPacket packet;
    std::istringstream texts(line);
    for (const std::string &field : fields)
        std::getline(texts, packet[field], kSeparator);
    return packet;
}

} // namespace

PacketCapture::PacketCapture()
{
    std::string folder = std::filesystem::temp_directory_path() / "orv-capture-XXXXXX";
    if (mkdtemp(folder.data()) != nullptr)
        m_folder = folder;
}

PacketCapture::~PacketCapture()
{
    m_recorder.Interrupt();
    m_recorder.Finish();
    std::error_code ignored;
    std::filesystem::remove_all(m_folder, ignored);
}

std::string PacketCapture::Start(std::uint32_t address)
{
    for (const char *program : {kRecorder, kDissector}) {
        if (!ForeignProgram::Installed(program))
            return std::string(program) + " is not installed";
    }
    m_address = address;
    const std::string filter = "udp and host " + AddressText(address);
    const bool hasStarted =
        m_recorder.Start({kRecorder, "-q", "-i", "lo", "-f", filter, "-B", "64", "-w", m_folder + "/packets.pcapng"});
    if (!hasStarted || !WaitForMark("capture-begins"))
        return "packets of loopback cannot be recorded: " + m_recorder.Errors();
    return "";
}

bool PacketCapture::Stop()
{
    const bool isWhole = WaitForMark("capture-ends");
    m_recorder.Interrupt();
    return m_recorder.Finish() == 0 && isWhole;
}

/// The recorder says nothing when it starts to see packets, and writes them some time after it has.
bool PacketCapture::WaitForMark(const std::string &mark)
{
    const auto limit = std::chrono::steady_clock::now() + ForeignProgram::kLimit;
    while (std::chrono::steady_clock::now() < limit && !m_recorder.HasEnded(kMarkPeriod)) {
        SendText(m_address, mark);
        if (FileContains(m_folder + "/packets.pcapng", mark))
            return true;
    }
    return false;
}

std::vector<DissectedPacket> PacketCapture::Dissect(const std::map<std::uint16_t, std::string> &ports,
                                                    const std::vector<std::string> &fields, std::string &problem) const
{
    // Without the user's own preferences and without look-ups of names.
    std::vector<std::string> words = {"env", "WIRESHARK_CONFIG_DIR=" + m_folder, kDissector, "-n"};
    words.insert(words.end(), {"-r", m_folder + "/packets.pcapng"});
    words.insert(words.end(), {"-Y", "udp.port != " + std::to_string(kMarkPort), "-T", "fields", "-E", "occurrence=f"});
    for (const auto &[port, protocol] : ports)
        words.insert(words.end(), {"-d", "udp.port==" + std::to_string(port) + "," + protocol});
    for (const std::string &field : fields)
        words.insert(words.end(), {"-e", field});
    const ProgramRun run = RunForeignProgram(words);
    problem = run.exitCode == 0 ? "" : "tshark failed: " + run.errors;
    std::vector<DissectedPacket> packets;
    std::istringstream lines(run.output);
    for (std::string line; std::getline(lines, line);)
        packets.push_back(ToPacket(line, fields));
    return packets;
}

} // namespace orvsim
