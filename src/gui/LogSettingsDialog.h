#pragma once

#include "WindowBase.h"

#include <QDialog>

#include <array>
#include <memory>

class QCheckBox;
class Settings;

namespace Ui {
class LogSettingsDialog;
}

// What the log records and where it is written. The settings change only on
// "OK"; they reach the file at the next save of the settings.
class LogSettingsDialog : public QDialog, public WindowBase {
    Q_OBJECT

public:
    LogSettingsDialog(Settings* settings, QWidget* parent);
    ~LogSettingsDialog() override;

private slots:
    void on_pushButtonBrowse_clicked();
    void on_pushButtonOK_clicked();
    void on_pushButtonCancel_clicked();

private:
    // The nine event type boxes, indexed by EventType.
    std::array<QCheckBox*, 9> EventTypeBoxes() const;
    void FillForm();
    void ReadForm();

    std::unique_ptr<Ui::LogSettingsDialog> ui;
    Settings* settings;
};
