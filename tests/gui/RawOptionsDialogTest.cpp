// The additional options editor on the list of a real Settings object.

#include "support/GuiTestEnvironment.h"
#include "support/ModalWatcher.h"

#include "RawOptionsDialog.h"

#include "config/Settings.h"
#include "engine/DHCPServer.h"
#include "wire/RawOption.h"

#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QTableWidget>
#include <QtTest>

#include <memory>

namespace {

const QString TITLE = QStringLiteral("Dodatkowe opcje DHCP");

QString Bytes(int count, const char* byte = "7")
{
    QStringList bytes;
    for (int i = 0; i < count; ++i) {
        bytes << byte;
    }
    return bytes.join(' ');
}

} // namespace

class RawOptionsDialogTest : public QObject {
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void formHasItsTitleColumnsAndButtons();
    void addAppendsTheOptionAndAllowsTheSameCodeTwice();
    void refusedAddShowsTheBoxOfItsCode_data();
    void refusedAddShowsTheBoxOfItsCode();
    void inPlaceEditReplacesTheOption();
    void badInPlaceEditRestoresTheTable_data();
    void badInPlaceEditRestoresTheTable();
    void removeTakesTheFirstSelectedRowOnly();
    void helpShowsItsText();

private:
    std::vector<RawOption>& Options() { return server->GetSettings()->GetAdditionalOptions(); }
    QTableWidget* Table() { return dialog->findChild<QTableWidget*>("tableWidget"); }
    QPushButton* Button(const char* name) { return dialog->findChild<QPushButton*>(name); }
    void AddThroughForm(const QString& code, const QString& data, bool* stayedOpen = nullptr);

    std::unique_ptr<GuiTestEnvironment> environment;
    std::unique_ptr<DHCPServer> server;
    std::unique_ptr<ModalWatcher> watcher;
    std::unique_ptr<RawOptionsDialog> dialog;
};

void RawOptionsDialogTest::init()
{
    environment = std::make_unique<GuiTestEnvironment>();
    server = std::make_unique<DHCPServer>(environment->MakePlatform());
    watcher = std::make_unique<ModalWatcher>();
}

void RawOptionsDialogTest::cleanup()
{
    QVERIFY(watcher->UnexpectedDialogs().isEmpty());
    QCOMPARE(watcher->PendingHandlers(), 0);
    dialog.reset();
    watcher.reset();
    server.reset();
    environment.reset();
}

void RawOptionsDialogTest::AddThroughForm(const QString& code, const QString& data, bool* stayedOpen)
{
    watcher->OnDialog("AddRawOptionDialog", [=](QDialog* form) {
        form->findChild<QLineEdit*>("lineEditOptionCode")->setText(code);
        form->findChild<QLineEdit*>("lineEditData")->setText(data);
        form->findChild<QPushButton*>("pushButtonOK")->click();
        if (stayedOpen != nullptr) {
            *stayedOpen = form->isVisible();
        }
        if (form->isVisible()) {
            form->findChild<QPushButton*>("pushButtonCancel")->click();
        }
    });
    Button("pushButtonAdd")->click();
}

void RawOptionsDialogTest::formHasItsTitleColumnsAndButtons()
{
    dialog = std::make_unique<RawOptionsDialog>(server->GetSettings(), nullptr);
    QCOMPARE(dialog->windowTitle(), TITLE);
    QCOMPARE(Table()->horizontalHeaderItem(0)->text(), QStringLiteral("Kod opcji"));
    QCOMPARE(Table()->horizontalHeaderItem(1)->text(), QStringLiteral("Dane"));
    QCOMPARE(Button("pushButtonAdd")->text(), QStringLiteral("Dodaj..."));
    QCOMPARE(Button("pushButtonRemove")->text(), QStringLiteral("Usuń"));
    QCOMPARE(Button("pushButtonHelp")->text(), QStringLiteral("?"));
    QVERIFY(!Button("pushButtonRemove")->isEnabled());
    QCOMPARE(dialog->minimumSize(), QSize(300, 200));
}

void RawOptionsDialogTest::addAppendsTheOptionAndAllowsTheSameCodeTwice()
{
    dialog = std::make_unique<RawOptionsDialog>(server->GetSettings(), nullptr);
    bool stayedOpen = true;
    AddThroughForm("4", "192  168 1 100", &stayedOpen);
    QVERIFY(!stayedOpen);
    AddThroughForm("4", "10 0 0 1");
    AddThroughForm("66", Bytes(254));

    QVERIFY(watcher->Boxes().empty());
    QCOMPARE(Options().size(), size_t(3));
    QCOMPARE(Table()->rowCount(), 3);
    QCOMPARE(Table()->item(0, 0)->text(), QStringLiteral("4"));
    // Shown in the canonical form after the refill.
    QCOMPARE(Table()->item(0, 1)->text(), QStringLiteral("192 168 1 100"));
    QCOMPARE(Table()->item(1, 1)->text(), QStringLiteral("10 0 0 1"));
    QCOMPARE(Options()[2].GetData().size(), size_t(254));
}

void RawOptionsDialogTest::refusedAddShowsTheBoxOfItsCode_data()
{
    QTest::addColumn<QString>("code");
    QTest::addColumn<QString>("data");
    QTest::addColumn<QString>("text");
    QTest::newRow("code 255") << "255" << "1" << QStringLiteral("Kod opcji jest nieprawidłowy!");
    QTest::newRow("code that is no number") << "x4" << "1" << QStringLiteral("Kod opcji jest nieprawidłowy!");
    QTest::newRow("both bad: the code is reported") << "256" << "" << QStringLiteral("Kod opcji jest nieprawidłowy!");
    QTest::newRow("data byte 255") << "4" << "1 255" << QStringLiteral("Wprowadzono nieprawidłowe dane!");
    QTest::newRow("data word") << "4" << "1 abc" << QStringLiteral("Wprowadzono nieprawidłowe dane!");
    QTest::newRow("no data") << "4" << "" << QStringLiteral("Dane muszą zawierać co najmniej jeden bajt!");
    QTest::newRow("255 bytes") << "4" << Bytes(255) << QStringLiteral("Dane mogą zawierać nie więcej, niż 254 bajty!");
}

void RawOptionsDialogTest::refusedAddShowsTheBoxOfItsCode()
{
    QFETCH(QString, code);
    QFETCH(QString, data);
    QFETCH(QString, text);
    dialog = std::make_unique<RawOptionsDialog>(server->GetSettings(), nullptr);
    bool stayedOpen = false;

    AddThroughForm(code, data, &stayedOpen);

    QVERIFY(stayedOpen);
    QCOMPARE(watcher->OnlyBox().text, text);
    QCOMPARE(watcher->OnlyBox().icon, QMessageBox::Critical);
    QCOMPARE(watcher->OnlyBox().title, TITLE);
    QVERIFY(Options().empty());
    QCOMPARE(Table()->rowCount(), 0);
}

void RawOptionsDialogTest::inPlaceEditReplacesTheOption()
{
    Options().emplace_back("4", "1 2 3 4");
    Options().emplace_back("6", "8 8 8 8");
    dialog = std::make_unique<RawOptionsDialog>(server->GetSettings(), nullptr);

    Table()->item(1, 1)->setText("9  9 9 9");
    Table()->item(0, 0)->setText("42");

    QVERIFY(watcher->Boxes().empty());
    QCOMPARE(Options()[1], RawOption("6", "9 9 9 9"));
    QCOMPARE(Options()[0], RawOption("42", "1 2 3 4"));
    // The cell keeps the text as typed until the next fill.
    QCOMPARE(Table()->item(1, 1)->text(), QStringLiteral("9  9 9 9"));
}

void RawOptionsDialogTest::badInPlaceEditRestoresTheTable_data()
{
    QTest::addColumn<int>("column");
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("boxText");
    QTest::newRow("emptied data") << 1 << "" << QStringLiteral("Dane muszą zawierać co najmniej jeden bajt!");
    QTest::newRow("code 255") << 0 << "255" << QStringLiteral("Kod opcji jest nieprawidłowy!");
    QTest::newRow("bad byte") << 1 << "1 2 300" << QStringLiteral("Wprowadzono nieprawidłowe dane!");
}

void RawOptionsDialogTest::badInPlaceEditRestoresTheTable()
{
    QFETCH(int, column);
    QFETCH(QString, text);
    QFETCH(QString, boxText);
    Options().emplace_back("4", "1 2 3 4");
    dialog = std::make_unique<RawOptionsDialog>(server->GetSettings(), nullptr);

    Table()->item(0, column)->setText(text);

    QCOMPARE(watcher->OnlyBox().text, boxText);
    QCOMPARE(Table()->item(0, 0)->text(), QStringLiteral("4"));
    QCOMPARE(Table()->item(0, 1)->text(), QStringLiteral("1 2 3 4"));
    QCOMPARE(Options().size(), size_t(1));
    QCOMPARE(Options()[0], RawOption("4", "1 2 3 4"));
}

void RawOptionsDialogTest::removeTakesTheFirstSelectedRowOnly()
{
    Options().emplace_back("1", "1");
    Options().emplace_back("2", "2");
    Options().emplace_back("3", "3");
    dialog = std::make_unique<RawOptionsDialog>(server->GetSettings(), nullptr);

    Table()->setRangeSelected(QTableWidgetSelectionRange(0, 0, 1, 1), true);
    QVERIFY(Button("pushButtonRemove")->isEnabled());
    const QString removedCode = Table()->item(Table()->selectedItems().first()->row(), 0)->text();
    Button("pushButtonRemove")->click();

    QCOMPARE(Options().size(), size_t(2));
    QCOMPARE(Table()->rowCount(), 2);
    for (const RawOption& option : Options()) {
        QVERIFY(QString::fromStdString(option.GetCodeString()) != removedCode);
    }
    QCOMPARE(Options().back(), RawOption("3", "3"));
    QVERIFY(!Button("pushButtonRemove")->isEnabled());
}

void RawOptionsDialogTest::helpShowsItsText()
{
    dialog = std::make_unique<RawOptionsDialog>(server->GetSettings(), nullptr);
    QString title;
    QString helpText;
    bool isTool = false;
    watcher->OnDialog("RawOptionsDialogHelp", [&](QDialog* help) {
        title = help->windowTitle();
        helpText = help->findChild<QLabel*>("labelHelpText")->text();
        isTool = (help->windowFlags() & Qt::WindowType_Mask) == Qt::Tool;
        help->close();
    });

    Button("pushButtonHelp")->click();

    QCOMPARE(title, QStringLiteral("Dodatkowe opcje DHCP - Pomoc"));
    QVERIFY(isTool);
    QVERIFY(helpText.contains(QStringLiteral("Opcje DHCP służą do przekazywania w pakietach protokułu DHCP")));
    QVERIFY(helpText.contains(QStringLiteral(">RFC 2132</a>.")));
    QVERIFY(helpText.contains(QStringLiteral("podać &quot;192 168 1 100&quot;.")));
}

QTEST_MAIN(RawOptionsDialogTest)
#include "RawOptionsDialogTest.moc"
