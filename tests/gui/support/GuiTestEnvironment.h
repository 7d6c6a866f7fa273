#pragma once

#include "support/FakeDatagramSocket.h"
#include "support/ManualClock.h"

#include "engine/ServerPlatform.h"
#include "foundation/IPv4Address.h"

#include <QByteArray>
#include <QString>
#include <QTemporaryDir>

#include <vector>

// A machine for one test: a temporary data folder that is the current
// directory (where settings.cfg and log.txt land), TEMP pointing into it for
// the lease files, and a server platform whose sockets are fakes, so that no
// test touches a real network interface.
class GuiTestEnvironment {
public:
    static const IPv4Address FIRST_ADDRESS;  // 10.77.0.1
    static const IPv4Address SECOND_ADDRESS; // 10.77.1.1

    GuiTestEnvironment();
    ~GuiTestEnvironment();

    GuiTestEnvironment(const GuiTestEnvironment&) = delete;
    GuiTestEnvironment& operator=(const GuiTestEnvironment&) = delete;

    // Sockets of the fake network, the two local addresses above, the
    // privilege as given, and the manual clock.
    ServerPlatform MakePlatform(bool privileged = true);
    ServerPlatform MakePlatformWithAddresses(const std::vector<IPv4Address>& addresses);

    QString FolderPath() const { return folder.path(); }
    QString FilePath(const QString& name) const { return folder.filePath(name); }
    QByteArray ReadFile(const QString& name) const;
    void WriteFile(const QString& name, const QByteArray& contents) const;

    FakeDatagramSocket::Network network;
    ManualClock clock;

private:
    QTemporaryDir folder;
    QByteArray oldDirectory;
    QByteArray oldTemp;
    bool hadTemp = false;
};
