#include "panels/OrvParamTableModel.h"

#include "orvsupport/OrvComponent.h"

#include <QClipboard>
#include <QGuiApplication>

namespace {

enum Column { kLabelColumn, kValueColumn, kColumnCount };

constexpr unsigned int kValueBytes = 256;

QString TextOrNotAvailable(OrvComponent *component, QByteArray name, const char *format)
{
    char buffer[kValueBytes] = "n/a"; // what remains when the component does not answer
    unsigned int length = kValueBytes;
    if (component != nullptr)
        component->GetParamAsString(name.data(), buffer, &length, format);
    return QString::fromLatin1(buffer, static_cast<int>(qstrnlen(buffer, kValueBytes)));
}

} // namespace

OrvParamTableModel::OrvParamTableModel(QObject *parent) : QAbstractTableModel(parent)
{
    initFormats();
}

int OrvParamTableModel::rowCount(const QModelIndex & /*parent*/) const
{
    return static_cast<int>(m_rows.size());
}

int OrvParamTableModel::columnCount(const QModelIndex & /*parent*/) const
{
    return kColumnCount;
}

QVariant OrvParamTableModel::data(const QModelIndex &index, int role) const
{
    if (role != Qt::DisplayRole || !IsRow(index))
        return {};
    const TableParam &row = m_rows[static_cast<std::size_t>(index.row())];
    return index.column() == kLabelColumn ? row.label : GetParamString(row.component, row.name);
}

QVariant OrvParamTableModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (role != Qt::DisplayRole || orientation != Qt::Horizontal)
        return {};
    switch (section) {
    case kLabelColumn:
        return QStringLiteral("Parameter");
    case kValueColumn:
        return QStringLiteral("Value");
    default:
        return QAbstractTableModel::headerData(section, orientation, role);
    }
}

QString OrvParamTableModel::GetParamString(OrvComponent *component, const QString &name) const
{
    const auto format = m_formats.find(name);
    return TextOrNotAvailable(component, name.toLocal8Bit(),
                              format == m_formats.end() ? nullptr : format->second.constData());
}

void OrvParamTableModel::CopyField(const QModelIndex &index) const
{
    if (IsRow(index))
        QGuiApplication::clipboard()->setText(RowText(m_rows[static_cast<std::size_t>(index.row())]));
}

void OrvParamTableModel::CopyTable() const
{
    QString text;
    for (const TableParam &row : m_rows)
        text += RowText(row) + '\n';
    QGuiApplication::clipboard()->setText(text);
}

void OrvParamTableModel::initFormats()
{
    m_formats = {
        {QStringLiteral("FpsAvg"), "%.2f"}, {QStringLiteral("FpsInst"), "%.2f"}, {QStringLiteral("Speed"), "%.2f"}};
}

bool OrvParamTableModel::IsRow(const QModelIndex &index) const
{
    return index.isValid() && index.row() < rowCount();
}

int OrvParamTableModel::AppendRow(const TableParam &row)
{
    const int index = rowCount();
    beginInsertRows(QModelIndex(), index, index);
    m_rows.push_back(row);
    endInsertRows();
    return index;
}

void OrvParamTableModel::ClearRows()
{
    beginResetModel();
    m_rows.clear();
    endResetModel();
}

QString OrvParamTableModel::RowText(const TableParam &row) const
{
    return row.label + '\t' + GetParamString(row.component, row.name);
}
