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
constexpr qint64 kSuspicionMs = 500; ///< without a picture: counts are read to compare later ones with
constexpr qint64 kPatienceMs = static_cast<qint64>(orv::kPatienceSeconds * 1000) + kTickMs / 2;
constexpr qint64 kLongestPatienceMs = 10000;
constexpr qint64 kPausesOfPatience = 3;
constexpr qint64 kSilenceMs = 1800; ///< without a picture and an answer
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
    m_arrivals.complete = ReadCount(m_grabber, "FramesAcquired");
    m_arrivals.incomplete = ReadCount(m_grabber, "FramesIncomp");
    m_known.reset();
    m_countsAreStale = true;
    m_clock.start();
    StopDisplaying();
    m_timer.start();
    Ask(Question::Counts);
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
        if (m_arrivals.hasPicture)
            m_arrivals.longestPauseMs = std::max(m_arrivals.longestPauseMs, now - m_arrivals.lastPictureMs);
        m_arrivals.hasPicture = true;
        m_arrivals.lastPictureMs = now;
        m_countsAreStale = true;
    }
    m_arrivals.complete = complete;
    m_arrivals.incomplete = incomplete;
}

qint64 PictureWatch::PatienceMs() const
{
    return std::max(kPatienceMs, std::min(kLongestPatienceMs, kPausesOfPatience * m_arrivals.longestPauseMs));
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
    if (IsAsking())
        return CheckSilence();
    if (inTrouble && (!m_isTelling || now - m_askedMs >= kAskAgainMs))
        Ask(Question::Everything);
    else if (m_countsAreStale && now - m_arrivals.lastPictureMs >= kSuspicionMs)
        Ask(Question::Counts);
}

// Asking

void PictureWatch::Ask(Question question)
{
    if (IsAsking())
        return;
    m_askedMs = m_clock.elapsed();
    m_asksEverything = question == Question::Everything;
    m_countsAreStale = m_countsAreStale && question == Question::Everything;
    const auto ask = [this, question, round = m_round] {
        orv::Facts facts;
        facts.camera = m_device->GetDescription();
        if (OrvCam::Stream *stream = m_device->GetStreamByIndex(0))
            facts.stream = stream->GetStatistics();
        orv::GatherHost(facts);
        if (question == Question::Everything)
            orv::GatherCamera(*m_device, facts);
        const auto answer = [this, facts, question, round] {
            if (round == m_round)
                OnAnswer(facts, question);
        };
        QMetaObject::invokeMethod(this, answer, Qt::QueuedConnection);
    };
    try {
        m_thread = std::thread(ask);
    } catch (const std::system_error &) {
        LogFormatted(LogLevel::Warning, 0, "PictureWatch::Ask(): the system has no thread left");
    }
}

void PictureWatch::OnAnswer(const orv::Facts &answer, Question question)
{
    m_thread.join(); // sending the answer was its last act
    NoteArrivals();
    if (question == Question::Counts) {
        m_before = answer.stream;
        m_known = answer;
        return;
    }
    m_known = answer;
    if (LacksPictures() || ShowsNothing())
        Judge(answer, true);
}

/// Called while a question is open.
void PictureWatch::CheckSilence()
{
    const qint64 now = m_clock.elapsed();
    if (!m_asksEverything || m_isTelling || !m_known || now - m_askedMs < kSilenceMs - kPatienceMs ||
        now - m_arrivals.lastPictureMs < std::max(kSilenceMs, PatienceMs()))
        return;
    orv::Facts facts = *m_known;
    facts.isOpen = true;
    facts.isSilent = true;
    Judge(facts, false);
}

void PictureWatch::Judge(orv::Facts facts, bool countsAreNew)
{
    const qint64 now = m_clock.elapsed();
    facts.isStreaming = true;
    facts.streamingSeconds = static_cast<double>(now) / 1000;
    facts.secondsSinceFrame = static_cast<double>(now - m_arrivals.lastFrameMs) / 1000;
    if (countsAreNew)
        facts.stream = orv::Since(m_before, facts.stream);
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
