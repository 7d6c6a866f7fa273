#pragma once

#include <QDialog>

#include <memory>

class AddressManager;
class QTimer;

namespace Ui {
class LeasesDialog;
}

// The addresses leased now, as a read-only table rebuilt every 5 seconds.
// Modal; lives while it is open.
class LeasesDialog : public QDialog {
    Q_OBJECT

public:
    LeasesDialog(AddressManager* addressManager, QWidget* parent);
    ~LeasesDialog() override;

private slots:
    void TimerTimeout();

private:
    std::unique_ptr<Ui::LeasesDialog> ui;
    QTimer* refreshTimer = nullptr;
    AddressManager* addressManager;
    const int refreshPeriod = 5000;      // ms
    const unsigned remainingTimeStep = 5; // s
};
