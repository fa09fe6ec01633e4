#include "orvgui/CameraTree.h"

#include "orvgui/CameraState.h"

#include <QHeaderView>
#include <QSignalBlocker>
#include <QStyledItemDelegate>
#include <QTextDocument>

#include <algorithm>
#include <tuple>

namespace OrvGui {
namespace {

enum Column { kModel, kSerial, kUserName, kAddress, kState, kColumnCount };
enum ItemType { kInterfaceType = QTreeWidgetItem::UserType, kCameraType };

constexpr int kWidestColumnPx = 280;

/// Tool tips take text for markup by its looks, and this text comes from cameras and producers.
QString PlainToolTip(const QString &text)
{
    return text.isEmpty() ? text : Qt::convertFromPlainText(text, Qt::WhiteSpaceNormal);
}

constexpr int kColumnGapPx = 12;

auto SortKey(const OrvCam::DeviceDescription &camera)
{
    return std::tie(camera.model, camera.serial, camera.id);
}

/// Rows with some air, easier to hit.
class RowDelegate : public QStyledItemDelegate {
public:
    using QStyledItemDelegate::QStyledItemDelegate;

    QSize sizeHint(const QStyleOptionViewItem &option, const QModelIndex &index) const override
    {
        return QStyledItemDelegate::sizeHint(option, index) + QSize(0, option.fontMetrics.height() / 3);
    }
};

} // namespace

/// One camera. `m_misses` counts the searches in a row that did not find it.
class CameraTree::CameraItem : public QTreeWidgetItem {
public:
    CameraItem() : QTreeWidgetItem(kCameraType) {}

    void Show(const OrvCam::DeviceDescription &camera)
    {
        m_camera = camera;
        m_misses = 0;
        const std::string &name = !camera.model.empty() ? camera.model : camera.id;
        setText(kModel, QString::fromStdString(name));
        setText(kSerial, QString::fromStdString(camera.serial));
        setText(kUserName, QString::fromStdString(camera.userName));
        setText(kAddress, QString::fromStdString(camera.address));
        setText(kState, StateText(camera));
        const QBrush muted = MutedText(treeWidget()->palette());
        for (int column = 0; column < kColumnCount; ++column) {
            setToolTip(column, PlainToolTip(StateAdvice(camera)));
            setForeground(column, IsUsable(camera) ? QBrush() : muted);
        }
    }

    OrvCam::DeviceDescription m_camera;
    int m_misses = 0;
};

/// Heading above the cameras of one interface.
class CameraTree::InterfaceItem : public QTreeWidgetItem {
public:
    InterfaceItem(QTreeWidget *tree, const OrvCam::InterfaceDescription &interface)
        : QTreeWidgetItem(tree, kInterfaceType), m_interface(interface)
    {
        setFlags(Qt::ItemIsEnabled);
        QFont bold = tree->font();
        bold.setBold(true);
        setFont(0, bold);
        setFirstColumnSpanned(true);
        setExpanded(true);
    }

    bool Is(const OrvCam::InterfaceDescription &interface) const
    {
        return interface.id == m_interface.id && interface.producer == m_interface.producer;
    }

    /// How the last search through it ended; nothing is known of it when the search does not name it.
    void ShowFailure(const std::string &failure)
    {
        m_interface.searchFailure = failure;
        setText(0, HeadingText(m_interface));
        setToolTip(0, PlainToolTip(HeadingAdvice(m_interface)));
        setIcon(0, HasFailed() ? treeWidget()->style()->standardIcon(QStyle::SP_MessageBoxWarning) : QIcon());
    }

    bool HasFailed() const { return !m_interface.searchFailure.empty(); }

    CameraItem *Camera(int row) const { return static_cast<CameraItem *>(child(row)); }

    CameraItem *FindOrAdd(const OrvCam::DeviceDescription &camera)
    {
        int row = 0;
        for (int i = 0; i < childCount(); ++i) {
            if (Camera(i)->m_camera.id == camera.id)
                return Camera(i);
            if (SortKey(Camera(i)->m_camera) < SortKey(camera))
                row = i + 1;
        }
        auto *item = new CameraItem;
        insertChild(row, item);
        return item;
    }

    OrvCam::InterfaceDescription m_interface;
};

CameraTree::CameraTree(QWidget *parent) : QTreeWidget(parent)
{
    setHeaderLabels({tr("Model"), tr("Serial"), tr("User name"), tr("Address"), tr("State")});
    setSelectionMode(QAbstractItemView::SingleSelection);
    setItemsExpandable(false);
    setRootIsDecorated(false);
    setAllColumnsShowFocus(true);
    setUniformRowHeights(true);
    setItemDelegate(new RowDelegate(this));
    header()->setSectionsMovable(false);
    header()->setDefaultSectionSize(header()->minimumSectionSize());
    WidenColumns();
    connect(this, &QTreeWidget::itemDoubleClicked, this, [this](const QTreeWidgetItem *item) {
        if (item->type() == kCameraType)
            emit signalCameraDoubleClicked();
    });
}

QColor CameraTree::MutedText(const QPalette &palette)
{
    constexpr int kTextPercent = 60;
    const QColor text = palette.color(QPalette::Active, QPalette::Text);
    const QColor base = palette.color(QPalette::Active, QPalette::Base);
    const auto mix = [](int a, int b) { return (kTextPercent * a + (100 - kTextPercent) * b) / 100; };
    return QColor(mix(text.red(), base.red()), mix(text.green(), base.green()), mix(text.blue(), base.blue()));
}

void CameraTree::Show(const SearchResult &result, int toleratedMisses)
{
    const QSignalBlocker onlyTheUser(this);
    for (CameraItem *camera : Cameras())
        ++camera->m_misses;
    for (int i = 0; i < topLevelItemCount(); ++i)
        Heading(i)->ShowFailure({});
    for (const FoundInterface &found : result.interfaces)
        ShowInterface(found);
    RemoveMissing(toleratedMisses);
    RemoveNeedlessHeadings();
    WidenColumns();
}

void CameraTree::ShowInterface(const FoundInterface &found)
{
    if (found.cameras.empty() && found.description.searchFailure.empty())
        return;
    InterfaceItem *heading = FindOrAdd(found.description);
    heading->ShowFailure(found.description.searchFailure);
    for (const OrvCam::DeviceDescription &camera : found.cameras)
        heading->FindOrAdd(camera)->Show(camera);
}

CameraTree::InterfaceItem *CameraTree::Heading(int index) const
{
    return static_cast<InterfaceItem *>(topLevelItem(index));
}

CameraTree::InterfaceItem *CameraTree::FindOrAdd(const OrvCam::InterfaceDescription &interface)
{
    for (int i = 0; i < topLevelItemCount(); ++i) {
        if (Heading(i)->Is(interface))
            return Heading(i);
    }
    return new InterfaceItem(this, interface);
}

void CameraTree::RemoveMissing(int toleratedMisses)
{
    for (CameraItem *camera : Cameras()) {
        if (camera->m_misses <= toleratedMisses)
            continue;
        // A view selects a neighbour when its current row goes, unless there is no current row.
        if (camera == currentItem())
            setCurrentItem(nullptr);
        delete camera;
    }
}

void CameraTree::RemoveNeedlessHeadings()
{
    for (int i = topLevelItemCount() - 1; i >= 0; --i) {
        if (Heading(i)->childCount() == 0 && !Heading(i)->HasFailed())
            delete Heading(i);
    }
}

/// Columns only grow, so that the table does not twitch and a width that the user chose stays.
void CameraTree::WidenColumns()
{
    for (int column = 0; column < kState; ++column) {
        const int wanted =
            qMin(qMax(sizeHintForColumn(column), header()->sectionSizeHint(column)) + kColumnGapPx, kWidestColumnPx);
        setColumnWidth(column, qMax(columnWidth(column), wanted));
    }
}

std::vector<CameraTree::CameraItem *> CameraTree::Cameras() const
{
    std::vector<CameraItem *> cameras;
    for (int i = 0; i < topLevelItemCount(); ++i) {
        for (int row = 0; row < Heading(i)->childCount(); ++row)
            cameras.push_back(Heading(i)->Camera(row));
    }
    return cameras;
}

int CameraTree::Count(const CameraFilter &filter) const
{
    const std::vector<CameraItem *> cameras = Cameras();
    return int(std::count_if(cameras.begin(), cameras.end(), [&](const CameraItem *c) { return filter(c->m_camera); }));
}

const OrvCam::DeviceDescription *CameraTree::Selected() const
{
    const QList<QTreeWidgetItem *> items = selectedItems();
    if (items.isEmpty() || items.first()->type() != kCameraType)
        return nullptr;
    return &static_cast<CameraItem *>(items.first())->m_camera;
}

bool CameraTree::SelectFirst(const CameraFilter &filter)
{
    for (CameraItem *camera : Cameras()) {
        if (!filter(camera->m_camera))
            continue;
        const QSignalBlocker onlyTheUser(this);
        setCurrentItem(camera);
        return true;
    }
    return false;
}

QModelIndex CameraTree::moveCursor(CursorAction action, Qt::KeyboardModifiers modifiers)
{
    const QModelIndex wanted = QTreeWidget::moveCursor(action, modifiers);
    const QTreeWidgetItem *item = itemFromIndex(wanted);
    if (!item || item->type() == kCameraType)
        return wanted;
    if (action == MoveLeft || action == MoveRight)
        return currentIndex();
    const bool upwards = action == MoveUp || action == MovePrevious || action == MovePageUp;
    QModelIndex next = wanted;
    while (next.isValid() && itemFromIndex(next)->type() != kCameraType)
        next = upwards ? indexAbove(next) : indexBelow(next);
    if (next.isValid())
        return next;
    scrollTo(wanted); // above the first camera: at least show its heading
    return currentIndex();
}

} // namespace OrvGui
