#include "ReadOnlyTableModel.h"

ReadOnlyTableModel::ReadOnlyTableModel(const QStringList& columnLabels, QObject* parent)
    : QAbstractTableModel(parent), columnLabels(columnLabels)
{
}

int ReadOnlyTableModel::columnCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : static_cast<int>(columnLabels.size());
}

QVariant ReadOnlyTableModel::data(const QModelIndex& index, int role) const
{
    if (!checkIndex(index, CheckIndexOption::IndexIsValid)) {
        return QVariant();
    }
    switch (role) {
    case Qt::DisplayRole:
        return CellText(index.row(), index.column());
    case Qt::TextAlignmentRole:
        return static_cast<int>(Qt::AlignCenter);
    default:
        return QVariant();
    }
}

QVariant ReadOnlyTableModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation == Qt::Horizontal && role == Qt::DisplayRole) {
        return columnLabels.value(section);
    }
    // Rows are numbered from 1.
    return QAbstractTableModel::headerData(section, orientation, role);
}

Qt::ItemFlags ReadOnlyTableModel::flags(const QModelIndex& index) const
{
    return index.isValid() ? Qt::ItemIsEnabled : Qt::NoItemFlags;
}
