#pragma once

#include <QDialog>

#include <cstdint>
#include <memory>

class AddressManager;
class LeaseTableModel;
class QTimer;

namespace Ui {
class LeasesDialog;
}

// The addresses leased now, as a read-only table refreshed every 5 seconds.
// Modal; lives while it is open.
class LeasesDialog : public QDialog {
    Q_OBJECT

public:
    LeasesDialog(AddressManager* addressManager, QWidget* parent);
    ~LeasesDialog() override;

private slots:
    void TimerTimeout();

private:
    void FitColumns();

    std::unique_ptr<Ui::LeasesDialog> ui;
    QTimer* refreshTimer = nullptr;
    AddressManager* addressManager;
    LeaseTableModel* model = nullptr; // child of the dialog
    const int refreshPeriod = 5000;      // ms
    const int64_t remainingTimeStep = 5; // s
};
