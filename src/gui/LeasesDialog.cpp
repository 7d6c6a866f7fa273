#include "LeasesDialog.h"

#include "CellMetrics.h"
#include "LeaseTableModel.h"

#include "ui_LeasesDialog.h"

#include "allocation/AddressManager.h"

#include <QHeaderView>
#include <QTimer>

namespace {

// Room beside the widest text of the address columns, px.
constexpr int COLUMN_PADDING = 20;

} // namespace

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

    model = new LeaseTableModel({tr("Adres MAC"), tr("Adres IP"), tr("Pozostały czas [s]")}, remainingTimeStep, this);
    ui->tableView->setModel(model);
    ui->tableView->horizontalHeader()->setSectionResizeMode(QHeaderView::Fixed);
    ui->tableView->verticalHeader()->setSectionResizeMode(QHeaderView::Fixed);

    TimerTimeout();
}

LeasesDialog::~LeasesDialog()
{
    refreshTimer->stop();
    delete refreshTimer;
}

void LeasesDialog::TimerTimeout()
{
    // Stopped while the table is refreshed, so ticks cannot pile up behind a slow refresh.
    refreshTimer->stop();

    // One copy taken under the table's lock: count and rows agree even while
    // the receive thread grants leases. The model keeps it.
    std::vector<Lease> leases = addressManager->GetLeases();
    const int64_t now = addressManager->Now();
    std::erase_if(leases, [now](const Lease& lease) { return lease.IsExpired(now); });
    model->ShowLeases(std::move(leases), now);
    FitColumns();

    refreshTimer->start();
}

void LeasesDialog::FitColumns()
{
    // Wide enough for every address of the longest shape shown, without a
    // text made for each row.
    QTableView* table = ui->tableView;
    const int hardwareAddressWidth =
        CellMetrics::ShapeColumnWidth(table, 0, model->LongestHardwareAddressText(), CellMetrics::HEX_DIGITS);
    const int ipAddressWidth =
        CellMetrics::ShapeColumnWidth(table, 1, model->LongestIPAddressText(), CellMetrics::DECIMAL_DIGITS);
    table->setColumnWidth(0, hardwareAddressWidth + COLUMN_PADDING);
    table->setColumnWidth(1, ipAddressWidth + COLUMN_PADDING);
    // The last column takes what is left of the fixed width. Its stretch
    // would otherwise keep the width it was last given, which can push the
    // table a few pixels past the dialog and bring up a scroll bar.
    QHeaderView* header = table->horizontalHeader();
    header->resizeSection(header->count() - 1, header->minimumSectionSize());
}
