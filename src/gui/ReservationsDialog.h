#pragma once

#include "WindowBase.h"

#include <QDialog>

#include <memory>

class AddressManager;
class AppException;

namespace Ui {
class ReservationsDialog;
}

// Editor of the fixed assignments of hardware to IP addresses. Every change
// goes to the AddressManager at once; the table is only a view of it.
class ReservationsDialog : public QDialog, public WindowBase {
    Q_OBJECT

public:
    ReservationsDialog(AddressManager* addressManager, QWidget* parent);
    ~ReservationsDialog() override;

    // A critical box, titled like this dialog, for a refused reservation.
    void ShowReservationError(const AppException& exception);

private slots:
    void on_tableWidget_cellChanged(int row, int column);
    void on_pushButtonRemove_clicked();
    void on_tableWidget_itemSelectionChanged();
    void on_pushButtonAdd_clicked();

private:
    void FillTable();
    // The row of the first selected item, or -1.
    int GetSelectedRow() const;

    std::unique_ptr<Ui::ReservationsDialog> ui;
    AddressManager* addressManager;
    // Number of reservations at the last fill.
    unsigned rowCount = 0;
    // True inside FillTable: the cells change then without the user.
    bool fillingTable = false;
};
