#include "LeaseTableModel.h"

#include <algorithm>

namespace {

int DigitCount(const IPv4Address& address)
{
    int count = 0;
    for (int i = 0; i < 4; ++i) {
        count += address[i] >= 100 ? 3 : address[i] >= 10 ? 2 : 1;
    }
    return count;
}

} // namespace

LeaseTableModel::LeaseTableModel(const QStringList& columnLabels, int64_t remainingTimeStep, QObject* parent)
    : ReadOnlyTableModel(columnLabels, parent), remainingTimeStep(remainingTimeStep)
{
}

void LeaseTableModel::ShowLeases(std::vector<Lease> newLeases, int64_t newNow)
{
    const int oldCount = rowCount();
    const int newCount = static_cast<int>(newLeases.size());
    if (newCount > oldCount) {
        beginInsertRows(QModelIndex(), oldCount, newCount - 1);
    } else if (newCount < oldCount) {
        beginRemoveRows(QModelIndex(), newCount, oldCount - 1);
    }
    leases = std::move(newLeases);
    now = newNow;
    if (newCount > oldCount) {
        endInsertRows();
    } else if (newCount < oldCount) {
        endRemoveRows();
    }
    // Every row that stayed may show another lease or time now.
    const int keptCount = std::min(oldCount, newCount);
    if (keptCount > 0) {
        emit dataChanged(index(0, 0), index(keptCount - 1, columnCount() - 1), {Qt::DisplayRole});
    }
}

QString LeaseTableModel::LongestHardwareAddressText() const
{
    const auto longest = std::max_element(leases.begin(), leases.end(), [](const Lease& a, const Lease& b) {
        return a.GetHardwareAddress().GetLength() < b.GetHardwareAddress().GetLength();
    });
    return longest == leases.end() ? QString() : QString::fromStdString(longest->GetHardwareAddress().ToString());
}

QString LeaseTableModel::LongestIPAddressText() const
{
    const auto longest = std::max_element(leases.begin(), leases.end(), [](const Lease& a, const Lease& b) {
        return DigitCount(a.GetIPAddress()) < DigitCount(b.GetIPAddress());
    });
    return longest == leases.end() ? QString() : QString::fromStdString(longest->GetIPAddress().ToString());
}

int LeaseTableModel::rowCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : static_cast<int>(leases.size());
}

QString LeaseTableModel::CellText(int row, int column) const
{
    const Lease& lease = leases[static_cast<size_t>(row)];
    switch (column) {
    case 0:
        return QString::fromStdString(lease.GetHardwareAddress().ToString());
    case 1:
        return QString::fromStdString(lease.GetIPAddress().ToString());
    default:
        return QString::number(lease.GetRemainingTime(now) / remainingTimeStep * remainingTimeStep);
    }
}
