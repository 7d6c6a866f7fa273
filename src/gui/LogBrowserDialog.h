#pragma once

#include "log/EventType.h"

#include <QDialog>

#include <bitset>
#include <memory>

class LogManager;
class LogTableModel;
class QCloseEvent;
class QTimer;

namespace Ui {
class LogBrowserDialog;
}

// The server's log as a table that grows every second. A free window that the
// main window makes once and keeps; closing it only hides it.
//
// A refresh costs what is new, however long the log: the rows read the log's
// own items (LogTableModel), all rows have one fixed height that fits
// two-line details, and a column is widened only when a new row needs it.
class LogBrowserDialog : public QDialog {
    Q_OBJECT

public:
    LogBrowserDialog(LogManager* logManager, QWidget* parent);
    ~LogBrowserDialog() override;

protected:
    void closeEvent(QCloseEvent* event) override;

private slots:
    void TimerTimeout();

private:
    // Widens `column` to `width` and its padding, unless it is wider already.
    void FitColumn(int column, int width);
    void FitNewRows(int firstNewRow);

    std::unique_ptr<Ui::LogBrowserDialog> ui;
    LogManager* logManager;
    LogTableModel* model = nullptr; // child of the dialog
    QTimer* refreshTimer = nullptr;
    const int refreshPeriod = 1000; // ms
    // The event kinds whose titles column 1 fits already; the last bit stands
    // for every unknown kind.
    std::bitset<EVENT_TYPE_COUNT + 1> fittedEventKinds;
};
