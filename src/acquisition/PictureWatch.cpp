#include "acquisition/PictureWatch.h"

#include "acquisition/DisplayView.h"
#include "acquisition/GrabbingFifo.h"
#include "core/DiagnosticLog.h"
#include "core/RunBeside.h"

#include <algorithm>
#include <system_error>

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr int kTickMs = 100;
constexpr qint64 kSuspicionMs = 300; ///< without a picture: counts are read to compare later ones with
constexpr qint64 kPatienceMs = static_cast<qint64>(orv::kPatienceSeconds * 1000) + kTickMs / 2;
constexpr qint64 kLeastSpanMs = 600; ///< of counts that say something; less than the two before leave
constexpr qint64 kSilenceMs = 1800;  ///< without a picture and an answer
constexpr qint64 kAskAgainMs = 2000;
constexpr milliseconds kBetweenLooks{200};
constexpr milliseconds kNothingToSee{1500};

long ReadCount(GrabbingFifo *grabber, const char *name)
{
    long value = 0;
    grabber->GetParamInt(const_cast<char *>(name), &value);
    return value;
}

/// Of trouble with the pictures' content, not with their coming.
bool IsOfContent(orv::Cause cause)
{
    return cause == orv::Cause::Black || cause == orv::Cause::Saturated;
}

} // namespace

PictureWatch::PictureWatch(QObject *parent, OrvCam::Device *device, GrabbingFifo *grabber, DisplayView *view)
    : QObject(parent), m_device(device), m_grabber(grabber), m_view(view)
{
    m_timer.setInterval(kTickMs);
    connect(&m_timer, &QTimer::timeout, this, &PictureWatch::Look);
    m_view->AddInspectionView(this);
}

PictureWatch::~PictureWatch()
{
    m_view->RemoveInspectionView(this);
    Stop();
}

void PictureWatch::Start()
{
    m_arrivals = Arrivals();
    m_arrivals.complete = m_arrivals.completeBefore = ReadCount(m_grabber, "FramesAcquired");
    m_arrivals.incomplete = m_arrivals.incompleteBefore = ReadCount(m_grabber, "FramesIncomp");
    m_clock.start();
    m_mark = Now();
    m_markIsStale = false;
    m_triggers = {};
    m_settings = orv::Facts();
    m_silentMs.reset();
    StopDisplaying();
    m_timer.start();
}

void PictureWatch::Stop()
{
    m_timer.stop();
    ++m_round;
    Tell(std::nullopt);
    if (!IsAsking())
        return;
    std::thread asking = std::move(m_thread); // the event loop may come by here again
    orv::RunBeside([&asking] { asking.join(); });
}

// The pictures' levels, on the display's thread

void PictureWatch::DisplayImage(const _OrvImage *image)
{
    const steady_clock::time_point now = steady_clock::now();
    {
        const orv::MutexLock lock(m_levelsMutex);
        if (now - m_lookedAt < kBetweenLooks)
            return;
        m_lookedAt = now;
    }
    orv::Facts levels;
    orv::GatherPicture(*image, levels);
    const bool showsNothing =
        levels.hasPicture && (levels.darkShare >= orv::kDarkLimit || levels.saturatedShare >= orv::kSaturatedLimit);
    const orv::MutexLock lock(m_levelsMutex);
    m_levels = levels;
    if (!showsNothing)
        m_nothingSince.reset();
    else if (!m_nothingSince)
        m_nothingSince = now;
}

void PictureWatch::StopDisplaying()
{
    const orv::MutexLock lock(m_levelsMutex);
    m_levels = orv::Facts();
    m_lookedAt = {};
    m_nothingSince.reset();
}

bool PictureWatch::ShowsNothing()
{
    const orv::MutexLock lock(m_levelsMutex);
    return m_nothingSince && steady_clock::now() - *m_nothingSince >= kNothingToSee;
}

// What the clock says

void PictureWatch::NoteArrivals()
{
    const qint64 now = m_clock.elapsed();
    const long complete = ReadCount(m_grabber, "FramesAcquired");
    const long incomplete = ReadCount(m_grabber, "FramesIncomp");
    if (complete != m_arrivals.complete || incomplete != m_arrivals.incomplete)
        m_arrivals.lastFrameMs = now;
    if (complete != m_arrivals.complete) {
        m_arrivals.rhythm.Note(static_cast<double>(now - m_arrivals.lastPictureMs) / 1000, m_settings);
        m_settings = orv::Facts();
        m_arrivals.lastPictureMs = now;
        m_markIsStale = true;
    }
    m_arrivals.complete = complete;
    m_arrivals.incomplete = incomplete;
}

qint64 PictureWatch::PatienceMs() const
{
    const double seconds = orv::PatienceSeconds(m_arrivals.rhythm.UsualPauseSeconds());
    return static_cast<qint64>(seconds * 1000) + kTickMs / 2;
}

bool PictureWatch::LacksPictures() const
{
    return m_clock.elapsed() - m_arrivals.lastPictureMs >= PatienceMs();
}

void PictureWatch::Look()
{
    NoteArrivals();
    const qint64 now = m_clock.elapsed();
    const bool inTrouble = LacksPictures() || ShowsNothing();
    if (!inTrouble)
        Tell(std::nullopt);
    if (m_markIsStale && now - m_arrivals.lastPictureMs >= kSuspicionMs) {
        m_mark = Now();
        m_markIsStale = false;
    }
    if (IsAsking())
        CheckSilence();
    else if (inTrouble && now - m_mark.ms >= kLeastSpanMs && (!m_isTelling || now - m_askedMs >= kAskAgainMs))
        Ask();
}

PictureWatch::Mark PictureWatch::Now()
{
    OrvCam::Stream *const stream = m_device->GetStreamByIndex(0);
    return {m_clock.elapsed(), stream ? stream->GetStatistics() : OrvCam::StreamStatistics(), orv::ReadHostCounts()};
}

// Asking

void PictureWatch::Ask()
{
    m_askedMs = m_clock.elapsed();
    m_answeredMs = m_askedMs;
    // Where frames come, none waits for a trigger that would have to be looked for.
    const bool lacksFrames = m_askedMs - m_arrivals.lastFrameMs >= PatienceMs();
    const auto ask = [this, lacksFrames, triggers = m_triggers, round = m_round, clock = m_clock]() mutable {
        orv::Facts facts;
        orv::GatherCamera(*m_device, facts, lacksFrames ? &triggers : nullptr, [&] { m_answeredMs = clock.elapsed(); });
        orv::GatherHost(facts);
        const auto answer = [this, facts, triggers, round] {
            if (round == m_round)
                OnAnswer(facts, triggers);
        };
        QMetaObject::invokeMethod(this, answer, Qt::QueuedConnection);
    };
    try {
        m_thread = std::thread(ask);
    } catch (const std::system_error &) {
        LogFormatted(LogLevel::Warning, 0, "PictureWatch::Ask(): the system has no thread left");
    }
}

void PictureWatch::OnAnswer(const orv::Facts &answer, const orv::TriggerLook &triggers)
{
    m_thread.join(); // sending the answer was its last act
    NoteArrivals();
    m_triggers = triggers;
    if (LacksPictures())
        m_settings = answer;
    if (LacksPictures() || ShowsNothing())
        Judge(answer);
}

/// Called while a question is open.
void PictureWatch::CheckSilence()
{
    const qint64 now = m_clock.elapsed();
    const qint64 answeredMs = m_answeredMs;
    if (m_isTelling || m_silentMs == answeredMs || now - answeredMs < kSilenceMs - kPatienceMs ||
        now - m_arrivals.lastPictureMs < std::max(kSilenceMs, PatienceMs()))
        return;
    m_silentMs = answeredMs; // once is enough: looking at the host takes a while, and nobody may want to know
    orv::Facts facts;
    facts.camera = m_device->GetDescription();
    facts.isOpen = true;
    facts.isSilent = true;
    orv::GatherHost(facts);
    Judge(facts);
}

void PictureWatch::Judge(orv::Facts facts)
{
    const Mark mark = Now();
    facts.isStreaming = true;
    facts.streamingSeconds = static_cast<double>(mark.ms) / 1000;
    facts.secondsSinceFrame = static_cast<double>(mark.ms - m_arrivals.lastFrameMs) / 1000;
    facts.usualPauseSeconds = m_arrivals.rhythm.UsualPauseSeconds();
    const auto count = [](long now, long before) { return static_cast<std::uint64_t>(std::max(0L, now - before)); };
    facts.completeFrames = count(m_arrivals.complete, m_arrivals.completeBefore);
    facts.incompleteFrames = count(m_arrivals.incomplete, m_arrivals.incompleteBefore);
    facts.stream = orv::Since(m_mark.stream, mark.stream);
    facts.host = orv::Since(m_mark.host, mark.host);
    facts.countedSeconds = static_cast<double>(mark.ms - m_mark.ms) / 1000;
    const bool lacksPictures = LacksPictures();
    if (!lacksPictures) {
        const orv::MutexLock lock(m_levelsMutex);
        facts.hasPicture = m_levels.hasPicture;
        facts.darkShare = m_levels.darkShare;
        facts.saturatedShare = m_levels.saturatedShare;
    }
    for (const orv::Diagnosis &diagnosis : orv::Diagnose(facts)) {
        if (IsOfContent(diagnosis.cause) == lacksPictures)
            continue;
        // Of several causes the first is told; once it was closed, so are the lesser ones.
        return Tell(m_dismissed.count(diagnosis.cause) ? std::nullopt : std::optional<orv::Diagnosis>(diagnosis));
    }
    Tell(std::nullopt);
}

void PictureWatch::Tell(const std::optional<orv::Diagnosis> &diagnosis)
{
    if (diagnosis) {
        if (!m_isTelling)
            LogFormatted(LogLevel::Warning, 0, "PictureWatch: %s: %s", orv::NameOf(diagnosis->cause),
                         diagnosis->finding.c_str());
        m_isTelling = true;
        emit signalDiagnosis(*diagnosis);
    } else if (m_isTelling) {
        m_isTelling = false;
        emit signalAllWell();
    }
}
