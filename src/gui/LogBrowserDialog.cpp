#include "LogBrowserDialog.h"

#include "CellMetrics.h"
#include "LogTableModel.h"

#include "ui_LogBrowserDialog.h"

#include "log/LogManager.h"

#include <QCloseEvent>
#include <QHeaderView>
#include <QTimer>

#include <exception>

namespace {

// Room beside the widest text of the time and event columns, px.
constexpr int COLUMN_PADDING = 20;

size_t EventKind(int eventType)
{
    return eventType >= 0 && eventType < EVENT_TYPE_COUNT ? static_cast<size_t>(eventType) : EVENT_TYPE_COUNT;
}

} // namespace

LogBrowserDialog::LogBrowserDialog(LogManager* logManager, QWidget* parent)
    : QDialog(parent)
    , ui(std::make_unique<Ui::LogBrowserDialog>())
    , logManager(logManager)
{
    ui->setupUi(this);
    setWindowFlags(Qt::Window);

    refreshTimer = new QTimer(this);
    connect(refreshTimer, &QTimer::timeout, this, &LogBrowserDialog::TimerTimeout);
    refreshTimer->start(refreshPeriod);

    QTableView* table = ui->tableView;
    model = new LogTableModel(logManager, {tr("Czas"), tr("Rodzaj zdarzenia"), tr("Dodatkowe informacje")}, this);
    table->setModel(model);
    table->horizontalHeader()->setSectionResizeMode(QHeaderView::Fixed);
    // Set before the first row: every row gets this height as it comes.
    table->verticalHeader()->setSectionResizeMode(QHeaderView::Fixed);
    table->verticalHeader()->setDefaultSectionSize(CellMetrics::TwoLineRowHeight(table));
    // Without rows the columns fit their labels.
    for (int column = 0; column < 2; ++column) {
        table->setColumnWidth(column, CellMetrics::ColumnWidth(table, column, QString()) + COLUMN_PADDING);
    }

    TimerTimeout();
}

LogBrowserDialog::~LogBrowserDialog() = default;

void LogBrowserDialog::closeEvent(QCloseEvent* event)
{
    event->ignore();
    setVisible(false);
}

void LogBrowserDialog::TimerTimeout()
{
    refreshTimer->stop();

    try {
        const int firstNewRow = model->rowCount();
        if (model->AppendNewItems() > 0) {
            FitNewRows(firstNewRow);
        }
    } catch (const std::exception&) {
        // The log's lock failed (std::system_error); nothing was appended, and
        // the next tick asks again from the same row.
    }

    refreshTimer->start();
}

void LogBrowserDialog::FitNewRows(int firstNewRow)
{
    // Every time text has one shape, so the first and the last new row stand
    // for all of them; the titles are few.
    const int lastRow = model->rowCount() - 1;
    for (const int row : {firstNewRow, lastRow}) {
        const QModelIndex time = model->index(row, 0);
        FitColumn(0, CellMetrics::ShapeColumnWidth(ui->tableView, 0, time.data().toString(),
                                                   CellMetrics::DECIMAL_DIGITS));
    }
    for (int row = firstNewRow; row <= lastRow && !fittedEventKinds.all(); ++row) {
        const size_t kind = EventKind(model->Item(row).GetEventType());
        if (!fittedEventKinds.test(kind)) {
            fittedEventKinds.set(kind);
            FitColumn(1, CellMetrics::ColumnWidth(ui->tableView, 1, model->index(row, 1).data().toString()));
        }
    }
}

void LogBrowserDialog::FitColumn(int column, int width)
{
    // Only ever wider: the rows already there keep fitting.
    QTableView* table = ui->tableView;
    if (width + COLUMN_PADDING > table->columnWidth(column)) {
        table->setColumnWidth(column, width + COLUMN_PADDING);
    }
}
