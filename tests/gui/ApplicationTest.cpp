// The program as a whole: command-line switches, signals, the about dialog,
// the embedded pictures and the English catalog.

#include "support/GuiTestEnvironment.h"
#include "support/MainWindowProbe.h"
#include "support/ModalWatcher.h"

#include "AboutDialog.h"
#include "CommandLine.h"
#include "LeasesDialog.h"
#include "LogBrowserDialog.h"
#include "LogSettingsDialog.h"
#include "MainWindow.h"
#include "RawOptionsDialog.h"
#include "RawOptionsDialogHelp.h"
#include "ReservationsDialog.h"
#include "SignalCloser.h"

#include "engine/DHCPServer.h"
#include "foundation/AppException.h"

#include <QAbstractButton>
#include <QFile>
#include <QGroupBox>
#include <QHeaderView>
#include <QLabel>
#include <QTableWidget>
#include <QTranslator>
#include <QXmlStreamReader>
#include <QtTest>

#include <csignal>
#include <memory>
#include <vector>

namespace {

class TrayMainWindow : public MainWindow {
public:
    using MainWindow::MainWindow;

protected:
    bool IsSystemTrayAvailable() const override { return true; }
};

// Leaves a settings file whose form starts a server, optionally with
// minimise-to-tray switched on.
void SaveValidSettings(GuiTestEnvironment& environment, bool minimizeToTray = false)
{
    ModalWatcher watcher;
    TrayMainWindow window(environment.MakePlatform());
    MainWindowProbe probe(window);
    probe.EnterValidForm();
    if (minimizeToTray) {
        probe.Action("actionToggleMinimizeToTray")->trigger();
    }
}

// Runs the event loop until something ends it; gives up after 10 s with 99.
int RunEventLoop()
{
    QTimer guard;
    guard.setSingleShot(true);
    QObject::connect(&guard, &QTimer::timeout, [] { QCoreApplication::exit(99); });
    guard.start(10000);
    return QCoreApplication::exec();
}

bool HasPolishLetters(const QString& text)
{
    static const QString letters = QStringLiteral("ąćęłńóśźżĄĆĘŁŃÓŚŹŻ");
    for (const QChar character : text) {
        if (letters.contains(character)) {
            return true;
        }
    }
    return false;
}

// Every text a user reads in `window`: title, labels, buttons, group boxes,
// actions, table headers.
QStringList VisibleTexts(QWidget* window)
{
    QStringList texts = {window->windowTitle()};
    for (auto* label : window->findChildren<QLabel*>()) {
        texts << label->text();
    }
    for (auto* button : window->findChildren<QAbstractButton*>()) {
        texts << button->text();
    }
    for (auto* group : window->findChildren<QGroupBox*>()) {
        texts << group->title();
    }
    for (auto* action : window->findChildren<QAction*>()) {
        texts << action->text();
    }
    for (auto* table : window->findChildren<QTableWidget*>()) {
        for (int column = 0; column < table->columnCount(); ++column) {
            if (table->horizontalHeaderItem(column) != nullptr) {
                texts << table->horizontalHeaderItem(column)->text();
            }
        }
    }
    return texts;
}

} // namespace

class ApplicationTest : public QObject {
    Q_OBJECT

private slots:
    void switchesAreFoundAnywhereInAnyCase();
    void startSwitchStartsTheServer();
    void minimizeSwitchMinimizesTheShownWindow();
    void failingStartComesUpOverTheWindowInTheTray();
    void terminationSignalClosesAndSaves_data();
    void terminationSignalClosesAndSaves();
    void signalDuringAStartBoxEndsTheProgram();
    void quitFromTheTrayEndsTheProgram();
    void boxOverTheTrayDoesNotEndTheProgram();
    void aboutDialogShowsNameLogoAndVersion();
    void picturesAreEmbedded();
    void catalogTranslatesEveryText();
    void englishWindowsShowNoPolish();
};

void ApplicationTest::switchesAreFoundAnywhereInAnyCase()
{
    const char* const plain[] = {"quorvy", "-m", "-s"};
    QVERIFY(CommandLine(3, plain).IsMinimizeRequested());
    QVERIFY(CommandLine(3, plain).IsStartRequested());

    const char* const reversedAndLoud[] = {"quorvy", " -S", "-M "};
    QVERIFY(CommandLine(3, reversedAndLoud).IsMinimizeRequested());
    QVERIFY(CommandLine(3, reversedAndLoud).IsStartRequested());

    const char* const merelyContaining[] = {"quorvy", "-ms", "--s", "x-m"};
    QVERIFY(!CommandLine(4, merelyContaining).IsMinimizeRequested());
    QVERIFY(!CommandLine(4, merelyContaining).IsStartRequested());

    const char* const none[] = {"quorvy"};
    QVERIFY(!CommandLine(1, none).IsMinimizeRequested());
    QVERIFY(!CommandLine(1, none).IsStartRequested());
}

void ApplicationTest::startSwitchStartsTheServer()
{
    GuiTestEnvironment environment;
    SaveValidSettings(environment);
    ModalWatcher watcher;
    MainWindow window(environment.MakePlatform());
    window.setVisible(true);
    const char* const arguments[] = {"quorvy", "-s"};

    CommandLine(2, arguments).ApplyTo(window);

    QVERIFY(watcher.Boxes().empty());
    QVERIFY(environment.network.IsOpen());
    QCOMPARE(MainWindowProbe(window).StartStopButton()->text(), QStringLiteral("Zatrzymaj serwer"));
    QVERIFY(!window.isMinimized());
}

void ApplicationTest::minimizeSwitchMinimizesTheShownWindow()
{
    GuiTestEnvironment environment;
    ModalWatcher watcher;
    MainWindow window(environment.MakePlatform());
    window.setVisible(true);
    const char* const arguments[] = {"quorvy", "-m"};

    CommandLine(2, arguments).ApplyTo(window);

    QVERIFY(window.isMinimized());
    QVERIFY(window.isVisible());
    QCOMPARE(environment.network.GetOpenCount(), 0);
}

void ApplicationTest::failingStartComesUpOverTheWindowInTheTray()
{
    GuiTestEnvironment environment;
    SaveValidSettings(environment, true);
    ModalWatcher watcher;
    TrayMainWindow window(environment.MakePlatform());
    window.setVisible(true);
    environment.network.SetOpenFailure(AppException::CannotBindSocket);
    bool windowVisibleAtBox = true;
    bool trayVisibleAtBox = false;
    MainWindowProbe probe(window);
    watcher.OnEveryBox([&](const ModalWatcher::SeenBox&) {
        windowVisibleAtBox = window.isVisible();
        trayVisibleAtBox = probe.TrayIcon()->isVisible();
    });
    const char* const arguments[] = {"quorvy", "-s", "-m"};

    CommandLine(3, arguments).ApplyTo(window);

    QCOMPARE(watcher.OnlyBox().text, QStringLiteral("Nie udało się uruchomić nasłuchiwania na porcie 67!"));
    QVERIFY(!windowVisibleAtBox);
    QVERIFY(trayVisibleAtBox);
    QVERIFY(!environment.network.IsOpen());
    QVERIFY(probe.IsFormEnabled(true));
}

void ApplicationTest::terminationSignalClosesAndSaves_data()
{
    QTest::addColumn<int>("signalNumber");
    QTest::addColumn<bool>("inTray");
    QTest::newRow("SIGTERM") << SIGTERM << false;
    QTest::newRow("SIGINT") << SIGINT << false;
    QTest::newRow("SIGHUP, window in the tray") << SIGHUP << true;
}

void ApplicationTest::terminationSignalClosesAndSaves()
{
    QFETCH(int, signalNumber);
    QFETCH(bool, inTray);
    GuiTestEnvironment environment;
    SaveValidSettings(environment, inTray);
    ModalWatcher watcher;
    auto window = std::make_unique<TrayMainWindow>(environment.MakePlatform());
    MainWindowProbe probe(*window);
    window->show();
    window->StartServer();
    QVERIFY(environment.network.IsOpen());
    if (inTray) {
        window->setWindowState(Qt::WindowMinimized);
        QVERIFY(!window->isVisible());
    }
    // Changed behind the form's back: only the save at the end writes it.
    QFile::remove(environment.FilePath("settings.cfg"));
    int exitStatus = -1;
    {
        SignalCloser closer;
        closer.SetWindow(window.get());
        QTimer::singleShot(0, [signalNumber] { std::raise(signalNumber); });
        exitStatus = RunEventLoop();
        QVERIFY(closer.IsClosing());
    }
    QCOMPARE(exitStatus, 0);
    QVERIFY(!window->isVisible());
    window.reset();

    QVERIFY(!environment.network.IsOpen());
    QVERIFY(environment.ReadFile("settings.cfg").contains("10.77.0.199"));
    QVERIFY(watcher.Boxes().empty());
}

void ApplicationTest::signalDuringAStartBoxEndsTheProgram()
{
    GuiTestEnvironment environment;
    SaveValidSettings(environment);
    // No watcher: the signal itself must end the box's loop.
    SignalCloser closer;
    MainWindow window(environment.MakePlatform());
    closer.SetWindow(&window);
    window.show();
    environment.network.SetOpenFailure(AppException::CannotBindSocket);
    QTimer::singleShot(100, [] { std::raise(SIGTERM); });
    QTimer guard;
    guard.setSingleShot(true);
    QObject::connect(&guard, &QTimer::timeout, [] {
        if (auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget())) {
            box->reject();
        }
    });
    guard.start(10000);

    window.StartServer();

    QVERIFY(guard.isActive());
    QVERIFY(closer.IsClosing());
    QVERIFY(!window.isVisible());
    // The ended loops stay ended until an application loop runs again.
    QTimer::singleShot(0, [] { QCoreApplication::exit(0); });
    QCOMPARE(RunEventLoop(), 0);
}

void ApplicationTest::quitFromTheTrayEndsTheProgram()
{
    GuiTestEnvironment environment;
    SaveValidSettings(environment, true);
    ModalWatcher watcher;
    TrayMainWindow window(environment.MakePlatform());
    window.show();
    window.setWindowState(Qt::WindowMinimized);
    QVERIFY(!window.isVisible());
    QAction* quit = window.findChild<QAction*>("trayActionQuit");
    QVERIFY(quit != nullptr);
    QCOMPARE(quit->text(), QStringLiteral("Zakończ"));

    QTimer::singleShot(0, quit, &QAction::trigger);
    QCOMPARE(RunEventLoop(), 0);
}

void ApplicationTest::boxOverTheTrayDoesNotEndTheProgram()
{
    GuiTestEnvironment environment;
    SaveValidSettings(environment, true);
    ModalWatcher watcher;
    TrayMainWindow window(environment.MakePlatform());
    window.show();
    window.setWindowState(Qt::WindowMinimized);
    QVERIFY(!window.isVisible());
    environment.network.SetOpenFailure(AppException::CannotBindSocket);
    QAction* startStop = window.findChild<QAction*>("trayActionStartStop");

    QTimer::singleShot(0, startStop, &QAction::trigger);
    QTimer::singleShot(500, [] { QCoreApplication::exit(7); });
    QCOMPARE(RunEventLoop(), 7);

    QCOMPARE(watcher.OnlyBox().text, QStringLiteral("Nie udało się uruchomić nasłuchiwania na porcie 67!"));
    QVERIFY(!window.isVisible());
}

void ApplicationTest::aboutDialogShowsNameLogoAndVersion()
{
    AboutDialog dialog(nullptr);
    QCOMPARE(dialog.windowTitle(), QStringLiteral("O programie"));
    QCOMPARE(dialog.findChild<QLabel*>("labelProgramName")->text(), QStringLiteral("Tarnvel DHCP Server"));
    QCOMPARE(dialog.findChild<QLabel*>("labelVersionText")->text(), QStringLiteral("Wersja"));
    QCOMPARE(dialog.findChild<QLabel*>("labelVersion")->text(), QString::fromStdString(DHCPServer::GetVersion()));
    QCOMPARE(DHCPServer::GetVersion(), std::string("1.0"));
    const QPixmap logo = dialog.findChild<QLabel*>("labelLogo")->pixmap();
    QCOMPARE(logo.size(), QSize(40, 40));
    QCOMPARE(logo.toImage().convertToFormat(QImage::Format_ARGB32), MainWindowProbe::ResourceImage(":/logo.png"));
    // A title bar with a close button and nothing else.
    QCOMPARE(dialog.windowType(), Qt::Window);
    QVERIFY(dialog.windowFlags().testFlags(Qt::WindowTitleHint | Qt::WindowCloseButtonHint));
    QVERIFY(!(dialog.windowFlags() & (Qt::WindowMinMaxButtonsHint | Qt::WindowContextHelpButtonHint)));
    QVERIFY(dialog.findChild<QLabel*>("labelProjectWebsite")->openExternalLinks());
}

void ApplicationTest::picturesAreEmbedded()
{
    const struct {
        const char* name;
        int size;
    } pictures[] = {{":trayIconActive.png", 16},     {":trayIconInactive.png", 16}, {":windowIconActive.png", 32},
                    {":windowIconInactive.png", 32}, {":/logo.png", 40}};
    for (const auto& picture : pictures) {
        const QImage image(picture.name);
        QVERIFY2(!image.isNull(), picture.name);
        QCOMPARE(image.size(), QSize(picture.size, picture.size));
    }
    // Active and inactive must be told apart at a glance.
    QVERIFY(QImage(":trayIconActive.png") != QImage(":trayIconInactive.png"));
    QVERIFY(QImage(":windowIconActive.png") != QImage(":windowIconInactive.png"));
}

void ApplicationTest::catalogTranslatesEveryText()
{
    QTranslator translator;
    QVERIFY(translator.load(QUORVY_CATALOG));
    QFile source(QUORVY_TS_FILE);
    QVERIFY(source.open(QIODevice::ReadOnly));
    QXmlStreamReader reader(&source);
    QString context;
    int checked = 0;
    while (!reader.atEnd()) {
        reader.readNext();
        if (!reader.isStartElement()) {
            continue;
        }
        if (reader.name() == u"name") {
            context = reader.readElementText();
        } else if (reader.name() == u"source") {
            const QString polish = reader.readElementText();
            const QString english = translator.translate(context.toUtf8().constData(), polish.toUtf8().constData());
            QVERIFY2(!english.isEmpty(), qPrintable(context + ": " + polish));
            QVERIFY2(!HasPolishLetters(english), qPrintable(english));
            ++checked;
        }
    }
    QVERIFY(checked > 80);
}

void ApplicationTest::englishWindowsShowNoPolish()
{
    QTranslator translator;
    QVERIFY(translator.load(QUORVY_CATALOG));
    QCoreApplication::installTranslator(&translator);
    GuiTestEnvironment environment;
    ModalWatcher watcher;
    {
        MainWindow window(environment.MakePlatform());
        MainWindowProbe probe(window);
        QCOMPARE(probe.StartStopButton()->text(), QStringLiteral("Start server"));
        std::vector<std::unique_ptr<QWidget>> windows;
        DHCPServer server(environment.MakePlatform());
        windows.push_back(std::make_unique<AboutDialog>(nullptr));
        windows.push_back(std::make_unique<LeasesDialog>(server.GetAddressManager(), nullptr));
        windows.push_back(std::make_unique<LogBrowserDialog>(server.GetLogManager(), nullptr));
        windows.push_back(std::make_unique<LogSettingsDialog>(server.GetSettings(), nullptr));
        windows.push_back(std::make_unique<ReservationsDialog>(server.GetAddressManager(), nullptr));
        windows.push_back(std::make_unique<RawOptionsDialog>(server.GetSettings(), nullptr));
        windows.push_back(std::make_unique<RawOptionsDialogHelp>(nullptr));
        QStringList texts = VisibleTexts(&window);
        for (const auto& other : windows) {
            texts << VisibleTexts(other.get());
        }
        for (const QString& text : texts) {
            QVERIFY2(!HasPolishLetters(text), qPrintable(text));
        }
        QVERIFY(texts.contains(QStringLiteral("Address reservations...")));
        QVERIFY(texts.contains(QStringLiteral("Also log ignored DHCP messages")));

        probe.SetField("lineEditSubnetMask", "255.0.255.0");
        probe.StartStopButton()->click();
        QCOMPARE(watcher.OnlyBox().text,
                 QStringLiteral("The server cannot be started because the settings are not valid!"));
    }
    QCoreApplication::removeTranslator(&translator);
}

QTEST_MAIN(ApplicationTest)
#include "ApplicationTest.moc"
