#include "MainWindowProbe.h"

#include <QIcon>
#include <QPixmap>

const QStringList& MainWindowProbe::FieldNames()
{
    static const QStringList names = {
        "lineEditPoolStartAddress", "lineEditPoolEndAddress", "lineEditSubnetMask",    "lineEditDefaultGateway",
        "lineEditDNSAddress1",      "lineEditDNSAddress2",    "lineEditLeaseDuration",
    };
    return names;
}

bool MainWindowProbe::IsFormEnabled(bool enabled) const
{
    for (const QString& name : FieldNames()) {
        if (Field(name) == nullptr || Field(name)->isEnabled() != enabled) {
            return false;
        }
    }
    return ListeningAddress() != nullptr && ListeningAddress()->isEnabled() == enabled;
}

QImage MainWindowProbe::WindowIconImage() const
{
    return window.windowIcon().pixmap(32, 32).toImage().convertToFormat(QImage::Format_ARGB32);
}

QImage MainWindowProbe::TrayIconImage() const
{
    return TrayIcon()->icon().pixmap(16, 16).toImage().convertToFormat(QImage::Format_ARGB32);
}

QImage MainWindowProbe::ResourceImage(const QString& name)
{
    return QImage(name).convertToFormat(QImage::Format_ARGB32);
}

void MainWindowProbe::EnterValidForm() const
{
    SetField("lineEditPoolStartAddress", "10.77.0.100");
    SetField("lineEditPoolEndAddress", "10.77.0.199");
    SetField("lineEditSubnetMask", "255.255.255.0");
    SetField("lineEditDefaultGateway", "10.77.0.1");
    SetField("lineEditDNSAddress1", "10.77.0.1");
    SetField("lineEditDNSAddress2", "");
    SetField("lineEditLeaseDuration", "600");
}
