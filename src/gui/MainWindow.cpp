#include "MainWindow.h"

#include "AboutDialog.h"
#include "LeasesDialog.h"
#include "LogBrowserDialog.h"
#include "LogSettingsDialog.h"
#include "RawOptionsDialog.h"
#include "ReservationsDialog.h"
#include "ui_MainWindow.h"

#include "config/Settings.h"
#include "engine/DHCPServer.h"
#include "foundation/AppException.h"
#include "foundation/IPv4Address.h"

#include <QAction>
#include <QCoreApplication>
#include <QEvent>
#include <QFont>
#include <QMenu>
#include <QTimer>

#include <string>

namespace {

// How often the window looks for the engine's storage warnings while the
// server runs: soon enough for a box, rare enough to cost nothing.
constexpr int STORAGE_WARNING_POLL_MS = 1000;

// The form's texts are ASCII by nature; anything else fails the parsers.
std::string ToAscii(const QString& text)
{
    return text.toLatin1().toStdString();
}

QString ToText(const IPv4Address& address)
{
    return QString::fromStdString(address.ToString());
}

// An absent gateway or DNS server is stored as 0.0.0.0 and shown empty.
QString ToOptionalText(const IPv4Address& address)
{
    return address.IsZero() ? QString() : ToText(address);
}

IPv4Address AddressFromField(const QLineEdit* field)
{
    return IPv4Address(ToAscii(field->text()));
}

bool IsSettingsCode(int32_t code)
{
    return code == AppException::ServerSettingsNotValid || code == AppException::IPAddressStringNotValid ||
           code == AppException::NotASubnetMask;
}

} // namespace

MainWindow::MainWindow(QWidget* parent)
    : MainWindow([] { return std::make_unique<DHCPServer>(); }, parent)
{
}

MainWindow::MainWindow(ServerPlatform platform, QWidget* parent)
    : MainWindow([&platform] { return std::make_unique<DHCPServer>(std::move(platform)); }, parent)
{
}

MainWindow::MainWindow(const std::function<std::unique_ptr<DHCPServer>()>& makeServer, QWidget* parent)
    : QMainWindow(parent)
    , ui(std::make_unique<Ui::MainWindow>())
    , trayIconActive(":trayIconActive.png")
    , trayIconInactive(":trayIconInactive.png")
    , windowIconActive(":windowIconActive.png")
    , windowIconInactive(":windowIconInactive.png")
{
    // The boxes of a failed start come before the form exists; they carry this title.
    setWindowTitle(tr("Tarnvel DHCP Server"));
    try {
        dhcpServer = makeServer();
        BuildForm();
        CreateTrayIcon();
        CreateTrayIconMenu();
        ui->actionToggleMinimizeToTray->setChecked(minimizeToTray);
        LoadSettings();
        FillForm();
        // The engine never calls the window: its storage warnings wait in a
        // queue that this timer looks at while the server runs.
        storageWarningTimer = new QTimer(this);
        storageWarningTimer->setInterval(STORAGE_WARNING_POLL_MS);
        connect(storageWarningTimer, &QTimer::timeout, this, &MainWindow::ShowStorageWarnings);
    } catch (const AppException& exception) {
        ShowProgramStartFailure(exception);
        throw AppException(exception.GetCode());
    }
}

MainWindow::~MainWindow()
{
    if (dhcpServer->IsRunning()) {
        dhcpServer->Stop();
    }
    try {
        ReadForm();
        dhcpServer->GetSettings()->Save();
    } catch (const AppException&) {
        // A form that does not parse leaves the settings file as it was.
    }
    ui.reset();
    const QList<QAction*> trayActions = trayIconMenu->actions();
    delete trayIcon;
    trayIcon = nullptr;
    qDeleteAll(trayActions);
    trayIconMenu.reset();
    logBrowserDialog.reset();
    dhcpServer.reset();
}

void MainWindow::StartServer()
{
    if (!dhcpServer->IsRunning()) {
        on_pushButtonStartStop_clicked();
    }
}

bool MainWindow::event(QEvent* event)
{
    if (event->type() == QEvent::Close) {
        if (logBrowserDialog) {
            // The log window only hides, so this window is then the last one open.
            logBrowserDialog->close();
        }
        const bool inTray = isHidden();
        const bool handled = QMainWindow::event(event);
        // Qt leaves the event loop when the last visible window closes. A
        // window in the tray is hidden already, so "Zakończ" ends it here.
        if (inTray && event->isAccepted()) {
            QCoreApplication::quit();
        }
        return handled;
    }
    if (event->type() == QEvent::WindowStateChange && minimizeToTray && IsSystemTrayAvailable()) {
        if (isMinimized()) {
            HideToTray();
        } else {
            showWindowFromTray();
        }
        return true;
    }
    return QMainWindow::event(event);
}

bool MainWindow::IsSystemTrayAvailable() const
{
    return QSystemTrayIcon::isSystemTrayAvailable();
}

// ---- Slots -----------------------------------------------------------------

void MainWindow::on_actionLog_triggered()
{
    if (!logBrowserDialog) {
        logBrowserDialog = std::make_unique<LogBrowserDialog>(dhcpServer->GetLogManager(), nullptr);
        logBrowserDialog->setWindowIcon(windowIcon());
    }
    logBrowserDialog->showNormal();
}

void MainWindow::on_actionLogSettings_triggered()
{
    LogSettingsDialog dialog(dhcpServer->GetSettings(), this);
    dialog.exec();
    UpdateLogActions();
}

void MainWindow::on_comboBoxListeningAddress_currentIndexChanged(int index)
{
    if (fillingListeningAddresses || index < 0) {
        return;
    }
    try {
        const IPv4Address address(ToAscii(ui->comboBoxListeningAddress->itemText(index)));
        dhcpServer->GetSettings()->SetPreferredListeningAddress(address);
    } catch (const AppException& exception) {
        ShowMessage(this, exception.GetMessage(), QMessageBox::Critical);
    }
}

void MainWindow::on_actionAbout_triggered()
{
    AboutDialog dialog(this);
    dialog.exec();
}

void MainWindow::on_actionToggleMinimizeToTray_triggered()
{
    minimizeToTray = !minimizeToTray;
    Settings* settings = dhcpServer->GetSettings();
    settings->SetMinimizeToSystemTray(minimizeToTray);
    try {
        settings->Save();
    } catch (const AppException& exception) {
        // The choice stays in force for this run; the file is written again at closing.
        ShowMessage(this, exception.GetMessage(), QMessageBox::Critical);
    }
    ui->actionToggleMinimizeToTray->setChecked(minimizeToTray);
}

void MainWindow::trayIconActivated(QSystemTrayIcon::ActivationReason reason)
{
    if (reason == QSystemTrayIcon::DoubleClick) {
        showWindowFromTray();
    }
}

void MainWindow::showWindowFromTray()
{
    ShowWindow();
    // Also clears the minimised state; the state change comes back through
    // event() and repeats these steps, which then change nothing.
    setWindowState(Qt::WindowActive);
    trayIcon->hide();
}

void MainWindow::on_actionShowLeases_triggered()
{
    LeasesDialog dialog(dhcpServer->GetAddressManager(), this);
    dialog.exec();
}

void MainWindow::on_actionAdditionalOptions_triggered()
{
    RawOptionsDialog dialog(dhcpServer->GetSettings(), this);
    dialog.exec();
}

void MainWindow::on_actionAddressReservations_triggered()
{
    try {
        // The reservation checks work on the pool and mask of the form.
        ReadForm();
        ReservationsDialog dialog(dhcpServer->GetAddressManager(), this);
        dialog.exec();
    } catch (const AppException& exception) {
        if (IsSettingsCode(exception.GetCode())) {
            ShowMessage(this, tr("Najpierw wprowadź poprawne ustawienia w bieżącym oknie!"), QMessageBox::Critical);
        } else {
            ShowMessage(this, exception.GetMessage(), QMessageBox::Critical);
        }
    }
}

void MainWindow::on_pushButtonStartStop_clicked()
{
    if (dhcpServer->IsRunning()) {
        ui->pushButtonStartStop->setEnabled(false);
        storageWarningTimer->stop();
        dhcpServer->Stop();
        SetWindowIcons(windowIconInactive);
        trayIcon->setIcon(trayIconInactive);
        ui->pushButtonStartStop->setText(tr("Uruchom serwer"));
        trayActionStartStop->setText(tr("Uruchom serwer"));
        ui->pushButtonStartStop->setEnabled(true);
    } else {
        try {
            ReadForm();
            try {
                dhcpServer->GetSettings()->Save();
            } catch (const AppException&) {
                // A settings file that cannot be written does not stop the start.
            }
            dhcpServer->Start();
            storageWarningTimer->start();
            SetWindowIcons(windowIconActive);
            trayIcon->setIcon(trayIconActive);
            ui->pushButtonStartStop->setText(tr("Zatrzymaj serwer"));
            trayActionStartStop->setText(tr("Zatrzymaj serwer"));
        } catch (const AppException& exception) {
            ShowStartFailure(exception);
        }
    }
    SetFormEnabled(!dhcpServer->IsRunning());
    // A damaged journal found by the start is told at once.
    ShowStorageWarnings();
}

QString MainWindow::StorageWarningText(const StorageWarnings::Warning& warning)
{
    const QString path = QString::fromStdString(warning.path);
    switch (warning.kind) {
    case StorageWarnings::Kind::WriteFailed:
        return tr("Nie można zapisywać dziennika dzierżaw (%1: %2). Serwer nadal odpowiada klientom, ale "
                  "dzierżawy przyznane od tej chwili przepadną, jeśli program zakończy się bez "
                  "zatrzymania serwera. Zwolnij miejsce na dysku; zapis zostanie ponowiony samoczynnie.")
            .arg(path, QString::fromStdString(warning.detail));
    case StorageWarnings::Kind::JournalDamaged:
        return tr("Dziennik dzierżaw był uszkodzony. Przywrócono dzierżawy zapisane przed uszkodzeniem, "
                  "a uszkodzony dziennik zachowano jako %1.")
            .arg(path);
    case StorageWarnings::Kind::JournalNotContinuing:
        return tr("Dziennik dzierżaw nie pasuje do pliku dzierżaw obok niego, więc go nie odtworzono. "
                  "Zachowano go jako %1.")
            .arg(path);
    case StorageWarnings::Kind::WriteRecovered:
        break; // Standard error has it; the episode's box said what to do.
    }
    return QString();
}

void MainWindow::ShowStorageWarnings()
{
    // The box runs its own event loop, in which this timer fires again; the
    // warnings that come meanwhile wait for the next look.
    if (showingStorageWarning) {
        return;
    }
    showingStorageWarning = true;
    for (const StorageWarnings::Warning& warning : dhcpServer->TakeStorageWarnings()) {
        const QString text = StorageWarningText(warning);
        if (!text.isEmpty()) {
            ShowMessage(this, text, QMessageBox::Warning);
        }
    }
    showingStorageWarning = false;
}

// ---- Construction ----------------------------------------------------------

void MainWindow::BuildForm()
{
    ui->setupUi(this);
    adjustSize();
    setFixedSize(size());
    SetWindowIcons(dhcpServer->IsRunning() ? windowIconActive : windowIconInactive);
}

void MainWindow::CreateTrayIcon()
{
    trayIcon = new QSystemTrayIcon(this);
    trayIcon->setIcon(dhcpServer->IsRunning() ? trayIconActive : trayIconInactive);
    trayIcon->setToolTip(windowTitle());
    connect(trayIcon, &QSystemTrayIcon::activated, this, &MainWindow::trayIconActivated);
}

void MainWindow::CreateTrayIconMenu()
{
    trayIconMenu = std::make_unique<QMenu>();

    trayActionShowWindow = new QAction(tr("Pokaż okno"), this);
    trayActionShowWindow->setObjectName("trayActionShowWindow");
    QFont boldFont = trayActionShowWindow->font();
    boldFont.setBold(true);
    trayActionShowWindow->setFont(boldFont);
    connect(trayActionShowWindow, &QAction::triggered, this, &MainWindow::showWindowFromTray);

    trayActionLog = new QAction(tr("Log..."), this);
    trayActionLog->setObjectName("trayActionLog");
    connect(trayActionLog, &QAction::triggered, this, &MainWindow::on_actionLog_triggered);

    trayActionStartStop =
        new QAction(dhcpServer->IsRunning() ? tr("Zatrzymaj serwer") : tr("Uruchom serwer"), this);
    trayActionStartStop->setObjectName("trayActionStartStop");
    connect(trayActionStartStop, &QAction::triggered, this, &MainWindow::on_pushButtonStartStop_clicked);

    trayActionQuit = new QAction(tr("Zakończ"), this);
    trayActionQuit->setObjectName("trayActionQuit");
    connect(trayActionQuit, &QAction::triggered, this, &MainWindow::close);

    trayIconMenu->addAction(trayActionShowWindow);
    trayIconMenu->setDefaultAction(trayActionShowWindow);
    trayIconMenu->addAction(trayActionLog);
    trayIconMenu->addSeparator();
    trayIconMenu->addAction(trayActionStartStop);
    trayIconMenu->addSeparator();
    trayIconMenu->addAction(trayActionQuit);
    trayIcon->setContextMenu(trayIconMenu.get());
}

void MainWindow::LoadSettings()
{
    try {
        dhcpServer->GetSettings()->Load();
    } catch (const AppException& exception) {
        switch (exception.GetCode()) {
        case AppException::SettingsFilePartlyLoaded:
            ShowMessage(this,
                        tr("Uwaga! Niektóre linie pliku konfiguracynego są błędne i nie zostały wzięte pod uwagę. "
                           "Zostaną one automatycznie usunięte po uruchomieniu serwera lub zamknięciu programu."),
                        QMessageBox::Warning);
            break;
        case AppException::SettingsFileFatalError:
            ShowMessage(this,
                        tr("Uwaga! Plik konfiguracyjny zawiera poważne błędy. Wykorzystane zostaną ustawienia "
                           "domyślne, które następnie nadpiszą obecny plik. Jeśli chcesz zachować jego zawartość, "
                           "wykonaj kopię przed uruchomieniem serwera lub zamknięciem programu."),
                        QMessageBox::Warning);
            break;
        case AppException::FileNotExists:
            // The first start: the defaults are in force.
            break;
        default:
            ShowMessage(this, exception.GetMessage(), QMessageBox::Warning);
            break;
        }
    }
}

void MainWindow::ShowProgramStartFailure(const AppException& exception)
{
    if (exception.GetCode() == AppException::NotAdministrator) {
        ShowMessage(this, tr("Aby program mógł działać, musi zostać uruchomiony przez użytkownika \"root\"."),
                    QMessageBox::Critical);
    } else {
        ShowMessage(this, tr("Nie można uruchomić programu!"), QMessageBox::Critical);
    }
}

// ---- Form ------------------------------------------------------------------

void MainWindow::FillForm()
{
    const Settings* settings = dhcpServer->GetSettings();
    ui->lineEditPoolStartAddress->setText(ToText(settings->GetPoolStartAddress()));
    ui->lineEditPoolEndAddress->setText(ToText(settings->GetPoolEndAddress()));
    ui->lineEditSubnetMask->setText(ToText(settings->GetSubnetMaskAddress()));
    ui->lineEditDefaultGateway->setText(ToOptionalText(settings->GetDefaultGateway()));
    ui->lineEditDNSAddress1->setText(ToOptionalText(settings->GetDNSAddress1()));
    ui->lineEditDNSAddress2->setText(ToOptionalText(settings->GetDNSAddress2()));
    ui->lineEditLeaseDuration->setText(QString::number(settings->GetLeaseDuration()));

    const std::vector<IPv4Address> addresses = *dhcpServer->GetAvailableListeningAddresses();
    fillingListeningAddresses = true;
    for (const IPv4Address& address : addresses) {
        ui->comboBoxListeningAddress->addItem(ToText(address));
    }
    fillingListeningAddresses = false;
    if (dhcpServer->IsPreferredAddressAvailable()) {
        // Not guarded: the slot stores the same address once more.
        const int index = ui->comboBoxListeningAddress->findText(ToText(settings->GetPreferredListeningAddress()));
        if (index >= 0) {
            ui->comboBoxListeningAddress->setCurrentIndex(index);
        }
    }

    minimizeToTray = settings->GetMinimizeToSystemTray();
    ui->actionToggleMinimizeToTray->setChecked(minimizeToTray);
    UpdateLogActions();
}

void MainWindow::ReadForm()
{
    Settings* settings = dhcpServer->GetSettings();
    settings->SetPoolStartAddress(AddressFromField(ui->lineEditPoolStartAddress));
    settings->SetPoolEndAddress(AddressFromField(ui->lineEditPoolEndAddress));
    settings->SetSubnetMask(static_cast<uint8_t>(AddressFromField(ui->lineEditSubnetMask).GetSubnetMaskLength()));
    if (!settings->IsValid()) {
        throw AppException(AppException::ServerSettingsNotValid);
    }
    settings->SetDefaultGateway(AddressFromField(ui->lineEditDefaultGateway));
    settings->SetDNSAddress1(AddressFromField(ui->lineEditDNSAddress1));
    settings->SetDNSAddress2(AddressFromField(ui->lineEditDNSAddress2));

    bool isNumber = false;
    const long leaseDuration = ui->lineEditLeaseDuration->text().toLong(&isNumber, 10);
    // Seconds; the lease arithmetic is 32-bit, so the top value is refused too.
    if (!isNumber || leaseDuration < 0 || leaseDuration >= 2147483647L) {
        throw AppException(AppException::NotASubnetMask);
    }
    settings->SetLeaseDuration(static_cast<int32_t>(leaseDuration));

    const IPv4Address listeningAddress(ToAscii(ui->comboBoxListeningAddress->currentText()));
    if (listeningAddress.IsZero()) {
        throw AppException(AppException::IPAddressStringNotValid);
    }
    settings->SetPreferredListeningAddress(listeningAddress);
}

void MainWindow::SetFormEnabled(bool enabled)
{
    const std::initializer_list<QWidget*> fields = {
        ui->lineEditPoolStartAddress, ui->lineEditPoolEndAddress, ui->lineEditSubnetMask,
        ui->lineEditDefaultGateway,   ui->lineEditDNSAddress1,    ui->lineEditDNSAddress2,
        ui->lineEditLeaseDuration,    ui->comboBoxListeningAddress,
    };
    for (QWidget* field : fields) {
        field->setEnabled(enabled);
    }
    ui->actionAddressReservations->setEnabled(enabled);
    ui->actionAdditionalOptions->setEnabled(enabled);
    ui->actionLogSettings->setEnabled(enabled);
}

void MainWindow::SetWindowIcons(const QIcon& icon)
{
    setWindowIcon(icon);
    if (logBrowserDialog) {
        logBrowserDialog->setWindowIcon(icon);
    }
}

void MainWindow::UpdateLogActions()
{
    const bool loggingEnabled = dhcpServer->GetSettings()->GetLoggingEnabled();
    ui->actionLog->setEnabled(loggingEnabled);
    trayActionLog->setVisible(loggingEnabled);
}

void MainWindow::ShowStartFailure(const AppException& exception)
{
    if (exception.GetCode() == AppException::CannotBindSocket) {
        ShowMessage(this, tr("Nie udało się uruchomić nasłuchiwania na porcie 67!"), QMessageBox::Critical);
    } else if (exception.GetCode() == AppException::LeaseFileInUse) {
        ShowMessage(this, tr("Plik dzierżaw tego adresu jest używany przez inny działający serwer!"),
                    QMessageBox::Critical);
    } else if (IsSettingsCode(exception.GetCode())) {
        ShowMessage(this, tr("Nie można uruchomić serwera, ponieważ ustawienia są niepoprawne!"),
                    QMessageBox::Critical);
    } else {
        ShowMessage(this, exception.GetMessage(), QMessageBox::Critical);
    }
}

// ---- Tray ------------------------------------------------------------------

void MainWindow::ShowWindow()
{
    setWindowFlags(windowFlags() & ~Qt::FramelessWindowHint);
    show();
}

void MainWindow::HideWindow()
{
    hide();
    setWindowFlags(windowFlags() | Qt::FramelessWindowHint);
}

void MainWindow::HideToTray()
{
    trayIcon->setVisible(true);
    HideWindow();
}
