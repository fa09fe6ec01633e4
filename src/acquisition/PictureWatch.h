#pragma once

#include "acquisition/FrameSink.h"
#include "base/Mutex.h"
#include "orvdoctor/Diagnosis.h"
#include "orvdoctor/PictureRhythm.h"

#include <QElapsedTimer>
#include <QObject>
#include <QTimer>

#include <atomic>
#include <chrono>
#include <optional>
#include <set>
#include <thread>

class DisplayView;
class GrabbingFifo;

/// Notices that a stream brings no complete pictures, or pictures on which nothing is to be seen, and finds out why.
///
/// A stream counts as without pictures after a second, or after three of the pauses that are usual between its
/// pictures, so that a slow trigger is not complained of again and again. While that lasts, host and camera are asked
/// every two seconds, on a thread of its own: the event loop never waits for a camera. A camera from which no answer
/// comes for a while is reported silent, still within two seconds.
///
/// Asking reads only, but for a camera that hides some of its triggers behind a selector: see orv::TriggerLook.
///
/// Counts are taken over the time without pictures alone; what was lost an hour ago explains nothing. They are read
/// here, since neither stream nor kernel asks a camera for them, so that each belongs to a time that is known: a late
/// reading makes the judged time shorter, and a short one is not judged.
///
/// Threads: GUI thread; DisplayImage and StopDisplaying come on the display's.
class PictureWatch : public QObject, private FrameSink {
    Q_OBJECT
public:
    /// All three outlive the watch.
    PictureWatch(QObject *parent, OrvCam::Device *device, GrabbingFifo *grabber, DisplayView *view);
    ~PictureWatch() override;

    /// The stream runs from now on.
    void Start();
    /// To be called before the stream is stopped or the camera's settings are changed in a row. Waits for a question
    /// that is under way, with the event loop turning.
    void Stop();
    /// The user has seen enough of this cause: it is not told again before the stream is started anew by its user.
    void Dismiss(orv::Cause cause) { m_dismissed.insert(cause); }
    void ForgetDismissals() { m_dismissed.clear(); }

signals:
    /// Sent again with new figures while the trouble lasts.
    void signalDiagnosis(const orv::Diagnosis &diagnosis);
    void signalAllWell();

private:
    /// What had been counted up to a time.
    struct Mark {
        qint64 ms = 0; ///< on m_clock
        OrvCam::StreamStatistics stream;
        orv::HostCounts host;
    };
    /// What is remembered of the pictures that came.
    struct Arrivals {
        long complete = 0;
        long incomplete = 0;
        long completeBefore = 0; ///< the stream was started, as the next
        long incompleteBefore = 0;
        qint64 lastPictureMs = 0; ///< on m_clock, as the next
        qint64 lastFrameMs = 0;   ///< complete or not
        orv::PictureRhythm rhythm;
    };

    void DisplayImage(const _OrvImage *image) override EXCLUDES(m_levelsMutex);
    void StopDisplaying() override EXCLUDES(m_levelsMutex);

    void Look();
    void NoteArrivals();
    Mark Now();
    void Ask();
    void OnAnswer(const orv::Facts &answer, const orv::TriggerLook &triggers);
    void CheckSilence();
    void Judge(orv::Facts facts);
    void Tell(const std::optional<orv::Diagnosis> &diagnosis);
    bool LacksPictures() const;
    /// Pictures come, but have been black or white for a while.
    bool ShowsNothing() EXCLUDES(m_levelsMutex);
    qint64 PatienceMs() const;
    bool IsAsking() const { return m_thread.joinable(); }

    OrvCam::Device *const m_device;
    GrabbingFifo *const m_grabber;
    DisplayView *const m_view;
    QTimer m_timer;
    QElapsedTimer m_clock; ///< since Start()
    Arrivals m_arrivals;
    std::thread m_thread; ///< asks; joined when its answer is here
    int m_round = 0;      ///< answers of earlier rounds are history
    qint64 m_askedMs = 0;
    std::atomic<qint64> m_answeredMs{0}; ///< when the camera last answered m_thread
    std::optional<qint64> m_silentMs;    ///< the last answer when the camera was last judged silent
    orv::TriggerLook m_triggers;         ///< of this stream
    orv::Facts m_settings;               ///< as answered since the last picture came
    Mark m_mark;                         ///< of the time just after pictures last came
    bool m_markIsStale = false;          ///< a picture came since
    bool m_isTelling = false;
    std::set<orv::Cause> m_dismissed;

    orv::Mutex m_levelsMutex;
    orv::Facts m_levels GUARDED_BY(m_levelsMutex); ///< of the last picture that was looked at
    std::chrono::steady_clock::time_point m_lookedAt GUARDED_BY(m_levelsMutex);
    /// Since when every picture looked at was black or white; none while something was to be seen.
    std::optional<std::chrono::steady_clock::time_point> m_nothingSince GUARDED_BY(m_levelsMutex);
};
