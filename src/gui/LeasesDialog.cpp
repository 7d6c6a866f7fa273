#include "LeasesDialog.h"

#include "TableCells.h"

#include "ui_LeasesDialog.h"

#include "allocation/AddressManager.h"

#include <QHeaderView>
#include <QTableWidgetItem>
#include <QTimer>

LeasesDialog::LeasesDialog(AddressManager* addressManager, QWidget* parent)
    : QDialog(parent)
    , ui(std::make_unique<Ui::LeasesDialog>())
    , addressManager(addressManager)
{
    ui->setupUi(this);
    setWindowFlags(windowFlags() & ~Qt::WindowContextHelpButtonHint);

    refreshTimer = new QTimer(this);
    connect(refreshTimer, &QTimer::timeout, this, &LeasesDialog::TimerTimeout);
    refreshTimer->start(refreshPeriod);

    ui->tableWidget->setHorizontalHeaderLabels({tr("Adres MAC"), tr("Adres IP"), tr("Pozostały czas [s]")});
    ui->tableWidget->horizontalHeader()->setSectionResizeMode(QHeaderView::Fixed);
    ui->tableWidget->verticalHeader()->setSectionResizeMode(QHeaderView::Fixed);

    TimerTimeout();
}

LeasesDialog::~LeasesDialog()
{
    refreshTimer->stop();
    delete refreshTimer;
}

void LeasesDialog::TimerTimeout()
{
    // Stopped while the table is rebuilt, so ticks cannot pile up behind a slow refresh.
    refreshTimer->stop();

    QTableWidget* table = ui->tableWidget;
    while (table->rowCount() > 0) {
        table->removeRow(0);
    }
    // One copy taken under the table's lock: count and rows agree even while
    // the receive thread grants leases.
    const std::vector<Lease> leases = addressManager->GetLeases();
    const int64_t now = addressManager->Now();
    for (const Lease& lease : leases) {
        if (lease.IsExpired(now)) {
            continue;
        }
        const int64_t step = remainingTimeStep;
        const int64_t shownRemainingTime = lease.GetRemainingTime(now) / step * step;
        const int row = table->rowCount();
        table->insertRow(row);
        table->setItem(row, 0, TableCells::Make(lease.GetHardwareAddress().ToCString()));
        table->setItem(row, 1, TableCells::Make(lease.GetIPAddress().ToString()));
        table->setItem(row, 2, TableCells::Make(QString::number(shownRemainingTime)));
    }
    table->resizeColumnsToContents();
    table->setColumnWidth(0, table->columnWidth(0) + 20);
    table->setColumnWidth(1, table->columnWidth(1) + 20);
    // The last column takes what is left of the fixed width. Its stretch
    // would otherwise keep the width it was last given, which can push the
    // table a few pixels past the dialog and bring up a scroll bar.
    QHeaderView* header = table->horizontalHeader();
    header->resizeSection(header->count() - 1, header->minimumSectionSize());

    refreshTimer->start();
}
