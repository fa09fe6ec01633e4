#pragma once

#include "orvdoctor/AddressChoice.h"

#include <QDialog>

#include <thread>
#include <vector>

class QDialogButtonBox;
class QLabel;
class QLineEdit;
class QPushButton;

namespace OrvGui {

/// Gives a camera that no connection can reach another address (force IP).
///
/// Proposes one in the subnet of the interface that the camera was found on, takes only what would make the camera
/// reachable from there, and says in words what went wrong. The camera is asked on a thread of its own; until it has
/// answered the dialog cannot be closed, which takes a few seconds at most. Accepted: the camera has the address, until
/// it is switched off. GUI thread.
class SetAddressDialog : public QDialog {
    Q_OBJECT
public:
    /// \param system not null, outlives the dialog
    /// \param interface  of this host, that the camera was found on; its subnet is where the address must lie.
    /// \param taken  addresses that others have, as far as is known.
    SetAddressDialog(OrvCam::System *system, const OrvCam::DeviceDescription &camera,
                     const orv::HostInterfaceFacts &interface, std::vector<std::uint32_t> taken,
                     QWidget *parent = nullptr);
    ~SetAddressDialog() override;

    /// The interface of this host; where the system does not know it, its address and a subnet of 254 hosts are taken
    /// from the interface's text. \return an interface with the address 0 when that tells nothing either.
    static orv::HostInterfaceFacts InterfaceOf(const OrvCam::DeviceDescription &camera);

    void accept() override;
    void reject() override;

private:
    void Build();
    void Propose();
    orv::AddressChoice Choice() const;
    /// What is wrong with what stands in the fields; empty when nothing is.
    QString Problem() const;
    void Validate();
    /// \param words  the library's for a failure
    void OnAnswer(int status, const std::string &words);
    QString FailureText(int status, const std::string &words) const;
    void ShowProblem(const QString &problem);
    void SetBusy(bool busy);

    OrvCam::System *const m_system;
    const OrvCam::DeviceDescription m_camera;
    const orv::HostInterfaceFacts m_interface;
    const std::vector<std::uint32_t> m_taken;
    std::thread m_thread; ///< waits for the camera

    QLineEdit *m_address = nullptr;
    QLineEdit *m_mask = nullptr;
    QLineEdit *m_gateway = nullptr;
    QLabel *m_problem = nullptr;
    QDialogButtonBox *m_buttons = nullptr;
    QPushButton *m_set = nullptr;
};

} // namespace OrvGui
