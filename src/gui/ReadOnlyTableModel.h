#pragma once

#include <QAbstractTableModel>
#include <QStringList>

// The part that the live views' table models share: a flat, read-only table
// with fixed column labels, row numbers in the row header, every cell centred
// and none selectable or editable. A subclass gives the rows and their texts;
// a text is made only when the view asks for it, that is, for a painted cell.
class ReadOnlyTableModel : public QAbstractTableModel {
    Q_OBJECT

public:
    ReadOnlyTableModel(const QStringList& columnLabels, QObject* parent);

    int columnCount(const QModelIndex& parent = QModelIndex()) const override;
    QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role = Qt::DisplayRole) const override;
    Qt::ItemFlags flags(const QModelIndex& index) const override;

protected:
    // The text of a cell; `row` and `column` lie inside the table.
    virtual QString CellText(int row, int column) const = 0;

private:
    const QStringList columnLabels;
};
