// The dialogs on a real server's data: the two table editors (reservations
// and additional options), the log settings, the lease view and the log
// window. Timers are not waited for: the views' refresh is invoked directly.

#include "support/GuiTest.h"
#include "support/TestHardware.h"

#include "LeasesDialog.h"
#include "LogBrowserDialog.h"
#include "LogSettingsDialog.h"
#include "RawOptionsDialog.h"
#include "ReservationsDialog.h"

#include "allocation/AddressManager.h"
#include "config/Settings.h"
#include "engine/DHCPServer.h"
#include "log/LogManager.h"
#include "wire/RawOption.h"

#include <QCheckBox>
#include <QTableView>
#include <QTableWidget>
#include <QtTest>

#include <memory>

namespace {

const QString RESERVATIONS = QStringLiteral("Rezerwacje adresów");
const QString OPTIONS = QStringLiteral("Dodatkowe opcje DHCP");
const QString BAD_CODE = QStringLiteral("Kod opcji jest nieprawidłowy!");
const QString BAD_DATA = QStringLiteral("Wprowadzono nieprawidłowe dane!");
const QString NO_DATA = QStringLiteral("Dane muszą zawierać co najmniej jeden bajt!");
const QString BAD_IP = QStringLiteral("Podany adres IP jest nieprawidłowy!");
const QString BAD_MAC = QStringLiteral("Podany adres MAC jest nieprawidłowy!");
const QString MAC_TAKEN = QStringLiteral("Istnieje już rezerwacja dotycząca podanego adresu MAC!");
const QString IP_TAKEN = QStringLiteral("Podany adres IP jest już zarezerwowany!");
const QString OUTSIDE = QStringLiteral("Adres IP musi być w tej samej podsieci, co adresy z puli!");

QTableWidget* Table(QWidget* dialog)
{
    return dialog->findChild<QTableWidget*>("tableWidget");
}

QStringList Row(QWidget* dialog, int row)
{
    return {Table(dialog)->item(row, 0)->text(), Table(dialog)->item(row, 1)->text()};
}

// The table of a live view, and what it shows.
QTableView* View(QWidget* dialog)
{
    return dialog->findChild<QTableView*>("tableView");
}

int RowCount(QWidget* dialog)
{
    return View(dialog)->model()->rowCount();
}

QString Text(QWidget* dialog, int row, int column)
{
    return View(dialog)->model()->index(row, column).data().toString();
}

QStringList Column(QWidget* dialog, int column)
{
    QStringList texts;
    for (int row = 0; row < RowCount(dialog); ++row) {
        texts << Text(dialog, row, column);
    }
    return texts;
}

// Counts every change that a model announces to its view.
struct ModelChanges {
    explicit ModelChanges(QAbstractItemModel* model)
    {
        const auto count = [this] { ++others; };
        QObject::connect(model, &QAbstractItemModel::dataChanged, model, count);
        QObject::connect(model, &QAbstractItemModel::rowsRemoved, model, count);
        QObject::connect(model, &QAbstractItemModel::modelReset, model, count);
        QObject::connect(model, &QAbstractItemModel::layoutChanged, model, count);
        QObject::connect(model, &QAbstractItemModel::rowsInserted, model,
                         [this](const QModelIndex&, int first, int last) { inserted << first << last; });
    }
    QList<int> inserted; // first and last row of each insertion
    int others = 0;
};


void Refresh(QObject* view)
{
    QVERIFY(QMetaObject::invokeMethod(view, "TimerTimeout", Qt::DirectConnection));
    // What the event loop does after the slot: the view lays out what changed.
    QCoreApplication::processEvents();
}

} // namespace

class DialogsTest : public QObject {
    Q_OBJECT

    std::unique_ptr<GuiTestEnvironment> environment;
    std::unique_ptr<DHCPServer> server;
    std::unique_ptr<ModalWatcher> watcher;

    // The editor titled `title` on the server's data: each has three rows.
    std::unique_ptr<QDialog> OpenEditor(const QString& title)
    {
        if (title == RESERVATIONS) {
            return std::make_unique<ReservationsDialog>(server->GetAddressManager(), nullptr);
        }
        return std::make_unique<RawOptionsDialog>(server->GetSettings(), nullptr);
    }

    size_t StoredCount(const QString& title)
    {
        return title == RESERVATIONS ? server->GetAddressManager()->GetReservationCount()
                                     : server->GetSettings()->GetAdditionalOptions().size();
    }

private slots:
    void init()
    {
        environment = std::make_unique<GuiTestEnvironment>();
        server = std::make_unique<DHCPServer>(environment->MakePlatform());
        Settings* settings = server->GetSettings();
        settings->SetPoolStartAddress(IPv4Address(10, 77, 0, 100));
        settings->SetPoolEndAddress(IPv4Address(10, 77, 0, 199));
        settings->SetSubnetMask(24);
        for (const std::string host : {"1", "2", "3"}) {
            server->GetAddressManager()->AddReservation(
                AddressReservation(HardwareAddress("00:11:22:33:44:0" + host), IPv4Address("10.77.0.10" + host)));
        }
        settings->GetAdditionalOptions() = {RawOption("4", "1 2 3 4"), RawOption("6", "8 8 8 8"), RawOption("15", "9")};
        watcher = std::make_unique<ModalWatcher>();
    }

    void cleanup()
    {
        QVERIFY(watcher->AllAnswered());
        watcher.reset();
        server.reset();
        environment.reset();
    }

    void addThroughTheFormAppendsOrRefusesWithItsBox_data()
    {
        QTest::addColumn<QString>("editor");
        QTest::addColumn<QString>("first");
        QTest::addColumn<QString>("second");
        QTest::addColumn<QString>("box"); // empty: accepted
        QTest::newRow("reservation") << RESERVATIONS << "00 AA BB CC DD EE" << "10.77.0.150" << QString();
        QTest::newRow("bad IP") << RESERVATIONS << "00:11:22:33:44:99" << "10.77.0" << BAD_IP;
        QTest::newRow("both bad: the MAC is reported") << RESERVATIONS << "zz" << "nonsense" << BAD_MAC;
        QTest::newRow("MAC already reserved") << RESERVATIONS << "00:11:22:33:44:01" << "10.77.0.150" << MAC_TAKEN;
        QTest::newRow("IP already reserved") << RESERVATIONS << "00:11:22:33:44:99" << "10.77.0.101" << IP_TAKEN;
        QTest::newRow("outside the pool's subnet") << RESERVATIONS << "00:11:22:33:44:99" << "10.77.1.150" << OUTSIDE;
        QTest::newRow("option code used before") << OPTIONS << "4" << "192  168 1 100" << QString();
        QTest::newRow("both bad: the code is reported") << OPTIONS << "256" << "" << BAD_CODE;
        QTest::newRow("data word") << OPTIONS << "4" << "1 abc" << BAD_DATA;
        QTest::newRow("no data") << OPTIONS << "4" << "" << NO_DATA;
        QTest::newRow("255 bytes") << OPTIONS << "4" << QStringList(255, "7").join(' ')
                                   << QStringLiteral("Dane mogą zawierać nie więcej, niż 254 bajty!");
    }

    void addThroughTheFormAppendsOrRefusesWithItsBox()
    {
        QFETCH(QString, editor);
        QFETCH(QString, first);
        QFETCH(QString, second);
        QFETCH(QString, box);
        const auto dialog = OpenEditor(editor);
        const bool reservation = editor == RESERVATIONS;
        bool stayedOpen = false;
        QString keptText;
        watcher->OnDialog(reservation ? "AddReservationDialog" : "AddRawOptionDialog", [&](QDialog* form) {
            auto* firstField =
                form->findChild<QLineEdit*>(reservation ? "lineEditHardwareAddress" : "lineEditOptionCode");
            firstField->setText(first);
            form->findChild<QLineEdit*>(reservation ? "lineEditIPAddress" : "lineEditData")->setText(second);
            form->findChild<QPushButton*>("pushButtonOK")->click();
            stayedOpen = form->isVisible();
            keptText = firstField->text();
            form->reject();
        });

        dialog->findChild<QPushButton*>("pushButtonAdd")->click();

        QCOMPARE(stayedOpen, !box.isEmpty());
        QCOMPARE(watcher->OnlyBox().text, box);
        // A refused form keeps the user's text for another try.
        QCOMPARE(keptText, first);
        if (box.isEmpty()) {
            QCOMPARE(StoredCount(editor), size_t(4));
            // Shown as stored, in canonical form.
            QCOMPARE(Row(dialog.get(), 3), Row(OpenEditor(editor).get(), 3));
            const QString shownFirst = reservation ? QStringLiteral("00:aa:bb:cc:dd:ee") : first;
            QCOMPARE(Row(dialog.get(), 3), QStringList({shownFirst, second.simplified()}));
        } else {
            // Titled like the editor, not like the form.
            QCOMPARE(watcher->OnlyBox().title, editor);
            QCOMPARE(watcher->OnlyBox().icon, QMessageBox::Critical);
            QCOMPARE(StoredCount(editor), size_t(3));
            QCOMPARE(Table(dialog.get())->rowCount(), 3);
        }
    }

    void inPlaceEditIsStoredOrRestoredWithItsBox_data()
    {
        QTest::addColumn<QString>("editor");
        QTest::addColumn<int>("column");
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("box"); // empty: accepted
        QTest::addColumn<QStringList>("stored");
        const QStringList reservation = {"00:11:22:33:44:01", "10.77.0.101"};
        const QStringList option = {"4", "1 2 3 4"};
        QTest::newRow("new IP") << RESERVATIONS << 1 << "10.77.0.111" << QString()
                                << QStringList{"00:11:22:33:44:01", "10.77.0.111"};
        QTest::newRow("its own MAC again") << RESERVATIONS << 0 << "00:11:22:33:44:01" << QString() << reservation;
        QTest::newRow("MAC of another row") << RESERVATIONS << 0 << "00:11:22:33:44:02" << MAC_TAKEN << reservation;
        QTest::newRow("no IP address") << RESERVATIONS << 1 << "ten.77.0.1" << BAD_IP << reservation;
        QTest::newRow("new data") << OPTIONS << 1 << "9  9 9 9" << QString() << QStringList{"4", "9 9 9 9"};
        QTest::newRow("code 255") << OPTIONS << 0 << "255" << BAD_CODE << option;
    }

    void inPlaceEditIsStoredOrRestoredWithItsBox()
    {
        QFETCH(QString, editor);
        QFETCH(int, column);
        QFETCH(QString, text);
        QFETCH(QString, box);
        QFETCH(QStringList, stored);
        const auto dialog = OpenEditor(editor);
        const QStringList secondRow = Row(dialog.get(), 1);

        Table(dialog.get())->item(0, column)->setText(text);

        QCOMPARE(watcher->OnlyBox().text, box);
        QCOMPARE(Row(OpenEditor(editor).get(), 0), stored);
        QCOMPARE(Row(OpenEditor(editor).get(), 1), secondRow);
        QCOMPARE(StoredCount(editor), size_t(3));
        if (!box.isEmpty()) {
            QCOMPARE(watcher->OnlyBox().title, editor);
            QCOMPARE(Row(dialog.get(), 0), stored);
        }
    }

    void removeTakesTheFirstSelectedRowOnly()
    {
        for (const QString& editor : {RESERVATIONS, OPTIONS}) {
            const auto dialog = OpenEditor(editor);
            QPushButton* remove = dialog->findChild<QPushButton*>("pushButtonRemove");
            QVERIFY(!remove->isEnabled());
            Table(dialog.get())->setRangeSelected(QTableWidgetSelectionRange(1, 0, 2, 1), true);
            QVERIFY(remove->isEnabled());
            const QStringList removed = Row(dialog.get(), Table(dialog.get())->selectedItems().first()->row());

            remove->click();

            QCOMPARE(StoredCount(editor), size_t(2));
            QCOMPARE(Table(dialog.get())->rowCount(), 2);
            QVERIFY2(Row(dialog.get(), 0) != removed && Row(dialog.get(), 1) != removed, qPrintable(editor));
            QCOMPARE(Row(dialog.get(), 0), Row(OpenEditor(editor).get(), 0));
            // The refill leaves nothing selected.
            QVERIFY(!remove->isEnabled());
        }
        QVERIFY(watcher->boxes.empty());
    }

    void logSettingsStoreOnOkOnly()
    {
        Settings* settings = server->GetSettings();
        for (const char* button : {"pushButtonCancel", "pushButtonOK"}) {
            LogSettingsDialog dialog(settings, nullptr);
            QVERIFY(!dialog.findChild<QCheckBox*>("checkBoxEnableLogging")->isChecked());
            QVERIFY(dialog.findChild<QCheckBox*>("checkBoxEventType_DHCPOfferSent")->isChecked());
            dialog.findChild<QCheckBox*>("checkBoxEnableLogging")->setChecked(true);
            dialog.findChild<QCheckBox*>("checkBoxLogIgnoredMessages")->setChecked(true);
            dialog.findChild<QCheckBox*>("checkBoxEventType_DHCPOfferSent")->setChecked(false);
            dialog.findChild<QLineEdit*>("lineEditLogFilePath")->setText(QStringLiteral("logs łódź//dhcp*?.txt"));
            dialog.findChild<QPushButton*>(button)->click();
        }
        QVERIFY(settings->GetLoggingEnabled() && settings->GetLogIgnoredDHCPMessages());
        QVERIFY(!settings->GetLogEventEnabled(DHCPOfferSent) && settings->GetLogEventEnabled(DHCPAckSent));
        QCOMPARE(QString::fromStdString(settings->GetLogFilePath()), QStringLiteral("logs łódź/dhcp.txt"));
        // Opened again, the form shows what was stored.
        LogSettingsDialog again(settings, nullptr);
        QVERIFY(again.findChild<QCheckBox*>("checkBoxEnableLogging")->isChecked());
        QVERIFY(!again.findChild<QCheckBox*>("checkBoxEventType_DHCPOfferSent")->isChecked());
        QCOMPARE(again.findChild<QLineEdit*>("lineEditLogFilePath")->text(), QStringLiteral("logs łódź/dhcp.txt"));
    }

    void leaseViewHidesExpiredRowsAndRoundsDownToFiveSeconds()
    {
        AddressManager* addresses = server->GetAddressManager();
        addresses->AddLease(HardwareAddress("00:11:22:33:44:01"), IPv4Address(10, 77, 0, 101), 7);
        addresses->AddLease(HardwareAddress("00:11:22:33:44:02"), IPv4Address(10, 77, 0, 102), 4);
        addresses->AddLease(HardwareAddress("00:11:22:33:44:03"), IPv4Address(10, 77, 0, 103), 3600);
        addresses->AddLease(HardwareAddress("00:11:22:33:44:04"), IPv4Address(10, 77, 0, 104), 0);
        LeasesDialog view(addresses, nullptr);

        QCOMPARE(Column(&view, 0)[3], QStringLiteral("00:11:22:33:44:04"));
        QCOMPARE(Column(&view, 1), QStringList({"10.77.0.101", "10.77.0.102", "10.77.0.103", "10.77.0.104"}));
        // 7 s shows as 5, 4 as 0; a lease with 0 s left is still there.
        QCOMPARE(Column(&view, 2), QStringList({"5", "0", "3600", "0"}));

        environment->clock.Advance(6);
        Refresh(&view);
        QCOMPARE(Column(&view, 1), QStringList({"10.77.0.101", "10.77.0.103"}));
        QCOMPARE(Column(&view, 2), QStringList({"0", "3590"}));

        environment->clock.Advance(2);
        Refresh(&view);
        QCOMPARE(Column(&view, 1), QStringList({"10.77.0.103"}));
        // A released lease counts as expired.
        addresses->ReleaseLease(IPv4Address(10, 77, 0, 103));
        Refresh(&view);
        QCOMPARE(RowCount(&view), 0);
    }

    void leaseViewKeepsItsScrollPositionOverRefreshes()
    {
        AddressManager* addresses = server->GetAddressManager();
        const auto lease = [addresses](int host, int32_t duration) {
            addresses->AddLease(TestHardware(host), IPv4Address(10, 77, host / 256, host % 256), duration);
        };
        for (int host = 1; host <= 300; ++host) {
            lease(host, host == 3 ? 1 : 3600);
        }
        LeasesDialog view(addresses, nullptr);
        view.show();
        View(&view)->scrollTo(View(&view)->model()->index(150, 0), QAbstractItemView::PositionAtTop);

        // Leases renewed, granted and expired: the same row index stays at the top.
        environment->clock.Advance(2);
        lease(400, 3600);
        lease(10, 3600);
        Refresh(&view);
        QCOMPARE(RowCount(&view), 300);
        QCOMPARE(View(&view)->rowAt(0), 150);
        QCOMPARE(Text(&view, 150, 1), "10.77.0.153"); // two rows above it went, one of them to the end
    }

    void logWindowAppendsOnlyNewRowsKeepsItsScrollPositionAndHidesOnClose()
    {
        LogManager* log = server->GetLogManager();
        server->GetSettings()->SetLoggingEnabled(true);
        int clients = 0;
        const auto add = [this, log, &clients](int count) {
            for (const int end = clients + count; clients < end; ++clients) {
                environment->clock.Advance(clients % 2);
                log->AddLogItem(clients % 3 == 0 ? DHCPAckSent : DHCPRequestReceived, TestHardware(clients),
                                IPv4Address(10, 77, 0, 100), false);
            }
        };
        add(200);
        LogBrowserDialog window(log, nullptr);
        window.show();
        View(&window)->scrollTo(View(&window)->model()->index(100, 0), QAbstractItemView::PositionAtTop);
        ModelChanges changes(View(&window)->model());

        // Batches over the log's blocks of 4096 items, one tick after each:
        // a batch is one insertion behind the rows already there, which stay
        // as they were, and a tick with nothing new changes nothing.
        for (const int batch : {1, 0, 4094, 2, 3000, 2703}) {
            const int first = clients;
            changes.inserted.clear();
            add(batch);
            Refresh(&window);
            QCOMPARE(changes.inserted, batch == 0 ? QList<int>() : QList<int>({first, clients - 1}));
            QCOMPARE(View(&window)->rowAt(0), 100);
        }
        QCOMPARE(changes.others, 0);
        const std::vector<LogItem> items = log->GetLogItems(0);
        QCOMPARE(RowCount(&window), 10000);
        for (int row = 0; row < RowCount(&window); ++row) {
            QCOMPARE(Text(&window, row, 0).toStdString(), items[row].GetTimeString());
            QCOMPARE(Text(&window, row, 1).toStdString(), items[row].GetEventName());
            QCOMPARE(Text(&window, row, 2).toStdString(), items[row].GetDetails());
        }

        QVERIFY(!window.close());
        QVERIFY(!window.isVisible());
        // Hidden, it keeps growing by its own timer.
        add(1);
        QTRY_COMPARE_WITH_TIMEOUT(RowCount(&window), 10001, 5000);
    }
};

QTEST_MAIN(DialogsTest)
#include "DialogsTest.moc"
