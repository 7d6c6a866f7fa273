#include "ReservationsDialog.h"

#include "TableCells.h"

#include "AddReservationDialog.h"
#include "ui_ReservationsDialog.h"

#include "allocation/AddressManager.h"
#include "allocation/AddressReservation.h"
#include "foundation/AppException.h"
#include "foundation/HardwareAddress.h"
#include "foundation/IPv4Address.h"

#include <QHeaderView>
#include <QTableWidgetItem>

ReservationsDialog::ReservationsDialog(AddressManager* addressManager, QWidget* parent)
    : QDialog(parent)
    , ui(std::make_unique<Ui::ReservationsDialog>())
    , addressManager(addressManager)
{
    ui->setupUi(this);
    setWindowFlags(windowFlags() & ~Qt::WindowContextHelpButtonHint);
    ui->tableWidget->setHorizontalHeaderLabels({tr("Adres MAC"), tr("Adres IP")});
    ui->tableWidget->horizontalHeader()->setSectionResizeMode(QHeaderView::Fixed);
    ui->tableWidget->verticalHeader()->setSectionResizeMode(QHeaderView::Fixed);
    FillTable();
}

ReservationsDialog::~ReservationsDialog() = default;

void ReservationsDialog::ShowReservationError(const AppException& exception)
{
    QString text;
    switch (exception.GetCode()) {
    case AppException::IPAddressStringNotValid:
        text = tr("Podany adres IP jest nieprawidłowy!");
        break;
    case AppException::HardwareAddressStringNotValid:
        text = tr("Podany adres MAC jest nieprawidłowy!");
        break;
    case AppException::HardwareAddressAlreadyReserved:
        text = tr("Istnieje już rezerwacja dotycząca podanego adresu MAC!");
        break;
    case AppException::IPAddressAlreadyReserved:
        text = tr("Podany adres IP jest już zarezerwowany!");
        break;
    case AppException::ReservationOutsidePoolSubnet:
        text = tr("Adres IP musi być w tej samej podsieci, co adresy z puli!");
        break;
    default:
        text = QString::fromStdString(AppException::GetMessageForCode(exception.GetCode()));
        break;
    }
    ShowMessage(this, text, QMessageBox::Critical);
}

void ReservationsDialog::on_tableWidget_cellChanged(int row, int /*column*/)
{
    if (fillingTable) {
        return;
    }
    try {
        // The hardware address is judged first.
        const HardwareAddress hardwareAddress(TableCells::Text(ui->tableWidget, row, 0));
        const IPv4Address ipAddress(TableCells::Text(ui->tableWidget, row, 1));
        addressManager->ReplaceReservation(static_cast<size_t>(row), AddressReservation(hardwareAddress, ipAddress));
    } catch (const AppException& exception) {
        ShowReservationError(exception);
        // The stored values come back into the table.
        FillTable();
    }
}

void ReservationsDialog::on_pushButtonRemove_clicked()
{
    const int row = GetSelectedRow();
    if (row >= 0) {
        addressManager->RemoveReservation(static_cast<size_t>(row));
        FillTable();
    }
}

void ReservationsDialog::on_tableWidget_itemSelectionChanged()
{
    ui->pushButtonRemove->setEnabled(rowCount != 0 && GetSelectedRow() >= 0);
}

void ReservationsDialog::on_pushButtonAdd_clicked()
{
    AddReservationDialog dialog(addressManager, this);
    dialog.exec();
    FillTable();
}

void ReservationsDialog::FillTable()
{
    fillingTable = true;
    QTableWidget* table = ui->tableWidget;
    while (table->rowCount() > 0) {
        table->removeRow(0);
    }
    rowCount = static_cast<unsigned>(addressManager->GetReservationCount());
    for (unsigned index = 0; index < rowCount; ++index) {
        const AddressReservation reservation = addressManager->GetReservation(index);
        const int row = table->rowCount();
        table->insertRow(row);
        table->setItem(row, 0, TableCells::Make(reservation.GetHardwareAddress().ToCString()));
        table->setItem(row, 1, TableCells::Make(reservation.GetIPAddress().ToString()));
    }
    on_tableWidget_itemSelectionChanged();
    fillingTable = false;
}

int ReservationsDialog::GetSelectedRow() const
{
    const QList<QTableWidgetItem*> selected = ui->tableWidget->selectedItems();
    return selected.isEmpty() ? -1 : selected.first()->row();
}
