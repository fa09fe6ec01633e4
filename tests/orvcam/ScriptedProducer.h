#pragma once

#include "gentl/GenTL.h"

#include <atomic>
#include <cstddef>
#include <cstdint>

/// What the scripted producer is told to do, and what it has seen. One per loaded .cti; the test reaches it through the
/// module's function "TheScript". Plain numbers, so that both sides may be built separately.
///
/// The producer has one interface with one camera, "cam0", with one stream, all made of memory. Frames come only when
/// the test delivers them.
struct Script {
    // Orders, to be set before the call they change.
    std::atomic<GC_ERROR> openResult;
    std::atomic<GC_ERROR> portResult; ///< of every register access
    std::atomic<GC_ERROR> startResult;
    std::atomic<GC_ERROR> stopResult;       ///< other than success: the acquisition runs on
    std::atomic<GC_ERROR> revokeResult;     ///< other than success: the buffer stays announced
    std::atomic<GC_ERROR> closeResult;      ///< of DSClose; other than success: the stream stays open, with its buffers
    std::atomic<GC_ERROR> twiceResult;      ///< of queueing a buffer that is queued
    std::atomic<int> queueFailures;         ///< so many buffers are refused as busy
    std::atomic<int> waitsAtOnce;           ///< 1: EventGetData times out without waiting
    std::atomic<int> holdRegistration;      ///< 1: GCRegisterEvent of event 1000 waits
    std::atomic<std::int32_t> accessStatus; ///< of the camera that is not open
    std::atomic<int> isHeld;                ///< 1: by "127.0.0.1:999"
    std::atomic<int> twin; ///< 1: before the camera, "cam1" is listed, which is like it and cannot be reached
    std::atomic<GC_ERROR> eventResult;     ///< of EventGetData for new buffers
    std::atomic<GC_ERROR> lostEventResult; ///< of EventGetData for event 1004
    std::atomic<int> trafficFailures;      ///< of EventGetData for event 1000: every other one is just a time-out
    std::atomic<int> announceFailsAt;      ///< number of the announcement that fails, -1 for none
    std::atomic<int> stacked;              ///< 0: DSGetBufferInfoStacked answers not implemented
    std::atomic<int> oddTypes;             ///< 1: infos come in other number types than the standard's
    std::atomic<int> fewInfos;             ///< 1: only the frame ID is told
    std::atomic<std::uint64_t> payload;    ///< of the stream info; 0: the stream does not define it
    std::atomic<int> losesKills;           ///< 1: EventKill wakes nobody
    std::atomic<int> tellsFigures; ///< 1: each stream info that nothing else answers is kScriptedFigure + its number
    std::atomic<int> loseAtAccess; ///< the camera goes with so many register accesses from now; 0: stays
    std::atomic<int> loseAtStop;   ///< 1: the camera goes while the acquisition is being stopped
    std::atomic<GC_ERROR> forceResult; ///< of the interface's command to force an address
    // Infos of the frames to come.
    std::atomic<std::uint64_t> width, height, pixelFormat, sizeFilled, dataSize, incomplete;
    /// The types of the parts of a frame; the buffer is a plain image without any. Part n is 4 pixels wide, n + 1 high,
    /// and begins at 4 * n.
    std::atomic<std::uint64_t> partTypes[4];
    std::atomic<std::uint32_t> parts;
    // Seen.
    std::atomic<int> forces;
    std::atomic<std::uint32_t> forcedDevice, forcedAddress, forcedMask, forcedGateway;
    std::atomic<int> devicesOpen, streamsOpen, announced, running, eventsRegistered, portAccesses, updates, polls,
        registering;

    int (*deliver)();                                    ///< fills the oldest queued buffer; 0 when there is none
    void (*lose)();                                      ///< the camera goes: accesses fail, and event 1004 is fired
    void (*reset)();                                     ///< all orders back to a good camera
    void (*fire)(EVENT_TYPE, const void *, std::size_t); ///< an event of the device module
    void (*closeStream)();                               ///< that was left open
    void (*scribble)();                                  ///< writes into all announced buffers
};

constexpr std::uint64_t kScriptedFigure = 7000;
/// Registers of the scripted camera.
constexpr std::uint64_t kScriptedWidth = 0x100;
constexpr std::uint64_t kScriptedPayload = 0x114;
