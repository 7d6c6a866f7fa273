#pragma once

#include <QDialog>

#include <memory>

class LogManager;
class QCloseEvent;
class QTimer;

namespace Ui {
class LogBrowserDialog;
}

// The server's log as a table that grows every second. A free window that the
// main window makes once and keeps; closing it only hides it.
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
    std::unique_ptr<Ui::LogBrowserDialog> ui;
    LogManager* logManager;
    QTimer* refreshTimer = nullptr;
    const int refreshPeriod = 1000; // ms
    // Index in the log of the last row in the table; -1: nothing shown yet.
    int lastShownIndex = -1;
};
