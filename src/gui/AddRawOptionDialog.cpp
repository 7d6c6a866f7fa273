#include "AddRawOptionDialog.h"

#include "RawOptionsDialog.h"
#include "ui_AddRawOptionDialog.h"

#include "config/Settings.h"
#include "foundation/AppException.h"
#include "wire/RawOption.h"

AddRawOptionDialog::AddRawOptionDialog(Settings* settings, RawOptionsDialog* parent)
    : QDialog(parent)
    , ui(std::make_unique<Ui::AddRawOptionDialog>())
    , settings(settings)
    , rawOptionsDialog(parent)
{
    ui->setupUi(this);
    setWindowFlags(windowFlags() & ~Qt::WindowContextHelpButtonHint);
}

AddRawOptionDialog::~AddRawOptionDialog() = default;

void AddRawOptionDialog::on_pushButtonOK_clicked()
{
    try {
        // The same code may stand in the list twice: both go into the replies.
        settings->GetAdditionalOptions().emplace_back(ui->lineEditOptionCode->text().toLatin1().toStdString(),
                                                      ui->lineEditData->text().toLatin1().toStdString());
        close();
    } catch (const AppException& exception) {
        rawOptionsDialog->ShowOptionError(exception);
    }
}

void AddRawOptionDialog::on_pushButtonCancel_clicked()
{
    close();
}
