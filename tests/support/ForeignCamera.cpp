#include "support/ForeignCamera.h"

#include "support/PrivateNetwork.h"

#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <sstream>
#include <thread>
#include <vector>

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr char kProgram[] = "arv-fake-gv-camera-0.8";
constexpr std::chrono::seconds kStartLimit{10};
constexpr std::chrono::seconds kLockLimit{90};
constexpr int kAnswerWaitMs = 50;
constexpr std::uint16_t kControlPort = 3956;

/// Runs in the child: only calls that are safe after a fork.
[[noreturn]] void BecomeCamera(pid_t parent, char *const *arguments)
{
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent)
        _exit(1); // the test ended before the line above
    const int nowhere = open("/dev/null", O_RDWR);
    dup2(nowhere, STDIN_FILENO);
    dup2(nowhere, STDOUT_FILENO);
    dup2(nowhere, STDERR_FILENO);
    execvp(arguments[0], arguments);
    _exit(1);
}

} // namespace

bool ForeignCamera::Installed()
{
    const char *path = std::getenv("PATH");
    std::istringstream folders(path != nullptr ? path : "");
    for (std::string folder; std::getline(folders, folder, ':');) {
        if (access((folder + "/" + kProgram).c_str(), X_OK) == 0)
            return true;
    }
    return false;
}

bool ForeignCamera::Start(const std::string &address, const std::string &serial, int lostPerThousand,
                          const std::string &description)
{
    Kill();
    m_serial = serial;
    m_address = address;
    if (!InPrivateNetwork() && !TakeSharedAddress())
        return false;
    std::vector<std::string> words = {kProgram, "-i", m_address, "-s", m_serial, "-r", std::to_string(lostPerThousand)};
    if (!description.empty())
        words.insert(words.end(), {"-g", description});
    std::vector<char *> arguments;
    for (std::string &word : words)
        arguments.push_back(word.data());
    arguments.push_back(nullptr);
    const pid_t parent = getpid();
    m_process = fork();
    if (m_process == 0)
        BecomeCamera(parent, arguments.data());
    return m_process > 0 && WaitUntilItAnswers();
}

bool ForeignCamera::TakeSharedAddress()
{
    m_address = "127.0.0.1";
    const std::string path = std::filesystem::temp_directory_path() / "orv-foreign-camera.lock";
    m_lock = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666);
    const auto limit = std::chrono::steady_clock::now() + kLockLimit;
    while (m_lock >= 0 && flock(m_lock, LOCK_EX | LOCK_NB) != 0) {
        if (std::chrono::steady_clock::now() > limit)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(kAnswerWaitMs));
    }
    return m_lock >= 0;
}

bool ForeignCamera::WaitUntilItAnswers()
{
    const auto limit = std::chrono::steady_clock::now() + kStartLimit;
    while (std::chrono::steady_clock::now() < limit) {
        if (waitpid(m_process, nullptr, WNOHANG) != 0) {
            m_process = 0; // it could not start, the address may be taken
            return false;
        }
        if (AnswersDiscovery())
            return true;
    }
    return false;
}

/// Asks without any code of ours that is under test.
bool ForeignCamera::AnswersDiscovery() const
{
    constexpr std::uint8_t kDiscovery[] = {0x42, 0x01, 0x00, 0x02, 0x00, 0x00, 0x00, 0x01};
    constexpr std::size_t kSerialAt = 8 + 216;
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_in camera{};
    camera.sin_family = AF_INET;
    camera.sin_port = htons(kControlPort);
    inet_pton(AF_INET, m_address.c_str(), &camera.sin_addr);
    sendto(fd, kDiscovery, sizeof kDiscovery, 0, reinterpret_cast<const sockaddr *>(&camera), sizeof camera);
    pollfd answer{fd, POLLIN, 0};
    char datagram[512] = {};
    ssize_t size = 0;
    if (poll(&answer, 1, kAnswerWaitMs) > 0)
        size = recv(fd, datagram, sizeof datagram - 1, 0);
    close(fd);
    return size >= static_cast<ssize_t>(kSerialAt + 16) && m_serial == datagram + kSerialAt;
}

void ForeignCamera::Kill()
{
    if (m_process > 0) {
        kill(m_process, SIGKILL);
        waitpid(m_process, nullptr, 0);
        m_process = 0;
    }
    if (m_lock >= 0)
        close(m_lock);
    m_lock = -1;
}

void ForeignCamera::Suspend()
{
    if (m_process <= 0)
        return;
    kill(m_process, SIGSTOP);
    waitpid(m_process, nullptr, WUNTRACED); // it stops a moment later
}

void ForeignCamera::Resume()
{
    if (m_process > 0)
        kill(m_process, SIGCONT);
}
