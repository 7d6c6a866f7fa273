// The reservation editor on a real AddressManager: adding, refusing with the
// right box, restoring the table after a bad in-place edit, removing.

#include "support/GuiTestEnvironment.h"
#include "support/ModalWatcher.h"

#include "AddReservationDialog.h"
#include "ReservationsDialog.h"

#include "allocation/AddressManager.h"
#include "config/Settings.h"
#include "engine/DHCPServer.h"
#include "foundation/HardwareAddress.h"

#include <QLineEdit>
#include <QPushButton>
#include <QTableWidget>
#include <QtTest>

#include <memory>

namespace {

const QString TITLE = QStringLiteral("Rezerwacje adresów");

// Fills the add form and presses OK; if the form is still open after the
// box, it is cancelled.
std::function<void(QDialog*)> AddThrough(const QString& hardwareAddress, const QString& ipAddress,
                                         bool* stayedOpen = nullptr)
{
    return [=](QDialog* dialog) {
        dialog->findChild<QLineEdit*>("lineEditHardwareAddress")->setText(hardwareAddress);
        dialog->findChild<QLineEdit*>("lineEditIPAddress")->setText(ipAddress);
        dialog->findChild<QPushButton*>("pushButtonOK")->click();
        if (stayedOpen != nullptr) {
            *stayedOpen = dialog->isVisible();
        }
        if (dialog->isVisible()) {
            // The user's text is still there for another try.
            QCOMPARE(dialog->findChild<QLineEdit*>("lineEditHardwareAddress")->text(), hardwareAddress);
            dialog->findChild<QPushButton*>("pushButtonCancel")->click();
        }
    };
}

} // namespace

class ReservationsDialogTest : public QObject {
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void formHasItsTitleColumnsAndButtons();
    void addAppendsTheNewRowAndClosesTheForm();
    void refusedAddShowsTheBoxOfItsCode_data();
    void refusedAddShowsTheBoxOfItsCode();
    void inPlaceEditIsStoredAtOnce();
    void badInPlaceEditRestoresTheTable_data();
    void badInPlaceEditRestoresTheTable();
    void editThroughTheCellEditor();
    void removeTakesTheFirstSelectedRowOnly();

private:
    AddressManager* Manager() { return server->GetAddressManager(); }
    void AddStored(const char* hardwareAddress, const char* ipAddress);
    QTableWidget* Table() { return dialog->findChild<QTableWidget*>("tableWidget"); }
    QPushButton* Button(const char* name) { return dialog->findChild<QPushButton*>(name); }
    QStringList Row(int row);

    std::unique_ptr<GuiTestEnvironment> environment;
    std::unique_ptr<DHCPServer> server;
    std::unique_ptr<ModalWatcher> watcher;
    std::unique_ptr<ReservationsDialog> dialog;
};

void ReservationsDialogTest::init()
{
    environment = std::make_unique<GuiTestEnvironment>();
    server = std::make_unique<DHCPServer>(environment->MakePlatform());
    Settings* settings = server->GetSettings();
    settings->SetPoolStartAddress(IPv4Address(10, 77, 0, 100));
    settings->SetPoolEndAddress(IPv4Address(10, 77, 0, 199));
    settings->SetSubnetMask(24);
    watcher = std::make_unique<ModalWatcher>();
}

void ReservationsDialogTest::cleanup()
{
    QVERIFY(watcher->UnexpectedDialogs().isEmpty());
    QCOMPARE(watcher->PendingHandlers(), 0);
    dialog.reset();
    watcher.reset();
    server.reset();
    environment.reset();
}

void ReservationsDialogTest::AddStored(const char* hardwareAddress, const char* ipAddress)
{
    Manager()->AddReservation(AddressReservation(HardwareAddress(hardwareAddress), IPv4Address(ipAddress)));
}

QStringList ReservationsDialogTest::Row(int row)
{
    return {Table()->item(row, 0)->text(), Table()->item(row, 1)->text()};
}

void ReservationsDialogTest::formHasItsTitleColumnsAndButtons()
{
    dialog = std::make_unique<ReservationsDialog>(Manager(), nullptr);
    QCOMPARE(dialog->windowTitle(), TITLE);
    QCOMPARE(Table()->columnCount(), 2);
    QCOMPARE(Table()->horizontalHeaderItem(0)->text(), QStringLiteral("Adres MAC"));
    QCOMPARE(Table()->horizontalHeaderItem(1)->text(), QStringLiteral("Adres IP"));
    QCOMPARE(Table()->rowCount(), 0);
    QCOMPARE(Button("pushButtonAdd")->text(), QStringLiteral("Dodaj..."));
    QCOMPARE(Button("pushButtonRemove")->text(), QStringLiteral("Usuń"));
    // Empty table: nothing to remove.
    QVERIFY(!Button("pushButtonRemove")->isEnabled());
    QCOMPARE(dialog->minimumWidth(), 300);
    QCOMPARE(dialog->maximumWidth(), 300);
}

void ReservationsDialogTest::addAppendsTheNewRowAndClosesTheForm()
{
    AddStored("00:11:22:33:44:01", "10.77.0.101");
    dialog = std::make_unique<ReservationsDialog>(Manager(), nullptr);
    bool stayedOpen = true;
    QString formTitle;
    watcher->OnDialog("AddReservationDialog", [&](QDialog* form) {
        formTitle = form->windowTitle();
        AddThrough("00 AA BB CC DD EE", "10.77.0.150", &stayedOpen)(form);
    });

    Button("pushButtonAdd")->click();

    QCOMPARE(formTitle, QStringLiteral("Dodaj rezerwację"));
    QVERIFY(!stayedOpen);
    QVERIFY(watcher->Boxes().empty());
    QCOMPARE(Manager()->GetReservationCount(), size_t(2));
    QCOMPARE(Table()->rowCount(), 2);
    QCOMPARE(Row(1), QStringList({"00:aa:bb:cc:dd:ee", "10.77.0.150"}));
    QVERIFY(Table()->item(1, 0)->textAlignment() & Qt::AlignHCenter);
}

void ReservationsDialogTest::refusedAddShowsTheBoxOfItsCode_data()
{
    QTest::addColumn<QString>("hardwareAddress");
    QTest::addColumn<QString>("ipAddress");
    QTest::addColumn<QString>("text");
    QTest::newRow("bad IP address") << "00:11:22:33:44:99" << "10.77.0"
                                    << QStringLiteral("Podany adres IP jest nieprawidłowy!");
    QTest::newRow("bad MAC address") << "00:11:22:33:44" << "10.77.0.150"
                                     << QStringLiteral("Podany adres MAC jest nieprawidłowy!");
    QTest::newRow("both bad: the MAC is reported") << "zz" << "nonsense"
                                                   << QStringLiteral("Podany adres MAC jest nieprawidłowy!");
    QTest::newRow("MAC already reserved")
        << "00:11:22:33:44:01" << "10.77.0.150"
        << QStringLiteral("Istnieje już rezerwacja dotycząca podanego adresu MAC!");
    QTest::newRow("IP already reserved") << "00:11:22:33:44:99" << "10.77.0.101"
                                         << QStringLiteral("Podany adres IP jest już zarezerwowany!");
    QTest::newRow("outside the pool's subnet")
        << "00:11:22:33:44:99" << "10.77.1.150"
        << QStringLiteral("Adres IP musi być w tej samej podsieci, co adresy z puli!");
}

void ReservationsDialogTest::refusedAddShowsTheBoxOfItsCode()
{
    QFETCH(QString, hardwareAddress);
    QFETCH(QString, ipAddress);
    QFETCH(QString, text);
    AddStored("00:11:22:33:44:01", "10.77.0.101");
    dialog = std::make_unique<ReservationsDialog>(Manager(), nullptr);
    bool stayedOpen = false;
    watcher->OnDialog("AddReservationDialog", AddThrough(hardwareAddress, ipAddress, &stayedOpen));

    Button("pushButtonAdd")->click();

    QVERIFY(stayedOpen);
    QCOMPARE(watcher->OnlyBox().text, text);
    QCOMPARE(watcher->OnlyBox().icon, QMessageBox::Critical);
    // The box carries the title of the reservations dialog, not of the form.
    QCOMPARE(watcher->OnlyBox().title, TITLE);
    QCOMPARE(Manager()->GetReservationCount(), size_t(1));
    QCOMPARE(Table()->rowCount(), 1);
}

void ReservationsDialogTest::inPlaceEditIsStoredAtOnce()
{
    AddStored("00:11:22:33:44:01", "10.77.0.101");
    dialog = std::make_unique<ReservationsDialog>(Manager(), nullptr);

    Table()->item(0, 1)->setText("10.77.0.111");
    // Its own values again: still a valid replacement.
    Table()->item(0, 0)->setText("00:11:22:33:44:01");

    QVERIFY(watcher->Boxes().empty());
    QCOMPARE(Manager()->GetReservation(0).GetIPAddress(), IPv4Address(10, 77, 0, 111));
    QCOMPARE(Manager()->GetReservationCount(), size_t(1));
}

void ReservationsDialogTest::badInPlaceEditRestoresTheTable_data()
{
    QTest::addColumn<int>("column");
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("boxText");
    QTest::newRow("outside the subnet") << 1 << "10.99.0.1"
                                        << QStringLiteral("Adres IP musi być w tej samej podsieci, co adresy z puli!");
    QTest::newRow("MAC of the other row") << 0 << "00:11:22:33:44:02"
                                          << QStringLiteral("Istnieje już rezerwacja dotycząca podanego adresu MAC!");
    QTest::newRow("IP of the other row") << 1 << "10.77.0.102"
                                         << QStringLiteral("Podany adres IP jest już zarezerwowany!");
    QTest::newRow("emptied MAC") << 0 << "" << QStringLiteral("Podany adres MAC jest nieprawidłowy!");
    QTest::newRow("no IP address") << 1 << "ten.77.0.1" << QStringLiteral("Podany adres IP jest nieprawidłowy!");
}

void ReservationsDialogTest::badInPlaceEditRestoresTheTable()
{
    QFETCH(int, column);
    QFETCH(QString, text);
    QFETCH(QString, boxText);
    AddStored("00:11:22:33:44:01", "10.77.0.101");
    AddStored("00:11:22:33:44:02", "10.77.0.102");
    dialog = std::make_unique<ReservationsDialog>(Manager(), nullptr);

    Table()->item(0, column)->setText(text);

    QCOMPARE(watcher->OnlyBox().text, boxText);
    QCOMPARE(watcher->OnlyBox().title, TITLE);
    QCOMPARE(Row(0), QStringList({"00:11:22:33:44:01", "10.77.0.101"}));
    QCOMPARE(Row(1), QStringList({"00:11:22:33:44:02", "10.77.0.102"}));
    QCOMPARE(Manager()->GetReservation(0).GetIPAddress(), IPv4Address(10, 77, 0, 101));
}

void ReservationsDialogTest::editThroughTheCellEditor()
{
    AddStored("00:11:22:33:44:01", "10.77.0.101");
    dialog = std::make_unique<ReservationsDialog>(Manager(), nullptr);
    dialog->show();
    QVERIFY(QTest::qWaitForWindowExposed(dialog.get()));

    // A double click opens the editor; Enter commits what was typed.
    Table()->editItem(Table()->item(0, 1));
    auto* editor = Table()->viewport()->findChild<QLineEdit*>();
    QVERIFY(editor != nullptr);
    editor->selectAll();
    QTest::keyClicks(editor, "192.168.0.1");
    QTest::keyClick(editor, Qt::Key_Return);

    QTRY_COMPARE(watcher->Boxes().size(), size_t(1));
    QCOMPARE(watcher->OnlyBox().text, QStringLiteral("Adres IP musi być w tej samej podsieci, co adresy z puli!"));
    QTRY_COMPARE(Table()->item(0, 1)->text(), QStringLiteral("10.77.0.101"));
    QCOMPARE(Manager()->GetReservation(0).GetIPAddress(), IPv4Address(10, 77, 0, 101));
}

void ReservationsDialogTest::removeTakesTheFirstSelectedRowOnly()
{
    AddStored("00:11:22:33:44:01", "10.77.0.101");
    AddStored("00:11:22:33:44:02", "10.77.0.102");
    AddStored("00:11:22:33:44:03", "10.77.0.103");
    dialog = std::make_unique<ReservationsDialog>(Manager(), nullptr);
    QVERIFY(!Button("pushButtonRemove")->isEnabled());

    Table()->setRangeSelected(QTableWidgetSelectionRange(1, 0, 2, 1), true);
    QVERIFY(Button("pushButtonRemove")->isEnabled());
    const int firstSelectedRow = Table()->selectedItems().first()->row();
    QVERIFY(firstSelectedRow == 1 || firstSelectedRow == 2);
    const QString removedAddress = Table()->item(firstSelectedRow, 1)->text();
    Button("pushButtonRemove")->click();

    QCOMPARE(Manager()->GetReservationCount(), size_t(2));
    QCOMPARE(Table()->rowCount(), 2);
    QStringList remaining = {Table()->item(0, 1)->text(), Table()->item(1, 1)->text()};
    QVERIFY(!remaining.contains(removedAddress));
    QVERIFY(remaining.contains("10.77.0.101"));
    // The refill leaves nothing selected.
    QVERIFY(!Button("pushButtonRemove")->isEnabled());

    Table()->selectRow(0);
    Button("pushButtonRemove")->click();
    Table()->selectRow(0);
    Button("pushButtonRemove")->click();
    QCOMPARE(Manager()->GetReservationCount(), size_t(0));
    QCOMPARE(Table()->rowCount(), 0);
    QVERIFY(!Button("pushButtonRemove")->isEnabled());
    QVERIFY(watcher->Boxes().empty());
}

QTEST_MAIN(ReservationsDialogTest)
#include "ReservationsDialogTest.moc"
