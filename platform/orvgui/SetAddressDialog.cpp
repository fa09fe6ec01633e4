#include "orvgui/SetAddressDialog.h"

#include "orvdoctor/Addresses.h"
#include "orvgui/CameraState.h"
#include "orvgui/CameraTree.h"

#include <QDialogButtonBox>
#include <QFormLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QVBoxLayout>

#include <system_error>

namespace OrvGui {
namespace {

constexpr std::uint32_t kUsualMask = 0xFFFFFF00;
constexpr int kWidthInDigits = 62;
constexpr char kNoGateway[] = "0.0.0.0";

QString Text(std::uint32_t address)
{
    return QString::fromStdString(orv::Ipv4Text(address));
}

QString SubnetText(const orv::HostInterfaceFacts &interface)
{
    if (interface.address == 0)
        return SetAddressDialog::tr("not known");
    return QString::fromStdString(orv::SubnetText(interface.address & interface.subnetMask, interface.subnetMask));
}

QLabel *PlainLabel(const QString &text)
{
    auto *label = new QLabel(text);
    label->setTextFormat(Qt::PlainText); // what a camera says of itself is not markup
    label->setWordWrap(true);
    return label;
}

QLineEdit *AddressField(const char *name)
{
    auto *field = new QLineEdit;
    field->setObjectName(QString::fromLatin1(name));
    field->setMaxLength(15);
    return field;
}

} // namespace

SetAddressDialog::SetAddressDialog(OrvCam::System *system, const OrvCam::DeviceDescription &camera,
                                   const orv::HostInterfaceFacts &interface, std::vector<std::uint32_t> taken,
                                   QWidget *parent)
    : QDialog(parent, Qt::Dialog | Qt::WindowTitleHint | Qt::WindowSystemMenuHint | Qt::WindowCloseButtonHint),
      m_system(system), m_camera(camera), m_interface(interface), m_taken(std::move(taken))
{
    setWindowTitle(tr("Set the camera's address"));
    Build();
    Propose();
    Validate();
}

SetAddressDialog::~SetAddressDialog()
{
    if (m_thread.joinable())
        m_thread.join();
}

orv::HostInterfaceFacts SetAddressDialog::InterfaceOf(const OrvCam::DeviceDescription &camera)
{
    orv::Facts facts;
    orv::GatherHost(facts);
    if (const orv::HostInterfaceFacts *known = orv::InterfaceOf(camera, facts.interfaces))
        return *known;
    orv::HostInterfaceFacts told;
    told.name = camera.interface.text;
    told.address = orv::AddressOf(camera.interface).value_or(0);
    told.subnetMask = kUsualMask;
    return told;
}

void SetAddressDialog::Build()
{
    QStringList names;
    for (const std::string &name : {m_camera.vendor, m_camera.model, m_camera.serial})
        if (!name.empty())
            names += QString::fromStdString(name);
    auto *camera = PlainLabel(names.join(QLatin1Char(' ')));
    QFont bold = font();
    bold.setBold(true);
    camera->setFont(bold);

    m_address = AddressField("address");
    m_mask = AddressField("mask");
    m_gateway = AddressField("gateway");
    auto *form = new QFormLayout;
    form->setFieldGrowthPolicy(QFormLayout::ExpandingFieldsGrow);
    form->addRow(tr("Present address:"), PlainLabel(QString::fromStdString(m_camera.address)));
    form->addRow(tr("Found on:"), PlainLabel(InterfaceText(m_camera.interface)));
    form->addRow(tr("Network there:"), PlainLabel(SubnetText(m_interface)));
    form->addRow(tr("New &address:"), m_address);
    form->addRow(tr("Subnet &mask:"), m_mask);
    form->addRow(tr("&Gateway:"), m_gateway);
    m_gateway->setToolTip(tr("%1 for none").arg(QLatin1String(kNoGateway)));

    m_problem = PlainLabel(QString());
    m_problem->setObjectName(QStringLiteral("problem"));
    m_problem->setAlignment(Qt::AlignLeft | Qt::AlignTop);
    m_problem->setMinimumHeight(3 * m_problem->fontMetrics().lineSpacing()); // the fields do not jump with the text
    auto *note = PlainLabel(tr("The camera keeps this address until it is switched off."));
    QPalette muted = palette();
    muted.setColor(QPalette::WindowText, CameraTree::MutedText(muted));
    note->setPalette(muted);

    m_buttons = new QDialogButtonBox(QDialogButtonBox::Cancel);
    m_set = m_buttons->addButton(tr("&Set address"), QDialogButtonBox::AcceptRole);
    m_set->setObjectName(QStringLiteral("set"));

    auto *layout = new QVBoxLayout(this);
    layout->addWidget(camera);
    layout->addLayout(form);
    layout->addWidget(note);
    layout->addWidget(m_problem);
    layout->addWidget(m_buttons);
    m_set->setDefault(true);
    setMinimumWidth(fontMetrics().averageCharWidth() * kWidthInDigits);

    for (QLineEdit *field : {m_address, m_mask, m_gateway})
        connect(field, &QLineEdit::textChanged, this, &SetAddressDialog::Validate);
    connect(m_buttons, &QDialogButtonBox::accepted, this, &SetAddressDialog::accept);
    connect(m_buttons, &QDialogButtonBox::rejected, this, &SetAddressDialog::reject);
}

void SetAddressDialog::Propose()
{
    const std::uint32_t present = orv::ParseIpv4(m_camera.address).value_or(0);
    const std::uint32_t proposed = orv::ProposeAddress(m_interface, present, m_taken);
    m_address->setText(proposed != 0 ? Text(proposed) : QString());
    m_mask->setText(Text(m_interface.subnetMask));
    m_gateway->setText(QLatin1String(kNoGateway));
    m_address->selectAll();
    m_address->setFocus();
}

orv::AddressChoice SetAddressDialog::Choice() const
{
    const auto text = [](const QLineEdit *field) { return field->text().trimmed().toStdString(); };
    return {text(m_address), text(m_mask), text(m_gateway)};
}

QString SetAddressDialog::Problem() const
{
    return QString::fromStdString(orv::ProblemOf(Choice(), m_interface, m_taken));
}

void SetAddressDialog::Validate()
{
    const QString problem = Problem();
    ShowProblem(problem);
    m_set->setEnabled(problem.isEmpty());
}

void SetAddressDialog::ShowProblem(const QString &problem)
{
    m_problem->setText(problem);
}

void SetAddressDialog::SetBusy(bool busy)
{
    for (QLineEdit *field : {m_address, m_mask, m_gateway})
        field->setEnabled(!busy);
    m_buttons->setEnabled(!busy);
}

void SetAddressDialog::accept()
{
    if (m_thread.joinable() || !Problem().isEmpty())
        return;
    try {
        m_thread = std::thread([this, choice = Choice()] {
            int status = ORV_CAM_ERR_UNKNOWN;
            std::string words;
            try {
                status = m_system->ForceAddress(m_camera, choice.address, choice.subnetMask, choice.gateway);
                if (status != ORV_CAM_OK)
                    m_system->LastError(&words); // of this thread
            } catch (...) {                      // no exception leaves the thread
            }
            QMetaObject::invokeMethod(
                this, [this, status, words] { OnAnswer(status, words); }, Qt::QueuedConnection);
        });
    } catch (const std::system_error &) {
        return ShowProblem(tr("The system has no resources left for that. Close other programs, then try again."));
    }
    SetBusy(true);
    ShowProblem(tr("Waiting for the camera..."));
}

void SetAddressDialog::reject()
{
    if (!m_thread.joinable())
        QDialog::reject();
}

void SetAddressDialog::OnAnswer(int status, const std::string &words)
{
    m_thread.join(); // sending the answer was its last act
    SetBusy(false);
    if (status == ORV_CAM_OK)
        return QDialog::accept();
    ShowProblem(FailureText(status, words));
}

QString SetAddressDialog::FailureText(int status, const std::string &words) const
{
    switch (status) {
    case ORV_CAM_ERR_NOT_IMPLEMENTED:
    case ORV_CAM_ERR_FEATURE_NOT_PRESENT:
        return tr("The transport library that found this camera (%1) cannot set addresses. Use the software of its "
                  "maker, or give the interface an address in the camera's network.")
            .arg(QString::fromStdString(m_camera.interface.producer));
    case ORV_CAM_ERR_TIMEOUT:
        return tr("The camera did not answer. It may be switched off, under another program's control, or not able to "
                  "take another address this way.");
    case ORV_CAM_ERR_ACCESS_DENIED:
    case ORV_CAM_ERR_BUSY:
        return tr("The camera refused: another program controls it. Close it there and try again.");
    case ORV_CAM_ERR_NOT_FOUND:
        return tr("The camera is not there any more. Check its cable and power.");
    default:
        return words.empty() ? tr("The address could not be set (status %1).").arg(status)
                             : QString::fromStdString(words);
    }
}

} // namespace OrvGui
