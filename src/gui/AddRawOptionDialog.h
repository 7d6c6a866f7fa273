#pragma once

#include "WindowBase.h"

#include <QDialog>

#include <memory>

class RawOptionsDialog;
class Settings;

namespace Ui {
class AddRawOptionDialog;
}

// The small form behind "Dodaj..." of the additional options. A refusal is
// shown by the parent dialog, and this form stays open for another try.
class AddRawOptionDialog : public QDialog, public WindowBase {
    Q_OBJECT

public:
    AddRawOptionDialog(Settings* settings, RawOptionsDialog* parent);
    ~AddRawOptionDialog() override;

private slots:
    void on_pushButtonOK_clicked();
    void on_pushButtonCancel_clicked();

private:
    std::unique_ptr<Ui::AddRawOptionDialog> ui;
    Settings* settings;
    RawOptionsDialog* rawOptionsDialog;
};
