#pragma once

#include "ReadOnlyTableModel.h"

#include "log/LogSnapshot.h"

class LogManager;

// The log window's table: time, event and details of every item logged, one
// row each, in the log's order. The rows read the log manager's own items
// through a snapshot, so the model keeps no copy of them; its own cost is a
// pointer for each block of items, and the texts are made only for painted
// cells.
class LogTableModel : public ReadOnlyTableModel {
    Q_OBJECT

public:
    // `logManager` must outlive the model.
    LogTableModel(const LogManager* logManager, const QStringList& columnLabels, QObject* parent);

    // Appends a row for each item logged since the last call, behind the rows
    // shown; rows already shown never change. Returns how many were appended.
    int AppendNewItems();
    // The item of a row shown. Precondition: 0 <= row < rowCount().
    const LogItem& Item(int row) const;

    int rowCount(const QModelIndex& parent = QModelIndex()) const override;

protected:
    QString CellText(int row, int column) const override;

private:
    const LogManager* logManager;
    // Invariant: holds at least the rows shown.
    LogSnapshot items;
    int shownCount = 0;
};
