// The two live tables: the lease view and the log window, driven by a manual
// clock and by invoking their refresh directly instead of waiting for timers.

#include "support/GuiTestEnvironment.h"

#include "LeasesDialog.h"
#include "LogBrowserDialog.h"

#include "allocation/AddressManager.h"
#include "config/Settings.h"
#include "engine/DHCPServer.h"
#include "foundation/HardwareAddress.h"
#include "log/LogManager.h"

#include <QHeaderView>
#include <QTableWidget>
#include <QtTest>

#include <memory>
#include <optional>

namespace {

void Refresh(QObject* view)
{
    QVERIFY(QMetaObject::invokeMethod(view, "TimerTimeout", Qt::DirectConnection));
}

QStringList Column(QTableWidget* table, int column)
{
    QStringList texts;
    for (int row = 0; row < table->rowCount(); ++row) {
        texts << table->item(row, column)->text();
    }
    return texts;
}

} // namespace

class LiveViewsTest : public QObject {
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void leaseViewShowsTheLeasesOfNow();
    void leaseViewDropsExpiredRowsAtTheNextTick();
    void emptyLeaseViewHasItsHeader();
    void logWindowAppendsOnlyNewRows();
    void logWindowHidesOnCloseAndKeepsGrowing();

private:
    void Lease(const char* hardwareAddress, const char* ipAddress, int32_t duration);
    void Log(EventType eventType, int lastOctet);

    std::unique_ptr<GuiTestEnvironment> environment;
    std::unique_ptr<DHCPServer> server;
};

void LiveViewsTest::init()
{
    environment = std::make_unique<GuiTestEnvironment>();
    server = std::make_unique<DHCPServer>(environment->MakePlatform());
}

void LiveViewsTest::cleanup()
{
    server.reset();
    environment.reset();
}

void LiveViewsTest::Lease(const char* hardwareAddress, const char* ipAddress, int32_t duration)
{
    server->GetAddressManager()->AddLease(HardwareAddress(hardwareAddress), IPv4Address(ipAddress), duration);
}

void LiveViewsTest::Log(EventType eventType, int lastOctet)
{
    // A DISCOVER carries no IP address; the other client events here do.
    const std::optional<IPv4Address> ipAddress =
        eventType == DHCPDiscoverReceived ? std::nullopt : std::optional(IPv4Address(10, 77, 0, lastOctet));
    server->GetLogManager()->AddLogItem(eventType, HardwareAddress("00:11:22:33:44:55"), ipAddress, false);
}

void LiveViewsTest::leaseViewShowsTheLeasesOfNow()
{
    Lease("00:11:22:33:44:01", "10.77.0.101", 7);
    Lease("00:11:22:33:44:02", "10.77.0.102", 4);
    Lease("00:11:22:33:44:03", "10.77.0.103", 3600);
    Lease("00:11:22:33:44:04", "10.77.0.104", 0);

    LeasesDialog dialog(server->GetAddressManager(), nullptr);
    auto* table = dialog.findChild<QTableWidget*>("tableWidget");

    QCOMPARE(dialog.windowTitle(), QStringLiteral("Lista dzierżawionych adresów"));
    QCOMPARE(table->horizontalHeaderItem(2)->text(), QStringLiteral("Pozostały czas [s]"));
    QCOMPARE(Column(table, 0),
             QStringList({"00:11:22:33:44:01", "00:11:22:33:44:02", "00:11:22:33:44:03", "00:11:22:33:44:04"}));
    QCOMPARE(Column(table, 1), QStringList({"10.77.0.101", "10.77.0.102", "10.77.0.103", "10.77.0.104"}));
    // Rounded down to 5 s: 7 shows as 5, 4 as 0; a lease with 0 s left is still there.
    QCOMPARE(Column(table, 2), QStringList({"5", "0", "3600", "0"}));
    QVERIFY(table->item(0, 2)->textAlignment() & Qt::AlignHCenter);

    environment->clock.Advance(6);
    Refresh(&dialog);
    QCOMPARE(Column(table, 2), QStringList({"0", "3590"}));
    QCOMPARE(Column(table, 1), QStringList({"10.77.0.101", "10.77.0.103"}));
}

void LiveViewsTest::leaseViewDropsExpiredRowsAtTheNextTick()
{
    Lease("00:11:22:33:44:01", "10.77.0.101", 10);
    Lease("00:11:22:33:44:02", "10.77.0.102", 60);
    LeasesDialog dialog(server->GetAddressManager(), nullptr);
    auto* table = dialog.findChild<QTableWidget*>("tableWidget");
    QCOMPARE(table->rowCount(), 2);

    environment->clock.Advance(10);
    Refresh(&dialog);
    QCOMPARE(Column(table, 2), QStringList({"0", "50"}));

    environment->clock.Advance(1);
    Refresh(&dialog);
    QCOMPARE(Column(table, 1), QStringList({"10.77.0.102"}));

    // A released lease counts as expired.
    server->GetAddressManager()->ReleaseLease(IPv4Address(10, 77, 0, 102));
    Refresh(&dialog);
    QCOMPARE(table->rowCount(), 0);
}

void LiveViewsTest::emptyLeaseViewHasItsHeader()
{
    LeasesDialog dialog(server->GetAddressManager(), nullptr);
    auto* table = dialog.findChild<QTableWidget*>("tableWidget");
    QCOMPARE(table->rowCount(), 0);
    QCOMPARE(table->columnCount(), 3);
    QCOMPARE(table->horizontalHeaderItem(0)->text(), QStringLiteral("Adres MAC"));
    QCOMPARE(table->horizontalHeader()->sectionResizeMode(0), QHeaderView::Fixed);
    QCOMPARE(dialog.minimumWidth(), 394);
    QCOMPARE(dialog.maximumWidth(), 394);
    QCOMPARE(table->focusPolicy(), Qt::NoFocus);
    QCOMPARE(table->selectionMode(), QAbstractItemView::NoSelection);
}

void LiveViewsTest::logWindowAppendsOnlyNewRows()
{
    server->GetSettings()->SetLoggingEnabled(true);
    Log(DHCPDiscoverReceived, 0);
    LogBrowserDialog window(server->GetLogManager(), nullptr);
    auto* table = window.findChild<QTableWidget*>("tableWidget");

    QCOMPARE(window.windowTitle(), QStringLiteral("Log serwera"));
    QCOMPARE(window.windowType(), Qt::Window);
    QCOMPARE(table->horizontalHeaderItem(1)->text(), QStringLiteral("Rodzaj zdarzenia"));
    QCOMPARE(table->rowCount(), 1);
    QTableWidgetItem* firstRow = table->item(0, 1);

    Refresh(&window);
    QCOMPARE(table->rowCount(), 1);

    // Three items between two ticks: three rows in one tick, in order.
    Log(DHCPOfferSent, 100);
    Log(DHCPRequestReceived, 100);
    Log(DHCPAckSent, 100);
    Refresh(&window);

    QCOMPARE(table->rowCount(), 4);
    // The rows already there are the same objects: nothing was rebuilt.
    QCOMPARE(table->item(0, 1), firstRow);
    const std::vector<LogItem> items = server->GetLogManager()->GetLogItems(0);
    QCOMPARE(items.size(), size_t(4));
    for (int row = 0; row < 4; ++row) {
        QCOMPARE(table->item(row, 0)->text().toStdString(), items[row].GetTimeString());
        QCOMPARE(table->item(row, 1)->text().toStdString(), items[row].GetEventName());
        QCOMPARE(table->item(row, 2)->text().toStdString(), items[row].GetDetails());
    }

    // Logging switched off: nothing new arrives, the rows stay.
    server->GetSettings()->SetLoggingEnabled(false);
    Log(DHCPAckSent, 101);
    Refresh(&window);
    QCOMPARE(table->rowCount(), 4);
}

void LiveViewsTest::logWindowHidesOnCloseAndKeepsGrowing()
{
    server->GetSettings()->SetLoggingEnabled(true);
    LogBrowserDialog window(server->GetLogManager(), nullptr);
    auto* table = window.findChild<QTableWidget*>("tableWidget");
    QCOMPARE(table->rowCount(), 0);

    window.showNormal();
    QVERIFY(window.isVisible());
    QVERIFY(!window.close());
    QVERIFY(!window.isVisible());

    Log(DHCPDiscoverReceived, 0);
    Log(DHCPOfferSent, 100);
    // The refresh runs while hidden, by its own timer.
    QTRY_COMPARE_WITH_TIMEOUT(table->rowCount(), 2, 5000);

    window.showNormal();
    QVERIFY(window.isVisible());
    QCOMPARE(table->rowCount(), 2);
}

QTEST_MAIN(LiveViewsTest)
#include "LiveViewsTest.moc"
