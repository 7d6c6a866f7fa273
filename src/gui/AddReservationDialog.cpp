#include "AddReservationDialog.h"

#include "ReservationsDialog.h"
#include "ui_AddReservationDialog.h"

#include "allocation/AddressManager.h"
#include "allocation/AddressReservation.h"
#include "foundation/AppException.h"
#include "foundation/HardwareAddress.h"
#include "foundation/IPv4Address.h"

AddReservationDialog::AddReservationDialog(AddressManager* addressManager, ReservationsDialog* parent)
    : QDialog(parent)
    , ui(std::make_unique<Ui::AddReservationDialog>())
    , addressManager(addressManager)
    , reservationsDialog(parent)
{
    ui->setupUi(this);
    setWindowFlags(windowFlags() & ~Qt::WindowContextHelpButtonHint);
}

AddReservationDialog::~AddReservationDialog() = default;

void AddReservationDialog::on_pushButtonOK_clicked()
{
    try {
        // With both fields bad, the hardware address is reported.
        const HardwareAddress hardwareAddress(ui->lineEditHardwareAddress->text().toLatin1().toStdString());
        const IPv4Address ipAddress(ui->lineEditIPAddress->text().toLatin1().toStdString());
        addressManager->AddReservation(AddressReservation(hardwareAddress, ipAddress));
        close();
    } catch (const AppException& exception) {
        reservationsDialog->ShowReservationError(exception);
    }
}

void AddReservationDialog::on_pushButtonCancel_clicked()
{
    close();
}
