#pragma once

#include "support/Eventually.h"
#include "tests/simulator/ForeignProgram.h"

#include <atomic>
#include <functional>
#include <string>
#include <vector>

/// A host and a camera's computer, joined by a cable: two network namespaces of the calling thread.
///
/// The host has the interface h0 at 10.0.0.1/24 and a /sys that shows it; the other end is c0 at 10.0.0.20/24. The
/// thread itself, and all that it starts, is in the host's namespace from Lay() on and never comes back: use a thread
/// for each cable, and let it end with the cable. Shell lines fail at their first failing command.
class Wire {
public:
    Wire() = default;
    ~Wire();
    Wire(const Wire &) = delete;
    Wire &operator=(const Wire &) = delete;

    /// \return why that cannot be done here; "" when the cable is there.
    std::string Lay();

    /// Runs shell lines on the host; those behind the word "camera" on the camera's side. $CAMERA stands for its
    /// namespace where ip(8) wants one. \return what they complain of, "" when all went well.
    std::string Run(const std::string &lines);

    /// A command that the doctor prints.
    std::string RunCure(const std::string &command);

    /// orvsim on the camera's side, until the cable ends. \return what is wrong, "" once it answers.
    std::string StartCamera(const std::string &options);
    /// orvcam on the host's side; words are parted by blanks.
    orvsim::ProgramRun Orvcam(const std::string &words);
    /// The same, with `meanwhile` called as soon as so many bytes have reached the host during it.
    orvsim::ProgramRun Orvcam(const std::string &words, std::uint64_t bytes,
                              const std::function<void(pid_t orvcam)> &meanwhile);
    bool Start(orvsim::ForeignProgram &program, const std::string &words);

    /// Bytes that h0 has received.
    static std::uint64_t Received();
    /// Datagrams that the host has thrown away since a socket's buffer was full.
    static std::uint64_t Dropped();

private:
    std::string CameraNamespace() const;

    int m_camera = -1;
    orvsim::ForeignProgram m_program;
};

/// Runs all of them, each on a cable of its own, some at a time. Failures are reported with the name.
struct WireCase {
    std::string name;
    std::function<void(Wire &)> run;
};
void RunOnWires(const std::vector<WireCase> &cases);

/// Why this system has no two networks and a cable between them; "" when it has.
std::string WhyNoWires();
