#pragma once

#include "ReadOnlyTableModel.h"

#include "allocation/Lease.h"

#include <cstdint>
#include <vector>

// The lease view's table: hardware address, IP address and remaining time of
// each lease it is given, in the order given. It holds the one copy of the
// lease table that a refresh takes; the texts are made only for painted cells.
class LeaseTableModel : public ReadOnlyTableModel {
    Q_OBJECT

public:
    // The remaining time shows rounded down to a multiple of
    // `remainingTimeStep` seconds.
    LeaseTableModel(const QStringList& columnLabels, int64_t remainingTimeStep, QObject* parent);

    // Shows `leases`, their remaining time as at `now`. Row i shows the i-th
    // lease: rows that stay keep their places (and the view its position),
    // rows go or come at the end only.
    void ShowLeases(std::vector<Lease> leases, int64_t now);

    // The texts of the longest hardware address and of the IP address with the
    // most digits shown; empty without rows. What a column needs to fit every
    // row is a text of their shape.
    QString LongestHardwareAddressText() const;
    QString LongestIPAddressText() const;

    int rowCount(const QModelIndex& parent = QModelIndex()) const override;

protected:
    QString CellText(int row, int column) const override;

private:
    const int64_t remainingTimeStep; // s
    std::vector<Lease> leases;
    int64_t now = 0; // s, the moment the remaining times are shown for
};
