#pragma once

#include <QDialog>

#include <memory>

namespace OrvCam {
struct DeviceDescription;
class System;
} // namespace OrvCam

namespace OrvGui {

/// Modal dialog that lists the cameras on all interfaces and lets a person pick one.
///
/// While it is open it searches again every few seconds. Each search runs on a thread of its own, so the window never
/// freezes, and changes only the rows that changed: selection and scroll position stay. The camera that was chosen last
/// is preselected when it appears and is free, otherwise the only free camera, until the user selects one. Cameras that
/// cannot be connected are listed with the reason.
///
/// The last choice and the window's size are kept in the settings of "Zelkor" "OrvPlayer", group "CameraSelector".
///
/// Closing and destroying the dialog do not wait for a search that is still running. Its thread is handed to the
/// application object, which waits for it when the program ends; until then it uses the system. The system must
/// therefore live longer than the application object. GUI thread.
class OrvCameraSelectorDialog : public QDialog {
    Q_OBJECT
public:
    /// \param system null when no producer could be loaded; the dialog then says so.
    explicit OrvCameraSelectorDialog(OrvCam::System *system, QWidget *parent = nullptr);
    ~OrvCameraSelectorDialog() override;

    /// The chosen camera after exec() was accepted, else null. Owned by the dialog, valid until it is shown again.
    const OrvCam::DeviceDescription *selectedCamera() const;

    /// Does nothing unless the selected camera can be connected.
    void accept() override;
    void done(int result) override;

protected:
    void showEvent(QShowEvent *event) override;

private:
    class Private;
    std::unique_ptr<Private> d;
};

} // namespace OrvGui
