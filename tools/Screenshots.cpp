// Renders every window and dialog of the program, with sample contents, into
// PNG files: `quorvy_screenshots <folder> [<catalog>]`. With a catalog (the
// path of quorvy_en without suffix) the pictures are English, else Polish.
// Runs on fake sockets like the tests; scripts/screenshots.sh drives it.

#include "support/GuiTest.h"
#include "support/RaisedCode.h"

#include "AboutDialog.h"
#include "AddRawOptionDialog.h"
#include "AddReservationDialog.h"
#include "LeasesDialog.h"
#include "LogBrowserDialog.h"
#include "LogSettingsDialog.h"
#include "RawOptionsDialog.h"
#include "RawOptionsDialogHelp.h"
#include "ReservationsDialog.h"

#include "allocation/AddressManager.h"
#include "config/Settings.h"
#include "engine/DHCPServer.h"
#include "foundation/AppException.h"
#include "log/LogManager.h"

#include <QApplication>
#include <QDir>
#include <QMenuBar>
#include <QTableView>
#include <QtTest/QTest>
#include <QTranslator>

#include <cstdio>
#include <memory>

namespace {

class Camera {
public:
    // Each modal box is photographed under the next name that ExpectBox gave, then closed.
    explicit Camera(const QString& folder) : folder(folder)
    {
        watcher.beforeClosingBox = [this](QMessageBox* box) {
            Take(box, boxNames.value(0, "unexpected-box"));
            boxNames = boxNames.mid(1);
        };
    }

    void Take(QWidget* widget, const QString& name)
    {
        widget->show();
        QCoreApplication::processEvents();
        const QString path = QDir(folder).filePath(name + ".png");
        if (!widget->grab().save(path)) {
            std::fprintf(stderr, "cannot write %s\n", qPrintable(path));
            failed = true;
        }
        std::printf("%s %dx%d\n", qPrintable(path), widget->width(), widget->height());
    }

    void ExpectBox(const QString& name) { boxNames.push_back(name); }

    bool failed = false;

private:
    QString folder;
    QStringList boxNames;
    ModalWatcher watcher;
};

void FillSamples(DHCPServer& server)
{
    Settings* settings = server.GetSettings();
    settings->SetPoolStartAddress(IPv4Address(10, 77, 0, 100));
    settings->SetPoolEndAddress(IPv4Address(10, 77, 0, 199));
    settings->SetSubnetMask(24);
    settings->SetLoggingEnabled(true);
    AddressManager* addresses = server.GetAddressManager();
    addresses->AddReservation(AddressReservation(HardwareAddress("00:1a:2b:3c:4d:5e"), IPv4Address(10, 77, 0, 110)));
    addresses->AddReservation(AddressReservation(HardwareAddress("52:54:00:12:34:56"), IPv4Address(10, 77, 0, 111)));
    addresses->AddLease(HardwareAddress("00:1a:2b:3c:4d:5e"), IPv4Address(10, 77, 0, 110), 3600);
    addresses->AddLease(HardwareAddress("52:54:00:ab:cd:ef"), IPv4Address(10, 77, 0, 100), 87);
    addresses->AddLease(HardwareAddress("f0:de:f1:00:00:01"), IPv4Address(10, 77, 0, 101), 4);
    settings->GetAdditionalOptions().emplace_back("4", "10 77 0 1");
    settings->GetAdditionalOptions().emplace_back("15", "108 97 98");
    LogManager* log = server.GetLogManager();
    const HardwareAddress client("52:54:00:ab:cd:ef");
    log->AddLogItem(ServerStart, std::nullopt, IPv4Address(10, 77, 0, 1), false);
    log->AddLogItem(DHCPDiscoverReceived, client, std::nullopt, false);
    log->AddLogItem(DHCPOfferSent, client, IPv4Address(10, 77, 0, 100), false);
    log->AddLogItem(DHCPRequestReceived, client, IPv4Address(10, 77, 0, 100), false);
    log->AddLogItem(DHCPAckSent, client, IPv4Address(10, 77, 0, 100), false);
    log->AddLogItem(DHCPRequestReceived, HardwareAddress("f0:de:f1:00:00:09"), IPv4Address(192, 168, 5, 5), true);
}

// A busy server: thousands of leases in a /16 pool and a long log of
// exchanges, some seconds apart, framed by a start.
void FillMany(DHCPServer& server, ManualClock& clock)
{
    constexpr int CLIENTS = 6000;
    constexpr int EXCHANGES = 25000;
    Settings* settings = server.GetSettings();
    settings->SetPoolStartAddress(IPv4Address(10, 77, 0, 100));
    settings->SetPoolEndAddress(IPv4Address(10, 77, 255, 254));
    settings->SetSubnetMask(16);
    settings->SetLoggingEnabled(true);
    settings->SetLogIgnoredDHCPMessages(true);
    const auto client = [](int number) {
        const uint8_t bytes[6] = {0x52, 0x54, 0x00, 0x5e, static_cast<uint8_t>(number >> 8),
                                  static_cast<uint8_t>(number)};
        return HardwareAddress(bytes, 6, HardwareAddress::Ethernet10Mb);
    };
    const auto address = [](int number) { return IPv4Address::FromUint32(0x0A4D0064u + static_cast<uint32_t>(number)); };
    LogManager* log = server.GetLogManager();
    log->AddLogItem(ServerStart, std::nullopt, IPv4Address(10, 77, 0, 1), false);
    for (int exchange = 0; exchange < EXCHANGES; ++exchange) {
        const int number = exchange * 7919 % CLIENTS;
        log->AddLogItem(DHCPDiscoverReceived, client(number), std::nullopt, exchange % 97 == 0);
        if (exchange % 97 == 0) {
            continue; // ignored: no offer
        }
        log->AddLogItem(DHCPOfferSent, client(number), address(number), false);
        log->AddLogItem(DHCPRequestReceived, client(number), address(number), false);
        log->AddLogItem(DHCPAckSent, client(number), address(number), false);
        clock.Advance(exchange % 3);
    }
    AddressManager* addresses = server.GetAddressManager();
    for (int number = 0; number < CLIENTS; ++number) {
        addresses->AddLease(client(number), address(number), 600 + number % 3000);
    }
}

// Both live views on the busy server, scrolled into the middle of their rows.
void TakeManyRows(Camera& camera, GuiTestEnvironment& environment)
{
    DHCPServer server(environment.MakePlatform());
    FillMany(server, environment.clock);
    const auto scrollToMiddle = [](QWidget* dialog) {
        auto* table = dialog->findChild<QTableView*>("tableView");
        table->scrollTo(table->model()->index(table->model()->rowCount() / 2, 0), QAbstractItemView::PositionAtTop);
    };
    LeasesDialog leases(server.GetAddressManager(), nullptr);
    leases.resize(leases.width(), 420);
    leases.show();
    scrollToMiddle(&leases);
    camera.Take(&leases, "LeasesDialog-many");
    LogBrowserDialog log(server.GetLogManager(), nullptr);
    log.resize(640, 480);
    log.show();
    scrollToMiddle(&log);
    camera.Take(&log, "LogBrowserDialog-many");
}

void TakeMenus(Camera& camera, MainWindow& window)
{
    const QList<QMenu*> menus = window.menuBar()->findChildren<QMenu*>(QString(), Qt::FindDirectChildrenOnly);
    for (QMenu* menu : menus) {
        if (menu->objectName().isEmpty()) {
            continue; // the menu bar's own overflow menu
        }
        menu->popup(window.mapToGlobal(QPoint(0, 0)));
        camera.Take(menu, "menu-" + menu->objectName());
        menu->hide();
    }
    QMenu* trayMenu = window.findChild<QSystemTrayIcon*>()->contextMenu();
    trayMenu->popup(QPoint(0, 0));
    camera.Take(trayMenu, "menu-tray");
    trayMenu->hide();
}

void TakeMainWindow(Camera& camera, GuiTestEnvironment& environment)
{
    MainWindow window(environment.MakePlatform());
    MainWindowProbe probe{window};
    camera.Take(&window, "MainWindow-defaults");
    probe.EnterValidForm();
    probe.StartStopButton()->click();
    camera.Take(&window, "MainWindow-running");
    TakeMenus(camera, window);
    probe.StartStopButton()->click();

    camera.ExpectBox("box-settings-not-valid");
    probe.Field("lineEditSubnetMask")->setText("255.0.255.0");
    probe.StartStopButton()->click();
    probe.EnterValidForm();

    camera.ExpectBox("box-port-busy");
    environment.network.SetOpenFailure(AppException::CannotBindSocket);
    probe.StartStopButton()->click();
    environment.network.SetOpenFailure(std::nullopt);

    camera.ExpectBox("box-form-first");
    probe.Field("lineEditLeaseDuration")->setText("1h");
    probe.Action("actionAddressReservations")->trigger();
    probe.EnterValidForm();
}

void TakeStartWarnings(Camera& camera, GuiTestEnvironment& environment)
{
    environment.WriteFile("settings.cfg", environment.ReadFile("settings.cfg") + "LeaseDuration 1h\r\n");
    camera.ExpectBox("box-settings-partly-loaded");
    { MainWindow window(environment.MakePlatform()); }
    environment.WriteFile("settings.cfg", "Nonsense\r\n");
    camera.ExpectBox("box-settings-fatal");
    { MainWindow window(environment.MakePlatform()); }
    camera.ExpectBox("box-not-root");
    CodeRaisedBy([&] { MainWindow window(environment.MakePlatform({GuiTestEnvironment::FIRST_ADDRESS}, false)); });
    camera.ExpectBox("box-cannot-start");
    CodeRaisedBy([&] { MainWindow window(environment.MakePlatform({})); });
}

void TakeDialogs(Camera& camera, GuiTestEnvironment& environment)
{
    DHCPServer server(environment.MakePlatform());
    FillSamples(server);
    AddressManager* addresses = server.GetAddressManager();
    Settings* settings = server.GetSettings();
    camera.Take(std::make_unique<LeasesDialog>(addresses, nullptr).get(), "LeasesDialog");
    {
        LogBrowserDialog dialog(server.GetLogManager(), nullptr);
        dialog.resize(640, 480);
        camera.Take(&dialog, "LogBrowserDialog");
    }
    ReservationsDialog reservations(addresses, nullptr);
    camera.Take(&reservations, "ReservationsDialog");
    camera.Take(std::make_unique<AddReservationDialog>(addresses, &reservations).get(), "AddReservationDialog");
    camera.ExpectBox("box-reservation-outside-subnet");
    reservations.ShowReservationError(AppException(AppException::ReservationOutsidePoolSubnet));
    RawOptionsDialog options(settings, nullptr);
    camera.Take(&options, "RawOptionsDialog");
    camera.Take(std::make_unique<AddRawOptionDialog>(settings, &options).get(), "AddRawOptionDialog");
    camera.Take(std::make_unique<RawOptionsDialogHelp>(&options).get(), "RawOptionsDialogHelp");
    camera.ExpectBox("box-option-data-too-long");
    options.ShowOptionError(AppException(AppException::RawOptionDataTooLong));
    camera.Take(std::make_unique<LogSettingsDialog>(settings, nullptr).get(), "LogSettingsDialog");
    camera.Take(std::make_unique<AboutDialog>(nullptr).get(), "AboutDialog");
}

} // namespace

int main(int argc, char* argv[])
{
    QApplication application(argc, argv);
    if (argc < 2) {
        std::fprintf(stderr, "usage: %s <output folder> [<catalog>]\n", argv[0]);
        return 2;
    }
    QTranslator translator;
    if (argc > 2 && !translator.load(QString::fromLocal8Bit(argv[2]))) {
        std::fprintf(stderr, "cannot load the catalog %s\n", argv[2]);
        return 2;
    }
    QCoreApplication::installTranslator(&translator);
    // Absolute: the server makes its data folder the current directory.
    const QString folder = QDir(QString::fromLocal8Bit(argv[1])).absolutePath();
    QDir().mkpath(folder);

    Camera camera(folder);

    GuiTestEnvironment environment;
    TakeMainWindow(camera, environment);
    TakeStartWarnings(camera, environment);
    TakeDialogs(camera, environment);
    TakeManyRows(camera, environment);
    return camera.failed ? 1 : 0;
}
