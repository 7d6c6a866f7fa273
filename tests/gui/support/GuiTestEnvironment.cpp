#include "GuiTestEnvironment.h"

#include <QDir>
#include <QFile>
#include <QtGlobal>

#include <memory>

const IPv4Address GuiTestEnvironment::FIRST_ADDRESS(10, 77, 0, 1);
const IPv4Address GuiTestEnvironment::SECOND_ADDRESS(10, 77, 1, 1);

GuiTestEnvironment::GuiTestEnvironment()
    : oldDirectory(QDir::currentPath().toLocal8Bit())
    , oldTemp(qgetenv("TEMP"))
    , hadTemp(qEnvironmentVariableIsSet("TEMP"))
{
    Q_ASSERT(folder.isValid());
    QDir::setCurrent(folder.path());
    qputenv("TEMP", folder.path().toLocal8Bit());
}

GuiTestEnvironment::~GuiTestEnvironment()
{
    QDir::setCurrent(QString::fromLocal8Bit(oldDirectory));
    if (hadTemp) {
        qputenv("TEMP", oldTemp);
    } else {
        qunsetenv("TEMP");
    }
}

ServerPlatform GuiTestEnvironment::MakePlatform(bool privileged)
{
    ServerPlatform platform = MakePlatformWithAddresses({FIRST_ADDRESS, SECOND_ADDRESS});
    platform.canBindPrivilegedPort = [privileged] { return privileged; };
    return platform;
}

ServerPlatform GuiTestEnvironment::MakePlatformWithAddresses(const std::vector<IPv4Address>& addresses)
{
    ServerPlatform platform;
    platform.detectLocalAddresses = [addresses] { return addresses; };
    platform.createSocket = [this]() -> std::unique_ptr<DatagramSocket> {
        return std::make_unique<FakeDatagramSocket>(network);
    };
    platform.canBindPrivilegedPort = [] { return true; };
    platform.clock = &clock;
    return platform;
}

QByteArray GuiTestEnvironment::ReadFile(const QString& name) const
{
    QFile file(FilePath(name));
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

void GuiTestEnvironment::WriteFile(const QString& name, const QByteArray& contents) const
{
    QFile file(FilePath(name));
    if (file.open(QIODevice::WriteOnly | QIODevice::Truncate)) {
        file.write(contents);
    }
}
