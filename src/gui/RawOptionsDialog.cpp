#include "RawOptionsDialog.h"

#include "TableCells.h"

#include "AddRawOptionDialog.h"
#include "RawOptionsDialogHelp.h"
#include "ui_RawOptionsDialog.h"

#include "config/Settings.h"
#include "foundation/AppException.h"
#include "wire/RawOption.h"

#include <QHeaderView>
#include <QTableWidgetItem>

RawOptionsDialog::RawOptionsDialog(Settings* settings, QWidget* parent)
    : QDialog(parent)
    , ui(std::make_unique<Ui::RawOptionsDialog>())
    , settings(settings)
{
    ui->setupUi(this);
    setWindowFlags(windowFlags() & ~Qt::WindowContextHelpButtonHint);
    ui->tableWidget->setHorizontalHeaderLabels({tr("Kod opcji"), tr("Dane")});
    ui->tableWidget->horizontalHeader()->setSectionResizeMode(QHeaderView::Fixed);
    ui->tableWidget->verticalHeader()->setSectionResizeMode(QHeaderView::Fixed);
    FillTable();
}

RawOptionsDialog::~RawOptionsDialog() = default;

void RawOptionsDialog::ShowOptionError(const AppException& exception)
{
    QString text;
    switch (exception.GetCode()) {
    case AppException::CodeStringNotValid:
        text = tr("Kod opcji jest nieprawidłowy!");
        break;
    case AppException::DataStringNotValid:
        text = tr("Wprowadzono nieprawidłowe dane!");
        break;
    case AppException::RawOptionDataEmpty:
        text = tr("Dane muszą zawierać co najmniej jeden bajt!");
        break;
    case AppException::RawOptionDataTooLong:
        text = tr("Dane mogą zawierać nie więcej, niż 254 bajty!");
        break;
    default:
        text = QString::fromStdString(exception.GetMessage());
        break;
    }
    ShowMessage(this, text, QMessageBox::Critical);
}

void RawOptionsDialog::on_pushButtonHelp_clicked()
{
    RawOptionsDialogHelp help(this);
    help.exec();
}

void RawOptionsDialog::on_tableWidget_cellChanged(int row, int /*column*/)
{
    if (fillingTable) {
        return;
    }
    std::vector<RawOption>& options = settings->GetAdditionalOptions();
    try {
        const std::string dataString = TableCells::Text(ui->tableWidget, row, 1);
        const std::string codeString = TableCells::Text(ui->tableWidget, row, 0);
        // The code is judged before the data.
        const RawOption option(codeString, dataString);
        if (row >= 0 && static_cast<size_t>(row) < options.size()) {
            options[static_cast<size_t>(row)] = option;
        }
    } catch (const AppException& exception) {
        ShowOptionError(exception);
        // The stored values come back into the table.
        FillTable();
    }
}

void RawOptionsDialog::on_pushButtonRemove_clicked()
{
    const int row = GetSelectedRow();
    std::vector<RawOption>& options = settings->GetAdditionalOptions();
    if (row >= 0 && static_cast<size_t>(row) < options.size()) {
        options.erase(options.begin() + row);
        FillTable();
    }
}

void RawOptionsDialog::on_tableWidget_itemSelectionChanged()
{
    ui->pushButtonRemove->setEnabled(rowCount != 0 && GetSelectedRow() >= 0);
}

void RawOptionsDialog::on_pushButtonAdd_clicked()
{
    AddRawOptionDialog dialog(settings, this);
    dialog.exec();
    FillTable();
}

void RawOptionsDialog::FillTable()
{
    fillingTable = true;
    QTableWidget* table = ui->tableWidget;
    while (table->rowCount() > 0) {
        table->removeRow(0);
    }
    const std::vector<RawOption>& options = settings->GetAdditionalOptions();
    rowCount = static_cast<unsigned>(options.size());
    for (const RawOption& option : options) {
        const int row = table->rowCount();
        table->insertRow(row);
        table->setItem(row, 0, TableCells::Make(option.GetCodeString()));
        table->setItem(row, 1, TableCells::Make(option.GetDataString()));
    }
    on_tableWidget_itemSelectionChanged();
    fillingTable = false;
}

int RawOptionsDialog::GetSelectedRow() const
{
    const QList<QTableWidgetItem*> selected = ui->tableWidget->selectedItems();
    return selected.isEmpty() ? -1 : selected.first()->row();
}
