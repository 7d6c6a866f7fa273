// The main window driven like a user: form, start and stop, boxes, tray,
// closing. Every server runs on fake sockets (see GuiTestEnvironment).

#include "support/GuiTestEnvironment.h"
#include "support/MainWindowProbe.h"
#include "support/ModalWatcher.h"

#include "MainWindow.h"

#include "foundation/AppException.h"
#include "log/LogItem.h"

#include <QCheckBox>
#include <QDialog>
#include <QPushButton>
#include <QtTest>

#include <memory>

namespace {

const QString SETTINGS_NOT_VALID =
    QStringLiteral("Nie można uruchomić serwera, ponieważ ustawienia są niepoprawne!");
const QString PORT_BUSY = QStringLiteral("Nie udało się uruchomić nasłuchiwania na porcie 67!");
const QString FORM_FIRST = QStringLiteral("Najpierw wprowadź poprawne ustawienia w bieżącym oknie!");
const QString START_SERVER = QStringLiteral("Uruchom serwer");
const QString STOP_SERVER = QStringLiteral("Zatrzymaj serwer");
const QString TITLE = QStringLiteral("Tarnvel DHCP Server");

// A desktop with a tray, which the offscreen platform does not offer.
class TrayMainWindow : public MainWindow {
public:
    using MainWindow::MainWindow;

protected:
    bool IsSystemTrayAvailable() const override { return true; }
};

QAction* TrayAction(MainWindow& window, const char* name)
{
    return window.findChild<QAction*>(name);
}

} // namespace

class MainWindowTest : public QObject {
    Q_OBJECT

private slots:
    void firstStartShowsDefaultsWithoutABox();
    void formSurvivesARestartWithEmptyOptionalFields();
    void invalidFormRefusesToStart_data();
    void invalidFormRefusesToStart();
    void busyPortRefusesToStartButSavesTheSettings();
    void otherStartFailureShowsTheEnglishText();
    void startAndStopSwitchTextsIconsAndForm();
    void chosenListeningAddressIsTheOneBound();
    void reservationsNeedAValidFormFirst();
    void reservationsOpenOnAValidForm();
    void logSettingsSwitchTheLogEntries();
    void logWindowHidesWithTheMainWindow();
    void closingARunningServerStopsItAndSaves();
    void unparsableFormAtClosingLeavesTheFile();
    void minimizeToTrayHidesAndShowsTheWindow();
    void withoutATrayTheWindowMinimizesNormally();
    void settingsFileWarnings_data();
    void settingsFileWarnings();
    void programThatCannotStart_data();
    void programThatCannotStart();
};

void MainWindowTest::firstStartShowsDefaultsWithoutABox()
{
    GuiTestEnvironment environment;
    ModalWatcher watcher;
    MainWindow window(environment.MakePlatform());
    MainWindowProbe probe(window);

    QVERIFY(watcher.Boxes().empty());
    QCOMPARE(window.windowTitle(), TITLE);
    QCOMPARE(probe.Field("lineEditPoolStartAddress")->text(), QStringLiteral("192.168.1.240"));
    QCOMPARE(probe.Field("lineEditPoolEndAddress")->text(), QStringLiteral("192.168.1.254"));
    QCOMPARE(probe.Field("lineEditSubnetMask")->text(), QStringLiteral("255.255.255.0"));
    QCOMPARE(probe.Field("lineEditDefaultGateway")->text(), QStringLiteral("192.168.1.1"));
    QCOMPARE(probe.Field("lineEditDNSAddress1")->text(), QStringLiteral("192.168.1.1"));
    QCOMPARE(probe.Field("lineEditDNSAddress2")->text(), QString());
    QCOMPARE(probe.Field("lineEditLeaseDuration")->text(), QStringLiteral("3600"));
    QCOMPARE(probe.ListeningAddress()->count(), 2);
    QCOMPARE(probe.ListeningAddress()->itemText(0), QStringLiteral("10.77.0.1"));
    QCOMPARE(probe.ListeningAddress()->itemText(1), QStringLiteral("10.77.1.1"));
    QCOMPARE(probe.StartStopButton()->text(), START_SERVER);
    QVERIFY(probe.IsFormEnabled(true));
    QCOMPARE(probe.Field("lineEditSubnetMask")->maxLength(), 15);
    QVERIFY(probe.Field("lineEditSubnetMask")->alignment() & Qt::AlignHCenter);
    // Fixed at the size of its contents.
    QCOMPARE(window.minimumSize(), window.maximumSize());
    QCOMPARE(probe.WindowIconImage(), MainWindowProbe::ResourceImage(":windowIconInactive.png"));
    QCOMPARE(probe.TrayIconImage(), MainWindowProbe::ResourceImage(":trayIconInactive.png"));
    QVERIFY(!probe.TrayIcon()->isVisible());
}

void MainWindowTest::formSurvivesARestartWithEmptyOptionalFields()
{
    GuiTestEnvironment environment;
    {
        ModalWatcher watcher;
        MainWindow window(environment.MakePlatform());
        MainWindowProbe probe(window);
        probe.SetField("lineEditPoolStartAddress", "10.77.0.16");
        probe.SetField("lineEditPoolEndAddress", "10.77.3.250");
        probe.SetField("lineEditSubnetMask", "255.255.252.0");
        probe.SetField("lineEditDefaultGateway", "");
        probe.SetField("lineEditDNSAddress1", "");
        probe.SetField("lineEditDNSAddress2", " 10.77.0.3 ");
        probe.SetField("lineEditLeaseDuration", "86400");
        probe.ListeningAddress()->setCurrentIndex(1);
        QVERIFY(watcher.Boxes().empty());
    }
    QVERIFY(environment.ReadFile("settings.cfg").contains("10.77.3.250"));

    ModalWatcher watcher;
    MainWindow window(environment.MakePlatform());
    MainWindowProbe probe(window);
    QVERIFY(watcher.Boxes().empty());
    QCOMPARE(probe.Field("lineEditPoolStartAddress")->text(), QStringLiteral("10.77.0.16"));
    QCOMPARE(probe.Field("lineEditPoolEndAddress")->text(), QStringLiteral("10.77.3.250"));
    // The mask is stored as a prefix length and shown dotted again.
    QCOMPARE(probe.Field("lineEditSubnetMask")->text(), QStringLiteral("255.255.252.0"));
    QCOMPARE(probe.Field("lineEditDefaultGateway")->text(), QString());
    QCOMPARE(probe.Field("lineEditDNSAddress1")->text(), QString());
    QCOMPARE(probe.Field("lineEditDNSAddress2")->text(), QStringLiteral("10.77.0.3"));
    QCOMPARE(probe.Field("lineEditLeaseDuration")->text(), QStringLiteral("86400"));
    QCOMPARE(probe.ListeningAddress()->currentText(), QStringLiteral("10.77.1.1"));
}

void MainWindowTest::invalidFormRefusesToStart_data()
{
    QTest::addColumn<QString>("field");
    QTest::addColumn<QString>("text");
    QTest::newRow("mask with a gap") << "lineEditSubnetMask" << "255.0.255.0";
    QTest::newRow("mask that is no address") << "lineEditSubnetMask" << "255.255.255";
    QTest::newRow("pool across two subnets") << "lineEditPoolEndAddress" << "10.77.1.20";
    QTest::newRow("pool end before its start") << "lineEditPoolEndAddress" << "10.77.0.50";
    QTest::newRow("pool end on the broadcast address") << "lineEditPoolEndAddress" << "10.77.0.255";
    QTest::newRow("gateway that is no address") << "lineEditDefaultGateway" << "10.77.0.300";
    QTest::newRow("lease time that is no number") << "lineEditLeaseDuration" << "1h";
    QTest::newRow("negative lease time") << "lineEditLeaseDuration" << "-5";
    QTest::newRow("lease time at the 32-bit limit") << "lineEditLeaseDuration" << "2147483647";
}

void MainWindowTest::invalidFormRefusesToStart()
{
    QFETCH(QString, field);
    QFETCH(QString, text);
    GuiTestEnvironment environment;
    ModalWatcher watcher;
    MainWindow window(environment.MakePlatform());
    MainWindowProbe probe(window);
    probe.EnterValidForm();
    probe.SetField(field, text);

    probe.StartStopButton()->click();

    const ModalWatcher::SeenBox box = watcher.OnlyBox();
    QCOMPARE(box.text, SETTINGS_NOT_VALID);
    QCOMPARE(box.icon, QMessageBox::Critical);
    QCOMPARE(box.title, TITLE);
    QCOMPARE(environment.network.GetOpenCount(), 0);
    QCOMPARE(probe.StartStopButton()->text(), START_SERVER);
    QVERIFY(probe.IsFormEnabled(true));
    QVERIFY(probe.Action("actionAddressReservations")->isEnabled());
    QCOMPARE(probe.WindowIconImage(), MainWindowProbe::ResourceImage(":windowIconInactive.png"));
}

void MainWindowTest::busyPortRefusesToStartButSavesTheSettings()
{
    GuiTestEnvironment environment;
    ModalWatcher watcher;
    MainWindow window(environment.MakePlatform());
    MainWindowProbe probe(window);
    probe.EnterValidForm();
    environment.network.SetOpenFailure(AppException::CannotBindSocket);

    probe.StartStopButton()->click();

    const ModalWatcher::SeenBox box = watcher.OnlyBox();
    QCOMPARE(box.text, PORT_BUSY);
    QCOMPARE(box.icon, QMessageBox::Critical);
    QVERIFY(!environment.network.IsOpen());
    QCOMPARE(probe.StartStopButton()->text(), START_SERVER);
    QVERIFY(probe.IsFormEnabled(true));
    QVERIFY(environment.ReadFile("settings.cfg").contains("10.77.0.199"));
}

void MainWindowTest::otherStartFailureShowsTheEnglishText()
{
    GuiTestEnvironment environment;
    ModalWatcher watcher;
    MainWindow window(environment.MakePlatform());
    MainWindowProbe probe(window);
    probe.EnterValidForm();
    environment.network.SetOpenFailure(AppException::CannotDetermineInterfaceName);

    probe.StartStopButton()->click();

    QCOMPARE(watcher.OnlyBox().text, QString::fromStdString(
                                         AppException::GetMessageForCode(AppException::CannotDetermineInterfaceName)));
    QCOMPARE(watcher.OnlyBox().icon, QMessageBox::Critical);
    QVERIFY(probe.IsFormEnabled(true));
}

void MainWindowTest::startAndStopSwitchTextsIconsAndForm()
{
    GuiTestEnvironment environment;
    ModalWatcher watcher;
    MainWindow window(environment.MakePlatform());
    MainWindowProbe probe(window);
    probe.EnterValidForm();
    QAction* trayStartStop = TrayAction(window, "trayActionStartStop");
    QVERIFY(trayStartStop != nullptr);
    QCOMPARE(trayStartStop->text(), START_SERVER);

    probe.StartStopButton()->click();

    QVERIFY(watcher.Boxes().empty());
    QVERIFY(environment.network.IsOpen());
    QCOMPARE(environment.network.GetOpenedPort(), uint16_t(67));
    QCOMPARE(probe.StartStopButton()->text(), STOP_SERVER);
    QCOMPARE(trayStartStop->text(), STOP_SERVER);
    QCOMPARE(probe.WindowIconImage(), MainWindowProbe::ResourceImage(":windowIconActive.png"));
    QCOMPARE(probe.TrayIconImage(), MainWindowProbe::ResourceImage(":trayIconActive.png"));
    QVERIFY(probe.IsFormEnabled(false));
    QVERIFY(!probe.Action("actionAddressReservations")->isEnabled());
    QVERIFY(!probe.Action("actionAdditionalOptions")->isEnabled());
    QVERIFY(!probe.Action("actionLogSettings")->isEnabled());
    QVERIFY(probe.Action("actionShowLeases")->isEnabled());
    QVERIFY(probe.Action("actionAbout")->isEnabled());
    QVERIFY(probe.Action("actionToggleMinimizeToTray")->isEnabled());
    QVERIFY(probe.StartStopButton()->isEnabled());

    // The tray item stops it just as the button does.
    trayStartStop->trigger();

    QVERIFY(environment.network.WaitUntilClosed());
    QCOMPARE(probe.StartStopButton()->text(), START_SERVER);
    QCOMPARE(trayStartStop->text(), START_SERVER);
    QCOMPARE(probe.WindowIconImage(), MainWindowProbe::ResourceImage(":windowIconInactive.png"));
    QCOMPARE(probe.TrayIconImage(), MainWindowProbe::ResourceImage(":trayIconInactive.png"));
    QVERIFY(probe.IsFormEnabled(true));
    QVERIFY(probe.Action("actionAddressReservations")->isEnabled());
    QVERIFY(probe.Action("actionAdditionalOptions")->isEnabled());
    QVERIFY(probe.Action("actionLogSettings")->isEnabled());
    QVERIFY(probe.StartStopButton()->isEnabled());

    // StartServer starts it once and leaves a running server alone.
    window.StartServer();
    window.StartServer();
    QCOMPARE(environment.network.GetOpenCount(), 2);
    QCOMPARE(probe.StartStopButton()->text(), STOP_SERVER);
    QVERIFY(watcher.Boxes().empty());
}

void MainWindowTest::chosenListeningAddressIsTheOneBound()
{
    GuiTestEnvironment environment;
    ModalWatcher watcher;
    MainWindow window(environment.MakePlatform());
    MainWindowProbe probe(window);
    probe.EnterValidForm();
    probe.ListeningAddress()->setCurrentIndex(1);

    probe.StartStopButton()->click();

    QVERIFY(environment.network.IsOpen());
    QCOMPARE(environment.network.GetOpenedAddress(), GuiTestEnvironment::SECOND_ADDRESS);
}

void MainWindowTest::reservationsNeedAValidFormFirst()
{
    GuiTestEnvironment environment;
    ModalWatcher watcher;
    MainWindow window(environment.MakePlatform());
    MainWindowProbe probe(window);
    probe.EnterValidForm();
    probe.SetField("lineEditLeaseDuration", "ten minutes");

    probe.Action("actionAddressReservations")->trigger();

    QCOMPARE(watcher.OnlyBox().text, FORM_FIRST);
    QCOMPARE(watcher.OnlyBox().icon, QMessageBox::Critical);
    QVERIFY(watcher.UnexpectedDialogs().isEmpty());
}

void MainWindowTest::reservationsOpenOnAValidForm()
{
    GuiTestEnvironment environment;
    ModalWatcher watcher;
    MainWindow window(environment.MakePlatform());
    MainWindowProbe probe(window);
    probe.EnterValidForm();
    QString seenTitle;
    watcher.OnDialog("ReservationsDialog", [&seenTitle](QDialog* dialog) {
        seenTitle = dialog->windowTitle();
        dialog->close();
    });

    probe.Action("actionAddressReservations")->trigger();

    QCOMPARE(seenTitle, QStringLiteral("Rezerwacje adresów"));
    QVERIFY(watcher.Boxes().empty());
    QVERIFY(watcher.UnexpectedDialogs().isEmpty());
}

void MainWindowTest::logSettingsSwitchTheLogEntries()
{
    GuiTestEnvironment environment;
    ModalWatcher watcher;
    MainWindow window(environment.MakePlatform());
    MainWindowProbe probe(window);
    QAction* trayLog = TrayAction(window, "trayActionLog");
    // Logging is off by default.
    QVERIFY(!probe.Action("actionLog")->isEnabled());
    QVERIFY(!trayLog->isVisible());

    watcher.OnDialog("LogSettingsDialog", [](QDialog* dialog) {
        dialog->findChild<QCheckBox*>("checkBoxEnableLogging")->setChecked(true);
        dialog->findChild<QPushButton*>("pushButtonOK")->click();
    });
    probe.Action("actionLogSettings")->trigger();
    QVERIFY(probe.Action("actionLog")->isEnabled());
    QVERIFY(trayLog->isVisible());

    // Anuluj changes nothing, and the entries still follow the setting.
    watcher.OnDialog("LogSettingsDialog", [](QDialog* dialog) {
        dialog->findChild<QCheckBox*>("checkBoxEnableLogging")->setChecked(false);
        dialog->findChild<QPushButton*>("pushButtonCancel")->click();
    });
    probe.Action("actionLogSettings")->trigger();
    QVERIFY(probe.Action("actionLog")->isEnabled());
    QVERIFY(trayLog->isVisible());

    watcher.OnDialog("LogSettingsDialog", [](QDialog* dialog) {
        dialog->findChild<QCheckBox*>("checkBoxEnableLogging")->setChecked(false);
        dialog->findChild<QPushButton*>("pushButtonOK")->click();
    });
    probe.Action("actionLogSettings")->trigger();
    QVERIFY(!probe.Action("actionLog")->isEnabled());
    QVERIFY(!trayLog->isVisible());
    QCOMPARE(watcher.PendingHandlers(), 0);
    QVERIFY(watcher.UnexpectedDialogs().isEmpty());
}

void MainWindowTest::logWindowHidesWithTheMainWindow()
{
    GuiTestEnvironment environment;
    ModalWatcher watcher;
    MainWindow window(environment.MakePlatform());
    MainWindowProbe probe(window);
    window.show();
    watcher.OnDialog("LogSettingsDialog", [](QDialog* dialog) {
        dialog->findChild<QCheckBox*>("checkBoxEnableLogging")->setChecked(true);
        dialog->findChild<QPushButton*>("pushButtonOK")->click();
    });
    probe.Action("actionLogSettings")->trigger();

    probe.Action("actionLog")->trigger();
    QDialog* logWindow = nullptr;
    for (QWidget* widget : QApplication::topLevelWidgets()) {
        if (widget->objectName() == "LogBrowserDialog") {
            logWindow = qobject_cast<QDialog*>(widget);
        }
    }
    QVERIFY(logWindow != nullptr);
    QVERIFY(logWindow->isVisible());
    QCOMPARE(logWindow->windowIcon().pixmap(32, 32).toImage().convertToFormat(QImage::Format_ARGB32),
             MainWindowProbe::ResourceImage(":windowIconInactive.png"));

    // The log window follows the main window's icon.
    probe.EnterValidForm();
    probe.StartStopButton()->click();
    QCOMPARE(logWindow->windowIcon().pixmap(32, 32).toImage().convertToFormat(QImage::Format_ARGB32),
             MainWindowProbe::ResourceImage(":windowIconActive.png"));

    QVERIFY(window.close());
    QVERIFY(!logWindow->isVisible());
    QVERIFY(!window.isVisible());
}

void MainWindowTest::closingARunningServerStopsItAndSaves()
{
    GuiTestEnvironment environment;
    {
        ModalWatcher watcher;
        auto window = std::make_unique<MainWindow>(environment.MakePlatform());
        MainWindowProbe probe(*window);
        watcher.OnDialog("LogSettingsDialog", [](QDialog* dialog) {
            dialog->findChild<QCheckBox*>("checkBoxEnableLogging")->setChecked(true);
            dialog->findChild<QPushButton*>("pushButtonOK")->click();
        });
        probe.Action("actionLogSettings")->trigger();
        probe.EnterValidForm();
        probe.StartStopButton()->click();
        QVERIFY(environment.network.IsOpen());
        // Typed while running cannot happen (the form is disabled); what was
        // read at the start is what is saved.
        window.reset();
        QVERIFY(watcher.Boxes().empty());
    }
    QVERIFY(!environment.network.IsOpen());
    const QByteArray settings = environment.ReadFile("settings.cfg");
    QVERIFY(settings.contains("10.77.0.100"));
    QVERIFY(settings.contains("600"));
    const QList<QByteArray> logLines = environment.ReadFile("log.txt").trimmed().split('\n');
    QCOMPARE(logLines.size(), 2);
    QVERIFY(logLines[0].contains(LogItem::GetEventTypeName(ServerStart).c_str()));
    QVERIFY(logLines[1].contains(LogItem::GetEventTypeName(ServerStop).c_str()));
}

void MainWindowTest::unparsableFormAtClosingLeavesTheFile()
{
    GuiTestEnvironment environment;
    {
        ModalWatcher watcher;
        MainWindow window(environment.MakePlatform());
        MainWindowProbe(window).EnterValidForm();
    }
    const QByteArray saved = environment.ReadFile("settings.cfg");
    QVERIFY(saved.contains("10.77.0.199"));
    {
        ModalWatcher watcher;
        MainWindow window(environment.MakePlatform());
        MainWindowProbe probe(window);
        probe.SetField("lineEditPoolEndAddress", "10.77.0.198");
        probe.SetField("lineEditLeaseDuration", "soon");
        QVERIFY(watcher.Boxes().empty());
    }
    QCOMPARE(environment.ReadFile("settings.cfg"), saved);
}

void MainWindowTest::minimizeToTrayHidesAndShowsTheWindow()
{
    GuiTestEnvironment environment;
    ModalWatcher watcher;
    {
        TrayMainWindow window(environment.MakePlatform());
        MainWindowProbe probe(window);
        window.show();
        QAction* toggle = probe.Action("actionToggleMinimizeToTray");
        QVERIFY(!toggle->isChecked());

        toggle->trigger();

        QVERIFY(toggle->isChecked());
        // Saved at once, not only at closing.
        QVERIFY(environment.ReadFile("settings.cfg").contains("MinimizeToSystemTray True"));

        window.setWindowState(Qt::WindowMinimized);
        QVERIFY(!window.isVisible());
        QVERIFY(probe.TrayIcon()->isVisible());
        QVERIFY(window.windowFlags() & Qt::FramelessWindowHint);

        TrayAction(window, "trayActionShowWindow")->trigger();
        QVERIFY(window.isVisible());
        QVERIFY(!window.isMinimized());
        QVERIFY(!probe.TrayIcon()->isVisible());
        QVERIFY(!(window.windowFlags() & Qt::FramelessWindowHint));

        // A double click brings it back; a single click does nothing.
        window.setWindowState(Qt::WindowMinimized);
        QVERIFY(!window.isVisible());
        emit probe.TrayIcon()->activated(QSystemTrayIcon::Trigger);
        QVERIFY(!window.isVisible());
        emit probe.TrayIcon()->activated(QSystemTrayIcon::DoubleClick);
        QVERIFY(window.isVisible());
        QVERIFY(!probe.TrayIcon()->isVisible());

        QCOMPARE(TrayAction(window, "trayActionShowWindow")->font().bold(), true);
        QCOMPARE(probe.TrayMenu()->defaultAction(), TrayAction(window, "trayActionShowWindow"));
    }
    // The next start remembers the choice.
    TrayMainWindow window(environment.MakePlatform());
    QVERIFY(MainWindowProbe(window).Action("actionToggleMinimizeToTray")->isChecked());
    QVERIFY(watcher.Boxes().empty());
}

void MainWindowTest::withoutATrayTheWindowMinimizesNormally()
{
    GuiTestEnvironment environment;
    ModalWatcher watcher;
    MainWindow window(environment.MakePlatform());
    MainWindowProbe probe(window);
    window.show();
    probe.Action("actionToggleMinimizeToTray")->trigger();

    window.setWindowState(Qt::WindowMinimized);

    QVERIFY(window.isMinimized());
    QVERIFY(window.isVisible());
    QVERIFY(!probe.TrayIcon()->isVisible());
}

void MainWindowTest::settingsFileWarnings_data()
{
    QTest::addColumn<QByteArray>("appendix");
    QTest::addColumn<QByteArray>("wholeFile");
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("poolEnd");
    QTest::newRow("some bad lines")
        << QByteArray("LeaseDuration 1h\r\n") << QByteArray()
        << QStringLiteral("Uwaga! Niektóre linie pliku konfiguracynego są błędne i nie zostały wzięte pod uwagę. "
                          "Zostaną one automatycznie usunięte po uruchomieniu serwera lub zamknięciu programu.")
        << "10.77.0.199";
    QTest::newRow("no pool at all")
        << QByteArray() << QByteArray("Nonsense 1\r\nMore nonsense\r\n")
        << QStringLiteral("Uwaga! Plik konfiguracyjny zawiera poważne błędy. Wykorzystane zostaną ustawienia "
                          "domyślne, które następnie nadpiszą obecny plik. Jeśli chcesz zachować jego zawartość, "
                          "wykonaj kopię przed uruchomieniem serwera lub zamknięciem programu.")
        << "192.168.1.254";
    QTest::newRow("no line end at all")
        << QByteArray() << QByteArray("PoolStartAddress 10.77.0.100")
        << QString::fromStdString(AppException::GetMessageForCode(AppException::UnsupportedEOLStyle))
        << "192.168.1.254";
}

void MainWindowTest::settingsFileWarnings()
{
    QFETCH(QByteArray, appendix);
    QFETCH(QByteArray, wholeFile);
    QFETCH(QString, text);
    QFETCH(QString, poolEnd);
    GuiTestEnvironment environment;
    {
        ModalWatcher watcher;
        MainWindow window(environment.MakePlatform());
        MainWindowProbe(window).EnterValidForm();
    }
    environment.WriteFile("settings.cfg",
                          wholeFile.isEmpty() ? environment.ReadFile("settings.cfg") + appendix : wholeFile);

    ModalWatcher watcher;
    bool windowShownAtBox = true;
    MainWindow* constructed = nullptr;
    watcher.OnEveryBox([&](const ModalWatcher::SeenBox&) { windowShownAtBox = constructed != nullptr; });
    MainWindow window(environment.MakePlatform());
    constructed = &window;

    QCOMPARE(watcher.OnlyBox().text, text);
    QCOMPARE(watcher.OnlyBox().icon, QMessageBox::Warning);
    QCOMPARE(watcher.OnlyBox().title, TITLE);
    QVERIFY(!windowShownAtBox);
    QCOMPARE(MainWindowProbe(window).Field("lineEditPoolEndAddress")->text(), poolEnd);
}

void MainWindowTest::programThatCannotStart_data()
{
    QTest::addColumn<bool>("privileged");
    QTest::addColumn<bool>("withAddresses");
    QTest::addColumn<QString>("text");
    QTest::addColumn<int>("code");
    QTest::newRow("no privilege") << false << true
                                  << QStringLiteral("Aby program mógł działać, musi zostać uruchomiony przez "
                                                    "użytkownika \"root\".")
                                  << int(AppException::NotAdministrator);
    QTest::newRow("no address to listen on") << true << false << QStringLiteral("Nie można uruchomić programu!")
                                             << int(AppException::NoAddressToListenOn);
}

void MainWindowTest::programThatCannotStart()
{
    QFETCH(bool, privileged);
    QFETCH(bool, withAddresses);
    QFETCH(QString, text);
    QFETCH(int, code);
    GuiTestEnvironment environment;
    ModalWatcher watcher;
    ServerPlatform platform = withAddresses ? environment.MakePlatform(privileged)
                                            : environment.MakePlatformWithAddresses({});
    int raisedCode = -1;
    try {
        MainWindow window(platform);
    } catch (const AppException& exception) {
        raisedCode = exception.GetCode();
    }
    QCOMPARE(raisedCode, code);
    QCOMPARE(watcher.OnlyBox().text, text);
    QCOMPARE(watcher.OnlyBox().icon, QMessageBox::Critical);
    QCOMPARE(watcher.OnlyBox().title, TITLE);
    QVERIFY(!QFile::exists(environment.FilePath("settings.cfg")));
}

QTEST_MAIN(MainWindowTest)
#include "MainWindowTest.moc"
