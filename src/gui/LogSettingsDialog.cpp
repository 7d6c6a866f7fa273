#include "LogSettingsDialog.h"

#include "ui_LogSettingsDialog.h"

#include "config/Settings.h"
#include "foundation/AppException.h"
#include "foundation/Tools.h"
#include "log/EventType.h"

#include <QFileDialog>

static_assert(EVENT_TYPE_COUNT == 9, "one box for each event type");

LogSettingsDialog::LogSettingsDialog(Settings* settings, QWidget* parent)
    : QDialog(parent)
    , ui(std::make_unique<Ui::LogSettingsDialog>())
    , settings(settings)
{
    ui->setupUi(this);
    setWindowFlags(windowFlags() & ~Qt::WindowContextHelpButtonHint);
    FillForm();
}

LogSettingsDialog::~LogSettingsDialog() = default;

void LogSettingsDialog::on_pushButtonBrowse_clicked()
{
    // The text filter comes first and is the one in force.
    const QString filter = tr("Pliki tekstowe") + " (*.txt);;" + tr("Wszystkie pliki") + " (*.*)";
    const QString fileName = QFileDialog::getSaveFileName(this, QStringLiteral("Wybierz plik logu"), QString(), filter,
                                                          nullptr, QFileDialog::DontConfirmOverwrite);
    if (!fileName.isEmpty()) {
        ui->lineEditLogFilePath->setText(QString::fromStdString(Tools::SanitizePath(fileName.toStdString())));
    }
}

void LogSettingsDialog::on_pushButtonOK_clicked()
{
    try {
        ReadForm();
        close();
    } catch (const AppException&) {
        // Nothing here can be refused; should it be, the dialog simply stays open.
    }
}

void LogSettingsDialog::on_pushButtonCancel_clicked()
{
    close();
}

std::array<QCheckBox*, 9> LogSettingsDialog::EventTypeBoxes() const
{
    std::array<QCheckBox*, 9> boxes{};
    boxes[ServerStart] = ui->checkBoxEventType_ServerStart;
    boxes[ServerStop] = ui->checkBoxEventType_ServerStop;
    boxes[DHCPDiscoverReceived] = ui->checkBoxEventType_DHCPDiscoverReceived;
    boxes[DHCPRequestReceived] = ui->checkBoxEventType_DHCPRequestReceived;
    boxes[DHCPOfferSent] = ui->checkBoxEventType_DHCPOfferSent;
    boxes[DHCPAckSent] = ui->checkBoxEventType_DHCPAckSent;
    boxes[DHCPNakSent] = ui->checkBoxEventType_DHCPNakSent;
    boxes[DHCPInformReceived] = ui->checkBoxEventType_DHCPInformReceived;
    boxes[DHCPReleaseReceived] = ui->checkBoxEventType_DHCPReleaseReceived;
    return boxes;
}

void LogSettingsDialog::FillForm()
{
    ui->checkBoxEnableLogging->setChecked(settings->GetLoggingEnabled());
    ui->checkBoxLogIgnoredMessages->setChecked(settings->GetLogIgnoredDHCPMessages());
    ui->lineEditLogFilePath->setText(QString::fromStdString(settings->GetLogFilePath()));
    const std::array<QCheckBox*, 9> boxes = EventTypeBoxes();
    for (int eventType = 0; eventType < EVENT_TYPE_COUNT; ++eventType) {
        boxes[eventType]->setChecked(settings->GetLogEventEnabled(eventType));
    }
}

void LogSettingsDialog::ReadForm()
{
    settings->SetLoggingEnabled(ui->checkBoxEnableLogging->isChecked());
    settings->SetLogIgnoredDHCPMessages(ui->checkBoxLogIgnoredMessages->isChecked());
    settings->SetLogFilePath(Tools::SanitizePath(ui->lineEditLogFilePath->text().toStdString()));
    const std::array<QCheckBox*, 9> boxes = EventTypeBoxes();
    for (int eventType = 0; eventType < EVENT_TYPE_COUNT; ++eventType) {
        settings->SetLogEventEnabled(eventType, boxes[eventType]->isChecked());
    }
}
