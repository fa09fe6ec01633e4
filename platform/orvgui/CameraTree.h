#pragma once

#include "orvgui/CameraSearch.h"

#include <QTreeWidget>

#include <functional>

namespace OrvGui {

/// The found cameras, one row each, below a heading for their interface. An interface without cameras has none, unless
/// the search through it failed: then the heading says so, whether cameras are below it or not.
///
/// Show() changes rows in place, so that selection, scroll position and column widths survive a new search.
/// itemSelectionChanged tells of what the user did only, not of Show() and SelectFirst(). GUI thread.
class CameraTree : public QTreeWidget {
    Q_OBJECT
public:
    using CameraFilter = std::function<bool(const OrvCam::DeviceDescription &)>;

    explicit CameraTree(QWidget *parent = nullptr);

    /// For text of minor importance; unlike a style's disabled colour it is still easy to read.
    static QColor MutedText(const QPalette &palette);

    /// Brings the rows in line with a search. Discovery packets get lost: a camera goes when it was missing from more
    /// than `toleratedMisses` searches in a row. When the selected camera goes nothing is selected: another camera must
    /// not slip under the user's finger.
    void Show(const SearchResult &result, int toleratedMisses);

    bool HasCameras() const { return !Cameras().empty(); }
    int Count(const CameraFilter &filter) const;
    /// Null when no camera is selected. Valid until the next Show().
    const OrvCam::DeviceDescription *Selected() const;
    /// Selects the first camera that passes the filter. \return false, and changes nothing, when there is none.
    bool SelectFirst(const CameraFilter &filter);

signals:
    /// Double click on a camera.
    void signalCameraDoubleClicked();

protected:
    /// Steps over the headings.
    QModelIndex moveCursor(CursorAction action, Qt::KeyboardModifiers modifiers) override;

private:
    class CameraItem;
    class InterfaceItem;

    InterfaceItem *FindOrAdd(const OrvCam::InterfaceDescription &interface);
    InterfaceItem *Heading(int index) const;
    void ShowInterface(const FoundInterface &found);
    void RemoveMissing(int toleratedMisses);
    void RemoveNeedlessHeadings();
    void WidenColumns();
    std::vector<CameraItem *> Cameras() const;
};

} // namespace OrvGui
