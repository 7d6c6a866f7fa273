// The real program's start failures, each in a network namespace of its own
// and on the offscreen platform, with its box answered by
// support/BoxAnswerer.cpp: the box names the cause and the program ends with
// status 1. Skipped without root.

#include "support/NetworkNamespaces.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>

class ProgramStartTest : public QObject {
    Q_OBJECT

private slots:
    void startFailureShowsItsBoxAndEndsWithStatusOne_data()
    {
        QTest::addColumn<bool>("unprivileged");
        QTest::addColumn<QString>("box");
        // 3 is QMessageBox::Critical; the title is the main window's.
        QTest::newRow("without the privilege")
            << true
            << QStringLiteral("BOX 3|Tarnvel DHCP Server|Aby program mógł działać, musi zostać uruchomiony przez "
                              "użytkownika \"root\".");
        QTest::newRow("without any address")
            << false << QStringLiteral("BOX 3|Tarnvel DHCP Server|Nie można uruchomić programu!");
    }

    void startFailureShowsItsBoxAndEndsWithStatusOne()
    {
        QFETCH(bool, unprivileged);
        QFETCH(QString, box);
        if (!NamespacePair::Available()) {
            QSKIP(NamespacePair::SKIP_MESSAGE);
        }
        // The server side has an address but binding port 67 is privileged
        // there; the client side has loopback only once its address is gone.
        const NamespacePair pair;
        pair.RunInServer("sysctl -q -w net.ipv4.ip_unprivileged_port_start=1024");
        pair.RunInClient("ip addr flush dev " + pair.ClientInterface());

        // A copy without the English catalog beside it speaks Polish; the
        // answerer goes along, so that nobody can read both wherever the
        // build tree lies.
        QTemporaryDir folder;
        const QString program = folder.filePath("quorvy");
        const QString answerer = folder.filePath("libanswerer.so");
        QVERIFY(QFile::copy(QUORVY_PROGRAM, program) && QFile::copy(BOX_ANSWERER, answerer));
        QFile::setPermissions(folder.path(), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner |
                                                 QFile::ReadOther | QFile::ExeOther);
        QStringList arguments = {"netns", "exec",
                                 QString::fromStdString(unprivileged ? pair.ServerNamespace() : pair.ClientNamespace())};
        if (unprivileged) {
            arguments << "setpriv" << "--reuid=65534" << "--regid=65534" << "--clear-groups";
        }
        arguments << program;
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert("QT_QPA_PLATFORM", "offscreen");
        environment.insert("LD_PRELOAD", answerer);
        QProcess process;
        process.setProcessEnvironment(environment);
        process.setWorkingDirectory(QDir::rootPath());
        process.start("ip", arguments);
        QVERIFY(process.waitForFinished(60000));
        const QString output = QString::fromUtf8(process.readAllStandardOutput());
        QCOMPARE(output.split('\n', Qt::SkipEmptyParts).filter(QStringLiteral("BOX ")), QStringList{box});
        QCOMPARE(process.exitStatus(), QProcess::NormalExit);
        QCOMPARE(process.exitCode(), 1);
    }
};

QTEST_GUILESS_MAIN(ProgramStartTest)
#include "ProgramStartTest.moc"
