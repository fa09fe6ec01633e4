#pragma once

#include "gentl/Library.h"
#include "gentl/NuvarkCustom.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

/// One camera's stream through the producer's exported functions. Each call throws std::runtime_error, with what the
/// producer says, when it fails. One thread.
class ProducerSession {
public:
    /// \param producer the .cti's path, \param interfaceId "GEV:lo:127.0.0.1"
    ProducerSession(const std::string &producer, const std::string &interfaceId);
    ~ProducerSession();
    ProducerSession(const ProducerSession &) = delete;

    void OpenDevice(const std::string &address);
    void CloseDevice();

    void OpenStream(std::size_t buffers, std::size_t bytes);
    /// A feature of the stream module by its name.
    void SetStreamFeature(const std::string &name, std::int64_t value);
    std::int64_t StreamFeature(const std::string &name);
    void Start();
    void Stop();

    struct Frame {
        BUFFER_HANDLE handle = nullptr;
        const std::uint8_t *data = nullptr;
        std::size_t bytes = 0;    ///< filled
        std::size_t dataSize = 0; ///< with holes
        std::uint64_t id = 0;
        bool isIncomplete = false;
        bool hasImage = false;
    };
    /// The next frame; a null handle when none comes within the time. To be given back.
    Frame Fetch(std::uint64_t limitMs);
    void GiveBack(const Frame &frame);

private:
    const orv::gentl::Functions &Gc() const { return m_library->Calls(); }
    void Check(GC_ERROR error, const char *what) const;
    template <class Value> Value BufferInfo(BUFFER_HANDLE buffer, BUFFER_INFO_CMD command) const;
    std::uint64_t RegisterOf(const std::string &feature);

    std::unique_ptr<orv::gentl::Library> m_library;
    TL_HANDLE m_system = nullptr;
    IF_HANDLE m_interface = nullptr;
    DEV_HANDLE m_device = nullptr;
    DS_HANDLE m_stream = nullptr;
    EVENT_HANDLE m_newBuffer = nullptr;
    std::string m_description; ///< of the stream module
};
