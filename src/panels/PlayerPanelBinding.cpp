// The bindings between widgets and parameters: making them, writing edits, showing values.

#include "orvsupport/OrvComponent.h"
#include "panels/ComponentText.h"
#include "panels/OrvParamTableModel.h"
#include "panels/PlayerPanel.h"

#include <QCheckBox>
#include <QComboBox>
#include <QGroupBox>
#include <QLineEdit>
#include <QTableView>

namespace {

constexpr unsigned int kNumberBytes = 255;  // first display of a number
constexpr unsigned int kStringBytes = 1000; // first display of a string
constexpr unsigned int kRefreshBytes = 256;

bool ReadBool(OrvComponent *component, QByteArray param)
{
    bool value = false;
    component->GetParamBool(param.data(), &value);
    return value;
}

void ShowInComboBox(QComboBox *box, OrvComponent *component, QByteArray param)
{
    long value = 0;
    component->GetParamInt(param.data(), &value);
    const int index = box->findData(QVariant(qint64{value}), Qt::UserRole, Qt::MatchExactly | Qt::MatchCaseSensitive);
    if (index >= 0)
        box->setCurrentIndex(index);
}

/// Makes the view read the row's value again.
void ShowInTable(const QTableView *view, int row)
{
    QAbstractItemModel *const model = view->model();
    if (model != nullptr && row < model->rowCount())
        emit model->dataChanged(model->index(row, 0), model->index(row, 1));
}

} // namespace

bool PlayerPanel::AddParamLink(const char *param, QWidget *control, OrvComponent *component, int row,
                               const char *format)
{
    m_links.Add({QString::fromUtf8(param), format, control->objectName(), row, component});
    return true;
}

// Connections are unique: a widget that is bound again after ClearParamLinks still writes each edit once.

bool PlayerPanel::AddIntegerEdit(QLineEdit *edit, const char *param, const char *format, OrvComponent *component)
{
    AddParamLink(param, edit, component, 0, format);
    if (!edit->isReadOnly())
        connect(edit, &QLineEdit::editingFinished, this, &PlayerPanel::IntegerEditChanged, Qt::UniqueConnection);
    if (component != nullptr)
        edit->setText(ReadFormatted(component, param, format, kNumberBytes));
    return true;
}

bool PlayerPanel::AddFloatEdit(QLineEdit *edit, const char *param, const char *format, OrvComponent *component)
{
    AddParamLink(param, edit, component, 0, format);
    if (!edit->isReadOnly())
        connect(edit, &QLineEdit::editingFinished, this, &PlayerPanel::FloatEditChanged, Qt::UniqueConnection);
    if (component != nullptr)
        edit->setText(ReadFormatted(component, param, format, kNumberBytes));
    return true;
}

bool PlayerPanel::AddStringEdit(QLineEdit *edit, const char *param, OrvComponent *component)
{
    AddParamLink(param, edit, component, 0, nullptr);
    if (!edit->isReadOnly())
        connect(edit, &QLineEdit::editingFinished, this, &PlayerPanel::StringEditChanged, Qt::UniqueConnection);
    if (component != nullptr)
        edit->setText(ReadString(component, param, kStringBytes));
    return true;
}

bool PlayerPanel::AddBoolCheckBox(QCheckBox *box, const char *param, OrvComponent *component)
{
    AddParamLink(param, box, component, 0, nullptr);
    connect(box, &QCheckBox::stateChanged, this, &PlayerPanel::CheckBoxChanged, Qt::UniqueConnection);
    if (component != nullptr)
        box->setChecked(ReadBool(component, param));
    return true;
}

bool PlayerPanel::AddBoolCheckGroupBox(QGroupBox *box, const char *param, OrvComponent *component)
{
    AddParamLink(param, box, component, 0, nullptr);
    connect(box, &QGroupBox::toggled, this, &PlayerPanel::CheckGroupBoxChanged, Qt::UniqueConnection);
    if (component != nullptr)
        box->setChecked(ReadBool(component, param));
    return true;
}

bool PlayerPanel::AddTableParam(QTableView *view, const char *param, OrvComponent *component, const char *label)
{
    auto *const model = qobject_cast<OrvParamTableModel *>(view->model());
    if (model == nullptr)
        return true;
    const QString name = QString::fromUtf8(param);
    const int row = model->AppendRow({component, name, label == nullptr ? name : QString::fromUtf8(label)});
    AddParamLink(param, view, component, row, nullptr);
    return true;
}

void PlayerPanel::ClearParamLinks()
{
    m_links.Clear();
    const auto views = findChildren<QTableView *>();
    for (const QTableView *view : views)
        if (auto *const model = qobject_cast<OrvParamTableModel *>(view->model()))
            model->ClearRows();
}

template <class Widget> bool PlayerPanel::FindSender(Widget **widget, ParamLink *link) const
{
    if (isModal())
        return false;
    *widget = qobject_cast<Widget *>(sender());
    if (*widget == nullptr)
        return false;
    *link = GetParamForControl((*widget)->objectName());
    return link->component != nullptr; // unbound, or bound to nothing while there is no session
}

void PlayerPanel::IntegerEditChanged()
{
    QLineEdit *edit = nullptr;
    ParamLink link;
    if (FindSender(&edit, &link))
        link.component->SetParamInt(link.param.toLocal8Bit().data(), edit->text().toInt());
}

void PlayerPanel::FloatEditChanged()
{
    QLineEdit *edit = nullptr;
    ParamLink link;
    if (FindSender(&edit, &link))
        link.component->SetParamFloat(link.param.toLocal8Bit().data(), edit->text().toDouble());
}

void PlayerPanel::StringEditChanged()
{
    QLineEdit *edit = nullptr;
    ParamLink link;
    if (FindSender(&edit, &link))
        link.component->SetParamString(link.param.toLocal8Bit().data(), edit->text().toUtf8().data());
}

void PlayerPanel::CheckBoxChanged(int state)
{
    QCheckBox *box = nullptr;
    ParamLink link;
    if (FindSender(&box, &link))
        link.component->SetParamBool(link.param.toLocal8Bit().data(), state != 0);
}

void PlayerPanel::CheckGroupBoxChanged(bool on)
{
    QGroupBox *box = nullptr;
    ParamLink link;
    if (FindSender(&box, &link))
        link.component->SetParamBool(link.param.toLocal8Bit().data(), on);
}

void PlayerPanel::UpdateFromComponent(const QString &param)
{
    if (!param.isEmpty()) {
        const ParamLink link = GetControlForParam(param);
        if (link.component != nullptr)
            ShowValue(link);
        return;
    }
    for (const QString &name : m_links.Params())
        if (!name.isEmpty()) // an empty name would mean all again
            UpdateFromComponent(name);
}

void PlayerPanel::ShowValue(const ParamLink &link)
{
    const QByteArray param = link.param.toLocal8Bit();
    if (auto *const edit = findChild<QLineEdit *>(link.control))
        edit->setText(ReadFormatted(link.component, param, link.format, kRefreshBytes));
    else if (auto *const combo = findChild<QComboBox *>(link.control))
        ShowInComboBox(combo, link.component, param);
    else if (auto *const check = findChild<QCheckBox *>(link.control))
        check->setChecked(ReadBool(link.component, param));
    else if (auto *const group = findChild<QGroupBox *>(link.control))
        group->setChecked(ReadBool(link.component, param));
    else if (auto *const table = findChild<QTableView *>(link.control))
        ShowInTable(table, link.row);
}
