#pragma once

#include "simulator/core/Camera.h"
#include "simulator/gige/StreamSender.h"

#include <cstdint>
#include <memory>
#include <string>

namespace orvsim {

struct GigeOptions {
    std::uint32_t address = 0x7f000001; ///< host byte order; of this machine
    std::uint32_t subnetMask = 0xff000000;
    bool legacy = false;    ///< GigE Vision 1.2: 16-bit ids only, no stream capability registers
    bool multiPart = false; ///< frames have a second part until a client switches it off; not of legacy cameras
    bool zippedXml = true;
    std::uint32_t pathMtu = 0;       ///< packets above it are lost; 0: no limit
    std::uint32_t packetSize = 1500; ///< first value of SCPS
    int resendFrames = 8;
    bool gapsReadAsZero = false; ///< addresses without a register read 0 instead of being refused
};

/// A camera on the network: GigE Vision 2 device with control, message and stream channel over UDP.
///
/// Open() binds port 3956 of the address (and the broadcast addresses for discovery) and starts the threads: one for
/// control and messages, one for the stream. Everything it sends goes to clients that asked.
///
/// Threads: Open() and Close() from the owner's; the destructor calls Close().
class GigeCamera {
public:
    GigeCamera(const CameraOptions &camera, const GigeOptions &gige);
    ~GigeCamera();

    /// \return what went wrong, naming the address; empty on success.
    std::string Open();
    void Close();

    Camera &Core();
    StreamCounts Counts() const;
    /// Where it is now: FORCEIP may have moved it.
    std::uint32_t Address() const;

private:
    struct Parts;
    std::unique_ptr<Parts> m_parts;
};

} // namespace orvsim
