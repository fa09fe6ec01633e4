#include "support/PrivateNetwork.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include <arpa/inet.h>
#include <fcntl.h>
#include <net/if.h>
#include <netinet/in.h>
#include <spawn.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

extern char **environ;

namespace {

constexpr char kMark[] = "ORV_TEST_PRIVATE_NETWORK";
constexpr char kRefusal[] = "ORV_TEST_SHARED_NETWORK";
constexpr int kAddresses = 31;

using Words = std::vector<const char *>;

/// Whether unshare(1) is there and the system lets us.
bool Works(Words words)
{
    words.insert(words.end(), {"true", nullptr});
    posix_spawn_file_actions_t silent;
    posix_spawn_file_actions_init(&silent);
    posix_spawn_file_actions_addopen(&silent, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    pid_t child = 0;
    const int failed =
        posix_spawnp(&child, words[0], &silent, nullptr, const_cast<char *const *>(words.data()), environ);
    posix_spawn_file_actions_destroy(&silent);
    int status = 0;
    return failed == 0 && waitpid(child, &status, 0) == child && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

/// The first way that works; empty when none does.
Words FindWayIn()
{
    // Not static: this runs before the program's own initialisers. Root needs no user namespace of its own, and inside
    // a chroot may have none; everybody else does.
    for (const Words &words : {Words{"unshare", "--net"}, Words{"unshare", "--map-root-user", "--net"}})
        if (Works(words))
            return words;
    return {};
}

bool SetAddress(int fd, const char *label, const char *address)
{
    ifreq request{};
    std::snprintf(request.ifr_name, sizeof request.ifr_name, "%s", label);
    sockaddr_in socketAddress{};
    socketAddress.sin_family = AF_INET;
    inet_pton(AF_INET, address, &socketAddress.sin_addr);
    std::memcpy(&request.ifr_addr, &socketAddress, sizeof socketAddress);
    return ioctl(fd, SIOCSIFADDR, &request) == 0;
}

/// Brings loopback up. The software camera insists on addresses that an interface has.
bool BringLoopbackUp()
{
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    ifreq request{};
    std::strcpy(request.ifr_name, "lo");
    request.ifr_flags = IFF_UP | IFF_RUNNING | IFF_LOOPBACK;
    bool good = ioctl(fd, SIOCSIFFLAGS, &request) == 0;
    for (int i = 2; good && i <= kAddresses; ++i) {
        char label[IFNAMSIZ];
        char address[32];
        std::snprintf(label, sizeof label, "lo:%d", i);
        std::snprintf(address, sizeof address, "127.0.0.%d", i);
        good = SetAddress(fd, label, address);
    }
    close(fd);
    return good;
}

/// glibc hands the program's arguments to such functions, too.
[[gnu::constructor]] void EnterPrivateNetwork(int argc, char **argv, char **)
{
    const char *mark = std::getenv(kMark);
    if (mark != nullptr) {
        if (std::strcmp(mark, "entering") == 0)
            setenv(kMark, BringLoopbackUp() ? "inside" : "failed", 1);
        return;
    }
    if (std::getenv(kRefusal) != nullptr)
        return;
    Words words = FindWayIn();
    if (words.empty())
        return;
    char self[4096] = {};
    if (readlink("/proc/self/exe", self, sizeof self - 1) <= 0)
        return;
    words.insert(words.end(), {"--", self});
    words.insert(words.end(), argv + 1, argv + argc);
    words.push_back(nullptr);
    setenv(kMark, "entering", 1);
    execvp(words[0], const_cast<char *const *>(words.data()));
    unsetenv(kMark);
}

} // namespace

bool InPrivateNetwork()
{
    const char *mark = std::getenv(kMark);
    return mark != nullptr && std::strcmp(mark, "inside") == 0;
}

bool SetSpareAddress(bool there)
{
    if (!InPrivateNetwork())
        return false;
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const bool good = SetAddress(fd, "lo:spare", there ? kSpareAddress : "0.0.0.0");
    close(fd);
    return good;
}
