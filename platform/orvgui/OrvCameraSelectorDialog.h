#pragma once

#include <QDialog>

#include <memory>

namespace OrvCam {
struct DeviceDescription;
class System;
} // namespace OrvCam

namespace OrvGui {

/// Modal dialog that lists interfaces and their cameras and lets a person pick one.
///
/// The search runs on a thread of its own and the list fills while it goes on, so the window never freezes. The camera
/// that was chosen last is preselected as soon as it appears. GUI thread.
class OrvCameraSelectorDialog : public QDialog {
    Q_OBJECT
public:
    explicit OrvCameraSelectorDialog(OrvCam::System *system, QWidget *parent = nullptr);
    /// Waits for a running search to end.
    ~OrvCameraSelectorDialog() override;

    /// The chosen camera after exec() was accepted, else null. Owned by the dialog.
    const OrvCam::DeviceDescription *selectedCamera() const;

private:
    class Private;
    std::unique_ptr<Private> d;
};

} // namespace OrvGui
