#pragma once

#include "ScriptedProducer.h"

#include <condition_variable>
#include <cstring>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

/// The camera behind the scripted producer: its registers, buffers and events, without the calls of a producer.
namespace scripted {

using Lock = std::unique_lock<std::mutex>;

struct Event {
    EVENTSRC_HANDLE module = nullptr;
    EVENT_TYPE type = 0;
    std::deque<std::vector<unsigned char>> queue;
    int kills = 0;
    int waiters = 0;
    bool gone = false;
    std::condition_variable changed;
};

struct AnnouncedBuffer {
    unsigned char *memory;
    std::size_t size;
    void *user;
    bool queued;
    std::uint64_t frame; ///< that it was filled with
};

struct Producer {
    std::mutex mutex;
    bool initialised = false, systemOpen = false, interfaceOpen = false, deviceOpen = false, streamOpen = false;
    bool lost = false;
    std::vector<unsigned char> memory = std::vector<unsigned char>(0x20000);
    std::vector<unsigned char> interfaceMemory = std::vector<unsigned char>(0x20000);
    std::vector<std::shared_ptr<Event>> events;
    std::vector<std::shared_ptr<Event>> oldEvents; ///< so that a late handle is stale, not dangling
    std::map<BUFFER_HANDLE, AnnouncedBuffer> buffers;
    std::deque<BUFFER_HANDLE> input;
    std::uint64_t nextHandle = 0x1000;
    std::uint64_t frames = 0;
    Script script = {};
};

Producer &P();

const auto kTl = reinterpret_cast<void *>(0x10);
const auto kIf = reinterpret_cast<void *>(0x20);
const auto kDev = reinterpret_cast<void *>(0x30);
const auto kPort = reinterpret_cast<void *>(0x40);
const auto kDs = reinterpret_cast<void *>(0x50);

constexpr std::uint64_t kXmlAddress = 0x10000;
std::size_t XmlBytes(bool ofInterface);

// With the lock held:
void Push(EVENTSRC_HANDLE module, EVENT_TYPE type, const void *data, std::size_t bytes);
void LoseLocked();
void CloseStreamLocked();
/// Counts the access. \return what it comes to.
GC_ERROR Access(std::uint64_t address, std::size_t size);
GC_ERROR ReadInterface(std::uint64_t address, void *buffer, std::size_t size);
GC_ERROR WriteInterface(std::uint64_t address, const void *buffer, std::size_t size);

// Without it:
void Reset();
void Lose();
void Fire(EVENT_TYPE type, const void *data, std::size_t bytes);
int Deliver();
void Scribble();
void CloseStream();

GC_ERROR Text(const std::string &text, INFO_DATATYPE *type, void *buffer, std::size_t *size);
/// A number in the standard's type, or in others when the script wants it.
GC_ERROR Size(std::uint64_t value, INFO_DATATYPE *type, void *buffer, std::size_t *size);

template <class T>
GC_ERROR Number(T value, INFO_DATATYPE valueType, INFO_DATATYPE *type, void *buffer, std::size_t *size)
{
    *type = valueType;
    if (buffer != nullptr && *size < sizeof value)
        return GC_ERR_BUFFER_TOO_SMALL;
    if (buffer != nullptr)
        std::memcpy(buffer, &value, sizeof value);
    *size = sizeof value;
    return GC_ERR_SUCCESS;
}

} // namespace scripted
