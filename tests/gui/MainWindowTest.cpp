// The main window driven like a user: form, start and stop, boxes, tray,
// closing; and the English catalog. Every server runs on fake sockets.

#include "support/GuiTest.h"

#include "MainWindow.h"
#include "allocation/LeaseJournal.h"
#include "allocation/StorageWarnings.h"

#include "foundation/AppException.h"
#include "log/LogItem.h"

#include <QCheckBox>
#include <QDir>
#include <QTranslator>
#include <QXmlStreamReader>
#include <QtTest>

#include <memory>

namespace {

const QString START_SERVER = QStringLiteral("Uruchom serwer");
const QString STOP_SERVER = QStringLiteral("Zatrzymaj serwer");

// A desktop with a tray, which the offscreen platform does not offer.
class TrayMainWindow : public MainWindow {
public:
    using MainWindow::MainWindow;

protected:
    bool IsSystemTrayAvailable() const override { return true; }
};

} // namespace

class MainWindowTest : public QObject {
    Q_OBJECT

    std::unique_ptr<GuiTestEnvironment> environment;
    std::unique_ptr<ModalWatcher> watcher;
    std::unique_ptr<MainWindow> window;

    MainWindowProbe Probe() { return {*window}; }

private slots:
    void init()
    {
        environment = std::make_unique<GuiTestEnvironment>();
        watcher = std::make_unique<ModalWatcher>();
        window = std::make_unique<MainWindow>(environment->MakePlatform());
    }

    void cleanup()
    {
        window.reset();
        QVERIFY(watcher->AllAnswered());
        watcher.reset();
        environment.reset();
    }

    void formSurvivesARestartWithEmptyOptionalFields()
    {
        // Field, text typed, text shown after a restart; the mask is stored as a prefix length.
        const char* const form[][3] = {{"lineEditPoolStartAddress", "10.77.0.16", "10.77.0.16"},
                                       {"lineEditPoolEndAddress", "10.77.3.250", "10.77.3.250"},
                                       {"lineEditSubnetMask", "255.255.252.0", "255.255.252.0"},
                                       {"lineEditDefaultGateway", "", ""},
                                       {"lineEditDNSAddress1", "", ""},
                                       {"lineEditDNSAddress2", " 10.77.0.3 ", "10.77.0.3"},
                                       {"lineEditLeaseDuration", "86400", "86400"}};
        for (const auto& [field, typed, shown] : form) {
            Probe().Field(field)->setText(typed);
        }
        Probe().ListeningAddress()->setCurrentIndex(1);
        window.reset();
        window = std::make_unique<MainWindow>(environment->MakePlatform());
        const QByteArray saved = environment->ReadFile("settings.cfg");

        for (const auto& [field, typed, shown] : form) {
            QCOMPARE(Probe().Field(field)->text(), QString(shown));
        }
        QCOMPARE(Probe().ListeningAddress()->currentText(), QStringLiteral("10.77.1.1"));
        // A form that cannot be read at closing leaves the file alone.
        Probe().Field("lineEditPoolEndAddress")->setText("10.77.0.198");
        Probe().Field("lineEditLeaseDuration")->setText("soon");
        window.reset();
        QCOMPARE(environment->ReadFile("settings.cfg"), saved);
        QVERIFY(watcher->boxes.empty());
    }

    void refusedStartShowsItsBoxAndLeavesTheFormEnabled_data()
    {
        QTest::addColumn<QString>("field");
        QTest::addColumn<QString>("text");
        QTest::addColumn<int>("openFailure"); // 0: none
        QTest::addColumn<QString>("box");
        const QString notValid = QStringLiteral("Nie można uruchomić serwera, ponieważ ustawienia są niepoprawne!");
        QTest::newRow("mask with a gap") << "lineEditSubnetMask" << "255.0.255.0" << 0 << notValid;
        QTest::newRow("pool across two subnets") << "lineEditPoolEndAddress" << "10.77.1.20" << 0 << notValid;
        QTest::newRow("pool end on the broadcast") << "lineEditPoolEndAddress" << "10.77.0.255" << 0 << notValid;
        QTest::newRow("gateway that is no address") << "lineEditDefaultGateway" << "10.77.0.300" << 0 << notValid;
        QTest::newRow("lease time at the 32-bit limit") << "lineEditLeaseDuration" << "2147483647" << 0 << notValid;
        QTest::newRow("negative lease time") << "lineEditLeaseDuration" << "-1" << 0 << notValid;
        QTest::newRow("port 67 busy") << "" << "" << int(AppException::CannotBindSocket)
                                      << QStringLiteral("Nie udało się uruchomić nasłuchiwania na porcie 67!");
        QTest::newRow("no interface: the English text")
            << "" << "" << int(AppException::CannotDetermineInterfaceName)
            << QString::fromStdString(AppException::GetMessageForCode(AppException::CannotDetermineInterfaceName));
    }

    void refusedStartShowsItsBoxAndLeavesTheFormEnabled()
    {
        QFETCH(QString, field);
        QFETCH(QString, text);
        QFETCH(int, openFailure);
        QFETCH(QString, box);
        Probe().EnterValidForm();
        if (openFailure == 0) {
            Probe().Field(field.toLatin1())->setText(text);
        } else {
            environment->network.SetOpenFailure(openFailure);
        }

        Probe().StartStopButton()->click();

        QCOMPARE(watcher->OnlyBox().text, box);
        QCOMPARE(watcher->OnlyBox().icon, QMessageBox::Critical);
        QCOMPARE(watcher->OnlyBox().title, QStringLiteral("Tarnvel DHCP Server"));
        QVERIFY(!environment->network.IsOpen());
        QCOMPARE(Probe().StartStopButton()->text(), START_SERVER);
        QVERIFY(Probe().IsFormEnabled(true));
        QVERIFY(Probe().Action("actionAddressReservations")->isEnabled());
        // A valid form is saved even when the port cannot be had.
        QCOMPARE(environment->ReadFile("settings.cfg").contains("10.77.0.199"), openFailure != 0);
    }

    // What the engine found wrong with the lease files reaches the window.
    void leaseFileTroubleAtStartShowsItsBox()
    {
        Probe().EnterValidForm();
        const QString leaseFile = QStringLiteral("quorvy_leases_%1.dat").arg(QString::fromStdString(
            GuiTestEnvironment::FIRST_ADDRESS.ToString()));
        {
            // Another program holds the lease file: a critical box, no start.
            StorageWarnings warnings;
            LeaseJournal other(QDir(qEnvironmentVariable("TEMP")).filePath(leaseFile).toStdString(), &warnings);
            other.Lock();
            Probe().StartStopButton()->click();
            QCOMPARE(watcher->OnlyBox().icon, QMessageBox::Critical);
            QCOMPARE(watcher->OnlyBox().text,
                     QStringLiteral("Plik dzierżaw tego adresu jest używany przez inny działający serwer!"));
            QVERIFY(!environment->network.IsOpen());
        }
        watcher->boxes.clear();
        // A damaged journal: the start goes on, with a warning naming where it went.
        environment->WriteFile(leaseFile + ".journal", QByteArray(100, 'x'));
        Probe().StartStopButton()->click();
        QVERIFY(environment->network.IsOpen());
        QCOMPARE(watcher->OnlyBox().icon, QMessageBox::Warning);
        QVERIFY(watcher->OnlyBox().text.startsWith(QStringLiteral("Dziennik dzierżaw był uszkodzony.")));
        QVERIFY(watcher->OnlyBox().text.contains(leaseFile + ".journal.damaged."));
    }

    void startAndStopSwitchTextsIconsAndForm()
    {
        const auto showsRunning = [this](bool running) {
            const MainWindowProbe probe = Probe();
            QCOMPARE(probe.StartStopButton()->text(), running ? STOP_SERVER : START_SERVER);
            QCOMPARE(probe.Action("trayActionStartStop")->text(), running ? STOP_SERVER : START_SERVER);
            QCOMPARE(Picture(window->windowIcon(), 32),
                     Picture(QIcon(running ? ":windowIconActive.png" : ":windowIconInactive.png"), 32));
            QCOMPARE(Picture(probe.TrayIcon()->icon(), 16),
                     Picture(QIcon(running ? ":trayIconActive.png" : ":trayIconInactive.png"), 16));
            QVERIFY(probe.IsFormEnabled(!running));
            for (const char* action : {"actionAddressReservations", "actionAdditionalOptions", "actionLogSettings"}) {
                QVERIFY2(probe.Action(action)->isEnabled() != running, action);
            }
            QVERIFY(probe.Action("actionShowLeases")->isEnabled() && probe.Action("actionAbout")->isEnabled());
        };
        showsRunning(false);
        Probe().EnterValidForm();
        Probe().ListeningAddress()->setCurrentIndex(1);

        Probe().StartStopButton()->click();
        showsRunning(true);
        QVERIFY(environment->network.IsOpen());
        QCOMPARE(environment->network.GetOpenedAddress(), GuiTestEnvironment::SECOND_ADDRESS);
        QCOMPARE(environment->network.GetOpenedPort(), uint16_t(67));

        // The tray item stops it just as the button does.
        Probe().Action("trayActionStartStop")->trigger();
        QVERIFY(environment->network.WaitUntilClosed());
        showsRunning(false);

        // StartServer (the -s switch) starts it once and leaves a running server alone.
        window->StartServer();
        window->StartServer();
        QCOMPARE(environment->network.GetOpenCount(), 2);
        showsRunning(true);
        QVERIFY(watcher->boxes.empty());
    }

    void reservationsOpenOnlyOnAValidForm()
    {
        Probe().EnterValidForm();
        Probe().Field("lineEditLeaseDuration")->setText("ten minutes");
        Probe().Action("actionAddressReservations")->trigger();
        QCOMPARE(watcher->OnlyBox().text, QStringLiteral("Najpierw wprowadź poprawne ustawienia w bieżącym oknie!"));

        Probe().EnterValidForm();
        watcher->OnDialog("ReservationsDialog", [](QDialog* dialog) { dialog->close(); });
        Probe().Action("actionAddressReservations")->trigger();
        QCOMPARE(watcher->boxes.size(), size_t(1));
    }

    void closingARunningServerStopsItSavesAndHidesTheLogWindow()
    {
        window->show();
        // The log entries follow the setting.
        QVERIFY(!Probe().Action("actionLog")->isEnabled() && !Probe().Action("trayActionLog")->isVisible());
        watcher->OnDialog("LogSettingsDialog", [](QDialog* dialog) {
            dialog->findChild<QCheckBox*>("checkBoxEnableLogging")->setChecked(true);
            dialog->findChild<QPushButton*>("pushButtonOK")->click();
        });
        Probe().Action("actionLogSettings")->trigger();
        QVERIFY(Probe().Action("actionLog")->isEnabled() && Probe().Action("trayActionLog")->isVisible());

        Probe().Action("actionLog")->trigger();
        QWidget* logWindow = nullptr;
        for (QWidget* widget : QApplication::topLevelWidgets()) {
            logWindow = widget->objectName() == "LogBrowserDialog" ? widget : logWindow;
        }
        QVERIFY(logWindow != nullptr && logWindow->isVisible());
        Probe().EnterValidForm();
        Probe().StartStopButton()->click();
        QVERIFY(environment->network.IsOpen());
        QVERIFY(window->close());
        QVERIFY(!logWindow->isVisible());
        window.reset();

        QVERIFY(!environment->network.IsOpen());
        const QList<QByteArray> logLines = environment->ReadFile("log.txt").trimmed().split('\n');
        QCOMPARE(logLines.size(), 2);
        QVERIFY(logLines[0].contains(LogItem::GetEventTypeName(ServerStart).c_str()));
        QVERIFY(logLines[1].contains(LogItem::GetEventTypeName(ServerStop).c_str()));
        QVERIFY(watcher->boxes.empty());
    }

    void minimizeToTrayHidesTheWindowOnlyWhenThereIsATray()
    {
        // Without a tray the window minimises normally, so that it stays in reach.
        Probe().Action("actionToggleMinimizeToTray")->trigger();
        window->show();
        window->setWindowState(Qt::WindowMinimized);
        QVERIFY(window->isVisible());
        window.reset();
        window = std::make_unique<TrayMainWindow>(environment->MakePlatform());
        QVERIFY(Probe().Action("actionToggleMinimizeToTray")->isChecked()); // saved at closing
        window->show();
        window->setWindowState(Qt::WindowMinimized);
        QVERIFY(!window->isVisible() && Probe().TrayIcon()->isVisible());
        emit Probe().TrayIcon()->activated(QSystemTrayIcon::Trigger);
        QVERIFY(!window->isVisible());
        emit Probe().TrayIcon()->activated(QSystemTrayIcon::DoubleClick);
        QVERIFY(window->isVisible() && !Probe().TrayIcon()->isVisible());
    }

    void englishCatalogTranslatesEveryText()
    {
        QTranslator translator;
        QVERIFY(translator.load(QUORVY_CATALOG));
        QFile source(QUORVY_TS_FILE);
        QVERIFY(source.open(QIODevice::ReadOnly));
        QXmlStreamReader reader(&source);
        const QRegularExpression polishLetters(QStringLiteral("[ąćęłńóśźżĄĆĘŁŃÓŚŹŻ]"));
        QString context;
        int checked = 0;
        while (!reader.atEnd()) {
            if (reader.readNext() == QXmlStreamReader::StartElement && reader.name() == u"name") {
                context = reader.readElementText();
            } else if (reader.isStartElement() && reader.name() == u"source") {
                const QString polish = reader.readElementText();
                const QString english = translator.translate(context.toUtf8().constData(), polish.toUtf8().constData());
                QVERIFY2(!english.isEmpty() && !english.contains(polishLetters), qPrintable(context + ": " + polish));
                ++checked;
            }
        }
        QVERIFY(checked > 80);
    }
};

QTEST_MAIN(MainWindowTest)
#include "MainWindowTest.moc"
