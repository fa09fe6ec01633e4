#pragma once

#include <QAbstractTableModel>
#include <QByteArray>
#include <QString>

#include <map>
#include <vector>

class OrvComponent;
class PlayerPanel;

/// One row of a parameter table.
struct TableParam {
    OrvComponent *component = nullptr; ///< owner of the parameter, not owned; null shows "n/a"
    QString name;
    QString label; ///< text of the first column
};

/// Read-only table of named parameters ("Parameter", "Value") that reads each value from its component whenever the
/// view asks.
///
/// PlayerPanel::AddTableParam appends the rows and binds them, PlayerPanel::ClearParamLinks takes them away again;
/// between the two the components must live. Threads: GUI thread.
class OrvParamTableModel : public QAbstractTableModel {
    Q_OBJECT
public:
    explicit OrvParamTableModel(QObject *parent = nullptr);

    int rowCount(const QModelIndex &parent = QModelIndex()) const override;
    int columnCount(const QModelIndex &parent = QModelIndex()) const override;
    QVariant data(const QModelIndex &index, int role = Qt::DisplayRole) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role = Qt::DisplayRole) const override;

    /// The parameter's value as text, in the format that belongs to its name; "n/a" when the component cannot tell.
    QString GetParamString(OrvComponent *component, const QString &name) const;

    /// Puts the row of the index on the clipboard: label, tab, value. An invalid index leaves the clipboard alone.
    void CopyField(const QModelIndex &index) const;
    /// Puts all rows on the clipboard, each closed by a line end.
    void CopyTable() const;

    /// Fills the formats by parameter name; done by the constructor.
    void initFormats();

private:
    friend class PlayerPanel;

    /// Returns the new row's index.
    int AppendRow(const TableParam &row);
    void ClearRows();
    bool IsRow(const QModelIndex &index) const;
    QString RowText(const TableParam &row) const;

    std::vector<TableParam> m_rows;
    std::map<QString, QByteArray> m_formats; // printf format by parameter name
};
