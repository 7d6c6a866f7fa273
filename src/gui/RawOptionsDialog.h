#pragma once

#include "WindowBase.h"

#include <QDialog>

#include <memory>

class AppException;
class Settings;

namespace Ui {
class RawOptionsDialog;
}

// Editor of the additional DHCP options that every reply carries. Works
// directly on the list of the Settings: a confirmed change is made at once.
class RawOptionsDialog : public QDialog, public WindowBase {
    Q_OBJECT

public:
    RawOptionsDialog(Settings* settings, QWidget* parent);
    ~RawOptionsDialog() override;

    // A critical box, titled like this dialog, for a refused option.
    void ShowOptionError(const AppException& exception);

private slots:
    void on_pushButtonHelp_clicked();
    void on_tableWidget_cellChanged(int row, int column);
    void on_pushButtonRemove_clicked();
    void on_tableWidget_itemSelectionChanged();
    void on_pushButtonAdd_clicked();

private:
    void FillTable();
    // The row of the first selected item, or -1.
    int GetSelectedRow() const;

    std::unique_ptr<Ui::RawOptionsDialog> ui;
    Settings* settings;
    // Number of options at the last fill.
    unsigned rowCount = 0;
    // True inside FillTable: the cells change then without the user.
    bool fillingTable = false;
};
