#pragma once

#include "WindowBase.h"

#include <QDialog>

#include <memory>

class AddressManager;
class ReservationsDialog;

namespace Ui {
class AddReservationDialog;
}

// The small form behind "Dodaj..." of the reservations. A refusal is shown by
// the parent dialog, and this form stays open for another try.
class AddReservationDialog : public QDialog, public WindowBase {
    Q_OBJECT

public:
    AddReservationDialog(AddressManager* addressManager, ReservationsDialog* parent);
    ~AddReservationDialog() override;

private slots:
    void on_pushButtonOK_clicked();
    void on_pushButtonCancel_clicked();

private:
    std::unique_ptr<Ui::AddReservationDialog> ui;
    AddressManager* addressManager;
    ReservationsDialog* reservationsDialog;
};
