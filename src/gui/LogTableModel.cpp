#include "LogTableModel.h"

#include "log/LogManager.h"

#include <algorithm>
#include <climits>

namespace {

QString FromAscii(const std::string& text)
{
    return QString::fromLatin1(text.data(), static_cast<qsizetype>(text.size()));
}

} // namespace

LogTableModel::LogTableModel(const LogManager* logManager, const QStringList& columnLabels, QObject* parent)
    : ReadOnlyTableModel(columnLabels, parent), logManager(logManager)
{
}

int LogTableModel::AppendNewItems()
{
    logManager->ExtendSnapshot(items);
    // A row count is an int; a log longer than that shows its first rows.
    const int available = static_cast<int>(std::min<size_t>(items.Size(), INT_MAX));
    if (available == shownCount) {
        return 0;
    }
    const int appended = available - shownCount;
    beginInsertRows(QModelIndex(), shownCount, available - 1);
    shownCount = available;
    endInsertRows();
    return appended;
}

const LogItem& LogTableModel::Item(int row) const
{
    return items[static_cast<size_t>(row)];
}

int LogTableModel::rowCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : shownCount;
}

QString LogTableModel::CellText(int row, int column) const
{
    const LogItem& item = Item(row);
    switch (column) {
    case 0:
        return FromAscii(item.GetTimeString());
    case 1:
        return FromAscii(item.GetEventName());
    default:
        return FromAscii(item.GetDetails());
    }
}
