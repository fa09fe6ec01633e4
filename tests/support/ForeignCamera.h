#pragma once

#include <string>

#include <sys/types.h>

/// A software GigE Vision camera that others wrote (Aravis's), as a child process of the test.
///
/// It ends with this object, and with the test program at the latest. In a private network (see PrivateNetwork.h) each
/// test program has the whole loopback network to itself; elsewhere the camera is always at 127.0.0.1 and programs wait
/// for each other. One thread.
class ForeignCamera {
public:
    ForeignCamera() = default;
    ~ForeignCamera() { Kill(); }
    ForeignCamera(const ForeignCamera &) = delete;
    ForeignCamera &operator=(const ForeignCamera &) = delete;

    /// Whether the camera's program is installed; tests skip themselves without it.
    static bool Installed();

    /// Starts the camera and waits until it answers a discovery. \param address one of 127.0.0.1 to 127.0.0.31.
    /// \param lostPerThousand stream packets that it does not send, of each thousand.
    /// \param description  file of another description of its features than its own.
    [[nodiscard]] bool Start(const std::string &address, const std::string &serial, int lostPerThousand = 0,
                             const std::string &description = "");
    /// Ends it at once, as a power cut would.
    void Kill();
    /// As if its cable had been pulled, and plugged in again.
    void Suspend();
    void Resume();

    /// Where it really is: differs from what Start() was given outside a private network.
    const std::string &Address() const { return m_address; }
    const std::string &Serial() const { return m_serial; }

private:
    bool TakeSharedAddress();
    bool WaitUntilItAnswers();
    bool AnswersDiscovery() const;

    std::string m_address;
    std::string m_serial;
    pid_t m_process = 0;
    int m_lock = -1; ///< lock file that keeps other test programs off a shared address
};
