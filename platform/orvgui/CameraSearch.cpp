#include "orvgui/CameraSearch.h"

#include "base/Mutex.h"
#include "orvdoctor/Diagnosis.h"

#include <QCoreApplication>
#include <QEvent>

#include <optional>
#include <system_error>

namespace OrvGui {
namespace {

constexpr unsigned int kAllInterfaceTypes = 255;

class ResultEvent : public QEvent {
public:
    explicit ResultEvent(SearchResult result) : QEvent(QEvent::User), m_result(std::move(result)) {}
    const SearchResult m_result;
};

/// A tunnel that carries no search is nothing to trouble anybody with.
void DropHarmlessFailures(SearchResult &result)
{
    std::optional<orv::Facts> host;
    for (auto &[interface, cameras] : result.interfaces) {
        if (interface.searchFailure.empty())
            continue;
        if (!host)
            orv::GatherHost(host.emplace());
        if (!orv::MayHideCameras({interface.text, interface.searchFailure}, host->interfaces))
            interface.searchFailure.clear();
    }
}

SearchResult Search(OrvCam::System *system)
{
    SearchResult result;
    OrvCam::InterfaceList *interfaces = system->GetInterfaceList(kAllInterfaceTypes);
    if (!interfaces)
        return result;
    result.searchable = true;
    for (OrvCam::DeviceList *devices = interfaces->First(); devices; devices = interfaces->Next()) {
        FoundInterface found{devices->Interface(), {}};
        for (const OrvCam::DeviceDescription *device = devices->First(); device; device = devices->Next())
            found.cameras.push_back(*device);
        result.interfaces.push_back(std::move(found));
    }
    interfaces->Release();
    DropHarmlessFailures(result);
    return result;
}

/// Owns the thread of a search that nobody waits for any more, until the search ends or the application does.
/// Child of the application object. GUI thread.
class Finisher : public QObject {
public:
    Finisher() : QObject(QCoreApplication::instance()) {}
    ~Finisher() override
    {
        if (m_thread.joinable())
            m_thread.join();
    }

    void Take(std::thread thread) { m_thread = std::move(thread); }

protected:
    /// The result: the thread is at its end.
    void customEvent(QEvent *) override
    {
        m_thread.join();
        deleteLater();
    }

private:
    std::thread m_thread;
};

} // namespace

/// Where one search leaves its result. Any thread.
class CameraSearch::Mailbox {
public:
    explicit Mailbox(QObject *receiver) : m_receiver(receiver) {}

    /// Sends the result to another receiver; the first one is not touched any more.
    /// \return false when the result has been sent already.
    bool Redirect(QObject *receiver) EXCLUDES(m_mutex)
    {
        orv::MutexLock lock(m_mutex);
        m_receiver = receiver;
        return !m_sent;
    }

    /// The last thing that the thread of the search does.
    void Send(SearchResult result) EXCLUDES(m_mutex)
    {
        auto event = std::make_unique<ResultEvent>(std::move(result));
        // The lock keeps the receiver alive during the call, which only queues the event.
        orv::MutexLock lock(m_mutex);
        m_sent = true;
        QCoreApplication::postEvent(m_receiver, event.release());
    }

private:
    orv::Mutex m_mutex;
    QObject *m_receiver GUARDED_BY(m_mutex);
    bool m_sent GUARDED_BY(m_mutex) = false;
};

CameraSearch::CameraSearch(OrvCam::System *system, QObject *parent) : QObject(parent), m_system(system) {}

CameraSearch::~CameraSearch()
{
    if (!m_thread.joinable())
        return;
    auto finisher = std::make_unique<Finisher>();
    if (m_mailbox->Redirect(finisher.get()))
        finisher.release()->Take(std::move(m_thread));
    else
        m_thread.join();
}

void CameraSearch::Start()
{
    if (IsRunning())
        return;
    m_running = true;
    m_mailbox = std::make_shared<Mailbox>(this);
    try {
        m_thread = std::thread([system = m_system, mailbox = m_mailbox] {
            SearchResult result;
            try {
                result = Search(system);
            } catch (...) {
                // No exception leaves the thread; an empty result says that nothing could be searched.
            }
            mailbox->Send(std::move(result));
        });
    } catch (const std::system_error &) {
        SearchResult none;
        none.failed = true;
        m_mailbox->Send(std::move(none));
    }
}

void CameraSearch::customEvent(QEvent *event)
{
    if (m_thread.joinable())
        m_thread.join(); // sending was its last act
    m_running = false;
    emit signalFinished(static_cast<ResultEvent *>(event)->m_result);
}

} // namespace OrvGui
