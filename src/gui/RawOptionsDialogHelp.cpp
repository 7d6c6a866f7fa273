#include "RawOptionsDialogHelp.h"

#include "ui_RawOptionsDialogHelp.h"

RawOptionsDialogHelp::RawOptionsDialogHelp(QWidget* parent)
    : QDialog(parent)
    , ui(std::make_unique<Ui::RawOptionsDialogHelp>())
{
    ui->setupUi(this);
    setWindowFlags((windowFlags() & ~Qt::WindowContextHelpButtonHint) | Qt::Tool);
}

RawOptionsDialogHelp::~RawOptionsDialogHelp() = default;
