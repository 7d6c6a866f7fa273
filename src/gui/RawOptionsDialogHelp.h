#pragma once

#include "WindowBase.h"

#include <QDialog>

#include <memory>

namespace Ui {
class RawOptionsDialogHelp;
}

// A fixed text on how additional options are entered, as a small tool window
// above the options dialog.
class RawOptionsDialogHelp : public QDialog, public WindowBase {
    Q_OBJECT

public:
    explicit RawOptionsDialogHelp(QWidget* parent);
    ~RawOptionsDialogHelp() override;

private:
    std::unique_ptr<Ui::RawOptionsDialogHelp> ui;
};
