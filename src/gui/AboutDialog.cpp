#include "AboutDialog.h"

#include "ui_AboutDialog.h"

#include "engine/DHCPServer.h"

AboutDialog::AboutDialog(QWidget* parent)
    : QDialog(parent)
    , ui(std::make_unique<Ui::AboutDialog>())
{
    ui->setupUi(this);
    setWindowFlags(Qt::Window | Qt::WindowTitleHint | Qt::WindowCloseButtonHint);
    ui->labelVersion->setText(QString::fromStdString(DHCPServer::GetVersion()));
}

AboutDialog::~AboutDialog() = default;
