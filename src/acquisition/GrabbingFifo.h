#pragma once

#include "base/Mutex.h"
#include "core/SessionState.h"
#include "core/WorkingThread.h"
#include "orvcam/OrvCam.h"
#include "orvsupport/OrvComponentImp.h"

#include <QObject>

#include <atomic>
#include <cstdint>
#include <deque>

/// Pulls filled buffers from the camera's first stream, keeps the figures about them as parameters, and holds them in a
/// double-ended FIFO: newest in front for the display, oldest at the back for the writer.
///
/// Outside Capturing it holds the newest buffer only and gives the others straight back to the stream; while Capturing
/// it holds up to "QueueSize" less three, so that the stream always has buffers to fill. Image data is never copied
/// here.
///
/// Ownership: a buffer belongs to the stream until GetBuffer yields it, then to the FIFO, then to the consumer that
/// took it out until ReturnBuffer (display) or ReleaseBuffer (writer). A buffer lent with bKeepInFifo must not be given
/// back.
///
/// Threads: Work on its own thread; GetNewestBuffer, PopOldestBuffer, ReturnBuffer and ReleaseBuffer on the consumers';
/// the rest on the owner's, one at a time. Lock order: m_waitMutex before m_fifoMutex; the grabber's thread never holds
/// both. Every hand-back to the stream happens under m_fifoMutex.
///
/// Unplugged: the stream's GetBuffer answers with errors; the thread goes on and publishes nothing until it is stopped.
class GrabbingFifo : public QObject, public WorkingThread, public OrvComponentImp {
    Q_OBJECT
public:
    /// What to drop when the FIFO is full during capture.
    enum class OverflowPolicy : std::uint32_t { ReturnNewest = 0, ReturnOldest = 1, DiscardReceived = 2 };

    GrabbingFifo(QObject *parent, OrvCam::Device *device);
    /// Stops grabbing when the owner forgot to.
    ~GrabbingFifo() override;

    /// False when the device has no stream: nothing else may be called then.
    bool HasStream() const { return m_stream != nullptr; }

    bool SetState(SessionState state);
    SessionState State() const { return m_state.load(); }

    /// Allocates "QueueSize" buffers; 0 or the camera library's status.
    int CreateBuffers();
    /// Hands everything back to the stream and lets it free the buffers.
    int ReleaseBuffers();

    bool StartGrabbing();
    bool StopGrabbing();
    bool Stop() override;

    /// One grab: waits for a buffer, updates the figures, applies the FIFO policy. Grabber's thread, or the caller's
    /// while grabbing is stopped. \param timeout milliseconds, all ones for no limit.
    int GrabNewBuffer(unsigned long timeout);

    /// Takes (or, with bKeepInFifo, borrows) the newest buffer; waits for one while blocking is on. `*out` stays
    /// untouched when blocking is switched off. \return 0, or ORV_CAM_ERR_INVALID_STATE outside Acquisition and
    /// Capturing.
    int GetNewestBuffer(OrvCam::Buffer **out, bool bKeepInFifo);
    /// The same with the oldest buffer, always taken out.
    int PopOldestBuffer(OrvCam::Buffer **out);
    /// The display gives a buffer back: while Capturing it becomes the newest in the FIFO again, for the writer.
    int ReturnBuffer(OrvCam::Buffer *buffer);
    /// Gives a buffer back to the stream for filling.
    int ReleaseBuffer(OrvCam::Buffer *buffer);

    /// Switched off, every waiting consumer returns without a buffer, and so does every later call.
    void SetGrabberThtreadBlocking(bool block);
    /// Frames per timestamp tick since the first frame; 0.0 while there is no time between them.
    double GetCurrentFPS();

    void SetOverflowPolicy(OverflowPolicy policy) { m_overflowPolicy = policy; }

protected:
    void Work() override;

private:
    /// What the figures are computed from; the counts themselves live in the parameters. Written on the grabber's
    /// thread while grabbing, else on the owner's.
    struct FrameClock {
        std::atomic<std::uint64_t> firstTimestamp{0}; ///< of the first complete frame since StartGrabbing
        std::atomic<std::uint64_t> lastTimestamp{0};
        std::uint64_t lastFrameId = 0; ///< 0: none yet
    };

    void DeclareParams();
    void DeclareInt(const char *name, long *member, long defaultValue, long minimum);
    void DeclareFloat(const char *name, double *member);
    void ReadTickFrequency(OrvCam::Device *device);
    long ReadInt(const char *name);
    void PublishInt(const char *name, std::int64_t value);
    /// Adds to a counter parameter, with notification.
    void Count(const char *name, std::int64_t increment);
    void PublishFloat(const char *name, double value);

    void UpdateFigures(OrvCam::Buffer *buffer);
    void UpdateRates(std::uint64_t frameId, std::uint64_t previousTimestamp, std::size_t payloadBytes);
    OrvCam::Buffer *DropIncomplete(OrvCam::Buffer *buffer, int err);
    void QueueForWriter(OrvCam::Buffer *buffer) REQUIRES(m_fifoMutex);
    void QueueForDisplay(OrvCam::Buffer *buffer) REQUIRES(m_fifoMutex);
    void HandBack(OrvCam::Buffer *buffer) REQUIRES(m_fifoMutex);
    void PublishQueueFilled() REQUIRES(m_fifoMutex);
    void WakeConsumers() EXCLUDES(m_waitMutex, m_fifoMutex);
    /// Waits for a buffer and takes it by `take`; null when blocking is off.
    template <class Take> OrvCam::Buffer *WaitAndTake(Take take) EXCLUDES(m_waitMutex, m_fifoMutex);

    std::atomic<SessionState> m_state{Idle};
    std::atomic<OverflowPolicy> m_overflowPolicy{OverflowPolicy::ReturnNewest};
    OrvCam::Stream *m_stream;
    orv::Mutex m_waitMutex; ///< of m_cvFifoEmpty; taken before m_fifoMutex
    orv::Mutex m_fifoMutex;
    std::deque<OrvCam::Buffer *> m_grab_fifo GUARDED_BY(m_fifoMutex); ///< newest in front
    long m_publishedFilled GUARDED_BY(m_fifoMutex) = 0;
    std::atomic<bool> m_dropIncomplete{false};
    bool m_bBlockCallerThread GUARDED_BY(m_waitMutex) = true;
    orv::ConditionVariable m_cvFifoEmpty;
    FrameClock m_clock;
    std::int64_t m_tickFrequency = 1000000000;

    // Bound to the parameters of the same role; touched by the store only.
    long m_framesAcquired = 0;
    long m_framesDroppedHW = 0;
    long m_framesDroppedSW = 0;
    long m_queueFilled = 0;
    long m_queueSize = 16;
    long m_timestamp = 0;
    long m_frameId = 0;
    long m_framesIncomplete = 0;
    double m_fpsAvg = 0.0;
    double m_fpsInst = 0.0;
    double m_speed = 0.0;
};
