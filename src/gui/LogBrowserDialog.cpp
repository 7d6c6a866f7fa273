#include "LogBrowserDialog.h"

#include "TableCells.h"

#include "ui_LogBrowserDialog.h"

#include "foundation/AppException.h"
#include "log/LogManager.h"

#include <QCloseEvent>
#include <QHeaderView>
#include <QLayout>
#include <QTableWidgetItem>
#include <QTimer>

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

    ui->tableWidget->setHorizontalHeaderLabels({tr("Czas"), tr("Rodzaj zdarzenia"), tr("Dodatkowe informacje")});
    ui->tableWidget->horizontalHeader()->setSectionResizeMode(QHeaderView::Fixed);
    ui->tableWidget->verticalHeader()->setSectionResizeMode(QHeaderView::Fixed);

    // The table takes its size now, so that the first rows get the heights
    // of the columns that are seen.
    layout()->activate();
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

    QTableWidget* table = ui->tableWidget;
    try {
        // Copies of what is new, taken under the log's lock; the table is
        // filled without holding it.
        const std::vector<LogItem> items = logManager->GetLogItems(static_cast<size_t>(lastShownIndex + 1));
        for (const LogItem& item : items) {
            const int row = table->rowCount();
            table->insertRow(row);
            table->setItem(row, 0, TableCells::Make(item.GetTimeString()));
            table->setItem(row, 1, TableCells::Make(item.GetEventName()));
            table->setItem(row, 2, TableCells::Make(item.GetDetails()));
        }
        lastShownIndex += static_cast<int>(items.size());
    } catch (const AppException&) {
        // Nothing new this time; the next tick asks again from the same index.
    }
    table->resizeColumnsToContents();
    table->setColumnWidth(0, table->columnWidth(0) + 20);
    table->setColumnWidth(1, table->columnWidth(1) + 20);
    table->resizeRowsToContents();

    refreshTimer->start();
}
