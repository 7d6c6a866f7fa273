// The log settings dialog: the form mirrors the settings, OK stores, Anuluj not.

#include "support/GuiTestEnvironment.h"

#include "LogSettingsDialog.h"

#include "config/Settings.h"
#include "engine/DHCPServer.h"
#include "log/EventType.h"

#include <QCheckBox>
#include <QGridLayout>
#include <QGroupBox>
#include <QLineEdit>
#include <QPushButton>
#include <QtTest>

#include <memory>

namespace {

const char* const EVENT_BOXES[EVENT_TYPE_COUNT] = {
    "checkBoxEventType_ServerStart",         "checkBoxEventType_ServerStop",
    "checkBoxEventType_DHCPDiscoverReceived", "checkBoxEventType_DHCPRequestReceived",
    "checkBoxEventType_DHCPOfferSent",       "checkBoxEventType_DHCPAckSent",
    "checkBoxEventType_DHCPNakSent",         "checkBoxEventType_DHCPInformReceived",
    "checkBoxEventType_DHCPReleaseReceived",
};

} // namespace

class LogSettingsDialogTest : public QObject {
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void formShowsTheStoredSettings();
    void okStoresTheFormWithASanitizedPath();
    void cancelStoresNothing();
    void nonAsciiPathComesBackTheSame();
    void eventBoxesSitInTheirGridCells();

private:
    Settings* TheSettings() { return server->GetSettings(); }
    QCheckBox* Box(const char* name) { return dialog->findChild<QCheckBox*>(name); }
    QLineEdit* Path() { return dialog->findChild<QLineEdit*>("lineEditLogFilePath"); }
    QPushButton* Button(const char* name) { return dialog->findChild<QPushButton*>(name); }
    void Open() { dialog = std::make_unique<LogSettingsDialog>(TheSettings(), nullptr); }

    std::unique_ptr<GuiTestEnvironment> environment;
    std::unique_ptr<DHCPServer> server;
    std::unique_ptr<LogSettingsDialog> dialog;
};

void LogSettingsDialogTest::init()
{
    environment = std::make_unique<GuiTestEnvironment>();
    server = std::make_unique<DHCPServer>(environment->MakePlatform());
}

void LogSettingsDialogTest::cleanup()
{
    dialog.reset();
    server.reset();
    environment.reset();
}

void LogSettingsDialogTest::formShowsTheStoredSettings()
{
    TheSettings()->SetLoggingEnabled(true);
    TheSettings()->SetLogIgnoredDHCPMessages(false);
    TheSettings()->SetLogFilePath("/var/tmp/dhcp.log");
    for (int eventType = 0; eventType < EVENT_TYPE_COUNT; ++eventType) {
        TheSettings()->SetLogEventEnabled(eventType, eventType % 2 == 0);
    }
    Open();

    QCOMPARE(dialog->windowTitle(), QStringLiteral("Ustawienia logu"));
    QVERIFY(Box("checkBoxEnableLogging")->isChecked());
    QVERIFY(Box("checkBoxEnableLogging")->font().bold());
    QVERIFY(!Box("checkBoxLogIgnoredMessages")->isChecked());
    QCOMPARE(Path()->text(), QStringLiteral("/var/tmp/dhcp.log"));
    for (int eventType = 0; eventType < EVENT_TYPE_COUNT; ++eventType) {
        QCOMPARE(Box(EVENT_BOXES[eventType])->isChecked(), eventType % 2 == 0);
    }
    QCOMPARE(Box("checkBoxEventType_DHCPNakSent")->text(), QStringLiteral("wysłano DHCP Nak"));
    // Fixed at the size of its contents once it is laid out.
    dialog->show();
    QCOMPARE(dialog->minimumSize(), dialog->maximumSize());
    QCOMPARE(dialog->size(), dialog->sizeHint());
    QVERIFY(Button("pushButtonOK")->isDefault());
    QVERIFY(!Button("pushButtonOK")->autoDefault());
    QVERIFY(!Button("pushButtonBrowse")->autoDefault());
}

void LogSettingsDialogTest::okStoresTheFormWithASanitizedPath()
{
    Open();
    dialog->show();
    Box("checkBoxEnableLogging")->setChecked(true);
    Box("checkBoxLogIgnoredMessages")->setChecked(true);
    Box("checkBoxEventType_DHCPOfferSent")->setChecked(false);
    Box("checkBoxEventType_ServerStop")->setChecked(false);
    Path()->setText("logs//dhcp*?.txt");

    Button("pushButtonOK")->click();

    QVERIFY(!dialog->isVisible());
    QVERIFY(TheSettings()->GetLoggingEnabled());
    QVERIFY(TheSettings()->GetLogIgnoredDHCPMessages());
    QCOMPARE(TheSettings()->GetLogFilePath(), std::string("logs/dhcp.txt"));
    QVERIFY(!TheSettings()->GetLogEventEnabled(DHCPOfferSent));
    QVERIFY(!TheSettings()->GetLogEventEnabled(ServerStop));
    QVERIFY(TheSettings()->GetLogEventEnabled(DHCPAckSent));

    // An empty path stays empty.
    Open();
    Path()->clear();
    Button("pushButtonOK")->click();
    QCOMPARE(TheSettings()->GetLogFilePath(), std::string());
}

void LogSettingsDialogTest::cancelStoresNothing()
{
    const std::string pathBefore = TheSettings()->GetLogFilePath();
    Open();
    dialog->show();
    Box("checkBoxEnableLogging")->setChecked(true);
    Box("checkBoxEventType_ServerStart")->setChecked(false);
    Path()->setText("elsewhere.txt");

    Button("pushButtonCancel")->click();

    QVERIFY(!dialog->isVisible());
    QVERIFY(!TheSettings()->GetLoggingEnabled());
    QVERIFY(TheSettings()->GetLogEventEnabled(ServerStart));
    QCOMPARE(TheSettings()->GetLogFilePath(), pathBefore);

    // Opened again, the form shows the stored values.
    Open();
    QVERIFY(!Box("checkBoxEnableLogging")->isChecked());
    QVERIFY(Box("checkBoxEventType_ServerStart")->isChecked());
    QCOMPARE(Path()->text().toStdString(), pathBefore);
}

void LogSettingsDialogTest::nonAsciiPathComesBackTheSame()
{
    const QString path = QStringLiteral("/tmp/dzienniki łódzkie/żółw.txt");
    Open();
    Path()->setText(path);
    Button("pushButtonOK")->click();
    QCOMPARE(QString::fromStdString(TheSettings()->GetLogFilePath()), path);

    Open();
    QCOMPARE(Path()->text(), path);
}

void LogSettingsDialogTest::eventBoxesSitInTheirGridCells()
{
    Open();
    auto* grid = dialog->findChild<QGridLayout*>("gridLayout_2");
    QVERIFY(grid != nullptr);
    QCOMPARE(grid->horizontalSpacing(), 15);
    QCOMPARE(grid->verticalSpacing(), 6);
    const struct {
        const char* name;
        int row;
        int column;
    } cells[] = {
        {"checkBoxEventType_ServerStart", 0, 0},          {"checkBoxEventType_ServerStop", 0, 1},
        {"checkBoxEventType_DHCPDiscoverReceived", 2, 0}, {"checkBoxEventType_DHCPOfferSent", 2, 1},
        {"checkBoxEventType_DHCPAckSent", 3, 0},          {"checkBoxEventType_DHCPRequestReceived", 3, 1},
        {"checkBoxEventType_DHCPNakSent", 6, 0},          {"checkBoxEventType_DHCPInformReceived", 6, 1},
        {"checkBoxEventType_DHCPReleaseReceived", 7, 0},
    };
    for (const auto& cell : cells) {
        const int index = grid->indexOf(Box(cell.name));
        QVERIFY2(index >= 0, cell.name);
        int row = -1, column = -1, rowSpan = 0, columnSpan = 0;
        grid->getItemPosition(index, &row, &column, &rowSpan, &columnSpan);
        QCOMPARE(row, cell.row);
        QCOMPARE(column, cell.column);
    }
}

QTEST_MAIN(LogSettingsDialogTest)
#include "LogSettingsDialogTest.moc"
