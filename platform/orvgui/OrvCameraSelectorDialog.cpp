#include "orvgui/OrvCameraSelectorDialog.h"

#include "orvdoctor/Addresses.h"
#include "orvgui/CameraSearch.h"
#include "orvgui/CameraState.h"
#include "orvgui/CameraTree.h"
#include "orvgui/SetAddressDialog.h"
#include "orvgui/SoftwareCamera.h"

#include <QDialogButtonBox>
#include <QGuiApplication>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QScreen>
#include <QSettings>
#include <QShortcut>
#include <QShowEvent>
#include <QTimer>
#include <QVBoxLayout>

#include <algorithm>
#include <optional>

namespace OrvGui {
namespace {

/// Pause between two searches.
constexpr int kSearchPauseMs = 3000;
/// A camera stays listed when one search by itself misses it; after "Refresh" the list is exact.
constexpr int kToleratedMisses = 1;

constexpr QSize kMinimumSize(720, 420);
constexpr QSize kFirstSize(900, 480);

/// What identifies a camera between sessions.
struct CameraName {
    std::string vendor, model, serial;

    bool IsOf(const OrvCam::DeviceDescription &camera) const
    {
        return camera.vendor == vendor && camera.model == model && camera.serial == serial;
    }
};

/// The dialog's group in the settings.
class Settings {
public:
    Settings() : m_settings(QStringLiteral("Zelkor"), QStringLiteral("OrvPlayer"))
    {
        m_settings.beginGroup(QStringLiteral("CameraSelector"));
    }

    CameraName LastUsed() const { return {Text("vendor"), Text("model"), Text("serial")}; }

    void SetLastUsed(const OrvCam::DeviceDescription &camera)
    {
        m_settings.setValue("vendor", QString::fromStdString(camera.vendor));
        m_settings.setValue("model", QString::fromStdString(camera.model));
        m_settings.setValue("serial", QString::fromStdString(camera.serial));
    }

    QSize WindowSize() const { return m_settings.value("size", kFirstSize).toSize(); }
    void SetWindowSize(const QSize &size) { m_settings.setValue("size", size); }

private:
    std::string Text(const char *key) const { return m_settings.value(key).toString().toStdString(); }

    QSettings m_settings;
};

bool HasFailed(const FoundInterface &found)
{
    return !found.description.searchFailure.empty();
}

} // namespace

class OrvCameraSelectorDialog::Private {
public:
    Private(OrvCameraSelectorDialog *dialog, OrvCam::System *system) : m_dialog(dialog), m_system(system)
    {
        Build();
        m_pause.setSingleShot(true);
        m_pause.setInterval(kSearchPauseMs);
        if (system)
            m_search.emplace(system);
        else
            ShowNoProducer();
        Connect();
        ShowSelection();
    }

    void StartSearching()
    {
        m_chosen.reset();
        m_userSelected = false;
        Search();
    }

    void StopSearching() { m_pause.stop(); }

    bool Choose()
    {
        const OrvCam::DeviceDescription *selected = m_tree->Selected();
        if (!selected || !IsUsable(*selected))
            return false;
        m_chosen = *selected;
        Settings().SetLastUsed(*m_chosen);
        return true;
    }

    const OrvCam::DeviceDescription *Chosen() const { return m_chosen ? &*m_chosen : nullptr; }

private:
    void Build();
    QWidget *BuildSearchRow();
    void Connect();

    void Search()
    {
        if (!m_search)
            return;
        m_pause.stop();
        m_search->Start();
        ShowSearching(true);
        if (m_tree->topLevelItemCount() == 0 && !m_hasResult)
            ShowMessage(tr("Searching for cameras..."), {});
    }

    /// The user wants to know now: a search that is under way may have asked before the camera was plugged in.
    void Refresh()
    {
        m_exactSearches = m_search && m_search->IsRunning() ? 2 : 1;
        Search();
    }

    void OnSearchFinished(const SearchResult &result)
    {
        m_hasResult = true;
        ShowSearching(false);
        if (!result.failed) // which says nothing about the cameras
            m_tree->Show(result, m_exactSearches == 1 ? 0 : kToleratedMisses);
        Preselect();
        ShowSelection();
        ShowInterfaces(result);
        if (m_tree->HasCameras())
            HideMessage();
        else if (result.failed)
            ShowMessage(tr("Cameras cannot be searched."),
                        tr("The system has no resources left for a search. Close other programs, then press Refresh."));
        else if (!result.searchable)
            ShowNoProducer();
        else
            ShowNoCamera(result);
        SearchAgain();
    }

    void SearchAgain()
    {
        if (m_exactSearches > 0)
            --m_exactSearches;
        if (!m_dialog->isVisible())
            return;
        if (m_exactSearches > 0)
            Search();
        else
            m_pause.start();
    }

    void Preselect()
    {
        if (m_userSelected || m_tree->SelectFirst([lastUsed = Settings().LastUsed()](const auto &camera) {
                return IsUsable(camera) && lastUsed.IsOf(camera);
            }))
            return;
        if (!m_tree->Selected() && m_tree->Count(IsUsable) == 1)
            m_tree->SelectFirst(IsUsable);
    }

    void ShowSelection()
    {
        const OrvCam::DeviceDescription *selected = m_tree->Selected();
        m_connect->setEnabled(selected && IsUsable(*selected));
        m_setAddress->setVisible(selected && NeedsAddress(*selected));
        m_advice->setText(selected ? StateAdvice(*selected) : m_softwareProblem);
    }

    /// The addresses of the other cameras that are listed.
    std::vector<std::uint32_t> TakenAddresses(const OrvCam::DeviceDescription &camera) const
    {
        std::vector<std::uint32_t> taken;
        m_tree->Count([&](const OrvCam::DeviceDescription &other) {
            const auto address = orv::ParseIpv4(other.address);
            if (address && other.id != camera.id)
                taken.push_back(*address);
            return true;
        });
        return taken;
    }

    void SetAddress()
    {
        const OrvCam::DeviceDescription *selected = m_tree->Selected();
        if (!selected || !m_system || !NeedsAddress(*selected))
            return;
        const OrvCam::DeviceDescription camera = *selected; // searches go on meanwhile
        SetAddressDialog dialog(m_system, camera, SetAddressDialog::InterfaceOf(camera), TakenAddresses(camera),
                                m_dialog);
        if (dialog.exec() == QDialog::Accepted)
            Refresh();
    }

    void OnDoubleClick()
    {
        const OrvCam::DeviceDescription *selected = m_tree->Selected();
        if (selected && NeedsAddress(*selected))
            SetAddress();
        else
            m_dialog->accept();
    }

    void ShowSearching(bool searching)
    {
        m_searchingText->setVisible(searching);
        m_searchingBar->setVisible(searching);
    }

    void ShowInterfaces(const SearchResult &result)
    {
        QStringList names;
        for (const FoundInterface &found : result.interfaces)
            if (!HasFailed(found))
                names += InterfaceText(found.description).toHtmlEscaped().replace(' ', QStringLiteral("&nbsp;"));
        names.removeDuplicates();
        m_interfaces->setText(names.isEmpty() ? QString() : tr("Searched: %1").arg(names.join(QStringLiteral(", "))));
    }

    void ShowMessage(const QString &title, const QString &hint)
    {
        LeaveRoomForHeadings();
        m_message->setText(QStringLiteral("<p style=\"font-size:large\"><b>%1</b></p><p>%2</p>").arg(title, hint));
        m_message->show();
        m_software->hide();
    }

    /// Those of interfaces whose search failed stand over the message.
    void LeaveRoomForHeadings()
    {
        const QTreeWidgetItem *last = m_tree->topLevelItem(m_tree->topLevelItemCount() - 1);
        m_overTree->setContentsMargins(0, last ? m_tree->visualItemRect(last).bottom() : 0, 0, 0);
    }

    void HideMessage()
    {
        m_message->hide();
        m_software->hide();
    }

    void ShowNoCamera(const SearchResult &result)
    {
        const bool hasFailed = std::any_of(result.interfaces.begin(), result.interfaces.end(), HasFailed);
        ShowMessage(tr("No camera found."),
                    hasFailed ? tr("Not all interfaces could be searched, see above; \"orvcam doctor\" in a terminal "
                                   "tells what to do. Then press Refresh.")
                              : tr("Check the camera's cable and power, and the network connection of network cameras. "
                                   "Then press Refresh."));
        m_software->setVisible(SoftwareCamera::Instance().IsInstalled());
    }

    void StartSoftwareCamera()
    {
        m_software->setEnabled(false);
        m_softwareProblem.clear();
        SoftwareCamera::Instance().Start();
    }

    void OnSoftwareCameraFailed(const QString &reason)
    {
        m_software->setEnabled(true);
        m_softwareProblem = tr("The software camera did not start: %1").arg(reason);
        ShowSelection();
    }

    void ShowNoProducer()
    {
        ShowMessage(tr("Cameras cannot be searched."),
                    tr("No transport library (a GenTL producer, *.cti) could be loaded. Install one beside the "
                       "program, or name its folder in the environment variable GENICAM_GENTL64_PATH, and start the "
                       "program again."));
    }

    OrvCameraSelectorDialog *const m_dialog;
    OrvCam::System *const m_system;
    std::optional<CameraSearch> m_search; ///< none without a system
    QTimer m_pause;
    std::optional<OrvCam::DeviceDescription> m_chosen;
    bool m_userSelected = false; ///< since the dialog was shown
    bool m_hasResult = false;
    QString m_softwareProblem; ///< why the software camera did not start when it was last asked to
    int m_exactSearches = 0;   ///< searches until the list must be exact, 0: "Refresh" was not pressed

    CameraTree *m_tree = nullptr;
    QVBoxLayout *m_overTree = nullptr; ///< what stands over a tree without cameras
    QLabel *m_message = nullptr;
    QPushButton *m_software = nullptr; ///< under the message when there is no camera
    QLabel *m_searchingText = nullptr;
    QProgressBar *m_searchingBar = nullptr;
    QPushButton *m_refresh = nullptr;
    QLabel *m_advice = nullptr;
    QPushButton *m_setAddress = nullptr; ///< for a camera of a foreign subnet
    QLabel *m_interfaces = nullptr;
    QDialogButtonBox *m_buttons = nullptr;
    QPushButton *m_connect = nullptr;

    QObject m_slots; ///< ends the connections to this object before the dialog deletes its widgets
};

void OrvCameraSelectorDialog::Private::Build()
{
    m_tree = new CameraTree;
    m_tree->setObjectName(QStringLiteral("cameras"));
    m_message = new QLabel;
    m_message->setObjectName(QStringLiteral("message"));
    m_message->setAlignment(Qt::AlignCenter);
    m_message->setWordWrap(true);
    m_software = new QPushButton(tr("&Start software camera"));
    m_software->setObjectName(QStringLiteral("softwareCamera"));
    m_software->setToolTip(tr("A camera in software on this computer, to try the program without one."));
    m_overTree = new QVBoxLayout(m_tree->viewport());
    m_overTree->addStretch();
    m_overTree->addWidget(m_message);
    m_overTree->addWidget(m_software, 0, Qt::AlignHCenter);
    m_overTree->addStretch();
    HideMessage();

    m_advice = new QLabel;
    m_advice->setObjectName(QStringLiteral("advice"));
    m_advice->setTextFormat(Qt::PlainText); // what a camera says of itself is not markup
    m_advice->setWordWrap(true);
    m_advice->setMinimumHeight(2 * m_advice->fontMetrics().lineSpacing()); // the list does not jump with the text
    m_setAddress = new QPushButton(tr("Set a&ddress..."));
    m_setAddress->setObjectName(QStringLiteral("setAddress"));
    m_setAddress->setAutoDefault(false);
    m_setAddress->setToolTip(tr("Gives the camera an address in this computer's network."));
    m_setAddress->hide();
    auto *adviceRow = new QHBoxLayout;
    adviceRow->addWidget(m_advice, 1);
    adviceRow->addWidget(m_setAddress, 0, Qt::AlignTop);
    m_interfaces = new QLabel;
    m_interfaces->setObjectName(QStringLiteral("searched"));
    m_interfaces->setTextFormat(Qt::RichText);
    m_interfaces->setWordWrap(true);
    QPalette muted = m_dialog->palette();
    muted.setColor(QPalette::WindowText, CameraTree::MutedText(muted));
    m_interfaces->setPalette(muted);
    m_buttons = new QDialogButtonBox(QDialogButtonBox::Cancel);
    m_connect = m_buttons->addButton(tr("&Connect"), QDialogButtonBox::AcceptRole);
    m_connect->setObjectName(QStringLiteral("connect"));

    auto *layout = new QVBoxLayout(m_dialog);
    QWidget *searchRow = BuildSearchRow();
    layout->addWidget(searchRow);
    layout->addWidget(m_tree, 1);
    layout->addLayout(adviceRow);
    layout->addWidget(m_interfaces);
    layout->addWidget(m_buttons);
    m_connect->setDefault(true); // counts only once the button stands in its dialog
    QWidget::setTabOrder(m_tree, m_refresh);
    m_tree->setFocus();
}

QWidget *OrvCameraSelectorDialog::Private::BuildSearchRow()
{
    auto *row = new QWidget;
    auto *layout = new QHBoxLayout(row);
    layout->setContentsMargins(0, 0, 0, 0);
    auto *title = new QLabel(tr("Select the c&amera to connect:"));
    title->setBuddy(m_tree);
    m_searchingText = new QLabel(tr("Searching..."));
    m_searchingText->setObjectName(QStringLiteral("searching"));
    m_searchingBar = new QProgressBar;
    m_searchingBar->setRange(0, 0); // runs without an end
    m_searchingBar->setTextVisible(false);
    m_searchingBar->setFixedSize(80, m_searchingText->fontMetrics().height());
    m_refresh = new QPushButton(tr("&Refresh"));
    m_refresh->setObjectName(QStringLiteral("refresh"));
    m_refresh->setAutoDefault(false);
    m_refresh->setToolTip(tr("Search again now (F5)"));
    layout->addWidget(title, 1);
    layout->addWidget(m_searchingText);
    layout->addWidget(m_searchingBar);
    layout->addWidget(m_refresh);
    ShowSearching(false);
    return row;
}

void OrvCameraSelectorDialog::Private::Connect()
{
    QObject::connect(m_buttons, &QDialogButtonBox::accepted, m_dialog, &QDialog::accept);
    QObject::connect(m_buttons, &QDialogButtonBox::rejected, m_dialog, &QDialog::reject);
    QObject::connect(m_tree, &CameraTree::signalCameraDoubleClicked, &m_slots, [this] { OnDoubleClick(); });
    QObject::connect(m_tree, &CameraTree::itemSelectionChanged, &m_slots, [this] {
        m_userSelected = true;
        ShowSelection();
    });
    m_refresh->setEnabled(m_search.has_value());
    if (!m_search)
        return;
    auto *key = new QShortcut(QKeySequence(Qt::Key_F5), m_dialog);
    QObject::connect(key, &QShortcut::activated, &m_slots, [this] { Refresh(); });
    QObject::connect(m_refresh, &QPushButton::clicked, &m_slots, [this] { Refresh(); });
    QObject::connect(m_setAddress, &QPushButton::clicked, &m_slots, [this] { SetAddress(); });
    QObject::connect(&m_pause, &QTimer::timeout, &m_slots, [this] { Search(); });
    SoftwareCamera *software = &SoftwareCamera::Instance();
    QObject::connect(m_software, &QPushButton::clicked, &m_slots, [this] { StartSoftwareCamera(); });
    QObject::connect(software, &SoftwareCamera::signalStarted, &m_slots, [this] {
        m_software->setEnabled(true);
        Refresh();
    });
    QObject::connect(software, &SoftwareCamera::signalFailed, &m_slots,
                     [this](const QString &reason) { OnSoftwareCameraFailed(reason); });
    QObject::connect(&*m_search, &CameraSearch::signalFinished, &m_slots,
                     [this](const SearchResult &result) { OnSearchFinished(result); });
}

OrvCameraSelectorDialog::OrvCameraSelectorDialog(OrvCam::System *system, QWidget *parent)
    : QDialog(parent, Qt::Dialog | Qt::WindowTitleHint | Qt::WindowSystemMenuHint | Qt::WindowCloseButtonHint),
      d(std::make_unique<Private>(this, system))
{
    setWindowTitle(tr("Camera selection"));
    setMinimumSize(kMinimumSize);
    const QSize room = QGuiApplication::primaryScreen()->availableSize();
    resize(Settings().WindowSize().boundedTo(room).expandedTo(kMinimumSize));
}

OrvCameraSelectorDialog::~OrvCameraSelectorDialog() = default;

const OrvCam::DeviceDescription *OrvCameraSelectorDialog::selectedCamera() const
{
    return d->Chosen();
}

void OrvCameraSelectorDialog::accept()
{
    if (d->Choose())
        QDialog::accept();
}

void OrvCameraSelectorDialog::done(int result)
{
    d->StopSearching();
    Settings().SetWindowSize(size());
    QDialog::done(result);
}

void OrvCameraSelectorDialog::showEvent(QShowEvent *event)
{
    QDialog::showEvent(event);
    if (!event->spontaneous()) // not when it was merely minimized
        d->StartSearching();
}

} // namespace OrvGui
